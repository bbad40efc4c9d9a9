// Which place has cost a frame, by what the stream knows of the losses around it.
#pragma once

#include "lossplace.h"

#include "tovlosses.h"

#include <cstdint>

namespace TovCam {
class Buffer;
class Stream;
} // namespace TovCam

// What is known when a frame arrives.
struct LossEvidence
{
    bool isKnown = false; // false: nothing else is
    TovCam::FrameLosses frame;
    // Of the stream since the evidence before.
    std::uint64_t adapterNoRoom = 0, adapterDropped = 0, linkLosses = 0;
    std::uint64_t socketRoom = 0, wantedRoom = 0; // bytes, as in StreamLosses
};

// Of a frame that lacks packets, or is no picture.
LossPlace PlaceOfIncomplete(LossEvidence const &evidence);

// Of frames that are missing before the one that arrives. Some of them may have found no buffer.
struct MissingPlaces
{
    std::uint64_t unbuffered = 0;           // in the receiver
    LossPlace skipped = LossPlace::Unknown; // of the others
};
MissingPlaces PlacesOfMissing(LossEvidence const &evidence, std::uint64_t frames);

// Gathers the evidence, frame by frame. One thread at a time.
class LossLook
{
public:
    // What was lost until now is no evidence.
    void Begin(TovCam::Stream &stream);
    // Asks the stream only if something is missing. With no lock held.
    LossEvidence Look(TovCam::Stream &stream, TovCam::Buffer &buffer, bool incomplete);

private:
    TovCam::StreamLosses m_last;
};
