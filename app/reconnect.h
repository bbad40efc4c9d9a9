// A lost camera that comes back: it is waited for, and opened again with its settings; the picture goes on if it ran,
// and a recording where that is wanted. Only with "Camera/Reconnect" in the settings, and never beside an evaluation
// plug-in. Of the loss itself nothing changes: this begins beside its message and goes on behind it.
//
// GUI thread only. Who has session and window tells what becomes of the camera, and opens it when `back` is emitted.
#pragma once

#include "cameralookout.h"
#include "noticeboard.h"
#include "recordinggap.h"

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <optional>

class ManagedWindow;
class Session;
namespace TovCam {
class Device;
} // namespace TovCam
namespace TovGui {
class TovCameraSelectorDialog;
} // namespace TovGui

class Reconnect : public QObject
{
    Q_OBJECT
public:
    // For reading a camera's settings before a start, which then goes on without them. Tests change it.
    static std::chrono::milliseconds s_readingLimit;

    explicit Reconnect(ManagedWindow *window); // which outlives it
    ~Reconnect() override;

    bool IsOn() const;
    // The choice for the operator, kept at once.
    void AddChoice(TovGui::TovCameraSelectorDialog &dialog);

    // Before the picture is started: after a loss it would be too late. An action of its own, which is waited for.
    // False when the operator has given up, or the camera is lost: it is not to be started.
    bool TakeSettings(Session *session);

    // The session's camera is lost. The session is still there, and may be for long, behind a message.
    void Lost(Session *session, TovCam::System *system);
    // The session has stopped everything, and is about to be deleted; then it has been.
    void SessionStopped(Session *session);
    void SessionClosed(bool lost);

    // The operator does something else. Not while the camera is opened.
    void End();
    bool IsWaiting() const; // for the camera, or opens it
    bool IsOpening() const;
    QString const &GetName() const; // of the camera

    // What the one who opens the camera tells, after `back`. The settings come between opening and session: false when
    // the camera has gone again.
    bool PutSettings(TovCam::Device *device);
    void Failed(); // it is waited for again
    void GivenUp();
    void Opened(Session *session);

signals:
    void changed();                        // IsWaiting
    void seen();                           // the camera is there; messages must not hold up what comes
    void back(TovCam::DeviceInfo *camera); // to be opened

private:
    enum class Stage { None, Waiting, Opening };
    struct Settings
    {
        CameraLookout::Camera camera;
        QByteArray text; // as SaveConfiguration writes them
    };

    bool IsSet(QString const &key) const;
    void SetStage(Stage stage);
    void Tell(NoticeLevel level, QString const &text);
    void TellWaiting(TovCam::DeviceInfo *camera);
    void Look();
    void Looked(TovCam::DeviceInfo *camera, bool free);
    void Open();
    void GoOn();
    void Forget();

    ManagedWindow *m_window;
    CameraLookout m_lookout;
    Stage m_stage = Stage::None;
    bool m_told = false;                // a notice of this is on the board
    std::optional<Settings> m_settings; // at the last start of the picture
    QPointer<Session> m_slow;           // whose settings take too long to be read: not before every start

    // The camera that was lost last.
    TovCam::System *m_system = nullptr;
    std::optional<CameraLookout::Camera> m_camera;
    QString m_name;
    QDateTime m_since;
    Session *m_lost = nullptr;             // its session, as long as that is there; only compared
    bool m_hasGone = false;                // a look has not found it
    TovCam::DeviceInfo *m_found = nullptr; // by the last look, free

    // What was interrupted, and does not go on yet.
    bool m_picture = false, m_recording = false;
    bool m_endsRecording = false; // the session that is lost
    RecordingEnd m_recordingEnd;
    QPointer<Session> m_session; // in which it goes on
    bool m_tried = false;        // to start the picture, there
    bool m_starts = false;       // and it is that start
};
