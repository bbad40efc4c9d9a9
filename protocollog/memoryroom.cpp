#include "memoryroom.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// The beginning of a small file, without the heap.
class SmallFile
{
public:
    explicit SmallFile(std::string const &path)
    {
        int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0)
            return;
        ssize_t const count = read(file, m_bytes.data(), m_bytes.size() - 1);
        close(file);
        m_size = count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    std::string_view Text() const
    {
        return {m_bytes.data(), m_size};
    }
    // The number after the word that begins a line; without a word, at the file's beginning. None for "max".
    std::optional<double> Number(std::string_view word = {}) const
    {
        std::string_view const text = Text();
        std::size_t at = 0;
        while (!word.empty() && text.substr(at, word.size()) != word) {
            at = text.find('\n', at);
            if (at == std::string_view::npos)
                return std::nullopt;
            ++at;
        }
        char const *const begin = m_bytes.data() + at + word.size();
        char *end;
        double const value = std::strtod(begin, &end);
        return end == begin ? std::nullopt : std::optional(value);
    }

private:
    std::array<char, 8192> m_bytes{}; // ends with a zero
    std::size_t m_size = 0;
};

double Share(double left, double all)
{
    return all > 0 ? std::clamp(left / all, 0.0, 1.0) : 1.0;
}

double LeftToSystem(std::string const &root)
{
    SmallFile const info(root + "/proc/meminfo");
    auto const all = info.Number("MemTotal:"), left = info.Number("MemAvailable:");
    return all && left ? Share(*left, *all) : 1.0;
}

// One group of processes. Names of the files and of the pages that can be given back differ between versions.
double LeftToGroup(std::string const &folder, char const *limitName, char const *usedName, char const *prefix)
{
    auto const limit = SmallFile(folder + limitName).Number(), used = SmallFile(folder + usedName).Number();
    constexpr double NoLimit = 1e15;
    if (!limit || !used || *limit > NoLimit)
        return 1.0;
    SmallFile const stat(folder + "/memory.stat");
    double const cached = stat.Number(std::string(prefix) + "inactive_file ").value_or(0) +
                          stat.Number(std::string(prefix) + "active_file ").value_or(0);
    return Share(*limit - *used + cached, *limit);
}

// Every group is under the limits of those above it as well.
double LeftToGroups(std::string const &root)
{
    double least = 1.0;
    SmallFile const groups(root + "/proc/self/cgroup");
    std::string_view text = groups.Text();
    while (!text.empty()) {
        std::string_view const line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        // number:controllers:path; version 2 has no controllers.
        std::size_t const first = line.find(':'), second = line.find(':', first + 1);
        if (second == std::string_view::npos)
            continue;
        std::string_view const controllers = line.substr(first + 1, second - first - 1);
        bool const unified = controllers.empty();
        if (!unified && controllers.find("memory") == std::string_view::npos)
            continue;
        std::string const mount = root + (unified ? "/sys/fs/cgroup" : "/sys/fs/cgroup/memory");
        std::string path(line.substr(second + 1));
        for (;;) {
            if (path == "/" || path.find('/') == std::string::npos)
                path.clear();
            least = std::min(least, unified ? LeftToGroup(mount + path, "/memory.max", "/memory.current", "")
                                            : LeftToGroup(mount + path, "/memory.limit_in_bytes",
                                                          "/memory.usage_in_bytes", "total_"));
            if (path.empty())
                break;
            path.erase(path.rfind('/'));
        }
    }
    return least;
}

// Limits on the process itself count what it has mapped, whether it uses it or not.
double LeftToProcess(std::string const &root)
{
    struct
    {
        int resource;
        char const *word;
    } const limits[] = {{RLIMIT_AS, "VmSize:"}, {RLIMIT_DATA, "VmData:"}};
    double least = 1.0;
    for (auto const &one : limits) {
        rlimit limit;
        if (getrlimit(static_cast<decltype(RLIMIT_AS)>(one.resource), &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
            continue;
        auto const all = static_cast<double>(limit.rlim_cur);
        if (auto const used = SmallFile(root + "/proc/self/status").Number(one.word)) // in KB
            least = std::min(least, Share(all - *used * 1024, all));
    }
    return least;
}

} // namespace

double MemoryLeft(std::string const &root)
{
    return std::min({LeftToSystem(root), LeftToGroups(root), LeftToProcess(root)});
}
