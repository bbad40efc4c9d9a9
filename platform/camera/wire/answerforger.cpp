#include "answerforger.h"

#include "hostiledescription.h"

#include "protocol/gigevision.h"
#include "sim/simregisters.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

namespace B = gvcp::bootstrap;
namespace S = SimRegister;

using Random = std::minstd_rand;
using Bytes = std::vector<std::uint8_t>;
using Out = std::vector<GvcpDatagram>;

// Places in a header.
constexpr std::size_t StatusAt = 0, CodeAt = 2, LengthAt = 4, IdAt = 6;

std::uint8_t RandomByte(Random &random)
{
    return static_cast<std::uint8_t>(std::uniform_int_distribution(0, 255)(random));
}

// With another size of the body, which the header announces.
void Resize(GvcpDatagram &answer, std::size_t body)
{
    answer.bytes.resize(gvcp::HeaderSize + body);
    StoreBig16(&answer.bytes[LengthAt], static_cast<std::uint16_t>(body));
}

std::size_t BodySize(GvcpDatagram const &answer)
{
    return answer.bytes.size() - gvcp::HeaderSize;
}

GvcpDatagram PendingOf(GvcpDatagram answer, std::uint16_t time, std::size_t size = gvcp::PendingAck::Size)
{
    Resize(answer, size);
    StoreBig16(&answer.bytes[StatusAt], gvcp::GEV_STATUS_SUCCESS);
    StoreBig16(&answer.bytes[CodeAt], gvcp::PENDING_ACK);
    std::fill(answer.bytes.begin() + gvcp::HeaderSize, answer.bytes.end(), std::uint8_t{0});
    if (size == gvcp::PendingAck::Size)
        StoreBig16(&answer.bytes[gvcp::HeaderSize + gvcp::PendingAck::TimeToCompletion], time);
    return answer;
}

// Event packets with bodies of 0 to 40 bytes, of which 16 and 24 would be right.
void AppendEvents(GvcpDatagram const &answer, Random &random, Out &out)
{
    constexpr std::size_t Longest = 40;
    for (std::size_t size = 0; size <= Longest; size += 5) {
        GvcpDatagram event{answer.to, Bytes(gvcp::HeaderSize + size), answer.message};
        std::generate(event.bytes.begin(), event.bytes.end(), [&] { return RandomByte(random); });
        gvcp::WriteHeader(
            std::span(event.bytes).first<gvcp::HeaderSize>(),
            {gvcp::CommandLead(gvcp::ACKNOWLEDGE), gvcp::EVENT_CMD, static_cast<std::uint16_t>(Longest - size), 1});
        out.push_back(std::move(event));
    }
}

struct Forgery
{
    WireAnswerForgery kind;
    void (*forge)(GvcpDatagram &answer, Random &random, Out &out);
};

using K = WireAnswerForgery;
using D = GvcpDatagram;

Forgery const Forgeries[] = {
    {K::Empty,
     [](D &answer, Random &, Out &) {
         answer.bytes.clear();
     }},
    {K::Cut,
     [](D &answer, Random &, Out &) {
         answer.bytes.resize(4);
     }},
    {K::Oversized,
     [](D &answer, Random &, Out &) {
         answer.bytes.resize(60000);
         StoreBig16(&answer.bytes[LengthAt], static_cast<std::uint16_t>(BodySize(answer)));
     }},
    {K::Longer,
     [](D &answer, Random &, Out &) {
         Resize(answer, BodySize(answer) + 4);
     }},
    {K::Shorter,
     [](D &answer, Random &, Out &) {
         Resize(answer, std::max<std::size_t>(BodySize(answer), 4) - 4);
     }},
    {K::WrongCode,
     [](D &answer, Random &, Out &) {
         StoreBig16(&answer.bytes[CodeAt], static_cast<std::uint16_t>(LoadBig16(&answer.bytes[CodeAt]) ^ 2));
     }},
    {K::WrongAddress,
     [](D &answer, Random &, Out &) {
         if (BodySize(answer) > 0)
             answer.bytes[gvcp::HeaderSize] ^= 1;
     }},
    {K::Duplicate,
     [](D &answer, Random &, Out &out) {
         out.insert(out.end(), 9, answer);
     }},
    {K::Stale,
     [](D &answer, Random &, Out &out) {
         GvcpDatagram stale = answer;
         for (std::uint16_t back = 100; back > 0; --back) {
             StoreBig16(&stale.bytes[IdAt], static_cast<std::uint16_t>(LoadBig16(&answer.bytes[IdAt]) - back));
             out.push_back(stale);
         }
     }},
    {K::OtherPort,
     [](D &answer, Random &, Out &) {
         answer.message = true;
     }},
    {K::Pending,
     [](D &answer, Random &, Out &) {
         answer = PendingOf(answer, 0xFFFF);
     }},
    {K::PendingFlood,
     [](D &answer, Random &, Out &out) {
         out.insert(out.end(), 100, PendingOf(answer, 0xFFFF));
     }},
    {K::Busy,
     [](D &answer, Random &, Out &) {
         StoreBig16(answer.bytes.data(), gvcp::GEV_STATUS_BUSY);
     }},
    {K::BadStatus,
     [](D &answer, Random &random, Out &) {
         StoreBig16(&answer.bytes[StatusAt], static_cast<std::uint16_t>(RandomByte(random) << 8 | RandomByte(random)));
     }},
    {K::CutPending,
     [](D &answer, Random &, Out &out) {
         out.push_back(PendingOf(answer, 0, 0));
         out.push_back(PendingOf(answer, 0, 2));
     }},
    {K::Events,
     [](D &answer, Random &random, Out &out) {
         AppendEvents(answer, random, out);
     }},
    {K::RandomBytes,
     [](D &answer, Random &random, Out &) {
         std::uint16_t const id = LoadBig16(&answer.bytes[IdAt]);
         std::generate(answer.bytes.begin(), answer.bytes.end(), [&] { return RandomByte(random); });
         StoreBig16(&answer.bytes[IdAt], id);
     }},
    {K::RandomContent,
     [](D &answer, Random &random, Out &) {
         bool const isMemory = LoadBig16(&answer.bytes[CodeAt]) == gvcp::READMEM_ACK;
         auto const begin = gvcp::HeaderSize + std::min(BodySize(answer), isMemory ? gvcp::MemoryData::Data : 0);
         std::generate(answer.bytes.begin() + static_cast<std::ptrdiff_t>(begin), answer.bytes.end(),
                       [&] { return RandomByte(random); });
     }},
};

// ---- Registers ---------------------------------------------------------------------------------------------------

struct Claim
{
    WireRegisterLie lie;
    std::uint32_t address, value;
};

using L = WireRegisterLie;
constexpr std::uint32_t Everything = 0xFFFFFFFF, NoHost = 0x7F090909, HalfRange = 0x7FFFFFFF;

constexpr Claim Claims[] = {
    {L::PayloadZero, S::PayloadSize, 0},
    {L::PayloadTiny, S::PayloadSize, 1},
    {L::PayloadHuge, S::PayloadSize, Everything},
    {L::WidthZero, S::Width, 0},
    {L::WidthHuge, S::Width, Everything},
    {L::SizeLarge, S::Width, 60000},
    {L::SizeLarge, S::Height, 60000},
    {L::SizeHuge, S::Width, HalfRange},
    {L::SizeHuge, S::Height, HalfRange},
    {L::FormatUnknown, S::PixelFormat, 0xDEADBEEF},
    {L::PacketSizeZero, B::StreamChannelPacketSize, 0},
    {L::PacketSizeZero, S::PacketSize, 0},
    {L::PacketSizeHuge, B::StreamChannelPacketSize, 0xFFFF},
    {L::PacketSizeHuge, S::PacketSize, 0xFFFF},
    {L::StreamPort, B::StreamChannelPort, 9},
    {L::SourcePort, B::StreamChannelSourcePort, 9},
    {L::Destination, B::StreamChannelDestinationAddress, NoHost},
    {L::PrivilegeLost, B::ControlChannelPrivilege, 0},
    {L::OtherController, B::PrimaryApplicationIpAddress, NoHost},
    {L::OtherController, B::PrimaryApplicationPort, 9},
    {L::HeartbeatZero, B::HeartbeatTimeout, 0},
    {L::HeartbeatHuge, B::HeartbeatTimeout, Everything},
    {L::TicksZero, B::TimestampTickFrequencyHigh, 0},
    {L::TicksZero, B::TimestampTickFrequencyLow, 0},
    {L::TicksZero, S::TickFrequency, 0},
    {L::TicksZero, S::TickFrequency + 4, 0},
    {L::TicksHuge, B::TimestampTickFrequencyHigh, Everything},
    {L::TicksHuge, B::TimestampTickFrequencyLow, Everything},
    {L::TicksHuge, S::TickFrequency, Everything},
    {L::TicksHuge, S::TickFrequency + 4, Everything},
    {L::NoCapabilities, B::GvcpCapability, 0},
    {L::NoCapabilities, B::GvspCapability, 0},
    {L::NoCapabilities, B::StreamChannelCapability, 0},
    {L::AllCapabilities, B::GvcpCapability, Everything},
    {L::AllCapabilities, B::GvspCapability, Everything},
    {L::AllCapabilities, B::StreamChannelCapability, Everything},
    {L::NoChannels, B::NumberOfStreamChannels, 0},
    {L::NoChannels, B::NumberOfNetworkInterfaces, 0},
};

// Without what leads to the description: a host that gets none looks at nothing else.
bool IsOfDescription(std::uint32_t address)
{
    return (address >= B::FirstUrl && address < B::SecondUrl + B::UrlSize) || address >= PlainDescriptionAddress;
}

bool IsText(std::uint32_t address)
{
    return (address >= B::ManufacturerName && address < gvcp::DiscoveryAck::Size) ||
           (address >= S::Vendor && address < S::FirmwareText + S::TextSize);
}

} // namespace

void ForgeAnswer(WireAnswerForgery kind, GvcpDatagram answer, std::minstd_rand &random, std::vector<GvcpDatagram> &out)
{
    for (Forgery const &forgery : Forgeries) {
        if (forgery.kind == kind)
            forgery.forge(answer, random, out);
    }
    out.push_back(std::move(answer));
}

void LieAbout(WireRegisterLie lie, std::uint32_t address, std::span<std::uint8_t> bytes, std::minstd_rand &random)
{
    // The last three characters turn the direction of what follows.
    constexpr std::string_view Hostile = "<h1><img src=x>&amp;\n\t\x1B[31m%s%n/../\xE2\x80\xAE";
    for (Claim const &claim : Claims) {
        bool const isRead = claim.address >= address && claim.address - address + gvcp::RegisterSize <= bytes.size();
        if (claim.lie == lie && isRead)
            StoreBig32(&bytes[claim.address - address], claim.value);
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        auto const at = static_cast<std::uint32_t>(address + i);
        if (lie == L::Names && IsText(at))
            bytes[i] = static_cast<std::uint8_t>(Hostile[at % Hostile.size()]);
        else if (!IsOfDescription(at) && (lie == L::Zeros || lie == L::Ones))
            bytes[i] = lie == L::Ones ? 0xFF : 0;
        else if (!IsOfDescription(at) && lie == L::Random)
            bytes[i] = RandomByte(random);
    }
}
