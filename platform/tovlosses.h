// What a camera's stream has lost, and what this host can tell of where: counts alone, for whoever explains them.
#pragma once

#include <cstdint>
#include <string>

namespace TovCam {

// Of a frame and of those that are missing before it; the frame before is the one that was delivered before.
struct FrameLosses
{
    std::uint64_t skipped = 0;                          // frames in between of which no packet came
    std::uint64_t unbuffered = 0;                       // frames in between that came when no buffer was free
    std::uint32_t packets = 0, missing = 0;             // of this frame
    std::uint32_t packetsBefore = 0, missingBefore = 0; // of the frame before
    bool isEdgeMissing = false;                         // the last packet of the frame before, or the first of this one
    // Of the packets that are missing in it and in skipped ones: had no room in the socket or in the packet ring.
    std::uint64_t dropped = 0;
};

// Of a stream, and of the adapter that hears it, since the camera was opened.
struct StreamLosses
{
    bool isUsb = false; // by USB, where a frame counts as one packet
    // Packets.
    std::uint64_t missing = 0; // frames ended without them
    std::uint64_t asked = 0;   // for again
    std::uint64_t resent = 0;  // that came after they had been asked for
    std::uint64_t refused = 0; // that the camera has not got any more
    std::uint64_t late = 0;    // that came when their frame was over, or had no buffer
    std::uint64_t dropped = 0; // that found no room in the socket or in the packet ring
    // Frames.
    std::uint64_t unbuffered = 0, skipped = 0;

    std::uint64_t socketRoom = 0; // bytes that the socket was given; 0: a packet ring has its place
    std::uint64_t wantedRoom = 0; // bytes that the socket was to have

    std::string adapter;              // empty: not known, as is what follows
    std::uint64_t adapterNoRoom = 0;  // packets that its memory had no room for
    std::uint64_t adapterDropped = 0; // packets that the system took from it and dropped, perhaps none of the camera's
    std::uint64_t adapterDamaged = 0; // packets whose checksum or length was wrong
    std::uint64_t linkLosses = 0;     // times that its link went down
    std::uint32_t ring = 0, largestRing = 0; // packets that its memory holds, and could hold
};

} // namespace TovCam
