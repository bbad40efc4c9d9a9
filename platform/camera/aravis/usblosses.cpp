#include "usblosses.h"

#include <algorithm>
#include <utility>

void UsbLosses::Begin(std::uint64_t underruns)
{
    m_any = m_wasBroken = false;
    m_unbuffered = 0;
    m_underruns = underruns;
}

TovCam::FrameLosses UsbLosses::Of(std::uint64_t id, bool isBroken, std::uint64_t underruns)
{
    std::uint64_t const now = underruns - std::exchange(m_underruns, underruns);
    m_unbuffered += now;
    TovCam::FrameLosses losses;
    // A frame counts as one packet.
    losses.packets = losses.packetsBefore = 1;
    losses.missing = isBroken;
    losses.missingBefore = std::exchange(m_wasBroken, isBroken);
    if (m_any && id > m_lastId) {
        std::uint64_t const gap = id - m_lastId - 1;
        losses.unbuffered = std::min(gap, m_unbuffered);
        losses.skipped = gap - losses.unbuffered;
        m_unbuffered -= losses.unbuffered;
    }
    if (!m_any || id > m_lastId || !isBroken)
        m_lastId = id;
    m_any = true;
    m_broken.Add(isBroken);
    m_allUnbuffered.Add(now);
    m_skipped.Add(losses.skipped);
    return losses;
}

void UsbLosses::AddTo(TovCam::StreamLosses &losses) const
{
    losses.isUsb = true;
    losses.missing = m_broken.Get();
    losses.unbuffered = m_allUnbuffered.Get();
    losses.skipped = m_skipped.Get();
}
