// What tovfakecam --list shows: the models, and what can go wrong with them.
#pragma once

#include <string>

// Throws std::runtime_error.
std::string ListWireModels();
