#include "rigtest.h"

#include "tovcamera.h"
#include "tovmisc.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QMainWindow>
#include <QMessageBox>
#include <QPixmap>

#include <cstdio>

namespace {

constexpr int PollInterval = 20; // ms

std::int64_t EnvironmentNumber(char const *name, std::int64_t otherwise)
{
    bool valid = false;
    int const value = qEnvironmentVariableIntValue(name, &valid);
    return valid && value > 0 ? value : otherwise;
}

void Say(QString const &text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

long IntegerOf(TovComponent *component, char const *key)
{
    long value = 0;
    component->GetParamInt(key, &value);
    return value;
}

double NumberOf(TovComponent *component, char const *key)
{
    double value = 0;
    component->GetParamFloat(key, &value);
    return value;
}

QDir OutputFolder()
{
    return QDir(QDir(qEnvironmentVariable("TOVSCOPE_RIGTEST_DIR", QStringLiteral("."))).absolutePath());
}

// The engines of a session are its children; the grabber is the one that counts frames.
TovComponent *FindGrabber(TovComponent *session)
{
    auto const *const object = dynamic_cast<QObject *>(session);
    if (!object)
        return nullptr;
    for (QObject *child : object->children()) {
        auto *const component = dynamic_cast<TovComponent *>(child);
        long frames = 0;
        if (component && TovSucceeded(component->GetParamInt("FramesAcquired", &frames)))
            return component;
    }
    return nullptr;
}

} // namespace

RigTest::RigTest()
    : m_frames(EnvironmentNumber("TOVSCOPE_RIGTEST_FRAMES", 100)),
      m_timeout(1000 * EnvironmentNumber("TOVSCOPE_RIGTEST_TIMEOUT", 30)),
      m_series(EnvironmentNumber("TOVSCOPE_RIGTEST_RECORD", 0))
{
    connect(&m_poll, &QTimer::timeout, this, &RigTest::Poll);
}

bool RigTest::Attach(QMainWindow *window, TovCam::Device *device)
{
    m_window = window;
    if (m_series == 0)
        return true;
    m_device = device;
    Run();
    return false;
}

void RigTest::SetComponents(TovComponent *session, TovComponent *, TovComponent *)
{
    m_grabber = FindGrabber(session);
}

void RigTest::ShowPanel(QMainWindow *, int, int)
{
    // Nothing: it has no panel.
}

void RigTest::Detach(QMainWindow *)
{
    m_grabber = nullptr;
    if (m_poll.isActive())
        Fail(tr("the camera was disconnected"));
}

void RigTest::Reserved1()
{
}

void RigTest::Reserved2()
{
}

void RigTest::PrepareToAcquition()
{
}

void RigTest::OnStartCapturing()
{
    m_processed = 0;
}

void RigTest::OnStop()
{
}

bool RigTest::NeedNextFrame(bool *newest)
{
    *newest = false; // every frame, in order
    return m_processed < m_frames;
}

void RigTest::ProcessBuffer(TovCam::Buffer *)
{
    ++m_processed;
}

// The program is still being built when this is called: the rest happens in its event loop.
void RigTest::RunAutoEvaluation()
{
    if (!m_window || !m_grabber) {
        Fail(tr("there is no camera"));
        return;
    }
    Run();
}

void RigTest::Run()
{
    m_step = Step::Start;
    m_time.start();
    m_poll.start(PollInterval);
}

void RigTest::Poll()
{
    auto const *const message = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    if (message) {
        Fail(message->text());
        return;
    }
    if (m_time.hasExpired(m_timeout)) {
        if (m_grabber)
            Report();
        Fail(tr("time-out"));
        return;
    }
    switch (m_step) {
    case Step::Start: // the action is enabled once the session is idle
        if (Trigger("actionPlay"))
            m_step = m_series == 0 ? Step::Frames : Step::Record;
        break;
    case Step::Record: // as soon as the camera runs
        if (!IsEnabled("actionRecord"))
            break;
        SetOutputFolder();
        Trigger("actionRecord");
        m_step = Step::Series;
        break;
    case Step::Series:
        if (SeriesFiles().size() < m_series)
            break;
        Trigger("actionStop"); // the recording
        SaveScreenshot("tovscope-recording.png");
        if (ReportSeries() && Trigger("actionStop")) // the camera
            m_step = Step::Stop;
        else
            Fail(tr("the series is not whole"));
        break;
    case Step::Frames:
        if (IntegerOf(m_grabber, "FramesAcquired") < m_frames)
            break;
        Report();
        SaveScreenshot("tovscope-demo.png");
        if (Trigger("actionStop"))
            m_step = Step::Stop;
        else
            Fail(tr("the acquisition cannot be stopped"));
        break;
    case Step::Stop:
        if (IsEnabled("actionPlay"))
            Finish(0);
        break;
    }
}

bool RigTest::IsEnabled(char const *name) const
{
    auto const *const action = m_window->findChild<QAction *>(QString::fromLatin1(name));
    return action && action->isEnabled();
}

bool RigTest::Trigger(char const *name)
{
    if (!IsEnabled(name))
        return false;
    m_window->findChild<QAction *>(QString::fromLatin1(name))->trigger();
    return true;
}

// As if typed into the capture panel.
void RigTest::SetOutputFolder()
{
    if (auto *const folder = m_window->findChild<QLineEdit *>(QStringLiteral("edFolderName"))) {
        folder->setText(OutputFolder().filePath(QStringLiteral("series")));
        emit folder->editingFinished();
    }
}

QStringList RigTest::SeriesFiles() const
{
    return QDir(OutputFolder().filePath(QStringLiteral("series"))).entryList({QStringLiteral("*.raw")}, QDir::Files);
}

// What the program counts as saved has to be there.
bool RigTest::ReportSeries()
{
    QStringList const files = SeriesFiles();
    auto const *const saved = m_window->findChild<QLineEdit *>(QStringLiteral("edFramesSaved"));
    TovCam::ParamArray *const camera = m_device->GetCameraParameters(nullptr);
    char const *const pixels = camera->GetEnumValueStr("PixelFormat", nullptr);
    Say(tr("Recorded    %1 frames of %2 x %3 %4, %5 to %6")
            .arg(saved ? saved->text() : QString())
            .arg(camera->GetIntegerValue("Width", nullptr))
            .arg(camera->GetIntegerValue("Height", nullptr))
            .arg(QString::fromUtf8(pixels ? pixels : ""), files.value(0), files.value(files.size() - 1)));
    Say(tr("Series      %1").arg(OutputFolder().filePath(QStringLiteral("series"))));
    return saved && saved->text().toLongLong() == files.size();
}

void RigTest::Report()
{
    QString camera = m_window->windowTitle();
    camera.remove(QStringLiteral("RigTest Auto - "));
    Say(tr("Camera      %1").arg(camera.trimmed()));
    Say(tr("Frames      %1 complete, %2 incomplete, %3 dropped by the link, %4 by this program")
            .arg(IntegerOf(m_grabber, "FramesAcquired"))
            .arg(IntegerOf(m_grabber, "FramesIncomp"))
            .arg(IntegerOf(m_grabber, "FramesDroppedHW"))
            .arg(IntegerOf(m_grabber, "FramesDroppedSW")));
    Say(tr("Frame rate  %1 fps").arg(NumberOf(m_grabber, "FpsAvg"), 0, 'f', 1));
    Say(tr("Throughput  %1 MB/s").arg(NumberOf(m_grabber, "Speed"), 0, 'f', 1));
}

void RigTest::SaveScreenshot(char const *name)
{
    QString const file = OutputFolder().filePath(QString::fromLatin1(name));
    if (m_window->grab().save(file))
        Say(tr("Screenshot  %1").arg(file));
    else
        Say(tr("Screenshot  cannot be saved as %1").arg(file));
}

void RigTest::Fail(QString const &why)
{
    Say(tr("Failed: %1").arg(why));
    Finish(1);
}

void RigTest::Finish(int exitCode)
{
    m_poll.stop();
    // Queued: it must also end an event loop that has not been entered yet.
    QTimer::singleShot(0, qApp, [exitCode] { QCoreApplication::exit(exitCode); });
}
