// Counts the frames of an HDF5 file, which tovfile does not look into otherwise.
#pragma once

#include "moviecount.h"

#include <string>

// Those that every dataset has, in a file that was left growing, too. One that is not ours cannot be read.
MovieCount CountHdf5Frames(std::string const &name);
