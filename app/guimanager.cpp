#include "guimanager.h"

#include "aboutdlg.h"
#include "actionstates.h"
#include "cameraerrortext.h"
#include "camerainfodlg.h"
#include "configurationnotice.h"
#include "displayview.h"
#include "hostcheckup.h"
#include "managedwindow.h"
#include "opening.h"
#include "paramchanged.h"
#include "playerpanel.h"
#include "reconnect.h"
#include "report.h"
#include "rigtestplugin.h"
#include "session.h"
#include "tovlog.h"
#include "tovscopeexception.h"

#include "tovcamera.h"
#include "tovcameragui.h"
#include "tovplaintext.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QStandardPaths>

#include <chrono>
#include <cstdint>
#include <exception>
#include <utility>

namespace {

constexpr char Producer[] = "WeftTL.cti";
constexpr std::uint32_t FullAccess = 2;
constexpr std::uint32_t EveryKind = 255;
constexpr int LongestName = 80; // of a camera or a file, in characters
// For a camera that does not answer, of the time that the end of the program has in all.
constexpr std::chrono::milliseconds ClosingTime{1500};

QString NameOf(TovCam::DeviceInfo *camera)
{
    return TovPlainLine(QString::fromUtf8(camera->GetDisplayName()), LongestName);
}

// Whether there is more to say of an opening than its messages do: an open camera may be one without a description.
bool IsTroubled(TovCam::Device *device, TovCam::OpenFailure const &failure)
{
    return !device || failure.refusal == TovCam::OpenRefusal::Description;
}

} // namespace

GuiManager::GuiState const (&GuiManager::s_stateMapInit)[42] = ActionStates::s_table;

GuiManager::GuiManager(ManagedWindow *window) : m_window(window), m_panels(window, this)
{
    SetParamChangedHandler(&PlayerPanel::OnParamChanged);
    BuildReconnect();
    m_hostCheckup = std::make_unique<HostCheckup>(window, this);
}

GuiManager::~GuiManager()
{
    m_closed = true;
    cameraDisconnect();
    m_panels.DeleteInspection(); // still there if the disconnection had to wait for a message
    delete m_session;
    m_reconnect.reset();
    m_hostCheckup.reset();
    if (m_system)
        m_system->Release();
}

Session *GuiManager::GetSession() const
{
    return m_session;
}

bool GuiManager::WantsFurtherFormats() const
{
    return m_window->GetGlobalSettings()->value(QStringLiteral("Recording/FurtherFormats"), false).toBool();
}

bool GuiManager::TakeSystem()
{
    if (!m_system)
        m_system = TovCam_GetSystem();
    return m_system != nullptr;
}

void GuiManager::LoadProducer()
{
    try {
        m_system->LoadTransportLayer(Producer);
    } catch (std::exception const &) {
        // A missing producer is not an error.
    }
}

// ---- Opening a camera -----------------------------------------------------------------------------------------------

void GuiManager::cameraConnect()
{
    m_reconnect->End();
    if (!TakeSystem()) {
        DisplayError(tr("Cannot create TovSystem, check if CTI library(TovCTI.cti) exists"), 0);
        return;
    }
    LoadProducer();

    TovGui::TovCameraSelectorDialog dialog(m_system, nullptr);
    m_reconnect->AddChoice(dialog);
    if (dialog.exec() != QDialog::Accepted)
        return;
    TovCam::DeviceInfo *const camera = dialog.selectedCamera();
    if (!camera) {
        ShowCritical(tr("Camera was not selected"));
        return;
    }
    Open(camera);
}

void GuiManager::Open(TovCam::DeviceInfo *camera)
{
    Opening opening(MainWindow(), [camera] { return tr("Connecting to %1").arg(NameOf(camera)); });
    opening.Follow(camera);
    TovCam::Device *const device = WaitFor([camera] { return TovCam_CreateDevice(camera, FullAccess, nullptr); });
    TovCam::OpenFailure const failure = camera->GetOpenFailure();
    if (IsTroubled(device, failure) && !opening.IsCancelled())
        opening.TellWhy(NameOf(camera), failure);
    Use(device, opening);
}

// The device becomes a session's, or goes.
void GuiManager::Use(TovCam::Device *device, Opening const &opening)
{
    bool const cancelled = opening.IsCancelled();
    if (!cancelled && CreateSession(device)) {
        CreatePanels();
        if (!opening.IsCancelled() && !opening.IsOverdue())
            return;
        // Given up while the panels read the camera.
        cameraDisconnect();
        if (!opening.IsCancelled())
            DisplayError(tr("Camera cannot be instantinated"), 0);
    } else if (device) {
        WaitFor([device] { device->Release(); }, IfGivenUp::CallAllTheSame);
    }
}

void GuiManager::ConnectAndRunAutoEvaluation()
{
    TovCam::DeviceInfo *camera = nullptr;
    if (TakeSystem()) {
        LoadProducer();
        TovCam::ObjectList *const interfaces = m_system->GetInterfaceList(EveryKind);
        TovCam::Interface *interface = interfaces ? interfaces->GetFirst() : nullptr;
        while (interface && !(camera = interface->GetFirstDeviceInfo()))
            interface = interfaces->GetNext();
    }
    // Without a camera this reports that there is none. A device whose session fails stays open: in an unattended run
    // nobody tries another one.
    if (!CreateSession(camera ? TovCam_CreateDevice(camera, FullAccess, nullptr) : nullptr))
        return;
    CreatePanels();
    if (RigTestPlugin *const plugin = m_window->GetRigTest())
        plugin->RunAutoEvaluation();
}

// ---- Configurations -------------------------------------------------------------------------------------------------

void GuiManager::loadConfiguration()
{
    m_reconnect->End();
    QString const path =
        QFileDialog::getOpenFileName(nullptr, tr("Open camera configuration"), ConfigurationPlace(QString()),
                                     tr("Velmor camera configuration files (*.tcfg)"));
    if (path.isEmpty())
        return;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    if (m_session)
        m_session->LoadConfiguration(path);
    else
        OpenConfiguration(path);
    QApplication::restoreOverrideCursor();
    m_configurationFile = path;
    updateGui();
}

void GuiManager::OpenConfiguration(QString const &path)
{
    QString const file = TovPlainLine(QFileInfo(path).fileName(), LongestName);
    Opening opening(MainWindow(), [file] { return tr("Opening the camera of %1").arg(file); });
    TovCam::Device *device = nullptr;
    if (TakeSystem()) {
        opening.Follow(m_system);
        device = WaitFor([system = m_system, name = path.toUtf8()] {
            return system->OpenDeviceFromConfiguration(name.constData(), nullptr);
        });
        if (!opening.IsCancelled()) { // before the message below, which only says that there is no camera
            TovCam::ConfigurationReport const report = m_system->GetConfigurationReport();
            ConfigurationNotice::Loaded(path, report.status, report);
            if (TovCam::OpenFailure const failure = m_system->GetOpenFailure(); IsTroubled(device, failure))
                opening.TellWhy(tr("The camera of %1").arg(file), failure);
        }
    }
    Use(device, opening);
}

// Beside the last configuration; the first one among the user's documents, not where the program was started.
QString GuiManager::ConfigurationPlace(QString const &fileName) const
{
    QString const folder = m_configurationFile.isEmpty()
                               ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)
                               : QFileInfo(m_configurationFile).path();
    // A new user has no documents yet; a dialog for a folder that is missing would open in the working directory.
    return QDir(QFileInfo(folder).isDir() ? folder : QDir::homePath()).filePath(fileName);
}

bool GuiManager::AskConfigurationFile(QString const &title)
{
    // With the extension, because the dialog adds none.
    QString const name = m_configurationFile.isEmpty()
                             ? Report::SuggestedFileName(m_session->GetTitle()) + QStringLiteral(".tcfg")
                             : QFileInfo(m_configurationFile).fileName();
    QString const path = QFileDialog::getSaveFileName(nullptr, title, ConfigurationPlace(name),
                                                      tr("Velmor camera configuration files (*.tcfg)"));
    if (!path.isEmpty())
        m_configurationFile = path;
    return !path.isEmpty();
}

void GuiManager::saveConfiguration()
{
    if (!m_session || (m_configurationFile.isEmpty() && !AskConfigurationFile(tr("Save camera configuration"))))
        return;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    if (m_session) // it may have gone while the question was open
        m_session->SaveConfiguration(m_configurationFile);
    QApplication::restoreOverrideCursor();
    updateGui();
}

void GuiManager::saveConfigurationAs()
{
    if (!m_session || !AskConfigurationFile(tr("Save camera configuration as...")))
        return;
    saveConfiguration();
    updateGui();
}

// ---- The session and its panels -------------------------------------------------------------------------------------

bool GuiManager::CreateSession(TovCam::Device *device)
{
    if (!device) {
        DisplayError(tr("Camera cannot be instantinated"), 0);
        return false;
    }
    std::int32_t error = 0;
    if (!device->GetCameraParameters(&error)) {
        DisplayError(tr("Cannot get camera parameters\n") + tr("Error code: %1 ").arg(error) + QLatin1Char('(') +
                         CameraErrorText(error) + QLatin1Char(')'),
                     0);
        return false;
    }
    m_closed = false;
    try {
        // Only now that the new camera has proved readable does the one in use go.
        cameraDisconnect();
        auto *const session = new Session(this, device, m_window);
        delete m_session;
        m_session = session;
        connect(session, &Session::signalUpdateGui, this, &GuiManager::updateGui);
        connect(session, &Session::signalSessionStateError, this, &GuiManager::sessionStateError);
        connect(session, &Session::signalCameraDisconnected, this, &GuiManager::sessionCameraDisconnected);
        connect(session->GetDisplayView(), &DisplayView::inspectionRequested, this, &GuiManager::inspect);
        connect(session->GetDisplayView(), &DisplayView::pointerLeft, this,
                [this] { m_window->clearCoordinatesAndValue(); });
        if (session->IsCameraLost())
            QMetaObject::invokeMethod(
                this, [this, session] { sessionCameraDisconnected(session, DisconnectReasonCameraLost); },
                Qt::QueuedConnection);
        return true;
    } catch (WaitingGivenUp const &) {
        WaitingAction const *const action = WaitingAction::Current();
        if (action && action->IsOverdue())
            DisplayError(tr("Camera cannot be instantinated"), 0);
    } catch (TovScopeException const &exception) {
        DisplayError(QString::fromUtf8(exception.what()), exception.GetCode());
    } catch (std::exception const &exception) {
        DisplayError(QString::fromUtf8(exception.what()), 0);
    }
    return false;
}

bool GuiManager::CreatePanels()
{
    m_panels.Create();
    if (WaitingAction *const action = WaitingAction::Current())
        action->End(); // nothing is read from here on, and a plug-in may run what it likes
    if (RigTestPlugin *const plugin = m_window->GetRigTest()) {
        if (plugin->Attach(MainWindow(), m_session->GetDevice())) {
            plugin->SetComponents(m_session, m_session->GetDisplay(), m_session->GetImgProcessor());
            plugin->ShowPanel(MainWindow(), 0, 0);
        } else {
            m_window->ForgetRigTest();
        }
    }
    if (!m_window->GetRigTest())
        m_panels.RestoreLayout();
    m_panels.ReopenInspection();
    if (DisplayView *const display = CurrentDisplay())
        display->setFocus(); // its keys work at once
    m_hostCheckup->Examine(m_session);
    return true;
}

void GuiManager::ClosePanels()
{
    if (RigTestPlugin *const plugin = m_window->GetRigTest())
        plugin->Detach(MainWindow());
    m_panels.Close();
}

void GuiManager::Close()
{
    m_closed = true;
    m_reconnect->End();
    if (!m_session)
        return;
    KeepSettings();
    CameraWait wait = m_session->MakeWait({});
    wait.limit = ClosingTime;
    m_window->Wait(wait, [this] {
        if (m_session->GetState() == SessionStateCapturing)
            emit m_session->signalStopCapturing(); // files first: the camera may take long
        cameraDisconnect();
    });
}

void GuiManager::KeepSettings()
{
    if (!m_session)
        return;
    m_panels.Store();
    m_session->SaveSettings();
    m_session->LeaveLog();
    m_window->GetGlobalSettings()->sync();
    m_session->GetSettings()->sync();
}

// ---- Messages -------------------------------------------------------------------------------------------------------

void GuiManager::ShowCritical(QString const &text)
{
    if (m_closed || m_reconnect->IsOpening()) { // nobody has asked for the camera that is opened again
        TovLog::Error(0, "GuiManager: %s", qPrintable(text));
        return;
    }
    WaitingAction *const action = WaitingAction::Current();
    if (action && !WaitingAction::IsWaiting())
        action->End();                  // there is nothing to wait for any more
    if (QApplication::overrideCursor()) // nothing waits while the operator is asked
        QApplication::changeOverrideCursor(Qt::ArrowCursor);
    QMessageBox box(QMessageBox::Critical, QCoreApplication::applicationName(), text, QMessageBox::Ok, MainWindow());
    box.setTextFormat(Qt::PlainText);
    connect(m_reconnect.get(), &Reconnect::seen, &box, &QDialog::accept);
    box.exec();
}

void GuiManager::DisplayError(QString const &text, unsigned int code)
{
    ShowCritical(code ? text + tr("\nError code: 0x{%1}").arg(code, 0, 16) : text);
}

// ---- Commands -------------------------------------------------------------------------------------------------------

void GuiManager::cameraDisconnect()
{
    m_reconnect->End();
    if (m_session)
        emit m_session->signalCameraDisconnected(m_session, DisconnectReasonUser);
}

void GuiManager::startAcquisition()
{
    if (m_session && m_reconnect->TakeSettings(m_session))
        emit m_session->signalStartAcquisition();
}

void GuiManager::startTestBandwidth()
{
    if (!m_session)
        return;
    QMessageBox box(QMessageBox::Question, QCoreApplication::applicationName(), tr("Bandwidth testing."),
                    QMessageBox::Ok | QMessageBox::Cancel, MainWindow());
    box.setInformativeText(tr("Do you want to begin?"));
    box.setDefaultButton(QMessageBox::Ok);
    if (box.exec() == QMessageBox::Cancel || !m_session) // it may have gone while the question was open
        return;
    m_session->startTestBW();
}

void GuiManager::stopAcquisitionAndCapture()
{
    if (!m_session)
        return;
    if (m_session->GetState() == SessionStateCapturing)
        emit m_session->signalStopCapturing();
    else
        emit m_session->signalStopAcquisition();
}

void GuiManager::startStopCapture()
{
    if (!m_session || WaitingAction::IsWaiting())
        return;
    if (m_session->GetState() == SessionStateCapturing) {
        emit m_session->signalStopCapturing();
        return;
    }
    m_panels.FinishEditing(); // a button in a toolbar takes no focus, so a field may have been typed and not left
    emit m_session->signalStartCapturing();
}

void GuiManager::snapNextImage()
{
    if (!m_session || WaitingAction::IsWaiting())
        return;
    m_panels.FinishEditing();
    m_session->SnapNextFrame();
}

void GuiManager::captureOptionsDlg()
{
    DisplayError(tr("Capture Options Dlg"), 0);
}

QMainWindow *GuiManager::MainWindow() const
{
    return m_window->GetMainWindow();
}

DisplayView *GuiManager::CurrentDisplay() const
{
    return m_session ? m_session->GetDisplayView() : nullptr;
}

void GuiManager::zoomIn()
{
    if (DisplayView *const display = CurrentDisplay())
        display->ZoomIn();
}

void GuiManager::zoomOut()
{
    if (DisplayView *const display = CurrentDisplay())
        display->ZoomOut();
}

void GuiManager::zoom100()
{
    if (DisplayView *const display = CurrentDisplay())
        display->Zoom100();
}

void GuiManager::zoomFitToWnd()
{
    if (DisplayView *const display = CurrentDisplay())
        display->ZoomFitToWnd();
}

void GuiManager::zoomSpreadToWnd()
{
    if (DisplayView *const display = CurrentDisplay())
        display->ZoomSpreadToWnd();
}

void GuiManager::centerImage()
{
    if (DisplayView *const display = CurrentDisplay())
        display->CenterImage();
}

void GuiManager::viewPlayerPanel()
{
    auto *const action = qobject_cast<QAction *>(sender());
    PlayerPanel *const panel = action ? PlayerPanel::GetPanel(action->objectName()) : nullptr;
    if (!panel)
        return;
    panel->ShowOrHide();
}

void GuiManager::inspect(QPoint position, QPoint pixel)
{
    m_panels.Inspect(position, pixel);
}

void GuiManager::viewInspection()
{
    m_panels.ToggleInspection();
}

void GuiManager::showBasicParameters()
{
    m_panels.ShowParameters(TovGui::Beginner);
}

void GuiManager::showExpertParameters()
{
    m_panels.ShowParameters(TovGui::Expert);
}

void GuiManager::showCameraInfoDlg()
{
    CameraInfoDlgImpl dialog(MainWindow(), m_session);
    if (!dialog.IsGivenUp())
        dialog.exec();
}

void GuiManager::showAboutDlg()
{
    AboutDlgImpl(MainWindow(), m_session).exec();
}

void GuiManager::showHostFindings()
{
    m_hostCheckup->ShowDetails();
}

// ---- What the session reports ---------------------------------------------------------------------------------------

void GuiManager::updateGui()
{
    SessionState const state = m_session ? m_session->GetState() : SessionStateDisconnected;
    if (state != SessionStateAcquisition && state != SessionStateCapturing)
        m_window->clearCoordinatesAndValue();                    // of a picture that has stopped or gone
    QPointer<QWidget> const focus = MainWindow()->focusWidget(); // an editor may go meanwhile
    bool const focused = focus && focus->isEnabled();
    ActionStates::Apply(MainWindow()->menuBar(), state);
    QAction *const disconnection = MainWindow()->findChild<QAction *>(QStringLiteral("actionDisconnect"));
    if (disconnection && m_reconnect->IsWaiting()) // which it ends
        disconnection->setEnabled(true);

    m_panels.UpdateAll();
    // A button that has just been used up would give its keys to the next field, the folder's name.
    if (DisplayView *const display = focused && focus && !focus->isEnabled() ? CurrentDisplay() : nullptr)
        display->setFocus();

    QString title = m_window->GetRigTest() ? QStringLiteral("RigTest Auto - ") : QStringLiteral("TovScope - ");
    if (state == SessionStateDisconnected) {
        title += tr("Camera is not connected");
    } else {
        title += m_session->GetTitle();
        if (!m_configurationFile.isEmpty())
            title += QStringLiteral(" { %1 }").arg(m_configurationFile);
    }
    MainWindow()->setWindowTitle(title);
}

void GuiManager::sessionStateError(void *session, unsigned char err)
{
    auto *const sender = static_cast<Session *>(session);
    QString text;
    switch (err) {
    case SessionErrorStartAcquisition:
        emit sender->signalStopAcquisition();
        text = tr("Can not start the Acquisition");
        break;
    case SessionErrorStopAcquisition:
        emit sender->signalCameraDisconnected(sender, DisconnectReasonInvalidState);
        text = tr("Can not stop the Acquisition");
        break;
    case SessionErrorStartCapturing: // has the text of the other
    case SessionErrorStopCapturing:
        emit sender->signalStopAcquisition();
        text = tr("Can not stop the Capture");
        break;
    default:
        text = tr("Unknown Error");
        break;
    }
    // The caller is an action of the session's state machine.
    ++m_openStateErrors;
    DisplayError(text, 0);
    --m_openStateErrors;
    if (m_openStateErrors == 0)
        PostDeferred(session);
}

void GuiManager::PostDeferred(void *session)
{
    if (!m_deferredReason)
        return;
    unsigned char const reason = *m_deferredReason;
    m_deferredReason.reset();
    QMetaObject::invokeMethod(
        this, [this, session, reason] { sessionCameraDisconnected(session, reason); }, Qt::QueuedConnection);
}

void GuiManager::sessionCameraDisconnected(void *session, unsigned char reason)
{
    auto *const sender = static_cast<Session *>(session);
    if (sender && sender != m_session)
        return; // a late report of a session that is gone
    if (reason == DisconnectReasonCameraLost && !m_closed && m_reconnect->IsOn() && TakeSystem())
        m_reconnect->Lost(sender, m_system);

    if (m_openStateErrors > 0) {
        // A message of sessionStateError spins the event loop inside an action of the state machine, which can neither
        // leave its state nor lose its session before the action has returned.
        m_deferredReason = reason;
        return;
    }
    if (WaitingAction::IsWaiting()) {
        // The action under way may be building on the session, and takes its place if it succeeds.
        m_deferredReason = reason;
        WaitingAction::WhenOver(this, [this, session] { PostDeferred(session); });
        return;
    }

    if (reason == DisconnectReasonCameraLost || reason == DisconnectReasonInvalidState) {
        if (m_lossOnScreen)
            return; // told already
        m_lossOnScreen = true;
        ShowCritical(reason == DisconnectReasonCameraLost
                         ? tr("Connection to the Camera was lost")
                         : tr("Connection to the Camera was terminated, because of invalid device state"));
        m_lossOnScreen = false;
        if (sender && sender != m_session)
            return; // closed otherwise while the message was open
    }

    if (!sender) {
        ClosePanels();
        return;
    }
    m_window->Wait(sender->MakeWait(tr("Disconnecting %1").arg(sender->GetPlainName())), [this, sender] {
        ClosePanels();
        emit sender->signalCameraStateDisconnected();
        m_reconnect->SessionStopped(sender);
        m_session = nullptr;
        delete sender;
        m_deferredReason.reset();
        // The library reports nothing more about that camera; what it had posted must not meet a session made at the
        // same address.
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
    });
    m_hostCheckup->SessionClosed();
    m_reconnect->SessionClosed(reason == DisconnectReasonCameraLost);
}
