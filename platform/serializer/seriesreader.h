// Reads a recording by what stands beside it: the folder NAME.series with the table of the frames and, for a raw
// series, the header that tells what their bytes mean. Trusts nothing in them: a frame is a plain file below the folder
// that holds NAME.series, reached without a symbolic link, and has the size of its shape.
#pragma once

#include "linereader.h"
#include "seriesfiles.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// One thread at a time. Operations return 0, an errno value, or a Failure. However long the recording is, only a few
// lines of it are in memory.
class SeriesReader
{
public:
    using Row = SeriesFiles::Row;
    enum Failure : int {
        NotASeries = -1, // neither table nor header, or not ours
        OtherSize = -2,  // the frame's file is not as long as the shape says
        Refused = -3,    // the frame's path leads elsewhere, or to something that is no plain file
        NoShape = -4,    // there is no header of a raw series
        Begun = -5,      // the table ends within its first line: its writer died there
    };
    // Where the recording of a frame is looked for: a template may have put the frames into folders of folders.
    static constexpr unsigned FoldersAbove = 4;
    enum class Line {
        Row,
        Bad, // a line that is none of a table
        Cut, // the last line, without its end: its writer died, or the disk was full
        End,
    };

    SeriesReader() = default;
    ~SeriesReader();
    SeriesReader(SeriesReader const &) = delete;
    SeriesReader &operator=(SeriesReader const &) = delete;

    // The folder NAME.series, a table or a header in it, or a frame that it lists: beside it, or a few folders further
    // down.
    int Open(std::string const &name);

    std::string const &Name() const // NAME
    {
        return m_name;
    }
    std::string const &Folder() const // NAME.series; absolute, without links
    {
        return m_folder;
    }
    std::string const &Above() const // which holds that folder
    {
        return m_above;
    }
    // A file of the folder: ".ledger.txt", ".tcfg" and so on. It need not exist.
    std::string PathOf(char const *ending) const
    {
        return m_folder + '/' + m_name + ending;
    }

    // 0, or why there is no table, or no header; the rows come from the other one then.
    int TableFailure() const
    {
        return m_tableFailure;
    }
    int HeaderFailure() const
    {
        return m_headerFailure;
    }
    // Those of the header.
    SeriesFiles::RawShape const &Shape() const
    {
        return m_shape;
    }
    std::uint64_t HeaderCount() const
    {
        return m_headerCount;
    }
    // Bytes of a frame; 0 without a shape.
    std::uint64_t FrameBytes() const
    {
        return m_headerFailure ? 0 : m_shape.lineBytes * m_shape.height;
    }

    // The rows in their order, from the first one on after Open and Rewind.
    Line Next(Row &row);
    // The files that the header lists, independently of the rows.
    Line NextOfHeader(std::string &file);
    void Rewind();
    // Why the end of either came too early: an errno value, otherwise 0.
    int ReadError() const
    {
        return m_rows.Error() ? m_rows.Error() : m_list.Error();
    }

    // The frame's path from Above() on, without "." and ".."; empty for one that leads elsewhere.
    std::string PathInside(std::string const &file) const;
    // Whether the file is there, with its size. Nothing is read.
    int Look(std::string const &file, std::uint64_t &size) const;
    // The bytes of a raw frame; `pixels` has room for FrameBytes().
    int Read(Row const &row, void *pixels) const;

    // The camera's configuration, as a file has it; ENOENT where there is none.
    int ReadConfiguration(std::string &text) const;
    // The entries of [Ledger]; ENOENT where the recording was not ended.
    int ReadLedger(std::vector<std::pair<std::string, std::int64_t>> &entries) const;

private:
    int OpenFolder(std::string const &folder, std::string const &name);
    int OpenBeside(std::string const &frame);
    int OpenTable();
    int OpenHeader();
    bool Lists(std::string const &path);
    int OpenFrame(std::string const &file, int &descriptor, std::uint64_t &size) const;

    std::string m_name, m_folder, m_above;
    int m_aboveFile = -1;
    LineReader m_rows, m_list;
    int m_tableFailure = 0, m_headerFailure = 0;
    SeriesFiles::RawShape m_shape;
    std::uint64_t m_headerCount = 0;
    std::uint64_t m_counted = 0; // rows that came from the header
};

// The folders NAME.series in a folder, in the order of their names.
std::vector<std::string> SeriesFoldersIn(std::string const &folder);
