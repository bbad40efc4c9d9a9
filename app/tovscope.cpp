#include "tovscope.h"

#include "bwtesting.h"
#include "cameraaction.h"
#include "guide.h"
#include "noticebar.h"

#include <QAbstractButton>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QLabel>
#include <QPainter>
#include <QPluginLoader>
#include <QShortcut>
#include <QTimer>

#include <chrono>
#include <utility>

namespace {

QString const GeometryKey = QStringLiteral("wndGeometry");
QString const StateKey = QStringLiteral("wndState");
constexpr int StateVersion = 0;
constexpr std::chrono::seconds LongestTip{8};
constexpr std::chrono::milliseconds LongestGivingUp{1500}; // of an action, before the window that is closed goes

} // namespace

// Outside any namespace, as the macro requires.
static void InitResources()
{
    Q_INIT_RESOURCE(tovscope);
}

std::atomic<RigTestPlugin *> &TovScope::s_pRigTest = RigTestSlot();

TovScope::TovScope(QWidget *parent, bool rigTest, bool autoRun) : QMainWindow(parent), m_manager(this)
{
    InitResources();
    m_ui.setupUi(this);
    if (rigTest)
        LoadRigTestPlugin();
    InitGuiManager();
    MakeKeys();
    NameWidgets();
    m_ui.centralWidget->installEventFilter(this);
    readSettings();
    if (rigTest && autoRun)
        m_manager.ConnectAndRunAutoEvaluation();
    adjustStatusBar();
}

TovScope::~TovScope()
{
    m_mayWait = false; // a window that is half gone
}

bool TovScope::AddDisplayWidget(QWidget *widget)
{
    widget->setParent(m_ui.centralWidget);
    m_ui.centralLayout->addWidget(widget, 0, Qt::Alignment());
    m_ui.centralWidget->update();
    return true;
}

bool TovScope::RemoveDisplayWidget(QWidget *widget)
{
    m_ui.centralLayout->removeWidget(widget);
    m_ui.centralWidget->update();
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

bool TovScope::WantsCompanions()
{
    return m_settings.GetGlobalSettings()->value(QStringLiteral("Recording/Companions"), true).toBool();
}

void TovScope::Wait(CameraWait const &wait, std::function<void()> const &action)
{
    if (s_pRigTest || !m_mayWait) { // a plug-in drives the program from its own code, for which nothing may change
        action();
        return;
    }
    CameraAction const waits(this, wait);
    action();
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

void TovScope::clearCoordinatesAndValue()
{
    if (!m_coordinates || !m_value)
        return;
    m_coordinates->clear();
    m_value->clear();
}

void TovScope::closeEvent(QCloseEvent *event)
{
    if (WaitingAction *const action = WaitingAction::Current()) {
        // It gives up first, and what it has on the stack goes its way.
        action->Cancel();
        if (!m_closing && !std::exchange(m_closesLater, true)) {
            WaitingAction::WhenOver(this, [this] {
                m_closesLater = false;
                QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
            });
            QTimer::singleShot(LongestGivingUp, this, &TovScope::EndBeforeDisk);
        }
        event->ignore();
        return;
    }
    writeSettings();
    QMainWindow::closeEvent(event);
    if (!event->isAccepted())
        return;
    if (!std::exchange(m_toldClosed, false))
        emit closed();
    m_closing = true;
    m_manager.Close();
    m_closing = false;
}

// A disk that does not answer must not keep the program: whoever hears of it ends the process.
void TovScope::EndBeforeDisk()
{
    WaitingAction const *const action = WaitingAction::Current();
    if (!m_closesLater || !action)
        return;
    if (action->GetAwaited() != Awaited::Disk) { // yet
        QTimer::singleShot(LongestGivingUp, this, &TovScope::EndBeforeDisk);
        return;
    }
    writeSettings();
    m_toldClosed = true;
    emit closed();
    m_manager.KeepSettings();
}

void TovScope::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    // A dialog opened by a button takes the pointer away without the button hearing of it.
    if (event->type() == QEvent::ActivationChange && !isActiveWindow())
        m_ui.statusBar->clearMessage();
}

bool TovScope::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_ui.centralWidget && event->type() == QEvent::Paint && m_ui.centralLayout->isEmpty())
        PaintFirstSteps();
    return QMainWindow::eventFilter(watched, event);
}

// Where the picture will be.
void TovScope::PaintFirstSteps()
{
    QPainter painter(m_ui.centralWidget);
    QFont font = m_ui.centralWidget->font();
    font.setPointSizeF(font.pointSizeF() * 1.25);
    painter.setFont(font);
    QColor colour = palette().color(QPalette::WindowText);
    colour.setAlphaF(0.75);
    painter.setPen(colour);
    painter.drawText(m_ui.centralWidget->rect().adjusted(20, 20, -20, -20), Qt::AlignCenter | Qt::TextWordWrap,
                     m_ui.centralWidget->accessibleDescription());
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
        connect(action, &QAction::triggered, &m_manager, [this, slot] {
            if (!WaitingAction::IsWaiting())
                (m_manager.*slot)();
        });
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

// Keys of the window, which work in its floating panels too. Tooltips show them; the menus do not.
void TovScope::MakeKeys()
{
    using Name = char const *;
    std::pair<Name, QAction *> const keys[] = {
        {"Ctrl+N", m_ui.actionConnect},
        {"Ctrl+Shift+N", m_ui.actionDisconnect},
        {"Ctrl+O", m_ui.actionLoadConfiguration},
        {"Ctrl+S", m_ui.actionSaveConfiguration},
        {"Ctrl+Shift+S", m_ui.actionSaveConfigurationAs},
        {"Ctrl+Q", m_ui.actionExit},
        {"F5", m_ui.actionPlay},
        {"Shift+F5", m_ui.actionStop},
        {"Ctrl+R", m_ui.actionRecord},
        {"Ctrl+Shift+R", m_ui.actionSnap},
        {"Ctrl+T", m_ui.actionTestBandwidth},
        {"Ctrl+Shift+I", m_ui.actionCameraInformation},
        {"Alt+1", m_ui.actionGenICamTree},
        {"Alt+2", m_ui.actionLog},
        {"Alt+3", m_ui.actionCapture},
        {"Alt+4", m_ui.actionStatistics},
        {"Alt+5", m_ui.actionInspectionView},
        {"Alt+6", m_ui.actionHistogramPanel},
        {"Ctrl++", m_ui.actionZoomIn},
        {"Ctrl+-", m_ui.actionZoomOut},
        {"Ctrl+0", m_ui.actionFitToWindow},
        {"Ctrl+1", m_ui.actionActualSize},
    };
    for (auto const &[text, action] : keys) {
        QKeySequence const sequence(QString::fromLatin1(text));
        AddKey(sequence, action);
        action->setToolTip(
            QStringLiteral("%1 (%2)").arg(action->toolTip(), sequence.toString(QKeySequence::NativeText)));
    }
    AddKey(QKeySequence(QStringLiteral("Ctrl+=")), m_ui.actionZoomIn); // plus without Shift
    AddKey(QKeySequence(QStringLiteral("Ctrl+I")), m_ui.actionInspectionView);
    for (QMenu *const menu : {m_ui.menuFile, m_ui.menuCamera, m_ui.menuView, m_ui.menuDisplay})
        menu->setToolTipsVisible(true);

    // The first menu has a mnemonic of its own. The letters avoid those of the panels' mnemonics.
    std::pair<Name, QMenu *> const menus[] = {
        {"Alt+A", m_ui.menuCamera}, {"Alt+W", m_ui.menuView}, {"Alt+D", m_ui.menuDisplay}, {"Alt+H", m_ui.menuHelp}};
    for (auto const &[text, menu] : menus)
        connect(new QShortcut(QKeySequence(QString::fromLatin1(text)), this), &QShortcut::activated, menu,
                [this, menu = menu] { m_ui.menuBar->setActiveAction(menu->menuAction()); });
    connect(new QShortcut(QKeySequence(Qt::Key_F1), this), &QShortcut::activated, this, &Guide::Open);
    m_ui.centralWidget->setAccessibleDescription(
        tr("No camera is connected.\n\nConnect (Ctrl+N) lists the cameras.\n"
           "Load configuration (Ctrl+O) opens the camera that a file names.\nThe guide: F1"));
}

void TovScope::AddKey(QKeySequence const &keys, QAction *action)
{
    auto *const shortcut = new QShortcut(keys, this);
    shortcut->setAutoRepeat(action == m_ui.actionZoomIn || action == m_ui.actionZoomOut);
    // Triggering an action does not check whether it is enabled.
    connect(shortcut, &QShortcut::activated, action, [action] {
        if (action->isEnabled())
            action->trigger();
    });
}

// For screen readers.
void TovScope::NameWidgets()
{
    for (QToolBar *const bar : {m_ui.toolBarFile, m_ui.toolBarDisplay, m_ui.toolBarView}) {
        bar->setAccessibleName(bar->windowTitle());
        for (QAction *const action : bar->actions())
            bar->widgetForAction(action)->setAccessibleName(action->text().remove(QLatin1Char('&')));
        auto *const more = bar->findChild<QAbstractButton *>(QStringLiteral("qt_toolbar_ext_button"));
        if (more)
            more->setAccessibleName(tr("More of %1").arg(bar->windowTitle()));
    }
    m_ui.menuBar->setAccessibleName(tr("Menus"));
    if (auto *const more = m_ui.menuBar->findChild<QAbstractButton *>(QStringLiteral("qt_menubar_ext_button")))
        more->setAccessibleName(tr("More menus"));
    m_ui.statusBar->setAccessibleName(tr("Status"));
    m_ui.centralWidget->setAccessibleName(tr("Picture"));
}

void TovScope::adjustStatusBar()
{
    auto *const notices = new NoticeBar(this);
    m_ui.statusBar->addWidget(notices, 1);
    m_tipTime = new QTimer(this);
    m_tipTime->setSingleShot(true);
    connect(m_tipTime, &QTimer::timeout, m_ui.statusBar, &QStatusBar::clearMessage);
    connect(m_ui.statusBar, &QStatusBar::messageChanged, this, [this](QString const &tip) {
        if (!tip.isEmpty())
            m_tipTime->start(LongestTip);
    });
    // A status tip would cover the notices.
    connect(notices, &NoticeBar::news, m_ui.statusBar, &QStatusBar::clearMessage);
    connect(notices, &NoticeBar::hostDetailsWanted, &m_manager, &GuiManager::showHostFindings);
    auto const addField = [this](QString const &widest) {
        auto *const label = new QLabel(this);
        label->setAlignment(Qt::AlignRight);
        label->setFixedWidth(label->fontMetrics().horizontalAdvance(widest));
        m_ui.statusBar->addPermanentWidget(label);
        return label;
    };
    m_coordinates = addField(QStringLiteral("0000x0000"));
    m_value = addField(QStringLiteral("00000x00000x00000"));
    m_coordinates->setAccessibleName(tr("Pixel under the pointer"));
    m_value->setAccessibleName(tr("Value of the pixel under the pointer"));
}
