// A serializer that writes nothing, fails and blocks as the test says, and remembers what it was given. Linking it into
// a test puts it in the place of the library's.
//
// Threads: the operations from the recording thread, the script from any.
#pragma once

#include "tovserializer.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

struct FakeWrite
{
    std::string name; // "" in a movie
    std::uint64_t id;
    std::uint32_t pixelType;
    std::uint8_t firstByte;
};

// What it does and what it has seen.
struct FakeSerializing
{
    // Statuses; the argument of a write is its number, from 0. An action may block or throw.
    std::function<std::int32_t()> onStart, onStop;
    std::function<std::int32_t(std::size_t)> onWrite;
    std::function<std::int64_t(std::size_t written, bool stopped)> readable; // without it nobody knows
    std::string failure;                                                     // the words for it
    bool holdsConfiguration = false;
    std::string home;              // of the companions
    std::string log;               // starts and stops, "entry; entry"
    std::vector<FakeWrite> writes; // those that succeeded
    std::size_t calls = 0;
};

// One for the whole process.
class FakeSerializerScript
{
public:
    static FakeSerializerScript &Get();

    template<typename T>
    void Set(T FakeSerializing::*what, std::type_identity_t<T> value)
    {
        std::lock_guard const lock(m_mutex);
        m_state.*what = std::move(value);
    }
    void Reset();
    std::string TakeLog();
    std::string Home() const;
    std::vector<FakeWrite> Writes() const;

private:
    friend class FakeSerializer;
    mutable std::mutex m_mutex; // not held while an action runs
    FakeSerializing m_state;    // m_mutex
};
