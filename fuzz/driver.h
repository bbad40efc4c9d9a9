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

// Ends the process with what went wrong.
[[noreturn]] void FuzzFail(char const *what);
