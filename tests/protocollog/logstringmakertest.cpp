// Packets, byte by byte, and the lines they give.
#include "logstringmaker.h"

#include "bytes.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

enum Channel { Control, Stream, Event };

struct Case
{
    char const *name;
    Channel channel;
    char const *packet;
    char const *line;
};

void PrintTo(Case const &c, std::ostream *out)
{
    *out << c.name;
}

// The packet lies in a block of its own size, so that reading past it is found.
std::string Decode(LogStringMaker &maker, Channel channel, Bytes const &packet)
{
    auto const block = std::make_unique<std::uint8_t[]>(packet.size());
    std::copy(packet.begin(), packet.end(), block.get());
    auto const make = channel == Control  ? &LogStringMaker::MakeControlLogString
                      : channel == Stream ? &LogStringMaker::MakeStreamLogString
                                          : &LogStringMaker::MakeEventLogString;
    return (maker.*make)(block.get(), packet.size()).toStdString();
}

template<class Maker>
class MakerTest : public testing::TestWithParam<Case>
{
protected:
    void Check()
    {
        Maker maker;
        EXPECT_EQ(Decode(maker, GetParam().channel, FromHex(GetParam().packet)), GetParam().line);
    }
};

auto const s_name = [](auto const &info) {
    return std::string(info.param.name);
};

// ---- USB3 Vision -------------------------------------------------------------------------------------------------

class U3V : public MakerTest<LogStringMakerU3V>
{
};

TEST_P(U3V, Line)
{
    Check();
}

// "U3VC", flags, command, length, request.
#define U3VC(command, length, request) "55335643 0040 " command " " length " " request " "

INSTANTIATE_TEST_SUITE_P(
    Packets, U3V,
    testing::Values(
        Case{"Read", Control, U3VC("0008", "0c00", "3412") "8877665544332211 0000 4000",
             "RD_CMD, req_id=1234, addr=1122334455667788, length=0040"},
        Case{"ReadAcknowledgeOfNothing", Control, U3VC("0108", "0000", "0100"), "RD_ACK, req_id=0001, data="},
        Case{"ReadAcknowledge16", Control, U3VC("0108", "1000", "0100") "000102030405060708090a0b0c0d0eff",
             "RD_ACK, req_id=0001, data=00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e ff "},
        Case{"ReadAcknowledge17TellsOfMore", Control, U3VC("0108", "1100", "0100") "000102030405060708090a0b0c0d0e0f10",
             "RD_ACK, req_id=0001, data=00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 ..."},
        Case{"ReadAcknowledge18", Control, U3VC("0108", "1200", "0100") "000102030405060708090a0b0c0d0e0f1011",
             "RD_ACK, req_id=0001, data=00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 ..."},
        Case{"Write", Control, U3VC("0208", "0c00", "0200") "0000010000000000 d2040000",
             "WR_CMD, req_id=0002, addr=0000000000010000, length=000c, data=d2 04 00 00 "},
        Case{"WriteOfNothing", Control, U3VC("0208", "0800", "0200") "0000010000000000",
             "WR_CMD, req_id=0002, addr=0000000000010000, length=0008, data="},
        Case{"WriteTooShortWraps", Control, U3VC("0208", "0700", "0200") "0000010000000000 ab",
             "WR_CMD, req_id=0002, addr=0000000000010000, length=0007, "
             "data=ab 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ..."},
        Case{"WriteAcknowledge", Control, U3VC("0308", "0400", "0200") "0000 0400",
             "WR_ACK, req_id=0002, length_written=0004"},
        Case{"PendingAcknowledge", Control, U3VC("0508", "0400", "0200") "0000 f401",
             "PD_ACK, req_id=0002, temp_timeout=01f4"},
        Case{"Unknown", Control, "55335643 0100 0009 0000 0200",
             "Prefix='U3VC', flags=0001, cmd_id=0900, length=0000, req_id=0002"},
        Case{"NoPendingCommand", Control, "41420043 0100 0408 0300 0200",
             "Prefix='AB', flags=0001, cmd_id=0804, length=0003, req_id=0002"},
        // What looks like a place for a number is one.
        Case{"UnknownPrefixWithAPlace", Control, "25317825 0100 0009 0300 0200",
             "Prefix='0001x%', flags=0900, cmd_id=0003, length=0002, req_id=%5"},
        Case{"Empty", Control, "", "Prefix='', flags=0000, cmd_id=0000, length=0000, req_id=0000"},
        Case{"Event", Event, "55335645 0000 000c 0200 0500 0000 0190 1122334455667788 aabb",
             "EVENT , req_id=0005,cmd_id=0c00, event_id=9001, data=aa bb "},
        Case{"EventCountsItsHead", Event, "55335645 0000 000c 0e00 0500 0000 0190 1122334455667788 aabb",
             "EVENT , req_id=0005,cmd_id=0c00, event_id=9001, data=aa bb 00 00 00 00 00 00 00 00 00 00 00 00 "},
        Case{"EventWithoutAnything", Event, "", "EVENT , req_id=0000,cmd_id=0000, event_id=0000, data="},
        Case{"ImageLeader", Stream,
             "5533564c 0000 3400 0807060504030201 0000 0100 1817161514131211 09000801 80070000 b0040000 "
             "10000000 20000000 0400 0000",
             "STR_LD, IMG, id=0102030405060708, ts=1112131415161718, frmt=01080009, sz_x=00000780, sz_y=000004b0, "
             "of_x=00000010, of_y=00000020, pd_x=0004"},
        Case{"OtherLeader", Stream, "5533564c 0000 2000 0100000000000000 0000 0140",
             "STR_LD, UNK, id=0000000000000001, pld_type=4001, ldr_size=0020"},
        Case{"TrailerWithoutLeader", Stream, "55335654 0000 2000 0200000000000000 01a1 0000 0000100000000000 b0040000",
             "STR_TR, id=0000000000000002, status=a101, val_pld_sz=100000"},
        Case{"Payload5", Stream, "0102030405", "STR_PL, data=01 02 03 04 05 ..."},
        Case{"Payload33", Stream, "202122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f40",
             "STR_PL, data=20 21 22 23 24 25 26 27 28 29 2a 2b 2c 2d 2e 2f 30 31 32 33 34 35 36 37 38 39 3a 3b 3c 3d "
             "3e 3f ..."},
        Case{"PayloadOfNothing", Stream, "", "STR_PL, data=..."}),
    s_name);

TEST(U3VStream, TheTrailerIsJudgedByTheLastLeader)
{
    LogStringMakerU3V maker;
    Bytes const trailer = FromHex("55335654 0000 2000 0200000000000000 0000 0000 0a00000000000000 b0040000");
    std::string const bare = "STR_TR, id=0000000000000002, status=0000, val_pld_sz=000a";
    Decode(maker, Stream, FromHex("5533564c 0000 3400 0100000000000000 0000 0100"));
    Decode(maker, Stream, FromHex("0102"));
    EXPECT_EQ(Decode(maker, Stream, trailer), bare + ", sz_y=000004b0");
    EXPECT_EQ(Decode(maker, Stream, trailer), bare + ", sz_y=000004b0");
    Decode(maker, Stream, FromHex("5533564c 0000 3400 0100000000000000 0000 0200"));
    EXPECT_EQ(Decode(maker, Stream, trailer), bare);
}

// ---- GigE Vision -------------------------------------------------------------------------------------------------

class GEV : public MakerTest<LogStringMakerGEV>
{
};

TEST_P(GEV, Line)
{
    Check();
}

#define FOUR_WORDS "00000a00 00000a04 00000a08 00000a0c "
#define BYTES_17 "000102030405060708090a0b0c0d0e0f10 "
#define TEXT_17 " 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10"
#define EVENT "0000 9001 0002 0003 1112131415161718 "
#define EXTENDED_EVENT "0000 9001 0002 0000 0102030405060708 1112131415161718 "
#define EVENT_TEXT ", event_identifier=9001, stream_channel_index=0002, block_id=0003, timestamp=1112131415161718"
#define EXTENDED_EVENT_TEXT                                                                                            \
    ", event_identifier=9001, stream_channel_index=0002, block_id=0102030405060708, timestamp=1112131415161718"

INSTANTIATE_TEST_SUITE_P(
    Control, GEV,
    testing::Values(
        // Lists are as long as the length says, less the header once too often.
        Case{"ReadOne", Control, "4201 0080 0004 0001 00000a00", "READREG_CMD, req_id=0001, address=00000a00"},
        Case{"ReadTwo", Control, "4201 0080 0008 0001 00000a00 00000a04", "READREG_CMD, req_id=0001"},
        Case{"ReadSixShowsFour", Control, "4201 0080 0018 0001" FOUR_WORDS "00000a10 00000a14",
             "READREG_CMD, req_id=0001, address=00000a00, address=00000a04, address=00000a08, address=00000a0c"},
        Case{"ReadEightShowsFive", Control, "4201 0080 0020 0001" FOUR_WORDS "00000a10 00000a14 00000a18 00000a1c",
             "READREG_CMD, req_id=0001, address=00000a00, address=00000a04, address=00000a08, address=00000a0c, "
             "address=00000a10..."},
        Case{"ReadSevenShowsFive", Control, "4201 0080 001c 0001" FOUR_WORDS "00000a10 00000a14 00000a18",
             "READREG_CMD, req_id=0001, address=00000a00, address=00000a04, address=00000a08, address=00000a0c, "
             "address=00000a10"},
        Case{"ReadOfLength11", Control, "4201 0080 000b 0001 00000a00 00000a04 000000", "READREG_CMD, req_id=0001"},
        Case{"ReadCutBySize", Control, "4201 0080 0020 0001 00000a00 00000a04",
             "READREG_CMD, req_id=0001, address=00000a00, address=00000a04"},
        Case{"ReadSaysTooMuch", Control, "4201 0080 ffff", // below a header: as long as it says
             "READREG_CMD, req_id=0000, address=00000000, address=00000000, address=00000000, address=00000000, "
             "address=00000000..."},
        Case{"ReadAcknowledge", Control, "0000 0081 0004 0001 12345678", "READREG_ACK, ack_id=0001, value=12345678"},
        Case{"WriteOne", Control, "4201 0082 0008 0002 00000a00 00000002", "WRITEREG_CMD, req_id=0002"},
        Case{"WriteTwo", Control, "4201 0082 0010 0002 00000a00 00000002 00000d00 0000c000",
             "WRITEREG_CMD, req_id=0002, (address=00000a00, data=00000002)"},
        Case{"WriteFiveShowsThree", Control, "4201 0082 0028 0002" FOUR_WORDS FOUR_WORDS "00000b00 00000001",
             "WRITEREG_CMD, req_id=0002, (address=00000a00, data=00000a04), (address=00000a08, data=00000a0c), "
             "(address=00000a00, data=00000a04)..."},
        Case{"WriteAcknowledge", Control, "0000 0083 0004 0001 0000 0001", "WRITEREG_ACK, ack_id=0001index=0001"},
        Case{"ReadMemory", Control, "4201 0084 0008 0003 00000200 0000 0200",
             "READMEM_CMD, req_id=0003address=00000200, count=0200"},
        Case{"MemoryOf12Ends", Control, "0000 0085 000c 0003 00000200 0102030405060708",
             "READMEM_ACK, ack_id=0003address=00000200, data="},
        Case{"MemoryOf8Wraps", Control, "0000 0085 0008 0003 00000200 01020304",
             "READMEM_ACK, ack_id=0003address=00000200, data= 01 02 03 04 00 00 00 00 00 00 00 00 00 00 00 00 00..."},
        Case{"Memory17", Control, "0000 0085 001d 0003 00000200" BYTES_17 "1112131415161718",
             "READMEM_ACK, ack_id=0003address=00000200, data=" TEXT_17},
        Case{"Memory18", Control, "4201 0086 001e 0003 00000200" BYTES_17 "111213141516171819",
             "WRITEMEM_CMD, req_id=0003address=00000200, data=" TEXT_17 "..."},
        Case{"WriteMemoryAcknowledge", Control, "8006 0087 0004 0003 0000 0004", "WRITEMEM_ACK, ack_id=0003index=0004"},
        Case{"EventChannelReadsAsControl", Event, "4201 00c0 0010 0004" EVENT, "EVENT_CMD, req_id=0004" EVENT_TEXT},
        Case{"TwoEventsAndABit", Control, "4201 00c0 002f 0004" EVENT EVENT,
             "EVENT_CMD, req_id=0004" EVENT_TEXT EVENT_TEXT},
        Case{"ExtendedEvents", Control, "4211 00c0 0030 0004" EXTENDED_EVENT EXTENDED_EVENT,
             "EVENT_CMD, req_id=0004" EXTENDED_EVENT_TEXT EXTENDED_EVENT_TEXT},
        Case{"ExtendedEventTooShort", Control, "4211 00c0 0017 0004" EXTENDED_EVENT, "EVENT_CMD, req_id=0004"},
        Case{"EventAcknowledge", Control, "0000 00c1 0000 0004", "EVENT_ACK, ack_id=0004"},
        Case{"EventData", Control, "4201 00c2 0012 0004" EVENT "aabb",
             "EVENTDATA_CMD, req_id=0004" EVENT_TEXT " aa bb"},
        Case{"EventWithoutData", Control, "4201 00c2 0010 0004" EVENT, "EVENTDATA_CMD, req_id=0004" EVENT_TEXT},
        Case{"EventDataWraps", Control, "4201 00c2 000f 0004" EVENT BYTES_17,
             "EVENTDATA_CMD, req_id=0004" EVENT_TEXT TEXT_17 "..."},
        Case{"ExtendedEventData", Control, "4211 00c2 0029 0004" EXTENDED_EVENT BYTES_17,
             "EVENTDATA_CMD, req_id=0004" EXTENDED_EVENT_TEXT TEXT_17},
        Case{"EventDataAcknowledge", Control, "0000 00c3 0004 0004 00000000", "EVENTDATA_ACK, ack_id=0004"},
        Case{"Resend", Control, "4200 0040 000c 0005 0001 0012 00000003 00000004",
             "PACKETRESEND_CMD, req_id=0005, ei = 0, stream_chan_idx=0001, block_id=0012, first_packet_id=00000003, "
             "last_packet_id=00000004"},
        Case{"ExtendedResend", Control, "4210 0040 0014 0005 0001 0000 00000003 00000004 0102030405060708",
             "PACKETRESEND_CMD, req_id=0005, ei = 1, stream_chan_idx=0001, first_packet_id=00000003, "
             "last_packet_id=00000004, block_id64=0102030405060708%5"},
        Case{"UnknownCommand", Control, "4201 00c4 0004 0007 00000000", ", req_id=0007"},
        Case{"UnknownAcknowledge", Control, "0000 0003 0004 0007 00000000", ", ack_id=0007"},
        Case{"Empty", Control, "", ", req_id=0000"}),
    s_name);

#define IMAGE_SECTION "3200 0001 11121314 15161718 01080001 00000800 00000600 00000010 00000020 0004 0005 "
#define IMAGE_TEXT                                                                                                     \
    ", IMAGE: field_id=3, field_count=2, timestamp=1112131415161718, pixel_format=01080001, size_x=00000800, "         \
    "size_y=00000600, offset_x=00000010, offset_y=00000020, padding_x=00040000, padding_y=00050000"
#define TRAILER_SECTION "0000 0001 00000600 "
#define BYTES_33 "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20 "
#define TEXT_33 " 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20"
#define EXTENDED_HEADER(format) "0000 1234 " format "000000 0102030405060708 00000001 "
#define EXTENDED_TEXT                                                                                                  \
    " EI=0, status=0000, flag=1234, packetFormat=01020304, block_id64=0506070800000001, packet_id32=00000001"

INSTANTIATE_TEST_SUITE_P(
    Stream, GEV,
    testing::Values(
        Case{"Leader", Stream, "0000 0012 01000000" IMAGE_SECTION,
             " EI=1, status=0000, block_id=0012, packet_id=000" IMAGE_TEXT},
        Case{"OtherLeader", Stream, "0000 0012 01000000 0000 4001",
             " EI=1, status=0000, block_id=0012, packet_id=000 UNKNOWN PAYLOAD(4001)"},
        Case{"Trailer", Stream, "800c 0012 02012345" TRAILER_SECTION,
             " EI=1, status=800c, block_id=0012, packet_id=12345, IMAGE: size_y=00000600"},
        Case{"Payload", Stream, "0000 0012 03000001 000102",
             " EI=1, status=0000, block_id=0012, packet_id=001, data= 00 01 02"},
        Case{"PayloadOfNothing", Stream, "0000 0012 03000001",
             " EI=1, status=0000, block_id=0012, packet_id=001, data="},
        Case{"Payload33", Stream, "0000 0012 03000001" BYTES_33,
             " EI=1, status=0000, block_id=0012, packet_id=001, data=" TEXT_33},
        Case{"Payload34", Stream, "0000 0012 03000001" BYTES_33 "21",
             " EI=1, status=0000, block_id=0012, packet_id=001, data=" TEXT_33 "..."},
        Case{"PayloadShorterThanItsHeader", Stream, "0000 0012 03",
             " EI=1, status=0000, block_id=0012, packet_id=000, data= 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
             " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00..."},
        Case{"AllInOne", Stream, "0000 0012 04000000" IMAGE_SECTION TRAILER_SECTION "aabb",
             " EI=1, status=0000, block_id=0012, packet_id=000" IMAGE_TEXT ", IMAGE: size_y=00000600, data= aa bb"},
        Case{"AllInOneOfAnotherKind", Stream, "0000 0012 04000000 0000 0002 0000 0003 aabb",
             " EI=1, status=0000, block_id=0012, packet_id=000 UNKNOWN PAYLOAD(0002) UNKNOWN PAYLOAD(0003), data= aa "
             "bb"},
        Case{"ExtendedLeader", Stream, EXTENDED_HEADER("81") IMAGE_SECTION, EXTENDED_TEXT IMAGE_TEXT},
        Case{"ExtendedPayload", Stream, EXTENDED_HEADER("f3") "aa", EXTENDED_TEXT ", data= aa"},
        Case{"UnknownFormat", Stream, "0000 0012 0f000000 aabb",
             "UNKNOWN(f) EI=1, status=0000, block_id=0012, packet_id=000"},
        Case{"NoFormat", Stream, "", "UNKNOWN(0) EI=1, status=0000, block_id=0000, packet_id=000"}),
    s_name);

TEST(GEVStream, HeadersOfTheirOwn)
{
    TovGEV::_internal::GVSP_Header10 header10;
    TovGEV::_internal::GVSP_Header20 header20;
    memcpy(&header10, FromHex("0001 0012 03abcdef").data(), sizeof header10);
    memcpy(&header20, FromHex(EXTENDED_HEADER("83")).data(), sizeof header20);
    EXPECT_EQ(MakeStreamLogHeader10(&header10).toStdString(), ", status=0001, block_id=0012, packet_id=abcdef");
    EXPECT_EQ(" EI=0" + MakeStreamLogHeader20(&header20).toStdString(), EXTENDED_TEXT);
}

TEST(GEVEvents, ALyingLengthGivesAllTheRecordsItTells)
{
    LogStringMakerGEV maker;
    std::string const line = Decode(maker, Event, FromHex("4201 00c0 ffff 0001"));
    std::string const record =
        ", event_identifier=0000, stream_channel_index=0000, block_id=0000, timestamp=0000000000000000";
    EXPECT_EQ(line.size(), std::string("EVENT_CMD, req_id=0001").size() + 4095 * record.size());
    EXPECT_EQ(line.substr(line.size() - record.size()), record);
}

} // namespace
