// What a harness needs when libFuzzer drives it.
#include "driver.h"

#include <cstdio>
#include <cstdlib>

// Freed memory is kept from use for megabytes and not for hundreds of them, and stacks are recorded as far as they tell
// something: most of the time of short runs goes there. The environment goes before this.
extern "C" char const *__asan_default_options()
{
    return "quarantine_size_mb=4:malloc_context_size=6:detect_leaks=1:allocator_may_return_null=0";
}

extern "C" char const *__ubsan_default_options()
{
    return "print_stacktrace=1";
}

void FuzzFail(char const *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort(); // libFuzzer keeps the input
}
