// How pictures of a type look in an HDF5 file, and the library's objects that say so.
#pragma once

#include "hdf5disk.h"
#include "tovimage.h"

#include <string>
#include <vector>

using Hdf5Space = Hdf5Handle<H5Sclose>;
using Hdf5Set = Hdf5Handle<H5Dclose>;
using Hdf5List = Hdf5Handle<H5Pclose>;
using Hdf5Type = Hdf5Handle<H5Tclose>;

// Keeps the library from printing what went wrong, on this thread, while it is there.
class Hdf5Quiet
{
public:
    Hdf5Quiet()
    {
        H5Eget_auto2(H5E_DEFAULT, &m_print, &m_data);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    ~Hdf5Quiet()
    {
        H5Eset_auto2(H5E_DEFAULT, m_print, m_data);
    }
    Hdf5Quiet(Hdf5Quiet const &) = delete;
    Hdf5Quiet &operator=(Hdf5Quiet const &) = delete;

private:
    H5E_auto2_t m_print = nullptr;
    void *m_data = nullptr;
};

struct Hdf5Layout
{
    unsigned sampleBytes = 1;    // 1 or 2
    std::vector<hsize_t> extent; // of a frame: lines, then pixels and channels, or bytes where no sample is whole
};

Hdf5Layout LayoutOf(_TovImage const &image);
// What the frames' dataset says of them. False where the library fails.
bool DescribeFrames(hid_t frames, _TovImage const &image, double rate);
bool WriteAttribute(hid_t object, char const *name, std::string const &text);
// Text as a dataset of its own; in place of an earlier one.
bool WriteText(hid_t file, char const *name, std::string const &text);
