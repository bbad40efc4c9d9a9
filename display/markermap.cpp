#include "markermap.h"

#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <utility>

namespace {

// Entries of a map: fields one after another, numbers with a given count of decimals.
class MapText
{
public:
    explicit MapText(int decimals) : m_decimals(decimals)
    {
    }
    // The text, then the numbers with commas between them.
    MapText &Add(char const *text, std::initializer_list<double> numbers = {})
    {
        m_text += text;
        char const *separator = "";
        for (double const number : numbers) {
            m_text += separator;
            AddNumber(number);
            separator = ",";
        }
        return *this;
    }
    void Reserve(std::size_t more)
    {
        m_text.reserve(m_text.size() + more);
    }
    std::string Take()
    {
        return std::move(m_text);
    }

private:
    // Not printf: the text has a decimal point in every locale.
    void AddNumber(double number)
    {
        char digits[512];
        auto const result = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed, m_decimals);
        m_text.append(digits, result.ptr);
    }

    std::string m_text;
    int const m_decimals;
};

} // namespace

bool MarkerPair::IsValid() const
{
    return lo >= 0 && hi > 0 &&
           static_cast<double>(lo) / static_cast<double>(range) < static_cast<double>(hi) / static_cast<double>(range);
}

std::string MarkerMap(MarkerPair const &markers, bool colorize, bool stretch)
{
    auto const range = static_cast<double>(markers.range);
    double a = static_cast<double>(markers.lo) / range;
    double b = static_cast<double>(markers.hi) / range;
    bool const deep = markers.range > 256;
    if (deep) {
        // Half a level of a 16-bit scale below the codes; the lower marker alone moves up by one.
        constexpr double HalfLevel = 7.62939453125e-6;
        a = static_cast<double>(markers.lo + 1) / range - HalfLevel;
        b = static_cast<double>(markers.hi) / range - HalfLevel;
    }
    MapText map(deep ? 6 : 4);
    if (colorize)
        map.Add("", {a}).Add(",1,", {0.0, 1.0, 0.0}).Add(";");
    if (stretch) {
        map.Reserve(static_cast<std::size_t>(markers.range) * 24);
        double const step = (b - a) / range;
        double const greyStep = 1.0 / range;
        double position = a;
        double grey = 0.0;
        for (long i = 0; i < markers.range; ++i) {
            map.Add("", {position}).Add(",0.5,", {grey}).Add(";");
            position += step;
            grey += greyStep;
        }
    } else {
        map.Add("", {b}).Add(",0;");
    }
    if (colorize)
        map.Add("1.,1,", {1.0, 0.0, 0.0}).Add(";");
    else
        map.Add("1.,1,1.,1.,1.;");
    return map.Take();
}
