#include "filenames.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool IsTaken(std::string const &name)
{
    struct stat info;
    return lstat(name.c_str(), &info) == 0;
}

std::string Numbered(std::string const &name, unsigned number)
{
    std::size_t const base = name.rfind('/') + 1; // 0 when there is none
    std::size_t const dot = name.rfind('.');
    std::size_t const end = dot == std::string::npos || dot <= base ? name.size() : dot;
    return name.substr(0, end) + "_" + std::to_string(number) + name.substr(end);
}

// A free number, found by few look-ups however many are taken: doubling, then halving between one that is taken and one
// that is not. Numbers that became free in between stay so.
unsigned FreeNumber(std::string const &name)
{
    unsigned taken = 0, open = 1;
    while (open < 1u << 30 && IsTaken(Numbered(name, open))) {
        taken = open;
        open *= 2;
    }
    while (open - taken > 1) {
        unsigned const middle = taken + (open - taken) / 2;
        (IsTaken(Numbered(name, middle)) ? taken : open) = middle;
    }
    return open;
}

} // namespace

std::string FolderOf(std::string const &name)
{
    std::size_t const slash = name.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : name.substr(0, slash);
}

int OfName(int error)
{
    return error == EINVAL ? EILSEQ : error;
}

int MakeFolders(std::string const &folder)
{
    if (mkdir(folder.c_str(), 0777) == 0 || errno == EEXIST)
        return 0;
    if (errno != ENOENT || folder == "." || folder == "/")
        return OfName(errno);
    if (int const error = MakeFolders(FolderOf(folder)))
        return error;
    return mkdir(folder.c_str(), 0777) == 0 || errno == EEXIST ? 0 : OfName(errno);
}

int UnderFreeName(std::string &name, std::function<int(std::string const &)> const &attempt)
{
    int error = attempt(name);
    if (error != EEXIST)
        return error;
    std::string candidate;
    for (unsigned number = FreeNumber(name); error == EEXIST; ++number) {
        candidate = Numbered(name, number);
        error = attempt(candidate);
    }
    name = candidate;
    return error;
}

int CreateUnderFreeName(std::string &name, int flags, int &file)
{
    auto const create = [&](std::string const &candidate) {
        file = open(candidate.c_str(), flags | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        return file >= 0 ? 0 : errno;
    };
    int const error = UnderFreeName(name, create);
    if (error != ENOENT)
        return error;
    if (int const failure = MakeFolders(FolderOf(name)))
        return failure;
    return UnderFreeName(name, create);
}

int MoveWithoutReplacing(std::string const &from, std::string const &to)
{
    // Some file systems support neither of the first two; there an empty file takes the name, which the move replaces.
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    if (link(from.c_str(), to.c_str()) == 0) {
        unlink(from.c_str());
        return 0;
    }
    if (errno == EEXIST || errno == ENOENT)
        return errno;
    int const placeholder = open(to.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
    if (placeholder < 0)
        return errno;
    close(placeholder);
    if (rename(from.c_str(), to.c_str()) == 0)
        return 0;
    int const error = errno;
    unlink(to.c_str());
    return error;
}
