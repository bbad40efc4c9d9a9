// Packets, byte by byte, and the lines they give.
#include "logstringmaker.h"

#include "bytes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>

namespace {

// The packet lies in a block of its own size, so that reading past it is found.
std::string Decode(LogStringMaker &maker, std::string const &channel, Bytes const &packet)
{
    auto const block = std::make_unique<std::uint8_t[]>(packet.size());
    std::copy(packet.begin(), packet.end(), block.get());
    auto const make = channel == "control"  ? &LogStringMaker::MakeControlLogString
                      : channel == "stream" ? &LogStringMaker::MakeStreamLogString
                                            : &LogStringMaker::MakeEventLogString;
    return (maker.*make)(block.get(), packet.size()).toStdString();
}

TEST(Packets, GiveTheirLines)
{
    std::ifstream file(PACKETS);
    std::string title, bytes, expected;
    int cases = 0;
    while (std::getline(file, title)) {
        if (title.empty() || title[0] == '#')
            continue;
        SCOPED_TRACE(title);
        ASSERT_TRUE(std::getline(file, bytes) && std::getline(file, expected));
        LogStringMakerGEV gev;
        LogStringMakerU3V u3v;
        bool const isGigE = title.find(" GEV ") != std::string::npos;
        std::string const channel = title.substr(title.rfind(' ') + 1);
        EXPECT_EQ('|' + Decode(isGigE ? static_cast<LogStringMaker &>(gev) : u3v, channel, FromHex(bytes)) + '|',
                  expected);
        ++cases;
    }
    EXPECT_GT(cases, 60);
}

TEST(U3VStream, TheTrailerIsJudgedByTheLastLeader)
{
    LogStringMakerU3V maker;
    Bytes const trailer = FromHex("55335654 0000 2000 0200000000000000 0000 0000 0a00000000000000 b0040000");
    std::string const bare = "STR_TR, id=0000000000000002, status=0000, val_pld_sz=000a";
    Decode(maker, "stream", FromHex("5533564c 0000 3400 0100000000000000 0000 0100"));
    Decode(maker, "stream", FromHex("0102"));
    EXPECT_EQ(Decode(maker, "stream", trailer), bare + ", sz_y=000004b0");
    EXPECT_EQ(Decode(maker, "stream", trailer), bare + ", sz_y=000004b0");
    Decode(maker, "stream", FromHex("5533564c 0000 3400 0100000000000000 0000 0200"));
    EXPECT_EQ(Decode(maker, "stream", trailer), bare);
}

TEST(GEVEvents, ALyingLengthGivesAllTheRecordsItTells)
{
    LogStringMakerGEV maker;
    std::string const line = Decode(maker, "event", FromHex("4201 00c0 ffff 0001"));
    std::string const record =
        ", event_identifier=0000, stream_channel_index=0000, block_id=0000, timestamp=0000000000000000";
    EXPECT_EQ(line.size(), std::string("EVENT_CMD, req_id=0001").size() + 4095 * record.size());
    EXPECT_EQ(line.substr(line.size() - record.size()), record);
}

} // namespace
