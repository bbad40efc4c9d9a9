#include "hdf5count.h"

#include "hdf5columns.h"

#include <algorithm>

namespace {

std::int64_t LengthOf(hid_t file, char const *name)
{
    Hdf5Set const set(H5Dopen2(file, name, H5P_DEFAULT));
    Hdf5Space const space(set ? H5Dget_space(set.Get()) : H5I_INVALID_HID);
    hsize_t extent[H5S_MAX_RANK] = {};
    if (!space || H5Sget_simple_extent_dims(space.Get(), extent, nullptr) < 1)
        return -1;
    return std::int64_t(std::min<hsize_t>(extent[0], INT64_MAX));
}

} // namespace

MovieCount CountHdf5Frames(std::string const &name)
{
    Hdf5Quiet const quiet;
    Hdf5Handle<H5Fclose> file(H5Fopen(name.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
    bool const isEnded = bool(file);
    if (!file)
        file = Hdf5Handle<H5Fclose>(H5Fopen(name.c_str(), H5F_ACC_RDONLY | H5F_ACC_SWMR_READ, H5P_DEFAULT));
    if (!file)
        return {};
    // While the file grows, some may be ahead of others.
    std::int64_t frames = LengthOf(file.Get(), "frames");
    for (std::size_t column = 0; column < Hdf5Columns::Count; ++column)
        frames = std::min(frames, LengthOf(file.Get(), Hdf5Columns::NameOf(column)));
    if (H5Lexists(file.Get(), Hdf5Columns::Causes, H5P_DEFAULT) > 0) // earlier versions had none
        frames = std::min(frames, LengthOf(file.Get(), Hdf5Columns::Causes));
    return {frames, isEnded};
}
