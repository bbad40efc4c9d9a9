// The files that stand beside a recording, in a folder of their own: the table of its frames, and for raw series the
// headers by which other programs read them. docs/formats.md is their description. Texts alone; nothing here touches a
// file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace SeriesFiles {

// A frame in the table. Paths are relative to the folder of the table, with '/' between their parts.
struct Row
{
    std::uint64_t number = 0;              // of the row, from 0 on
    std::string file;                      // the frame's, or the movie's
    std::optional<std::uint64_t> position; // in a movie, from 0 on; none for a file of its own
    std::uint64_t frameId = 0;             // as the camera gave it
    std::uint64_t timestamp = 0;           // in ticks of the camera's clock
    std::optional<std::int64_t> arrival;   // of the first packet: nanoseconds since 1970, UTC, by this computer
    std::optional<double> exposure;        // in microseconds, where chunk data tell
    std::optional<double> gain;            // as the camera tells
    bool incomplete = false;
    std::uint64_t missingBytes = 0; // of an incomplete one; 0 where that is not known
    std::uint64_t gapBefore = 0;    // frames of the camera, by their ids, that are missing between the row before and
                                    // this one
    std::string lossCause = {};     // where those were lost, and what this one lacks; empty where nothing was, or the
                                    // table is older than this column

    bool operator==(Row const &) const = default;
};

// What a line begins with that is no row: it tells of a gap between this recording and another one.
constexpr char NoRow = '#';
// The first line; every line with its end.
std::string TableHead();
std::string Encode(Row const &row);
void Append(std::string &text, Row const &row); // without memory of its own
// False for what is not a whole line of a table, with the last column or, of an older one, without it; `line` without
// its end.
bool IsTableHead(std::string_view line);
bool Decode(std::string_view line, Row &row);

// The pictures of a raw series, all alike.
struct RawShape
{
    std::uint32_t pixelType = 0; // as in tovimage.h
    std::uint32_t width = 0, height = 0;
    std::uint32_t bitDepth = 0; // significant bits of a sample
    std::uint64_t lineBytes = 0;

    bool operator==(RawShape const &) const = default;
};

// A detached NRRD header: its text up to the list of files, with room for the number of frames, which stands at
// `countAt` and is always `CountDigits` characters long. Then come the files, a line each.
constexpr std::size_t CountDigits = 12;
struct NrrdHead
{
    std::string text;
    std::size_t countAt = 0;
};
NrrdHead MakeNrrdHead(RawShape const &shape);
std::string NrrdCount(std::uint64_t frames);     // CountDigits characters
std::string NrrdFileLine(std::string_view file); // empty for a name with a line break, which no list can hold
// Reads the part before the list, one of ours: by its own keys, which tell the pixel type. `listAt` is where the list
// begins.
bool ParseNrrdHead(std::string_view text, RawShape &shape, std::uint64_t &frames, std::size_t &listAt);

// An ENVI header for each of the frames; empty where ENVI has no type that holds their bytes.
std::string EnviHeader(RawShape const &shape);

} // namespace SeriesFiles
