#include "tiffwriter.h"

#include "failures.h"
#include "pixellayout.h"

#include <tiffio.h>

#include <cerrno>
#include <cstring>

namespace {

// The file as libtiff sees it. Errors are kept here and hidden from libtiff, which would print them.
struct Stream
{
    OutFile &file;
    std::uint64_t position = 0;
    bool pixelsNext = true;
    int error = 0;

    static tmsize_t Read(thandle_t, void *, tmsize_t)
    {
        return 0;
    }
    static tmsize_t Write(thandle_t handle, void *data, tmsize_t size)
    {
        auto *stream = static_cast<Stream *>(handle);
        if (!stream->error)
            stream->error = stream->file.WriteAt(stream->position, data, std::size_t(size));
        stream->position += std::uint64_t(size);
        return size;
    }
    static toff_t Seek(thandle_t handle, toff_t offset, int whence)
    {
        auto *stream = static_cast<Stream *>(handle);
        if (whence == SEEK_END) {
            offset += stream->file.Size();
            // libtiff puts the pixels at the file's end, which is given as the next page.
            if (stream->pixelsNext && offset > 0) {
                offset = (offset + OutFile::Page - 1) / OutFile::Page * OutFile::Page;
                stream->pixelsNext = false;
            }
        } else if (whence == SEEK_CUR) {
            offset += stream->position;
        }
        return stream->position = offset;
    }
    static int Close(thandle_t)
    {
        return 0;
    }
    static toff_t Size(thandle_t handle)
    {
        return static_cast<Stream *>(handle)->file.Size();
    }
};

} // namespace

int TiffWriter::Write(OutFile &file, _TovImage const &image)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(image.pixelType);
    std::uint64_t const bytes = LineBytes(image), pixels = bytes * image.height;
    if (!info || info->packing != TOV_UNPACKED || (info->channels != 1 && info->channels != 3))
        return NotHeld;
    if (pixels + Overhead > 0xFFFFFFFF)
        return TooLarge;
    std::uint8_t *data = image.imageData;
    if (!IsPacked(image)) {
        data = m_packed.TryGet(std::size_t(pixels));
        if (!data)
            return ENOMEM;
        for (std::uint32_t y = 0; y < image.height; ++y)
            std::memcpy(data + y * bytes, image.imageData + y * image.lineStep, std::size_t(bytes));
    }

    Stream stream{file};
    TIFF *tiff = TIFFClientOpen("", "wl", &stream, Stream::Read, Stream::Write, Stream::Seek, Stream::Close,
                                Stream::Size, nullptr, nullptr);
    if (!tiff)
        return ENOMEM;
    unsigned const depth = info->bitDepth;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, depth > 8 ? 16 : 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, int(info->channels));
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, info->channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, image.height);
    if (depth != 8 && depth != 16) {
        // The second one is the newer name of the first.
        TIFFSetField(tiff, TIFFTAG_MAXSAMPLEVALUE, (1u << depth) - 1);
        TIFFSetField(tiff, TIFFTAG_SMAXSAMPLEVALUE, double((1u << depth) - 1));
    }
    bool const written = TIFFWriteRawStrip(tiff, 0, data, tmsize_t(pixels)) == tmsize_t(pixels);
    TIFFClose(tiff);
    return stream.error ? stream.error : written ? 0 : -1;
}
