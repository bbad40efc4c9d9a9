// The pictures of a TIFF file, one of another program's.
#pragma once

#include "framememory.h"
#include "tovimage.h"

#include <cstdint>
#include <string>

// One thread at a time.
class TiffReader
{
public:
    TiffReader() = default;
    ~TiffReader();
    TiffReader(TiffReader const &) = delete;
    TiffReader &operator=(TiffReader const &) = delete;

    bool Open(std::string const &name);
    // The next picture of the file, valid until the next call. False at the end, and where the picture cannot be read:
    // then Problem() tells why.
    bool Next();
    _TovImage &Image() const
    {
        return *m_image;
    }
    // Whether the file has more than one.
    bool IsStack() const
    {
        return m_isStack;
    }
    std::string const &Problem() const
    {
        return m_problem;
    }

private:
    bool Fail(std::string problem);
    bool ReadLines(std::uint32_t height, std::uint64_t lineBytes);
    std::uint32_t PixelType();

    struct tiff *m_tiff = nullptr;
    bool m_atFirst = true, m_isStack = false;
    FrameMemory<std::uint8_t> m_memory;
    _TovImage *m_image = nullptr; // over m_memory
    std::string m_problem;
};
