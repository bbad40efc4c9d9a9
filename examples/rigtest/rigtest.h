// An example of an evaluation plug-in: takes a number of frames unattended, reports, and quits. Or records a short
// series: a program with a plug-in attached gives it the frames and writes none, so for that it declines to be
// attached, and operates the window as an operator would.
//
// Threads: everything on the GUI thread, but for NeedNextFrame and ProcessBuffer, which the recording thread calls and
// which touch the atomic counter only.
#pragma once

#include "rigtestplugin.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <atomic>
#include <cstdint>

class QAction;

class RigTest : public QObject, public RigTestPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID RigTestPlugin_iid)
    Q_INTERFACES(RigTestPlugin)
public:
    RigTest();

    void ShowPanel(QMainWindow *window, int, int) override;
    void Detach(QMainWindow *window) override;
    bool Attach(QMainWindow *window, TovCam::Device *device) override;
    void ProcessBuffer(TovCam::Buffer *buffer) override;
    bool NeedNextFrame(bool *newest) override;
    void Reserved1() override;
    void Reserved2() override;
    void OnStartCapturing() override;
    void OnStop() override;
    void PrepareToAcquition() override;
    void RunAutoEvaluation() override;
    void SetComponents(TovComponent *session, TovComponent *display, TovComponent *imageProcessor) override;

private:
    enum class Step { Start, Frames, Record, Series, Stop };

    void Poll();
    bool Trigger(char const *action);
    void Run();
    bool IsEnabled(char const *action) const;
    void SetOutputFolder();
    QStringList SeriesFiles() const;
    void Report();
    bool ReportSeries();
    void SaveScreenshot(char const *name);
    void Fail(QString const &why);
    void Finish(int exitCode);

    QPointer<QMainWindow> m_window;
    TovCam::Device *m_device = nullptr; // of the camera that is recorded from
    TovComponent *m_grabber = nullptr;  // valid between SetComponents and Detach
    QTimer m_poll;
    QElapsedTimer m_time;
    Step m_step = Step::Start;
    std::int64_t m_frames;  // to wait for
    std::int64_t m_timeout; // ms
    std::int64_t m_series;  // frames to record; 0 evaluates instead
    std::atomic<std::int64_t> m_processed{0};
};
