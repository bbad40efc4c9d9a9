// File systems that only the test's process sees.
#pragma once

#include <fstream>
#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

// Gives this process a mount namespace of its own, which has to happen while it has one thread. False where it is not
// allowed.
inline bool EnterOwnMounts()
{
    std::string const user = std::to_string(getuid()), group = std::to_string(getgid());
    auto const write = [](char const *path, std::string const &text) {
        return bool(std::ofstream(path) << text << std::flush);
    };
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && write("/proc/self/setgroups", "deny") &&
           write("/proc/self/uid_map", "0 " + user + " 1") && write("/proc/self/gid_map", "0 " + group + " 1");
}
