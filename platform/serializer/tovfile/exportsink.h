// Where exported frames go.
#pragma once

#include "framesource.h"
#include "tovimage.h"

#include <cstdint>
#include <memory>
#include <string>

// Of one recording.
struct ExportTarget
{
    std::string folder;
    std::string format;        // one of those in exportformats.cpp
    std::string stem;          // of a file that takes all frames
    std::string codec;         // empty: the format's first one
    int quality = 0;           // in percent; 0: the serializer's
    bool compress = false;     // lossless, of h5
    double rate = 0;           // frames per second; 0: not known, which h5 alone can hold
    std::string configuration; // the camera's, for h5; empty: none
};

class ExportSink
{
public:
    // What became of a frame. After NotHeld the next one may be written, after Failed none.
    enum class Outcome { Written, NotHeld, Failed };

    virtual ~ExportSink() = default;
    // `pixels` are the frame's lines, in memory of the size that FrameRoom gives; what is behind them is zero.
    virtual Outcome Write(SourceFrame const &frame, std::uint8_t *pixels) = 0;
    // Ends what was begun, after a failure and an interruption, too: frames that were written stay readable.
    virtual Outcome End() = 0;

    // In words, of the last outcome but Written.
    std::string const &Problem() const
    {
        return m_problem;
    }

protected:
    std::string m_problem;
};

// Whether the lines have the bytes of such pixels, of a type that we know.
inline bool HasKnownLines(SeriesFiles::RawShape const &shape)
{
    return TovLineBytes(shape.pixelType, shape.width) == shape.lineBytes;
}

// Bytes of memory for a frame: its lines and the room that conversions want behind them.
inline std::uint64_t FrameRoom(SeriesFiles::RawShape const &shape)
{
    std::size_t const room =
        HasKnownLines(shape) ? TovFrameMemorySize(shape.pixelType, {shape.width, shape.height}) : 0;
    return room ? room : shape.lineBytes * shape.height;
}
