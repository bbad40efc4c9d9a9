// A serializer that writes nothing, fails and dawdles as the test says, and remembers what it was given. Linking it
// into a test puts it in the place of the library's.
//
// Threads: the operations from the recording thread, the script from any.
#pragma once

#include "tovserializer.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct FakeWrite
{
    std::string name; // "" in a movie
    std::uint64_t id;
    std::uint32_t pixelType;
    std::uint8_t firstByte;
};

// One for the whole process.
class FakeSerializerScript
{
public:
    static FakeSerializerScript &Get();

    void Reset();
    // Statuses; the argument of a write is its number, from 0. An action may block or throw.
    void OnStart(std::function<std::int32_t()> action);
    void OnWrite(std::function<std::int32_t(std::size_t)> action);
    void OnStop(std::function<std::int32_t()> action);
    std::string TakeLog();                 // starts and stops, "entry; entry"
    std::vector<FakeWrite> Writes() const; // those that succeeded

private:
    friend class FakeSerializer;
    mutable std::mutex m_mutex; // guards all below; not held while an action runs
    std::function<std::int32_t()> m_onStart;
    std::function<std::int32_t(std::size_t)> m_onWrite;
    std::function<std::int32_t()> m_onStop;
    std::string m_log;
    std::vector<FakeWrite> m_writes;
    std::size_t m_calls = 0;
};
