// The main window without a camera.
#include "guide.h"
#include "tovscope.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDir>
#include <QSettings>
#include <QStandardPaths>
#include <QToolBar>

namespace {

class MainWindow : public testing::Test
{
protected:
    MainWindow()
    {
        QDir(m_folder).removeRecursively();
        QDir().mkpath(m_folder);
    }
    QString const m_folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Velmor");
};

TEST_F(MainWindow, EveryIconThatAnActionNamesIsThere)
{
    TovScope window(nullptr, false, false);
    int icons = 0;
    for (QAction const *action : window.findChildren<QAction *>()) {
        icons += !action->icon().isNull();
        EXPECT_EQ(action->icon().isNull(), action->icon().pixmap(24).isNull()) << action->objectName().toStdString();
    }
    EXPECT_EQ(icons, 24);
    EXPECT_FALSE(window.windowIcon().pixmap(32).isNull());
}

TEST_F(MainWindow, KeepsItsPlaceAndLayoutFromOneRunToTheNext)
{
    {
        TovScope window(nullptr, false, false);
        window.show();
        window.resize(900, 650);
        window.findChild<QToolBar *>(QStringLiteral("toolBarDisplay"))->hide();
        window.findChild<QAction *>(QStringLiteral("actionExit"))->trigger();
        EXPECT_FALSE(window.isVisible());
    }
    TovScope window(nullptr, false, false);
    EXPECT_EQ(window.size(), QSize(900, 650));
    EXPECT_TRUE(window.findChild<QToolBar *>(QStringLiteral("toolBarDisplay"))->isHidden());
    EXPECT_FALSE(window.findChild<QToolBar *>(QStringLiteral("toolBarFile"))->isHidden());
}

TEST_F(MainWindow, FindsTheGuideOfTheSourceAndOfAnInstallation)
{
    QDir const source(QStringLiteral(TOV_SOURCE));
    EXPECT_EQ(Guide::Find(source.filePath(QStringLiteral("build/dev/bin"))),
              source.filePath(QStringLiteral("docs/guide.md")));
    QDir().mkpath(m_folder + QStringLiteral("/bin"));
    EXPECT_EQ(Guide::Find(m_folder + QStringLiteral("/bin")), QString());
    QDir().mkpath(m_folder + QStringLiteral("/share/tovscope/docs"));
    QString const guide = m_folder + QStringLiteral("/share/tovscope/docs/guide.md");
    EXPECT_TRUE(QFile::copy(source.filePath(QStringLiteral("docs/guide.md")), guide));
    EXPECT_EQ(Guide::Find(m_folder + QStringLiteral("/bin")), QFileInfo(guide).canonicalFilePath());
}

TEST_F(MainWindow, StartsOverBrokenSettings)
{
    for (char const *content :
         {"\xff\xfe[[[[\nwndState=1\n",
          "[General]\nwndGeometry=@ByteArray(\\x1\\xd9\\xd0\\xcb\\0\\xff\\xff)\nwndState=@Variant(\\0)\n",
          "[General]\nwndGeometry=7\nwndState=@ByteArray(\\0\\0\\0\\xff\\0\\0\\0\\0\\xfd\\xff\\xff\\xff\\xff)\n"}) {
        QFile file(m_folder + QStringLiteral("/TovScope.conf"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        ASSERT_TRUE(QSettings(file.fileName(), QSettings::NativeFormat).contains(QStringLiteral("wndState")));
        TovScope window(nullptr, false, false);
        window.show();
        EXPECT_EQ(window.size(), QSize(1136, 726));
    }
}

} // namespace
