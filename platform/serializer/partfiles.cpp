#include "partfiles.h"

#include "processmark.h"

#include <atomic>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A name is PartBegin, the process' mark, "-", a number, and PartEnd.
constexpr std::string_view PartBegin = ".tov-";
constexpr std::string_view PartEnd = ".part";

// The process' mark in a temporary name; empty for any other name.
std::string MarkIn(std::string_view name)
{
    std::size_t const number = name.rfind('-');
    if (name.size() < PartBegin.size() + PartEnd.size() || !name.starts_with(PartBegin) || !name.ends_with(PartEnd) ||
        number <= PartBegin.size())
        return {};
    return std::string(name.substr(PartBegin.size(), number - PartBegin.size()));
}

bool HasUnnamedFiles(std::string const &folder)
{
    int const file = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (file >= 0)
        close(file);
    return file >= 0;
}

} // namespace

std::string NextPartName(std::string const &folder, std::string const &mark)
{
    static std::atomic<unsigned> s_count;
    std::string name = folder + '/';
    name.append(PartBegin).append(mark).append("-").append(std::to_string(++s_count)).append(PartEnd);
    return name;
}

void RemovePartsOfTheDead(std::string const &folder)
{
    DIR *const entries = opendir(folder.c_str());
    if (!entries)
        return;
    while (dirent const *const entry = readdir(entries)) {
        std::string const mark = MarkIn(entry->d_name);
        if (!mark.empty() && ProcessMark::IsOfTheDead(mark))
            unlinkat(dirfd(entries), entry->d_name, 0);
    }
    closedir(entries);
}

void RemoveLeftovers(std::string const &folder)
{
    if (!HasUnnamedFiles(folder))
        RemovePartsOfTheDead(folder);
}
