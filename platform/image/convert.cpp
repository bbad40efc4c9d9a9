// Conversion between pixel types, line by line.
#include "framememory.h"
#include "lineops.h"
#include "mosaic.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <opencv2/core.hpp>

namespace TovPixels {

namespace {

// More pixels in a direction than any sensor has; keeps the arithmetic on mosaics within an int.
constexpr std::uint32_t MosaicLimit = 1u << 26;

bool IsBlueFirst(TovPixelTypeInfo const &info)
{
    return info.family == TOV_FAMILY_RGB && info.name[0] == 'B';
}

bool IsMosaic(TovPixelTypeInfo const &info)
{
    return info.family == TOV_FAMILY_BAYER || info.family == TOV_FAMILY_TRUESENSE;
}

// One sample per pixel, under the same filters if any.
bool IsSameRaw(TovPixelTypeInfo const &a, TovPixelTypeInfo const &b)
{
    return a.family == b.family && (IsMosaic(a) || a.family == TOV_FAMILY_MONO) && a.bayer == b.bayer &&
           a.mosaic == b.mosaic && a.phase == b.phase;
}

YuvOrder OrderOf(TovPixelTypeInfo const &info)
{
    if (info.channels == 4)
        return YuvOrder::YUVA;
    return std::strcmp(info.name, "YUV422_8_UYVY") == 0 ? YuvOrder::UYVY : YuvOrder::YUYV;
}

// One conversion. T holds a sample on the way: a byte where the destination has bytes, else the source's depth.
template<class T>
class Conversion
{
public:
    Conversion(_TovImage &destination, TovPixelTypeInfo const &to, _TovImage const &source,
               TovPixelTypeInfo const &from)
        : m_destination(destination),
          m_to(to),
          m_source(source),
          m_from(from),
          m_width(source.width),
          m_sampleCount(m_width * SamplesPerPixel(from)),
          m_depth(Bytes ? 8 : from.bitDepth),
          m_blueFirst(IsBlueFirst(to)),
          m_yuvOrder(OrderOf(from)),
          m_samples(m_sampleCount),
          m_channels(m_width * 3),
          m_colours(m_width * 3),
          m_grey(m_width)
    {
    }

    void Run()
    {
        bool const raw = IsSameRaw(m_from, m_to);
        if (IsMosaic(m_from) && !raw) {
            // Straight into the destination, where only a shift is left to do.
            bool const direct = m_to.channels == 3 && m_to.bitDepth >= m_depth;
            ColourLines const lines{m_destination.imageData, m_destination.lineStep,
                                    direct ? m_to.bitDepth - m_depth : 0};
            Demosaic<T>(m_from, m_source, m_blueFirst, direct ? &lines : nullptr,
                        [this](std::uint32_t y, T const *colours) {
                            WriteColours(colours, m_destination.imageData + y * m_destination.lineStep);
                        });
            return;
        }
        for (std::uint64_t y = 0; y < m_source.height; ++y) {
            std::uint8_t const *line = m_source.imageData + y * m_source.lineStep;
            std::uint8_t *out = m_destination.imageData + y * m_destination.lineStep;
            if (raw)
                ConvertRaw(line, out);
            else
                ConvertColours(Samples(line), out);
        }
    }

private:
    static constexpr bool Bytes = sizeof(T) == 1;

    // The line's samples: in place if they are bytes already.
    T const *Samples(std::uint8_t const *line)
    {
        if constexpr (Bytes) {
            if (m_from.bitDepth == 8)
                return line;
            Unpack8(m_from, line, 0, m_sampleCount, m_samples.Data());
        } else {
            Unpack16(m_from, line, 0, m_sampleCount, m_samples.Data());
        }
        return m_samples.Data();
    }

    void ConvertRaw(std::uint8_t const *line, std::uint8_t *out)
    {
        auto *const deep = reinterpret_cast<Sample16 *>(out);
        bool const packed = m_from.packing != TOV_UNPACKED && m_from.bitDepth > 8;
        if constexpr (Bytes)
            Unpack8(m_from, line, 0, m_width, out);
        else if (m_from.bitDepth == m_to.bitDepth || (packed && m_from.bitDepth < m_to.bitDepth))
            Unpack16(m_from, line, 0, m_width, deep, m_to.bitDepth - m_from.bitDepth);
        else if (!packed && m_from.bitDepth > 8)
            ShiftDepth(reinterpret_cast<Sample16 const *>(line), m_width, m_from.bitDepth, m_to.bitDepth, deep);
        else
            WriteSamples(Samples(line), m_width, out);
    }

    void ConvertColours(T const *samples, std::uint8_t *out)
    {
        // Straight into the destination, where that takes T as it is.
        T *colours = m_colours.Data();
        if constexpr (Bytes) {
            if (m_to.channels == 3)
                colours = out;
        }
        if (m_from.family == TOV_FAMILY_MONO) {
            ColoursOfGrey(samples, m_width, colours);
        } else if (m_from.family == TOV_FAMILY_YUV) {
            SplitYuv(samples, m_width, m_depth, m_yuvOrder, m_channels.Data());
            if (m_to.family == TOV_FAMILY_MONO)
                return WriteSamples(m_channels.Data(), m_width, out);
            ColoursOfYuv(m_channels.Data(), m_width, m_depth, m_blueFirst, colours);
        } else {
            bool const swap = IsBlueFirst(m_from) != m_blueFirst;
            if constexpr (Bytes) {
                if (m_from.channels == 4) {
                    if (m_to.channels == 4) // of the two types with alpha, the other one
                        return SwapColoursWithAlpha(samples, m_width, out);
                    DropAlpha(samples, m_width, m_channels.Data());
                    samples = m_channels.Data();
                }
            } else if (m_from.channels == 4) {
                DropDeepAlpha(samples);
                samples = m_channels.Data();
            }
            if (swap)
                SwapColours(samples, m_width, colours);
            else
                return WriteColours(samples, out);
        }
        WriteColours(colours, out);
    }

    // The deep types have no alpha: eight-bit samples on their way up.
    void DropDeepAlpha(T const *samples)
    {
        for (std::size_t x = 0; x < m_width; ++x)
            std::copy_n(samples + 4 * x, 3, m_channels.Data() + 3 * x);
    }

    // Colours in the destination's order.
    void WriteColours(T const *colours, std::uint8_t *out)
    {
        if (m_to.family == TOV_FAMILY_MONO) {
            GreyOfColours(colours, m_width, m_blueFirst, m_grey.Data());
            return WriteSamples(m_grey.Data(), m_width, out);
        }
        if constexpr (Bytes) {
            if (m_to.channels == 4)
                return AddAlpha(colours, m_width, out);
        }
        WriteSamples(colours, 3 * m_width, out);
    }

    void WriteSamples(T const *samples, std::size_t count, std::uint8_t *out)
    {
        if constexpr (Bytes) {
            if (samples != out)
                std::memcpy(out, samples, count);
        } else {
            ShiftDepth(samples, count, m_depth, m_to.bitDepth, reinterpret_cast<Sample16 *>(out));
        }
    }

    _TovImage &m_destination;
    TovPixelTypeInfo const &m_to;
    _TovImage const &m_source;
    TovPixelTypeInfo const &m_from;
    std::size_t const m_width;
    std::size_t const m_sampleCount; // of a source line
    unsigned const m_depth;          // of a sample on the way
    bool const m_blueFirst;          // the destination's order
    YuvOrder const m_yuvOrder;       // the source's
    // One line each.
    FrameMemory<T> const m_samples;
    FrameMemory<T> const m_channels;
    FrameMemory<T> const m_colours;
    FrameMemory<T> const m_grey;
};

bool IsSupported(TovPixelTypeInfo const &to, TovPixelTypeInfo const &from)
{
    if (to.packing != TOV_UNPACKED)
        return false;
    return to.family == TOV_FAMILY_RGB || to.family == TOV_FAMILY_MONO || IsSameRaw(to, from);
}

bool HoldsLines(_TovImage const &image)
{
    return image.imageData && image.width && image.height &&
           image.lineStep >= TovLineBytes(image.pixelType, image.width);
}

unsigned long Convert(_TovImage *destination, _TovImage const *source)
{
    if (!destination || !source)
        return TOV_IMAGE_ERR_ARGUMENT;
    TovPixelTypeInfo const *to = TovGetPixelTypeInfo(destination->pixelType);
    TovPixelTypeInfo const *from = TovGetPixelTypeInfo(source->pixelType);
    if (!to || !from || !HoldsLines(*destination) || !HoldsLines(*source))
        return TOV_IMAGE_ERR_ARGUMENT;
    if (destination->width != source->width || destination->height != source->height)
        return TOV_IMAGE_ERR_SHAPE;
    if (to == from)
        return TovCopyImage(destination, source);
    if (!IsSupported(*to, *from) || (IsMosaic(*from) && (source->width > MosaicLimit || source->height > MosaicLimit)))
        return TOV_IMAGE_ERR_UNSUPPORTED;
    if (destination->imageData == source->imageData)
        return TOV_IMAGE_ERR_ARGUMENT;

    if (to->bitDepth == 8)
        Conversion<std::uint8_t>(*destination, *to, *source, *from).Run();
    else
        Conversion<std::uint16_t>(*destination, *to, *source, *from).Run();
    destination->timestamp = source->timestamp;
    destination->frameID = source->frameID;
    return TOV_IMAGE_OK;
}

} // namespace
} // namespace TovPixels

unsigned long TovConvertImage(_TovImage *destination, _TovImage const *source)
{
    try {
        return TovPixels::Convert(destination, source);
    } catch (std::bad_alloc const &) {
        return TOV_IMAGE_ERR_MEMORY;
    } catch (cv::Exception const &) {
        return TOV_IMAGE_ERR_MEMORY; // every other error is excluded above
    }
}
