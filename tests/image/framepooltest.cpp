#include "tovimage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>
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

TEST(FramePool, ThreadsFreeTheAlignedBlocksThatOthersTook)
{
    constexpr int THREADS = 4;
    std::atomic<unsigned char *> slots[THREADS] = {};
    std::vector<std::thread> threads;
    std::atomic<bool> torn = false;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 3000; ++i) {
                auto *block = static_cast<unsigned char *>(TovAllocFrameMemory(40000 + std::size_t(i % 7) * 3000));
                torn = torn || reinterpret_cast<std::uintptr_t>(block) % 64 != 0;
                block[0] = block[30000] = (unsigned char)(i);
                auto *other = slots[(t + i) % THREADS].exchange(block);
                if (other && other[0] != other[30000])
                    torn = true;
                TovFreeFrameMemory(other);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    for (auto &slot : slots)
        TovFreeFrameMemory(slot);
    EXPECT_FALSE(torn);
}

} // namespace
