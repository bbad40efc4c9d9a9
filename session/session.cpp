#include "session.h"

#include "acquisitionsequence.h"
#include "appsettings.h"
#include "camerareport.h"
#include "configurationnotice.h"
#include "displayview.h"
#include "grabbingfifo.h"
#include "imagewriter.h"
#include "imgprocessor.h"
#include "losstext.h"
#include "packetlog.h"
#include "qttovlogmodel.h"
#include "recordedconfiguration.h"
#include "rigtestplugin.h"
#include "sessionhost.h"
#include "sessionname.h"
#include "tovlog.h"
#include "tovscopeexception.h"
#include "waitingaction.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFinalState>
#include <QMainWindow>
#include <QMessageBox>
#include <QState>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

constexpr auto StateBeforeTheFirst = static_cast<SessionState>(-1);

void SayOnStandardOutput(char const *text)
{
    std::puts(text);
    std::fflush(stdout);
}

} // namespace

unsigned char Session::s_CompID = 0;

Session::Session(QObject *parent, TovCam::Device *device, SessionHost *window)
    : QObject(parent),
      TovComponentImp(++s_CompID),
      m_window(window),
      m_state(StateBeforeTheFirst),
      m_device(device)
{
    TovCam::DeviceInfo *const info = device->GetDeviceInfo();
    m_displayName = QString::fromUtf8(info->GetDisplayName());
    m_interfaceDescription = QString::fromUtf8(info->GetInterface()->GetInterfaceDescription());

    struct
    {
        char const *key;
        bool *variable;
    } const switches[] = {{"EnableLog", &m_enableLog},
                          {"LogControl", &m_logControl},
                          {"LogStream", &m_logStream},
                          {"LogEvent", &m_logEvent}};
    for (auto const &entry : switches) {
        AddBoolParam(entry.key, entry.variable, false);
        m_storage.AddParamChangedListener(entry.key, this);
    }
    try {
        InitSession();
    } catch (...) {
        RemoveComponents();
        throw;
    }
}

Session::~Session()
{
    m_device->UnregisterEvent(TovCam::EventConnectionLost, CameraDisconnectCallback, this);
    m_device->UnregisterEvent(TovCam::EventPacketsMissed, PacketsMissedCallback, this);
    EndAllChannels();
    m_log->Watch().KeepLines();
    StopWriter();
    m_sequence->StopWhatStillRuns();
    m_window->RemoveDisplayWidget(m_display.get());
    SaveSettings();
    m_grabber.reset();
    m_writer.reset();
    m_display.reset();
    m_device->Release();
}

void Session::LeaveLog()
{
    m_log->Watch().LeaveLines();
}

void Session::SaveSettings()
{
    AppSettings::SaveTovComponentSettings(m_settings, QStringLiteral("Grabber"), GetGrabber());
    AppSettings::SaveTovComponentSettings(m_settings, QStringLiteral("Writer"), GetImageWriter());
    AppSettings::SaveTovComponentSettings(m_settings, QStringLiteral("Display"), GetDisplay());
}

void Session::InitSession()
{
    if (!InitStateMachine())
        throw TovScopeException("InitStateMachine( ) failed", 0);
    if (!CreateGrabber())
        throw TovScopeException("CreateGrabber( ) failed", 0);
    if (!CreateDisplayView())
        throw TovScopeException("CreateDisplayView( ) failed", 0);
    if (!CreateImgProcessor())
        throw TovScopeException("CreateImgProcessor( ) failed", 0);
    if (!CreateWriter())
        throw TovScopeException("CreateWriter( ) failed", 0);
    m_sequence = std::make_unique<AcquisitionSequence>(m_device, m_grabber.get(), m_display.get());
    m_logModel = new QtTovLogModel(this);
    m_log = std::make_unique<PacketLog>(m_device->GetDeviceInfo()->GetInterface()->GetInterfaceKind(), m_logModel,
                                        m_window->GetMainWindow());
    connect(&m_log->Watch(), &LogWatch::memoryShort, this, &Session::endLogging);
    SessionName const name = WaitFor([this] { return ReadSessionName(m_device); });
    if (WaitingAction const *const action = WaitingAction::Current(); action && action->IsGivenUp())
        throw WaitingGivenUp();
    m_settingsName = name.settings;
    m_title = name.title;
    m_settings = m_window->GetSessionSettings(m_settingsName);
    AppSettings::LoadTovComponentSettings(m_settings, QStringLiteral("Grabber"), GetGrabber());
    AppSettings::LoadTovComponentSettings(m_settings, QStringLiteral("Writer"), GetImageWriter());
    AppSettings::LoadTovComponentSettings(m_settings, QStringLiteral("Display"), GetDisplay());
    ResetVolatileParams();
    m_device->RegisterEvent(TovCam::EventConnectionLost, CameraDisconnectCallback, this);
    m_device->RegisterEvent(TovCam::EventPacketsMissed, PacketsMissedCallback, this);
}

bool Session::InitStateMachine()
{
    auto *const root = new QState;
    auto *const idle = new QState(root);
    auto *const acquisition = new QState(root);
    auto *const capturing = new QState(root);
    auto *const final = new QFinalState;
    root->setInitialState(idle);
    m_stateMachine.addState(root);
    m_stateMachine.addState(final);
    m_stateMachine.setInitialState(root);

    connect(idle, &QState::entered, this, &Session::enterIdle);
    connect(idle, &QState::exited, this, &Session::exitIdle);
    connect(acquisition, &QState::entered, this, &Session::enterAcquisition);
    connect(acquisition, &QState::exited, this, &Session::exitAcquisition);
    connect(capturing, &QState::entered, this, &Session::enterCapturing);
    connect(capturing, &QState::exited, this, &Session::exitCapturing);
    connect(&m_stateMachine, &QStateMachine::finished, this, &Session::enterDisconnected);

    // While capturing, signalStopAcquisition does nothing: whoever stops the acquisition has to stop capturing first.
    root->addTransition(this, &Session::signalCameraStateDisconnected, final);
    idle->addTransition(this, &Session::signalStartAcquisition, acquisition);
    acquisition->addTransition(this, &Session::signalStopAcquisition, idle);
    acquisition->addTransition(this, &Session::signalStartCapturing, capturing);
    capturing->addTransition(this, &Session::signalStopCapturing, acquisition);
    // Not in the event loop of a wait, before everything is there.
    WaitingAction::WhenOver(&m_stateMachine, [this] { m_stateMachine.start(); });
    return true;
}

bool Session::CreateGrabber()
{
    m_grabber.reset();
    m_grabber = std::make_unique<GrabbingFifo>(this, m_device);
    return true;
}

bool Session::CreateDisplayView()
{
    if (m_display) {
        m_window->RemoveDisplayWidget(m_display.get());
        m_display.reset();
    }
    if (!m_grabber)
        return false;
    m_display = std::make_unique<DisplayView>(m_window->GetMainWindow(), m_grabber.get());
    connect(m_display.get(), &DisplayView::mouseMoved, this,
            [window = m_window](int x, int y, int r, int g, int b) { window->setCoordinatesAndValue(x, y, r, g, b); });
    return m_window->AddDisplayWidget(m_display.get());
}

bool Session::CreateImgProcessor()
{
    delete m_imgProcessor;
    m_imgProcessor = nullptr;
    if (!m_display)
        return false;
    m_imgProcessor = new ImgProcessor(this, m_display.get());
    return true;
}

bool Session::CreateWriter()
{
    m_writer.reset();
    if (!m_grabber)
        return false;
    m_writer = std::make_unique<ImageWriter>(this, m_grabber.get(), m_imgProcessor);
    // They come from the writer's thread. Reports of a recording that was stopped otherwise must not end the next one:
    // a receiver of their own lets exitCapturing take them back.
    connect(
        m_writer.get(), &ImageWriter::WritingDone, &m_writerReports, [this] { stopCapturing(); }, Qt::QueuedConnection);
    connect(m_writer.get(), &ImageWriter::EvaluationTestDone, this, &Session::stopCapturingAndAcquisition,
            Qt::QueuedConnection);
    return true;
}

void Session::ResetVolatileParams()
{
    TovComponent *const grabber = GetGrabber();
    for (char const *key :
         {"FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "FramesIncomp", "Timestamp", "FrameID"})
        grabber->SetParamInt(key, 0);
    for (char const *key : {"FpsAvg", "FpsInst", "Speed"})
        grabber->SetParamFloat(key, 0.0);
    for (char const *key : {"CaptureFramesAcquired", "CaptureFramesDroppedHW", "CaptureFramesDroppedSW", "FramesSaved"})
        GetImageWriter()->SetParamInt(key, 0);
}

// Of a session that could not be built.
void Session::RemoveComponents()
{
    if (m_display)
        m_window->RemoveDisplayWidget(m_display.get());
    m_writer.reset();
    m_display.reset();
    m_grabber.reset();
}

TovComponent *Session::GetGrabber()
{
    return m_grabber.get();
}

TovComponent *Session::GetDisplay()
{
    return m_display.get();
}

TovComponent *Session::GetImgProcessor()
{
    return m_imgProcessor;
}

ImgProcessor *Session::GetAnalysis()
{
    return m_imgProcessor;
}

TovComponent *Session::GetImageWriter()
{
    return m_writer.get();
}

TovComponent *Session::GetImageSerializer()
{
    return m_writer ? m_writer->GetSerializer() : nullptr;
}

bool Session::SnapNextFrame()
{
    m_writer->RequestSnap();
    emit signalStartCapturing();
    return true;
}

DisplayView *Session::GetDisplayView()
{
    return m_display.get();
}

SessionState Session::GetState() const
{
    return m_state;
}

TovCam::Device *Session::GetDevice() const
{
    return m_device;
}

QSettings *Session::GetSettings() const
{
    return m_settings;
}

QString const &Session::GetSettingsName() const
{
    return m_settingsName;
}

QString const &Session::GetTitle() const
{
    return m_title;
}

void Session::LoadConfiguration(QString const &path)
{
    std::int32_t const status = m_device->LoadConfiguration(path.toUtf8().constData());
    ConfigurationNotice::Loaded(path, status, m_device->GetConfigurationReport());
}

void Session::SaveConfiguration(QString const &path)
{
    std::int32_t const status = m_device->SaveConfiguration(path.toUtf8().constData());
    ConfigurationNotice::Saved(path, status, m_device->GetConfigurationReport());
    if (status == 0)
        return;
    QString text = tr("Can not save configuration file: ") + path;
    if (status == TOV_CAM_ERR_GENICAM_GENERIC)
        text += tr("\nGen<i>Cam error");
    else if (status == TOV_CAM_ERR_UNKNOWN)
        text += tr("\nUnknown error");
    if (QApplication::overrideCursor()) // nothing waits while the operator is asked
        QApplication::changeOverrideCursor(Qt::ArrowCursor);
    // The session may go while it is open.
    QMessageBox box(QMessageBox::Critical, tr("Error"), text, QMessageBox::Ok, m_window->GetMainWindow());
    box.setTextFormat(Qt::PlainText);
    box.exec();
}

QString Session::GetCameraInfo()
{
    return CameraReport(m_device);
}

std::vector<LossFinding> Session::GetLosses()
{
    return ExplainLosses(m_lossBase, m_writer->GetLossCounts());
}

void Session::LogLosses()
{
    for (LossFinding const &finding : GetLosses())
        TovLog::Warning(static_cast<unsigned long>(finding.frames), "Lost since the start: %s",
                        qPrintable(LossLine(finding)));
}

void Session::CameraDisconnectCallback(void const * /*data*/, unsigned long /*size*/, void *user)
{
    static_cast<Session *>(user)->m_cameraLost = true;
    emit static_cast<Session *>(user)->signalCameraDisconnected(user, DisconnectReasonCameraLost);
}

void Session::stopCapturing()
{
    emit signalStopCapturing();
}

void Session::stopCapturingAndAcquisition()
{
    emit signalStopCapturing();
    emit signalStopAcquisition();
}

// Of a session that ends while it records.
void Session::StopWriter()
{
    try {
        if (m_writer->IsWriting())
            m_writer->StopWriting();
    } catch (...) { // the files may be broken; the camera is closed all the same
    }
}

void Session::enterIdle()
{
    if (m_state == SessionStateAcquisition || m_state == SessionStateCapturing) {
        try {
            m_sequence->Stop();
            LogLosses();
            if (RigTestPlugin *const plugin = GetRigTest()) {
                SayOnStandardOutput("GetRigTest()->OnStop()");
                plugin->OnStop();
            }
        } catch (...) { // what still runs is stopped before the next start, or at the end
        }
    }
    m_grabber->SetState(SessionStateIdle);
    m_state = SessionStateIdle;
    emit signalUpdateGui();
}

void Session::exitIdle()
{
}

void Session::enterAcquisition()
{
    if (m_state == SessionStateIdle) {
        m_sequence->StopWhatStillRuns();
        m_lossBase = m_writer->GetLossCounts();
        try {
            if (RigTestPlugin *const plugin = GetRigTest()) {
                SayOnStandardOutput("GetRigTest()->PrepareToAcquition()");
                plugin->PrepareToAcquition();
            }
            m_sequence->Start();
        } catch (...) {
            m_sequence->RecoverFromFailedStart();
            // The machine is in Acquisition while the state stays Idle; the answer to this signal takes it back.
            emit signalSessionStateError(this, SessionErrorStartAcquisition);
            return;
        }
    }
    m_state = SessionStateAcquisition;
    m_grabber->SetState(SessionStateAcquisition);
    emit signalUpdateGui();
}

void Session::exitAcquisition()
{
}

void Session::enterCapturing()
{
    try {
        if (RigTestPlugin *const plugin = GetRigTest())
            plugin->OnStartCapturing();
        m_grabber->SetState(SessionStateCapturing);
        m_writer->SetCompanions(m_window->WantsCompanions());
        m_writer->StartWriting();
    } catch (...) {
        // The machine stays in Capturing with the state that was, in which Stop does nothing: the operator has to
        // disconnect.
        emit signalSessionStateError(this, SessionErrorStartCapturing);
        return;
    }
    m_state = SessionStateCapturing;
    emit signalUpdateGui();
}

void Session::exitCapturing()
{
    try {
        RecordedConfiguration configuration(m_device, m_cameraLost);
        m_writer->StopWriting([&] { return configuration.Take(); });
        QCoreApplication::removePostedEvents(&m_writerReports);
        configuration.Keep(*m_writer);
    } catch (...) {
        emit signalSessionStateError(this, SessionErrorStopCapturing);
    }
    // The state stays SessionStateCapturing until the next action has written it.
}

void Session::enterDisconnected()
{
    enterIdle();
    m_grabber->SetState(SessionStateDisconnected);
    m_state = SessionStateDisconnected;
    emit signalUpdateGui();
}

void Session::exitDisconnected()
{
}

void Session::startTestBW()
{
    m_window->RunBandwidthTest(this);
}

// Every channel each time: the main switch is part of all of them. A refusal inside comes back here for its own switch.
void Session::ParamChanged(_TovStParam param)
{
    bool const isMain = std::strcmp(param.name, "EnableLog") == 0;
    if (!isMain && std::none_of(std::begin(PacketLog::Channels), std::end(PacketLog::Channels),
                                [&](LogChannelInfo const &info) { return std::strcmp(param.name, info.key) == 0; }))
        return;
    EnableLog(LogEnumControl, m_enableLog && m_logControl);
    EnableLog(LogEnumStream, m_enableLog && m_logStream);
    EnableLog(LogEnumEvent, m_enableLog && m_logEvent);
}

bool Session::EnableLog(LogEnum channel, bool enable)
{
    auto const found = m_logChannels.find(channel);
    if ((found != m_logChannels.end()) == enable)
        return true;
    if (!enable) {
        // No callback runs any more when it returns, so the node may go.
        m_device->UnregisterEvent(channel, LogEvent, &found->second);
        m_logChannels.erase(found);
        m_log->Watch().SetLogging(!m_logChannels.empty());
        return true;
    }
    auto const added = m_logChannels.emplace(channel, LogChannel{channel, this}).first;
    m_log->Watch().SetLogging(true);
    if (m_device->RegisterEvent(channel, LogEvent, &added->second) == 0)
        return true;
    m_logChannels.erase(added);
    m_log->Watch().SetLogging(!m_logChannels.empty());
    if (LogChannelInfo const *const info = PacketLog::FindChannel(channel))
        m_storage.SetParamBool(info->key, false, true);
    return false;
}

// The main switch, as a click would set it, and the channels that were switched on without it.
void Session::endLogging()
{
    m_storage.SetParamBool("EnableLog", false, true);
    EndAllChannels();
}

void Session::EndAllChannels()
{
    for (LogChannelInfo const &info : PacketLog::Channels)
        EnableLog(static_cast<LogEnum>(info.event), false);
}

void Session::LogEvent(void const *data, unsigned long size, void *user)
{
    auto const *const record = static_cast<LogChannel const *>(user);
    record->session->WriteLog(record->channel, data, size);
}

void Session::PacketsMissedCallback(void const *data, unsigned long size, void *user)
{
    std::uint64_t missed = 0;
    std::memcpy(&missed, data, std::min<std::size_t>(size, sizeof missed));
    if (user)
        static_cast<Session *>(user)->m_log->Watch().NoteMissed(missed);
    TovLog::Warning(static_cast<unsigned long>(missed),
                    "Session: packets of the log's channels were lost before they could be logged");
}

void Session::WriteLog(LogEnum channel, void const *data, unsigned long size)
{
    m_log->Write(channel, data, size);
}

QString Session::MakeLogStringFromData(LogEnum channel, void const *data, unsigned long size)
{
    return m_log->MakeLine(channel, data, size);
}

QtTovLogModel *Session::GetLogModel() const
{
    return m_logModel;
}

void Session::clearLog()
{
    if (m_logModel)
        m_logModel->clear();
}

void Session::saveLog()
{
    if (m_logModel)
        m_log->Watch().Save();
}

bool Session::IsSavingLog() const
{
    return m_log->Watch().IsSaving();
}

QString Session::GetLogReport() const
{
    return m_log->Watch().Report();
}
