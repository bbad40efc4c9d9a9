#include "tovscope.h"

#include "bwtesting.h"
#include "noticebar.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QLabel>
#include <QPluginLoader>

namespace {

QString const GeometryKey = QStringLiteral("wndGeometry");
QString const StateKey = QStringLiteral("wndState");
constexpr int StateVersion = 0;

} // namespace

// Outside any namespace, as the macro asks for.
static void initResources()
{
    Q_INIT_RESOURCE(tovscope);
}

std::atomic<RigTestPlugin *> &TovScope::s_pRigTest = RigTestSlot();

TovScope::TovScope(QWidget *parent, bool rigTest, bool autoRun) : QMainWindow(parent), m_manager(this)
{
    initResources();
    m_ui.setupUi(this);
    if (rigTest)
        LoadRigTestPlugin();
    InitGuiManager();
    readSettings();
    if (rigTest && autoRun)
        m_manager.ConnectAndRunAutoEvaluation();
    adjustStatusBar();
}

TovScope::~TovScope() = default;

bool TovScope::AddDisplayWidget(QWidget *widget)
{
    widget->setParent(m_ui.centralWidget);
    m_ui.centralLayout->addWidget(widget, 0, Qt::Alignment());
    return true;
}

bool TovScope::RemoveDisplayWidget(QWidget *widget)
{
    m_ui.centralLayout->removeWidget(widget);
    return true;
}

QSettings *TovScope::GetSessionSettings(QString const &name)
{
    return m_settings.GetSessionSettings(name);
}

QMainWindow *TovScope::GetMainWindow()
{
    return this;
}

QSettings *TovScope::GetGlobalSettings()
{
    return m_settings.GetGlobalSettings();
}

void TovScope::RunBandwidthTest(Session *session)
{
    // A title and no close button: the test is left by its own button.
    CBWTesting(session, nullptr, Qt::CustomizeWindowHint | Qt::WindowTitleHint).exec();
}

RigTestPlugin *TovScope::GetRigTest()
{
    return s_pRigTest;
}

void TovScope::ForgetRigTest()
{
    UnloadRigTest();
}

GuiManager &TovScope::GetGuiManager()
{
    return m_manager;
}

void TovScope::UnloadRigTest()
{
    s_pRigTest = nullptr;
}

void TovScope::setCoordinatesAndValue(int x, int y, int r, int g, int b)
{
    if (!m_coordinates || !m_value)
        return; // a camera that was connected at start shows its picture before the status bar is complete
    m_coordinates->setText(QStringLiteral("%1x%2").arg(x).arg(y));
    if (r == -1 || b == -1)
        m_value->setText(QString::number(g));
    else
        m_value->setText(QStringLiteral("%1x%2x%3").arg(r).arg(g).arg(b));
}

void TovScope::closeEvent(QCloseEvent *event)
{
    writeSettings();
    QMainWindow::closeEvent(event);
}

void TovScope::LoadRigTestPlugin()
{
    // The file has this name on every platform.
    QPluginLoader loader(QCoreApplication::applicationDirPath() + QStringLiteral("/RigTestA.dll"));
    QObject *const plugin = loader.instance();
    if (!plugin)
        return;
    s_pRigTest = qobject_cast<RigTestPlugin *>(plugin);
    setWindowTitle(QStringLiteral("RigTest Auto"));
}

void TovScope::InitGuiManager()
{
    auto const handle = [this](QAction *action, void (GuiManager::*slot)()) {
        connect(action, &QAction::triggered, &m_manager, slot);
    };
    connect(m_ui.actionExit, &QAction::triggered, this, &TovScope::close);
    handle(m_ui.actionConnect, &GuiManager::cameraConnect);
    handle(m_ui.actionDisconnect, &GuiManager::cameraDisconnect);
    handle(m_ui.actionLoadConfiguration, &GuiManager::loadConfiguration);
    handle(m_ui.actionSaveConfiguration, &GuiManager::saveConfiguration);
    handle(m_ui.actionSaveConfigurationAs, &GuiManager::saveConfigurationAs);
    handle(m_ui.actionCameraInformation, &GuiManager::showCameraInfoDlg);
    handle(m_ui.actionAbout, &GuiManager::showAboutDlg);
    handle(m_ui.actionCamConfig_BasicView, &GuiManager::showBasicParameters);
    handle(m_ui.actionCamConfig_ExpertView, &GuiManager::showExpertParameters);
    handle(m_ui.actionPlay, &GuiManager::startAcquisition);
    handle(m_ui.actionTestBandwidth, &GuiManager::startTestBandwidth);
    handle(m_ui.actionStop, &GuiManager::stopAcquisitionAndCapture);
    handle(m_ui.actionRecord, &GuiManager::startStopCapture);
    handle(m_ui.actionSnap, &GuiManager::snapNextImage);
    handle(m_ui.actionCaptureOptions, &GuiManager::captureOptionsDlg);
    handle(m_ui.actionZoomIn, &GuiManager::zoomIn);
    handle(m_ui.actionZoomOut, &GuiManager::zoomOut);
    handle(m_ui.actionActualSize, &GuiManager::zoom100);
    handle(m_ui.actionFitToWindow, &GuiManager::zoomFitToWnd);
    handle(m_ui.actionSpreadToWindow, &GuiManager::zoomSpreadToWnd);
    handle(m_ui.actionCenterImage, &GuiManager::centerImage);

    for (QAction *const action :
         {m_ui.actionGenICamTree, m_ui.actionLog, m_ui.actionCapture, m_ui.actionStatistics, m_ui.actionHistogramPanel})
        handle(action, &GuiManager::viewPlayerPanel);
    handle(m_ui.actionInspectionView, &GuiManager::viewInspection);
    m_ui.actionInspectionView->setShortcut(QKeySequence(QStringLiteral("Ctrl+I")));
    m_manager.updateGui();
}

void TovScope::readSettings()
{
    QSettings const *const settings = m_settings.GetGlobalSettings();
    restoreGeometry(settings->value(GeometryKey).toByteArray());
    restoreState(settings->value(StateKey).toByteArray(), StateVersion);
}

void TovScope::writeSettings()
{
    QSettings *const settings = m_settings.GetGlobalSettings();
    settings->setValue(GeometryKey, saveGeometry());
    settings->setValue(StateKey, saveState(StateVersion));
}

void TovScope::adjustStatusBar()
{
    m_ui.statusBar->addWidget(new NoticeBar(this), 1);
    auto const addField = [this](QString const &widest) {
        auto *const label = new QLabel(this);
        label->setAlignment(Qt::AlignRight);
        label->setFixedWidth(label->fontMetrics().horizontalAdvance(widest));
        m_ui.statusBar->addPermanentWidget(label);
        return label;
    };
    m_coordinates = addField(QStringLiteral("0000x0000"));
    m_value = addField(QStringLiteral("00000x00000x00000"));
}
