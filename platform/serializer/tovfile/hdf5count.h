// Counts the frames of an HDF5 file, which tovfile does not look into otherwise.
#pragma once

#include <cstdint>
#include <string>

// Those that a reader finds, in a file that was left growing, too. -1 for a file that is not one of ours.
std::int64_t CountHdf5Frames(std::string const &name);
