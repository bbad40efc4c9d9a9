#include "ziparchive.h"

#include "protocol/byteorder.h"

#include <algorithm>
#include <array>
#include <zlib.h>

namespace {

using Bytes = std::span<std::uint8_t const>;

// The parts of an archive, little-endian: offsets of their fields, and their sizes without names and comments.
struct Tail
{
    static constexpr std::size_t Entries = 10, DirectorySize = 12, Directory = 16, Size = 22;
};
struct Entry // of the directory
{
    static constexpr std::size_t Flags = 8, Method = 10, Crc = 16, PackedSize = 20, UnpackedSize = 24, NameLength = 28,
                                 ExtraLength = 30, CommentLength = 32, File = 42, Size = 46;
};
struct File // what precedes a file's bytes
{
    static constexpr std::size_t NameLength = 26, ExtraLength = 28, Size = 30;
};
constexpr std::uint8_t FileMark[] = {'P', 'K', 3, 4}, TailMark[] = {'P', 'K', 5, 6};
constexpr std::uint32_t EntryMark = 0x02014B50;
constexpr std::size_t TailReach = Tail::Size + 0xFFFF; // from the end: a comment may follow the tail
constexpr std::uint16_t Encrypted = 0x1;               // a flag
constexpr std::uint16_t Stored = 0, Deflated = 8;      // methods

bool Fits(Bytes bytes, std::size_t offset, std::size_t size)
{
    return offset <= bytes.size() && size <= bytes.size() - offset;
}

// The directory's first entry that is a file, with its name.
std::optional<Bytes> FindFirstFile(Bytes archive)
{
    Bytes const end = archive.last(std::min(archive.size(), TailReach));
    auto const mark = std::find_end(end.begin(), end.end(), std::begin(TailMark), std::end(TailMark));
    Bytes const tail = end.subspan(static_cast<std::size_t>(mark - end.begin()));
    if (tail.size() < Tail::Size)
        return std::nullopt;
    std::size_t const offset = LoadLittle32(&tail[Tail::Directory]), size = LoadLittle32(&tail[Tail::DirectorySize]);
    if (!Fits(archive, offset, size))
        return std::nullopt;
    Bytes directory = archive.subspan(offset, size);
    for (std::uint16_t left = LoadLittle16(&tail[Tail::Entries]); left > 0; --left) {
        if (directory.size() < Entry::Size || LoadLittle32(directory.data()) != EntryMark)
            return std::nullopt;
        std::size_t const name = LoadLittle16(&directory[Entry::NameLength]);
        std::size_t const whole = Entry::Size + name + LoadLittle16(&directory[Entry::ExtraLength]) +
                                  LoadLittle16(&directory[Entry::CommentLength]);
        if (whole > directory.size())
            return std::nullopt;
        bool const isFolder = name > 0 && directory[Entry::Size + name - 1] == '/';
        if (!isFolder)
            return directory.first(whole);
        directory = directory.subspan(whole);
    }
    return std::nullopt;
}

// `size` is what the archive says; room is taken as the bytes come.
bool Inflate(Bytes packed, std::size_t size, std::string &out)
{
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) // negative: without a header of zlib's own
        return false;
    stream.next_in = const_cast<Bytef *>(packed.data());
    stream.avail_in = static_cast<uInt>(packed.size());
    std::array<char, 64 << 10> part;
    int result = Z_OK;
    while (result == Z_OK && out.size() <= size) {
        stream.next_out = reinterpret_cast<Bytef *>(part.data());
        stream.avail_out = static_cast<uInt>(part.size());
        result = inflate(&stream, Z_NO_FLUSH);
        out.append(part.data(), part.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    return result == Z_STREAM_END && out.size() == size;
}

} // namespace

bool IsZipArchive(Bytes bytes)
{
    return bytes.size() >= std::size(FileMark) && std::equal(std::begin(FileMark), std::end(FileMark), bytes.begin());
}

std::optional<std::string> UnpackFirstFile(Bytes archive, std::size_t limit)
{
    std::optional<Bytes> const entry = FindFirstFile(archive);
    if (!entry)
        return std::nullopt;
    std::uint8_t const *const fields = entry->data();
    std::size_t const packedSize = LoadLittle32(fields + Entry::PackedSize), at = LoadLittle32(fields + Entry::File);
    std::size_t const size = LoadLittle32(fields + Entry::UnpackedSize);
    std::uint16_t const method = LoadLittle16(fields + Entry::Method);
    if (size > limit || (LoadLittle16(fields + Entry::Flags) & Encrypted) != 0 || !Fits(archive, at, File::Size) ||
        !IsZipArchive(archive.subspan(at)))
        return std::nullopt;
    std::size_t const start = at + File::Size + LoadLittle16(&archive[at + File::NameLength]) +
                              LoadLittle16(&archive[at + File::ExtraLength]);
    if (!Fits(archive, start, packedSize))
        return std::nullopt;
    Bytes const packed = archive.subspan(start, packedSize);
    std::string file;
    if (method == Stored && packedSize == size)
        file.assign(packed.begin(), packed.end());
    else if (method != Deflated || !Inflate(packed, size, file))
        return std::nullopt;
    if (crc32_z(0, reinterpret_cast<Bytef const *>(file.data()), file.size()) != LoadLittle32(fields + Entry::Crc))
        return std::nullopt;
    return file;
}
