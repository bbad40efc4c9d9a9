#include "logstringmaker.h"
#include "packetline.h"

namespace {

enum Code : std::uint16_t {
    PacketResend = 0x0040,
    ReadRegister = 0x0080,
    ReadRegisterAcknowledge = 0x0081,
    WriteRegister = 0x0082,
    WriteRegisterAcknowledge = 0x0083,
    ReadMemory = 0x0084,
    ReadMemoryAcknowledge = 0x0085,
    WriteMemory = 0x0086,
    WriteMemoryAcknowledge = 0x0087,
    Event = 0x00C0,
    EventData = 0x00C2
};

constexpr unsigned HeaderSize = 8;
constexpr unsigned FlagsAt = 1, CodeAt = 2, LengthAt = 4, IdAt = 6;
constexpr unsigned EventSize = 16, ExtendedEventSize = 24;
constexpr std::uint8_t ExtendedIds = 0x10;

// The texts of the acknowledges of writes and of memory access run into the identifier before them: they begin with a
// letter, all others with a comma.
constexpr PacketField WriteAcknowledgeBody[] = {{"index=", 10, 2, 4}};
constexpr PacketField ReadMemoryBody[] = {{"address=", 8, 4, 8}, {", count=", 14, 2, 4}};
constexpr PacketField MemoryBody[] = {{"address=", 8, 4, 8}};
constexpr PacketField AddressEntry[] = {{", address=", 0, 4, 8}};
constexpr PacketField ValueEntry[] = {{", value=", 0, 4, 8}};
constexpr PacketField WriteEntry[] = {{", (address=", 0, 4, 8}, {", data=", 4, 4, 8}};
constexpr PacketField ResendBody[] = {{", ei = 0, stream_chan_idx=", 8, 2, 4},
                                      {", block_id=", 10, 2, 4},
                                      {", first_packet_id=", 12, 4, 8},
                                      {", last_packet_id=", 16, 4, 8}};
constexpr PacketField ExtendedResendBody[] = {{", ei = 1, stream_chan_idx=", 8, 2, 4},
                                              {", first_packet_id=", 12, 4, 8},
                                              {", last_packet_id=", 16, 4, 8},
                                              {", block_id64=", 20, 8, 16}};
constexpr PacketField EventRecord[] = {{", event_identifier=", 2, 2, 4},
                                       {", stream_channel_index=", 4, 2, 4},
                                       {", block_id=", 6, 2, 4},
                                       {", timestamp=", 8, 8, 16}};
constexpr PacketField ExtendedEventRecord[] = {{", event_identifier=", 2, 2, 4},
                                               {", stream_channel_index=", 4, 2, 4},
                                               {", block_id=", 8, 8, 16},
                                               {", timestamp=", 16, 8, 16}};

std::string_view NameOf(std::uint16_t code)
{
    struct Name
    {
        std::uint16_t code;
        std::string_view text;
    };
    static constexpr Name CmdNames[] = {
        {PacketResend, "PACKETRESEND_CMD"}, {ReadRegister, "READREG_CMD"}, {WriteRegister, "WRITEREG_CMD"},
        {ReadMemory, "READMEM_CMD"},        {WriteMemory, "WRITEMEM_CMD"}, {Event, "EVENT_CMD"},
        {EventData, "EVENTDATA_CMD"},
    };
    static constexpr Name AckNames[] = {
        {ReadRegisterAcknowledge, "READREG_ACK"},
        {WriteRegisterAcknowledge, "WRITEREG_ACK"},
        {ReadMemoryAcknowledge, "READMEM_ACK"},
        {WriteMemoryAcknowledge, "WRITEMEM_ACK"},
        {Event + 1, "EVENT_ACK"},
        {EventData + 1, "EVENTDATA_ACK"},
    };
    auto const find = [code](auto const &names) {
        for (Name const &name : names) {
            if (name.code == code)
                return name.text;
        }
        return std::string_view("");
    };
    return code % 2 == 0 ? find(CmdNames) : find(AckNames);
}

// What a list of entries behind the header shows: at most `most` of them.
template<std::size_t N>
void AddEntries(PacketLine &line, BigEndianReader const &packet, PacketField const (&entry)[N], std::string_view end,
                unsigned entrySize, std::uint64_t count, std::uint64_t most)
{
    for (std::uint64_t i = 0; i < std::min(count, most); ++i)
        line.Fields(packet, entry, HeaderSize + i * entrySize).Text(end);
    if (count > most)
        line.Text("...");
}

void AddEvents(PacketLine &line, BigEndianReader const &packet, std::uint16_t length, bool extended)
{
    for (unsigned i = 0; i < length / (extended ? ExtendedEventSize : EventSize); ++i) {
        if (extended)
            line.Fields(packet, ExtendedEventRecord, HeaderSize + i * ExtendedEventSize);
        else
            line.Fields(packet, EventRecord, HeaderSize + i * EventSize);
    }
}

void AddEventData(PacketLine &line, BigEndianReader const &packet, std::uint16_t length, bool extended,
                  std::uint64_t limit)
{
    unsigned const event = extended ? ExtendedEventSize : EventSize;
    if (extended)
        line.Fields(packet, ExtendedEventRecord, HeaderSize);
    else
        line.Fields(packet, EventRecord, HeaderSize);
    // The count of data bytes has 16 bits and wraps.
    line.BlankThenBytes(packet, HeaderSize + event, static_cast<std::uint16_t>(length - event), limit);
}

} // namespace

QString LogStringMakerGEV::MakeControlLogString(void const *data, unsigned long size)
{
    BigEndianReader const packet(data, size);
    std::uint16_t const code = packet.U16(CodeAt);
    std::uint16_t const length = packet.U16(LengthAt);
    bool const extended = (packet.Byte(FlagsAt) & ExtendedIds) != 0;
    std::uint64_t const limit = m_maxControlData;

    PacketLine line;
    line.Text(NameOf(code)).Text(code % 2 == 0 ? ", req_id=" : ", ack_id=").Hex(packet.U16(IdAt), 4);

    // Odd: the header is subtracted from a length that does not include it, so lists end two addresses, or one pair,
    // early. A length below the header's wraps and leaves the length itself.
    std::uint64_t const body =
        std::min<std::uint64_t>(std::min<std::uint64_t>(packet.Size(), length) - HeaderSize, length);

    switch (code) {
    case PacketResend:
        if (extended)
            line.Fields(packet, ExtendedResendBody).Text("%5"); // odd: a placeholder that nothing fills
        else
            line.Fields(packet, ResendBody);
        break;
    case ReadRegister:
        AddEntries(line, packet, AddressEntry, "", 4, body >> 2, (limit >> 2) + 1);
        break;
    case ReadRegisterAcknowledge:
        AddEntries(line, packet, ValueEntry, "", 4, body >> 2, (limit >> 2) + 1);
        break;
    case WriteRegister:
        AddEntries(line, packet, WriteEntry, ")", 8, body >> 3, (limit >> 3) + 1);
        break;
    case WriteRegisterAcknowledge:
    case WriteMemoryAcknowledge:
        line.Fields(packet, WriteAcknowledgeBody);
        break;
    case ReadMemory:
        line.Fields(packet, ReadMemoryBody);
        break;
    case ReadMemoryAcknowledge:
    case WriteMemory:
        line.Fields(packet, MemoryBody).Text(", data=");
        line.BlankThenBytes(packet, 12, body - 4, limit);
        break;
    case Event:
        AddEvents(line, packet, length, extended);
        break;
    case EventData:
        AddEventData(line, packet, length, extended, limit);
        break;
    default:
        break;
    }
    return line.ToString();
}

QString LogStringMakerGEV::MakeEventLogString(void const *data, unsigned long size)
{
    return MakeControlLogString(data, size);
}
