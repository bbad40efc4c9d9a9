// A recording that goes on with the one before, which ended when the camera was lost.
#include "imagewriter.h"

#include "tovlog.h"

#include "tovcamera.h"
#include "tovserializer.h"

void ImageWriter::ContinueAfter(RecordingEnd const &end)
{
    m_continuesNext = end;
}

RecordingEnd ImageWriter::GetEnd() const
{
    return {m_companionFolder, m_companionName, m_lastFrame, m_snap};
}

// With the first frame in hand, before anything is made for it.
void ImageWriter::BeginAfterGap(TovCam::Buffer *buffer)
{
    if (!m_continues)
        return;
    RecordingGap &gap = m_gap.emplace();
    gap.before = m_continues->last;
    gap.after.id = buffer->GetFrameID();
    if (TovCam::FrameFacts facts; buffer->GetFacts(&facts))
        gap.after.arrival = facts.arrival;
    if (m_serializer && m_companions)
        m_serializer->SetTablePreface(gap.Line(m_continues->folder).constData());
}

// Once there is a place that the files of the recording before can name.
void ImageWriter::TellGap()
{
    QByteArray const folder = m_companions && m_serializer ? m_serializer->GetCompanionFolder() : "";
    if (m_gapTold || folder.isEmpty() || !m_gap || !m_continues)
        return;
    m_gapTold = true;
    QString const why = m_gap->AppendTo(*m_continues, folder);
    if (!why.isEmpty())
        TovLog::Warning(0, "The files beside the recording do not tell of the gap after it: %s", qPrintable(why));
}
