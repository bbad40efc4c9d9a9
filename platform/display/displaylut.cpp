#include "displaylut.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace {

constexpr std::size_t MaxPalette = 65536; // marks are 16 bits

// Not strtod: the text has a decimal point in every locale.
bool ParseUnit(std::string_view text, double *value)
{
    char const *const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, *value);
    // False for NaN as well.
    return result.ec == std::errc() && result.ptr == end && *value >= 0.0 && *value <= 1.0;
}

std::uint32_t ToByte(double unit)
{
    return static_cast<std::uint32_t>(std::lround(unit * 255.0));
}

} // namespace

std::shared_ptr<DisplayLut const> DisplayLut::Parse(std::string_view text)
{
    auto lut = std::make_shared<DisplayLut>();
    double last = 0.0;
    while (!text.empty()) {
        std::size_t const end = text.find(';');
        if (end == std::string_view::npos)
            return nullptr;
        std::string_view entry = text.substr(0, end);
        text.remove_prefix(end + 1);

        std::array<double, 5> fields;
        std::size_t count = 0;
        for (bool more = true; more;) {
            std::size_t const comma = entry.find(',');
            more = comma != std::string_view::npos;
            if (count == fields.size() || !ParseUnit(entry.substr(0, comma), &fields[count++]))
                return nullptr;
            if (more)
                entry.remove_prefix(comma + 1);
        }
        if (count < 2 || fields[0] < last)
            return nullptr;
        last = fields[0];
        if (fields[1] == 1.0 && count == 5) {
            if (lut->m_palette.size() == MaxPalette)
                return nullptr;
            lut->m_entries.push_back({last, Form::Colour, static_cast<std::uint32_t>(lut->m_palette.size())});
            lut->m_palette.push_back(0xFF000000u | ToByte(fields[2]) << 16 | ToByte(fields[3]) << 8 |
                                     ToByte(fields[4]));
        } else if (fields[1] == 0.5 && count == 3) {
            lut->m_entries.push_back({last, Form::Grey, ToByte(fields[2])});
        } else if (fields[1] == 0.0 && count == 2) {
            lut->m_entries.push_back({last, Form::Plain, 0});
        } else {
            return nullptr;
        }
    }
    return lut->m_entries.empty() ? nullptr : lut;
}

DisplayLut::Tables DisplayLut::MakeTables(int depth) const
{
    Tables tables;
    tables.depth = depth;
    tables.palette = m_palette;
    std::size_t const levels = std::size_t(1) << depth;
    tables.tones.resize(levels);
    tables.marks.resize(levels);
    // 8-bit maps name the levels themselves, 1.0 being the top one; those of deeper scales name the points between two
    // levels, 1.0 being the end of the scale.
    double const scale = depth <= 8 ? double(levels - 1) : double(levels);
    auto entry = m_entries.begin();
    for (std::size_t level = 0; level < levels; ++level) {
        while (entry != m_entries.end() && double(level) / scale > entry->position)
            ++entry;
        Form const form = entry != m_entries.end() ? entry->form : Form::Plain;
        std::size_t const plain = depth >= 8 ? level >> (depth - 8) : level << (8 - depth);
        tables.tones[level] = static_cast<std::uint8_t>(form == Form::Grey ? entry->value : plain);
        tables.marks[level] = static_cast<std::uint16_t>(form == Form::Colour ? entry->value : 0);
        tables.hasTones |= form == Form::Grey;
        tables.hasMarks |= form == Form::Colour;
    }
    return tables;
}
