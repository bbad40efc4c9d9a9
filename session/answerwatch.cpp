#include "answerwatch.h"

#include "noticeboard.h"

#include "tovcamera.h"
#include "tovplaintext.h"

#include <QTimerEvent>

namespace {

constexpr int Period = 200;        // ms between two looks
constexpr int LongestName = 80;    // of a camera, in characters
constexpr std::uint64_t Pause = 2; // seconds; a shorter one needs no notice
constexpr std::uint64_t Second = 1000;

} // namespace

AnswerWatch::AnswerWatch(TovCam::Device *device, QString camera)
    : m_device(device),
      m_camera(TovPlainLine(camera, LongestName))
{
    m_timer.start(Period, this);
}

AnswerWatch::~AnswerWatch()
{
    NoticeBoard::Instance().Withdraw(NoticeTopic::Answers);
}

void AnswerWatch::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != m_timer.timerId())
        return QObject::timerEvent(event);
    std::uint64_t const seconds = m_device->GetSilence() / Second;
    if (seconds < Pause)
        NoticeBoard::Instance().Withdraw(NoticeTopic::Answers);
    else
        NoticeBoard::Instance().Post(NoticeTopic::Answers, NoticeLevel::Warning,
                                     tr("%1: no answer for %2 s").arg(m_camera, QString::number(seconds)));
}
