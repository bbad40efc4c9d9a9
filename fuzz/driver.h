// The interface between a harness and the driver.
#pragma once

#include <cstddef>
#include <cstdint>

// The harness. Returns 0 for an accepted input, which is worth mutating further, and -1 for others.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Words of the format, null-terminated.
extern char const *const FuzzWords[];

// Ends the process with what went wrong.
[[noreturn]] void FuzzFail(char const *what);
