#include "session.h"

#include "acquisitionsequence.h"
#include "answerwatch.h"
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
#include "sessionhost.h"
#include "sessionname.h"
#include "tovlog.h"
#include "tovscopeexception.h"
#include "waitingaction.h"

#include "tovplaintext.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QMainWindow>
#include <QMessageBox>

namespace {

constexpr auto StateBeforeTheFirst = static_cast<SessionState>(-1);
constexpr int LongestName = 80; // of a camera or a file, in characters

QString FileName(QString const &path)
{
    return TovPlainLine(QFileInfo(path).fileName(), LongestName);
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
    device->SetGiveUp(m_givenUp);
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
        WaitWithin([this] { InitSession(); });
    } catch (...) {
        RemoveComponents();
        throw;
    }
}

Session::~Session()
{
    // The machine of a session that was given up early: its start must not meet what is half gone.
    QCoreApplication::removePostedEvents(&m_stateMachine);
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
    m_answers.reset();
    WaitFor([this] { m_device->Release(); }, IfGivenUp::CallAllTheSame);
}

void Session::Wait(QString const &what, std::function<void()> const &action)
{
    m_window->Wait(MakeWait(what), action);
}

CameraWait Session::MakeWait(QString const &what) const
{
    return {what, m_givenUp, {}};
}

void Session::WaitWithin(std::function<void()> const &part)
{
    if (WaitingAction::Current())
        Wait({}, part); // what is shown is the whole action's
    else
        part();
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
    m_answers = std::make_unique<AnswerWatch>(m_device, m_displayName);
    m_device->RegisterEvent(TovCam::EventConnectionLost, CameraDisconnectCallback, this);
    m_device->RegisterEvent(TovCam::EventPacketsMissed, PacketsMissedCallback, this);
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

bool Session::IsCameraLost() const
{
    return m_cameraLost;
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

QString Session::GetPlainName() const
{
    return TovPlainLine(m_displayName, LongestName);
}

void Session::LoadConfiguration(QString const &path)
{
    std::int32_t status = 0;
    bool givenUp = false;
    Wait(tr("Loading %1 into %2").arg(FileName(path), GetPlainName()), [&] {
        status =
            WaitFor([&] { return m_device->LoadConfiguration(path.toUtf8().constData()); }, IfGivenUp::CallAllTheSame);
        givenUp = status != 0 && WaitingAction::IsCurrentGivenUp();
    });
    if (givenUp)
        ConfigurationNotice::LoadingGivenUp(path);
    else
        ConfigurationNotice::Loaded(path, status, m_device->GetConfigurationReport());
}

void Session::SaveConfiguration(QString const &path)
{
    std::int32_t status = 0;
    bool givenUp = false;
    Wait(tr("Saving the configuration of %1").arg(GetPlainName()), [&] {
        status =
            WaitFor([&] { return m_device->SaveConfiguration(path.toUtf8().constData()); }, IfGivenUp::CallAllTheSame);
        givenUp = status != 0 && WaitingAction::IsCurrentGivenUp();
    });
    if (givenUp) {
        ConfigurationNotice::SavingGivenUp(path);
        return;
    }
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
    QString report;
    bool givenUp = false;
    Wait(tr("Reading what %1 reports about itself").arg(GetPlainName()), [&] {
        report = WaitFor([this] { return CameraReport(m_device); }, IfGivenUp::CallAllTheSame);
        givenUp = WaitingAction::IsCurrentGivenUp();
    });
    return givenUp ? QString() : report.isNull() ? QStringLiteral("") : report;
}

std::vector<LossFinding> Session::GetLosses()
{
    return m_writer ? ExplainLosses(m_lossBase, m_writer->GetLossCounts()) : std::vector<LossFinding>();
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
