// The text of one packet while it is put together.
#pragma once

#include "packetreader.h"

#include <QString>
#include <QVarLengthArray>

#include <cstddef>
#include <string_view>

// A number of a packet and the words before it. A table of these is the form of a line.
struct PacketField
{
    std::string_view words;
    unsigned offset;
    unsigned bytes;
    int width; // digits at least
};

class PacketLine
{
public:
    PacketLine &Text(std::string_view text)
    {
        if (!text.empty()) // an empty view may point nowhere, which the array does not take
            m_text.append(text.data(), static_cast<int>(text.size()));
        return *this;
    }
    // Base 16 in lower case, filled on the left with zeros up to the width, longer if the value needs it.
    PacketLine &Hex(std::uint64_t value, int width);

    // The fields of a record that begins at `base`.
    template<ByteOrder Order, std::size_t N>
    PacketLine &Fields(PacketReader<Order> const &packet, PacketField const (&fields)[N], std::uint64_t base = 0)
    {
        for (PacketField const &field : fields)
            Text(field.words).Hex(packet.Number(base + field.offset, field.bytes), field.width);
        return *this;
    }

    // `count` bytes, each with a blank after it. At most limit + 1 of them; "..." means that count exceeds the limit,
    // even where every byte was shown.
    PacketLine &BytesThenBlank(LittleEndianReader const &packet, std::uint64_t at, std::uint64_t count,
                               std::uint64_t limit);
    // `count` bytes, each with a blank before it. At most limit + 1 of them, and "..." where more are left.
    PacketLine &BlankThenBytes(BigEndianReader const &packet, std::uint64_t at, std::uint64_t count,
                               std::uint64_t limit);

    QString ToString() const
    {
        return QString::fromLatin1(m_text.constData(), m_text.size());
    }

private:
    QVarLengthArray<char, 512> m_text; // a line of events is the only one that is longer
};
