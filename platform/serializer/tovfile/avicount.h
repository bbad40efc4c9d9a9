// How many frames there are in an AVI file.
#pragma once

#include <cstdint>
#include <string>

// By reading it, since one that was cut off does not say it. -1: not a movie that can be read.
std::int64_t CountAviFrames(std::string const &name);
