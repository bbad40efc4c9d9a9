#include "packetline.h"

PacketLine &PacketLine::Hex(std::uint64_t value, int width)
{
    constexpr int MostDigits = 16;
    char digits[MostDigits];
    int first = MostDigits;
    do {
        digits[--first] = "0123456789abcdef"[value & 15];
        value >>= 4;
    } while (value != 0 || MostDigits - first < width);
    m_text.append(digits + first, MostDigits - first);
    return *this;
}

PacketLine &PacketLine::BytesThenBlank(LittleEndianReader const &packet, std::uint64_t at, std::uint64_t count,
                                       std::uint64_t limit)
{
    for (std::uint64_t i = 0; i < count; ++i) {
        Hex(packet.Byte(at + i), 2).Text(" ");
        if (limit <= i)
            return Text("...");
    }
    return *this;
}

PacketLine &PacketLine::BlankThenBytes(BigEndianReader const &packet, std::uint64_t at, std::uint64_t count,
                                       std::uint64_t limit)
{
    for (std::uint64_t i = 0; i < count; ++i) {
        if (i > limit)
            return Text("...");
        Text(" ").Hex(packet.Byte(at + i), 2);
    }
    return *this;
}
