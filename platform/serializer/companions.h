// The folder beside a series or a movie while it is recorded: the table of its frames and, for raw series, the headers
// by which other programs read them (seriesfiles.h). A row is there once its frame can be read, and is written with
// others, whole lines at a time.
//
// What cannot be written costs no frame: rows wait and are tried again, as many as fit into a bounded memory. Room for
// some is taken ahead, so that those of the last frames fit on a disk that these have filled. A folder that somebody
// has removed is begun anew with the frames that are still there.
//
// One thread at a time. Nothing is allocated for a frame once the first batches have been written, unless it is not
// below the folder that holds this one.
#pragma once

#include "outfile.h"
#include "seriesfiles.h"
#include "tovimage.h"
#include "tovserializer.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class Companions
{
public:
    // What a row waits, if Tend is called every 200 ms or a frame comes as often.
    static constexpr std::chrono::milliseconds Period{750};

    // Everything of the series or movie before; nothing is kept until one of the next two.
    void Forget();
    // What the table has in front of its rows: of the series or movie that is begun next.
    void SetPreface(std::string preface);
    // The shape of a raw series, and the folder that is to hold what belongs to the series; empty: the first frame's.
    void BeginSeries(std::optional<SeriesFiles::RawShape> const &raw, std::string const &home);
    void BeginMovie(std::string const &file);
    // `readable` frames are in the movie; -1: as many as were before.
    void End(std::int64_t readable);

    void Saved(_TovImage const &image, TovFrameNote const &note, std::string const &file);
    // By the movie, in which `readable` frames are by now.
    void Taken(_TovImage const &image, TovFrameNote const &note, std::int64_t readable);
    // Writes what is due.
    void Tend();

    // Without a slash at its end; empty as long as there is none.
    std::string const &Folder() const
    {
        return m_folder;
    }
    std::string const &Name() const
    {
        return m_name;
    }
    // Why something is not whole, in words; empty while all is.
    std::string const &Failure() const
    {
        return m_failure;
    }

private:
    using Clock = std::chrono::steady_clock;

    template<class F>
    void Safely(F const &function);
    void Add(_TovImage const &image, TovFrameNote const &note, std::string const &file);
    void WriteIfDue();
    std::size_t Ready() const;
    void Write();
    void WriteRows(std::size_t rows);
    void WriteList();
    int Open();
    int WriteHeaders(std::string const &start);
    void Close();
    void Remove();
    void BeginAnew();
    void DropRows(std::size_t rows);
    void Relate(std::string const &file, std::string &relative) const;
    void Fail(int error, std::string const &file);
    void GiveUp();

    bool m_on = false;
    std::optional<SeriesFiles::RawShape> m_raw;
    std::string m_movie;      // its file; empty for a series
    std::string m_wantedHome; // of a series
    std::string m_preface;    // of the table
    std::string m_folder, m_name;
    std::string m_home; // the folder that m_folder is in
    OutFile m_table, m_list;
    std::size_t m_countAt = 0; // in m_list
    std::uint64_t m_rowsWritten = 0, m_listed = 0;

    std::uint64_t m_taken = 0, m_settled = 0; // of a movie: frames, and those of them whose rows do not wait any more
    std::int64_t m_readable = 0;

    // Rows that wait, with the whole name of their file; those behind m_waiting are memory for others.
    std::vector<SeriesFiles::Row> m_rows;
    std::size_t m_waiting = 0, m_waitingBytes = 0;
    std::string m_text, m_lines, m_relative; // of a batch; m_lines waits until the list has it
    std::uint64_t m_linesWaiting = 0;
    Clock::time_point m_written;

    std::string m_failure;
    bool m_lasting = false; // the failure stays, whatever is written later
};
