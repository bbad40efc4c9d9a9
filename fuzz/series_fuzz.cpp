// The texts beside a recording: of any bytes, a table, line by line, or the head of a raw series.
//
// An input is a byte of TextFlags and the text.
#include "driver.h"

#include "linereader.h"
#include "seriesfiles.h"

#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace {

enum TextFlags : std::uint8_t { Head = 0x01 }; // otherwise a table

constexpr std::size_t Longest = 2048;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

// What was read means the same once it is written.
bool TryRow(std::string_view line)
{
    SeriesFiles::Row row, again;
    if (!SeriesFiles::Decode(line, row))
        return false;
    std::string const written = SeriesFiles::Encode(row);
    Demand(written.ends_with('\n'), "a line without its end");
    Demand(SeriesFiles::Decode(std::string_view(written).substr(0, written.size() - 1), again) && again == row,
           "a row that does not come back");
    return true;
}

bool TryTable(std::string_view text)
{
    static int const file = memfd_create("table", MFD_CLOEXEC);
    Demand(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
           "no room for a file");
    LineReader reader;
    reader.Take(dup(file));
    std::string_view line;
    std::size_t taken = 0;
    bool any = false, ended = false;
    for (LineReader::Got got; (got = reader.Next(line, true)) != LineReader::Got::End;) {
        Demand(!ended, "something behind what was cut");
        ended = got == LineReader::Got::Cut;
        taken += line.size() + (got == LineReader::Got::Line);
        Demand(taken <= text.size(), "more lines than there are");
        any = (got == LineReader::Got::Line && TryRow(line)) || any;
    }
    Demand(ended || taken == text.size(), "lines that were passed over");
    return any;
}

bool TryHead(std::string_view text)
{
    SeriesFiles::RawShape shape, again;
    std::uint64_t frames = 0, none = 1;
    std::size_t listAt = 0;
    if (!SeriesFiles::ParseNrrdHead(text, shape, frames, listAt))
        return false;
    Demand(listAt <= text.size(), "a list outside of the file");
    Demand(shape.lineBytes > 0 && shape.height > 0 && shape.lineBytes <= UINT32_MAX / shape.height,
           "a picture that is too large");
    SeriesFiles::EnviHeader(shape);
    SeriesFiles::NrrdHead const head = SeriesFiles::MakeNrrdHead(shape);
    Demand(SeriesFiles::ParseNrrdHead(head.text, again, none, listAt) && again == shape && none == 0 &&
               listAt == head.text.size(),
           "a head that does not come back");
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size < 1 || size > Longest)
        return FuzzRefused;
    std::string_view const text(reinterpret_cast<char const *>(data) + 1, size - 1);
    bool const accepted = (data[0] & Head) != 0 ? TryHead(text) : TryTable(text);
    return accepted ? 0 : FuzzRefused;
}
