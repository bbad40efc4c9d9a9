// What the FIFO knows of lost frames.
#include "grabbingfifo.h"

void GrabbingFifo::Loss::Add(Loss const &other)
{
    frames += other.frames;
    dropped += other.dropped;
    before.Add(other.before);
}

GrabbingFifo::Loss GrabbingFifo::GetLossBefore(TovCam::Buffer const *buffer)
{
    std::lock_guard const lock(m_fifoMutex);
    auto const found = m_gaps.find(buffer);
    return found != m_gaps.end() ? found->second : Loss();
}

LossCounts GrabbingFifo::GetLossCounts()
{
    LossCounts counts;
    counts.hasStream = m_stream && m_stream->GetLosses(&counts.stream);
    std::lock_guard const lock(m_fifoMutex);
    counts.frames = m_lost;
    return counts;
}

void GrabbingFifo::CountMissing(Loss &loss, LossEvidence const &evidence)
{
    if (loss.frames == 0)
        return;
    MissingPlaces const places = PlacesOfMissing(evidence, loss.frames);
    auto const count = [&](LossPlace place, std::uint64_t frames) {
        m_lost.At(place).missing += static_cast<std::int64_t>(frames);
        if (frames > 0)
            loss.before.Add(place);
    };
    count(LossPlace::Receiver, places.unbuffered);
    count(places.skipped, loss.frames - places.unbuffered);
}
