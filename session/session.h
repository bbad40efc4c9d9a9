// One connected camera and everything that lives as long as the connection. A state machine decides what start, record
// and stop mean in which order; a failing engine becomes a signal, never an exception out of the machine.
//
// Its actions wait for the camera by Wait: while they do, an event loop may run, in which no other action is taken.
//
// The machine starts on the next pass of the event loop. signalCameraStateDisconnected ends it within its emission,
// with everything stopped, unless it is emitted from inside one of the machine's actions; neither may the session be
// deleted from there.
//
// Threads: the GUI thread, except for the callbacks of the camera library, which come on its threads:
// CameraDisconnectCallback only notes the loss and emits a signal, PacketsMissedCallback only counts and logs; LogEvent
// and what it calls make a line of a packet and append it.
#pragma once

#include "lossfindings.h"
#include "sessionstate.h"
#include "tovcomponentimp.h"

#include "tovcamera.h"

#include <QObject>
#include <QSettings>
#include <QStateMachine>
#include <QString>

#include <atomic>
#include <functional>
#include <map>
#include <memory>

class AcquisitionSequence;
class AnswerWatch;
class DisplayView;
class GrabbingFifo;
class ImageWriter;
class ImgProcessor;
class PacketLog;
class QtTovLogModel;
class SessionHost;
struct CameraWait;

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
    bool IsCameraLost() const; // perhaps before anybody was connected to the signal
    QSettings *GetSettings() const;
    QString const &GetSettingsName() const;
    QString const &GetTitle() const;
    QString GetPlainName() const; // the camera's, in one line of a bearable length
    // The engines' parameters, as the destructor stores them. For callers that may not get that far.
    void SaveSettings();
    // The program ends with the session: unsaved lines of the log are not kept.
    void LeaveLog();

    // Runs an action of the operator that waits for the camera; `what` is shown where that takes long. Its calls of the
    // camera library go through WaitFor, and fail soon once it is given up. See SessionHost::Wait.
    void Wait(QString const &what, std::function<void()> const &action);
    CameraWait MakeWait(QString const &what) const;
    // As Wait, for a part of an action that is under way already; without one nothing is waited for.
    void WaitWithin(std::function<void()> const &part);

    // Asks for one frame and starts capturing; true. Outside of acquisition the request waits for the next capture.
    bool SnapNextFrame();
    // Applies a stored configuration to the camera. What fails goes to the board and the log, without a message; also
    // that it was given up, with a part of the settings applied.
    void LoadConfiguration(QString const &path);
    // Stores the camera's configuration, with a message when that fails. Nothing of the session is touched after it.
    // Given up, it leaves the file as it was, and tells the board.
    void SaveConfiguration(QString const &path);
    // What the camera, the host and the interface report about themselves, line by line; laid out for a fixed-pitch
    // font. Null when it was given up.
    QString GetCameraInfo();
    // What was lost since the picture was started last, and what mends it; nothing of a session that is going.
    std::vector<LossFinding> GetLosses();

    // Channels of the protocol log, by the camera library's event that brings their packets.
    enum LogEnum : std::uint32_t {
        LogEnumControl = TovCam::EventControlChannel,
        LogEnumStream = TovCam::EventStreamChannel,
        LogEnumEvent = TovCam::EventEventChannel,
    };
    // Subscribes to a channel's packets, or unsubscribes. False when the camera refuses; the channel's switch is then
    // off. All of them are switched off by themselves before the memory runs short.
    bool EnableLog(LogEnum channel, bool enable);
    // The callback for packets; `user` is the channel's record. Any thread, several at once.
    static void LogEvent(void const *data, unsigned long size, void *user);
    // Appends a packet's line, if it gets one, stamped with the time of the call. Any thread; stream packets in order.
    void WriteLog(LogEnum channel, void const *data, unsigned long size);
    // Empty for a packet without a line, and for every one of a camera whose protocol has no decoder. As WriteLog.
    QString MakeLogStringFromData(LogEnum channel, void const *data, unsigned long size);
    QtTovLogModel *GetLogModel() const; // a child
    bool IsSavingLog() const;
    QString GetLogReport() const; // what is worth knowing about the log, such as missing packets

    // The callback for the lost connection; `user` is the session.
    static void CameraDisconnectCallback(void const *data, unsigned long size, void *user);
    // The callback for packets of the log's channels that were lost before they could be read; `user` is the session.
    // Their number goes to the program's log and to the operator.
    static void PacketsMissedCallback(void const *data, unsigned long size, void *user);

signals:
    void signalStartAcquisition();
    void signalStopAcquisition();
    void signalStartCapturing();
    void signalStopCapturing();
    void signalSessionClosed();
    void signalCameraStateDisconnected();
    void signalUpdateGui();
    void signalSessionStateError(void *session, unsigned char err);     // a SessionError
    void signalCameraDisconnected(void *session, unsigned char reason); // a DisconnectReason; any thread

public slots:
    void clearLog();
    // Asks for a file and writes every line into it, with a message when that fails. A long log is written on a thread
    // of its own, beyond the end of the session if need be; until then another call cancels that, and asks for nothing.
    void saveLog();
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
    void ResetVolatileParams();
    void RemoveComponents();

    bool StartAcquisition(bool *givenUp);
    void StopAcquisition();
    void StopWriter();
    void LogLosses();
    void endLogging();
    void EndAllChannels();
    void FollowSwitches();

    struct LogChannel
    {
        LogEnum channel;
        Session *session;
    };

    static unsigned char s_CompID;

    // GUI thread, all of them; the bound flags by atomic access.
    SessionHost *m_window;
    QStateMachine m_stateMachine;
    SessionState m_state;
    TovCam::Device *m_device;
    std::shared_ptr<std::atomic<bool>> const m_givenUp = std::make_shared<std::atomic<bool>>(false); // the device's too
    std::unique_ptr<GrabbingFifo> m_grabber;
    std::atomic<bool> m_cameraLost{false}; // set by any thread, and never cleared
    QObject m_writerReports;               // receives the writer's reports that a recording has ended
    std::unique_ptr<ImageWriter> m_writer; // both use the grabber, and go before it unless their threads are asleep
    std::unique_ptr<DisplayView> m_display;
    std::unique_ptr<AcquisitionSequence> m_sequence; // of grabber and display
    ImgProcessor *m_imgProcessor = nullptr;          // a child
    QSettings *m_settings = nullptr;                 // the window's
    QString m_settingsName;
    QString m_title;
    LossCounts m_lossBase; // when the picture was started last
    QString m_displayName;
    QString m_interfaceDescription;
    bool m_enableLog = false;
    bool m_logControl = false;
    bool m_logStream = false;
    bool m_logEvent = false;
    QtTovLogModel *m_logModel = nullptr; // a child; set before the first subscription, appended to on any thread
    std::unique_ptr<PacketLog> m_log;    // as m_logModel, which it uses
    // Subscribed channels. A node is the user data of its subscription, and is erased after it.
    std::map<LogEnum, LogChannel> m_logChannels;
    std::unique_ptr<AnswerWatch> m_answers; // of the device; goes before it
};
