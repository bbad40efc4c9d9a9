#include "pngencoder.h"

#include "pixellayout.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

namespace {

constexpr std::size_t BlockBytes = 256 * 1024;
constexpr std::size_t ChunkHead = 8, ChunkTail = 4;

void PutNumber(std::uint8_t *at, std::uint32_t number)
{
    for (int i = 0; i < 4; ++i)
        at[i] = std::uint8_t(number >> (24 - 8 * i));
}

// Makes a chunk of the `size` bytes that follow the room for its head; returns the chunk's bytes.
std::size_t CloseChunk(std::uint8_t *chunk, char const *name, std::size_t size)
{
    PutNumber(chunk, std::uint32_t(size));
    std::memcpy(chunk + 4, name, 4);
    PutNumber(chunk + ChunkHead + size, libdeflate_crc32(0, chunk + 4, size + 4));
    return ChunkHead + size + ChunkTail;
}

void SwapBytes(std::uint8_t *to, std::uint8_t const *from, std::size_t bytes)
{
    for (std::size_t i = 0; i + 1 < bytes; i += 2) {
        to[i] = from[i + 1];
        to[i + 1] = from[i];
    }
}

// `above` is the line above; `pixel` the bytes of one.
void ApplyFilter(PngEncoder::Filter filter, std::uint8_t *__restrict to, std::uint8_t const *__restrict line,
                 std::uint8_t const *__restrict above, std::size_t bytes, std::size_t pixel)
{
    switch (filter) {
    case PngEncoder::Filter::Sub:
        std::memcpy(to, line, pixel);
        for (std::size_t i = pixel; i < bytes; ++i)
            to[i] = std::uint8_t(line[i] - line[i - pixel]);
        break;
    case PngEncoder::Filter::Up:
        for (std::size_t i = 0; i < bytes; ++i)
            to[i] = std::uint8_t(line[i] - above[i]);
        break;
    case PngEncoder::Filter::Average:
        for (std::size_t i = 0; i < pixel; ++i)
            to[i] = std::uint8_t(line[i] - (above[i] >> 1));
        for (std::size_t i = pixel; i < bytes; ++i)
            to[i] = std::uint8_t(line[i] - ((line[i - pixel] + above[i]) >> 1));
        break;
    default:
        std::memcpy(to, line, bytes);
    }
}

// Bits that the bytes would take by their distribution alone.
double Entropy(std::uint8_t const *bytes, std::size_t size)
{
    std::array<std::uint32_t, 256> counts{};
    for (std::size_t i = 0; i < size; ++i)
        ++counts[bytes[i]];
    double bits = 0;
    for (std::uint32_t const count : counts) {
        if (count)
            bits += count * std::log2(double(size) / count);
    }
    return bits;
}

} // namespace

bool PngEncoder::Takes(_TovImage const &image)
{
    std::uint32_t const type = image.pixelType;
    return (type == TV_PIXEL_MONO8 || type == TV_PIXEL_MONO16 || type == TV_PIXEL_RGB8 || type == TV_PIXEL_RGB16) &&
           image.width <= 0x7FFFFFFF && image.height <= 0x7FFFFFFF;
}

PngEncoder::Shape::Shape(_TovImage const &image)
    : image(image),
      wide(image.pixelType == TV_PIXEL_MONO16 || image.pixelType == TV_PIXEL_RGB16),
      channels(image.pixelType == TV_PIXEL_RGB8 || image.pixelType == TV_PIXEL_RGB16 ? 3 : 1),
      pixelBytes((wide ? 2 : 1) * channels),
      lineBytes(pixelBytes * image.width),
      lineStep(LineStep(image)),
      blockLines(std::uint32_t(std::clamp<std::size_t>(BlockBytes / (lineBytes + 1), 1, image.height)))
{
}

// Everything before the pixels into m_out; returns its bytes.
std::size_t PngEncoder::MakeHead(Shape const &shape, unsigned significantBits)
{
    static constexpr std::uint8_t signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::uint8_t *out = m_out.data();
    std::memcpy(out, signature, sizeof signature);
    out += sizeof signature;
    PutNumber(out + ChunkHead, shape.image.width);
    PutNumber(out + ChunkHead + 4, shape.image.height);
    unsigned const depth = shape.wide ? 16 : 8;
    std::uint8_t const kind[] = {std::uint8_t(depth), std::uint8_t(shape.channels == 3 ? 2 : 0), 0, 0, 0};
    std::memcpy(out + ChunkHead + 8, kind, sizeof kind);
    out += CloseChunk(out, "IHDR", 13);
    if (significantBits < depth) {
        std::memset(out + ChunkHead, int(significantBits), shape.channels);
        out += CloseChunk(out, "sBIT", shape.channels);
    }
    return std::size_t(out - m_out.data());
}

// The best filter for two lines of a block: m_filtered is overwritten.
PngEncoder::Filter PngEncoder::ChooseFilter(Shape const &shape, std::uint32_t first, std::uint32_t lines)
{
    Filter filter = Filter::None;
    double least = HUGE_VAL;
    for (Filter const candidate : {Filter::None, Filter::Sub, Filter::Up, Filter::Average}) {
        double bits = 0;
        for (std::uint32_t sample = 0; sample < 2; ++sample) {
            std::uint32_t const y = first + lines * (1 + 2 * sample) / 4;
            ApplyFilter(candidate, m_filtered.data(), shape.Line(y), shape.Line(y ? y - 1 : 0), shape.lineBytes,
                        shape.pixelBytes);
            bits += Entropy(m_filtered.data(), shape.lineBytes);
        }
        if (bits < least) {
            least = bits;
            filter = candidate;
        }
    }
    return filter;
}

// A block's lines into m_filtered; `above` is the line above them, and becomes the last of them. Returns the bytes.
std::size_t PngEncoder::FilterLines(Shape const &shape, std::uint32_t first, std::uint32_t lines,
                                    std::uint8_t const *&above)
{
    Filter const filter = ChooseFilter(shape, first, lines);
    std::uint8_t *to = m_filtered.data();
    for (std::uint32_t y = first; y < first + lines; ++y) {
        std::uint8_t const *line = shape.Line(y);
        if (shape.wide) {
            std::uint8_t *const swapped = m_lines.data() + (y & 1 ? 0 : shape.lineBytes);
            SwapBytes(swapped, line, shape.lineBytes);
            line = swapped;
        }
        *to++ = std::uint8_t(filter);
        ApplyFilter(filter, to, line, above, shape.lineBytes, shape.pixelBytes);
        to += shape.lineBytes;
        above = line;
    }
    return std::size_t(to - m_filtered.data());
}

int PngEncoder::Write(OutFile &file, _TovImage const &image, unsigned significantBits)
{
    Shape const shape(image);
    std::size_t const blockBytes = shape.blockLines * (shape.lineBytes + 1);
    // The line above the first one is zeros.
    m_lines.assign(shape.wide ? 2 * shape.lineBytes : shape.lineBytes, 0);
    m_filtered.resize(blockBytes);
    m_out.resize(256 + HuffmanDeflate::Bound(blockBytes));

    if (int const error = file.Append(m_out.data(), MakeHead(shape, significantBits)))
        return error;
    m_deflate.Begin();
    std::uint32_t check = 1;
    std::uint8_t const *above = m_lines.data();
    for (std::uint32_t first = 0; first < image.height; first += shape.blockLines) {
        std::uint32_t const lines = std::min(shape.blockLines, image.height - first);
        std::size_t const size = FilterLines(shape, first, lines, above);
        check = libdeflate_adler32(check, m_filtered.data(), size);

        bool const last = first + lines == image.height;
        std::uint8_t *const data = m_out.data() + ChunkHead;
        std::size_t used = 0;
        if (first == 0) {
            data[used++] = 0x78; // deflate with a window of 32 KB
            data[used++] = 0x01;
        }
        used += m_deflate.Block(m_filtered.data(), size, last, data + used);
        if (last) {
            PutNumber(data + used, check);
            used += 4;
        }
        used = CloseChunk(m_out.data(), "IDAT", used);
        if (last)
            used += CloseChunk(m_out.data() + used, "IEND", 0);
        if (int const error = file.Append(m_out.data(), used))
            return error;
    }
    return 0;
}
