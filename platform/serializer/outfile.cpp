#include "outfile.h"

#include "disktime.h"
#include "filenames.h"
#include "partfiles.h"
#include "processmark.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr std::size_t Page = OutFile::Page;
constexpr std::size_t StageSize = 1 << 20;
// Movies take room in steps of this, and in smaller ones where there is no such room.
constexpr std::uint64_t ReserveStep = 64u << 20;
// Folders to be swept for one recording: where each frame has a folder of its own, not every one of them is read.
constexpr std::size_t MostSwept = 64;

bool IsMissingAbility(int error)
{
    return error == EOPNOTSUPP || error == ENOSYS || error == EINVAL;
}

} // namespace

OutFile::~OutFile()
{
    Leave();
    std::free(m_stage);
}

// The file before, if an exception has kept it open.
void OutFile::Leave()
{
    if (!IsOpen())
        return;
    if (m_visible)
        Close();
    else
        Abandon();
}

void OutFile::Forget()
{
    m_file = -1;
    m_direct = m_staging = m_visible = false;
    m_canReserve = true;
    m_temporary.clear();
    m_size = m_written = m_flushed = m_reserved = 0;
    m_reserveStep = ReserveStep;
}

void OutFile::ForgetFolders()
{
    m_swept.clear();
    m_mark.clear();
}

void OutFile::Sweep(std::string const &folder)
{
    if (m_swept.size() < MostSwept && m_swept.insert(folder).second)
        RemovePartsOfTheDead(folder);
}

int OutFile::OpenHidden(std::string const &folder, Birth birth)
{
    int const direct = m_direct ? O_DIRECT : 0;
    if (birth == Birth::Unnamed) {
        m_file = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC | direct, 0666);
        if (m_file >= 0)
            return 0;
        if (!IsMissingAbility(errno) && errno != EISDIR)
            return errno;
    }
    Sweep(folder);
    if (m_mark.empty())
        m_mark = ProcessMark::Own();
    do {
        m_temporary = NextPartName(folder, m_mark);
        m_file = open(m_temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | direct, 0666);
    } while (m_file < 0 && errno == EEXIST);
    if (m_file >= 0)
        return 0;
    int const error = errno;
    if (error == EINVAL && m_direct)
        unlink(m_temporary.c_str()); // a refused open may have left an empty file
    m_temporary.clear();
    return error;
}

int OutFile::CreateHidden(std::string const &name, std::uint64_t size, Road road, Birth birth)
{
    DiskTime const time;
    Leave();
    Forget();
    m_name = name;
    m_direct = m_staging = road == Road::Direct;
    std::string const folder = FolderOf(name);
    int error = OpenHidden(folder, birth);
    if (error == ENOENT && (error = MakeFolders(folder)) == 0)
        error = OpenHidden(folder, birth);
    if (error == EINVAL && m_direct) {
        m_direct = false;
        error = OpenHidden(folder, birth);
    }
    error = OfName(error);
    if (error == 0 && m_staging && !m_stage) {
        void *memory = nullptr;
        error = posix_memalign(&memory, Page, StageSize);
        m_stage = static_cast<unsigned char *>(memory);
    }
    // The size is set along: writing inside a file is cheaper than making it longer.
    if (error == 0 && size > 0 && m_staging) {
        if (fallocate(m_file, 0, 0, off_t(size)) == 0)
            m_reserved = size;
        else if (!IsMissingAbility(errno))
            error = errno;
    }
    if (error)
        Abandon();
    return error;
}

int OutFile::CreateVisible(std::string const &name, Road road)
{
    DiskTime const time;
    Leave();
    Forget();
    m_name = name;
    m_direct = m_staging = road == Road::Direct;
    if (m_staging && !m_stage) {
        void *memory = nullptr;
        if (int const error = posix_memalign(&memory, Page, StageSize))
            return error;
        m_stage = static_cast<unsigned char *>(memory);
    }
    RemoveLeftovers(FolderOf(name));
    int error = CreateUnderFreeName(m_name, O_WRONLY | (m_direct ? O_DIRECT : 0), m_file);
    if (error == EINVAL && m_direct) {
        unlink(m_name.c_str()); // a refused open may have left an empty file
        m_direct = false;
        m_name = name;
        error = CreateUnderFreeName(m_name, O_WRONLY, m_file);
    }
    m_visible = error == 0;
    return OfName(error);
}

void OutFile::SetDirect(bool direct)
{
    int const flags = fcntl(m_file, F_GETFL);
    fcntl(m_file, F_SETFL, direct ? flags | O_DIRECT : flags & ~O_DIRECT);
}

// Both pieces, one after the other, at m_written.
int OutFile::WriteOut(void const *first, std::size_t firstSize, void const *second, std::size_t secondSize)
{
    DiskTime const time;
    iovec pieces[2] = {{const_cast<void *>(first), firstSize}, {const_cast<void *>(second), secondSize}};
    std::uint64_t position = m_written; // which counts only what was written wholly
    while (pieces[0].iov_len + pieces[1].iov_len > 0) {
        int const from = pieces[0].iov_len == 0;
        ssize_t written = pwritev(m_file, pieces + from, 2 - from, off_t(position));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EINVAL && m_direct) { // the file system accepts the flag, but not our alignment
                m_direct = false;
                SetDirect(false);
                continue;
            }
            return errno;
        }
        if (written == 0)
            return EIO;
        // A nearly full file system may write a part that ends unaligned.
        if (m_direct && written % Page != 0) {
            m_direct = false;
            SetDirect(false);
        }
        position += std::uint64_t(written);
        for (iovec &piece : pieces) {
            std::size_t const part = std::min(std::size_t(written), piece.iov_len);
            piece.iov_base = static_cast<char *>(piece.iov_base) + part;
            piece.iov_len -= part;
            written -= ssize_t(part);
        }
    }
    m_written = position;
    return 0;
}

// Everything staged but the last `keep` bytes, which move to the front.
int OutFile::WriteStaged(std::size_t keep)
{
    std::size_t const staged = std::size_t(m_size - m_written) - keep;
    if (int const error = WriteOut(m_stage, staged, nullptr, 0))
        return error;
    std::memmove(m_stage, m_stage + staged, keep);
    return 0;
}

int OutFile::Append(void const *data, std::size_t size)
{
    auto const *bytes = static_cast<unsigned char const *>(data);
    if (!m_staging) {
        int const error = WriteOut(bytes, size, nullptr, 0);
        m_size = m_written;
        return error;
    }
    while (size > 0) {
        std::size_t const staged = std::size_t(m_size - m_written);
        std::size_t const toPage = (Page - staged % Page) % Page;
        if (size >= toPage + Page && (reinterpret_cast<std::uintptr_t>(bytes) + toPage) % Page == 0) {
            // Pages of the caller's memory become pages of the file: no copy.
            std::memcpy(m_stage + staged, bytes, toPage);
            std::size_t const whole = (size - toPage) / Page * Page;
            if (int const error = WriteOut(m_stage, staged + toPage, bytes + toPage, whole))
                return error;
            bytes += toPage + whole;
            size -= toPage + whole;
            m_size = m_written;
            continue;
        }
        std::size_t const part = std::min(size, StageSize - staged);
        std::memcpy(m_stage + staged, bytes, part);
        bytes += part;
        size -= part;
        m_size += part;
        if (staged + part == StageSize) {
            if (int const error = WriteStaged(0))
                return error;
        }
    }
    return 0;
}

int OutFile::AppendZeros(std::uint64_t size)
{
    static constexpr unsigned char zeros[Page] = {};
    while (size > 0) {
        std::size_t const part = std::size_t(std::min<std::uint64_t>(size, sizeof zeros));
        if (int const error = Append(zeros, part))
            return error;
        size -= part;
    }
    return 0;
}

int OutFile::WriteAt(std::uint64_t position, void const *data, std::size_t size)
{
    DiskTime const time;
    auto const *bytes = static_cast<unsigned char const *>(data);
    if (position > m_size) {
        if (int const error = AppendZeros(position - m_size))
            return error;
    }
    if (position < m_written) {
        std::size_t const part = std::size_t(std::min<std::uint64_t>(size, m_written - position));
        if (m_direct)
            SetDirect(false);
        int error = 0;
        for (std::size_t done = 0; done < part && !error;) {
            ssize_t const written = pwrite(m_file, bytes + done, part - done, off_t(position + done));
            if (written > 0)
                done += std::size_t(written);
            else if (written == 0 || errno != EINTR)
                error = written == 0 ? EIO : errno;
        }
        if (m_direct)
            SetDirect(true);
        if (error)
            return error;
        bytes += part;
        position += part;
        size -= part;
    }
    if (size > 0 && position < m_size) {
        std::size_t const part = std::size_t(std::min<std::uint64_t>(size, m_size - position));
        std::memcpy(m_stage + (position - m_written), bytes, part);
        bytes += part;
        size -= part;
    }
    return Append(bytes, size);
}

// Some file systems keep what they could give of a reservation that failed.
void OutFile::GiveBackReserve()
{
    struct stat info;
    if (fstat(m_file, &info) == 0 && ftruncate(m_file, info.st_size) == 0)
        m_reserved = 0;
}

int OutFile::Reserve(std::uint64_t size)
{
    std::uint64_t const wanted = m_size + size, before = m_reserved;
    if (!m_canReserve || wanted <= m_reserved)
        return 0;
    DiskTime const time;
    for (;;) {
        // Past the end, so that the file is never longer than what was written.
        std::uint64_t const from = std::max(m_reserved, m_written);
        std::uint64_t const needed = wanted - from, length = std::max(needed, m_reserveStep);
        if (fallocate(m_file, FALLOC_FL_KEEP_SIZE, off_t(from), off_t(length)) == 0) {
            m_reserved = from + length;
            return 0;
        }
        int const error = errno;
        if (IsMissingAbility(error)) {
            m_canReserve = false;
            return 0;
        }
        if (error == EINTR)
            continue;
        GiveBackReserve();
        if (length == needed) {
            if (before > m_written &&
                fallocate(m_file, FALLOC_FL_KEEP_SIZE, off_t(m_written), off_t(before - m_written)) == 0)
                m_reserved = before;
            return error;
        }
        m_reserveStep /= 8;
    }
}

int OutFile::Flush()
{
    if (!m_staging || m_size == m_written)
        return 0;
    // The last page may be filled up later: it is written now and stays staged.
    std::size_t const rest = std::size_t(m_size - m_written) % Page;
    if (int const error = WriteStaged(rest))
        return error;
    std::uint64_t const position = m_written;
    // Through the cache, as less than a page must be, which WriteOut would take for the end of the direct road.
    bool const direct = std::exchange(m_direct, false);
    if (direct)
        SetDirect(false);
    int const error = WriteOut(m_stage, rest, nullptr, 0);
    m_direct = direct;
    if (direct)
        SetDirect(true);
    m_written = position;
    if (!error)
        m_flushed = m_size;
    return error;
}

int OutFile::CutTo(std::uint64_t size)
{
    if (m_direct) {
        m_direct = false;
        SetDirect(false);
    }
    // Further bytes go through the cache one by one: only used after a failure, when what is in the file already must
    // not need room again.
    if (m_staging && size > std::max(m_written, m_flushed)) {
        if (int const error = WriteOut(m_stage, std::size_t(size - m_written), nullptr, 0))
            return error;
    }
    m_staging = false;
    m_reserved = size;
    m_canReserve = false;
    m_size = m_written = size;
    return ftruncate(m_file, off_t(size)) == 0 ? 0 : errno;
}

bool OutFile::IsLost() const
{
    struct stat info;
    return fstat(m_file, &info) != 0 || info.st_nlink == 0;
}

int OutFile::GiveName()
{
    if (!m_temporary.empty()) {
        int const error =
            UnderFreeName(m_name, [this](std::string const &name) { return MoveWithoutReplacing(m_temporary, name); });
        if (error == 0)
            m_temporary.clear();
        return OfName(error);
    }
    std::string const self = "/proc/self/fd/" + std::to_string(m_file);
    return OfName(UnderFreeName(m_name, [&](std::string const &name) {
        return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
    }));
}

int OutFile::Publish()
{
    DiskTime const time;
    int error = Flush();
    if (error == 0 && m_reserved > m_size && ftruncate(m_file, off_t(m_size)) != 0)
        error = errno;
    if (error == 0)
        error = GiveName();
    if (error) {
        Abandon();
        return error;
    }
    // Some file systems report only here that they had no room.
    error = close(m_file) == 0 ? 0 : errno;
    if (error)
        unlink(m_name.c_str());
    Forget();
    return error;
}

int OutFile::Close()
{
    DiskTime const time;
    if (!IsOpen())
        return 0;
    int error = Flush();
    if (m_reserved > m_size && ftruncate(m_file, off_t(m_size)) != 0 && !error)
        error = errno;
    if (close(m_file) != 0 && !error)
        error = errno;
    Forget();
    return error;
}

void OutFile::Abandon()
{
    if (IsOpen())
        close(m_file);
    if (!m_temporary.empty())
        unlink(m_temporary.c_str());
    if (m_visible)
        unlink(m_name.c_str());
    Forget();
}
