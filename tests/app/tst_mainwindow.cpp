// The main window without a camera.
#include "tovscope.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDir>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QStatusBar>
#include <QToolBar>

namespace {

class MainWindow : public testing::Test
{
protected:
    MainWindow()
    {
        QDir(Folder()).removeRecursively();
    }
    static QString Folder()
    {
        return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Velmor");
    }
};

TEST_F(MainWindow, EveryIconThatAnActionNamesIsThere)
{
    TovScope window(nullptr, false, false);
    auto const actions = window.findChildren<QAction *>(QRegularExpression(QStringLiteral("^action")));
    EXPECT_EQ(actions.size(), 42);
    int icons = 0;
    for (QAction const *action : actions) {
        icons += !action->icon().isNull();
        EXPECT_EQ(action->icon().isNull(), action->icon().pixmap(24).isNull()) << action->objectName().toStdString();
    }
    EXPECT_EQ(icons, 24);
    EXPECT_FALSE(window.windowIcon().pixmap(32).isNull());
    EXPECT_EQ(window.objectName(), QStringLiteral("TovScopeClass"));
}

TEST_F(MainWindow, StartsInTheDisconnectedPicture)
{
    TovScope window(nullptr, false, false);
    EXPECT_EQ(window.size(), QSize(1136, 726));
    EXPECT_EQ(window.windowTitle(), QStringLiteral("TovScope - Camera is not connected"));
    QStringList reachable;
    for (QMenu const *menu : window.menuBar()->findChildren<QMenu *>()) {
        for (QAction const *action : menu->actions()) {
            if (action->isEnabled() && !action->isSeparator() && !action->menu())
                reachable << action->objectName();
        }
    }
    reachable.sort();
    EXPECT_EQ(reachable.join(QLatin1Char(' ')).toStdString(),
              "actionAbout actionConnect actionExit actionHelp actionLoadConfiguration actionSettings");
    EXPECT_FALSE(window.findChild<QAction *>(QStringLiteral("actionInspectionView"))->isVisible());
    // In no menu, so the table does not reach it.
    EXPECT_TRUE(window.findChild<QAction *>(QStringLiteral("actionSaveGenICamXML"))->isEnabled());
}

TEST_F(MainWindow, ShowsCoordinatesAndValuesUnderThePointer)
{
    TovScope window(nullptr, false, false);
    auto const labels = window.statusBar()->findChildren<QLabel *>();
    ASSERT_EQ(labels.size(), 2);
    EXPECT_EQ(labels[0]->minimumWidth(), labels[0]->fontMetrics().horizontalAdvance(QStringLiteral("0000x0000")));
    EXPECT_EQ(labels[0]->maximumWidth(), labels[0]->minimumWidth());
    EXPECT_EQ(labels[1]->minimumWidth(),
              labels[1]->fontMetrics().horizontalAdvance(QStringLiteral("00000x00000x00000")));
    EXPECT_TRUE(labels[1]->alignment() & Qt::AlignRight);

    struct
    {
        int r, g, b;
        char const *value;
    } const table[] = {{-1, 65535, -1, "65535"},
                       {-1, 7, 3, "7"},
                       {3, 7, -1, "7"},
                       {0, 128, 65535, "0x128x65535"},
                       {-2, -2, -2, "-2x-2x-2"}};
    for (auto const &row : table) {
        window.setCoordinatesAndValue(-5, 4095, row.r, row.g, row.b);
        EXPECT_EQ(labels[0]->text(), QStringLiteral("-5x4095"));
        EXPECT_EQ(labels[1]->text().toStdString(), row.value);
    }
}

TEST_F(MainWindow, KeepsItsPlaceAndLayoutFromOneRunToTheNext)
{
    {
        TovScope window(nullptr, false, false);
        window.show();
        window.resize(900, 650);
        window.findChild<QToolBar *>(QStringLiteral("toolBarDisplay"))->hide();
        window.close();
    }
    TovScope window(nullptr, false, false);
    EXPECT_EQ(window.size(), QSize(900, 650));
    EXPECT_TRUE(window.findChild<QToolBar *>(QStringLiteral("toolBarDisplay"))->isHidden());
    EXPECT_FALSE(window.findChild<QToolBar *>(QStringLiteral("toolBarFile"))->isHidden());
}

TEST_F(MainWindow, StartsOverBrokenSettings)
{
    for (char const *content :
         {"\xff\xfe[[[[\nwndState=1\n",
          "[General]\nwndGeometry=@ByteArray(\\x1\\xd9\\xd0\\xcb\\0\\xff\\xff)\nwndState=@Variant(\\0)\n",
          "[General]\nwndGeometry=7\nwndState=@ByteArray(\\0\\0\\0\\xff\\0\\0\\0\\0\\xfd\\xff\\xff\\xff\\xff)\n"}) {
        QDir().mkpath(Folder());
        QFile file(Folder() + QStringLiteral("/TovScope.conf"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
        file.close();
        {
            QSettings const settings(QStringLiteral("Velmor"), QStringLiteral("TovScope"));
            ASSERT_TRUE(settings.contains(QStringLiteral("wndState"))) << content;
        }
        TovScope window(nullptr, false, false);
        window.show();
        EXPECT_EQ(window.size(), QSize(1136, 726));
    }
}

TEST_F(MainWindow, LooksForThePluginOnlyWhenAsked)
{
    TovScope window(nullptr, true, false); // none lies beside this test
    EXPECT_EQ(TovScope::s_pRigTest, nullptr);
    EXPECT_EQ(window.windowTitle(), QStringLiteral("TovScope - Camera is not connected"));
    TovScope automatic(nullptr, false, true);
    EXPECT_EQ(automatic.windowTitle(), QStringLiteral("TovScope - Camera is not connected"));
}

TEST_F(MainWindow, ExitCloses)
{
    TovScope window(nullptr, false, false);
    window.show();
    window.findChild<QAction *>(QStringLiteral("actionExit"))->trigger();
    EXPECT_FALSE(window.isVisible());
}

} // namespace
