// The interface between a harness and the driver.
#pragma once

#include <cstddef>
#include <cstdint>

// What a harness returns for an input that was not accepted: our driver mutates others. libFuzzer looks at coverage,
// and would not keep it for new ways of being refused.
#ifdef FUZZ_BY_COVERAGE
constexpr int FuzzRefused = 0;
#else
constexpr int FuzzRefused = -1;
#endif

// The harness. Returns 0 for an accepted input.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Whether an input is one of so many, about: for what takes long and need not be tried with each.
inline bool IsOneOf(std::uint32_t share, std::uint8_t const *data, std::size_t size)
{
    std::uint32_t hash = 0x811C9DC5;
    for (std::size_t i = 0; i < size; ++i)
        hash = (hash ^ data[i]) * 0x01000193;
    return (hash >> 8) % share == 0;
}

// Ends the process with what went wrong.
[[noreturn]] void FuzzFail(char const *what);
