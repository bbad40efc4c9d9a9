// The recordings that tovfile reads, and their frames one after another.
#pragma once

#include "framefilereader.h"
#include "seriesfiles.h"
#include "seriesreader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// One of the two.
struct Recording
{
    std::string name; // as it was given
    // Of a series: the part of the name before the path of a frame, or before NAME.series; none where that is not
    // known.
    std::optional<std::string> above;
    std::unique_ptr<FrameFileReader> frames;
    std::unique_ptr<SeriesReader> series;
};

// Empty, or why not.
std::string OpenRecording(std::string const &name, Recording &recording);

// Words for what a reader answers; empty for 0.
std::string FrameFailureText(int error);
std::string SeriesFailureText(int error);

// What one reading of a recording's table tells.
struct TableSummary
{
    std::uint64_t rows = 0, badLines = 0;
    bool isCut = false;   // within its last line
    bool isMovie = false; // its rows are positions in a file
    double rate = 0;      // frames per second, by their arrival; 0: not known
    std::string firstFile;
};
TableSummary Summarize(SeriesReader &reader); // which is at its first row afterwards

// The name without folders and without its extension.
std::string StemOf(std::string const &name);

struct SourceFrame
{
    SeriesFiles::RawShape shape; // of its bytes; lines have no gaps
    SeriesFiles::Row facts;
    std::string stem; // for a file of its own

    std::uint64_t Bytes() const
    {
        return shape.lineBytes * shape.height;
    }
};

class FrameSource
{
public:
    enum class Got { Frame, Failure, End };

    virtual ~FrameSource() = default;
    // After a failure, which Problem describes, there may be further frames.
    virtual Got Next(SourceFrame &frame) = 0;
    // Of the frame that Next gave last; `pixels` has room for Bytes(). Empty, or why not.
    virtual std::string Read(SourceFrame const &frame, void *pixels) = 0;

    std::string const &Problem() const
    {
        return m_problem;
    }
    std::uint64_t Frames() const // about so many
    {
        return m_frames;
    }
    double Rate() const // frames per second; 0: not known
    {
        return m_rate;
    }
    std::string const &Stem() const // for a file that takes all frames
    {
        return m_stem;
    }

protected:
    std::string m_problem, m_stem;
    std::uint64_t m_frames = 0;
    double m_rate = 0;
};

// Null, with `problem`, where the frames cannot be read.
std::unique_ptr<FrameSource> MakeFrameSource(Recording &recording, std::string &problem);
