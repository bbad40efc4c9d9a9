// The arithmetic of frame ids and timestamps.
#include "aravis/frameids.h"

#include <gtest/gtest.h>

#include <utility>

TEST(FrameIds, CountOnOverTheWrapOfSixteenBits)
{
    FrameIdCounter ids;
    ids.Reset(true);
    EXPECT_EQ(ids.Next(65533), 65533u);
    EXPECT_EQ(ids.Next(65535), 65535u); // one lost
    EXPECT_EQ(ids.Peek(1), 65536u);     // 0 is skipped
    EXPECT_EQ(ids.Next(2), 65537u);     // one more lost
    for (std::uint32_t i = 3; i <= 65535; ++i)
        ids.Next(i);
    EXPECT_EQ(ids.Next(1), 131071u);
    ids.Next(500);
    EXPECT_EQ(ids.Next(1), 131571u); // begun anew, not thousands lost
    ids.Reset(true);                 // extended ids are left alone
    for (auto const &[id, number] : {std::pair(65535u, 65535u), {65536, 65536}, {65540, 65540}, {5, 65541}})
        EXPECT_EQ(ids.Next(id), number);
    ids.Reset(false); // USB3 Vision
    EXPECT_EQ(ids.Next(0), 0u);
    EXPECT_EQ(ids.Next(0xFFFFFFFFFFull), 0xFFFFFFFFFFull);
}

TEST(Timestamps, ComeBackAsTheTicksTheyWere)
{
    for (std::uint64_t const frequency : {1000ull, 31250000ull, 66666667ull, 125000000ull, 1000000000ull}) {
        for (std::uint64_t const ticks : {0ull, 1ull, 124999999ull, 125000001ull, 0x23456789ABCull}) {
            std::uint64_t const nanoseconds =
                ticks / frequency * 1000000000 + ticks % frequency * 1000000000 / frequency;
            EXPECT_EQ(TicksFromNanoseconds(nanoseconds, frequency), ticks) << frequency;
        }
    }
}
