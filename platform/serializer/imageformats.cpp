#include "imageformats.h"

#include "frameformat.h"
#include "framememory.h"
#include "pixellayout.h"
#include "pngencoder.h"
#include "tiffwriter.h"

#include <libdeflate.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace {

// From this size on a file takes the direct road; below it, the page cache is quicker.
constexpr std::uint64_t DirectFrom = 1 << 20;

OutFile::Road RoadOf(std::uint64_t size)
{
    return size >= DirectFrom ? OutFile::Road::Direct : OutFile::Road::Cached;
}

bool IsColour(TovPixelTypeInfo const &info)
{
    return info.family != TOV_FAMILY_MONO;
}

// The lines' bytes and nothing else.
class RawFormat : public ImageFormat
{
public:
    std::uint32_t Accepts(std::uint32_t pixelType, TovPixelTypeInfo const *) const override
    {
        return pixelType;
    }
    std::uint64_t FileSize(_TovImage const &image) const override
    {
        return LineBytes(image) * image.height;
    }
    OutFile::Road Road(_TovImage const &image) const override
    {
        return RoadOf(FileSize(image));
    }
    int Write(OutFile &file, _TovImage const &image, _TovImage const &) override
    {
        return AppendLines(file, image);
    }
};

// One frame's record. Large ones begin their pixels at a page, so that they reach the disk without a copy.
class TviFormat : public RawFormat
{
public:
    std::uint64_t FileSize(_TovImage const &image) const override
    {
        return HeaderBytes(image) + RawFormat::FileSize(image);
    }
    int Write(OutFile &file, _TovImage const &image, _TovImage const &) override
    {
        FrameFormat::FrameHeader header = FrameFormat::Describe(image);
        header.headerBytes = HeaderBytes(image);
        header.recordBytes = header.headerBytes + header.pixelBytes;
        auto const bytes = FrameFormat::Encode(header, FrameFormat::Kind::Image);
        int error = file.Append(bytes.data(), bytes.size());
        if (!error)
            error = file.AppendZeros(header.headerBytes - bytes.size());
        return error ? error : AppendLines(file, image);
    }

private:
    std::uint32_t HeaderBytes(_TovImage const &image) const
    {
        return std::uint32_t(RawFormat::FileSize(image) >= DirectFrom ? OutFile::Page : FrameFormat::FrameHeader::Size);
    }
};

class BmpFormat : public ImageFormat
{
public:
    std::uint32_t Accepts(std::uint32_t, TovPixelTypeInfo const *info) const override
    {
        if (!info)
            return 0;
        return IsColour(*info) ? TV_PIXEL_BGR8 : TV_PIXEL_MONO8;
    }
    std::uint64_t FileSize(_TovImage const &image) const override
    {
        return HeaderBytes(image) + StoredLineBytes(image) * image.height;
    }
    OutFile::Road Road(_TovImage const &image) const override
    {
        return RoadOf(FileSize(image));
    }
    int Write(OutFile &file, _TovImage const &image, _TovImage const &) override
    {
        std::uint64_t const size = FileSize(image);
        if (size > 0xFFFFFFFF || image.width > 0x7FFFFFFF || image.height > 0x7FFFFFFF)
            return TooLarge;
        std::uint64_t const bytes = LineBytes(image), stored = StoredLineBytes(image);
        m_header = {'B', 'M'};
        Put(std::uint32_t(size), 4);
        Put(0, 4);
        Put(std::uint32_t(HeaderBytes(image)), 4);
        Put(InfoBytes, 4);
        Put(image.width, 4);
        Put(image.height, 4);
        Put(1, 2);
        Put(IsGrey(image) ? 8 : 24, 2);
        Put(0, 4);
        Put(std::uint32_t(stored * image.height), 4);
        Put(0, 8); // pixels per metre, which are not known
        Put(IsGrey(image) ? 256 : 0, 4);
        Put(0, 4);
        for (std::uint32_t grey = 0; IsGrey(image) && grey < 256; ++grey)
            Put(grey * 0x010101, 4);
        int error = file.Append(m_header.data(), m_header.size());
        for (std::uint32_t y = image.height; y-- > 0 && !error;) { // from the bottom up
            error = file.Append(image.imageData + y * LineStep(image), bytes);
            if (!error)
                error = file.AppendZeros(stored - bytes);
        }
        return error;
    }

private:
    static constexpr std::uint32_t FileBytes = 14, InfoBytes = 40;

    static bool IsGrey(_TovImage const &image)
    {
        return image.pixelType == TV_PIXEL_MONO8;
    }
    static std::uint64_t HeaderBytes(_TovImage const &image)
    {
        return FileBytes + InfoBytes + (IsGrey(image) ? 256 * 4 : 0);
    }
    static std::uint64_t StoredLineBytes(_TovImage const &image)
    {
        return (LineBytes(image) + 3) / 4 * 4;
    }
    void Put(std::uint32_t number, unsigned bytes)
    {
        for (unsigned i = 0; i < bytes; ++i)
            m_header.push_back(i < 4 ? std::uint8_t(number >> (8 * i)) : 0);
    }

    std::vector<std::uint8_t> m_header;
};

class JpegFormat : public ImageFormat
{
public:
    explicit JpegFormat(int quality) : m_quality(std::clamp(quality, 1, 100)), m_encoder(tjInitCompress())
    {
    }
    ~JpegFormat() override
    {
        if (m_encoder)
            tjDestroy(m_encoder);
    }
    std::uint32_t Accepts(std::uint32_t pixelType, TovPixelTypeInfo const *info) const override
    {
        if (!info)
            return 0;
        return Layout(pixelType) != TJPF_UNKNOWN ? pixelType
               : IsColour(*info)                 ? std::uint32_t(TV_PIXEL_RGB8)
                                                 : std::uint32_t(TV_PIXEL_MONO8);
    }
    OutFile::Road Road(_TovImage const &) const override
    {
        return OutFile::Road::Cached; // a small file, which the disk takes while the next one is being made
    }
    std::uint64_t FileSize(_TovImage const &) const override
    {
        return 0;
    }
    int Write(OutFile &file, _TovImage const &image, _TovImage const &) override
    {
        constexpr std::uint32_t LongestSide = 65500;
        if (image.width > LongestSide || image.height > LongestSide)
            return TooLarge;
        int const sampling = image.pixelType == TV_PIXEL_MONO8 ? TJSAMP_GRAY : TJSAMP_420;
        unsigned long const room = tjBufSize(int(image.width), int(image.height), sampling);
        unsigned char *out = room == static_cast<unsigned long>(-1) ? nullptr : m_out.TryGet(room);
        if (!m_encoder || !out)
            return ENOMEM;
        unsigned long size = room;
        if (tjCompress2(m_encoder, image.imageData, int(image.width), int(LineStep(image)), int(image.height),
                        Layout(image.pixelType), &out, &size, sampling, m_quality, TJFLAG_NOREALLOC) != 0)
            return NoEncoder;
        return file.Append(out, size);
    }

private:
    static int Layout(std::uint32_t pixelType)
    {
        switch (pixelType) {
        case TV_PIXEL_MONO8:
            return TJPF_GRAY;
        case TV_PIXEL_RGB8:
            return TJPF_RGB;
        case TV_PIXEL_BGR8:
            return TJPF_BGR;
        case TV_PIXEL_RGBA8:
            return TJPF_RGBX;
        case TV_PIXEL_BGRA8:
            return TJPF_BGRX;
        default:
            return TJPF_UNKNOWN;
        }
    }

    int m_quality;
    tjhandle m_encoder;
    FrameMemory<std::uint8_t> m_out;
};

// Deeper samples fill the upper of the sixteen bits; the file says how many count.
class PngFormat : public ImageFormat
{
public:
    std::uint32_t Accepts(std::uint32_t, TovPixelTypeInfo const *info) const override
    {
        if (!info)
            return 0;
        bool const deep = info->bitDepth > 8;
        return IsColour(*info) ? (deep ? TV_PIXEL_RGB16 : TV_PIXEL_RGB8) : (deep ? TV_PIXEL_MONO16 : TV_PIXEL_MONO8);
    }
    OutFile::Road Road(_TovImage const &) const override
    {
        return OutFile::Road::Cached;
    }
    std::uint64_t FileSize(_TovImage const &) const override
    {
        return 0;
    }
    int Write(OutFile &file, _TovImage const &image, _TovImage const &source) override
    {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfo(source.pixelType);
        return PngEncoder::Takes(image) && info ? m_encoder.Write(file, image, info->bitDepth) : NotHeld;
    }

private:
    PngEncoder m_encoder;
};

// Deeper samples are right-aligned in sixteen bits, as in the unpacked types.
class TiffFormat : public ImageFormat
{
public:
    std::uint32_t Accepts(std::uint32_t, TovPixelTypeInfo const *info) const override
    {
        return info ? UnpackedType(IsColour(*info), info->bitDepth) : 0;
    }
    std::uint64_t FileSize(_TovImage const &image) const override
    {
        return LineBytes(image) * image.height + TiffWriter::Overhead;
    }
    OutFile::Road Road(_TovImage const &image) const override
    {
        return RoadOf(FileSize(image));
    }
    int Write(OutFile &file, _TovImage const &image, _TovImage const &) override
    {
        return m_writer.Write(file, image);
    }

private:
    TiffWriter m_writer;
};

} // namespace

std::unique_ptr<ImageFormat> MakeImageFormat(std::string_view extension, int jpegQuality)
{
    if (extension == "raw")
        return std::make_unique<RawFormat>();
    if (extension == "tvi")
        return std::make_unique<TviFormat>();
    if (extension == "bmp")
        return std::make_unique<BmpFormat>();
    if (extension == "jpg")
        return std::make_unique<JpegFormat>(jpegQuality);
    if (extension == "png")
        return std::make_unique<PngFormat>();
    if (extension == "tif")
        return std::make_unique<TiffFormat>();
    return nullptr;
}
