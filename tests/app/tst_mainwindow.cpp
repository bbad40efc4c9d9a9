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

QString describe(QList<QAction *> const &actions)
{
    QStringList names;
    for (QAction const *action : actions) {
        if (action->isSeparator())
            names << QStringLiteral("-");
        else if (action->menu())
            names << QStringLiteral("[%1 %2]").arg(action->menu()->objectName(), action->text());
        else
            names << action->objectName();
    }
    return names.join(QLatin1Char(' '));
}

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

TEST_F(MainWindow, HasTheActionsInTheirOrder)
{
    TovScope window(nullptr, false, false);
    QStringList lines;
    for (QAction const *action :
         window.findChildren<QAction *>(QRegularExpression(QStringLiteral("^action")), Qt::FindDirectChildrenOnly)) {
        EXPECT_TRUE(action->shortcut().isEmpty());
        EXPECT_FALSE(action->isChecked());
        QString const marks = QLatin1String(action->isCheckable() ? "C" : "") +
                              QLatin1String(action->icon().pixmap(24).isNull() ? "" : "I");
        lines << action->objectName().mid(6) + QLatin1Char('|') + action->text() + QLatin1Char('|') + marks;
    }
    EXPECT_EQ(lines.join(QLatin1Char('\n')).toStdString(), R"(LoadConfiguration|&Load configuration...|I
SaveConfiguration|&Save configuration...|I
SaveConfigurationAs|Save configuration &as...|
SaveGenICamXML|Save &GenICam XML...|
Exit|E&xit|
Connect|Connect|I
Disconnect|Disconnect|I
CameraInformation|Camera information|I
Play|Play|I
Stop|Stop|I
Record|Record|
Snap|Snap|
GenICamTree|GenICam Tree|CI
CamConfig_BasicView|CamConfig - Basic View|CI
CamConfig_ExpertView|CamConfig - Expert View|CI
Log|Log|CI
Capture|Capture|CI
Statistics|Statistic|CI
InspectionView|Inspection View|CI
HistogramPanel|Histogram|CI
ColorizeHistogram|Colorize by markers|
StretchHistogram|Stretch between markers|
ImageProcessing|Image processing|CI
DefaultPanelsLayout|Default panels layout|
BrowseRecordingFolder|Browse the recording folder|
OpenLastRecordedFile|Open last recorded file|
Buffer|Buffer|
TextOverlay|Text overlay|
DisplayOptions|Display|
CaptureOptions|Capture|
ApplicationOptions|Application options|
ZoomIn|Zoom in|I
ZoomOut|Zoom out|I
ActualSize|Actual size (100%)|I
FitToWindow|Fit to window|I
SpreadToWindow|Spread to window|I
FullScreen|Full screen|I
CenterImage|Center image|I
Help|Help|
About|About|
TestBandwidth|Bandwidth testing|I
Settings|Settings|)");
}

TEST_F(MainWindow, HasTheMenusAndToolbarsInTheirOrder)
{
    TovScope window(nullptr, false, false);
    EXPECT_EQ(window.objectName(), QStringLiteral("TovScopeClass"));
    EXPECT_FALSE(window.windowIcon().isNull());
    EXPECT_EQ(describe(window.menuBar()->actions()).toStdString(),
              "[menuFile &File] [menuCamera Camera] [menuView View] [menuDisplay Display] [menuHelp Help]");
    auto const menu = [&](char const *name) {
        return describe(window.findChild<QMenu *>(QString::fromLatin1(name))->actions()).toStdString();
    };
    EXPECT_EQ(menu("menuFile"), "actionLoadConfiguration [menuLoadRecent Load &recent] actionSaveConfiguration "
                                "actionSaveConfigurationAs actionSettings - actionExit");
    EXPECT_EQ(menu("menuLoadRecent"), "");
    EXPECT_EQ(menu("menuCamera"), "actionConnect actionDisconnect actionCameraInformation actionPlay "
                                  "actionTestBandwidth actionStop actionRecord actionSnap");
    EXPECT_EQ(menu("menuView"), "actionGenICamTree actionLog actionCapture actionStatistics actionInspectionView "
                                "actionHistogramPanel");
    EXPECT_EQ(menu("menuDisplay"), "actionZoomIn actionZoomOut actionActualSize actionFitToWindow "
                                   "actionSpreadToWindow actionCenterImage");
    EXPECT_EQ(menu("menuHelp"), "actionHelp actionAbout");

    QString bars;
    for (QToolBar *bar : window.findChildren<QToolBar *>()) {
        EXPECT_EQ(window.toolBarArea(bar), Qt::TopToolBarArea);
        bars += QStringLiteral("%1 (%2): %3\n").arg(bar->objectName(), bar->windowTitle(), describe(bar->actions()));
    }
    EXPECT_EQ(bars.toStdString(),
              "toolBarFile (File toolbar): actionConnect actionDisconnect actionLoadConfiguration "
              "actionSaveConfiguration actionPlay actionStop\n"
              "toolBarDisplay (Display toolbar): actionZoomIn actionZoomOut actionActualSize actionFitToWindow "
              "actionSpreadToWindow actionCenterImage\n"
              "toolBarView (View toolbar): actionGenICamTree actionLog actionCapture actionStatistics "
              "actionInspectionView actionHistogramPanel actionTestBandwidth actionCameraInformation\n");
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
