// How much room there is for recorded files.
#pragma once

#include <QString>

#include <cstdint>

// Bytes that are left for a file of that path, whose folders need not exist yet; -1 where the system does not say. The
// folder may be on a slow server. Any thread.
std::int64_t BytesLeftFor(QString const &path);
