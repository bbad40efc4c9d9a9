// The HDF5 library's way to a Hdf5Disk.
#pragma once

#include "hdf5disk.h"

// Outlives the files that the library has open by it. The thread of the HDF5 file.
class Hdf5Driver
{
public:
    Hdf5Driver();
    // A property list by which H5Fcreate and H5Fopen get to the created file, whatever name they are given.
    Hdf5Handle<H5Pclose> Access(Hdf5Disk const &disk) const;

private:
    Hdf5Handle<H5FDunregister> m_driver;
};
