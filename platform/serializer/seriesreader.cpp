#include "seriesreader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <tuple>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using SeriesFiles::Row;

constexpr std::string_view FolderEnding = ".series", TableEnding = ".frames.csv", HeaderEnding = ".nhdr";
constexpr std::size_t LongestHead = 16384, LongestLedger = 1 << 20, LongestConfiguration = 16 << 20;

// Absolute, without links; empty where it does not exist.
std::string RealPath(std::string const &path)
{
    std::unique_ptr<char, decltype(&std::free)> const real(realpath(path.c_str(), nullptr), &std::free);
    return real ? real.get() : std::string();
}

// Its folder and its name; "." for the folder of a name alone.
std::pair<std::string, std::string> Parted(std::string const &path)
{
    std::size_t const slash = path.rfind('/');
    if (slash == std::string::npos)
        return {".", path};
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

int OpenPlain(int folder, char const *name, std::uint64_t &size, int &descriptor)
{
    // A pipe must not keep us waiting.
    descriptor = openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat info;
    if (descriptor < 0)
        return errno == ELOOP || errno == ENXIO ? int(SeriesReader::Refused) : errno;
    int const error = fstat(descriptor, &info) != 0 ? errno : S_ISREG(info.st_mode) ? 0 : int(SeriesReader::Refused);
    if (error) {
        close(descriptor);
        descriptor = -1;
    } else {
        size = std::uint64_t(info.st_size);
    }
    return error;
}

int ReadAll(int descriptor, void *bytes, std::uint64_t size)
{
    std::uint64_t offset = 0;
    while (offset < size) {
        ssize_t const read =
            pread(descriptor, static_cast<char *>(bytes) + offset, std::size_t(size - offset), off_t(offset));
        if (read < 0 && errno == EINTR)
            continue;
        if (read <= 0)
            return read < 0 ? errno : int(SeriesReader::OtherSize);
        offset += std::uint64_t(read);
    }
    return 0;
}

// The beginning of a file.
int ReadText(std::string const &path, std::size_t most, std::string &text)
{
    int descriptor = -1;
    std::uint64_t size = 0;
    int error = OpenPlain(AT_FDCWD, path.c_str(), size, descriptor);
    if (error)
        return error;
    text.resize(std::size_t(std::min<std::uint64_t>(size, most)));
    error = ReadAll(descriptor, text.data(), text.size());
    close(descriptor);
    return error;
}

SeriesReader::Line ToLine(LineReader::Got got)
{
    switch (got) {
    case LineReader::Got::Line:
        return SeriesReader::Line::Row;
    case LineReader::Got::TooLong:
        return SeriesReader::Line::Bad;
    case LineReader::Got::Cut:
        return SeriesReader::Line::Cut;
    default:
        return SeriesReader::Line::End;
    }
}

} // namespace

SeriesReader::~SeriesReader()
{
    if (m_aboveFile >= 0)
        close(m_aboveFile);
}

int SeriesReader::Open(std::string const &name)
{
    struct stat info;
    if (stat(name.c_str(), &info) != 0)
        return errno;
    if (S_ISDIR(info.st_mode)) {
        std::string const folder = RealPath(name);
        std::string const own = Parted(folder).second;
        if (!own.ends_with(FolderEnding))
            return NotASeries;
        return OpenFolder(folder, own.substr(0, own.size() - FolderEnding.size()));
    }
    auto const [folder, own] = Parted(name);
    for (std::string_view const ending : {TableEnding, HeaderEnding}) {
        if (own.ends_with(ending) && own.size() > ending.size())
            return OpenFolder(RealPath(folder), own.substr(0, own.size() - ending.size()));
    }
    return OpenBeside(name);
}

int SeriesReader::OpenFolder(std::string const &folder, std::string const &name)
{
    std::tie(m_above, m_name) = Parted(folder);
    if (folder.empty() || m_name.empty() || name.empty())
        return NotASeries;
    m_folder = folder;
    m_name = name;
    if (m_aboveFile >= 0)
        close(m_aboveFile);
    m_aboveFile = open(m_above.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (m_aboveFile < 0)
        return errno;
    m_tableFailure = OpenTable();
    m_headerFailure = OpenHeader();
    Rewind();
    if (!m_tableFailure || m_tableFailure == Begun || !m_headerFailure)
        return 0;
    return m_tableFailure > 0 && m_tableFailure != ENOENT ? m_tableFailure : int(NotASeries);
}

int SeriesReader::OpenTable()
{
    std::string const head = SeriesFiles::TableHead(), path = PathOf(TableEnding.data());
    std::string text;
    m_rows.Take(-1);
    if (int const error = ReadText(path, head.size(), text))
        return error;
    if (text.size() < head.size() && head.starts_with(text))
        return Begun;
    std::uint64_t size = 0;
    int descriptor = -1;
    if (int const error = OpenPlain(AT_FDCWD, path.c_str(), size, descriptor))
        return error;
    m_rows.Take(descriptor);
    std::string_view line;
    if (m_rows.Next(line, false) == LineReader::Got::Line && SeriesFiles::IsTableHead(line))
        return 0;
    int const error = m_rows.Error();
    m_rows.Take(-1);
    return error ? error : int(NotASeries);
}

int SeriesReader::OpenHeader()
{
    std::string text;
    std::size_t listAt = 0;
    m_list.Take(-1);
    if (int const error = ReadText(PathOf(HeaderEnding.data()), LongestHead, text))
        return error == ENOENT ? int(NoShape) : error;
    if (!SeriesFiles::ParseNrrdHead(text, m_shape, m_headerCount, listAt))
        return NotASeries;
    int descriptor = -1;
    std::uint64_t size = 0;
    if (int const error = OpenPlain(AT_FDCWD, PathOf(HeaderEnding.data()).c_str(), size, descriptor))
        return error;
    m_list.Take(descriptor, listAt);
    return 0;
}

// The recording that lists the frame: the nearest one, of those in its folder and above it.
int SeriesReader::OpenBeside(std::string const &frame)
{
    auto const [beside, own] = Parted(frame);
    std::string above = RealPath(beside), path = own;
    for (unsigned level = 0; level <= FoldersAbove && !above.empty(); ++level) {
        for (std::string const &candidate : SeriesFoldersIn(above)) {
            std::string const folder = above + '/' + candidate;
            if (OpenFolder(folder, candidate.substr(0, candidate.size() - FolderEnding.size())) == 0 && Lists(path))
                return 0;
        }
        if (above == "/")
            break;
        auto const [higher, name] = Parted(above);
        path.insert(0, name + '/');
        above = higher;
    }
    return NotASeries;
}

// Whether a row names the file, whose path begins at Above().
bool SeriesReader::Lists(std::string const &path)
{
    Row row;
    bool found = false;
    for (Line line; !found && (line = Next(row)) != Line::End;)
        found = line == Line::Row && PathInside(row.file) == path;
    Rewind();
    return found;
}

void SeriesReader::Rewind()
{
    m_rows.Rewind();
    m_list.Rewind();
    m_counted = 0;
    if (std::string_view head; m_rows.IsOpen())
        m_rows.Next(head, false);
}

SeriesReader::Line SeriesReader::Next(Row &row)
{
    if (m_tableFailure) { // the header alone: nothing is known of the frames but their names
        row = {};
        Line const line = NextOfHeader(row.file);
        row.number = m_counted;
        m_counted += line == Line::Row;
        return line;
    }
    std::string_view text;
    Line line;
    do // of gaps between recordings, which are no rows
        line = ToLine(m_rows.Next(text, true));
    while (line == Line::Row && text.starts_with(SeriesFiles::NoRow));
    return line == Line::Row && !SeriesFiles::Decode(text, row) ? Line::Bad : line;
}

SeriesReader::Line SeriesReader::NextOfHeader(std::string &file)
{
    std::string_view text;
    Line line = ToLine(m_list.Next(text, false));
    if (line == Line::Row && (text.empty() || text.find('\0') != std::string_view::npos))
        line = Line::Bad;
    file = text;
    return line;
}

std::string SeriesReader::PathInside(std::string const &file) const
{
    if (file.empty() || file.front() == '/' || file.find('\0') != std::string::npos)
        return {};
    std::vector<std::string> parts{Parted(m_folder).second};
    for (std::size_t at = 0; at <= file.size();) {
        std::size_t const end = std::min(file.find('/', at), file.size());
        std::string const part = file.substr(at, end - at);
        at = end + 1;
        if (part == "..") {
            if (parts.empty())
                return {};
            parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
    }
    std::string path;
    for (std::string const &part : parts)
        path.append(path.empty() ? "" : "/").append(part);
    return path;
}

// From folder to folder, so that no link in between leads elsewhere.
int SeriesReader::OpenFrame(std::string const &file, int &descriptor, std::uint64_t &size) const
{
    std::string const path = PathInside(file);
    if (path.empty())
        return Refused;
    int folder = m_aboveFile, error = 0;
    std::size_t at = 0;
    for (std::size_t end = path.find('/'); !error && end != std::string::npos; end = path.find('/', at)) {
        std::string const part = path.substr(at, end - at);
        at = end + 1;
        int const next = openat(folder, part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        struct stat info;
        if (next < 0) {
            error = errno;
            if (fstatat(folder, part.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode))
                error = Refused;
        }
        if (folder != m_aboveFile)
            close(folder);
        folder = next;
    }
    if (!error)
        error = OpenPlain(folder, path.c_str() + at, size, descriptor);
    if (folder != m_aboveFile && folder >= 0)
        close(folder);
    return error;
}

int SeriesReader::Look(std::string const &file, std::uint64_t &size) const
{
    int descriptor = -1;
    if (int const error = OpenFrame(file, descriptor, size))
        return error;
    close(descriptor);
    return 0;
}

int SeriesReader::Read(Row const &row, void *pixels) const
{
    if (m_headerFailure)
        return NoShape;
    int descriptor = -1;
    std::uint64_t size = 0;
    int error = OpenFrame(row.file, descriptor, size);
    if (error)
        return error;
    error = size != FrameBytes() ? int(OtherSize) : ReadAll(descriptor, pixels, size);
    close(descriptor);
    return error;
}

int SeriesReader::ReadConfiguration(std::string &text) const
{
    int const error = ReadText(PathOf(".tcfg"), LongestConfiguration + 1, text);
    return !error && text.size() > LongestConfiguration ? EFBIG : error;
}

int SeriesReader::ReadLedger(std::vector<std::pair<std::string, std::int64_t>> &entries) const
{
    std::string text;
    entries.clear();
    if (int const error = ReadText(PathOf(".ledger.txt"), LongestLedger, text))
        return error;
    bool ours = false;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        std::string_view const line(text.data() + at, end - at);
        at = end + 1;
        std::size_t const equals = line.find('=');
        if (line.starts_with('[')) {
            ours = line == "[Ledger]";
        } else if (ours && equals != std::string_view::npos) {
            std::int64_t value = 0;
            auto const [last, error] = std::from_chars(line.data() + equals + 1, line.data() + line.size(), value);
            if (error == std::errc() && last == line.data() + line.size())
                entries.emplace_back(line.substr(0, equals), value);
        }
    }
    return 0;
}

std::vector<std::string> SeriesFoldersIn(std::string const &folder)
{
    std::vector<std::string> names;
    DIR *const directory = opendir(folder.c_str());
    while (dirent const *entry = directory ? readdir(directory) : nullptr) {
        if (std::string_view(entry->d_name).ends_with(FolderEnding))
            names.emplace_back(entry->d_name);
    }
    if (directory)
        closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}
