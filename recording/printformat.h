// Whether a printf format that a user typed may be used with certain values.
#pragma once

#include <cstddef>
#include <cstdint>

namespace PrintFormat {

// What the values are; all of one expansion are of one kind.
enum Kind { Unsigned32, Integer64 };

// True when the format asks for no more than `count` values of that kind and is well-formed: conversions of integers
// with a length modifier of the values' own width (%c and the narrower h and hh with 32 bits), flags that the
// conversion knows, no '*', no %n, and widths and precisions below `limit`. Asking for fewer values, or for none, is
// allowed, and so are positions ("%2$u") that leave none out.
bool Fits(char const *format, Kind kind, unsigned int count, std::size_t limit);

} // namespace PrintFormat
