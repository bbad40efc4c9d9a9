// Parameter values as text and back. Independent of the process' locale: settings written under one are read under
// another. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ValueText {

// Decimal, blanks around it allowed. A value beyond 64 bits becomes the nearest limit. False: no number.
bool ParseInt(char const *text, std::int64_t *value);
// Beyond the range of a double: an infinity, or 0. False: no number.
bool ParseFloat(char const *text, double *value);
bool ParseBool(char const *text, bool *value); // 0, 1, false, true
// Exactly `size` bytes in hexadecimal.
bool ParseBytes(char const *text, std::uint8_t *bytes, std::size_t size);

// With the fewest digits that read back as the same value.
std::string FromFloat(double value);
std::string FromBytes(std::uint8_t const *bytes, std::size_t size);

// By a printf format that holds exactly one conversion and is fit for the value; false when it is not.
bool FormatInt(char const *format, std::int64_t value, std::string *text);
bool FormatFloat(char const *format, double value, std::string *text);
bool FormatString(char const *format, std::string const &value, std::string *text);

} // namespace ValueText
