#include "tovimage.h"

#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include <unistd.h>

namespace {

TEST(FramePool, GivesBackWhatIsBeyondItsBound)
{
    auto const virtualPages = [] {
        std::size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages;
    };
    std::size_t const before = virtualPages();
    // 3 GB of large blocks, then many small ones.
    std::vector<void *> blocks;
    for (std::size_t i = 0; i < 540; ++i)
        blocks.push_back(TovAllocFrameMemory(i < 40 ? (40u << 20) + i * (2u << 20) : 40000));
    for (void *block : blocks)
        TovFreeFrameMemory(block);
    EXPECT_EQ(TovAllocFrameMemory(~std::size_t(0)), nullptr);
    EXPECT_EQ(TovAllocFrameMemory(std::size_t(1) << 60), nullptr);
    EXPECT_LT(virtualPages(), before + (std::size_t(1) << 30) / std::size_t(sysconf(_SC_PAGESIZE)));
}

} // namespace
