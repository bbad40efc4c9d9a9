// The formats of single files.
#pragma once

#include "failures.h"
#include "outfile.h"
#include "tovimage.h"

#include <cstdint>
#include <memory>
#include <string_view>

class ImageFormat
{
public:
    virtual ~ImageFormat() = default;
    // The type to which pictures of this type are converted for Write; `info` is null for an unknown one. 0: the format
    // cannot hold them.
    virtual std::uint32_t Accepts(std::uint32_t pixelType, TovPixelTypeInfo const *info) const = 0;
    virtual OutFile::Road Road(_TovImage const &image) const = 0;
    // About the size of the file, to reserve room; 0 when that is not worth it.
    virtual std::uint64_t FileSize(_TovImage const &image) const = 0;
    // The whole file into an empty one; `source` is the picture before the conversion. 0, an errno value, or one
    // of FormatFailure.
    virtual int Write(OutFile &file, _TovImage const &image, _TovImage const &source) = 0;
};

// By extension, without a dot: raw, tvi, bmp, jpg, png, tif; null for another one. `jpegQuality` in percent.
std::unique_ptr<ImageFormat> MakeImageFormat(std::string_view extension, int jpegQuality);
