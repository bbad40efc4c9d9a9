// An operator who reads the protocol's traffic of simulated cameras, by real clicks.
#include "logtour.h"

#include "notices.h"

#include <QRegularExpression>
#include <QTemporaryDir>

namespace {

class LogOfEachKind : public testing::TestWithParam<char const *>
{
};

TEST_P(LogOfEachKind, IsSwitchedReadSavedAndOutlivesItsCamera)
{
    QTemporaryDir const folder;
    qputenv("TMPDIR", folder.path().toUtf8());
    auto const kept = [&] {
        return QDir(folder.path()).entryList({QStringLiteral("tovscope-*.log")}).size();
    };
    Operator::Run([&](Robot &robot, Operator &hands) {
        LogTour tour(robot, hands);
        tour.Connect(GetParam());
        tour.Screenshot("off");

        // Boxes cannot be pressed before logging is on; then in any order.
        Channels const none;
        tour.Press("chkStream");
        tour.ExpectTraffic(none);
        tour.Press("groupLogging");
        tour.ExpectTraffic(none);
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Stream")});
        tour.Press("chkControl");
        tour.ExpectTraffic({QStringLiteral("Stream"), QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Control")});
        tour.Press("groupLogging");
        tour.ExpectTraffic(none);
        tour.Press("groupLogging");
        tour.ExpectTraffic({QStringLiteral("Control")});
        tour.Press("chkEvent");
        tour.ExpectTraffic({QStringLiteral("Event"), QStringLiteral("Control")});
        tour.Press("chkStream");
        tour.ExpectTraffic({QStringLiteral("Event"), QStringLiteral("Stream"), QStringLiteral("Control")});

        // The view follows until a row is selected, and again from the last one on.
        robot.WaitFor("rows", [&] { return tour.Rows() > 100 && tour.Follows(); });
        tour.Screenshot("following");
        tour.ClickARow();
        int const chosen = robot.Gui([&] { return tour.View()->currentIndex().row(); });
        int const rows = robot.Gui([&] { return tour.Rows(); });
        robot.WaitFor("more rows", [&] { return tour.Rows() > rows + 50; });
        EXPECT_EQ(robot.Gui([&] { return tour.View()->currentIndex().row(); }), chosen);
        tour.Screenshot("selected");
        tour.Press("groupLogging"); // the lines stay
        QThread::msleep(300);
        EXPECT_GT(robot.Gui([&] { return tour.Rows(); }), rows);
        robot.Click(tour.View()->viewport());
        robot.Key("ctrl+End");
        robot.WaitFor("the last row", [&] { return tour.Follows(); });
        int const last = robot.Gui([&] { return tour.Rows(); });

        // Saved as shown; a refused place is told, and the lines stay.
        QString const path = folder.filePath(QStringLiteral("traffic.log"));
        robot.Click(tour.Find<QWidget>("btnSave"));
        robot.AnswerFileDialog(path);
        robot.WaitFor("the file", [&] { return QFileInfo(path).size() > 0; });
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        auto const lines =
            QString::fromUtf8(robot.Gui([&] { return file.readAll(); })).split(u'\n', Qt::SkipEmptyParts);
        EXPECT_EQ(lines.size(), last);
        QRegularExpression const form(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} (Control|Event|Stream) .*="));
        for (QString const &line : lines)
            EXPECT_TRUE(form.match(line).hasMatch()) << line.toStdString();
        robot.Click(tour.Find<QWidget>("btnSave"));
        robot.AnswerFileDialog(QStringLiteral("/proc/traffic.log"));
        EXPECT_NE(robot.AnswerMessageBox(), QString());
        EXPECT_EQ(robot.Gui([&] { return tour.Rows(); }), last);

        tour.Press("groupLogging");
        robot.WaitFor("the view to go on", [&] { return tour.Rows() > last + 50 && tour.Follows(); });

        // However the connection ends, the next one starts quiet and logs as ever.
        hands.LoseCamera(robot);
        hands.AnswerLoss(robot);
        robot.WaitFor("the lines to be kept",
                      [&] { return QString::fromStdString(NoticeOf(NoticeTopic::Log)).contains(folder.path()); });
        EXPECT_EQ(kept(), 1);
        tour.Screenshot("kept");
        for (int round = 0; round < 2; ++round) {
            tour.Connect(GetParam());
            tour.ExpectTraffic(none);
            tour.Press("groupLogging");
            tour.Press("chkStream");
            tour.ExpectTraffic({QStringLiteral("Stream")});
            if (round == 0)
                hands.Disconnect(robot);
        }
        robot.Key("alt+F4");
        robot.WaitFor("the window to close", [&] { return !hands.Window()->isVisible(); });
    });
    EXPECT_EQ(kept(), 2); // one a camera that went; who closes the window wants none
    qunsetenv("TMPDIR");
}

INSTANTIATE_TEST_SUITE_P(Clicks, LogOfEachKind, testing::ValuesIn(Serials));

} // namespace
