#include "hdf5disk.h"

#include "disktime.h"
#include "filenames.h"
#include "partfiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t Page = OutFile::Page;
// Room is taken in steps of this, and in smaller ones where there is no such room.
constexpr std::uint64_t ReserveStep = 64u << 20;
// Smaller pieces are tables, or frames so small that the page cache serves them better.
constexpr std::size_t DirectSize = 256 * 1024;

} // namespace

Hdf5Disk::~Hdf5Disk()
{
    Close();
}

int Hdf5Disk::Create(std::string const &name, bool direct)
{
    m_name = name;
    RemoveLeftovers(FolderOf(name));
    int const error = OfName(CreateUnderFreeName(m_name, O_RDWR, m_file));
    if (!error && direct) // through its number, so that it is the same file whatever becomes of the name
        m_direct = open(("/proc/self/fd/" + std::to_string(m_file)).c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC);
    m_end = m_reserved = allocated = 0;
    m_step = ReserveStep;
    m_error = 0;
    return error;
}

int Hdf5Disk::Reopen()
{
    struct stat info;
    if (fstat(m_file, &info) != 0)
        return errno;
    m_end = m_reserved = std::uint64_t(info.st_size);
    return 0;
}

// The size is set along: writing inside a file is cheaper than making it longer, and a limit on sizes shows now.
int Hdf5Disk::Reserve(std::uint64_t bytes)
{
    DiskTime const time;
    std::uint64_t const wanted = std::max(m_end, allocated) + bytes;
    while (wanted > m_reserved) {
        std::uint64_t const needed = wanted - m_reserved, length = std::max(needed, m_step);
        if (fallocate(m_file, 0, off_t(m_reserved), off_t(length)) == 0) {
            m_reserved += length;
            return 0;
        }
        int const error = errno;
        if (error == EINTR)
            continue;
        if (error == EOPNOTSUPP || error == ENOSYS || error == EINVAL) {
            if (ftruncate(m_file, off_t(wanted)) != 0)
                return errno;
            m_reserved = wanted;
            return 0;
        }
        // Some file systems keep what they could give.
        if (ftruncate(m_file, off_t(m_reserved)) != 0 || length == needed)
            return error;
        m_step /= 8;
    }
    return 0;
}

bool Hdf5Disk::IsLost() const
{
    struct stat info;
    return fstat(m_file, &info) != 0 || info.st_nlink == 0;
}

int Hdf5Disk::Close()
{
    if (!IsOpen())
        return 0;
    int error = m_error;
    std::uint64_t const end = std::max(m_end, allocated);
    if (end < m_reserved && ftruncate(m_file, off_t(end)) != 0 && !error)
        error = errno;
    if (m_direct >= 0)
        close(m_direct);
    // Some file systems report only here that they had no room.
    if (close(m_file) != 0 && !error)
        error = errno;
    m_file = m_direct = -1;
    return error;
}

void Hdf5Disk::Abandon()
{
    if (!IsOpen())
        return;
    Close();
    unlink(m_name.c_str());
}

void Hdf5Disk::BeginFrame()
{
    m_inFrame = true;
    m_frameError = 0;
}

int Hdf5Disk::EndFrame()
{
    m_inFrame = false;
    return m_frameError;
}

// One write of at most that many of its bytes, which are then taken off.
int Hdf5Disk::WriteSome(int file, Piece &piece, std::size_t most)
{
    DiskTime const time;
    ssize_t const written = pwrite(file, piece.bytes, most, off_t(piece.position));
    if (written < 0)
        return errno == EINTR ? 0 : errno;
    if (written == 0)
        return EIO;
    piece.position += std::uint64_t(written);
    piece.bytes += written;
    piece.size -= std::size_t(written);
    return 0;
}

int Hdf5Disk::Read(std::uint64_t position, void *data, std::size_t size) const
{
    if (int const error = ReadFile(position, data, size))
        return error;
    auto *const bytes = static_cast<unsigned char *>(data);
    for (auto at = m_changed.lower_bound(position / Page); at != m_changed.end(); ++at) {
        std::uint64_t const begin = at->first * Page;
        if (begin >= position + size)
            break;
        std::uint64_t const from = std::max(begin, position), to = std::min(begin + Page, position + size);
        std::memcpy(bytes + (from - position), at->second.data() + (from - begin), std::size_t(to - from));
    }
    return 0;
}

int Hdf5Disk::ReadFile(std::uint64_t position, void *data, std::size_t size) const
{
    auto *bytes = static_cast<char *>(data);
    while (size > 0) {
        ssize_t const read = pread(m_file, bytes, size, off_t(position));
        if (read < 0 && errno == EINTR)
            continue;
        if (read < 0)
            return errno;
        if (read == 0) { // allocated, and not written yet
            std::memset(bytes, 0, size);
            return 0;
        }
        bytes += read;
        position += std::uint64_t(read);
        size -= std::size_t(read);
    }
    return 0;
}

// Whole pages past the page cache, as far as the file system goes along; what is left is for WriteOut.
int Hdf5Disk::WritePages(Piece &piece)
{
    while (m_direct >= 0 && piece.size >= Page && piece.position % Page == 0) {
        int const error = WriteSome(m_direct, piece, piece.size / Page * Page);
        if (error == EINVAL) { // the file system accepts the flag, but not our alignment
            close(m_direct);
            m_direct = -1;
        } else if (error) {
            return error;
        }
    }
    return 0;
}

int Hdf5Disk::WriteOut(Piece piece)
{
    if (piece.size >= DirectSize && reinterpret_cast<std::uintptr_t>(piece.bytes) % Page == 0) {
        if (int const error = WritePages(piece))
            return error;
    }
    while (piece.size > 0) {
        if (int const error = WriteSome(m_file, piece, piece.size))
            return error;
    }
    return 0;
}

int Hdf5Disk::Write(std::uint64_t position, void const *data, std::size_t size)
{
    if (m_error)
        return 0;
    auto const *const bytes = static_cast<unsigned char const *>(data);
    int const error = m_changing ? Keep(position, bytes, size) : WriteOut({position, bytes, size});
    if (!error)
        m_end = std::max(m_end, position + size);
    else if (m_inFrame)
        m_frameError = error;
    else
        m_error = error;
    return m_frameError && m_inFrame ? error : 0;
}

void Hdf5Disk::BeginChange()
{
    m_changing = true;
    m_endBefore = m_end;
}

int Hdf5Disk::Keep(std::uint64_t position, unsigned char const *bytes, std::size_t size)
try {
    while (size > 0) {
        std::size_t const at = std::size_t(position % Page), part = std::min(size, Page - at);
        auto const [page, isNew] = m_changed.try_emplace(position / Page);
        if (isNew) {
            if (int const error = ReadFile(position - at, page->second.data(), Page)) {
                m_changed.erase(page);
                return error;
            }
        }
        std::memcpy(page->second.data() + at, bytes, part);
        position += part;
        bytes += part;
        size -= part;
    }
    return 0;
} catch (std::bad_alloc const &) { // which must not pass through the library
    return ENOMEM;
}

// What is new, at the end, then what leads there: the beginning, which tells how long the file is, before all else.
int Hdf5Disk::CommitChange()
{
    m_changing = false;
    for (bool const isNew : {true, false}) {
        for (auto const &[number, page] : m_changed) {
            std::uint64_t const begin = number * Page;
            if (m_error || (begin + Page > m_endBefore) != isNew || begin >= m_end)
                continue;
            m_error = WriteOut({begin, page.data(), std::size_t(std::min<std::uint64_t>(Page, m_end - begin))});
        }
    }
    m_changed.clear();
    Truncate();
    return m_error;
}

void Hdf5Disk::DropChange()
{
    m_changing = false;
    m_changed.clear();
    m_end = allocated = m_endBefore;
}

void Hdf5Disk::Lock(int operation) const
{
    flock(m_file, operation);
}

void Hdf5Disk::Truncate()
{
    if (m_error)
        return;
    if (m_changing)
        m_end = allocated;
    else if (ftruncate(m_file, off_t(allocated)) != 0)
        m_error = errno;
    else
        m_end = m_reserved = allocated;
}
