#include "descriptionsource.h"

#include "genicam/xmlcheck.h"
#include "gvcpclient.h"
#include "protocol/gigevision.h"

#include "tovcamera.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <strings.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

// The parts of a zip archive, little-endian: offsets of their fields, and their sizes without names and comments.
struct ZipTail
{
    static constexpr std::size_t Entries = 10, DirectorySize = 12, Directory = 16, Size = 22;
};
struct ZipEntry // of the directory
{
    static constexpr std::size_t PackedSize = 20, UnpackedSize = 24, NameLength = 28, ExtraLength = 30,
                                 CommentLength = 32, File = 42, Size = 46;
};
struct ZipFile // what precedes a file's bytes
{
    static constexpr std::size_t NameLength = 26, ExtraLength = 28, Size = 30;
};
constexpr std::uint8_t ZipTailMark[] = {'P', 'K', 5, 6};
constexpr std::uint32_t ZipEntryMark = 0x02014B50, ZipFileMark = 0x04034B50;
constexpr std::size_t ZipTailReach = 1024;      // from the end of the archive; a comment may follow the tail
constexpr std::size_t ZipDirectoryLimit = 4096; // of an archive with one description

// The file that an entry of the directory names lies in the archive and is not too large.
bool IsFileSane(GvcpClient &camera, std::uint32_t archive, std::size_t size, std::uint8_t const *entry)
{
    std::size_t const packed = LoadLittle32(entry + ZipEntry::PackedSize);
    std::size_t const unpacked = LoadLittle32(entry + ZipEntry::UnpackedSize);
    std::size_t const offset = LoadLittle32(entry + ZipEntry::File);
    Bytes file;
    if (unpacked > GenicamXmlLimit || offset + ZipFile::Size + packed > size ||
        !camera.ReadMemory(static_cast<std::uint32_t>(archive + offset), ZipFile::Size, file) ||
        LoadLittle32(file.data()) != ZipFileMark)
        return false;
    std::size_t const names =
        std::size_t{LoadLittle16(&file[ZipFile::NameLength])} + LoadLittle16(&file[ZipFile::ExtraLength]);
    return offset + ZipFile::Size + names + packed <= size;
}

// The part of the archive that Aravis follows: its directory, and the first file in it, which it unpacks.
bool IsArchiveSane(GvcpClient &camera, std::uint32_t address, std::size_t size)
{
    if (size < ZipTail::Size)
        return false;
    std::size_t const reach = std::min(size, ZipTailReach);
    Bytes end, entries;
    if (!camera.ReadMemory(static_cast<std::uint32_t>(address + size - reach), reach, end))
        return false;
    auto const tail = std::find_end(end.begin(), end.end(), std::begin(ZipTailMark), std::end(ZipTailMark));
    if (static_cast<std::size_t>(end.end() - tail) < ZipTail::Size)
        return false;
    std::size_t const directorySize = LoadLittle32(&tail[ZipTail::DirectorySize]);
    std::size_t const directory = LoadLittle32(&tail[ZipTail::Directory]);
    if (directory + directorySize > size || directorySize < ZipEntry::Size || directorySize > ZipDirectoryLimit ||
        !camera.ReadMemory(static_cast<std::uint32_t>(address + directory), directorySize, entries))
        return false;
    // Every entry of the directory lies within it.
    std::size_t const count = LoadLittle16(&tail[ZipTail::Entries]);
    std::size_t at = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (at + ZipEntry::Size > entries.size())
            return false;
        std::uint8_t const *const entry = &entries[at];
        if (LoadLittle32(entry) != ZipEntryMark || !IsFileSane(camera, address, size, entry))
            return false;
        at += ZipEntry::Size + LoadLittle16(entry + ZipEntry::NameLength) +
              LoadLittle16(entry + ZipEntry::ExtraLength) + LoadLittle16(entry + ZipEntry::CommentLength);
    }
    return count > 0;
}

enum class Source { None, Sane, Hostile };

// "Local:name;address;size", numbers in hexadecimal.
Source CheckUrl(GvcpClient &camera, std::string const &url)
{
    std::size_t const scheme = url.find(':');
    if (scheme == std::string::npos)
        return Source::None;
    // A camera has no say over files of this host or of another server.
    if (strncasecmp(url.c_str(), "local", std::max<std::size_t>(scheme, 5)) != 0)
        return Source::Hostile;
    std::size_t const first = url.find(';');
    std::size_t const second = first == std::string::npos ? first : url.find(';', first + 1);
    if (second == std::string::npos)
        return Source::Hostile;
    unsigned long long const address = std::strtoull(url.c_str() + first + 1, nullptr, 16);
    unsigned long long const size = std::strtoull(url.c_str() + second + 1, nullptr, 16);
    if (size == 0 || size > GenicamXmlLimit || address + size > 0x100000000ull)
        return Source::Hostile;
    std::string_view const name(url.data() + scheme + 1, first - scheme - 1);
    bool const zipped = name.size() >= 4 && strncasecmp(name.data() + name.size() - 4, ".zip", 4) == 0;
    if (zipped && !IsArchiveSane(camera, static_cast<std::uint32_t>(address), size))
        return Source::Hostile;
    return Source::Sane;
}

} // namespace

std::int32_t CheckDescriptionSource(GvcpClient &camera)
{
    bool sane = false;
    for (std::uint32_t const address : {gvcp::bootstrap::FirstUrl, gvcp::bootstrap::SecondUrl}) {
        Bytes bytes;
        if (!camera.ReadMemory(address, gvcp::bootstrap::UrlSize, bytes))
            continue;
        Source const source = CheckUrl(camera, GvcpText(bytes.data(), bytes.size()));
        if (source == Source::Hostile)
            return TOV_CAM_ERR_GENICAM_TREE;
        sane = sane || source == Source::Sane;
    }
    return sane ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_TREE;
}
