#include "reconnect.h"

#include "configurationnotice.h"
#include "imagewriter.h"
#include "managedwindow.h"
#include "rigtestplugin.h"
#include "session.h"
#include "tovlog.h"
#include "waitingaction.h"
#include "waitingdialog.h"

#include "tovcamera.h"
#include "tovcameragui.h"
#include "tovplaintext.h"

#include <QCheckBox>
#include <QFile>
#include <QMainWindow>
#include <QSettings>
#include <QTemporaryDir>

#include <utility>

namespace {

QString const ReconnectKey = QStringLiteral("Camera/Reconnect");
QString const ResumeKey = QStringLiteral("Camera/ResumeRecording");
constexpr int LongestName = 80; // in characters
constexpr std::chrono::seconds Limit{60};

QString NameOf(TovCam::DeviceInfo *camera)
{
    return TovPlainLine(QString::fromUtf8(camera->GetDisplayName()), LongestName);
}

ImageWriter *WriterOf(Session *session)
{
    return static_cast<ImageWriter *>(session->GetImageWriter());
}

} // namespace

Reconnect::Reconnect(ManagedWindow *window) : m_window(window)
{
    connect(&m_lookout, &CameraLookout::looked, this, &Reconnect::Looked);
}

Reconnect::~Reconnect() = default;

bool Reconnect::IsSet(QString const &key) const
{
    return m_window->GetGlobalSettings()->value(key, false).toBool();
}

bool Reconnect::IsOn() const
{
    return !m_window->GetRigTest() && IsSet(ReconnectKey);
}

bool Reconnect::IsWaiting() const
{
    return m_stage != Stage::None;
}

bool Reconnect::IsOpening() const
{
    return m_stage == Stage::Opening;
}

QString const &Reconnect::GetName() const
{
    return m_name;
}

void Reconnect::AddChoice(TovGui::TovCameraSelectorDialog &dialog)
{
    QCheckBox *const box = dialog.addOption(tr("&Wait for a lost camera and open it again"),
                                            tr("When the connection is lost, look for that very camera, and open it "
                                               "with its settings as soon as it is back. Kept at once"));
    box->setChecked(IsSet(ReconnectKey));
    connect(box, &QCheckBox::toggled, this,
            [this](bool on) { m_window->GetGlobalSettings()->setValue(ReconnectKey, on); });
}

// ---- Settings -------------------------------------------------------------------------------------------------------

bool Reconnect::TakeSettings(Session *session)
{
    if (!IsOn() || session->GetState() != SessionStateIdle)
        return true;
    TovCam::Device *const device = session->GetDevice();
    CameraLookout::Camera const camera(device->GetDeviceInfo());
    QTemporaryDir const folder;
    if (camera.serial.empty() || !folder.isValid())
        return true;
    WaitingDialog dialog(
        m_window->GetMainWindow(),
        [device] { return tr("Reading the settings of %1").arg(NameOf(device->GetDeviceInfo())); },
        [] { return WaitingDialog::Step{tr("The camera gets them back if it is lost")}; }, Limit);
    WaitingAction const action(dialog, [] {});

    QFile file(folder.filePath(QStringLiteral("camera.tcfg")));
    QByteArray const name = QFile::encodeName(file.fileName());
    std::int32_t const status = WaitFor([&] { return device->SaveConfiguration(name.constData()); });
    if (WaitingAction const *const current = WaitingAction::Current(); current && current->IsGivenUp())
        return false;
    m_settings.reset();
    if (status == 0 && file.open(QIODevice::ReadOnly))
        m_settings = Settings{camera, file.readAll()};
    else
        TovLog::Warning(static_cast<unsigned long>(status), "Reconnect: the camera does not give its settings");
    return true;
}

bool Reconnect::PutSettings(TovCam::Device *device)
{
    if (!m_settings || m_settings->camera != m_camera)
        return true;
    QTemporaryDir const folder;
    QFile file(folder.filePath(QStringLiteral("camera.tcfg")));
    QByteArray const name = QFile::encodeName(file.fileName());
    bool const written =
        file.open(QIODevice::WriteOnly) && file.write(m_settings->text) == m_settings->text.size() && file.flush();
    std::int32_t const status =
        written ? WaitFor([&] { return device->LoadConfiguration(name.constData()); }) : TOV_CAM_ERR_FILE_NOT_FOUND;
    if (status == TOV_CAM_ERR_NO_DEVICE)
        return false;
    if (WaitingAction const *const current = WaitingAction::Current(); current && current->IsGivenUp())
        return true;
    TovCam::ConfigurationReport report = device->GetConfigurationReport();
    if (!written) {
        report = {};
        report.problem = TovCam::ConfigurationReport::Problem::File;
    }
    // In the place of a file's name, which goes as far as its last slash.
    QString const what = tr("The configuration of %1").arg(m_name);
    ConfigurationNotice::Loaded(QString(what).replace(QLatin1Char('/'), QLatin1Char('-')), status, report);
    return true;
}

// ---- The loss -------------------------------------------------------------------------------------------------------

void Reconnect::Lost(Session *session, TovCam::System *system)
{
    if (!session || session == m_lost)
        return;
    TovCam::DeviceInfo *const info = session->GetDevice()->GetDeviceInfo();
    CameraLookout::Camera const camera(info);
    if (camera.serial.empty()) {
        NoticeBoard::Instance().Report(
            NoticeTopic::Camera, NoticeLevel::Warning,
            tr("%1 is not waited for: without a serial number it cannot be told from others").arg(NameOf(info)));
        return;
    }
    m_lost = session;
    m_hasGone = false;
    m_found = nullptr;
    if (m_stage == Stage::Opening)
        return; // what was interrupted before still is; who opens it will tell
    if (session != m_session)
        m_picture = m_recording = false;
    SessionState const state = session->GetState();
    m_endsRecording = state == SessionStateCapturing;
    m_picture = m_picture || state == SessionStateAcquisition || state == SessionStateCapturing;
    m_recording = m_recording || m_endsRecording;
    m_session.clear();
    m_system = system;
    m_camera = camera;
    m_name = NameOf(info);
    m_since = QDateTime::currentDateTime();
    Look();
}

void Reconnect::Look()
{
    m_found = nullptr;
    m_lookout.Begin(m_system, *m_camera);
    TellWaiting(false);
    SetStage(Stage::Waiting);
}

void Reconnect::SessionStopped(Session *session)
{
    if (session != m_lost || !std::exchange(m_endsRecording, false))
        return;
    m_recordingEnd = WriterOf(session)->GetEnd();
    m_recording = m_recording && !m_recordingEnd.isSnap;
}

void Reconnect::SessionClosed(bool lost)
{
    m_lost = nullptr;
    m_endsRecording = false;
    if (!lost && m_stage == Stage::None)
        m_settings.reset();
    if (m_stage != Stage::Waiting)
        return;
    NoticeBoard::Instance().Withdraw(NoticeTopic::Camera); // for a place before what the end of the recording has told
    TellWaiting(false);
    QMetaObject::invokeMethod(this, &Reconnect::Open, Qt::QueuedConnection);
}

void Reconnect::Looked(TovCam::DeviceInfo *camera, bool free)
{
    if (m_stage != Stage::Waiting)
        return;
    m_hasGone = m_hasGone || !camera;
    m_found = free ? camera : nullptr;
    if (m_lost) {
        // It may be our own that has it still.
        if (m_found || (camera && m_hasGone))
            emit seen();
        return;
    }
    TellWaiting(camera && !free);
    Open();
}

void Reconnect::Open()
{
    if (m_stage != Stage::Waiting || m_lost || !m_found || WaitingAction::Current())
        return; // the next look comes here again
    m_lookout.End();
    SetStage(Stage::Opening);
    emit back(std::exchange(m_found, nullptr));
}

// ---- The return -----------------------------------------------------------------------------------------------------

void Reconnect::Failed()
{
    m_lost = nullptr;
    Look();
}

void Reconnect::GivenUp()
{
    m_stage = Stage::Waiting;
    End();
}

void Reconnect::Opened(Session *session)
{
    if (m_lost == session) {
        Look();
        return;
    }
    QString const text = tr("%1 is back: it was lost at %2, and away for %3 s")
                             .arg(m_name, m_since.time().toString(QStringLiteral("HH:mm:ss")))
                             .arg(m_since.secsTo(QDateTime::currentDateTime()));
    bool const ends = m_recording && !IsSet(ResumeKey);
    m_recording = m_recording && !ends;
    Tell(NoticeLevel::Warning, ends ? tr("%1. Its recording has ended").arg(text) : text);
    m_session = session;
    m_started = false;
    connect(session, &Session::signalUpdateGui, this, &Reconnect::GoOn, Qt::QueuedConnection);
    QMetaObject::invokeMethod(this, &Reconnect::GoOn, Qt::QueuedConnection);
    SetStage(Stage::None);
}

// Behind an action of the session's state machine, never within it.
void Reconnect::GoOn()
{
    if (!m_session || m_stage != Stage::None || WaitingAction::IsWaiting())
        return; // what waits ends with another change of state
    Session *const session = m_session;
    switch (session->GetState()) {
    case SessionStateIdle:
        if (m_picture && !std::exchange(m_started, true))
            emit session->signalStartAcquisition();
        else
            Forget(); // there is nothing to go on with, or it cannot
        break;
    case SessionStateAcquisition:
        m_picture = false;
        if (std::exchange(m_recording, false)) {
            WriterOf(session)->ContinueAfter(m_recordingEnd);
            emit session->signalStartCapturing();
        }
        Forget();
        break;
    default: // its state machine does not run yet
        break;
    }
}

void Reconnect::Forget()
{
    m_picture = m_recording = false;
    if (m_session)
        disconnect(m_session, nullptr, this, nullptr);
    m_session.clear();
}

void Reconnect::End()
{
    if (m_stage == Stage::Opening)
        return;
    m_lookout.End();
    Forget();
    if (std::exchange(m_told, false))
        NoticeBoard::Instance().Withdraw(NoticeTopic::Camera);
    SetStage(Stage::None);
}

// ---- What is told ---------------------------------------------------------------------------------------------------

void Reconnect::SetStage(Stage stage)
{
    if (std::exchange(m_stage, stage) != stage)
        emit changed();
}

void Reconnect::TellWaiting(bool inUse)
{
    Tell(NoticeLevel::Error, inUse ? tr("Waiting for %1... It is in use by another program").arg(m_name)
                                   : tr("Waiting for %1...").arg(m_name));
}

void Reconnect::Tell(NoticeLevel level, QString const &text)
{
    m_told = true;
    NoticeBoard::Instance().Post(NoticeTopic::Camera, level, text);
}
