#include "printformat.h"

#include <cstring>
#include <string_view>

namespace {

constexpr unsigned int MostValues = 32; // bits of the set of positions

// Digits at `p`; false when the number reaches the limit.
bool readNumber(char const *&p, std::size_t limit, std::size_t *number)
{
    *number = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        *number = *number * 10 + static_cast<std::size_t>(*p - '0');
        if (*number >= limit)
            return false;
    }
    return true;
}

bool lengthFits(std::string_view length, char conversion, PrintFormat::Kind kind)
{
    if (kind == PrintFormat::Integer64)
        return conversion != 'c' &&
               (length == "l" || length == "ll" || length == "j" || length == "z" || length == "t");
    return length.empty() || (conversion != 'c' && (length == "h" || length == "hh"));
}

// Some flags are undefined for some conversions.
bool flagsFit(std::string_view flags, char conversion)
{
    auto const has = [flags](char flag) {
        return flags.find(flag) != std::string_view::npos;
    };
    bool const decimal = std::strchr("diu", conversion) != nullptr;
    if (has('#') && (decimal || conversion == 'c'))
        return false;
    if (has('0') && conversion == 'c')
        return false;
    return !has('\'') || decimal;
}

} // namespace

bool PrintFormat::Fits(char const *format, Kind kind, unsigned int count, std::size_t limit)
{
    unsigned int inOrder = 0;    // conversions without a position
    std::uint32_t positions = 0; // one bit each
    std::uint32_t highest = 0;
    for (char const *p = format; *p; ++p) {
        if (*p != '%')
            continue;
        if (*++p == '%')
            continue;

        char const *const start = p;
        std::size_t number = 0;
        if (!readNumber(p, limit, &number))
            return false;
        if (*p == '$') {
            if (number == 0 || number > count || number > MostValues || *start == '0')
                return false;
            positions |= std::uint32_t{1} << (number - 1);
            highest = number > highest ? static_cast<std::uint32_t>(number) : highest;
            ++p;
        } else {
            p = start;
            ++inOrder;
        }

        std::string_view const flags(p, std::strspn(p, "-+ #0'"));
        p += flags.size();
        if (!readNumber(p, limit, &number))
            return false;
        bool const precise = *p == '.';
        if (precise && !readNumber(++p, limit, &number))
            return false;
        std::string_view const length(p, std::strspn(p, "hljzt"));
        p += length.size();

        if (!*p || !std::strchr("diuoxXc", *p))
            return false;
        if (!lengthFits(length, *p, kind) || !flagsFit(flags, *p) || (precise && *p == 'c'))
            return false;
    }
    if (positions != 0)
        return inOrder == 0 && positions == (highest == 32 ? ~std::uint32_t{0} : (std::uint32_t{1} << highest) - 1);
    return inOrder <= count;
}
