// What a file format can hold, and lines of an image.
#pragma once

#include "tovimage.h"

#include "outfile.h"

#include <cstring>

// Bytes of a line of any image, of a known type or not.
inline std::uint64_t LineBytes(_TovImage const &image)
{
    std::uint64_t const known = TovLineBytes(image.pixelType, image.width);
    return known ? known : (std::uint64_t(image.width) * image.bitsPerPixel + 7) / 8;
}

inline std::uint64_t LineStep(_TovImage const &image)
{
    return image.lineStep ? image.lineStep : LineBytes(image);
}

inline bool IsPacked(_TovImage const &image)
{
    return LineStep(image) == LineBytes(image);
}

// The lines, one after the other.
inline int AppendLines(OutFile &file, _TovImage const &image)
{
    std::uint64_t const bytes = LineBytes(image);
    if (IsPacked(image))
        return file.Append(image.imageData, std::size_t(bytes * image.height));
    for (std::uint32_t y = 0; y < image.height; ++y) {
        if (int const error = file.Append(image.imageData + y * image.lineStep, std::size_t(bytes)))
            return error;
    }
    return 0;
}

// The unpacked type of the mono or RGB family that holds an image's samples.
inline std::uint32_t UnpackedType(bool colour, unsigned bitDepth)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        // RGB comes before BGR.
        if (info->family == (colour ? TOV_FAMILY_RGB : TOV_FAMILY_MONO) && info->packing == TOV_UNPACKED &&
            info->bitDepth == bitDepth && info->channels == (colour ? 3 : 1))
            return info->pixelType;
    }
    return 0;
}
