#include "hdf5driver.h"

#if __has_include(<H5FDdevelop.h>)
#include <H5FDdevelop.h> // later releases have the drivers' side apart
#endif

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <new>

#include <sys/file.h>

namespace {

struct OpenDisk : H5FD_t
{
    Hdf5Disk *disk = nullptr;
};

Hdf5Disk &DiskOf(H5FD_t *file)
{
    return *static_cast<OpenDisk *>(file)->disk;
}
Hdf5Disk const &DiskOf(H5FD_t const *file)
{
    return *static_cast<OpenDisk const *>(file)->disk;
}

H5FD_t *OpenFile(char const *, unsigned, hid_t access, haddr_t)
{
    auto const *disk = static_cast<Hdf5Disk *const *>(H5Pget_driver_info(access));
    auto *const file = disk ? new (std::nothrow) OpenDisk : nullptr;
    if (file)
        file->disk = *disk;
    return file;
}

herr_t CloseFile(H5FD_t *file)
{
    delete static_cast<OpenDisk *>(file);
    return 0;
}

herr_t Query(H5FD_t const *, unsigned long *flags)
{
    *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA | H5FD_FEAT_AGGREGATE_SMALLDATA |
             H5FD_FEAT_SUPPORTS_SWMR_IO | H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
    return 0;
}

haddr_t GetAllocated(H5FD_t const *file, H5FD_mem_t)
{
    return DiskOf(file).allocated;
}

herr_t SetAllocated(H5FD_t *file, H5FD_mem_t, haddr_t end)
{
    DiskOf(file).allocated = end;
    return 0;
}

haddr_t GetEnd(H5FD_t const *file, H5FD_mem_t)
{
    return DiskOf(file).End();
}

herr_t ReadFile(H5FD_t *file, H5FD_mem_t, hid_t, haddr_t position, std::size_t size, void *data)
{
    return DiskOf(file).Read(position, data, size) ? -1 : 0;
}

herr_t WriteFile(H5FD_t *file, H5FD_mem_t, hid_t, haddr_t position, std::size_t size, void const *data)
{
    return DiskOf(file).Write(position, data, size) ? -1 : 0;
}

herr_t TruncateFile(H5FD_t *file, hid_t, hbool_t closing)
{
    if (closing)
        DiskOf(file).Truncate();
    return 0;
}

// Keeps readers away while the file is being made. Where a file system has no locks, it goes without: the library's
// marks in the file remain, which it makes for drivers that lock.
herr_t LockFile(H5FD_t *file, hbool_t writing)
{
    DiskOf(file).Lock(writing ? LOCK_EX | LOCK_NB : LOCK_SH | LOCK_NB);
    return 0;
}

herr_t UnlockFile(H5FD_t *file)
{
    DiskOf(file).Lock(LOCK_UN);
    return 0;
}

H5FD_class_t DriverClass()
{
    H5FD_class_t driver{};
#if defined(H5FD_CLASS_VERSION)
    driver.version = H5FD_CLASS_VERSION;
    driver.value = H5FD_class_value_t(H5_VFD_RESERVED + 1);
#endif
    driver.name = "tov_disk";
    driver.maxaddr = haddr_t(INT64_MAX);
    driver.fc_degree = H5F_CLOSE_STRONG;
    driver.fapl_size = sizeof(Hdf5Disk *);
    driver.open = OpenFile;
    driver.close = CloseFile;
    driver.query = Query;
    driver.get_eoa = GetAllocated;
    driver.set_eoa = SetAllocated;
    driver.get_eof = GetEnd;
    driver.read = ReadFile;
    driver.write = WriteFile;
    driver.truncate = TruncateFile;
    driver.lock = LockFile;
    driver.unlock = UnlockFile;
    H5FD_mem_t const kinds[] = H5FD_FLMAP_DICHOTOMY;
    std::copy(std::begin(kinds), std::end(kinds), driver.fl_map);
    return driver;
}

} // namespace

Hdf5Driver::Hdf5Driver()
{
    H5FD_class_t const driver = DriverClass();
    m_driver = Hdf5Handle<H5FDunregister>(H5FDregister(&driver));
}

Hdf5Handle<H5Pclose> Hdf5Driver::Access(Hdf5Disk const &disk) const
{
    Hdf5Handle<H5Pclose> access(H5Pcreate(H5P_FILE_ACCESS));
    Hdf5Disk const *const information = &disk;
    if (!access || H5Pset_driver(access.Get(), m_driver.Get(), &information) < 0)
        return {};
    return access;
}
