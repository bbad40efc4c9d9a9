#include "session.h"

#include "appsettings.h"
#include "camerareport.h"
#include "configurationnotice.h"
#include "displayview.h"
#include "grabbingfifo.h"
#include "imagewriter.h"
#include "imgprocessor.h"
#include "logstringmaker.h"
#include "logwatch.h"
#include "qttovlogmodel.h"
#include "rigtestplugin.h"
#include "sessionhost.h"
#include "tovlog.h"
#include "tovscopeexception.h"

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
#include <new>
#include <stdexcept>

namespace {

constexpr auto StateBeforeTheFirst = static_cast<SessionState>(-1);

// What tells a log's channels apart, in the order in which they are switched.
struct LogChannelInfo
{
    Session::LogEnum channel;
    QString name;
    char const *key; // of its switch
    QString (LogStringMaker::*makeLine)(void const *data, unsigned long size);
};
LogChannelInfo const LogChannels[] = {
    {Session::LogEnumControl, QStringLiteral("Control"), "LogControl", &LogStringMaker::MakeControlLogString},
    {Session::LogEnumStream, QStringLiteral("Stream"), "LogStream", &LogStringMaker::MakeStreamLogString},
    {Session::LogEnumEvent, QStringLiteral("Event"), "LogEvent", &LogStringMaker::MakeEventLogString},
};

// Null for any other value.
LogChannelInfo const *findLogChannel(Session::LogEnum channel)
{
    auto const found = std::find_if(std::begin(LogChannels), std::end(LogChannels),
                                    [channel](LogChannelInfo const &info) { return info.channel == channel; });
    return found != std::end(LogChannels) ? found : nullptr;
}

// A camera without the node starts all the same.
bool isFailure(std::int32_t status)
{
    return status != 0 && status != TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

void sayOnStandardOutput(char const *text)
{
    std::puts(text);
    std::fflush(stdout);
}

// Runs a step whose failure must not keep the next one from running. False when it threw.
bool runGuarded(std::function<void()> const &step)
{
    try {
        step();
        return true;
    } catch (...) {
        return false;
    }
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
    MakeLogStringMaker();
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
    for (LogChannelInfo const &info : LogChannels)
        EnableLog(info.channel, false);
    m_logWatch->KeepLines();
    runGuarded([this] { StopWriter(); });
    StopWhatStillRuns();
    m_window->RemoveDisplayWidget(m_display.get());
    SaveSettings();
    m_grabber.reset();
    m_writer.reset();
    m_display.reset();
    m_device->Release();
}

void Session::LeaveLog()
{
    m_logWatch->LeaveLines();
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
    m_logModel = new QtTovLogModel(this);
    m_logWatch = std::make_unique<LogWatch>(m_logModel, m_window->GetMainWindow());
    connect(m_logWatch.get(), &LogWatch::memoryShort, this, &Session::endLogging);
    ReadIdentity();
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

    // Nothing leads out of Capturing on signalStopAcquisition, or out of Idle on signalStopCapturing. That is meant.
    root->addTransition(this, &Session::signalCameraStateDisconnected, final);
    idle->addTransition(this, &Session::signalStartAcquisition, acquisition);
    acquisition->addTransition(this, &Session::signalStopAcquisition, idle);
    acquisition->addTransition(this, &Session::signalStartCapturing, capturing);
    capturing->addTransition(this, &Session::signalStopCapturing, acquisition);
    m_stateMachine.start();
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

void Session::MakeLogStringMaker()
{
    switch (m_device->GetDeviceInfo()->GetInterface()->GetInterfaceKind()) {
    case TovCam::InterfaceKindUSB3Vision:
        m_logStringMaker = std::make_unique<LogStringMakerU3V>();
        break;
    case TovCam::InterfaceKindGigEVision:
        m_logStringMaker = std::make_unique<LogStringMakerGEV>();
        break;
    default:
        break;
    }
}

void Session::ReadIdentity()
{
    m_settingsName = QStringLiteral("Session");
    m_title.clear();
    TovCam::ParamArray *const params = m_device->GetCameraParameters(nullptr);
    if (!params)
        return;
    auto const valueOf = [params](char const *name, QString *value) {
        TovCam::StringParam *const node = params->GetString(name, nullptr);
        if (node)
            *value = QString::fromUtf8(node->GetValue(nullptr));
        return node != nullptr;
    };
    // Cameras of one model and user id share their settings; the serial number is for the title alone.
    QString value;
    if (valueOf("DeviceUserID", &value)) {
        m_settingsName += QStringLiteral("_%1").arg(value);
        m_title += QStringLiteral(" %1").arg(value);
    }
    if (valueOf("DeviceModelName", &value)) {
        m_settingsName += QStringLiteral("_%1").arg(value);
        m_title += QStringLiteral(" [%1").arg(value);
    }
    if (valueOf("DeviceSerialNumber", &value))
        m_title += QStringLiteral(", SN:%1").arg(value);
    m_title += QLatin1Char(']');
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
    QString text = QStringLiteral("Can not save configuration file: ") + path;
    if (status == TOV_CAM_ERR_GENICAM_GENERIC)
        text += QStringLiteral("\nGen<i>Cam error");
    else if (status == TOV_CAM_ERR_UNKNOWN)
        text += QStringLiteral("\nUnknown error");
    if (QApplication::overrideCursor()) // nothing waits while the operator is asked
        QApplication::changeOverrideCursor(Qt::ArrowCursor);
    // The session may go while it is open.
    QMessageBox::critical(m_window->GetMainWindow(), QStringLiteral("Error"), text, QMessageBox::Ok);
}

QString Session::GetCameraInfo()
{
    return CameraReport(m_device);
}

void Session::CameraDisconnectCallback(void const * /*data*/, unsigned long /*size*/, void *user)
{
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

std::int32_t Session::ExecuteCommand(char const *name)
{
    TovCam::ParamArray *const params = m_device->GetCameraParameters(nullptr);
    return params ? params->ExecuteCommand(name) : TOV_CAM_ERR_NO_DEVICE;
}

std::int32_t Session::SetIntegerValue(char const *name, std::int64_t value)
{
    TovCam::ParamArray *const params = m_device->GetCameraParameters(nullptr);
    return params ? params->SetIntegerValue(name, value) : TOV_CAM_ERR_NO_DEVICE;
}

// The camera may be gone, so statuses are not looked at.
std::array<std::function<void()>, 5> Session::StopSteps()
{
    return {
        [this] {
            if (ExecuteCommand("AcquisitionStop") != 0)
                ExecuteCommand("AcquisitionAbort");
        },
        [this] { m_display->StopDisplaying(); },
        [this] { m_grabber->StopGrabbing(); },
        [this] { SetIntegerValue("TLParamsLocked", 0); },
        [this] { m_grabber->ReleaseBuffers(); },
    };
}

// After an exception has cut a stop short, or when the session goes without having been stopped.
void Session::StopWhatStillRuns()
{
    if (!m_enginesStarted)
        return;
    for (auto const &step : StopSteps())
        runGuarded(step);
    m_enginesStarted = false;
}

void Session::StopWriter()
{
    if (m_writer->IsWriting())
        m_writer->StopWriting();
}

void Session::enterIdle()
{
    if (m_state == SessionStateAcquisition || m_state == SessionStateCapturing) {
        try {
            // An exception skips the rest; what then still runs is stopped before the next start or the end.
            for (auto const &step : StopSteps())
                step();
            m_enginesStarted = false;
            if (RigTestPlugin *const plugin = GetRigTest()) {
                sayOnStandardOutput("GetRigTest()->OnStop()");
                plugin->OnStop();
            }
        } catch (...) {
        }
    }
    m_grabber->SetState(SessionStateIdle);
    m_state = SessionStateIdle;
    emit signalUpdateGui();
}

void Session::exitIdle()
{
}

void Session::StartAcquisition()
{
    if (RigTestPlugin *const plugin = GetRigTest()) {
        sayOnStandardOutput("GetRigTest()->PrepareToAcquition()");
        plugin->PrepareToAcquition();
    }
    if (m_grabber->CreateBuffers() != 0)
        throw std::runtime_error("CreateBuffers failed");
    if (isFailure(SetIntegerValue("TLParamsLocked", 1)))
        throw std::runtime_error("TLParamsLocked set failed");
    if (!m_grabber->StartGrabbing())
        throw std::runtime_error("StartGrabbing failed");
    if (isFailure(ExecuteCommand("AcquisitionStart")))
        throw std::runtime_error("AcquisitionStart execution failed");
    if (!m_display->StartDisplaying())
        throw std::runtime_error("StartDisplaying failed");
}

// The full list, no matter how far the start came.
void Session::RecoverFromFailedStart()
{
    bool stopped = runGuarded([this] { ExecuteCommand("AcquisitionAbort"); });
    stopped &= runGuarded([this] { m_grabber->StopGrabbing(); });
    stopped &= runGuarded([this] { SetIntegerValue("TLParamsLocked", 0); });
    stopped &= runGuarded([this] { m_grabber->ReleaseBuffers(); });
    m_enginesStarted = !stopped;
}

void Session::enterAcquisition()
{
    if (m_state == SessionStateIdle) {
        StopWhatStillRuns();
        m_enginesStarted = true;
        try {
            StartAcquisition();
        } catch (...) {
            RecoverFromFailedStart();
            // The machine stands in Acquisition while the state stays Idle; the answer to this signal takes it back.
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
        m_writer->StartWriting();
    } catch (...) {
        // The machine stays in Capturing with the state that was; only a disconnection leads out. That is meant.
        emit signalSessionStateError(this, SessionErrorStartCapturing);
        return;
    }
    m_state = SessionStateCapturing;
    emit signalUpdateGui();
}

void Session::exitCapturing()
{
    try {
        m_writer->StopWriting();
        QCoreApplication::removePostedEvents(&m_writerReports);
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
    if (!isMain && std::none_of(std::begin(LogChannels), std::end(LogChannels),
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
        m_logWatch->SetLogging(!m_logChannels.empty());
        return true;
    }
    auto const added = m_logChannels.emplace(channel, LogChannel{channel, this}).first;
    m_logWatch->SetLogging(true);
    if (m_device->RegisterEvent(channel, LogEvent, &added->second) == 0)
        return true;
    m_logChannels.erase(added);
    m_logWatch->SetLogging(!m_logChannels.empty());
    if (LogChannelInfo const *const info = findLogChannel(channel))
        m_storage.SetParamBool(info->key, false, true);
    return false;
}

// The main switch, as a click would set it; and what was switched on without it.
void Session::endLogging()
{
    m_storage.SetParamBool("EnableLog", false, true);
    for (LogChannelInfo const &info : LogChannels)
        EnableLog(info.channel, false);
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
        static_cast<Session *>(user)->m_logWatch->NoteMissed(missed);
    TovLog::Warning(static_cast<unsigned long>(missed),
                    "Session: packets of the log's channels have been lost on their way here");
}

void Session::WriteLog(LogEnum channel, void const *data, unsigned long size)
{
    LogChannelInfo const *const info = findLogChannel(channel);
    try {
        qlonglong time;
        if (!m_logWatch->Stamp(time)) // before the decoding: it is the packet's arrival
            return;
        QString const line = MakeLogStringFromData(channel, data, size);
        if (!line.isEmpty())
            m_logModel->append(time, info ? info->name : QString(), line);
    } catch (std::bad_alloc const &) {
        m_logWatch->NoteNoMemory(); // an exception would end the library's thread, and the process
    }
}

QString Session::MakeLogStringFromData(LogEnum channel, void const *data, unsigned long size)
{
    if (!m_logStringMaker)
        return {};
    LogChannelInfo const *const info = findLogChannel(channel);
    return info ? (m_logStringMaker.get()->*info->makeLine)(data, size) : QStringLiteral("UNKNOWN LOGGING EVENT TYPE");
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
        m_logWatch->Save();
}

bool Session::IsSavingLog() const
{
    return m_logWatch->IsSaving();
}

QString Session::GetLogReport() const
{
    return m_logWatch->Report();
}
