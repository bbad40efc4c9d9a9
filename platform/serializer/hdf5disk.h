// The disk under an HDF5 file that grows, for the driver of the HDF5 library (hdf5driver.h). Frames go past the page
// cache, room is taken ahead, errors are errno values, and a disk that is full does not catch the library in the middle
// of its tables.
#pragma once

#include "outfile.h"

#include <hdf5.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

// An identifier of the library's, which goes by its own function.
template<herr_t (*Release)(hid_t)>
class Hdf5Handle
{
public:
    Hdf5Handle() = default;
    explicit Hdf5Handle(hid_t id) : m_id(id)
    {
    }
    Hdf5Handle(Hdf5Handle &&other) noexcept : m_id(other.m_id)
    {
        other.m_id = H5I_INVALID_HID;
    }
    Hdf5Handle &operator=(Hdf5Handle &&other) noexcept
    {
        Close();
        m_id = other.m_id;
        other.m_id = H5I_INVALID_HID;
        return *this;
    }
    ~Hdf5Handle()
    {
        Close();
    }
    bool Close()
    {
        bool const closed = m_id < 0 || Release(m_id) >= 0;
        m_id = H5I_INVALID_HID;
        return closed;
    }
    explicit operator bool() const
    {
        return m_id >= 0;
    }
    hid_t Get() const
    {
        return m_id;
    }

private:
    hid_t m_id = H5I_INVALID_HID;
};

// All operations return 0 or an errno value. One thread at a time, that of the HDF5 file.
class Hdf5Disk
{
public:
    Hdf5Disk() = default;
    ~Hdf5Disk();
    Hdf5Disk(Hdf5Disk const &) = delete;
    Hdf5Disk &operator=(Hdf5Disk const &) = delete;

    // A new file, under the next free number where the name is taken. Missing folders are made.
    int Create(std::string const &name, bool direct);
    // Before the library opens a file again that it has closed.
    int Reopen();
    // Room for so many bytes behind all that the library has allocated, so that writing there will not fail for the
    // lack of it. After a failure there is as much room as before.
    int Reserve(std::uint64_t bytes);
    // The name that the file has.
    std::string const &Name() const
    {
        return m_name;
    }
    bool IsOpen() const
    {
        return m_file >= 0;
    }
    // Whether the open file has been deleted, or its disk is gone.
    bool IsLost() const;
    // Cuts what was taken ahead, and closes.
    int Close();
    void Abandon(); // removes the file

    // The first error of writing. The library does not hear of it, because it could not be closed after one: from then
    // on it is told that everything was written, and nothing is. Its order of writing leaves what a reader of a growing
    // file needs.
    int Error() const
    {
        return m_error;
    }
    // While a frame's pixels are written, the library gets to know of errors, which it stands, and Error stays 0.
    void BeginFrame();
    int EndFrame(); // the error of the frame

    // From now on the file stays as it is, and changes are kept in memory, until all of them get into the file in an
    // order in which a reader finds either what was there or all of it. For little: a page is kept for each one
    // touched.
    void BeginChange();
    int CommitChange();
    void DropChange();

    // For the driver.
    int Read(std::uint64_t position, void *data, std::size_t size) const;
    int Write(std::uint64_t position, void const *data, std::size_t size);
    void Truncate();
    void Lock(int operation) const; // of flock, whose success is not needed
    std::uint64_t allocated = 0;    // by the library: the end of its addresses
    std::uint64_t End() const
    {
        return m_end;
    }

private:
    // What is left to be written.
    struct Piece
    {
        std::uint64_t position;
        unsigned char const *bytes;
        std::size_t size;
    };
    using PageBytes = std::array<unsigned char, OutFile::Page>;
    int ReadFile(std::uint64_t position, void *data, std::size_t size) const;
    int Keep(std::uint64_t position, unsigned char const *bytes, std::size_t size);
    static int WriteSome(int file, Piece &piece, std::size_t most);
    int WritePages(Piece &piece);
    int WriteOut(Piece piece);

    std::string m_name;
    int m_file = -1;
    int m_direct = -1;            // the same file with O_DIRECT; -1: not wanted, or the file system cannot
    std::uint64_t m_end = 0;      // of what was written
    std::uint64_t m_reserved = 0; // the file's size, which is taken from the file system
    std::uint64_t m_step = 0;     // what Reserve takes at least
    bool m_changing = false;
    std::uint64_t m_endBefore = 0;                // of the change
    std::map<std::uint64_t, PageBytes> m_changed; // by the pages' numbers
    bool m_inFrame = false;
    int m_frameError = 0;
    int m_error = 0;
};
