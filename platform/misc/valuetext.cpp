#include "valuetext.h"

#include "tovprintconversion.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <system_error>

#include <locale.h>

namespace {

// Fields this wide, or this many digits, are refused: no number needs them.
constexpr std::size_t WidthLimit = 513;

class CLocale
{
public:
    CLocale()
    {
        static locale_t const c = newlocale(LC_ALL_MASK, "C", nullptr);
        m_previous = uselocale(c);
    }
    ~CLocale()
    {
        uselocale(m_previous);
    }
    CLocale(CLocale const &) = delete;
    CLocale &operator=(CLocale const &) = delete;

private:
    locale_t m_previous;
};

// Without blanks around it and without a plus sign, which from_chars does not take.
std::string_view NumberPart(char const *text)
{
    constexpr char blanks[] = " \t\r\n";
    std::string_view part(text);
    std::size_t const first = part.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    part = part.substr(first, part.find_last_not_of(blanks) - first + 1);
    if (part.size() > 1 && part[0] == '+' && part[1] != '-')
        part.remove_prefix(1);
    return part;
}

// The one conversion of a printf format, with the text before and after it left in place.
struct Conversion
{
    std::string format; // rebuilt, with our own length modifier
    bool found = false;
};

// Accepts one of `kinds`, with any length of 64 bits where a length is allowed; no positions.
bool ParseFormat(char const *format, std::string_view kinds, bool longAllowed, Conversion *result)
{
    for (char const *p = format; *p;) {
        result->format += *p;
        if (*p++ != '%')
            continue;
        if (*p == '%') {
            result->format += *p++;
            continue;
        }
        char const *const begin = p;
        TovPrintConversion part;
        if (result->found || !TovTakePrintConversion(&p, WidthLimit, &part) || part.position != 0)
            return false;
        bool const fits = longAllowed ? part.length.find('h') == std::string_view::npos : part.length.empty();
        if (!fits || kinds.find(part.kind) == std::string_view::npos)
            return false;
        result->format.append(begin, part.length.data());
        if (longAllowed)
            result->format += 'l';
        result->format += part.kind;
        result->found = true;
    }
    return result->found;
}

template<typename T>
bool Print(Conversion const &conversion, T value, std::string *text)
{
    CLocale const locale;
// The format was checked above, piece by piece.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    int const length = std::snprintf(nullptr, 0, conversion.format.c_str(), value);
    if (length < 0)
        return false;
    text->resize(static_cast<std::size_t>(length));
    std::snprintf(text->data(), text->size() + 1, conversion.format.c_str(), value);
#pragma GCC diagnostic pop
    return true;
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

bool ValueText::ParseInt(char const *text, std::int64_t *value)
{
    std::string_view const part = NumberPart(text);
    auto const [end, error] = std::from_chars(part.data(), part.data() + part.size(), *value);
    if (part.empty() || end != part.data() + part.size())
        return false;
    if (error == std::errc::result_out_of_range) {
        using Limits = std::numeric_limits<std::int64_t>;
        *value = part[0] == '-' ? Limits::min() : Limits::max();
        return true;
    }
    return error == std::errc();
}

bool ValueText::ParseFloat(char const *text, double *value)
{
    std::string_view const part = NumberPart(text);
    auto const [end, error] = std::from_chars(part.data(), part.data() + part.size(), *value);
    if (part.empty() || end != part.data() + part.size())
        return false;
    if (error == std::errc::result_out_of_range) {
        // from_chars does not say whether it was too large or too small.
        CLocale const locale;
        *value = std::strtod(std::string(part).c_str(), nullptr);
        return true;
    }
    return error == std::errc();
}

bool ValueText::ParseBool(char const *text, bool *value)
{
    std::string_view const part = NumberPart(text);
    if (part != "0" && part != "1" && part != "false" && part != "true")
        return false;
    *value = part == "1" || part == "true";
    return true;
}

bool ValueText::ParseBytes(char const *text, std::uint8_t *bytes, std::size_t size)
{
    if (std::strlen(text) != size * 2)
        return false;
    for (std::size_t i = 0; i < size; ++i) {
        int const high = HexDigit(text[2 * i]);
        int const low = HexDigit(text[2 * i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return true;
}

std::string ValueText::FromFloat(double value)
{
    char buffer[64];
    auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string ValueText::FromBytes(std::uint8_t const *bytes, std::size_t size)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

bool ValueText::FormatInt(char const *format, std::int64_t value, std::string *text)
{
    Conversion conversion;
    return ParseFormat(format, "diuoxX", true, &conversion) && Print(conversion, static_cast<long>(value), text);
}

bool ValueText::FormatFloat(char const *format, double value, std::string *text)
{
    Conversion conversion;
    return ParseFormat(format, "aAeEfFgG", true, &conversion) && Print(conversion, value, text);
}

bool ValueText::FormatString(char const *format, std::string const &value, std::string *text)
{
    Conversion conversion;
    return ParseFormat(format, "s", false, &conversion) && Print(conversion, value.c_str(), text);
}
