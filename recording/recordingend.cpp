// The end of a recording: its files are closed, and every frame is accounted for.
#include "imagewriter.h"

#include "ledgerfile.h"
#include "losstext.h"
#include "tovlog.h"
#include "waitingaction.h"

#include "tovserializer.h"

#include <QFile>

#include <algorithm>
#include <exception>

namespace {

// The disk takes its time, or does not answer at all. Nothing is left out: it would be missing in the files.
template<typename F>
auto WaitForDisk(F const &call)
{
    return WaitFor(call, IfGivenUp::CallAllTheSame, Awaited::Disk);
}

} // namespace

bool ImageWriter::StopWriting(std::function<QByteArray()> const &configuration)
{
    TovLog::Debug(0, "ImageWriter::StopWriting() -> ENTER");
    m_fifo->SetGrabberThtreadBlocking(false);
    bool const stopped = WaitForDisk([this] { return WorkingThread::Stop(); }) != 0;
    m_endAccounts = m_fifo->GetAccounts(); // what comes while the files are closed is not the recording's
    LossCounts const lost = m_fifo->GetLossCounts();
    std::exception_ptr failure;
    try {
        if (configuration && m_serializer && m_serializer->HoldsConfiguration())
            HandOver(configuration);
        std::int32_t const status = m_serializer ? WaitForDisk([this] { return m_serializer->Stop(); }) : 0;
        if (status != 0)
            TovLog::Error(static_cast<unsigned long>(status), "ImageWriter::StopWriting(): closing the files failed");
        if (m_writing)
            SettleAtStop(status);
    } catch (...) {
        failure = std::current_exception(); // for the session to report, once the rest is done
        if (m_writing)
            SettleAtStop(TOV_SERIALIZER_ERR_MEMORY);
    }
    m_captureRules.StopImgWriting();
    if (m_writing) {
        bool const companions = m_companions && m_started;
        if (companions)
            m_report.SetCompanionFailure(QString::fromLocal8Bit(m_serializer->GetCompanionFailure()));
        CloseLedger();
        ExplainLosses(lost);
        if (companions)
            KeepLedger();
    }
    m_writing = false;
    m_fifo->SetGrabberThtreadBlocking(true);
    if (failure)
        std::rethrow_exception(failure);
    TovLog::Debug(stopped, "ImageWriter::StopWriting() <- LEAVE");
    return stopped;
}

// What is known while the recording thread works; the rest is that thread's own.
RecordingLedger ImageWriter::SoFar()
{
    return Since(m_fifo->GetAccounts());
}

RecordingLedger ImageWriter::Since(GrabbingFifo::Accounts const &now)
{
    GrabbingFifo::Accounts const &before = m_startAccounts;
    RecordingLedger ledger;
    ledger.acquired = now.arrived - before.arrived + before.queued + before.withConsumers;
    ledger.incomplete = now.incomplete - before.incomplete;
    ledger.saved = TovLoadBound(m_framesSaved);
    ledger.savedIncomplete = m_tally.SavedIncomplete();
    ledger.droppedSW = now.droppedSW - before.droppedSW;
    ledger.missing = now.missing - before.missing;
    return ledger;
}

// To a movie, whose file goes without it where that fails.
void ImageWriter::HandOver(std::function<QByteArray()> const &configuration)
{
    try {
        m_serializer->SetConfiguration(configuration().constData());
    } catch (std::exception const &exception) {
        TovLog::Error(0, "ImageWriter: the movie gets no configuration: %s", exception.what());
    }
}

// After the serializer's Stop, which gives its status.
void ImageWriter::SettleAtStop(std::int32_t status)
{
    std::int64_t const lost = m_tally.Close(m_started ? m_serializer->GetReadableFrames() : -1);
    m_losses.End(m_endAccounts.droppedSW - m_startAccounts.droppedSW, std::max<std::int64_t>(lost, 0));
    if (lost > 0 || status != 0) {
        QString const words = status == 0 ? tr("not in the file") : QString();
        m_report.Failed(std::max<std::int64_t>(lost, 0),
                        FailureOf(status != 0 ? status : TOV_SERIALIZER_ERR_WRITE, words));
    }
    if (TovLoadBound(m_framesSaved) != m_tally.Saved())
        SetParamInt("FramesSaved", m_tally.Saved());
}

void ImageWriter::CloseLedger()
{
    GrabbingFifo::Accounts const &now = m_endAccounts;
    m_ledger = Since(now);
    m_ledger.saved = m_tally.Saved();
    m_ledger.unwanted = m_tally.Unwanted();
    m_ledger.failed = m_tally.Failed();
    m_ledger.queued = now.queued + now.withConsumers;
    if (m_evaluated) {
        m_report.Forget(); // the plug-in does its own accounting
        return;
    }
    m_report.End(m_ledger);

    RecordingLedger const &l = m_ledger;
    auto const count = [](std::int64_t frames) {
        return static_cast<long long>(frames);
    };
    TovLog::Notice("Recording ended: %lld frames = %lld saved (%lld of them incomplete) + %lld not wanted + "
                   "%lld failed + %lld dropped here + %lld given up at the stop; %lld more are missing",
                   count(l.acquired), count(l.saved), count(l.savedIncomplete), count(l.unwanted), count(l.failed),
                   count(l.droppedSW), count(l.queued), count(l.missing));
    if (!l.IsWhole())
        TovLog::Warning(static_cast<unsigned long>(l.failed + l.droppedSW + l.missing + l.savedIncomplete),
                        "The recording is not whole%s%s", m_report.GetFailures().isEmpty() ? "" : ": ",
                        qPrintable(m_report.GetFailures()));
    if (!l.AddsUp())
        TovLog::Error(0, "The frames of the recording do not add up");
}

// With what the FIFO had lost when the recording thread stopped.
void ImageWriter::ExplainLosses(LossCounts now)
{
    m_losses.AddTo(now);
    m_findings = ::ExplainLosses(m_startLosses, now);
    if (m_evaluated)
        return;
    for (LossFinding const &finding : m_findings)
        TovLog::Warning(static_cast<unsigned long>(finding.frames), "Lost by the recording: %s",
                        qPrintable(LossLine(finding)));
}

// Beside the files that the serializer has made.
void ImageWriter::KeepLedger()
{
    m_companionFolder = m_serializer->GetCompanionFolder();
    m_companionName = m_serializer->GetCompanionName();
    if (m_companionFolder.isEmpty())
        return;
    QString const file = QFile::decodeName(m_companionFolder + '/' + m_companionName + ".ledger.txt");
    QString const why = WaitForDisk([&, reasons = m_report.GetReasons()] {
        QString const failure = WriteLedgerFile(file, m_ledger, reasons, m_findings);
        return failure.isEmpty() && m_gap ? m_gap->AppendToLedger(GetEnd(), m_continues->folder, true) : failure;
    });
    if (!why.isEmpty() && *m_serializer->GetCompanionFailure() == 0)
        TellCompanionFailure(why);
}
