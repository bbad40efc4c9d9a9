#include "framefilereader.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace FrameFormat;

FrameFileReader::~FrameFileReader()
{
    if (m_file >= 0)
        close(m_file);
}

int FrameFileReader::Open(std::string const &name)
{
    if (m_file >= 0)
        close(m_file);
    m_frames.clear();
    m_lostBytes = 0;
    m_isMovie = m_isComplete = false;
    m_file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (m_file < 0 || fstat(m_file, &info) != 0)
        return errno;
    m_size = std::uint64_t(std::max<off_t>(info.st_size, 0));

    std::uint8_t bytes[MovieHeader::Size];
    if (Frame frame; ReadFrame(0, Kind::Image, frame)) {
        m_frames.push_back(frame);
        m_isComplete = true;
        return 0;
    }
    if (int const error = ReadAt(0, bytes, sizeof bytes); error || !Decode(bytes, m_movie))
        return error > 0 ? error : NotAFrameFile;
    m_isMovie = true;
    m_isComplete = ReadIndex();
    if (!m_isComplete)
        Scan();
    return 0;
}

// -1 past the file's end.
int FrameFileReader::ReadAt(std::uint64_t offset, void *bytes, std::uint64_t size) const
{
    if (offset > m_size || size > m_size - offset)
        return NotAFrameFile;
    for (auto *at = static_cast<char *>(bytes); size > 0;) {
        ssize_t const read = pread(m_file, at, std::size_t(size), off_t(offset));
        if (read < 0 && errno == EINTR)
            continue;
        if (read <= 0)
            return read < 0 ? errno : EIO;
        at += read;
        offset += std::uint64_t(read);
        size -= std::uint64_t(read);
    }
    return 0;
}

bool FrameFileReader::ReadFrame(std::uint64_t offset, Kind kind, Frame &frame) const
{
    std::uint8_t bytes[FrameHeader::Size];
    frame.offset = offset;
    return ReadAt(offset, bytes, sizeof bytes) == 0 && Decode(bytes, kind, frame.header) &&
           m_size - offset >= frame.header.headerBytes + frame.header.pixelBytes;
}

bool FrameFileReader::ReadIndex()
{
    std::uint64_t const offset = m_movie.indexOffset, bytes = IndexBytes(std::min(m_movie.frameCount, m_size));
    if (offset == 0 || offset >= m_size || bytes > m_size - offset)
        return false;
    std::vector<std::uint8_t> index(bytes);
    std::vector<std::uint64_t> offsets;
    if (ReadAt(offset, index.data(), bytes) != 0 || !DecodeIndex(index.data(), index.size(), offsets))
        return false;
    for (std::uint64_t const at : offsets) {
        Frame frame;
        if (!ReadFrame(at, Kind::MovieFrame, frame) || frame.header.number != m_frames.size()) {
            m_frames.clear();
            return false;
        }
        m_frames.push_back(frame);
    }
    return true;
}

// From record to record, and where there is none, on to the next.
void FrameFileReader::Scan()
{
    std::uint64_t offset = m_movie.headerBytes;
    while (offset < m_size) {
        Frame frame;
        bool const known = m_movie.indexOffset != 0 && offset == m_movie.indexOffset;
        if (known)
            break;
        if (ReadFrame(offset, Kind::MovieFrame, frame) &&
            (m_frames.empty() || frame.header.number > m_frames.back().header.number)) {
            m_frames.push_back(frame);
            offset += std::min(frame.header.recordBytes, m_size - offset);
            continue;
        }
        std::uint64_t const next = FindRecord(offset + m_movie.alignment);
        m_lostBytes += next - offset;
        offset = next;
    }
}

// Where the next header of a frame is, from `offset` on; the file's end if there is none.
std::uint64_t FrameFileReader::FindRecord(std::uint64_t offset) const
{
    constexpr std::uint64_t Window = 1 << 20;
    std::vector<std::uint8_t> window(std::min(Window, m_size - std::min(offset, m_size)) + FrameHeader::Size);
    while (offset < m_size && m_size - offset >= FrameHeader::Size) {
        std::uint64_t const size = std::min<std::uint64_t>(window.size(), m_size - offset);
        if (ReadAt(offset, window.data(), size) != 0)
            break;
        FrameHeader header;
        std::uint64_t at = 0;
        for (; at + FrameHeader::Size <= size; at += m_movie.alignment) {
            if (window[at] == 'T' && Decode(window.data() + at, Kind::MovieFrame, header))
                return offset + at;
        }
        offset += at;
    }
    return m_size;
}

int FrameFileReader::Read(Frame const &frame, void *pixels) const
{
    if (int const error = ReadAt(frame.offset + frame.header.headerBytes, pixels, frame.header.pixelBytes))
        return error;
    return libdeflate_crc32(0, pixels, std::size_t(frame.header.pixelBytes)) == frame.header.pixelCheck ? 0 : Damaged;
}
