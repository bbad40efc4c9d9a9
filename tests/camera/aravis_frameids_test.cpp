// The arithmetic of frame ids and timestamps, and of what is known of lost ones.
#include "aravis/frameids.h"
#include "aravis/usblosses.h"

#include <gtest/gtest.h>

#include <tuple>
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

// Ids that jump are the buffers' fault as far as none was free; a frame that lacks data tells nothing by its id.
TEST(UsbLosses, AreToldByIdsBuffersAndBrokenTransfers)
{
    UsbLosses losses;
    losses.Begin(7);
    struct
    {
        std::uint64_t id;
        bool isBroken;
        std::uint64_t underruns, skipped, unbuffered;
    } const rows[] = {{5, false, 7, 0, 0},   {6, false, 7, 0, 0},   {9, false, 7, 2, 0},   {13, false, 9, 1, 2},
                      {14, false, 10, 0, 0}, {16, false, 10, 0, 1}, {16, true, 10, 0, 0},  {0, true, 10, 0, 0},
                      {19, false, 10, 2, 0}, {21, true, 11, 0, 1},  {22, false, 11, 0, 0}, {1, false, 11, 0, 0},
                      {2, false, 11, 0, 0}};
    bool wasBroken = false;
    for (auto const &row : rows) {
        SCOPED_TRACE(row.id);
        TovCam::FrameLosses const told = losses.Of(row.id, row.isBroken, row.underruns);
        EXPECT_EQ(told.skipped, row.skipped);
        EXPECT_EQ(told.unbuffered, row.unbuffered);
        EXPECT_EQ(told.missing, row.isBroken);
        EXPECT_EQ(told.missingBefore, std::exchange(wasBroken, row.isBroken));
    }
    TovCam::StreamLosses all;
    losses.AddTo(all);
    EXPECT_EQ(std::tuple(all.isUsb, all.skipped, all.unbuffered, all.missing), std::tuple(true, 5u, 4u, 3u));
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
