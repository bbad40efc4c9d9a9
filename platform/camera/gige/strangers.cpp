#include "strangers.h"

#include "protocol/socketaddress.h"

#include <array>
#include <iterator>
#include <linux/filter.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t BatchSize = 64;
constexpr int MostBatches = 4;
constexpr std::uint32_t SourceOffset = 12; // in the IPv4 header

// Of the sockets of one port the first gets what the camera sends, the second all else.
bool PartByAddress(int socket, std::uint32_t camera)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(SKF_NET_OFF) + SourceOffset),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, camera, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, 1),
    };
    sock_fprog const program{static_cast<unsigned short>(std::size(code)), code};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_REUSEPORT_CBPF, &program, sizeof program) == 0;
}

} // namespace

Strangers::~Strangers()
{
    Close();
}

void Strangers::Open(int socket, std::uint32_t camera)
{
    Close();
    SocketAddress const name = AddressOfSocket(socket);
    int const yes = 1;
    m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // The first socket shares its port only once it has it: it would be given one that another stream shares.
    if (m_socket < 0 || name.port == 0 || setsockopt(socket, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes) != 0 ||
        setsockopt(m_socket, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes) != 0 || !BindSocket(m_socket, name) ||
        !PartByAddress(socket, camera))
        Close();
}

void Strangers::Close()
{
    if (m_socket >= 0)
        close(m_socket);
    m_socket = -1;
}

std::uint32_t Strangers::Read()
{
    std::array<mmsghdr, BatchSize> messages{}; // no room for anything: that they came is enough
    std::uint32_t total = 0;
    for (int i = 0; i < MostBatches; ++i) {
        int const count = recvmmsg(m_socket, messages.data(), BatchSize, MSG_DONTWAIT | MSG_TRUNC, nullptr);
        total += static_cast<std::uint32_t>(count > 0 ? count : 0);
        if (count < static_cast<int>(BatchSize))
            break;
    }
    return total;
}

void Strangers::Forget()
{
    if (m_socket < 0)
        return;
    constexpr int MostReads = 256; // of one that goes on
    for (int i = 0; i < MostReads && Read() != 0; ++i) {
    }
    m_drops = GetSocketDrops(m_socket);
}

bool Strangers::Count(StreamStatistics &statistics)
{
    if (m_socket < 0)
        return false;
    std::uint32_t const read = Read(), drops = GetSocketDrops(m_socket);
    std::uint64_t const count = std::uint64_t{read} + (drops - m_drops);
    m_drops = drops;
    statistics.received.Add(count);
    statistics.foreign.Add(count);
    return count != 0;
}

std::uint32_t GetSocketDrops(int socket)
{
    std::array<std::uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t size = sizeof info;
    getsockopt(socket, SOL_SOCKET, SO_MEMINFO, info.data(), &size);
    return info[SK_MEMINFO_DROPS];
}
