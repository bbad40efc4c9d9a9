#include "tovprintconversion.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

// Digits at `*at`, none included; false when the number reaches the limit.
bool TakeNumber(char const **at, std::size_t limit, std::size_t *number)
{
    *number = 0;
    for (; **at >= '0' && **at <= '9'; ++*at) {
        *number = *number * 10 + static_cast<std::size_t>(**at - '0');
        if (*number >= limit)
            return false;
    }
    return true;
}

bool IsOneOf(char character, char const *characters)
{
    return character && std::strchr(characters, character);
}

bool IsLength(std::string_view length)
{
    static constexpr std::string_view Known[] = {"", "h", "hh", "l", "ll", "j", "z", "t"};
    return std::find(std::begin(Known), std::end(Known), length) != std::end(Known);
}

// Printf leaves other pairs undefined.
bool KnowsFlags(char kind, std::string_view flags)
{
    return std::none_of(flags.begin(), flags.end(), [kind](char flag) {
        return (flag == '#' && IsOneOf(kind, "diucs")) || (flag == '0' && IsOneOf(kind, "cs")) ||
               (flag == '\'' && !IsOneOf(kind, "diu"));
    });
}

} // namespace

bool TovTakePrintConversion(char const **at, std::size_t limit, TovPrintConversion *conversion)
{
    char const *p = *at;
    std::size_t number = 0;
    if (!TakeNumber(&p, limit, &number))
        return false;
    conversion->position = 0;
    if (*p == '$') {
        if (number == 0 || **at == '0')
            return false;
        conversion->position = number;
        ++p;
    } else {
        p = *at; // the digits were a flag or the width
    }
    conversion->flags = std::string_view(p, std::strspn(p, "-+ #0'"));
    p += conversion->flags.size();
    if (!TakeNumber(&p, limit, &number))
        return false;
    bool const precise = *p == '.';
    if (precise && !TakeNumber(&++p, limit, &number))
        return false;
    conversion->length = std::string_view(p, std::strspn(p, "hljzt"));
    p += conversion->length.size();
    conversion->kind = *p;
    *at = p + 1;
    return IsOneOf(*p, "diuoxXcaAeEfFgGs") && IsLength(conversion->length) && KnowsFlags(*p, conversion->flags) &&
           !(precise && *p == 'c');
}
