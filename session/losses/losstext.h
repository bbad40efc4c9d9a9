// Findings as lines to read. Any thread.
#pragma once

#include "lossfindings.h"

#include <QString>

// "1,204 packets were dropped by the socket ...: 3 frames are missing: sudo sysctl -w ..."
QString LossLine(LossFinding const &finding);
// A paragraph for each, the mending in a line of its own; says so where there are none.
QString LossReport(std::vector<LossFinding> const &findings);
