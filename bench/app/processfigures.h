// What a process takes of the computer: its own figures, from /proc.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <malloc.h>

struct ProcessFigures
{
    // Kilobytes that are resident: the process' own, pages of files (code, fonts), shared memory.
    std::size_t own = 0, ofFiles = 0, shared = 0;
    std::size_t inUse = 0;              // kilobytes of the heap: of all arenas and of mappings; the rest is its reserve
    std::size_t threads = 0, files = 0; // file descriptors
};

inline ProcessFigures LookAtProcess()
{
    ProcessFigures figures;
    struct
    {
        char const *key;
        std::size_t *value;
    } const entries[] = {{"RssAnon:", &figures.own},
                         {"RssFile:", &figures.ofFiles},
                         {"RssShmem:", &figures.shared},
                         {"Threads:", &figures.threads}};
    if (std::FILE *const status = std::fopen("/proc/self/status", "r")) {
        for (char line[256]; std::fgets(line, sizeof line, status);) {
            for (auto const &entry : entries) {
                if (std::strncmp(line, entry.key, std::strlen(entry.key)) == 0)
                    std::sscanf(line + std::strlen(entry.key), "%zu", entry.value);
            }
        }
        std::fclose(status);
    }
    struct mallinfo2 const heap = mallinfo2();
    figures.inUse = (heap.uordblks + heap.hblkhd) / 1024;
    if (DIR *const folder = opendir("/proc/self/fd")) {
        while (dirent const *const entry = readdir(folder))
            figures.files += entry->d_name[0] != '.';
        closedir(folder);
        --figures.files; // the folder's own
    }
    return figures;
}
