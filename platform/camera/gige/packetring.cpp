#include "packetring.h"

#include <cerrno>
#include <cstddef>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t FewestBlocks = 16;
constexpr std::uint32_t FrameBytes = 1 << 11; // only divides a block: packets of any length follow each other in it

bool SetUp(int socket, PacketRingSize const &size, std::uint32_t blocks)
{
    int const version = TPACKET_V3;
    tpacket_req3 request{};
    request.tp_block_size = size.blockBytes;
    request.tp_block_nr = blocks;
    request.tp_frame_size = FrameBytes;
    request.tp_frame_nr = size.blockBytes / FrameBytes * blocks;
    request.tp_retire_blk_tov = static_cast<unsigned>(size.delay.count());
    return setsockopt(socket, SOL_PACKET, PACKET_VERSION, &version, sizeof version) == 0 &&
           setsockopt(socket, SOL_PACKET, PACKET_RX_RING, &request, sizeof request) == 0;
}

// The state is what system and reader exchange a block by: all of the block is written before it changes.
std::atomic_ref<std::uint32_t> StateOf(std::uint8_t *block)
{
    return std::atomic_ref<std::uint32_t>(
        *reinterpret_cast<std::uint32_t *>(block + offsetof(tpacket_block_desc, hdr.bh1.block_status)));
}

} // namespace

std::unique_ptr<PacketRing> PacketRing::Make(int socket, PacketRingSize const &size)
{
    std::uint32_t blocks = size.blocks;
    bool isSetUp = SetUp(socket, size, blocks);
    for (; !isSetUp && errno == ENOMEM && blocks > FewestBlocks; isSetUp = SetUp(socket, size, blocks))
        blocks /= 2;
    std::size_t const bytes = std::size_t{size.blockBytes} * blocks;
    void *const memory = isSetUp ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, socket, 0) : MAP_FAILED;
    int const wake = memory != MAP_FAILED ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1;
    if (wake >= 0)
        return std::unique_ptr<PacketRing>(
            new PacketRing(socket, wake, {static_cast<std::uint8_t *>(memory), bytes}, size.blockBytes));
    int const error = errno;
    if (memory != MAP_FAILED)
        munmap(memory, bytes);
    close(socket);
    errno = error;
    return nullptr;
}

PacketRing::PacketRing(int socket, int wake, std::span<std::uint8_t> memory, std::uint32_t blockBytes)
    : m_socket(socket),
      m_wake(wake),
      m_memory(memory),
      m_blockBytes(blockBytes)
{
}

PacketRing::~PacketRing()
{
    munmap(m_memory.data(), m_memory.size());
    close(m_socket);
    close(m_wake);
}

bool PacketRing::TakeBlock()
{
    if (m_hasBlock)
        return true;
    std::span<std::uint8_t> const block = m_memory.subspan(m_current, m_blockBytes);
    if ((StateOf(block.data()).load(std::memory_order_acquire) & TP_STATUS_USER) == 0)
        return false;
    m_block = RingBlock(block);
    m_hasBlock = true;
    return true;
}

void PacketRing::GiveBlock()
{
    m_dropped.fetch_add(m_block.GetLost(), std::memory_order_relaxed);
    StateOf(&m_memory[m_current]).store(TP_STATUS_KERNEL, std::memory_order_release);
    m_hasBlock = false;
    m_current += m_blockBytes;
    if (m_current == m_memory.size())
        m_current = 0;
}

bool PacketRing::Count(RingVerdict verdict)
{
    if (verdict == RingVerdict::Fragment)
        m_fragments.fetch_add(1, std::memory_order_relaxed);
    else if (verdict != RingVerdict::Whole)
        m_malformed.fetch_add(1, std::memory_order_relaxed);
    return verdict == RingVerdict::Whole;
}

void PacketRing::Wait(std::chrono::milliseconds patience, int other)
{
    pollfd events[] = {{m_wake, POLLIN, 0}, {m_socket, POLLIN, 0}, {other, POLLIN, 0}};
    poll(events, 3, static_cast<int>(patience.count()));
    eventfd_t ignored;
    if (events[0].revents != 0)
        eventfd_read(m_wake, &ignored);
    // An adapter that goes down is told once, and the capture goes on when it comes up again.
    int error;
    socklen_t size = sizeof error;
    if ((events[1].revents & POLLERR) != 0)
        getsockopt(m_socket, SOL_SOCKET, SO_ERROR, &error, &size);
}

void PacketRing::Wake()
{
    eventfd_write(m_wake, 1);
}

std::uint64_t PacketRing::GetDropped()
{
    // The system begins to count again with each look.
    tpacket_stats_v3 stats{};
    socklen_t size = sizeof stats;
    if (getsockopt(m_socket, SOL_PACKET, PACKET_STATISTICS, &stats, &size) == 0)
        m_dropped.fetch_add(stats.tp_drops, std::memory_order_relaxed);
    return m_dropped.load(std::memory_order_relaxed);
}
