#include "blocklosses.h"

#include <utility>

void BlockLosses::Begin()
{
    m_next = {};
    m_isTailMissing = false;
}

void BlockLosses::AddSkipped(std::uint64_t frames)
{
    m_next.skipped += frames;
}

void BlockLosses::AddUnbuffered()
{
    ++m_next.unbuffered;
}

TovCam::FrameLosses BlockLosses::Of(Ended const &frame)
{
    TovCam::FrameLosses losses = std::exchange(m_next, {});
    losses.packets = frame.packets;
    losses.missing = frame.missing;
    losses.isEdgeMissing = std::exchange(m_isTailMissing, !frame.hasLast) || !frame.hasFirst;
    m_next.packetsBefore = losses.packets;
    m_next.missingBefore = losses.missing;
    return losses;
}
