// The main window with a simulated camera: what the operator sees of its state, reaches by keys, and finds again.
#include "displayview.h"
#include "noticebar.h"
#include "noticeboard.h"
#include "params.h"
#include "playerpanel.h"
#include "qttovlogmodel.h"
#include "simcamera.h"
#include "window.h"

#include "tovcameragui.h"

#include <map>
#include <thread>

namespace {

bool const s_undescribed = setenv("TOV_SIM_CAMERA_XML", "/dev/null", 1) == 0; // a camera more, "VG-XML"

template<typename... Types>
bool Is(QWidget const *widget)
{
    return (qobject_cast<Types const *>(widget) || ...);
}

class Operating : public WindowTest
{
protected:
    Operating()
    {
        Open();
    }
    ~Operating() override
    {
        m_window.reset();
        m_system->Release();
    }
    void Open()
    {
        NewWindow();
        m_window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_window.get(), PatienceMs));
        Connect();
    }
    void Connect()
    {
        TovCam::DeviceInfo *const info = FindSimulated(m_system, "VG-1280C");
        ASSERT_NE(info, nullptr);
        WindowTest::Connect(TovCam_CreateDevice(info, 2, nullptr));
    }
    PlayerPanel *Panel(char const *action)
    {
        return PlayerPanel::GetPanel(QString::fromLatin1(action));
    }
    TovCam::ParamArray *Features()
    {
        return Current()->GetDevice()->GetCameraParameters(nullptr);
    }
    // With small frames, so that many come.
    void Play()
    {
        Features()->SetIntegerValue("Width", 256);
        Features()->SetIntegerValue("Height", 128);
        Find<QAction>("actionPlay")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
    }
    void Press(char const *button)
    {
        Find<QAbstractButton>(button)->click();
    }
    // Answers the dialog for a file or a camera that the call opens, and then the boxes that tell of a failure.
    void ChooseFile(std::function<void()> const &call, QString const &path)
    {
        bool chosen = false;
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&] {
            QWidget *const modal = QApplication::activeModalWidget();
            if (auto *const dialog = qobject_cast<TovGui::TovCameraSelectorDialog *>(modal)) {
                auto *const tree = dialog->findChild<QTreeView *>();
                auto const found = tree->model()->match(tree->model()->index(0, 0), Qt::DisplayRole, path, 1,
                                                        Qt::MatchContains | Qt::MatchRecursive);
                if (!found.isEmpty() && !std::exchange(chosen, true)) {
                    tree->setCurrentIndex(found[0]);
                    QTest::keyClick(tree, Qt::Key_Return);
                }
            }
            if (auto *const dialog = qobject_cast<QFileDialog *>(modal); dialog && !std::exchange(chosen, true))
                Choose(dialog, path);
            if (auto *const box = qobject_cast<QMessageBox *>(modal))
                box->defaultButton() ? box->defaultButton()->click() : box->accept();
        });
        answer.start(5);
        call();
        EXPECT_TRUE(chosen) << "no dialog";
    }
    void Key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::ControlModifier)
    {
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : m_window.get(), key, modifiers);
    }

    TovCam::System *m_system = TovCam_GetSystem();
};

TEST_F(Operating, WhatCanBeOperatedHasANameAndNoKeyHasTwoMeanings)
{
    Find<QAction>("actionHistogramPanel")->trigger();
    Find<QAction>("actionInspectionView")->trigger();
    int named = 0;
    std::map<QString, std::string> keys;
    auto const take = [&](QKeySequence const &sequence, QObject const *owner) {
        std::string &other = keys[sequence.toString()];
        EXPECT_TRUE(sequence.isEmpty() || other.empty())
            << sequence.toString().toStdString() << ": " << other << " and " << owner->objectName().toStdString();
        other = owner->objectName().toStdString() + " of " + owner->metaObject()->className();
    };
    for (QWidget *const widget : m_window->findChildren<QWidget *>()) {
        auto const *const button = qobject_cast<QAbstractButton *>(widget);
        if (button)
            take(QKeySequence::mnemonic(button->text()), button);
        if (auto const *const bar = qobject_cast<QMenuBar *>(widget)) {
            for (QAction const *const menu : bar->actions())
                take(QKeySequence::mnemonic(menu->text()), menu);
        }
        QWidget const *const whole = widget->parentWidget();
        bool const part = widget->window()->windowType() == Qt::Popup || Is<QScrollBar, QHeaderView>(widget) ||
                          Is<QAbstractSpinBox, QComboBox, QAbstractScrollArea>(whole); // which speaks for it
        if (part || !((widget->focusPolicy() & Qt::TabFocus) ||
                      Is<QAbstractButton, QAbstractSlider, QDockWidget, QLineEdit, QToolBar>(widget)))
            continue;
        QAccessibleInterface *const face = QAccessible::queryAccessibleInterface(widget);
        EXPECT_TRUE(face && !face->text(QAccessible::Name).trimmed().isEmpty())
            << widget->metaObject()->className() << ' ' << widget->objectName().toStdString() << " in "
            << (whole ? whole->objectName().toStdString() : "");
        bool const iconOnly = button && button->text().isEmpty();
        EXPECT_TRUE(!iconOnly || !widget->accessibleName().isEmpty()) << widget->objectName().toStdString();
        ++named;
    }
    EXPECT_GT(named, 60);
    for (QShortcut const *const shortcut : m_window->findChildren<QShortcut *>()) {
        if (shortcut->context() != Qt::WidgetShortcut && shortcut->context() != Qt::WidgetWithChildrenShortcut)
            take(shortcut->key(), shortcut);
    }
    EXPECT_EQ(keys.count(QStringLiteral("F5")) + keys.count(QStringLiteral("Alt+F")), 2u);
    for (QAction const *const action : m_window->findChildren<QAction *>())
        EXPECT_TRUE(action->shortcut().isEmpty() || action->objectName().isEmpty())
            << action->objectName().toStdString();
}

TEST_F(Operating, KeysWorkWhereverTheFocusIs)
{
    QTemporaryDir const folder;
    Current()->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
    Find<QLineEdit>("featureSearch")->setFocus();
    Key(Qt::Key_F5, Qt::NoModifier);
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Key(Qt::Key_W, Qt::AltModifier);
    auto *const menu = Find<QMenu>("menuView");
    EXPECT_TRUE(Eventually([&] { return menu->isVisible(); }));
    menu->hide();
    Find<QLineEdit>("edFolderName")->setFocus();
    Find<QDockWidget>("CapturePanel")->hide();
    Key(Qt::Key_R);
    ASSERT_TRUE(Reaches(SessionStateCapturing));
    Key(Qt::Key_F5, Qt::ShiftModifier);
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Key(Qt::Key_F5, Qt::ShiftModifier);
    ASSERT_TRUE(Reaches(SessionStateIdle));
    Key(Qt::Key_R); // may not be used now
    Key(Qt::Key_N, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(Current(), nullptr);
}

TEST_F(Operating, ACoveredPanelIsRaisedAndASeenOneHidden)
{
    for (char const *const name : {"actionLog", "actionCapture", "actionStatistics", "actionGenICamTree",
                                   "actionHistogramPanel", "actionLog", "actionCapture"}) {
        auto *const action = Find<QAction>(name);
        ASSERT_TRUE(Eventually([&] { return !Panel("actionStatistics")->visibleRegion().isEmpty(); }));
        bool const seen = Panel(name)->CanBeSeen();
        action->trigger();
        EXPECT_TRUE(Eventually([&] { return Panel(name)->CanBeSeen() != seen; })) << name;
        EXPECT_EQ(action->isChecked(), !seen) << name;
        if (seen)
            action->trigger();
        EXPECT_TRUE(Eventually([&] { return Panel(name)->CanBeSeen() && action->isChecked(); })) << name;
    }
}

TEST_F(Operating, ClosingEndsARecordingAtOnceAndFloatingPanelsComeBack)
{
    QTemporaryDir const folder;
    Current()->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
    Find<QAction>("actionHistogramPanel")->trigger();
    Find<QAction>("actionInspectionView")->trigger();
    QRect const screen = m_window->screen()->availableGeometry();
    for (char const *const name : {"actionHistogramPanel", "actionInspectionView"}) {
        ASSERT_TRUE(Panel(name)->isFloating() && Panel(name)->isVisible()) << name;
        EXPECT_TRUE(screen.contains(Panel(name)->frameGeometry())) << name;
    }
    QSize const size = Panel("actionHistogramPanel")->size();
    QRect const histogram(QPoint((screen.width() - size.width()) / 3, 30), size);
    QRect const inspection(60, 50, 210, 230);
    Panel("actionHistogramPanel")->setGeometry(histogram);
    Panel("actionInspectionView")->setGeometry(inspection);
    Find<QAction>("actionPlay")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Find<QAction>("actionRecord")->trigger();
    ASSERT_TRUE(Reaches(SessionStateCapturing));
    int ended = 0;
    QObject::connect(m_window.get(), &TovScope::closed, [&] { ++ended; });
    m_window->close();
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(Current(), nullptr);
    EXPECT_EQ(m_window->findChildren<QDockWidget *>().size(), 0);
    m_window.reset();

    Open();
    for (auto const &[name, place] :
         {std::pair("actionHistogramPanel", histogram), std::pair("actionInspectionView", inspection)}) {
        ASSERT_TRUE(Panel(name)) << name;
        EXPECT_TRUE(Panel(name)->isFloating() && Panel(name)->isVisible()) << name;
        EXPECT_EQ(Panel(name)->geometry(), place) << name;
        EXPECT_TRUE(Find<QAction>(name)->isChecked()) << name;
    }
    EXPECT_EQ(ParamText(Current()->GetImageWriter(), "FilePath"), folder.path().toStdString());
}

TEST_F(Operating, TheCapturePanelRecordsWhatItSaysAndTellsWhatFails)
{
    QTemporaryDir const top;
    QString folder;
    auto const type = [&](QString const &path) {
        auto *const edit = Find<QLineEdit>("edFolderName");
        m_window->activateWindow();
        edit->setFocus();
        EXPECT_TRUE(Eventually([=] { return edit->hasFocus(); }));
        edit->selectAll();
        QTest::keyClicks(edit, folder = path); // the command that comes next ends the edit
    };
    auto const files = [&] {
        return QDir(folder).entryInfoList(QDir::Files | QDir::Hidden);
    };
    auto const buttons = [&] {
        std::string enabled;
        for (char const *const name : {"btnSnap", "btnRecord", "btnCaptOptions"})
            enabled += Find<QAbstractButton>(name)->isEnabled() ? std::string(name) + ' ' : std::string();
        return enabled;
    };
    auto const isTold = [&](char const *field) {
        return Find<QLineEdit>(field)->toolTip().contains(folder);
    };
    auto const shown = [&](char const *field) {
        return Find<QLineEdit>(field)->text().toLong();
    };
    EXPECT_EQ(buttons(), "");
    Play();
    std::int64_t const frameBytes = Features()->GetIntegerValue("PayloadSize", nullptr);
    EXPECT_EQ(buttons(), "btnSnap btnRecord ");
    auto const *const statistics = Find<QTableView>("statisticsTable")->model();
    auto const frames = statistics->match(statistics->index(0, 0), Qt::DisplayRole, QStringLiteral("Frames acquired"));
    ASSERT_EQ(frames.size(), 1);
    EXPECT_TRUE(Eventually([&] { return frames[0].siblingAtColumn(1).data().toInt() > 5; }));

    for (bool const writable : {false, true}) { // a failure is not held against the next folder
        type(writable ? top.filePath(QStringLiteral("new/folder")) : QStringLiteral("/proc/nothing"));
        Press("btnRecord");
        ASSERT_TRUE(Reaches(SessionStateCapturing));
        EXPECT_TRUE(Eventually([&] { return writable ? files().size() >= 5 : isTold("edFramesSaved"); }));
        EXPECT_EQ(isTold("edFramesSaved") && isTold("edFolderName"), !writable);
        EXPECT_TRUE(Eventually(
            [&] { return Find<NoticeBar>("noticeBar")->toolTip().contains(folder.toHtmlEscaped()) != writable; }));
        EXPECT_EQ(buttons(), "btnRecord ");
        EXPECT_TRUE(Find<QAbstractButton>("btnRecord")->isChecked());
        Press("btnRecord");
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
        EXPECT_FALSE(Find<QAbstractButton>("btnRecord")->isChecked());
    }
    EXPECT_TRUE(Eventually([&] { return shown("edFramesSaved") == files().size(); }));
    for (QFileInfo const &file : files())
        EXPECT_EQ(file.size(), frameBytes) << file.fileName().toStdString();

    type(top.filePath(QStringLiteral("snap")));
    Press("btnSnap");
    EXPECT_TRUE(Eventually([&] { return files().size() == 1; }));
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    EXPECT_TRUE(Eventually([&] { return shown("edFramesSaved") + shown("edFramesAcquired") == 2; }));

    // The menu puts the template together.
    for (auto const &[entry, name] :
         {std::pair(u"Reset", "image_${image.id}"), {u"Add Image ID", "image_${image.id}#${image.id}"}}) {
        Press("btnFileName");
        auto *const menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        ASSERT_TRUE(menu);
        for (QAction *const action : menu->actions())
            if (action->text() == QString::fromUtf16(entry))
                action->trigger();
        menu->hide();
        EXPECT_EQ(ParamText(Current()->GetImageWriter(), "ImageName"), name);
    }

    type(top.filePath(QStringLiteral("lost")));
    Key(Qt::Key_R);
    ASSERT_TRUE(Reaches(SessionStateCapturing));
    EXPECT_TRUE(Eventually([&] { return files().size() >= 5; }));
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [] {
        if (auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget()))
            box->accept();
    });
    answer.start(5);
    Features()->ExecuteCommand("SimLoseCamera");
    EXPECT_TRUE(Eventually([&] { return !Current(); }));
    for (QFileInfo const &file : files())
        EXPECT_EQ(file.size(), frameBytes) << file.fileName().toStdString();
}

TEST_F(Operating, TheLogPanelSwitchesClearsAndSaves)
{
    QTemporaryDir const folder;
    Session *const session = Current();
    QAbstractItemModel const *const rows = session->GetLogModel();
    std::pair<char const *, char const *> const channels[] = {
        {"chkControl", "Control"}, {"chkStream", "Stream"}, {"chkEvent", "Event"}};
    Features()->SetEnumValueStr("EventNotification", "On");
    Play();
    // Boxes cannot be pressed before logging is on; then each brings its own channel and no other.
    Press("chkStream");
    EXPECT_EQ(ParamText(session, "LogStream"), "0");
    Find<QGroupBox>("groupLogging")->setChecked(true);
    EXPECT_EQ(ParamText(session, "EnableLog"), "1");
    for (auto const &[box, channel] : channels) {
        Press(box);
        Press("btnClear");
        int gain = 0;
        EXPECT_TRUE(Eventually([&] {
            Features()->SetFloatValue("Gain", 1.0 + gain++ % 3);
            return rows->rowCount() > 3;
        })) << box;
        for (int row = 0; row < rows->rowCount(); ++row)
            ASSERT_EQ(rows->index(row, 1).data().toString().toStdString(), channel);
        Press(box);
    }
    Press("chkStream");
    EXPECT_TRUE(Eventually([&] { return rows->rowCount() > 50; }));
    Find<QGroupBox>("groupLogging")->setChecked(false);
    std::size_t const lines = session->GetLogModel()->log().size(); // they stay
    EXPECT_TRUE(Eventually([&] { return std::size_t(rows->rowCount()) == lines; }));

    // A refused place is told, and the lines stay.
    QFile file(folder.filePath(QStringLiteral("traffic.log")));
    ChooseFile([&] { Press("btnSave"); }, QStringLiteral("/proc/traffic.log"));
    ChooseFile([&] { Press("btnSave"); }, file.fileName());
    EXPECT_TRUE(Eventually([&] { return !session->IsSavingLog(); }));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(std::size_t(file.readAll().count('\n')), lines);
    Press("btnClear");
    EXPECT_EQ(rows->rowCount(), 0);

    // Lines that were not saved are kept when the camera goes, and not when the window is closed.
    qputenv("TMPDIR", folder.path().toUtf8());
    for (bool const closed : {false, true}) {
        Find<QGroupBox>("groupLogging")->setChecked(true);
        Find<QCheckBox>("chkControl")->setChecked(true);
        EXPECT_TRUE(Eventually([&] {
            Features()->GetIntegerValue("Width", nullptr);
            return !Current()->GetLogModel()->log().isEmpty();
        }));
        Find<QAction>(closed ? "actionExit" : "actionDisconnect")->trigger();
        EXPECT_FALSE(Current());
        if (!closed)
            Connect();
    }
    EXPECT_EQ(QDir(folder.path()).entryList({QStringLiteral("tovscope-*.log")}).size(), 1);
    qunsetenv("TMPDIR");
}

TEST_F(Operating, ActionsZoomThePictureAndADoubleClickLooksCloser)
{
    Play();
    DisplayView *const view = Current()->GetDisplayView();
    TovComponent *const picture = view->GetRenderer()->GetComponent();
    _TovImage *image = nullptr;
    EXPECT_TRUE(Eventually([&] { return view->GetDisplayedImageRaw(&image); }));
    for (auto const &[action, fit] :
         {std::pair("actionSpreadToWindow", 2), {"actionFitToWindow", 1}, {"actionActualSize", 3}}) {
        Find<QAction>(action)->trigger();
        EXPECT_EQ(IntOf(picture, "display.fit"), fit) << action;
    }
    auto const span = [&] { // of a hundred pixels of the screen
        int x[] = {0, 100}, y[] = {0, 0};
        for (int i = 0; i < 2; ++i)
            view->GetRenderer()->Translate(&x[i], &y[i], 1);
        return x[1] - x[0];
    };
    int const actual = span();
    picture->SetParamFloat("display.at.x", 0.25);
    Find<QAction>("actionCenterImage")->trigger();
    EXPECT_EQ(FloatOf(picture, "display.at.x"), 0.5);
    Find<QAction>("actionZoomIn")->trigger();
    EXPECT_LT(span(), actual);
    Find<QAction>("actionZoomOut")->trigger();
    EXPECT_EQ(span(), actual);

    EXPECT_FALSE(Panel("actionInspectionView"));
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, view->viewport()->rect().center());
    ASSERT_TRUE(Panel("actionInspectionView"));
    EXPECT_TRUE(Panel("actionInspectionView")->isVisible());
}

TEST_F(Operating, AConfigurationBringsSettingsAndCameraBack)
{
    QTemporaryDir const folder;
    QString const file = folder.filePath(QStringLiteral("camera.tcfg"));
    Features()->SetIntegerValue("Width", 640);
    ChooseFile([&] { Find<QAction>("actionSaveConfigurationAs")->trigger(); }, file);
    for (bool const connected : {true, false}) { // without a camera the file alone brings it
        Features()->SetIntegerValue("Width", 320);
        if (!connected)
            Find<QAction>("actionDisconnect")->trigger();
        ChooseFile([&] { Find<QAction>("actionLoadConfiguration")->trigger(); }, file);
        ASSERT_TRUE(Reaches(SessionStateIdle));
        EXPECT_EQ(Features()->GetIntegerValue("Width", nullptr), 640) << connected;
        EXPECT_TRUE(m_window->windowTitle().endsWith(QStringLiteral(" { %1 }").arg(file)));
    }
    // One that cannot be operated is given back, whichever way it was asked for.
    QFile text(file);
    ASSERT_TRUE(text.open(QIODevice::ReadWrite));
    QByteArray const content = text.readAll().replace("=VG-1280C", "=VG-XML");
    text.resize(0);
    text.write(content);
    text.close();
    for (char const *const action : {"actionConnect", "actionLoadConfiguration"}) {
        Gui().cameraDisconnect();
        ChooseFile([&] { Find<QAction>(action)->trigger(); }, action[6] == 'C' ? QStringLiteral("VG-XML") : file);
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(FindSimulated(m_system, "VG-XML")->GetAccessStatus(), TovCam::DeviceInfo::AccessFree) << action;
    }
}

TEST_F(Operating, WhatNoLongerHoldsIsGoneAndANoticeIsNotHiddenByATip)
{
    auto const labels = m_window->statusBar()->findChildren<QLabel *>();
    ASSERT_EQ(labels.size(), 2);
    Find<QAction>("actionPlay")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    m_window->setCoordinatesAndValue(1, 2, -1, 3, -1);
    EXPECT_EQ(labels[1]->text(), QStringLiteral("3"));
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(Current()->GetDisplayView()->viewport(), &leave);
    EXPECT_EQ(labels[1]->text(), QString());
    m_window->setCoordinatesAndValue(1, 2, -1, 3, -1);
    Find<QAction>("actionStop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateIdle));
    EXPECT_EQ(labels[0]->text() + labels[1]->text(), QString());

    auto *const bar = Find<NoticeBar>("noticeBar");
    QStatusTipEvent tip(QStringLiteral("a tip"));
    QApplication::sendEvent(m_window.get(), &tip);
    EXPECT_FALSE(bar->isVisible());
    NoticeBoard &board = NoticeBoard::Instance();
    std::thread([&] {
        board.Post(NoticeTopic::Log, NoticeLevel::Warning, QStringLiteral("older"));
        board.Post(NoticeTopic::Camera, NoticeLevel::Info, QStringLiteral("lesser"));
        board.Report(NoticeTopic::Recording, NoticeLevel::Warning, QStringLiteral("of before"));
        board.Report(NoticeTopic::Recording, NoticeLevel::Warning, QStringLiteral("1 < 2"));
    }).join();
    EXPECT_TRUE(Eventually([&] { return bar->isVisible() && bar->Text() == QStringLiteral("1 < 2"); }));
    EXPECT_EQ(bar->toolTip(), QStringLiteral("<p>1 &lt; 2</p><p>older</p><p>lesser</p>"));
    QApplication::sendEvent(m_window.get(), &tip);
    board.Report(NoticeTopic::Recording, NoticeLevel::Warning, QStringLiteral("2 < 3"));
    EXPECT_TRUE(Eventually([&] { return bar->Text() == QStringLiteral("2 < 3"); }));
    EXPECT_FALSE(bar->isVisible()); // a count that goes on leaves the tip
    for (NoticeTopic const topic : {NoticeTopic::Recording, NoticeTopic::Log, NoticeTopic::Camera})
        board.Withdraw(topic);
    EXPECT_TRUE(Eventually([&] { return bar->Text().isEmpty(); }));
    EXPECT_EQ(bar->toolTip(), QString());
}

} // namespace
