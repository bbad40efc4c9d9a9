#include "tovimage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

long PageFaults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

std::size_t VirtualBytes()
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * std::size_t(sysconf(_SC_PAGESIZE));
}

TEST(FramePool, SteadyStateTouchesNoFreshPage)
{
    constexpr std::size_t SIZE = 9'000'001;
    auto const turn = [](std::size_t size) {
        void *a = TovAllocFrameMemory(size);
        void *b = TovAllocFrameMemory(size - size / 200);
        std::memset(a, 1, size);
        std::memset(b, 2, size - size / 200);
        TovFreeFrameMemory(a);
        TovFreeFrameMemory(b);
    };
    turn(SIZE);
    long const before = PageFaults();
    for (int i = 0; i < 20; ++i)
        turn(SIZE);
    EXPECT_LT(PageFaults() - before, 100); // one turn with fresh small pages is 4,400
}

TEST(FramePool, BlocksAreAlignedAndDistinctAndHoldAnySize)
{
    std::vector<unsigned char *> blocks;
    std::vector<std::size_t> const sizes = {0, 1, 63, 64, 32767, 32768, 100000, 4 << 20, (4 << 20) + 1, 5'000'000};
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            blocks.push_back(static_cast<unsigned char *>(TovAllocFrameMemory(sizes[i])));
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back()) % 64, 0u);
            std::memset(blocks.back(), int(i), sizes[i]);
        }
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            for (std::size_t at = 0; at < sizes[i]; at += 61)
                ASSERT_EQ(blocks[i][at], i);
            TovFreeFrameMemory(blocks[i]);
        }
        blocks.clear();
    }
    TovFreeFrameMemory(nullptr);
    EXPECT_EQ(TovAllocFrameMemory(~std::size_t(0)), nullptr);
    EXPECT_EQ(TovAllocFrameMemory(std::size_t(1) << 60), nullptr);
}

TEST(FramePool, GivesBackWhatIsBeyondItsBound)
{
    std::size_t const before = VirtualBytes();
    for (int round = 0; round < 2; ++round) {
        // 3 GB of large blocks, then many small ones.
        std::vector<void *> blocks;
        for (std::size_t i = 0; i < 40; ++i)
            blocks.push_back(TovAllocFrameMemory((40u << 20) + i * (2u << 20)));
        for (int i = 0; i < 500; ++i)
            blocks.push_back(TovAllocFrameMemory(40000));
        for (void *block : blocks) {
            ASSERT_NE(block, nullptr);
            std::memset(block, 1, 40000);
            TovFreeFrameMemory(block);
        }
    }
    EXPECT_LT(VirtualBytes(), before + (std::size_t(1) << 30));
}

TEST(FramePool, ThreadsFreeWhatOthersTook)
{
    constexpr int THREADS = 4;
    std::atomic<unsigned char *> slots[THREADS] = {};
    std::vector<std::thread> threads;
    std::atomic<bool> torn = false;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 3000; ++i) {
                std::size_t const size = 40000 + std::size_t(i % 7) * 3000;
                auto *block = static_cast<unsigned char *>(TovAllocFrameMemory(size));
                block[0] = block[size - 1] = block[30000] = (unsigned char)(i);
                if (block[0] != block[30000])
                    torn = true;
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
