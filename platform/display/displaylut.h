// A display LUT: what the levels of the input scale show.
//
// As text, a colour map, it is a row of entries, each ended by ";", their fields separated by ",": a position from 0 to
// 1 on the input scale, then "1" and red, green, blue from 0 to 1; or "0.5" and a grey level from 0 to 1; or "0" alone
// for the plain input. An entry says what the levels show after the position of the entry before it, up to its own.
// Levels past the last entry are plain. Positions do not fall.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

class DisplayLut
{
public:
    // What samples of one depth show, by level. A mark is a 1-based index into `palette`, 0 where there is no colour.
    struct Tables
    {
        int depth = 0;
        bool hasTones = false;
        bool hasMarks = false;
        std::vector<std::uint8_t> tones; // the 8 bits shown where there is no mark
        std::vector<std::uint16_t> marks;
        std::vector<std::uint32_t> palette; // 0xFFRRGGBB; [0] is unused
    };

    // Null for a text that is not a colour map.
    static std::shared_ptr<DisplayLut const> Parse(std::string_view text);

    Tables MakeTables(int depth) const;

private:
    enum class Form { Plain, Grey, Colour };
    struct Entry
    {
        double position;
        Form form;
        std::uint32_t value; // grey 0 to 255, or an index into the palette
    };
    std::vector<Entry> m_entries;
    std::vector<std::uint32_t> m_palette{0};
};
