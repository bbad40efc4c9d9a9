#include "hdf5layout.h"

#include "pixellayout.h"
#include "samplelayout.h"

#include <cmath>

namespace {

template<class T>
bool WriteNumber(hid_t object, char const *name, hid_t stored, hid_t given, T value)
{
    Hdf5Space const space(H5Screate(H5S_SCALAR));
    Hdf5Handle<H5Aclose> const attribute(H5Acreate2(object, name, stored, space.Get(), H5P_DEFAULT, H5P_DEFAULT));
    return attribute && H5Awrite(attribute.Get(), given, &value) >= 0;
}

bool WriteAttribute(hid_t object, char const *name, std::uint32_t value)
{
    return WriteNumber(object, name, H5T_STD_U32LE, H5T_NATIVE_UINT32, value);
}

// Of a fixed length: readers have it as bytes, and no table of texts has to grow.
Hdf5Type TextType(std::string const &text)
{
    Hdf5Type type(H5Tcopy(H5T_C_S1));
    if (H5Tset_size(type.Get(), text.size() + 1) < 0 || H5Tset_cset(type.Get(), H5T_CSET_UTF8) < 0)
        return {};
    return type;
}

} // namespace

Hdf5Layout LayoutOf(_TovImage const &image)
{
    SampleLayout const samples = SamplesOf(TovGetPixelTypeInfo(image.pixelType), image.width, LineBytes(image));
    Hdf5Layout layout{samples.bytes, {image.height, samples.perLine}};
    if (samples.channels > 1)
        layout.extent.push_back(samples.channels);
    return layout;
}

bool WriteAttribute(hid_t object, char const *name, std::string const &text)
{
    Hdf5Type const type = TextType(text);
    Hdf5Space const space(H5Screate(H5S_SCALAR));
    Hdf5Handle<H5Aclose> const attribute(H5Acreate2(object, name, type.Get(), space.Get(), H5P_DEFAULT, H5P_DEFAULT));
    return attribute && H5Awrite(attribute.Get(), type.Get(), text.c_str()) >= 0;
}

bool WriteText(hid_t file, char const *name, std::string const &text)
{
    if (H5Lexists(file, name, H5P_DEFAULT) > 0 && H5Ldelete(file, name, H5P_DEFAULT) < 0)
        return false;
    Hdf5Type const type = TextType(text);
    Hdf5Space const space(H5Screate(H5S_SCALAR));
    Hdf5Set const set(H5Dcreate2(file, name, type.Get(), space.Get(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
    return set && H5Dwrite(set.Get(), type.Get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, text.c_str()) >= 0;
}

bool DescribeFrames(hid_t frames, _TovImage const &image, double rate)
{
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(image.pixelType);
    bool written = WriteAttribute(frames, "pixel_type", info ? info->name : "") &&
                   WriteAttribute(frames, "pixel_code", image.pixelType) &&
                   WriteAttribute(frames, "width", image.width) && WriteAttribute(frames, "height", image.height) &&
                   WriteAttribute(frames, "line_bytes", std::uint32_t(LineBytes(image))) &&
                   WriteAttribute(frames, "bit_depth", info ? info->bitDepth : image.bitDepth);
    if (std::string const mosaic = MosaicColours(info); written && !mosaic.empty())
        written = WriteAttribute(frames, "mosaic", mosaic);
    if (written && !std::isnan(rate))
        written = WriteNumber(frames, "frame_rate", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, rate);
    return written;
}
