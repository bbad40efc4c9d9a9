#include "reconnect.h"

#include "configurationnotice.h"
#include "imagewriter.h"
#include "managedwindow.h"
#include "rigtestplugin.h"
#include "session.h"
#include "tovlog.h"
#include "waitingaction.h"

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

QString NameOf(TovCam::DeviceInfo *camera)
{
    return TovPlainLine(QString::fromUtf8(camera->GetDisplayName()), LongestName);
}

ImageWriter *WriterOf(Session *session)
{
    return static_cast<ImageWriter *>(session->GetImageWriter());
}

} // namespace

std::chrono::milliseconds Reconnect::s_readingLimit{10000};

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
    if (session->GetState() != SessionStateIdle)
        return true;
    Forget(); // from here on it is the operator's picture
    if (!IsOn() || session == m_slow)
        return true;
    TovCam::Device *const device = session->GetDevice();
    CameraLookout::Camera const camera(device->GetDeviceInfo());
    if (camera.serial.empty())
        return true;
    QTemporaryDir const folder;
    QFile file(folder.filePath(QStringLiteral("camera.tcfg")));
    QByteArray const name = QFile::encodeName(file.fileName());
    std::int32_t status = TOV_CAM_ERR_FILE_NOT_FOUND;
    bool cancelled = false;
    CameraWait wait = session->MakeWait(
        tr("Reading the settings of %1, which it gets back if it is lost").arg(session->GetPlainName()));
    wait.limit = s_readingLimit;
    m_window->Wait(wait, [&] {
        if (folder.isValid())
            status = WaitFor([&] { return device->SaveConfiguration(name.constData()); });
        WaitingAction const *const action = WaitingAction::Current();
        cancelled = action && action->IsGivenUp() && !action->IsOverdue();
        if (action && action->IsOverdue()) {
            m_slow = session;
            status = TOV_CAM_ERR_NO_DEVICE; // whatever the call says
        }
    });
    if (cancelled || m_lost == session)
        return false; // what is known from before is still the best
    m_settings.reset();
    if (status == 0 && file.open(QIODevice::ReadOnly))
        m_settings = Settings{camera, file.readAll()};
    if (!m_settings || m_settings->text.isEmpty()) {
        m_settings.reset();
        NoticeBoard::Instance().Report(
            NoticeTopic::Camera, NoticeLevel::Warning,
            tr("The settings of %1 could not be read: after a loss it would come back without them")
                .arg(session->GetPlainName()));
    }
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
    if (!m_camera)
        return;
    m_found = nullptr;
    m_lookout.Begin(m_system, *m_camera);
    TellWaiting(nullptr);
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
    TellWaiting(nullptr);
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
    TellWaiting(free ? nullptr : camera);
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
    m_tried = m_starts = false;
    connect(session, &Session::signalUpdateGui, this, &Reconnect::GoOn, Qt::QueuedConnection);
    QMetaObject::invokeMethod(this, &Reconnect::GoOn, Qt::QueuedConnection);
    SetStage(Stage::None);
}

// Behind an action of the session's state machine, never within it.
void Reconnect::GoOn()
{
    if (!m_session || m_stage != Stage::None)
        return;
    if (WaitingAction::IsWaiting()) {
        WaitingAction::WhenOver(this,
                                [this] { QMetaObject::invokeMethod(this, &Reconnect::GoOn, Qt::QueuedConnection); });
        return;
    }
    Session *const session = m_session;
    switch (session->GetState()) {
    case SessionStateIdle:
        // Once. Where it fails, and the camera is lost again, there is still something to go on with.
        m_starts = m_picture && !std::exchange(m_tried, true);
        if (m_starts)
            emit session->signalStartAcquisition();
        else if (!m_picture)
            Forget();
        break;
    case SessionStateAcquisition:
        m_picture = false;
        if (std::exchange(m_recording, false) && m_starts) {
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

// `camera`: it is there, but cannot be opened.
void Reconnect::TellWaiting(TovCam::DeviceInfo *camera)
{
    QString const text = tr("Waiting for %1...").arg(m_name);
    if (!camera)
        Tell(NoticeLevel::Error, text);
    else if (camera->GetNetworkPlace().isForeign)
        Tell(NoticeLevel::Error,
             tr("%1 It is in a wrong subnet, at %2").arg(text, QString::fromUtf8(camera->GetAddress())));
    else
        Tell(NoticeLevel::Error, tr("%1 It is in use by another program").arg(text));
}

void Reconnect::Tell(NoticeLevel level, QString const &text)
{
    m_told = true;
    NoticeBoard::Instance().Post(NoticeTopic::Camera, level, text);
}
