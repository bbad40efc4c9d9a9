#include "losscauses.h"

#include "tovcamera.h"

#include <algorithm>

namespace {

// Frames of which nothing came are the network's if it lost as large a share of those around them.
constexpr std::uint64_t NetworkShare = 4;

// Packets that are missing in a frame and in those that were skipped before it, which had as many.
std::uint64_t MissingAround(TovCam::FrameLosses const &frame)
{
    return frame.missing + frame.skipped * frame.packets;
}

// Of packets most of which the host dropped itself; Unknown where it did not.
LossPlace PlaceInHost(LossEvidence const &evidence, std::uint64_t missing)
{
    if (evidence.frame.dropped > 0 && evidence.frame.dropped >= MissingAround(evidence.frame) / 2)
        return evidence.socketRoom != 0 && evidence.socketRoom < evidence.wantedRoom ? LossPlace::Socket
                                                                                     : LossPlace::Receiver;
    // The system also drops what nobody on this host wants.
    bool const hasDropped = evidence.adapterDropped > 0 && evidence.adapterDropped >= missing / 2;
    return evidence.adapterNoRoom > 0 || hasDropped ? LossPlace::Adapter : LossPlace::Unknown;
}

} // namespace

LossPlace PlaceOfIncomplete(LossEvidence const &evidence)
{
    TovCam::FrameLosses const &frame = evidence.frame;
    if (!evidence.isKnown)
        return LossPlace::Unknown;
    if (frame.missing == 0)
        return LossPlace::Camera;
    if (LossPlace const place = PlaceInHost(evidence, frame.missing); place != LossPlace::Unknown)
        return place;
    return LossPlace::Network;
}

MissingPlaces PlacesOfMissing(LossEvidence const &evidence, std::uint64_t frames)
{
    TovCam::FrameLosses const &frame = evidence.frame;
    if (!evidence.isKnown)
        return {};
    MissingPlaces places{std::min(frames, frame.unbuffered), LossPlace::Camera};
    std::uint64_t const packets = std::uint64_t{frame.packets} + frame.packetsBefore,
                        missing = std::uint64_t{frame.missing} + frame.missingBefore;
    LossPlace const inHost = PlaceInHost(evidence, std::max(missing, frames));
    if (inHost != LossPlace::Unknown)
        places.skipped = inHost;
    else if (evidence.linkLosses > 0 || frame.isEdgeMissing || (missing > 0 && missing >= packets / NetworkShare))
        places.skipped = LossPlace::Network;
    return places;
}

void LossLook::Begin(TovCam::Stream &stream)
{
    m_last = {};
    stream.GetLosses(&m_last);
}

LossEvidence LossLook::Look(TovCam::Stream &stream, TovCam::Buffer &buffer, bool incomplete)
{
    LossEvidence evidence;
    evidence.isKnown = buffer.GetLosses(&evidence.frame);
    if (!evidence.isKnown || (!incomplete && evidence.frame.skipped + evidence.frame.unbuffered == 0))
        return evidence;
    if (TovCam::StreamLosses now; stream.GetLosses(&now)) {
        evidence.adapterNoRoom = now.adapterNoRoom - m_last.adapterNoRoom;
        evidence.adapterDropped = now.adapterDropped - m_last.adapterDropped;
        evidence.linkLosses = now.linkLosses - m_last.linkLosses;
        evidence.socketRoom = now.socketRoom;
        evidence.wantedRoom = now.wantedRoom;
        m_last = now;
    }
    return evidence;
}
