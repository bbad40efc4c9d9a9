#include "soakaccounts.h"

#include "grabbingfifo.h"

#include "tovcamera.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

GrabbingFifo *FifoOf(Session *session)
{
    return static_cast<GrabbingFifo *>(session->GetGrabber());
}

ImageWriter *WriterOf(Session *session)
{
    return static_cast<ImageWriter *>(session->GetImageWriter());
}

LossTally Sum(LossTally sum, LossTally const &other)
{
    for (std::size_t i = 0; i < LossPlaceCount; ++i) {
        sum.places[i].missing += other.places[i].missing;
        sum.places[i].incomplete += other.places[i].incomplete;
    }
    return sum;
}

} // namespace

void SoakAccounts::Picture::Add(Picture const &other)
{
    arrived += other.arrived;
    incomplete += other.incomplete;
    missing += other.missing;
    dropped += other.dropped;
    underWay += other.underWay;
    lastId = other.lastId;
    lost = Sum(lost, other.lost);
}

void SoakAccounts::Follow(Session *session)
{
    if (m_session != session) {
        m_session = session;
        m_base = {};
        m_runs = m_records = false;
        if (session)
            QObject::connect(session, &Session::signalUpdateGui, session, [this] { Take(); });
    }
    // It may have begun before it was seen here.
    if (session && (session->GetState() == SessionStateAcquisition || session->GetState() == SessionStateCapturing)) {
        m_runs = true;
        m_records = WriterOf(session)->IsWriting() || m_records;
    }
}

void SoakAccounts::Begin(std::uint64_t sent, std::uint64_t leftOut)
{
    m_all = m_before = {};
    m_ledger = {};
    m_failedBefore = 0;
    m_recordings = 0;
    m_unaccounted = 0;
    m_sentBefore = sent;
    m_leftOutBefore = leftOut;
    m_faults.clear();
}

// At each change of state, on the stack of the change.
void SoakAccounts::Take()
{
    SessionState const state = m_session->GetState();
    TakeRecording();
    m_runs = m_runs || state == SessionStateAcquisition;
    if (state != SessionStateAcquisition && state != SessionStateCapturing && m_runs) {
        Picture picture = Since(m_base);
        std::int64_t const known = ReceiverFrames();
        picture.underWay = known < 0 ? 0 : std::max<std::int64_t>(known - picture.arrived - picture.missing, 0);
        m_all.Add(picture);
        m_base = Read();
        m_base.dropped = 0; // counted anew with each start
        m_runs = false;
    }
}

void SoakAccounts::TakeRecording()
{
    ImageWriter *const writer = WriterOf(m_session);
    bool const records = writer->IsWriting();
    if (m_records && !records) {
        RecordingLedger const &ledger = writer->GetLedger();
        ++m_recordings;
        m_ledger.acquired += ledger.acquired;
        m_ledger.incomplete += ledger.incomplete;
        m_ledger.saved += ledger.saved;
        m_ledger.unwanted += ledger.unwanted;
        m_ledger.failed += ledger.failed;
        m_ledger.droppedSW += ledger.droppedSW;
        m_ledger.queued += ledger.queued;
        m_ledger.missing += ledger.missing;
        if (!ledger.AddsUp())
            Miss(std::abs(ledger.acquired -
                          (ledger.saved + ledger.unwanted + ledger.failed + ledger.droppedSW + ledger.queued)),
                 "acquired by a recording, and not in its ledger", m_faults);
    }
    m_records = records;
}

SoakAccounts::Picture SoakAccounts::Read() const
{
    Picture picture;
    GrabbingFifo::Accounts const accounts = FifoOf(m_session)->GetAccounts();
    picture.arrived = accounts.arrived;
    picture.incomplete = accounts.incomplete;
    picture.missing = accounts.missing;
    picture.dropped = accounts.droppedSW;
    picture.lost = WriterOf(m_session)->GetLossCounts().frames;
    m_session->GetGrabber()->GetParamInt("FrameID", &picture.lastId);
    return picture;
}

SoakAccounts::Picture SoakAccounts::Since(Picture const &base) const
{
    Picture picture = Read();
    picture.arrived -= base.arrived;
    picture.incomplete -= base.incomplete;
    picture.missing -= base.missing;
    picture.dropped -= base.dropped;
    picture.lost = picture.lost - base.lost;
    return picture;
}

SoakAccounts::Picture SoakAccounts::Now() const
{
    Picture all = m_all;
    if (m_runs && m_session)
        all.Add(Since(m_base));
    return all;
}

// That have begun, or that it knows to be missing, since the picture was started; -1 where it cannot be asked.
std::int64_t SoakAccounts::ReceiverFrames() const
{
    TovCam::ParamArray *const params = m_session->GetDevice()->GetCameraParameters(nullptr);
    std::int64_t frames = 0;
    for (char const *const name : {"TovStreamComplete", "TovStreamUnfit", "TovStreamIncomplete", "TovStreamLost",
                                   "TovStreamAborted", "TovStreamSkipped"}) {
        std::int32_t error = 0;
        frames += params ? params->GetIntegerValue(name, &error) : 0;
        if (!params || error != 0)
            return -1;
    }
    return frames;
}

void SoakAccounts::Miss(std::int64_t frames, char const *what, std::string &report)
{
    if (frames == 0)
        return;
    m_unaccounted += frames;
    report += "  " + std::to_string(frames) + " frames unaccounted: " + what;
}

std::string SoakAccounts::Compare(std::uint64_t sent, std::uint64_t leftOut, std::int64_t afterStop)
{
    std::string report;
    report.swap(m_faults);
    auto const since = [](std::int64_t now, std::int64_t before) {
        return now - before;
    };
    std::int64_t const made = static_cast<std::int64_t>(sent - m_sentBefore + leftOut - m_leftOutBefore);
    std::int64_t const listened = since(m_all.arrived, m_before.arrived) + since(m_all.missing, m_before.missing) +
                                  since(m_all.underWay, m_before.underWay);
    std::int64_t const late = std::clamp<std::int64_t>(made - listened, 0, afterStop);
    std::int64_t const known = listened + late;
    m_all.underWay += late;
    Miss(std::max<std::int64_t>(made - known, 0), "made by the camera, and not known here", report);
    Miss(std::max<std::int64_t>(known - made, 0), "known here, and not made by the camera", report);
    if (made != known)
        report += " (made " + std::to_string(made) + ", known " + std::to_string(known) + ", last whole frame " +
                  std::to_string(m_all.lastId) + ')';
    LossTally const lost = m_all.lost - m_before.lost;
    std::int64_t missing = 0, incomplete = 0;
    for (LossTally::Frames const &place : lost.places) {
        missing += place.missing;
        incomplete += place.incomplete;
    }
    Miss(std::abs(missing - since(m_all.missing, m_before.missing) - since(m_all.dropped, m_before.dropped) -
                  since(m_ledger.failed, m_failedBefore)),
         "missing without a cause", report);
    Miss(std::abs(incomplete - since(m_all.incomplete, m_before.incomplete)), "incomplete without a cause", report);
    m_sentBefore = sent;
    m_leftOutBefore = leftOut;
    m_before = m_all;
    m_failedBefore = m_ledger.failed;
    return report;
}

std::string SoakAccounts::Line() const
{
    Picture const now = Now();
    auto const number = [](std::int64_t value) {
        return static_cast<long long>(value);
    };
    char text[500];
    std::snprintf(text, sizeof text,
                  "got %lld (%lld incomplete), missing %lld, under way when the picture stopped %lld; recorded %lld of "
                  "%lld in %d recordings (failed %lld, dropped %lld, given up at the stop %lld); unaccounted %lld",
                  number(now.arrived), number(now.incomplete), number(now.missing), number(now.underWay),
                  number(m_ledger.saved), number(m_ledger.acquired), m_recordings, number(m_ledger.failed),
                  number(m_ledger.droppedSW), number(m_ledger.queued), number(m_unaccounted));
    return text;
}

std::string SoakAccounts::Places() const
{
    Picture const now = Now();
    std::string text;
    for (std::size_t i = 0; i < LossPlaceCount; ++i) {
        LossTally::Frames const &frames = now.lost.places[i];
        if (frames.missing + frames.incomplete == 0)
            continue;
        text += (text.empty() ? "" : ", ") + std::string(WordOf(static_cast<LossPlace>(i))) + ' ' +
                std::to_string(frames.missing) + " missing " + std::to_string(frames.incomplete) + " incomplete";
    }
    return text.empty() ? "none" : text;
}
