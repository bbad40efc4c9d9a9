// How much memory the program may still take before the system, a limit on its group of processes or one on itself ends
// it. Any thread.
#pragma once

#include <string>

// The share that is left, 0 to 1, of whichever is shortest. What the system can free at once, such as cached files,
// counts as left. 1 where nothing is known. Reads a few small files below `root`, which is "" but for tests: 0.1 to 0.2
// ms.
double MemoryLeft(std::string const &root = {});
