// What a harness and the driver tell each other.
#pragma once

#include <cstddef>
#include <cstdint>

// The harness. Returns 0 for an input that got through, which is worth being mutated further, and -1 for others.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Words of the format, ended by null.
extern char const *const FuzzWords[];

// Ends the process with what went wrong.
[[noreturn]] void FuzzFail(char const *what);
