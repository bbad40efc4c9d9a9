// The main window with a simulated camera: what the operator sees of its state, reaches by keys, and finds again.
#include "displayview.h"
#include "noticebar.h"
#include "noticeboard.h"
#include "params.h"
#include "playerpanel.h"
#include "session.h"
#include "simcamera.h"
#include "tovscope.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QAbstractSlider>
#include <QAbstractSpinBox>
#include <QAccessible>
#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QScrollBar>
#include <QSettings>
#include <QShortcut>
#include <QStatusBar>
#include <QStatusTipEvent>
#include <QTemporaryDir>
#include <QTest>
#include <QToolBar>

#include <map>
#include <thread>

namespace {

template<typename... Types>
bool Is(QWidget const *widget)
{
    return (qobject_cast<Types const *>(widget) || ...);
}

class Operating : public testing::Test
{
protected:
    Operating()
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).clear();
        Open();
    }
    ~Operating() override
    {
        m_window.reset();
        m_system->Release();
    }
    void Open()
    {
        m_window = std::make_unique<TovScope>(nullptr, false, false);
        m_window->show();
        m_window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_window.get()));
        TovCam::DeviceInfo *const info = FindSimulated(m_system, "VG-1280C");
        ASSERT_NE(info, nullptr);
        TovCam::Device *const device = TovCam_CreateDevice(info, 2, nullptr);
        ASSERT_TRUE(Gui().CreateSession(device) && Gui().CreatePanels());
        ASSERT_TRUE(Reaches(SessionStateIdle));
    }
    GuiManager &Gui()
    {
        return m_window->GetGuiManager();
    }
    bool Reaches(SessionState state)
    {
        return QTest::qWaitFor([&] { return Gui().GetSession() && Gui().GetSession()->GetState() == state; }, 20000);
    }
    template<typename W>
    W *Find(char const *name)
    {
        return m_window->findChild<W *>(QString::fromLatin1(name));
    }
    PlayerPanel *Panel(char const *action)
    {
        return PlayerPanel::GetPanel(QString::fromLatin1(action));
    }
    void Key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::ControlModifier)
    {
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : m_window.get(), key, modifiers);
    }

    TovCam::System *m_system = TovCam_GetSystem();
    std::unique_ptr<TovScope> m_window;
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
    Gui().GetSession()->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
    Find<QLineEdit>("featureSearch")->setFocus();
    Key(Qt::Key_F5, Qt::NoModifier);
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    Key(Qt::Key_W, Qt::AltModifier);
    auto *const menu = Find<QMenu>("menuView");
    EXPECT_TRUE(QTest::qWaitFor([&] { return menu->isVisible(); }));
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
    EXPECT_EQ(Gui().GetSession(), nullptr);
}

TEST_F(Operating, ACoveredPanelIsRaisedAndASeenOneHidden)
{
    for (char const *const name : {"actionLog", "actionCapture", "actionStatistics", "actionGenICamTree",
                                   "actionHistogramPanel", "actionLog", "actionCapture"}) {
        auto *const action = Find<QAction>(name);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !Panel("actionStatistics")->visibleRegion().isEmpty(); }));
        bool const seen = Panel(name)->CanBeSeen();
        action->trigger();
        EXPECT_TRUE(QTest::qWaitFor([&] { return Panel(name)->CanBeSeen() != seen; })) << name;
        EXPECT_EQ(action->isChecked(), !seen) << name;
        if (seen)
            action->trigger();
        EXPECT_TRUE(QTest::qWaitFor([&] { return Panel(name)->CanBeSeen() && action->isChecked(); })) << name;
    }
}

TEST_F(Operating, ClosingEndsARecordingAtOnceAndFloatingPanelsComeBack)
{
    QTemporaryDir const folder;
    Gui().GetSession()->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
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
    EXPECT_EQ(Gui().GetSession(), nullptr);
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
    EXPECT_EQ(ParamText(Gui().GetSession()->GetImageWriter(), "FilePath"), folder.path().toStdString());
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
    QApplication::sendEvent(Gui().GetSession()->GetDisplayView()->viewport(), &leave);
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
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar->isVisible() && bar->Text() == QStringLiteral("1 < 2"); }));
    EXPECT_EQ(bar->toolTip(), QStringLiteral("<p>1 &lt; 2</p><p>older</p><p>lesser</p>"));
    QApplication::sendEvent(m_window.get(), &tip);
    board.Report(NoticeTopic::Recording, NoticeLevel::Warning, QStringLiteral("2 < 3"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar->Text() == QStringLiteral("2 < 3"); }));
    EXPECT_FALSE(bar->isVisible()); // a count that goes on leaves the tip
    for (NoticeTopic const topic : {NoticeTopic::Recording, NoticeTopic::Log, NoticeTopic::Camera})
        board.Withdraw(topic);
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar->Text().isEmpty(); }));
    EXPECT_EQ(bar->toolTip(), QString());
}

} // namespace
