// The command line of tovfile.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Options
{
    std::string command;
    std::string format = "png";
    std::string codec; // of an AVI; empty: the first one
    std::string folder = ".";
    bool compress = false; // lossless, of HDF5
    int quality = 0;       // of JPEG, in percent; 0: the serializer's
    double rate = 0;       // of a movie, in frames per second; 0: the recording's
    std::uint64_t first = 0;
    std::uint64_t last = UINT64_MAX;
    std::vector<std::string> files;
};

// False for wrong arguments.
bool ParseOptions(int argc, char **argv, Options &options);

extern char const Usage[];
