#include "recordinglosses.h"

namespace {

constexpr double Remembered = 0.8; // of the time of the frames before

} // namespace

void RecordingLosses::Begin()
{
    m_before = m_own = m_since = {};
    m_any = false;
    m_time = m_disk = 0;
    m_dropped = 0;
}

void RecordingLosses::Take(GrabbingFifo::Loss const &loss)
{
    m_before = loss.before;
    m_own = loss.own;
    auto const dropped = static_cast<std::int64_t>(loss.dropped);
    m_dropped += dropped;
    if (dropped > 0 && IsDiskSlow()) {
        m_before.Remove(LossPlace::Fifo);
        m_before.Add(LossPlace::Disk);
        BlameDisk(dropped);
    }
}

void RecordingLosses::BlameDisk(std::int64_t dropped)
{
    m_droppedByDisk.fetch_add(dropped, std::memory_order_relaxed);
}

std::string RecordingLosses::Words() const
{
    LossPlaces all = m_own;
    if (m_any) { // the first row has no gap
        all.Add(m_before);
        all.Add(m_since);
    }
    return all.Words();
}

void RecordingLosses::Written()
{
    m_any = true;
    m_since = {};
}

void RecordingLosses::Failed(bool byDisk)
{
    m_since.Add(m_before);
    m_since.Add(byDisk ? LossPlace::Disk : LossPlace::Recording);
    (byDisk ? m_unwritten : m_unconverted).fetch_add(1, std::memory_order_relaxed);
}

void RecordingLosses::Spent(std::chrono::nanoseconds all, std::chrono::nanoseconds disk)
{
    m_time = m_time * Remembered + static_cast<double>(all.count());
    m_disk = m_disk * Remembered + static_cast<double>(disk.count());
}

void RecordingLosses::End(std::int64_t dropped, std::int64_t lost)
{
    if (dropped > m_dropped && IsDiskSlow())
        BlameDisk(dropped - m_dropped);
    m_unwritten.fetch_add(lost, std::memory_order_relaxed);
}

void RecordingLosses::AddTo(LossCounts &counts) const
{
    std::int64_t const droppedByDisk = m_droppedByDisk.load(std::memory_order_relaxed),
                       unwritten = m_unwritten.load(std::memory_order_relaxed);
    counts.frames.At(LossPlace::Fifo).missing -= droppedByDisk;
    counts.frames.At(LossPlace::Disk).missing += droppedByDisk + unwritten;
    counts.frames.At(LossPlace::Recording).missing += m_unconverted.load(std::memory_order_relaxed);
    counts.unwritten += unwritten;
}
