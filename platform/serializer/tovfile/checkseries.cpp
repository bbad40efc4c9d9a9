// Compares what stands beside a recording with the files that are there.
#include "avicount.h"
#include "commands.h"
#include "console.h"
#include "hdf5count.h"
#include "strangers.h"

#include "framememory.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

using SeriesFiles::Row;
using Line = SeriesReader::Line;

class SeriesCheck
{
public:
    SeriesCheck(SeriesReader &reader, std::string const &name) : m_reader(reader), m_name(name), m_strangers(reader)
    {
    }

    bool Run()
    {
        m_summary = Summarize(m_reader);
        DescribeSeries(m_name, m_reader, m_summary);
        if (int const failure = m_reader.TableFailure())
            Fail("the table: %s", failure == ENOENT ? "missing" : SeriesFailureText(failure).c_str());
        if (int const failure = m_reader.HeaderFailure(); failure && NeedsHeader(failure))
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

    // A raw series has one. Of what kind a series without a row is, nothing but its header tells.
    bool NeedsHeader(int failure) const
    {
        if (m_summary.isMovie)
            return false;
        return m_summary.rows > 0 ? m_summary.firstFile.ends_with(".raw") : failure != SeriesReader::NoShape;
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
            Tell("%s: frame %" PRIu64 ": %" PRIu64 " frames are missing before it%s%s", m_name.c_str(), row.number,
                 row.gapBefore, row.lossCause.empty() ? "" : ", lost by: ", Shown(row.lossCause).c_str());
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
        if (!inside.empty())
            m_strangers.AddListed(inside);
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

    void CheckFolder()
    {
        if (m_strangers.AreSomeListedTwice())
            Fail("a file is listed more than once");
        for (std::string const &stranger : m_strangers.Find())
            Fail("%s is not listed", Shown(stranger).c_str());
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
        if (row.file != m_summary.firstFile || !row.position || *row.position < m_position) {
            Fail("frame %" PRIu64 ": not the next one of the movie", row.number);
            return;
        }
        if (*row.position > m_position)
            FailUnlisted(m_position, *row.position - 1);
        m_position = *row.position + 1;
        if (m_movieFailure || !m_movie.IsMovie() || *row.position >= m_movie.Frames().size())
            return;
        FrameFileReader::Frame const &frame = m_movie.Frames()[std::size_t(*row.position)];
        if (frame.header.frameId != row.frameId || frame.header.timestamp != row.timestamp)
            Fail("frame %" PRIu64 ": the movie has the id %" PRIu64 " and the timestamp %" PRIu64, row.number,
                 frame.header.frameId, frame.header.timestamp);
        std::uint8_t *const pixels = m_memory.TryGet(std::size_t(frame.header.pixelBytes));
        if (int const failure = pixels ? m_movie.Read(frame, pixels) : ENOMEM)
            Fail("frame %" PRIu64 ": %s", row.number, FrameFailureText(failure).c_str());
    }

    void FailUnlisted(std::uint64_t first, std::uint64_t last)
    {
        if (first == last)
            Fail("frame %" PRIu64 " of the movie is not listed", first);
        else
            Fail("frames %" PRIu64 " to %" PRIu64 " of the movie are not listed", first, last);
    }

    MovieCount Count() const
    {
        if (m_movie.IsMovie())
            return {std::int64_t(m_movie.Frames().size()), m_movie.IsComplete() && m_movie.LostBytes() == 0};
        std::string const movie = m_reader.Above() + '/' + m_reader.PathInside(m_summary.firstFile);
        return movie.ends_with(".h5") ? CountHdf5Frames(movie) : CountAviFrames(movie);
    }

    void CheckMovie()
    {
        if (m_movieFailure)
            return;
        MovieCount const count = Count();
        if (IsInterrupted())
            return;
        if (count.frames < 0) {
            Fail("the movie cannot be read");
            return;
        }
        auto const frames = std::uint64_t(count.frames);
        if (!count.isEnded)
            Fail("the movie was cut off or is damaged");
        if (frames > m_position)
            FailUnlisted(m_position, frames - 1);
        else if (frames < m_position)
            Fail("the movie has %" PRIu64 " frames, the table %" PRIu64, frames, m_position);
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

    SeriesReader &m_reader;
    std::string const &m_name;
    TableSummary m_summary;
    bool m_good = true;
    std::uint64_t m_rows = 0, m_number = 0, m_incomplete = 0, m_gaps = 0, m_gapFrames = 0;
    std::uint64_t m_inHeader = 0;
    bool m_headerDiffers = false;
    Strangers m_strangers;
    FrameFileReader m_movie;      // unless it is one of others' formats
    std::uint64_t m_position = 0; // behind the last one of the movie that was listed
    int m_movieFailure = 0;
    FrameMemory<std::uint8_t> m_memory;
};

} // namespace

bool CheckSeries(SeriesReader &reader, std::string const &name)
{
    return SeriesCheck(reader, name).Run();
}
