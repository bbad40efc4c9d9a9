#include "cameramodel.h"
#include "fakesystem.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QPersistentModelIndex>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <QTreeView>

#include <gtest/gtest.h>

#include <chrono>
#include <random>

using namespace TovGui;

namespace {

// Rows as text, an interface a line, its cameras in brackets.
std::string Rows(QAbstractItemModel const &model)
{
    std::string text;
    for (int row = 0; row < model.rowCount(); ++row) {
        QModelIndex const group = model.index(row, 0);
        text += group.data().toString().toStdString() + "[";
        for (int camera = 0; camera < model.rowCount(group); ++camera)
            text += (camera ? " " : "") + model.index(camera, 0, group).data().toString().toStdString();
        text += "]";
    }
    return text;
}

class CameraModelTest : public testing::Test
{
protected:
    FakeInterface m_first, m_second;
    FakeCamera m_cameras[5] = {FakeCamera("a"), FakeCamera("b"), FakeCamera("c"), FakeCamera("d"), FakeCamera("e")};
    CameraModel m_model;
    QAbstractItemModelTester m_tester{&m_model, QAbstractItemModelTester::FailureReportingMode::Fatal};

    InterfaceEntry Entry(FakeInterface &interface, std::string const &cameras)
    {
        InterfaceEntry entry;
        entry.interface = &interface;
        entry.description = &interface == &m_first ? QStringLiteral("first") : QStringLiteral("second");
        for (char const letter : cameras) {
            CameraEntry camera;
            camera.info = &m_cameras[letter - 'a'];
            camera.model = QString(QLatin1Char(letter));
            entry.cameras.push_back(camera);
        }
        return entry;
    }
};

TEST_F(CameraModelTest, TakesListingsOver)
{
    m_model.SetList({Entry(m_first, "ab"), Entry(m_second, "")});
    EXPECT_EQ(Rows(m_model), "first[a b]second - no camera[]");
    m_model.SetList({Entry(m_first, "cba"), Entry(m_second, "d")});
    EXPECT_EQ(Rows(m_model), "first[c b a]second[d]");
    m_model.SetList({Entry(m_second, "de"), Entry(m_first, "b")});
    EXPECT_EQ(Rows(m_model), "second[d e]first[b]");
    m_model.SetList({Entry(m_second, "aa"), Entry(m_first, "")}); // listed twice by mistake
    EXPECT_EQ(Rows(m_model), "second[a a]first - no camera[]");
    m_model.SetList({Entry(m_second, "a")});
    EXPECT_EQ(Rows(m_model), "second[a]");
    m_model.SetList({});
    EXPECT_EQ(Rows(m_model), "");
}

TEST_F(CameraModelTest, KeepsIndexesOfWhatStays)
{
    std::mt19937 random(7);
    std::string letters = "abcde";
    m_model.SetList({Entry(m_first, "c"), Entry(m_second, "")});
    QPersistentModelIndex const index = m_model.IndexOf(&m_cameras[2]);
    for (int round = 0; round < 200; ++round) {
        std::shuffle(letters.begin(), letters.end(), random);
        std::string const others = letters.substr(0, random() % 6);
        CameraList list = {Entry(m_first, others.find('c') == others.npos ? others + "c" : others),
                           Entry(m_second, letters.substr(3))};
        if (random() % 2)
            std::swap(list[0], list[1]);
        m_model.SetList(list);
        ASSERT_TRUE(index.isValid()) << round;
        ASSERT_EQ(index.data().toString(), QStringLiteral("c")) << round;
    }
}

class SelectorTest : public testing::Test
{
protected:
    FakeSystem m_system;
    FakeCamera m_mono{"Mono 1"}, m_bayer{"Bayer 2"}, m_wide{"Wide 3"}, m_remote{"Remote 4"};
    std::unique_ptr<TovCameraSelectorDialog> m_dialog;
    QTreeView *m_tree = nullptr;
    QPushButton *m_connect = nullptr, *m_refresh = nullptr;
    QLineEdit *m_address = nullptr;
    QLabel *m_message = nullptr;

    void SetUp() override
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovCameraGui")).clear();
        g_fakeSystem = &m_system;
        m_system.gige.description = "GigE Vision";
        m_system.usb.description = "USB3 Vision";
    }

    void TearDown() override
    {
        m_dialog.reset();
        m_system.Proceed();
        EXPECT_TRUE(QTest::qWaitFor([this] { return m_system.References() == 0; })) << "a reference was kept";
        EXPECT_FALSE(m_system.Overlapped());
    }

    void Open()
    {
        m_dialog = std::make_unique<TovCameraSelectorDialog>(&m_system, nullptr);
        m_tree = m_dialog->findChild<QTreeView *>(QStringLiteral("cameraTree"));
        m_connect = m_dialog->findChild<QPushButton *>(QStringLiteral("connectButton"));
        m_refresh = m_dialog->findChild<QPushButton *>(QStringLiteral("refreshButton"));
        m_address = m_dialog->findChild<QLineEdit *>(QStringLiteral("addressEdit"));
        m_message = m_dialog->findChild<QLabel *>(QStringLiteral("messageLabel"));
        m_dialog->show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_dialog.get()));
    }

    void OpenWith(std::vector<FakeCamera *> onGigE, std::vector<FakeCamera *> onUsb)
    {
        m_system.SetCameras(std::move(onGigE), std::move(onUsb));
        Open();
        ASSERT_TRUE(QTest::qWaitFor([this] { return m_system.Searches() >= 1 && Message() != "Searching..."; }));
    }

    // Until a search is held.
    void WaitForSearch()
    {
        ASSERT_TRUE(QTest::qWaitFor([this] { return m_system.IsBlocked(); }));
    }

    void Search()
    {
        int const before = m_system.Searches();
        QTest::mouseClick(m_refresh, Qt::LeftButton);
        ASSERT_TRUE(QTest::qWaitFor([&] { return m_system.Searches() > before && Message() != "Searching..."; }));
    }

    std::string Message() const
    {
        return m_message->text().toStdString();
    }
    std::string Selected() const
    {
        QModelIndexList const rows = m_tree->selectionModel()->selectedRows();
        return rows.isEmpty() ? "" : rows.front().data().toString().toStdString();
    }
    QModelIndex Index(int group, int row) const
    {
        return m_tree->model()->index(row, 0, m_tree->model()->index(group, 0));
    }
    QPoint Position(int group, int row) const
    {
        return m_tree->visualRect(Index(group, row)).center();
    }
};

TEST_F(SelectorTest, ListsWhatIsKnownBeforeTheFirstSearchEnds)
{
    m_system.usb.cameras = {&m_bayer};
    m_system.Hold();
    Open();
    ASSERT_TRUE(QTest::qWaitFor([this] { return Selected() == "Bayer 2"; }));
    EXPECT_EQ(Message(), "Searching...");
    EXPECT_TRUE(m_connect->isEnabled());
    m_system.SetCameras({&m_mono}, {&m_bayer});
    m_system.Proceed();
    ASSERT_TRUE(QTest::qWaitFor([this] { return Message() == "2 cameras found"; }));
    EXPECT_EQ(Rows(*m_tree->model()), "GigE Vision[Mono 1]USB3 Vision[Bayer 2]");
    EXPECT_EQ(Selected(), "Bayer 2");
    EXPECT_TRUE(m_tree->isExpanded(m_tree->model()->index(0, 0)));
}

TEST_F(SelectorTest, ConnectsTheFirstFreeCameraByEnter)
{
    m_mono.access = TovCam::DeviceInfo::AccessBusy;
    OpenWith({&m_mono}, {&m_bayer});
    EXPECT_EQ(Selected(), "Bayer 2");
    QTest::keyClick(m_tree, Qt::Key_Return);
    EXPECT_EQ(m_dialog->result(), QDialog::Accepted);
    EXPECT_EQ(m_dialog->selectedCamera(), &m_bayer);
}

TEST_F(SelectorTest, DoubleClickConnectsAFreeCameraOnly)
{
    m_mono.access = TovCam::DeviceInfo::AccessBusy;
    OpenWith({&m_mono}, {&m_bayer});
    QTest::mouseClick(m_tree->viewport(), Qt::LeftButton, {}, Position(0, 0));
    QTest::mouseDClick(m_tree->viewport(), Qt::LeftButton, {}, Position(0, 0));
    EXPECT_TRUE(m_dialog->isVisible());
    EXPECT_FALSE(m_connect->isEnabled());
    EXPECT_EQ(Message(), "Mono 1 is in use, by this or another program");
    QTest::mouseClick(m_tree->viewport(), Qt::LeftButton, {}, Position(1, 0));
    EXPECT_TRUE(m_connect->isEnabled());
    QTest::mouseDClick(m_tree->viewport(), Qt::LeftButton, {}, Position(1, 0));
    EXPECT_FALSE(m_dialog->isVisible());
    EXPECT_EQ(m_dialog->selectedCamera(), &m_bayer);
}

TEST_F(SelectorTest, EscapeSelectsNothing)
{
    OpenWith({&m_mono}, {});
    QTest::keyClick(m_tree, Qt::Key_Escape);
    EXPECT_EQ(m_dialog->result(), QDialog::Rejected);
    EXPECT_EQ(m_dialog->selectedCamera(), nullptr);
}

TEST_F(SelectorTest, NeverMovesTheSelectionToAnotherCamera)
{
    OpenWith({&m_mono, &m_wide}, {&m_bayer});
    QTest::mouseClick(m_tree->viewport(), Qt::LeftButton, {}, Position(0, 1));
    EXPECT_EQ(Selected(), "Wide 3");
    m_system.SetCameras({&m_mono}, {&m_bayer});
    Search();
    EXPECT_EQ(Selected(), "");
    EXPECT_FALSE(m_connect->isEnabled());
    EXPECT_EQ(Message(), "Wide 3 does not answer any more");
    QTest::keyClick(m_tree, Qt::Key_Return);
    EXPECT_TRUE(m_dialog->isVisible());
    m_system.SetCameras({&m_remote, &m_mono, &m_wide}, {&m_bayer});
    Search();
    EXPECT_EQ(Selected(), "Wide 3");
    m_wide.access = TovCam::DeviceInfo::AccessBusy; // somebody else was quicker
    Search();
    EXPECT_EQ(Selected(), "Wide 3");
    EXPECT_FALSE(m_connect->isEnabled());
}

TEST_F(SelectorTest, RefreshKeepsScrollAndExpansion)
{
    std::vector<std::unique_ptr<FakeCamera>> many;
    std::vector<FakeCamera *> list;
    for (int i = 0; i < 100; ++i) {
        many.push_back(std::make_unique<FakeCamera>("Many"));
        list.push_back(many.back().get());
    }
    OpenWith({&m_mono}, list);
    m_tree->collapse(m_tree->model()->index(0, 0));
    m_tree->verticalScrollBar()->setValue(40);
    ASSERT_EQ(m_tree->verticalScrollBar()->value(), 40);
    list.pop_back();
    list.erase(list.begin() + 90);
    m_system.SetCameras({&m_mono, &m_wide}, list);
    Search();
    EXPECT_EQ(m_tree->verticalScrollBar()->value(), 40);
    EXPECT_FALSE(m_tree->isExpanded(m_tree->model()->index(0, 0)));
    EXPECT_TRUE(m_tree->isExpanded(m_tree->model()->index(1, 0)));
    EXPECT_EQ(Selected(), "Mono 1");
}

TEST_F(SelectorTest, SearchesByItselfWithoutHoldingTheGui)
{
    OpenWith({&m_mono}, {});
    m_system.SetCameras({&m_mono, &m_wide}, {});
    m_system.Hold();
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_tree->model()->rowCount(m_tree->model()->index(0, 0)) == 1; }));
    int ticks = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { ++ticks; });
    ticker.start(10);
    QTest::qWait(3000); // the timer has started a search, which hangs
    WaitForSearch();
    EXPECT_GT(ticks, 100);
    EXPECT_EQ(Message(), "1 camera found");
    m_system.Proceed();
    EXPECT_TRUE(QTest::qWaitFor([this] { return Message() == "2 cameras found"; }));
}

TEST_F(SelectorTest, AddsACameraByItsAddress)
{
    m_system.SetReachable("10.0.0.9", &m_remote);
    OpenWith({&m_mono}, {&m_bayer});
    struct
    {
        char const *text, *message;
    } const refused[] = {
        {"10.0.0.256", "\"10.0.0.256\" is not an IP address such as 192.168.0.10"},
        {"10.0.0", "\"10.0.0\" is not an IP address such as 192.168.0.10"},
        {"camera", "\"camera\" is not an IP address such as 192.168.0.10"},
        {"10.0.0.8", "No camera answers at 10.0.0.8"},
    };
    for (auto const &row : refused) {
        m_address->clear();
        QTest::keyClicks(m_address, QString::fromLatin1(row.text));
        QTest::keyClick(m_address, Qt::Key_Return);
        EXPECT_TRUE(QTest::qWaitFor([&] { return Message() == row.message; })) << Message();
        EXPECT_TRUE(m_dialog->isVisible()) << "Enter in the line must not connect";
    }
    Search(); // takes the message away, not the text
    EXPECT_EQ(Message(), "2 cameras found");
    m_address->clear();
    QTest::keyClicks(m_address, QStringLiteral(" 10.0.0.9"));
    QTest::mouseClick(m_dialog->findChild<QPushButton *>(QStringLiteral("addButton")), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([this] { return Selected() == "Remote 4"; }));
    EXPECT_EQ(Message(), "Added the camera at 10.0.0.9");
    EXPECT_TRUE(m_address->text().isEmpty());
    QTest::mouseClick(m_connect, Qt::LeftButton);
    EXPECT_EQ(m_dialog->selectedCamera(), &m_remote);
}

TEST_F(SelectorTest, SaysThatNothingWasFoundOrTheSearchFailed)
{
    OpenWith({}, {});
    EXPECT_EQ(Message(), "No camera found");
    EXPECT_EQ(Selected(), "");
    EXPECT_FALSE(m_connect->isEnabled());
    m_system.SetResult(TOV_CAM_ERR_UNKNOWN);
    Search();
    EXPECT_EQ(Message(), "The search failed (error -40001)");
}

TEST_F(SelectorTest, ClosesAtOnceInTheMiddleOfASearch)
{
    m_system.SetCameras({&m_mono}, {});
    m_system.Hold();
    Open();
    WaitForSearch();
    auto const before = std::chrono::steady_clock::now();
    m_dialog->reject();
    m_dialog.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    EXPECT_EQ(m_system.References(), 1) << "the search holds the system";
    for (int i = 0; i < 5; ++i)
        Open(); // the next ones wait their turn
    m_system.Proceed();
    EXPECT_TRUE(QTest::qWaitFor([this] { return Message() == "1 camera found"; }));
}

TEST_F(SelectorTest, OpensOverTheActiveWindowAndKeepsItsColumns)
{
    QMainWindow window;
    window.setGeometry(150, 120, 500, 400);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    Open();
    QPoint const off = m_dialog->frameGeometry().center() - window.frameGeometry().center();
    QRect const screen = m_dialog->screen()->availableGeometry();
    EXPECT_TRUE(screen.contains(m_dialog->geometry().center()));
    EXPECT_TRUE(off.manhattanLength() < 80 || m_dialog->pos() == screen.topLeft() || m_dialog->y() == screen.top() ||
                m_dialog->x() == screen.left())
        << off.x() << " " << off.y();
    m_tree->setColumnWidth(1, 222);
    m_dialog->resize(700, 480);
    m_dialog->reject();
    Open();
    EXPECT_EQ(m_tree->columnWidth(1), 222);
    EXPECT_EQ(m_dialog->size(), QSize(700, 480));
}

// Leaves pictures to look at where TOV_PICTURES names a folder.
TEST_F(SelectorTest, Pictures)
{
    QString const folder = qEnvironmentVariable("TOV_PICTURES");
    if (folder.isEmpty())
        GTEST_SKIP() << "TOV_PICTURES is not set";
    m_system.Hold();
    Open();
    WaitForSearch();
    QTest::qWait(100);
    m_dialog->grab().save(QDir(folder).filePath(QStringLiteral("selector-searching.png")));
    m_wide.access = TovCam::DeviceInfo::AccessBusy;
    m_wide.userID = "left of the press";
    m_mono.address = "192.168.0.10";
    m_wide.address = "192.168.0.11";
    m_mono.serial = "700001234567";
    m_system.SetCameras({&m_mono, &m_wide}, {});
    m_system.Proceed();
    ASSERT_TRUE(QTest::qWaitFor([this] { return Message() == "2 cameras found"; }));
    m_dialog->grab().save(QDir(folder).filePath(QStringLiteral("selector-listed.png")));
}

} // namespace
