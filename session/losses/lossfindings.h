// Losses in words: what was lost at each place between two moments, and what mends it.
#pragma once

#include "lossplace.h"

#include "tovlosses.h"

#include <QString>

#include <cstdint>
#include <vector>

// What is known at one moment. Counts only rise.
struct LossCounts
{
    LossTally frames;
    TovCam::StreamLosses stream;
    bool hasStream = false;     // `stream` is known
    std::int64_t unwritten = 0; // of those that the disk has cost: it refused them
};

struct LossFinding
{
    LossPlace place = LossPlace::Unknown;
    std::int64_t frames = 0;  // missing or incomplete; 0 where all packets came again
    std::int64_t packets = 0; // 0 where that is not known
    QString what;             // a sentence without its full stop
    QString mending;          // a line for a shell, or a sentence; empty where nothing helps
    bool isCommand = false;
};

// In the order of the way from the camera to the disk. Any thread.
std::vector<LossFinding> ExplainLosses(LossCounts const &before, LossCounts const &after);
