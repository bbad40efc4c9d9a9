#include "pngencoder.h"

#include "pixellayout.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

namespace {

constexpr std::size_t BLOCK_BYTES = 256 * 1024;
constexpr std::size_t CHUNK_HEAD = 8, CHUNK_TAIL = 4;

enum Filter : std::uint8_t { FILTER_NONE, FILTER_SUB, FILTER_UP, FILTER_AVERAGE, FILTER_COUNT };

void PutNumber(std::uint8_t *at, std::uint32_t number)
{
    for (int i = 0; i < 4; ++i)
        at[i] = std::uint8_t(number >> (24 - 8 * i));
}

// Makes a chunk of the `size` bytes behind a head's room; returns its bytes.
std::size_t CloseChunk(std::uint8_t *chunk, char const *name, std::size_t size)
{
    PutNumber(chunk, std::uint32_t(size));
    std::memcpy(chunk + 4, name, 4);
    PutNumber(chunk + CHUNK_HEAD + size, libdeflate_crc32(0, chunk + 4, size + 4));
    return CHUNK_HEAD + size + CHUNK_TAIL;
}

void SwapBytes(std::uint8_t *to, std::uint8_t const *from, std::size_t bytes)
{
    for (std::size_t i = 0; i + 1 < bytes; i += 2) {
        to[i] = from[i + 1];
        to[i + 1] = from[i];
    }
}

// `above` is the line above; `pixel` the bytes of one.
void ApplyFilter(Filter filter, std::uint8_t *__restrict to, std::uint8_t const *__restrict line,
                 std::uint8_t const *__restrict above, std::size_t bytes, std::size_t pixel)
{
    switch (filter) {
    case FILTER_SUB:
        std::memcpy(to, line, pixel);
        for (std::size_t i = pixel; i < bytes; ++i)
            to[i] = std::uint8_t(line[i] - line[i - pixel]);
        break;
    case FILTER_UP:
        for (std::size_t i = 0; i < bytes; ++i)
            to[i] = std::uint8_t(line[i] - above[i]);
        break;
    case FILTER_AVERAGE:
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

int PngEncoder::Write(OutFile &file, _TovImage const &image, unsigned significantBits)
{
    bool const wide = image.pixelType == TV_PIXEL_MONO16 || image.pixelType == TV_PIXEL_RGB16;
    bool const colour = image.pixelType == TV_PIXEL_RGB8 || image.pixelType == TV_PIXEL_RGB16;
    std::size_t const pixel = (wide ? 2 : 1) * (colour ? 3 : 1);
    std::size_t const bytes = pixel * image.width;
    std::uint64_t const step = LineStep(image);
    std::uint32_t const blockLines = std::uint32_t(std::clamp<std::size_t>(BLOCK_BYTES / (bytes + 1), 1, image.height));
    std::size_t const blockBytes = blockLines * (bytes + 1);

    // The line above the first one is zeros.
    m_lines.assign(wide ? 2 * bytes : bytes, 0);
    m_filtered.resize(blockBytes);
    m_out.resize(256 + HuffmanDeflate::Bound(blockBytes));

    static constexpr std::uint8_t signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::uint8_t *out = m_out.data();
    std::memcpy(out, signature, sizeof signature);
    out += sizeof signature;
    PutNumber(out + CHUNK_HEAD, image.width);
    PutNumber(out + CHUNK_HEAD + 4, image.height);
    std::uint8_t const kind[] = {std::uint8_t(wide ? 16 : 8), std::uint8_t(colour ? 2 : 0), 0, 0, 0};
    std::memcpy(out + CHUNK_HEAD + 8, kind, sizeof kind);
    out += CloseChunk(out, "IHDR", 13);
    if (significantBits < (wide ? 16u : 8u)) {
        std::size_t const channels = colour ? 3 : 1;
        std::memset(out + CHUNK_HEAD, int(significantBits), channels);
        out += CloseChunk(out, "sBIT", channels);
    }
    if (int const error = file.Append(m_out.data(), std::size_t(out - m_out.data())))
        return error;

    m_deflate.Begin();
    std::uint32_t check = 1;
    std::uint8_t const *above = m_lines.data();
    for (std::uint32_t first = 0; first < image.height; first += blockLines) {
        std::uint32_t const lines = std::min(blockLines, image.height - first);
        auto const source = [&](std::uint32_t y) {
            return image.imageData + y * step;
        };

        // The filter of the block is the best one for a few of its lines.
        Filter filter = FILTER_NONE;
        double least = HUGE_VAL;
        for (unsigned f = FILTER_NONE; f < FILTER_COUNT; ++f) {
            double bits = 0;
            for (std::uint32_t sample = 0; sample < 2; ++sample) {
                std::uint32_t const y = first + lines * (1 + 2 * sample) / 4;
                ApplyFilter(Filter(f), m_filtered.data(), source(y), source(y ? y - 1 : 0), bytes, pixel);
                bits += Entropy(m_filtered.data(), bytes);
            }
            if (bits < least) {
                least = bits;
                filter = Filter(f);
            }
        }

        std::uint8_t *to = m_filtered.data();
        for (std::uint32_t y = first; y < first + lines; ++y) {
            std::uint8_t const *line = source(y);
            if (wide) {
                std::uint8_t *const swapped = m_lines.data() + (y & 1 ? 0 : bytes);
                SwapBytes(swapped, line, bytes);
                line = swapped;
            }
            *to++ = filter;
            ApplyFilter(filter, to, line, above, bytes, pixel);
            to += bytes;
            above = line;
        }
        std::size_t const size = std::size_t(to - m_filtered.data());
        check = libdeflate_adler32(check, m_filtered.data(), size);

        bool const last = first + lines == image.height;
        std::uint8_t *const data = m_out.data() + CHUNK_HEAD;
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
