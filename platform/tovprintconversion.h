// A conversion of a printf format, taken apart: a format that an operator or a file brings is checked against the
// values before printf sees it.
#pragma once

#include "tovmisc.h"

#include <cstddef>
#include <string_view>

struct TovPrintConversion
{
    std::size_t position;    // "%2$u": 2; 0 without one
    std::string_view flags;  // part of the format, like `length`, which points to its place there even when empty
    std::string_view length; // "", "h", "hh", "l", "ll", "j", "z" or "t"
    char kind;               // one of diuoxXc, aAeEfFgG, s
};

// Takes the conversion at `*at`, just after its '%', and moves `*at` past it. False for any other kind, for '*', for
// what printf leaves undefined, and for positions, widths and precisions that are not below `limit`. Any thread.
TOV_MISC_API bool TovTakePrintConversion(char const **at, std::size_t limit, TovPrintConversion *conversion);
