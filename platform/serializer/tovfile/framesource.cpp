#include "framesource.h"

#include "console.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <sys/stat.h>

namespace {

class FrameFileSource : public FrameSource
{
public:
    FrameFileSource(std::string const &name, FrameFileReader const &reader) : m_reader(reader)
    {
        m_stem = StemOf(name);
        m_frames = reader.Frames().size();
        if (reader.IsMovie() && reader.Movie().scale > 0)
            m_rate = double(reader.Movie().rate) / reader.Movie().scale;
    }
    Got Next(SourceFrame &frame) override
    {
        if (m_next == m_reader.Frames().size())
            return Got::End;
        FrameFormat::FrameHeader const &header = m_reader.Frames()[m_next++].header;
        frame.shape = {header.pixelType, header.width, header.height, header.bitDepth, header.lineBytes};
        frame.facts = {};
        frame.facts.number = header.number;
        frame.facts.position = header.number;
        frame.facts.frameId = header.frameId;
        frame.facts.timestamp = header.timestamp;
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, "_%06" PRIu64, header.number);
        frame.stem = m_stem + suffix;
        return Got::Frame;
    }
    std::string Read(SourceFrame const &, void *pixels) override
    {
        return FrameFailureText(m_reader.Read(m_reader.Frames()[m_next - 1], pixels));
    }

private:
    FrameFileReader const &m_reader;
    std::size_t m_next = 0;
};

// The rows of a table, without their pixels.
class TableSource : public FrameSource
{
public:
    TableSource(SeriesReader &reader, TableSummary const &summary) : m_reader(reader)
    {
        m_stem = reader.Name();
        m_frames = summary.rows;
        m_rate = summary.rate;
    }
    Got Next(SourceFrame &frame) override
    {
        SeriesReader::Line const line = m_reader.Next(frame.facts);
        ++m_line;
        if (line == SeriesReader::Line::Row)
            return Describe(frame) ? Got::Frame : Got::Failure;
        if (line == SeriesReader::Line::Bad) {
            m_problem = "line " + std::to_string(m_line + 1) + " of the table cannot be read";
            return Got::Failure;
        }
        // The summary has told of a line that was cut; what comes before it is whole.
        if (int const error = m_reader.ReadError(); error && !m_told) {
            m_told = true;
            m_problem = std::string("the table: ") + std::strerror(error);
            return Got::Failure;
        }
        return Got::End;
    }

protected:
    virtual bool Describe(SourceFrame &frame) = 0;

    SeriesReader &m_reader;

private:
    std::uint64_t m_line = 0;
    bool m_told = false;
};

class RawSeriesSource : public TableSource
{
public:
    using TableSource::TableSource;

    std::string Read(SourceFrame const &frame, void *pixels) override
    {
        return SeriesFailureText(m_reader.Read(frame.facts, pixels));
    }

private:
    bool Describe(SourceFrame &frame) override
    {
        frame.shape = m_reader.Shape();
        frame.stem = m_reader.PathInside(frame.facts.file);
        std::replace(frame.stem.begin(), frame.stem.end(), '/', '_');
        frame.stem = StemOf(frame.stem);
        return true;
    }
};

// A tvm that has a table.
class MovieTableSource : public TableSource
{
public:
    MovieTableSource(SeriesReader &reader, TableSummary const &summary) : TableSource(reader, summary)
    {
    }
    int Open(std::string const &file)
    {
        int const error = m_movie.Open(file);
        if (!error && m_movie.IsMovie() && m_movie.Movie().scale > 0)
            m_rate = double(m_movie.Movie().rate) / m_movie.Movie().scale;
        return error;
    }
    std::string Read(SourceFrame const &, void *pixels) override
    {
        return FrameFailureText(m_movie.Read(*m_frame, pixels));
    }

private:
    bool Describe(SourceFrame &frame) override
    {
        std::uint64_t const position = frame.facts.position.value_or(UINT64_MAX);
        if (position >= m_movie.Frames().size()) {
            m_problem = "row " + std::to_string(frame.facts.number) + ": the movie has no such frame";
            return false;
        }
        m_frame = &m_movie.Frames()[position];
        FrameFormat::FrameHeader const &header = m_frame->header;
        frame.shape = {header.pixelType, header.width, header.height, header.bitDepth, header.lineBytes};
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, "_%06" PRIu64, position);
        frame.stem = m_stem + suffix;
        return true;
    }

    FrameFileReader m_movie;
    FrameFileReader::Frame const *m_frame = nullptr;
};

// The file of a movie whose table has no row yet; empty for a series.
std::string MovieBeside(SeriesReader const &reader)
{
    std::uint64_t size = 0;
    for (char const *extension : {".avi", ".tvm", ".h5"}) {
        std::string const file = "../" + reader.Name() + extension;
        if (reader.Look(file, size) == 0)
            return file;
    }
    return {};
}

// The beginning of the name that stands for that folder; none where it goes another way.
std::optional<std::string> PartAbove(std::string const &name, std::string const &folder)
{
    for (std::size_t end = name.size(); end > 0;) {
        end = name.rfind('/', end - 1) + 1; // 0 when there is none
        std::string const part = name.substr(0, end);
        std::error_code unknown;
        if (std::filesystem::equivalent(part.empty() ? "." : part, folder, unknown))
            return part;
        end -= end > 0;
    }
    return {};
}

} // namespace

std::string OpenRecording(std::string const &name, Recording &recording)
{
    recording = {name, {}, nullptr, nullptr};
    struct stat info;
    if (stat(name.c_str(), &info) != 0)
        return std::strerror(errno);
    if (!S_ISDIR(info.st_mode)) {
        recording.frames = std::make_unique<FrameFileReader>();
        int const error = recording.frames->Open(name);
        if (error == 0)
            return {};
        recording.frames.reset();
        if (error > 0)
            return std::strerror(error);
    }
    recording.series = std::make_unique<SeriesReader>();
    int const error = recording.series->Open(name);
    if (error == 0) {
        recording.above = PartAbove(name, recording.series->Above());
        return {};
    }
    recording.series.reset();
    if (error > 0)
        return std::strerror(error);
    return S_ISDIR(info.st_mode) ? "not the folder of a recording (NAME.series)"
                                 : "not a tvi or tvm file, and no recording beside it lists it";
}

std::string FrameFailureText(int error)
{
    return error == 0                                ? ""
           : error == FrameFileReader::Damaged       ? "damaged"
           : error == FrameFileReader::NotAFrameFile ? "not a tvi or tvm file"
                                                     : std::strerror(error);
}

std::string SeriesFailureText(int error)
{
    switch (error) {
    case 0:
        return {};
    case SeriesReader::NotASeries:
        return "not one of ours";
    case SeriesReader::OtherSize:
        return "not of the size that the header says";
    case SeriesReader::Refused:
        return "refused: its path leads out of the recording's folder, or to no plain file";
    case SeriesReader::NoShape:
        return "missing";
    case SeriesReader::Begun:
        return "ends within its first line";
    default:
        return std::strerror(error);
    }
}

std::string StemOf(std::string const &name)
{
    std::size_t const slash = name.rfind('/') + 1, dot = name.rfind('.');
    return name.substr(slash, dot == std::string::npos || dot < slash ? dot : dot - slash);
}

TableSummary Summarize(SeriesReader &reader)
{
    TableSummary summary;
    bool hasArrival = false;
    std::int64_t firstArrival = 0, lastArrival = 0;
    std::uint64_t firstRow = 0, lastRow = 0;
    SeriesFiles::Row row;
    reader.Rewind();
    for (SeriesReader::Line line; (line = reader.Next(row)) != SeriesReader::Line::End && !IsInterrupted();) {
        if (line != SeriesReader::Line::Row) {
            summary.isCut = line == SeriesReader::Line::Cut;
            summary.badLines += line == SeriesReader::Line::Bad;
            continue;
        }
        if (summary.rows == 0) {
            summary.firstFile = row.file;
            summary.isMovie = row.position.has_value();
        }
        if (row.arrival) {
            if (!hasArrival) {
                firstArrival = *row.arrival;
                firstRow = summary.rows;
            }
            hasArrival = true;
            lastArrival = *row.arrival;
            lastRow = summary.rows;
        }
        ++summary.rows;
    }
    if (summary.rows == 0 && reader.HeaderFailure() == SeriesReader::NoShape) {
        summary.firstFile = MovieBeside(reader);
        summary.isMovie = !summary.firstFile.empty();
    }
    if (lastArrival > firstArrival)
        summary.rate = double(lastRow - firstRow) * 1e9 / (double(lastArrival) - double(firstArrival));
    reader.Rewind();
    return summary;
}

std::unique_ptr<FrameSource> MakeFrameSource(Recording &recording, std::string &problem)
{
    if (recording.frames)
        return std::make_unique<FrameFileSource>(recording.name, *recording.frames);
    SeriesReader &reader = *recording.series;
    TableSummary const summary = Summarize(reader);
    if (!summary.isMovie) {
        if (reader.HeaderFailure()) {
            problem = "no header tells what the frames' bytes mean";
            return nullptr;
        }
        return std::make_unique<RawSeriesSource>(reader, summary);
    }
    std::uint64_t size = 0;
    problem = SeriesFailureText(reader.Look(summary.firstFile, size));
    std::string const inside = reader.PathInside(summary.firstFile);
    auto source = std::make_unique<MovieTableSource>(reader, summary);
    if (problem.empty())
        problem = FrameFailureText(source->Open(reader.Above() + '/' + inside));
    if (problem.empty())
        return source;
    problem = inside.ends_with(".avi")  ? "the frames of an AVI file are for other programs to read"
              : inside.ends_with(".h5") ? "the frames of an HDF5 file are for other programs to read"
                                        : Shown(summary.firstFile) + ": " + problem;
    return nullptr;
}
