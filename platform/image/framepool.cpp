// A pool of frame-sized blocks. A frame's life is short and the next one is as large, so a freed block is nearly
// always what the next request wants, and its pages are already there.
#include "tovimage.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t Alignment = 64;
// Smaller blocks than this are the heap's own business.
constexpr std::size_t PooledFrom = 32 * 1024;
// What free blocks may hold together: a handful of the largest frames.
constexpr std::size_t KeepBytes = 384u << 20;
constexpr std::size_t KeepBlocks = 128;
// A size that nobody has asked for in this time, such as the picture's before its window was resized, is given up.
constexpr std::chrono::seconds KeepTime{10};
// From here on large pages pay: a 37 MB frame is 18 of them, or 9,000 small ones.
constexpr std::size_t HugePage = 2u << 20;
constexpr std::size_t HugeFrom = 2 * HugePage;
// Frames begin at a page, so that a file can be written from them past the page cache.
constexpr std::size_t Page = 4096;
constexpr std::size_t PagedFrom = 32 * Page;
// Of any system's pages.
constexpr std::size_t LargestPage = 64 * 1024;

// No frame comes near this; a larger size is an error in somebody's arithmetic.
constexpr std::size_t Largest = std::size_t(1) << 36;

// Precedes the memory handed out.
struct alignas(Alignment) Block
{
    std::size_t capacity; // bytes behind this header
    void *memory;         // the allocation that holds it, to be freed
    std::size_t mapped;   // its bytes; 0: it is the heap's
    Clock::time_point freed = {};
};
static_assert(sizeof(Block) == Alignment);

std::size_t RoundUp(std::size_t bytes, std::size_t unit)
{
    return (bytes + unit - 1) / unit * unit;
}

Block *BlockAt(void *memory, std::size_t begin, std::size_t bytes, std::size_t mapped)
{
    return new (static_cast<char *>(memory) + begin - sizeof(Block)) Block{bytes - begin, memory, mapped};
}

// Not from the heap, where one that is freed among others that are in use stays the process'.
Block *MapBlock(std::size_t capacity)
{
    bool const huge = capacity >= HugeFrom;
    std::size_t const bytes = RoundUp(Page + capacity, LargestPage);
    std::size_t const all = huge ? bytes + HugePage : bytes;
    void *const memory = mmap(nullptr, all, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    if (!huge)
        return BlockAt(memory, Page, bytes, bytes);
    auto const at = reinterpret_cast<std::uintptr_t>(memory);
    char *const begin = static_cast<char *>(memory) + (RoundUp(at, HugePage) - at);
    if (begin != memory)
        munmap(memory, static_cast<std::size_t>(begin - static_cast<char *>(memory)));
    if (char *const end = static_cast<char *>(memory) + all; end != begin + bytes)
        munmap(begin + bytes, static_cast<std::size_t>(end - (begin + bytes)));
#if defined(MADV_HUGEPAGE)
    madvise(begin, bytes, MADV_HUGEPAGE);
#endif
    return BlockAt(begin, Page, bytes, bytes);
}

Block *NewBlock(std::size_t capacity)
{
    if (capacity >= PagedFrom)
        return MapBlock(capacity);
    std::size_t const bytes = RoundUp(sizeof(Block) + capacity, Alignment);
    void *memory = nullptr;
    if (posix_memalign(&memory, Alignment, bytes) != 0)
        return nullptr;
    return BlockAt(memory, sizeof(Block), bytes, 0);
}

void Free(Block *block)
{
    ASAN_UNPOISON_MEMORY_REGION(block + 1, block->capacity);
    if (block->mapped != 0)
        munmap(block->memory, block->mapped);
    else
        std::free(block->memory);
}

class FramePool
{
public:
    Block *Take(std::size_t size)
    {
        std::lock_guard lock(m_mutex);
        auto best = m_free.end();
        for (auto it = m_free.begin(); it != m_free.end(); ++it) {
            std::size_t const capacity = (*it)->capacity;
            if (capacity >= size && capacity - size <= size / 4 &&
                (best == m_free.end() || capacity < (*best)->capacity))
                best = it;
        }
        if (best == m_free.end())
            return nullptr;
        Block *block = *best;
        m_free.erase(best);
        m_freeBytes -= block->capacity;
        return block;
    }

    // Returns false when the block is too large to be kept at all; the oldest blocks make room for it otherwise, and
    // those go that have lain here for long.
    bool Keep(Block *block)
    {
        if (block->capacity > KeepBytes)
            return false;
        std::array<Block *, KeepBlocks> dropped;
        std::size_t count = 0;
        block->freed = Clock::now();
        {
            std::lock_guard lock(m_mutex);
            while (m_free.size() - count >= KeepBlocks || m_freeBytes + block->capacity > KeepBytes ||
                   (count < m_free.size() && block->freed - m_free[count]->freed > KeepTime)) {
                m_freeBytes -= m_free[count]->capacity;
                dropped[count] = m_free[count];
                ++count;
            }
            m_free.erase(m_free.begin(), m_free.begin() + std::ptrdiff_t(count));
            m_free.push_back(block);
            m_freeBytes += block->capacity;
        }
        // Giving pages back takes long: not under the lock.
        for (std::size_t i = 0; i < count; ++i)
            Free(dropped[i]);
        return true;
    }

    FramePool()
    {
        m_free.reserve(KeepBlocks);
    }

private:
    std::mutex m_mutex;
    std::vector<Block *> m_free; // under m_mutex; oldest first
    std::size_t m_freeBytes = 0; // under m_mutex
};

// Never destroyed: frames may be freed by whatever ends last in the process.
FramePool &Pool()
{
    static FramePool *pool = new FramePool;
    return *pool;
}

} // namespace

void *TovAllocFrameMemory(std::size_t size)
{
    if (size > Largest)
        return nullptr;
    Block *block = size >= PooledFrom ? Pool().Take(size) : nullptr;
    if (!block) {
        // Some slack, so that frames of nearly one size find each other's blocks.
        block = NewBlock(size < PooledFrom ? size : size + size / 64);
        if (!block)
            return nullptr;
    }
    ASAN_UNPOISON_MEMORY_REGION(block + 1, size);
    ASAN_POISON_MEMORY_REGION(reinterpret_cast<char *>(block + 1) + size, block->capacity - size);
    return block + 1;
}

void TovFreeFrameMemory(void *memory)
{
    if (!memory)
        return;
    Block *block = static_cast<Block *>(memory) - 1;
    // Before it is kept: from then on it may be another thread's.
    ASAN_POISON_MEMORY_REGION(block + 1, block->capacity);
    if (block->capacity >= PooledFrom && Pool().Keep(block))
        return;
    Free(block);
}
