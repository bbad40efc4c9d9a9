#include "commands.h"
#include "console.h"

#include "tovimage.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

void ListFrames(std::vector<FrameFileReader::Frame> const &frames)
{
    std::printf("%8s %12s %20s %11s %-16s %12s\n", "frame", "id", "timestamp", "size", "pixels", "bytes");
    for (FrameFileReader::Frame const &frame : frames) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfo(frame.header.pixelType);
        char type[24], size[24];
        std::snprintf(type, sizeof type, "0x%08" PRIX32, frame.header.pixelType);
        std::snprintf(size, sizeof size, "%" PRIu32 "x%" PRIu32, frame.header.width, frame.header.height);
        std::printf("%8" PRIu64 " %12" PRIu64 " %20" PRIu64 " %11s %-16s %12" PRIu64 "\n", frame.header.number,
                    frame.header.frameId, frame.header.timestamp, size, info ? info->name : type,
                    frame.header.pixelBytes);
    }
}

void ListRow(SeriesFiles::Row const &row)
{
    char state[48] = "whole";
    if (row.incomplete && row.missingBytes > 0)
        std::snprintf(state, sizeof state, "-%" PRIu64 " bytes", row.missingBytes);
    else if (row.incomplete)
        std::strcpy(state, "incomplete");
    std::printf("%8" PRIu64 " %12" PRIu64 " %20" PRIu64 " %8" PRIu64 " %-16s %s", row.number, row.frameId,
                row.timestamp, row.gapBefore, state, Shown(row.file).c_str());
    if (row.position)
        std::printf(" %" PRIu64, *row.position);
    if (!row.lossCause.empty())
        std::printf(" (%s)", Shown(row.lossCause).c_str());
    std::printf("\n");
}

bool ListSeries(SeriesReader &reader, std::string const &name)
{
    DescribeSeries(name, reader, Summarize(reader));
    bool good = true;
    std::printf("%8s %12s %20s %8s %-16s %s\n", "frame", "id", "timestamp", "gap", "state", "file");
    SeriesFiles::Row row;
    std::uint64_t number = 1;
    for (SeriesReader::Line line; (line = reader.Next(row)) != SeriesReader::Line::End && !IsInterrupted();) {
        ++number;
        if (line == SeriesReader::Line::Row) {
            ListRow(row);
        } else if (line == SeriesReader::Line::Bad) {
            Complain("%s: line %" PRIu64 " of the table cannot be read", name.c_str(), number);
            good = false;
        }
    }
    if (int const error = reader.ReadError()) {
        Complain("%s: the table: %s", name.c_str(), std::strerror(error));
        good = false;
    }
    return good;
}

} // namespace

void Describe(std::string const &name, FrameFileReader const &reader)
{
    if (!reader.IsMovie()) {
        std::printf("%s: image\n", name.c_str());
        return;
    }
    std::printf("%s: movie, %zu frames, %.6g frames per second%s\n", name.c_str(), reader.Frames().size(),
                reader.Movie().scale ? double(reader.Movie().rate) / reader.Movie().scale : 0.0,
                reader.IsComplete() ? "" : ", cut off");
    if (reader.LostBytes() > 0)
        std::printf("%s: %" PRIu64 " bytes belong to no whole frame\n", name.c_str(), reader.LostBytes());
}

void DescribeSeries(std::string const &name, SeriesReader &reader, TableSummary const &summary)
{
    std::string shape;
    if (!reader.HeaderFailure()) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfo(reader.Shape().pixelType);
        char text[80];
        std::snprintf(text, sizeof text, ", %" PRIu32 "x%" PRIu32 " ", reader.Shape().width, reader.Shape().height);
        shape = text;
        std::snprintf(text, sizeof text, "0x%08" PRIX32, reader.Shape().pixelType);
        shape += info ? info->name : text;
    }
    std::printf("%s: %s, %" PRIu64 " frames%s", name.c_str(), summary.isMovie ? "table of a movie" : "raw series",
                summary.rows, shape.c_str());
    if (summary.rate > 0)
        std::printf(", %.6g frames per second", summary.rate);
    std::vector<std::pair<std::string, std::int64_t>> ledger;
    std::printf("%s%s\n", reader.ReadLedger(ledger) == 0 ? "" : ", cut off",
                summary.isCut ? ", its last line is not whole" : "");
}

bool List(Recording &recording)
{
    if (recording.series)
        return ListSeries(*recording.series, recording.name);
    Describe(recording.name, *recording.frames);
    ListFrames(recording.frames->Frames());
    return true;
}
