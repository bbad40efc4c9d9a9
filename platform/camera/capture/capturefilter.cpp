#include "capturefilter.h"

#include "protocol/gigevision.h"

#include <linux/if_ether.h>
#include <netinet/in.h>

namespace {

// Offsets in the IPv4 header, and in what follows it.
constexpr std::uint32_t Fragment = 6, Protocol = 9, Source = 12, Destination = 16;
constexpr std::uint32_t SourcePort = 0, DestinationPort = 2, Payload = 8;

// Every test is followed by the return that it decides about, so that only one jump has to know how far it goes. A load
// behind the packet's end drops the packet.
class Program
{
public:
    void Load(std::uint16_t size, std::uint32_t at)
    {
        Add(BPF_LD | BPF_ABS | size, at);
    }
    void LoadBehindHeader(std::uint16_t size, std::uint32_t at)
    {
        Add(BPF_LD | BPF_IND | size, at);
    }
    void FindHeaderEnd()
    {
        Add(BPF_LDX | BPF_MSH | BPF_B, 0);
    }
    void Mask(std::uint32_t bits)
    {
        Add(BPF_ALU | BPF_AND | BPF_K, bits);
    }
    void Require(std::uint32_t value)
    {
        Add(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0);
        Take(0);
    }
    void DropIfAny(std::uint32_t bits)
    {
        Add(BPF_JMP | BPF_JSET | BPF_K, bits, 0, 1);
        Take(0);
    }
    void TakeIf(std::uint32_t value, std::uint32_t bytes)
    {
        Add(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
        Take(bytes);
    }
    void Take(std::uint32_t bytes)
    {
        Add(BPF_RET | BPF_K, bytes);
    }
    // Goes on at the place that Land says, if what is loaded is something else.
    std::size_t JumpUnless(std::uint32_t value)
    {
        Add(BPF_JMP | BPF_JEQ | BPF_K, value);
        return m_code.size();
    }
    void Land(std::size_t jump)
    {
        m_code[jump - 1].jf = static_cast<std::uint8_t>(m_code.size() - jump);
    }
    std::vector<sock_filter> Finish()
    {
        return std::move(m_code);
    }

private:
    void Add(int code, std::uint32_t value, std::uint8_t ifTrue = 0, std::uint8_t ifFalse = 0)
    {
        m_code.push_back({static_cast<std::uint16_t>(code), ifTrue, ifFalse, value});
    }

    std::vector<sock_filter> m_code;
};

} // namespace

std::vector<sock_filter> MakeCaptureFilter(CaptureRequest const &request)
{
    constexpr std::uint32_t Version4 = 0x40, VersionBits = 0xF0, FragmentOffset = 0x1FFF;
    Program program;
    program.Load(BPF_W, SKF_AD_OFF + SKF_AD_PROTOCOL);
    program.Require(ETH_P_IP);
    program.Load(BPF_B, 0);
    program.Mask(VersionBits);
    program.Require(Version4);
    program.Load(BPF_B, Protocol);
    program.Require(IPPROTO_UDP);
    program.Load(BPF_H, Fragment);
    program.DropIfAny(FragmentOffset); // has no ports
    program.FindHeaderEnd();
    if (request.kind == CaptureStream) {
        program.Load(BPF_W, Source);
        program.Require(request.camera);
        program.Load(BPF_W, Destination);
        program.Require(request.host);
        program.LoadBehindHeader(BPF_H, DestinationPort);
        program.Require(request.port);
        program.Take(CaptureWhole);
        return program.Finish();
    }
    program.Load(BPF_W, Source);
    std::size_t const toCamera = program.JumpUnless(request.camera);
    program.Load(BPF_W, Destination);
    program.Require(request.host);
    // Both ports: camera and host may have one address.
    program.LoadBehindHeader(BPF_H, SourcePort);
    program.TakeIf(gvcp::Port, CaptureControlSnap);
    program.LoadBehindHeader(BPF_H, DestinationPort);
    program.TakeIf(gvcp::Port, CaptureControlSnap);
    // An event, by the byte that begins every command, and no stream packet.
    program.LoadBehindHeader(BPF_B, Payload);
    program.TakeIf(gvcp::Key, CaptureControlSnap);
    program.Take(CaptureStreamSnap);
    program.Land(toCamera);
    program.Require(request.host);
    program.Load(BPF_W, Destination);
    program.Require(request.camera);
    program.Take(CaptureControlSnap);
    return program.Finish();
}
