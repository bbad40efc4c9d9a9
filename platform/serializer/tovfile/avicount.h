// How many frames there are in an AVI file.
#pragma once

#include "moviecount.h"

#include <string>

// By reading it, since one that was cut off does not say it.
MovieCount CountAviFrames(std::string const &name);
