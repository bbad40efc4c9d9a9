#include "processmark.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>

#include <unistd.h>

namespace {

std::string Namespace(char const *link)
{
    char text[64];
    ssize_t const length = readlink(link, text, sizeof text);
    return {text, std::size_t(std::max<ssize_t>(length, 0))};
}

// Processes that see the same numbers and start times: one run of one kernel, one process name space, one clock. Empty
// when it is not known.
std::string Neighbourhood()
{
    std::string boot;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> boot;
    std::string const processes = Namespace("/proc/self/ns/pid");
    if (boot.empty() || processes.empty())
        return {};
    constexpr std::uint64_t FnvStart = 14695981039346656037u, FnvPrime = 1099511628211u;
    std::uint64_t hash = FnvStart;
    for (char const c : boot + processes + Namespace("/proc/self/ns/time"))
        hash = (hash ^ std::uint8_t(c)) * FnvPrime;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

// In the kernel's ticks; empty when it is not known.
std::string StartOf(std::string const &process)
{
    std::ifstream file("/proc/" + process + "/stat");
    std::string const text{std::istreambuf_iterator<char>(file), {}};
    // The program's name may hold anything; after its bracket the start time is the 20th field.
    std::size_t at = text.rfind(')');
    for (int field = 0; field < 20 && at != std::string::npos; ++field)
        at = text.find(' ', at + 1);
    if (at == std::string::npos)
        return {};
    return text.substr(at + 1, text.find(' ', at + 1) - at - 1);
}

} // namespace

std::string ProcessMark::Own()
{
    std::string const process = std::to_string(getpid());
    return Neighbourhood() + '-' + process + '-' + StartOf(process);
}

bool ProcessMark::IsOfTheDead(std::string const &mark)
{
    std::size_t const first = mark.find('-'), second = mark.find('-', first + 1);
    if (first == 0 || second == std::string::npos || second + 1 == mark.size() ||
        mark.substr(0, first) != Neighbourhood())
        return false;
    std::string const process = mark.substr(first + 1, second - first - 1), start = mark.substr(second + 1);
    int number = 0;
    auto const [end, error] = std::from_chars(process.data(), process.data() + process.size(), number);
    if (error != std::errc() || end != process.data() + process.size() || number <= 0)
        return false;
    if (kill(number, 0) != 0 && errno == ESRCH)
        return true;
    std::string const now = StartOf(process);
    return !now.empty() && now != start;
}
