// The text of a colour map, and the tables that are made of it. An input is a byte that chooses the depth, and the
// text.
#include "driver.h"

#include "displaylut.h"

#include <iterator>

namespace {

constexpr std::size_t Longest = 512;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size < 1 || size > Longest)
        return FuzzRefused;
    auto const lut = DisplayLut::Parse({reinterpret_cast<char const *>(data + 1), size - 1});
    if (!lut)
        return FuzzRefused;
    // The deep ones take long, and show little more.
    constexpr int Depths[] = {8, 1, 2, 4, 6, 7, 9, 10};
    int const depth = data[0] == 0xFF ? 16 : data[0] == 0xFE ? 12 : Depths[data[0] % std::size(Depths)];
    DisplayLut::Tables const tables = lut->MakeTables(depth);
    std::size_t const levels = std::size_t{1} << depth;
    Demand(tables.depth == depth && tables.tones.size() == levels && tables.marks.size() == levels, "not every level");
    bool anyMark = false, anyTone = false;
    for (std::size_t level = 0; level < levels; ++level) {
        Demand(tables.marks[level] < tables.palette.size(), "a colour that is none");
        anyMark |= tables.marks[level] != 0;
        anyTone |= tables.tones[level] != (depth >= 8 ? level >> (depth - 8) : level << (8 - depth));
    }
    Demand(tables.hasMarks == anyMark && (tables.hasTones || !anyTone), "not what the tables hold");
    for (std::size_t i = 1; i < tables.palette.size(); ++i)
        Demand(tables.palette[i] >> 24 == 0xFF, "a transparent colour");
    return 0;
}
