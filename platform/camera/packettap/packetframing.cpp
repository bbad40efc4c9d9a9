#include "packetframing.h"

#include <algorithm>

void const *PacketBuffer::Lay(std::uint8_t const *head, std::size_t headSize, std::uint8_t const *body,
                              std::size_t bodySize, std::size_t size)
{
    if (m_bytes.size() < size + ZeroTail)
        m_bytes.resize(size + ZeroTail);
    std::copy_n(head, headSize, m_bytes.begin());
    std::copy_n(body, bodySize, m_bytes.begin() + static_cast<std::ptrdiff_t>(headSize));
    std::size_t const used = headSize + bodySize;
    if (used < m_used)
        std::fill(m_bytes.begin() + static_cast<std::ptrdiff_t>(used),
                  m_bytes.begin() + static_cast<std::ptrdiff_t>(m_used), 0);
    m_used = used;
    return m_bytes.data();
}

void const *PacketBuffer::Lay(TapPacket const &packet)
{
    return Lay(packet.bytes, packet.captured, nullptr, 0, packet.size);
}
