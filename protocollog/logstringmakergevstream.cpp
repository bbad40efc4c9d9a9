#include "logstringmaker.h"
#include "packetline.h"

using TovGEV::_internal::GVSP_Header10;
using TovGEV::_internal::GVSP_Header20;

namespace {

constexpr std::uint16_t ImagePayload = 1;
constexpr std::uint8_t ExtendedIds = 0x80;
enum Format : unsigned { Leader = 1, Trailer = 2, Payload = 3, AllInOne = 4 };

constexpr PacketField Header10Line[] = {{", status=", 0, 2, 4}, {", block_id=", 2, 2, 4}, {", packet_id=", 5, 3, 3}};
// Odd: the last word is shown twice, the one with the format not at all, and "packetFormat" is half of the block's id.
constexpr PacketField Header20Line[] = {
    {", status=", 0, 2, 4},      {", flag=", 2, 2, 4}, {", packetFormat=", 8, 4, 8},
    {", block_id64=", 12, 4, 8}, {"", 16, 4, 8},       {", packet_id32=", 16, 4, 8}};
constexpr PacketField LeaderTimestamp[] = {{", timestamp=", 4, 4, 8}, {"", 8, 4, 8}};
constexpr PacketField LeaderGeometry[] = {{", pixel_format=", 12, 4, 8},
                                          {", size_x=", 16, 4, 8},
                                          {", size_y=", 20, 4, 8},
                                          {", offset_x=", 24, 4, 8},
                                          {", offset_y=", 28, 4, 8}};
constexpr PacketField TrailerLine[] = {{", IMAGE: size_y=", 4, 4, 8}};
constexpr unsigned LeaderSize = 36, TrailerSize = 8, OtherSectionSize = 4;

void AddLeader(PacketLine &line, BigEndianReader const &packet, std::uint64_t at)
{
    std::uint8_t const ids = packet.Byte(at);
    line.Text(", IMAGE: field_id=").Hex(ids >> 4, 1).Text(", field_count=").Hex(ids & 15, 1);
    line.Fields(packet, LeaderTimestamp, at).Fields(packet, LeaderGeometry, at);
    // Odd: the paddings have 16 bits and are shown as the upper half of 32.
    line.Text(", padding_x=").Hex(std::uint64_t{packet.U16(at + 32)} << 16, 8);
    line.Text(", padding_y=").Hex(std::uint64_t{packet.U16(at + 34)} << 16, 8);
}

} // namespace

QString MakeStreamLogHeader10(GVSP_Header10 const *header)
{
    return PacketLine().Fields(BigEndianReader(header, sizeof *header), Header10Line).ToString();
}

QString MakeStreamLogHeader20(GVSP_Header20 const *header)
{
    return PacketLine().Fields(BigEndianReader(header, sizeof *header), Header20Line).ToString();
}

QString LogStringMakerGEV::MakeStreamLogString(void const *data, unsigned long size)
{
    BigEndianReader const packet(data, size);
    bool const extended = (packet.Byte(4) & ExtendedIds) != 0;
    unsigned const format = packet.Byte(4) & 15;
    std::uint64_t at = extended ? sizeof(GVSP_Header20) : sizeof(GVSP_Header10);

    PacketLine line;
    if (format < Leader || format > AllInOne)
        line.Text("UNKNOWN(").Hex(format, 1).Text(")");
    // Odd: 1 where the flag is clear.
    line.Text(extended ? " EI=0" : " EI=1");
    if (extended)
        line.Fields(packet, Header20Line);
    else
        line.Fields(packet, Header10Line);

    auto const isImage = [&] {
        std::uint16_t const type = packet.U16(at + 2);
        if (type != ImagePayload)
            line.Text(" UNKNOWN PAYLOAD(").Hex(type, 4).Text(")");
        return type == ImagePayload;
    };
    if (format == Leader || format == AllInOne) {
        bool const image = isImage();
        if (image)
            AddLeader(line, packet, at);
        at += image ? LeaderSize : OtherSectionSize;
    }
    if (format == Trailer || format == AllInOne) {
        bool const image = isImage();
        if (image)
            line.Fields(packet, TrailerLine, at);
        at += image ? TrailerSize : OtherSectionSize;
    }
    if (format == Payload || format == AllInOne) {
        // In a packet shorter than its sections the count wraps, and the limit on shown bytes ends the line.
        line.Text(", data=").BlankThenBytes(packet, at, packet.Size() - at, m_maxStreamData);
    }
    return line.ToString();
}
