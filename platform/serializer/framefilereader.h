// Reads tvi and tvm files, whole ones and what a crash has left of them. Trusts nothing in the file.
#pragma once

#include "frameformat.h"

#include <cstdint>
#include <string>
#include <vector>

// One thread at a time. Operations return 0, an errno value, or one of these.
class FrameFileReader
{
public:
    static constexpr int NotAFrameFile = -1;
    static constexpr int Damaged = -2; // the pixels are not those that were written

    struct Frame
    {
        std::uint64_t offset; // of the record
        FrameFormat::FrameHeader header;
    };

    FrameFileReader() = default;
    ~FrameFileReader();
    FrameFileReader(FrameFileReader const &) = delete;
    FrameFileReader &operator=(FrameFileReader const &) = delete;

    int Open(std::string const &name);
    bool IsMovie() const
    {
        return m_isMovie;
    }
    // Whether a movie was ended by its writer and its index is whole; true for an image.
    bool IsComplete() const
    {
        return m_isComplete;
    }
    // Bytes that belong to no whole frame, where frames should be.
    std::uint64_t LostBytes() const
    {
        return m_lostBytes;
    }
    FrameFormat::MovieHeader const &Movie() const
    {
        return m_movie;
    }
    // The frames whose bytes are all there.
    std::vector<Frame> const &Frames() const
    {
        return m_frames;
    }
    // The pixels of one of Frames() and their check; `pixels` has room for its pixelBytes.
    int Read(Frame const &frame, void *pixels) const;

private:
    int ReadAt(std::uint64_t offset, void *bytes, std::uint64_t size) const;
    bool ReadFrame(std::uint64_t offset, FrameFormat::Kind kind, Frame &frame) const;
    bool ReadIndex();
    void Scan();
    std::uint64_t FindRecord(std::uint64_t offset) const;

    int m_file = -1;
    std::uint64_t m_size = 0;
    bool m_isMovie = false;
    bool m_isComplete = false;
    std::uint64_t m_lostBytes = 0;
    FrameFormat::MovieHeader m_movie;
    std::vector<Frame> m_frames;
};
