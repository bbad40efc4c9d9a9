// One connected camera and everything that lives as long as the connection. A state machine decides what start, record
// and stop mean in which order; a failing engine becomes a signal, never an exception out of the machine.
//
// The machine starts on the next pass of the event loop. signalCameraStateDisconnected ends it within its emission,
// with everything stopped, unless it is emitted from inside one of the machine's actions; neither may the session be
// deleted from there.
//
// Threads: the GUI thread, except for CameraDisconnectCallback, which comes on a thread of the camera library and only
// emits a signal.
#pragma once

#include "sessionstate.h"
#include "tovcomponentimp.h"

#include "tovcamera.h"

#include <QObject>
#include <QSettings>
#include <QStateMachine>
#include <QString>

#include <array>
#include <functional>
#include <memory>

class DisplayView;
class GrabbingFifo;
class ImageWriter;
class ImgProcessor;
class SessionHost;

class Session : public QObject, public TovComponentImp, private TovParamListener
{
    Q_OBJECT
public:
    // Takes over the device once it has been built. Throws TovScopeException or std::exception when a component cannot
    // be built; the device is then still the caller's.
    Session(QObject *parent, TovCam::Device *device, SessionHost *window);
    ~Session() override;

    TovComponent *GetGrabber();
    TovComponent *GetDisplay();
    TovComponent *GetImgProcessor();
    TovComponent *GetImageWriter();
    TovComponent *GetImageSerializer();
    DisplayView *GetDisplayView();
    ImgProcessor *GetAnalysis();
    SessionState GetState() const; // all ones until the machine has entered Idle
    TovCam::Device *GetDevice() const;
    QSettings *GetSettings() const;
    QString const &GetSettingsName() const;
    QString const &GetTitle() const;

    // Asks for one frame and starts capturing; true. Outside of acquisition the request waits for the next capture.
    bool SnapNextFrame();
    // Applies a stored configuration to the camera; a failure is not told.
    void LoadConfiguration(QString const &path);
    // Stores the camera's configuration, with a message when that fails. Nothing of the session is touched after it.
    void SaveConfiguration(QString const &path);
    // What the camera, the host and the interface tell about themselves, line by line; made for a fixed-pitch font.
    QString GetCameraInfo();

    // The callback for the lost connection; `user` is the session.
    static void CameraDisconnectCallback(void const *data, unsigned long size, void *user);

signals:
    void signalStartAcquisition();
    void signalStopAcquisition();
    void signalStartCapturing();
    void signalStopCapturing();
    void signalSessionClosed();
    void signalCameraStateDisconnected();
    void signalUpdateGui();
    void signalSessionStateError(void *session, unsigned char err);
    void signalCameraDisconnected(void *session, unsigned char reason);

public slots:
    void stopCapturing();
    void stopCapturingAndAcquisition();
    void enterIdle();
    void exitIdle();
    void enterAcquisition();
    void exitAcquisition();
    void enterCapturing();
    void exitCapturing();
    void enterDisconnected();
    void exitDisconnected();
    // Has the window run the bandwidth test, modally. The session may be gone when it returns.
    void startTestBW();

private:
    void ParamChanged(_TovStParam param) override;

    void InitSession();
    bool InitStateMachine();
    bool CreateGrabber();
    bool CreateDisplayView();
    bool CreateImgProcessor();
    bool CreateWriter();
    void ReadIdentity(); // settings name and title
    void ResetVolatileParams();
    void RemoveComponents();

    std::int32_t ExecuteCommand(char const *name);
    std::int32_t SetIntegerValue(char const *name, std::int64_t value);
    void StartAcquisition(); // throws at the first step that fails
    void RecoverFromFailedStart();
    std::array<std::function<void()>, 5> StopSteps();
    void StopWhatStillRuns();
    void StopWriter();

    static unsigned char s_CompID;

    // GUI thread, all of them; the bound flags by atomic access.
    SessionHost *m_window;
    QStateMachine m_stateMachine;
    SessionState m_state;
    TovCam::Device *m_device;
    std::unique_ptr<GrabbingFifo> m_grabber;
    QObject m_writerReports;               // receives the writer's reports that a recording is done
    std::unique_ptr<ImageWriter> m_writer; // both use the grabber, and go before it unless their threads are asleep
    std::unique_ptr<DisplayView> m_display;
    ImgProcessor *m_imgProcessor = nullptr; // a child
    QSettings *m_settings = nullptr;        // the window's
    QString m_settingsName;
    QString m_title;
    QString m_displayName;
    QString m_interfaceDescription;
    bool m_enginesStarted = false; // from the first step of a start until a stop has gone through whole
    bool m_enableLog = false;
    bool m_logControl = false;
    bool m_logStream = false;
    bool m_logEvent = false;
};
