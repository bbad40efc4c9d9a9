// What the HDF5 library finds in a file of frames.
#pragma once

#include "serializerfixture.h"

#include <hdf5.h>

#include <algorithm>
#include <array>
#include <vector>

template<class T>
std::vector<T> ReadSet(hid_t file, char const *name, hid_t type, std::vector<hsize_t> &extent)
{
    hid_t const set = H5Dopen2(file, name, H5P_DEFAULT), space = H5Dget_space(set);
    extent.resize(std::size_t(H5Sget_simple_extent_ndims(space)));
    H5Sget_simple_extent_dims(space, extent.data(), nullptr);
    std::vector<T> values(std::size_t(H5Sget_simple_extent_npoints(space)));
    EXPECT_GE(H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0) << name;
    H5Sclose(space);
    H5Dclose(set);
    return values;
}

// What a reader finds in a file.
struct Contents
{
    bool opened = false;
    unsigned sampleBytes = 0;
    std::vector<hsize_t> extent;
    Bytes pixels;
    Bytes configuration;
    std::vector<std::uint64_t> ids, timestamps, incomplete, missing, gaps;
    std::vector<std::int64_t> arrivals;
    std::vector<double> exposures, gains;
    std::vector<std::string> causes;

    // Frames that every dataset has; their pixels.
    std::size_t Frames() const
    {
        return std::min({std::size_t(extent.at(0)), ids.size(), timestamps.size(), incomplete.size(), missing.size(),
                         gaps.size(), arrivals.size(), exposures.size(), gains.size(), causes.size()});
    }
};

inline Contents ReadHdf5(std::string const &path, unsigned how = H5F_ACC_RDONLY)
{
    Contents found;
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    hid_t const file = H5Fopen(path.c_str(), how, H5P_DEFAULT);
    if (file < 0)
        return found;
    found.opened = true;
    hid_t const frames = H5Dopen2(file, "frames", H5P_DEFAULT), type = H5Dget_type(frames);
    found.sampleBytes = unsigned(H5Tget_size(type));
    std::vector<hsize_t> rows;
    auto const pixels =
        found.sampleBytes == 2 ? std::vector<char>() : ReadSet<char>(file, "frames", type, found.extent);
    auto const wide = found.sampleBytes == 2 ? ReadSet<std::uint16_t>(file, "frames", type, found.extent)
                                             : std::vector<std::uint16_t>();
    found.pixels.assign(pixels.begin(), pixels.end());
    found.pixels.append(reinterpret_cast<char const *>(wide.data()), 2 * wide.size());
    found.ids = ReadSet<std::uint64_t>(file, "frame_id", H5T_NATIVE_UINT64, rows);
    found.timestamps = ReadSet<std::uint64_t>(file, "timestamp", H5T_NATIVE_UINT64, rows);
    found.arrivals = ReadSet<std::int64_t>(file, "arrival_utc_ns", H5T_NATIVE_INT64, rows);
    found.exposures = ReadSet<double>(file, "exposure_us", H5T_NATIVE_DOUBLE, rows);
    found.gains = ReadSet<double>(file, "gain", H5T_NATIVE_DOUBLE, rows);
    found.incomplete = ReadSet<std::uint64_t>(file, "incomplete", H5T_NATIVE_UINT64, rows);
    found.missing = ReadSet<std::uint64_t>(file, "missing_bytes", H5T_NATIVE_UINT64, rows);
    found.gaps = ReadSet<std::uint64_t>(file, "gap_before", H5T_NATIVE_UINT64, rows);
    hid_t const text = H5Tcopy(H5T_C_S1);
    H5Tset_size(text, sizeof(std::array<char, 99>));
    for (auto const &cause : ReadSet<std::array<char, 99>>(file, "loss_cause", text, rows))
        found.causes.emplace_back(cause.data());
    H5Tclose(text);
    if (H5Lexists(file, "configuration", H5P_DEFAULT) > 0) {
        hid_t const set = H5Dopen2(file, "configuration", H5P_DEFAULT), text = H5Dget_type(set);
        found.configuration.resize(H5Tget_size(text));
        EXPECT_GE(H5Dread(set, text, H5S_ALL, H5S_ALL, H5P_DEFAULT, found.configuration.data()), 0);
        found.configuration = found.configuration.c_str();
        H5Tclose(text);
        H5Dclose(set);
    }
    H5Tclose(type);
    H5Dclose(frames);
    EXPECT_GE(H5Fclose(file), 0);
    return found;
}
