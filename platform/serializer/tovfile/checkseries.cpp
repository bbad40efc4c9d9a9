// Compares what stands beside a recording with the files that are there.
#include "avicount.h"
#include "commands.h"
#include "console.h"
#include "hdf5count.h"

#include "framememory.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <set>

#include <dirent.h>

namespace {

using SeriesFiles::Row;
using Line = SeriesReader::Line;

// The name with a mark for each number in it, by which names of one recording are alike.
std::string Pattern(std::string const &name)
{
    std::string pattern;
    for (char const c : name) {
        if (!std::isdigit(static_cast<unsigned char>(c)))
            pattern += c;
        else if (!pattern.ends_with('\0'))
            pattern += '\0';
    }
    return pattern;
}

std::pair<std::string, std::string> Parted(std::string const &path)
{
    std::size_t const name = path.rfind('/') + 1;
    return {path.substr(0, name), path.substr(name)};
}

class SeriesCheck
{
public:
    SeriesCheck(SeriesReader &reader, std::string const &name) : m_reader(reader), m_name(name)
    {
    }

    bool Run()
    {
        m_summary = Summarize(m_reader);
        DescribeSeries(m_name, m_reader, m_summary);
        if (int const failure = m_reader.TableFailure())
            Fail("the table: %s", failure == ENOENT ? "missing" : SeriesFailureText(failure).c_str());
        if (int const failure = m_reader.HeaderFailure(); failure && !m_summary.isMovie)
            Fail("the header: %s", SeriesFailureText(failure).c_str());
        if (m_summary.isMovie)
            OpenMovie();
        CheckRows();
        if (IsInterrupted())
            return false;
        if (m_summary.isMovie) {
            CheckMovie();
        } else {
            CheckHeader();
            CheckFolder();
        }
        CheckLedger();
        Tell("%s: %" PRIu64 " frames listed, %" PRIu64 " of them incomplete; %" PRIu64 " gaps of %" PRIu64
             " frames in all",
             m_name.c_str(), m_rows, m_incomplete, m_gaps, m_gapFrames);
        return m_good;
    }

private:
    void Fail(char const *format, ...) __attribute__((format(printf, 2, 3)))
    {
        char text[4600]; // holds a path
        std::va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        Complain("%s: %s", m_name.c_str(), text);
        m_good = false;
    }

    void CheckRows()
    {
        Progress progress(m_name, m_summary.rows);
        Row row;
        std::uint64_t line = 1;
        for (Line got; (got = m_reader.Next(row)) != Line::End && !IsInterrupted(); progress.Done(m_rows)) {
            ++line;
            if (got == Line::Row)
                CheckRow(row);
            else if (got == Line::Cut)
                Fail("line %" PRIu64 " of the table is not whole", line);
            else
                Fail("line %" PRIu64 " of the table cannot be read", line);
            if (!m_reader.HeaderFailure() && !m_reader.TableFailure() && got != Line::Cut)
                CompareWithHeader(got == Line::Row ? &row : nullptr);
        }
        if (int const error = m_reader.ReadError())
            Fail("%s", std::strerror(error));
    }

    void CheckRow(Row const &row)
    {
        if (row.number != m_number)
            Fail("frame %" PRIu64 " stands where frame %" PRIu64 " should", row.number, m_number);
        m_number = row.number + 1;
        ++m_rows;
        m_incomplete += row.incomplete;
        if (row.gapBefore > 0) {
            Tell("%s: frame %" PRIu64 ": %" PRIu64 " frames are missing before it", m_name.c_str(), row.number,
                 row.gapBefore);
            ++m_gaps;
            m_gapFrames += row.gapBefore;
        }
        if (m_summary.isMovie)
            CheckMovieRow(row);
        else
            CheckFile(row);
    }

    void CheckFile(Row const &row)
    {
        std::uint64_t size = 0;
        std::string const inside = m_reader.PathInside(row.file);
        if (int const failure = m_reader.Look(row.file, size)) {
            Fail("frame %" PRIu64 ": %s: %s", row.number, Shown(row.file).c_str(),
                 failure == ENOENT ? "missing" : SeriesFailureText(failure).c_str());
        } else if (std::uint64_t const bytes = m_reader.FrameBytes(); bytes > 0 && size != bytes) {
            Fail("frame %" PRIu64 ": %s: has %" PRIu64 " bytes instead of %" PRIu64, row.number,
                 Shown(row.file).c_str(), size, bytes);
        }
        if (inside.empty())
            return;
        auto const [folder, name] = Parted(inside);
        m_listed.push_back(std::hash<std::string>()(inside));
        if (m_patterns.size() < MostPatterns)
            m_patterns.insert(Pattern(name));
        if (m_folders.size() < MostPatterns)
            m_folders.insert(folder);
    }

    // Row by row; told where they differ first.
    void CompareWithHeader(Row const *row)
    {
        std::string file;
        Line const line = m_reader.NextOfHeader(file);
        m_inHeader += line == Line::Row;
        if (!row || m_headerDiffers || (line == Line::Row && file == row->file))
            return;
        m_headerDiffers = true;
        Fail("frame %" PRIu64 ": the header lists %s instead of %s", row->number,
             line == Line::Row ? Shown(file).c_str() : "nothing", Shown(row->file).c_str());
    }

    void CheckHeader()
    {
        if (m_reader.HeaderFailure() || m_reader.TableFailure())
            return;
        std::string file;
        for (Line line; (line = m_reader.NextOfHeader(file)) != Line::End;)
            m_inHeader += line == Line::Row;
        if (m_inHeader != m_rows)
            Fail("the header lists %" PRIu64 " frames, the table %" PRIu64, m_inHeader, m_rows);
        if (m_reader.HeaderCount() != m_rows)
            Fail("the header counts %" PRIu64 " frames, the table has %" PRIu64, m_reader.HeaderCount(), m_rows);
    }

    // Frames that nobody would find.
    void CheckFolder()
    {
        std::sort(m_listed.begin(), m_listed.end());
        if (std::adjacent_find(m_listed.begin(), m_listed.end()) != m_listed.end())
            Fail("a file is listed more than once");
        std::set<std::string> strangers;
        for (std::string const &folder : m_folders)
            LookInto(folder, strangers);
        ForgetThoseOfOthers(strangers);
        for (std::string const &stranger : strangers)
            Fail("%s is not listed", Shown(stranger).c_str());
    }

    void LookInto(std::string const &folder, std::set<std::string> &strangers)
    {
        DIR *const directory = opendir((m_reader.Above() + '/' + folder).c_str());
        while (dirent const *entry = directory ? readdir(directory) : nullptr) {
            std::string const path = folder + entry->d_name;
            std::uint64_t size = 0;
            if (m_patterns.contains(Pattern(entry->d_name)) &&
                !std::binary_search(m_listed.begin(), m_listed.end(), std::hash<std::string>()(path)) &&
                m_reader.Look("../" + path, size) == 0 && size == m_reader.FrameBytes())
                strangers.insert(path);
        }
        if (directory)
            closedir(directory);
    }

    // Several recordings may have their frames in one folder.
    void ForgetThoseOfOthers(std::set<std::string> &strangers)
    {
        for (std::string const &folder : SeriesFoldersIn(m_reader.Above())) {
            SeriesReader other;
            std::string const path = m_reader.Above() + '/' + folder;
            if (strangers.empty() || path == m_reader.Folder() || other.Open(path) != 0)
                continue;
            Row row;
            for (Line line; (line = other.Next(row)) != Line::End;) {
                if (line == Line::Row)
                    strangers.erase(other.PathInside(row.file));
            }
        }
    }

    void OpenMovie()
    {
        std::uint64_t size = 0;
        std::string const file = m_summary.firstFile;
        m_movieFailure = m_reader.Look(file, size);
        if (m_movieFailure)
            Fail("%s: %s", Shown(file).c_str(),
                 m_movieFailure == ENOENT ? "missing" : SeriesFailureText(m_movieFailure).c_str());
        if (!m_movieFailure && !file.ends_with(".avi") && !file.ends_with(".h5")) {
            m_movieFailure = m_movie.Open(m_reader.Above() + '/' + m_reader.PathInside(file));
            if (m_movieFailure)
                Fail("%s: %s", Shown(file).c_str(), FrameFailureText(m_movieFailure).c_str());
        }
    }

    void CheckMovieRow(Row const &row)
    {
        if (row.file != m_summary.firstFile || row.position != m_rows - 1) {
            Fail("frame %" PRIu64 ": not the next one of the movie", row.number);
            return;
        }
        if (m_movieFailure || !m_movie.IsMovie() || m_rows > m_movie.Frames().size())
            return;
        FrameFileReader::Frame const &frame = m_movie.Frames()[std::size_t(m_rows - 1)];
        if (frame.header.frameId != row.frameId || frame.header.timestamp != row.timestamp)
            Fail("frame %" PRIu64 ": the movie has the id %" PRIu64 " and the timestamp %" PRIu64, row.number,
                 frame.header.frameId, frame.header.timestamp);
        std::uint8_t *const pixels = m_memory.TryGet(std::size_t(frame.header.pixelBytes));
        if (int const failure = pixels ? m_movie.Read(frame, pixels) : ENOMEM)
            Fail("frame %" PRIu64 ": %s", row.number, FrameFailureText(failure).c_str());
    }

    static std::int64_t CountFrames(std::string const &movie)
    {
        return movie.ends_with(".h5") ? CountHdf5Frames(movie) : CountAviFrames(movie);
    }

    void CheckMovie()
    {
        if (m_movieFailure || m_rows == 0)
            return;
        std::int64_t frames = std::int64_t(m_movie.Frames().size());
        if (!m_movie.IsMovie())
            frames = CountFrames(m_reader.Above() + '/' + m_reader.PathInside(m_summary.firstFile));
        else if (!m_movie.IsComplete() || m_movie.LostBytes() > 0)
            Fail("the movie was cut off or is damaged");
        if (frames < 0)
            Fail("the movie cannot be read");
        else if (std::uint64_t(frames) != m_rows)
            Fail("the movie has %" PRId64 " frames, the table %" PRIu64, frames, m_rows);
    }

    void CheckLedger()
    {
        std::vector<std::pair<std::string, std::int64_t>> entries;
        if (int const failure = m_reader.ReadLedger(entries)) {
            Fail("the ledger: %s",
                 failure == ENOENT ? "missing; the recording was not ended" : SeriesFailureText(failure).c_str());
            return;
        }
        auto const saved =
            std::find_if(entries.begin(), entries.end(), [](auto const &e) { return e.first == "saved"; });
        if (saved == entries.end())
            Fail("the ledger does not tell how many frames were saved");
        else if (saved->second != std::int64_t(m_rows))
            Fail("the ledger counts %" PRId64 " saved frames, the table has %" PRIu64, saved->second, m_rows);
    }

    static constexpr std::size_t MostPatterns = 1024;

    SeriesReader &m_reader;
    std::string const &m_name;
    TableSummary m_summary;
    bool m_good = true;
    std::uint64_t m_rows = 0, m_number = 0, m_incomplete = 0, m_gaps = 0, m_gapFrames = 0;
    std::uint64_t m_inHeader = 0;
    bool m_headerDiffers = false;
    std::vector<std::size_t> m_listed; // hashes of paths: of many frames, eight bytes each
    std::set<std::string> m_patterns, m_folders;
    FrameFileReader m_movie; // unless it is one of others' formats
    int m_movieFailure = 0;
    FrameMemory<std::uint8_t> m_memory;
};

} // namespace

bool CheckSeries(SeriesReader &reader, std::string const &name)
{
    return SeriesCheck(reader, name).Run();
}
