#include "printformat.h"

#include "tovprintconversion.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t MostValues = 32; // bits of the set of positions

bool FitsKind(TovPrintConversion const &conversion, PrintFormat::Kind kind)
{
    if (!std::strchr("diuoxXc", conversion.kind))
        return false;
    bool const narrow = conversion.length.empty() || conversion.length[0] == 'h';
    if (kind == PrintFormat::Integer64)
        return conversion.kind != 'c' && !narrow;
    return conversion.kind == 'c' ? conversion.length.empty() : narrow;
}

} // namespace

bool PrintFormat::Fits(char const *format, Kind kind, unsigned int count, std::size_t limit)
{
    unsigned int inOrder = 0;    // conversions without a position
    std::uint32_t positions = 0; // one bit each
    std::size_t highest = 0;
    for (char const *p = format; *p;) {
        if (*p++ != '%')
            continue;
        if (*p == '%') {
            ++p;
            continue;
        }
        TovPrintConversion conversion;
        if (!TovTakePrintConversion(&p, limit, &conversion) || !FitsKind(conversion, kind))
            return false;
        if (conversion.position == 0) {
            ++inOrder;
            continue;
        }
        if (conversion.position > std::min<std::size_t>(count, MostValues))
            return false;
        positions |= std::uint32_t{1} << (conversion.position - 1);
        highest = std::max(highest, conversion.position);
    }
    if (positions == 0)
        return inOrder <= count;
    return inOrder == 0 && positions == (highest == 32 ? ~std::uint32_t{0} : (std::uint32_t{1} << highest) - 1);
}
