#include "logstringmaker.h"
#include "packetline.h"

namespace {

constexpr std::uint16_t ImagePayload = 1;
constexpr std::uint32_t LeaderMagic = 0x4C563355, TrailerMagic = 0x54563355; // "U3VL", "U3VT"

enum Command : std::uint16_t {
    ReadCommand = 0x0800,
    ReadAcknowledge = 0x0801,
    WriteCommand = 0x0802,
    WriteAcknowledge = 0x0803,
    PendingAcknowledge = 0x0805
};

// The prefix of control and event packets.
constexpr unsigned FlagsAt = 4, CommandAt = 6, LengthAt = 8, RequestAt = 10, BodyAt = 12;

constexpr PacketField ReadCommandLine[] = {
    {"RD_CMD, req_id=", RequestAt, 2, 4}, {", addr=", BodyAt, 8, 16}, {", length=", 22, 2, 4}};
constexpr PacketField ReadAcknowledgeLine[] = {{"RD_ACK, req_id=", RequestAt, 2, 4}};
constexpr PacketField WriteCommandLine[] = {
    {"WR_CMD, req_id=", RequestAt, 2, 4}, {", addr=", BodyAt, 8, 16}, {", length=", LengthAt, 2, 4}};
constexpr PacketField WriteAcknowledgeLine[] = {{"WR_ACK, req_id=", RequestAt, 2, 4}, {", length_written=", 14, 2, 4}};
constexpr PacketField PendingAcknowledgeLine[] = {{"PD_ACK, req_id=", RequestAt, 2, 4}, {", temp_timeout=", 14, 2, 4}};
// Odd: the blanks around the commas.
constexpr PacketField EventLine[] = {
    {"EVENT , req_id=", RequestAt, 2, 4}, {",cmd_id=", CommandAt, 2, 4}, {", event_id=", 14, 2, 4}};

constexpr PacketField ImageLeaderLine[] = {{"STR_LD, IMG, id=", 8, 8, 16}, {", ts=", 20, 8, 16},  {", frmt=", 28, 4, 8},
                                           {", sz_x=", 32, 4, 8},          {", sz_y=", 36, 4, 8}, {", of_x=", 40, 4, 8},
                                           {", of_y=", 44, 4, 8},          {", pd_x=", 48, 2, 4}};
constexpr PacketField OtherLeaderLine[] = {
    {"STR_LD, UNK, id=", 8, 8, 16}, {", pld_type=", 18, 2, 4}, {", ldr_size=", 6, 2, 4}};
// Odd: the size of the valid payload has four digits, or as many as it needs, where other numbers of 64 bits have 16.
constexpr PacketField TrailerLine[] = {{"STR_TR, id=", 8, 8, 16}, {", status=", 16, 2, 4}, {", val_pld_sz=", 20, 8, 4}};
constexpr PacketField ImageTrailerLine[] = {{", sz_y=", 28, 4, 8}};

// Filled in by QString: where the unknown prefix contains a "%1" itself, that is replaced as well.
QString MakeUnknownLine(LittleEndianReader const &packet)
{
    char prefix[5] = {};
    packet.Copy(prefix, 4);
    auto const zero = QLatin1Char('0');
    return QStringLiteral("Prefix='%1', flags=%2, cmd_id=%3, length=%4, req_id=%5")
        .arg(QString::fromLatin1(prefix))
        .arg(packet.U16(FlagsAt), 4, 16, zero)
        .arg(packet.U16(CommandAt), 4, 16, zero)
        .arg(packet.U16(LengthAt), 4, 16, zero)
        .arg(packet.U16(RequestAt), 4, 16, zero);
}

} // namespace

QString LogStringMakerU3V::MakeControlLogString(void const *data, unsigned long size)
{
    LittleEndianReader const packet(data, size);
    std::uint64_t const length = packet.U16(LengthAt);
    PacketLine line;
    switch (packet.U16(CommandAt)) {
    case ReadCommand:
        line.Fields(packet, ReadCommandLine);
        break;
    case ReadAcknowledge:
        line.Fields(packet, ReadAcknowledgeLine).Text(", data=");
        line.BytesThenBlank(packet, BodyAt, length, m_maxControlData);
        break;
    case WriteCommand:
        // A length too short for the address wraps; the limit on shown bytes ends the line then.
        line.Fields(packet, WriteCommandLine).Text(", data=");
        line.BytesThenBlank(packet, BodyAt + 8, length - 8, m_maxControlData);
        break;
    case WriteAcknowledge:
        line.Fields(packet, WriteAcknowledgeLine);
        break;
    case PendingAcknowledge:
        line.Fields(packet, PendingAcknowledgeLine);
        break;
    default:
        return MakeUnknownLine(packet);
    }
    return line.ToString();
}

QString LogStringMakerU3V::MakeEventLogString(void const *data, unsigned long size)
{
    LittleEndianReader const packet(data, size);
    PacketLine line;
    // The data begins after the event's head, but the count is the whole body's: the last bytes shown of a short event
    // are past its end.
    line.Fields(packet, EventLine).Text(", data=");
    line.BytesThenBlank(packet, BodyAt + 12, packet.U16(LengthAt), m_maxEventData);
    return line.ToString();
}

QString LogStringMakerU3V::MakeStreamLogString(void const *data, unsigned long size)
{
    LittleEndianReader const packet(data, size);
    PacketLine line;
    switch (packet.U32(0)) {
    case LeaderMagic:
        m_payloadType = packet.U16(18);
        if (m_payloadType == ImagePayload)
            line.Fields(packet, ImageLeaderLine);
        else
            line.Fields(packet, OtherLeaderLine);
        break;
    case TrailerMagic:
        line.Fields(packet, TrailerLine);
        if (m_payloadType == ImagePayload)
            line.Fields(packet, ImageTrailerLine);
        break;
    default:
        line.Text("STR_PL, data=");
        for (std::uint64_t i = 0; i < std::min(m_maxStreamData, packet.Size()); ++i)
            line.Hex(packet.Byte(i), 2).Text(" ");
        line.Text("..."); // always, even when all was shown
    }
    return line.ToString();
}
