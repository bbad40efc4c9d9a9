// The HDF5 library's way to a Hdf5Disk, whose address is the driver's information.
#pragma once

#include <hdf5.h>

#if __has_include(<H5FDdevelop.h>)
#include <H5FDdevelop.h> // later releases have the drivers' side apart
#endif

H5FD_class_t Hdf5DriverClass();
