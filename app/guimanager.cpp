#include "guimanager.h"

#include "aboutdlg.h"
#include "camerainfodlg.h"
#include "camgenparampanelimpl.h"
#include "capturepanelimpl.h"
#include "configurationnotice.h"
#include "displayview.h"
#include "histogrampanel.h"
#include "inspectview.h"
#include "logpanelimpl.h"
#include "managedwindow.h"
#include "paramchanged.h"
#include "report.h"
#include "rigtestplugin.h"
#include "session.h"
#include "statisticspanel.h"
#include "tovlog.h"
#include "tovscopeexception.h"

#include "tovcamera.h"
#include "tovcameragui.h"
#include "tovdisplay.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QStandardPaths>
#include <QTableView>

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>
#include <vector>

namespace {

QString const StateKey = QStringLiteral("wndState");
constexpr int StateVersion = 0;
constexpr char Producer[] = "WeftTL.cti";
constexpr std::uint32_t FullAccess = 2;
constexpr std::uint32_t EveryKind = 255;

QString cameraErrorText(std::int32_t error)
{
    static constexpr std::pair<std::int32_t, char const *> texts[] = {
        {TOV_CAM_ERR_OK, "OK"},
        {TOV_CAM_ERR_UNKNOWN, "Unknown error"},
        {TOV_CAM_ERR_FILE_NOT_FOUND, "File not found"},
        {TOV_CAM_ERR_FILE_READ, "File read error"},
        {TOV_CAM_ERR_WRONG_CONFIGURATION, "Wrong configuration"},
        {TOV_CAM_ERR_INVALID_INDEX, "Invalid index"},
        {TOV_CAM_ERR_NO_DEVICE, "No device"},
        {TOV_CAM_ERR_INVALID_ARGUMENT, "Invalid argument"},
        {TOV_CAM_ERR_INVALID_STATE, "Invalid state"},
        {TOV_CAM_ERR_FLASH_ERASE, "Flash erase error"},
        {TOV_CAM_ERR_GENICAM_GENERIC, "GenICam: Generic error"},
        {TOV_CAM_ERR_GENICAM_TREE, "GenICam: Tree error"},
        {TOV_CAM_ERR_GENICAM_ACCESS, "GenICam: Access error"},
        {TOV_CAM_ERR_GENICAM_PARAM_TYPE, "GenICam: Parameter type is invalid"},
        {TOV_CAM_ERR_GENICAM_OUT_OF_RANGE, "GenICam: Parameter is out of range"},
        {TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM, "GenICam: Unknown param"},
        {TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT, "GenICam: Invalid argument"},
    };
    auto const found =
        std::find_if(std::begin(texts), std::end(texts), [error](auto const &entry) { return entry.first == error; });
    return QString::fromLatin1(found != std::end(texts) ? found->second : "Unknown code");
}

} // namespace

// Disconnected, Idle, Acquisition, Capturing. "actionHexDump" has a row without an action, and "actionSettings" an
// action without a row; both are meant.
GuiManager::GuiState const GuiManager::s_stateMapInit[42] = {
    {"actionLoadConfiguration", {true, true, false, false}},
    {"actionSaveConfiguration", {false, true, true, true}},
    {"actionSaveConfigurationAs", {false, true, true, true}},
    {"actionSaveGenICamXML", {false, true, true, true}},
    {"actionExit", {true, true, true, true}},
    {"actionConnect", {true, true, true, true}},
    {"actionDisconnect", {false, true, true, true}},
    {"actionCameraInformation", {false, true, true, true}},
    {"actionPlay", {false, true, false, false}},
    {"actionTestBandwidth", {false, true, false, false}},
    {"actionStop", {false, false, true, true}},
    {"actionRecord", {false, false, true, true}},
    {"actionSnap", {false, false, true, false}},
    {"actionGenICamTree", {false, true, true, true}},
    {"actionCamConfig_BasicView", {false, true, true, true}},
    {"actionCamConfig_ExpertView", {false, true, true, true}},
    {"actionLog", {false, true, true, true}},
    {"actionCapture", {false, true, true, true}},
    {"actionStatistics", {false, true, true, true}},
    {"actionHexDump", {false, true, true, true}},
    {"actionInspectionView", {false, true, true, true}},
    {"actionHistogramPanel", {false, true, true, true}},
    {"actionColorizeHistogram", {false, true, true, true}},
    {"actionStretchHistogram", {false, true, true, true}},
    {"actionImageProcessing", {true, true, true, true}},
    {"actionDefaultPanelsLayout", {true, true, true, true}},
    {"actionBrowseRecordingFolder", {true, true, true, true}},
    {"actionOpenLastRecordedFile", {false, true, true, true}},
    {"actionBuffer", {true, true, true, false}},
    {"actionTextOverlay", {true, true, true, false}},
    {"actionDisplayOptions", {true, true, true, false}},
    {"actionCaptureOptions", {true, true, true, false}},
    {"actionApplicationOptions", {true, true, true, false}},
    {"actionZoomIn", {false, true, true, true}},
    {"actionZoomOut", {false, true, true, true}},
    {"actionActualSize", {false, true, true, true}},
    {"actionFitToWindow", {false, true, true, true}},
    {"actionSpreadToWindow", {false, true, true, true}},
    {"actionFullScreen", {false, true, true, true}},
    {"actionCenterImage", {false, true, true, true}},
    {"actionHelp", {true, true, true, true}},
    {"actionAbout", {true, true, true, false}},
};

GuiManager::GuiManager(ManagedWindow *window) : m_window(window)
{
    SetParamChangedHandler(&PlayerPanel::OnParamChanged);
}

GuiManager::~GuiManager()
{
    m_closed = true;
    cameraDisconnect();
    delete m_inspectView; // where the disconnection had to wait for a message: it looks at the session's display
    delete m_session;
    if (m_system)
        m_system->Release();
}

Session *GuiManager::GetSession() const
{
    return m_session;
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
        // A producer that is not installed is no error.
    }
}

void GuiManager::cameraConnect()
{
    if (!TakeSystem()) {
        DisplayError(QStringLiteral("Cannot create TovSystem, check if CTI library(TovCTI.cti) exists"), 0);
        return;
    }
    LoadProducer();

    TovGui::TovCameraSelectorDialog dialog(m_system, nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return;
    TovCam::DeviceInfo *const camera = dialog.selectedCamera();
    if (!camera) {
        ShowCritical(QStringLiteral("Camera was not selected"));
        return;
    }
    TovCam::Device *const device = TovCam_CreateDevice(camera, FullAccess, nullptr);
    if (CreateSession(device))
        CreatePanels();
    else if (device)
        device->Release();
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
    // Without a camera this reports that there is none. A device whose session fails stays open: nobody is there to try
    // another one.
    if (!CreateSession(camera ? TovCam_CreateDevice(camera, FullAccess, nullptr) : nullptr))
        return;
    CreatePanels();
    if (RigTestPlugin *const plugin = m_window->GetRigTest())
        plugin->RunAutoEvaluation();
}

void GuiManager::loadConfiguration()
{
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
    TovCam::Device *const device =
        TakeSystem() ? m_system->OpenDeviceFromConfiguration(path.toUtf8().constData(), nullptr) : nullptr;
    if (m_system) { // in front of the message, which says no more than that there is no camera
        TovCam::ConfigurationReport const report = m_system->GetConfigurationReport();
        ConfigurationNotice::Loaded(path, report.status, report);
    }
    if (CreateSession(device))
        CreatePanels();
    else if (device)
        device->Release();
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
    // With the extension, for none is added.
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

bool GuiManager::CreateSession(TovCam::Device *device)
{
    if (!device) {
        DisplayError(tr("Camera cannot be instantinated"), 0);
        return false;
    }
    std::int32_t error = 0;
    if (!device->GetCameraParameters(&error)) {
        DisplayError(tr("Cannot get camera parameters\n") + tr("Error code: %1 ").arg(error) + QLatin1Char('(') +
                         cameraErrorText(error) + QLatin1Char(')'),
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
        return true;
    } catch (TovScopeException const &exception) {
        DisplayError(QString::fromUtf8(exception.what()), exception.GetCode());
    } catch (std::exception const &exception) {
        DisplayError(QString::fromUtf8(exception.what()), 0);
    }
    return false;
}

void GuiManager::Introduce(PlayerPanel *panel)
{
    panel->SetCurrentSession(m_session);
    LoadState(panel);
}

void GuiManager::LoadState(PlayerPanel *panel)
{
    panel->LoadStateFromGlobalSettings(m_window->GetGlobalSettings());
    panel->LoadStateFromSessionSettings(m_session->GetSettings(), m_session->GetSettingsName());
}

template<typename Panel>
void GuiManager::Remove(Panel *&panel)
{
    if (!panel)
        return;
    if (!m_statesSaved)
        panel->SaveStateToGlobalSettings(m_window->GetGlobalSettings());
    panel->CheckActionMenu(panel->GetActionName(), false); // hiding it would be remembered as the operator's wish
    delete std::exchange(panel, nullptr);
}

// What no text of a panel names, parts of Qt's own widgets included.
static void nameParts(PlayerPanel *panel)
{
    for (QAbstractScrollArea *const view : panel->findChildren<QAbstractScrollArea *>()) {
        if (view->accessibleName().isEmpty() && !qobject_cast<QHeaderView *>(view))
            view->setAccessibleName(panel->accessibleName());
    }
    for (QAbstractButton *const button : panel->findChildren<QAbstractButton *>()) {
        if (!button->text().isEmpty() || !button->accessibleName().isEmpty())
            continue;
        bool const ofTable = qobject_cast<QTableView *>(button->parent()) != nullptr;
        if (ofTable || qobject_cast<QLineEdit *>(button->parent()))
            button->setAccessibleName(ofTable ? GuiManager::tr("Select all") : GuiManager::tr("Clear"));
    }
}

bool GuiManager::CreatePanels()
{
    m_statesSaved = false;
    if (!m_parameterPanel) {
        m_parameterPanel = new CamGenParamPanelImpl(MainWindow());
        m_parameterPanel->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(m_parameterPanel, &QWidget::customContextMenuRequested, this, &GuiManager::ParameterMenu);
    }
    Introduce(m_parameterPanel);
    if (!m_capturePanel)
        m_capturePanel = new CapturePanelImpl(MainWindow(), this);
    Introduce(m_capturePanel);
    if (!m_logPanel)
        m_logPanel = new LogPanelImpl(MainWindow());
    Introduce(m_logPanel);
    if (!m_statisticsPanel)
        m_statisticsPanel = new StatisticsPanelImpl(MainWindow(), this);
    Introduce(m_statisticsPanel);
    // Lines need the width that file names need, and hardly at the same time.
    MainWindow()->tabifyDockWidget(m_capturePanel, m_logPanel);
    m_capturePanel->raise();
    if (!m_histogramPanel)
        m_histogramPanel = new HistogramPanel(MainWindow());
    m_histogramPanel->SetCurrentSession(m_session);
    m_histogramPanel->close(); // it starts hidden
    LoadState(m_histogramPanel);
    // The picture gets the rest, unless a stored layout says otherwise.
    MainWindow()->resizeDocks({m_capturePanel}, {m_capturePanel->sizeHint().height()}, Qt::Vertical);

    if (RigTestPlugin *const plugin = m_window->GetRigTest()) {
        if (plugin->Attach(MainWindow(), m_session->GetDevice())) {
            plugin->SetComponents(m_session, m_session->GetDisplay(), m_session->GetImgProcessor());
            plugin->ShowPanel(MainWindow(), 0, 0);
        } else {
            m_window->ForgetRigTest();
        }
    }
    if (!m_window->GetRigTest())
        MainWindow()->restoreState(m_window->GetGlobalSettings()->value(StateKey).toByteArray(), StateVersion);
    for (PlayerPanel *const panel : Panels())
        nameParts(panel);
    ReopenInspection();
    if (DisplayView *const display = CurrentDisplay())
        display->setFocus(); // its keys work at once
    return true;
}

void GuiManager::ClosePanels()
{
    if (RigTestPlugin *const plugin = m_window->GetRigTest())
        plugin->Detach(MainWindow());
    // While the docks still exist.
    if (!m_statesSaved)
        SaveStates();
    Remove(m_capturePanel);
    Remove(m_parameterPanel);
    Remove(m_logPanel);
    Remove(m_statisticsPanel);
    if (m_inspectView && m_session)
        m_session->GetDisplayView()->RemoveInspectView(m_inspectView);
    Remove(m_inspectView);
    Remove(m_histogramPanel);
    // A floating dock leaves as a hidden one, and the window's next saveState would say so.
    MainWindow()->restoreState(m_window->GetGlobalSettings()->value(StateKey).toByteArray(), StateVersion);
}

// Those there are, in the order in which they are stored.
std::vector<PlayerPanel *> GuiManager::Panels() const
{
    std::vector<PlayerPanel *> panels{m_capturePanel,    m_parameterPanel, m_logPanel,
                                      m_statisticsPanel, m_inspectView,    m_histogramPanel};
    std::erase(panels, nullptr);
    return panels;
}

void GuiManager::SaveStates()
{
    if (m_session) {
        for (PlayerPanel *const panel : Panels())
            panel->SaveStateToSessionSettings(m_session->GetSettings(), m_session->GetSettingsName());
    }
    m_window->GetGlobalSettings()->setValue(StateKey, MainWindow()->saveState(StateVersion));
}

void GuiManager::Close()
{
    m_closed = true;
    if (!m_session)
        return;
    SaveStates();
    for (PlayerPanel *const panel : Panels())
        panel->SaveStateToGlobalSettings(m_window->GetGlobalSettings());
    m_statesSaved = true;
    m_session->SaveSettings();
    m_session->LeaveLog();
    m_window->GetGlobalSettings()->sync();
    m_session->GetSettings()->sync();
    if (m_session->GetState() == SessionStateCapturing)
        emit m_session->signalStopCapturing(); // files first: the camera may take long
    cameraDisconnect();
}

void GuiManager::ShowCritical(QString const &text)
{
    if (m_closed) {
        TovLog::Error(0, "GuiManager: %s", qPrintable(text));
        return;
    }
    if (QApplication::overrideCursor()) // nothing waits while the operator is asked
        QApplication::changeOverrideCursor(Qt::ArrowCursor);
    QMessageBox::critical(MainWindow(), QCoreApplication::applicationName(), text, QMessageBox::Ok);
}

void GuiManager::DisplayError(QString const &text, unsigned int code)
{
    ShowCritical(code ? text + QStringLiteral("\nError code: 0x{%1}").arg(code, 0, 16) : text);
}

void GuiManager::cameraDisconnect()
{
    if (m_session)
        emit m_session->signalCameraDisconnected(m_session, DisconnectReasonUser);
}

void GuiManager::startAcquisition()
{
    if (m_session)
        emit m_session->signalStartAcquisition();
}

void GuiManager::startTestBandwidth()
{
    if (!m_session)
        return;
    QMessageBox box(QMessageBox::Question, QCoreApplication::applicationName(), QStringLiteral("Bandwidth testing."),
                    QMessageBox::Ok | QMessageBox::Cancel, MainWindow());
    box.setInformativeText(QStringLiteral("Do you want to begin?"));
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
    if (!m_session)
        return;
    if (m_session->GetState() == SessionStateCapturing) {
        emit m_session->signalStopCapturing();
        return;
    }
    FinishEditing();
    emit m_session->signalStartCapturing();
}

void GuiManager::snapNextImage()
{
    if (!m_session)
        return;
    FinishEditing();
    m_session->SnapNextFrame();
}

// A button in a toolbar takes no focus, so a folder may have been typed and not left.
void GuiManager::FinishEditing()
{
    if (m_capturePanel)
        m_capturePanel->FinishEditing();
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
    OpenInspection(position, pixel);
}

void GuiManager::viewInspection()
{
    if (m_inspectView) {
        m_inspectView->ShowOrHide();
        return;
    }
    DisplayView *const display = CurrentDisplay();
    if (!display)
        return;
    QPoint position = QCursor::pos();
    std::optional<QPoint> pixel = display->PixelAt(position);
    if (!pixel) {
        position = display->mapToGlobal(display->rect().center());
        pixel = display->PixelAt(position);
    }
    OpenInspection(position, pixel);
}

// Where it was when the last camera went.
void GuiManager::ReopenInspection()
{
    DisplayView *const display = CurrentDisplay();
    if (!display || m_inspectView || !InspectView::WasOpen(m_window->GetGlobalSettings()))
        return;
    TovDisplay *const renderer = display->GetRenderer();
    m_inspectView = new InspectView(MainWindow(), renderer ? renderer->GetComponent() : nullptr, QPoint(), 0, 0);
    Introduce(m_inspectView);
    m_inspectView->JoinDisplay(display);
    m_inspectView->setAttribute(Qt::WA_ShowWithoutActivating);
    m_inspectView->show();
    m_inspectView->setAttribute(Qt::WA_ShowWithoutActivating, false);
}

// Without a pixel it shows the middle of the image.
void GuiManager::OpenInspection(QPoint position, std::optional<QPoint> pixel)
{
    DisplayView *const display = CurrentDisplay();
    if (!display)
        return;
    if (!m_inspectView) {
        TovDisplay *const renderer = display->GetRenderer();
        QPoint const at = pixel.value_or(QPoint());
        m_inspectView =
            new InspectView(MainWindow(), renderer ? renderer->GetComponent() : nullptr, position, at.x(), at.y());
        Introduce(m_inspectView); // its size is kept; its place is the pointer's
        m_inspectView->JoinDisplay(display);
    }
    m_inspectView->move(position);
    m_inspectView->KeepOnScreen();
    if (pixel)
        m_inspectView->LookAt(*pixel);
    m_inspectView->show();
    m_inspectView->raise();
    m_inspectView->activateWindow();
    m_inspectView->setFocus();
}

void GuiManager::showBasicParameters()
{
    if (m_parameterPanel)
        m_parameterPanel->setVisibility(TovGui::Beginner);
}

void GuiManager::showExpertParameters()
{
    if (m_parameterPanel)
        m_parameterPanel->setVisibility(TovGui::Expert);
}

void GuiManager::ParameterMenu(QPoint const &pos)
{
    auto *const menu = new QMenu(m_parameterPanel); // the panel may go while it is open
    menu->setAttribute(Qt::WA_DeleteOnClose);
    std::pair<char const *, TovGui::Visibility> const views[] = {{"actionCamConfig_BasicView", TovGui::Beginner},
                                                                 {"actionCamConfig_ExpertView", TovGui::Expert}};
    for (auto const &[name, level] : views) {
        if (auto *const action = MainWindow()->findChild<QAction *>(QString::fromLatin1(name))) {
            action->setChecked(m_parameterPanel->visibility() == level);
            menu->addAction(action);
        }
    }
    menu->popup(m_parameterPanel->mapToGlobal(pos));
}

void GuiManager::showCameraInfoDlg()
{
    CameraInfoDlgImpl(MainWindow(), m_session).exec();
}

void GuiManager::showAboutDlg()
{
    AboutDlgImpl(MainWindow(), m_session).exec();
}

void GuiManager::updateGui()
{
    SessionState const state = m_session ? m_session->GetState() : SessionStateDisconnected;
    if (s_stateMap.isEmpty()) {
        for (GuiState const &entry : s_stateMapInit)
            s_stateMap.insert(QString::fromLatin1(entry.objectName), entry);
    }

    // A session whose machine has not started yet has a state beyond the table: nothing may be used then.
    bool const known = state >= SessionStateDisconnected && state <= SessionStateCapturing;
    if (state != SessionStateAcquisition && state != SessionStateCapturing)
        m_window->clearCoordinatesAndValue();                    // of a picture that stands still or has gone
    QPointer<QWidget> const focus = MainWindow()->focusWidget(); // an editor may go meanwhile
    bool const focused = focus && focus->isEnabled();
    auto const menus = MainWindow()->menuBar()->findChildren<QMenu *>();
    for (QMenu const *menu : menus) {
        auto const actions = menu->actions();
        for (QAction *action : actions) {
            auto const entry = s_stateMap.constFind(action->objectName());
            if (entry == s_stateMap.constEnd())
                continue;
            action->setEnabled(known && entry->enabled[state]);
            // Without effect, since the action is not checkable.
            if (entry.key() == QLatin1String("actionRecord"))
                action->setChecked(state == SessionStateCapturing);
        }
    }

    for (PlayerPanel *const panel : std::initializer_list<PlayerPanel *>{
             m_capturePanel, m_parameterPanel, m_logPanel, m_statisticsPanel, m_histogramPanel, m_inspectView}) {
        if (panel)
            panel->UpdateAll();
    }
    // A button that has just been used up would give its keys to the next field, the folder's name.
    if (DisplayView *const display = focused && focus && !focus->isEnabled() ? CurrentDisplay() : nullptr)
        display->setFocus();

    QString title = m_window->GetRigTest() ? QStringLiteral("RigTest Auto - ") : QStringLiteral("TovScope - ");
    if (state == SessionStateDisconnected) {
        title += QStringLiteral("Camera is not connected");
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
    if (m_openStateErrors == 0 && m_deferredReason) {
        unsigned char const reason = *std::exchange(m_deferredReason, std::nullopt);
        QMetaObject::invokeMethod(
            this, [this, session, reason] { sessionCameraDisconnected(session, reason); }, Qt::QueuedConnection);
    }
}

void GuiManager::sessionCameraDisconnected(void *session, unsigned char reason)
{
    auto *const sender = static_cast<Session *>(session);
    if (sender && sender != m_session)
        return; // a late report of a session that is gone

    if (m_openStateErrors > 0) {
        // A message of sessionStateError spins the event loop inside an action of the state machine, which can neither
        // leave its state nor lose its session before the action has returned.
        m_deferredReason = reason;
        return;
    }

    if (reason == DisconnectReasonCameraLost || reason == DisconnectReasonInvalidState) {
        if (m_lossOnScreen)
            return; // told already
        m_lossOnScreen = true;
        ShowCritical(reason == DisconnectReasonCameraLost
                         ? QStringLiteral("Connection to the Camera was lost")
                         : QStringLiteral("Connection to the Camera was terminated, because of invalid device state"));
        m_lossOnScreen = false;
        if (sender && sender != m_session)
            return; // closed otherwise while the message was open
    }

    ClosePanels();
    if (sender) {
        emit sender->signalCameraStateDisconnected();
        m_session = nullptr;
        delete sender;
        // The library reports nothing more of that camera; what it had posted must not meet a session made at the same
        // address.
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
    }
}
