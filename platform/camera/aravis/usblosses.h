// What is known of the losses of a USB3 Vision camera. The bus asks again for what comes damaged, and gives nothing up
// that was sent, so that a frame is missing because the camera did not get rid of it, or because no buffer was free;
// one that lacks data lost them at the port: a transfer failed, or ended early.
//
// Threads: Of on the one that takes the frames; Add on any.
#pragma once

#include "gige/streamstatistics.h"
#include "tovlosses.h"

#include <cstdint>

class UsbLosses
{
public:
    // A stream begins that has met no free buffer so often until now.
    void Begin(std::uint64_t underruns);
    // Of the next frame; a broken one may have the id of an earlier one. So often no buffer was free until now.
    TovCam::FrameLosses Of(std::uint64_t id, bool isBroken, std::uint64_t underruns);
    // To what is told of the stream.
    void AddTo(TovCam::StreamLosses &losses) const;

private:
    bool m_any = false, m_wasBroken = false;
    std::uint64_t m_lastId = 0, m_underruns = 0;
    std::uint64_t m_unbuffered = 0; // that no id has shown yet: frames wait to be taken
    StreamCounter m_broken, m_allUnbuffered, m_skipped;
};
