#include "cameramodel.h"
#include "fakecamera.h"
#include "rows.h"
#include "wait.h"

#include <QAbstractItemModelTester>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTreeView>

#include <atomic>
#include <mutex>

using namespace TovGui;

namespace {

struct FakeCamera : FakeDeviceInfo
{
    explicit FakeCamera(char const *text) : name(text)
    {
    }
    char const *const name;
    std::atomic<AccessStatus> access{AccessFree};

    FAKE_GIVES(char const *GetDisplayName(), name);
    FAKE_GIVES(char const *GetModelName(), nullptr);
    FAKE_GIVES(AccessStatus GetAccessStatus(), access);
};

struct FakeInterface : FakeDeviceInfo
{
    char const *description = nullptr;
    std::vector<FakeCamera *> cameras;

    FAKE_GIVES(char const *GetInterfaceDescription(), description);
    FAKE_GIVES(std::uint32_t GetDeviceCount(), std::uint32_t(cameras.size()));
    FAKE_GIVES(TovCam::DeviceInfo *GetDeviceInfoByIndex(std::uint32_t index), cameras[index]);
};

// A camera library whose cameras come and go as a test says, and whose search takes as long as the test says.
struct FakeSystem : TovCam::System, TovCam::ObjectList
{
    FakeInterface gige, usb;       // as the last search left them
    FakeCamera *remote = nullptr;  // that 10.0.0.9 finds
    std::atomic<bool> held{false}; // searches wait; see Proceed
    std::atomic<int> running{0}, searches{0}, references{0};

    FakeSystem()
    {
        gige.description = "GigE Vision";
        usb.description = "USB3 Vision";
    }
    // What the next search will find; any thread.
    void SetCameras(std::vector<FakeCamera *> onGigE, std::vector<FakeCamera *> onUsb)
    {
        std::lock_guard const lock(m_mutex);
        m_onGigE = std::move(onGigE);
        m_onUsb = std::move(onUsb);
    }
    void Proceed()
    {
        held = false;
    }

    FAKE_GIVES(void Release(), void(--references));
    FAKE_GIVES(TovCam::ObjectList *GetInterfaceList(std::uint32_t), this);
    FAKE_GIVES(TovCam::Interface *GetFirst(), &gige);
    FAKE_GIVES(TovCam::Interface *GetNext(), ++m_next % 2 ? &usb : nullptr);
    FAKE_GIVES(TovCam::Device *OpenDeviceFromConfiguration(char const *, std::int32_t *), nullptr);
    FAKE_GIVES(std::int32_t LoadTransportLayer(char const *), 0);
    TovCam::DeviceInfo *FindDeviceByAddress(char const *address, std::int32_t *error) override
    {
        bool const found = remote && address == std::string("10.0.0.9");
        *error = found ? TOV_CAM_ERR_OK : TOV_CAM_ERR_NO_DEVICE;
        if (found)
            gige.cameras.push_back(remote);
        return found ? remote : nullptr;
    }
    std::int32_t UpdateDeviceList() override
    {
        EXPECT_EQ(++running, 1) << "two searches at a time";
        EXPECT_TRUE(Eventually([this] { return !held; }));
        std::lock_guard const lock(m_mutex);
        gige.cameras = m_onGigE;
        usb.cameras = m_onUsb;
        --running;
        ++searches;
        return 0;
    }

private:
    std::mutex m_mutex; // guards the next two
    std::vector<FakeCamera *> m_onGigE, m_onUsb;
    int m_next = 0; // search thread
};

FakeSystem *s_system = nullptr;

} // namespace

// In place of the real library's.
__attribute__((visibility("default"))) TovCam::System *TovCam_GetSystem()
{
    ++s_system->references;
    return s_system;
}

namespace {

class SelectorTest : public testing::Test
{
protected:
    FakeSystem m_system;
    FakeCamera m_mono{"Mono 1"}, m_bayer{"Bayer 2"}, m_wide{"Wide 3"}, m_remote{"Remote 4"};
    std::unique_ptr<TovCameraSelectorDialog> m_dialog;
    QTreeView *m_tree = nullptr;

    SelectorTest()
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovCameraGui")).clear();
        s_system = &m_system;
    }
    ~SelectorTest() override
    {
        m_dialog.reset();
        m_system.Proceed();
        EXPECT_TRUE(Eventually([this] { return m_system.references == 0; })) << "a reference was kept";
    }
    void Open()
    {
        m_dialog = std::make_unique<TovCameraSelectorDialog>(&m_system, nullptr);
        m_tree = m_dialog->findChild<QTreeView *>();
        new QAbstractItemModelTester(m_tree->model(), QAbstractItemModelTester::FailureReportingMode::Fatal, m_tree);
        m_dialog->show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_dialog.get(), PatienceMs));
    }
    void OpenWith(std::vector<FakeCamera *> onGigE, std::vector<FakeCamera *> onUsb)
    {
        m_system.SetCameras(std::move(onGigE), std::move(onUsb));
        Open();
        ASSERT_TRUE(Eventually([this] { return m_system.searches > 0 && Message() != "Searching..."; }));
    }
    void Search()
    {
        int const before = m_system.searches;
        QTest::mouseClick(Button("refreshButton"), Qt::LeftButton);
        ASSERT_TRUE(Eventually([&] { return m_system.searches > before && Message() != "Searching..."; }));
    }
    QPushButton *Button(char const *name) const
    {
        return m_dialog->findChild<QPushButton *>(QString::fromLatin1(name));
    }
    bool CanConnect() const
    {
        return Button("connectButton")->isEnabled();
    }
    std::string Message() const
    {
        return m_dialog->findChild<QLabel *>(QStringLiteral("messageLabel"))->text().toStdString();
    }
    bool Says(std::string const &text) const
    {
        return Eventually([&] { return Message() == text; });
    }
    std::string Selected() const
    {
        QModelIndexList const rows = m_tree->selectionModel()->selectedRows();
        return rows.isEmpty() ? "" : rows.front().data().toString().toStdString();
    }
    QModelIndex Group(int group) const
    {
        return m_tree->model()->index(group, 0);
    }
    void Click(int group, int row)
    {
        QPoint const place = m_tree->visualRect(m_tree->model()->index(row, 0, Group(group))).center();
        QTest::mouseClick(m_tree->viewport(), Qt::LeftButton, {}, place);
    }
};

TEST_F(SelectorTest, ListsWhatIsKnownAtOnceAndSearchesByItself)
{
    m_system.usb.cameras = {&m_bayer};
    m_system.held = true;
    Open();
    EXPECT_TRUE(Says("Searching..."));
    ASSERT_TRUE(Eventually([this] { return Selected() == "Bayer 2"; }));
    EXPECT_TRUE(CanConnect());
    m_system.SetCameras({&m_mono}, {&m_bayer});
    m_system.Proceed();
    EXPECT_TRUE(Says("2 cameras found"));
    EXPECT_EQ(Rows(*m_tree->model()), "GigE Vision[Mono 1] USB3 Vision[Bayer 2]");
    EXPECT_EQ(Selected(), "Bayer 2");
    EXPECT_TRUE(m_tree->isExpanded(Group(0)));
    m_tree->collapse(Group(0));
    m_system.held = true;
    m_system.SetCameras({}, {});
    EXPECT_TRUE(Eventually([this] { return m_system.running == 1; }));
    EXPECT_TRUE(Says("2 cameras found")) << "while nobody waits for it";
    m_system.Proceed();
    EXPECT_TRUE(Says("Bayer 2 does not answer any more"));
    EXPECT_FALSE(CanConnect());
    EXPECT_FALSE(m_tree->isExpanded(Group(0))) << "left as the user has it";
}

TEST_F(SelectorTest, ConnectsAFreeCameraOnlyAndKeepsItsColumns)
{
    m_mono.access = TovCam::DeviceInfo::AccessBusy;
    OpenWith({&m_mono}, {&m_bayer});
    EXPECT_EQ(Selected(), "Bayer 2"); // the first that is free
    for (auto const &[key, camera] :
         {std::pair{Qt::Key_Up, "Mono 1"}, {Qt::Key_Up, "Mono 1"}, {Qt::Key_Down, "Bayer 2"}}) {
        QTest::keyClick(m_tree, key);
        EXPECT_EQ(Selected(), camera) << "past the headings";
    }
    Click(0, 0);
    EXPECT_EQ(Message(), "Mono 1 is in use, by this or another program");
    EXPECT_FALSE(CanConnect());
    emit m_tree->doubleClicked(m_tree->currentIndex());
    EXPECT_TRUE(m_dialog->isVisible());
    Click(1, 0);
    m_tree->setColumnWidth(1, 222);
    QTest::keyClick(m_tree, Qt::Key_Return);
    EXPECT_EQ(m_dialog->result(), QDialog::Accepted);
    EXPECT_EQ(m_dialog->selectedCamera(), &m_bayer);
    Open();
    EXPECT_EQ(m_tree->columnWidth(1), 222);
}

TEST_F(SelectorTest, SaysWhyACameraCannotBeOpened)
{
    using TovCam::OpenRefusal;
    using Info = TovCam::DeviceInfo;
    struct Row
    {
        Info::AccessStatus access;
        TovCam::OpenFailure failure;
        char const *text;
    };
    Row const rows[] = {
        {Info::AccessBusy,
         {OpenRefusal::InUse, false, "192.0.2.7", {}},
         "Mono 1 is in use by another program (192.0.2.7)"},
        {Info::AccessBusy, {OpenRefusal::InUse, true, "192.0.2.7", {}}, "Mono 1 is in use by this program"},
        {Info::AccessBusy, {OpenRefusal::InUse, false, {}, {}}, "Mono 1 is in use, by this or another program"},
        {Info::AccessFree,
         {OpenRefusal::Description, false, {}, "it is\nempty"},
         "Mono 1 answers, but its description is damaged: it is empty"},
        {Info::AccessUnknown,
         {OpenRefusal::NoRight, false, "/dev/bus/usb/001/002", "Permission denied"},
         "Mono 1: no right to open the USB device: /dev/bus/usb/001/002: Permission denied"},
        // Over: it has been heard since.
        {Info::AccessFree, {OpenRefusal::InUse, false, "192.0.2.7", {}}, "1 camera found"},
        {Info::AccessFree, {OpenRefusal::NoAnswer, false, {}, {}}, "1 camera found"},
    };
    for (Row const &row : rows) {
        m_mono.access = row.access;
        m_mono.failure = row.failure;
        OpenWith({&m_mono}, {});
        Click(0, 0);
        EXPECT_EQ(Message(), row.text);
        EXPECT_EQ(CanConnect(), row.access != Info::AccessBusy);
        m_dialog.reset();
    }
    EXPECT_EQ(OpenFailureText(QStringLiteral("%2"), rows[0].failure).toStdString(),
              "%2 is in use by another program (192.0.2.7)");
    EXPECT_EQ(OpenFailureText(QStringLiteral("A"), {OpenRefusal::NoAnswer, false, {}, "gone"}).toStdString(),
              "A does not answer: gone");
}

TEST_F(SelectorTest, ShowsACamerasNameAsItStands)
{
    FakeCamera hostile("<h1>Big</h1>\n<img src=\"x\">\u202Egpj.exe\x07");
    std::string const shown = "<h1>Big</h1> <img src=\"x\">gpj.exe";
    m_system.gige.description = "<b>GigE</b>";
    OpenWith({&hostile}, {});
    QModelIndex const camera = m_tree->model()->index(0, 0, Group(0));
    EXPECT_EQ(camera.data().toString().toStdString(), shown);
    EXPECT_EQ(Visible(camera.data(Qt::ToolTipRole).toString()), shown + "\nFree: double-click to connect");
    EXPECT_EQ(Visible(Group(0).data(Qt::ToolTipRole).toString()), "<b>GigE</b>\nDriver: 1.0");
    hostile.access = TovCam::DeviceInfo::AccessBusy;
    Search();
    Click(0, 0);
    EXPECT_TRUE(Says(shown + " is in use, by this or another program"));
    EXPECT_EQ(m_dialog->findChild<QLabel *>(QStringLiteral("messageLabel"))->textFormat(), Qt::PlainText);
}

TEST_F(SelectorTest, NeverMovesTheSelectionToAnotherCamera)
{
    OpenWith({&m_mono, &m_wide}, {&m_bayer});
    Click(0, 1);
    EXPECT_EQ(Selected(), "Wide 3");
    m_system.SetCameras({&m_mono}, {&m_bayer});
    Search();
    EXPECT_EQ(Selected(), "");
    EXPECT_FALSE(CanConnect());
    EXPECT_EQ(Message(), "Wide 3 does not answer any more");
    QTest::keyClick(m_tree, Qt::Key_Return);
    EXPECT_TRUE(m_dialog->isVisible());
    m_system.SetCameras({&m_remote, &m_mono, &m_wide}, {&m_bayer});
    Search();
    EXPECT_EQ(Selected(), "Wide 3");
}

TEST_F(SelectorTest, AddsACameraByItsAddress)
{
    m_system.remote = &m_remote;
    OpenWith({&m_mono}, {&m_bayer});
    auto *const address = m_dialog->findChild<QLineEdit *>(QStringLiteral("addressEdit"));
    for (auto const &[text, told] :
         {std::pair("10.0.0.256", "\"10.0.0.256\" is not an IP address such as 192.168.0.10"),
          {"10.0.0.8", "No camera answers at 10.0.0.8"}}) {
        address->clear();
        QTest::keyClicks(address, QString::fromLatin1(text));
        QTest::keyClick(address, Qt::Key_Return);
        EXPECT_TRUE(Says(told)) << Message();
        EXPECT_TRUE(m_dialog->isVisible()) << "Enter in the line must not connect";
    }
    address->clear();
    QTest::keyClicks(address, QStringLiteral(" 10.0.0.9"));
    QTest::mouseClick(Button("addButton"), Qt::LeftButton);
    ASSERT_TRUE(Eventually([this] { return Selected() == "Remote 4"; }));
    EXPECT_EQ(Message(), "Added the camera at 10.0.0.9");
    EXPECT_TRUE(address->text().isEmpty());
    QTest::mouseClick(Button("connectButton"), Qt::LeftButton);
    EXPECT_EQ(m_dialog->selectedCamera(), &m_remote);
}

TEST_F(SelectorTest, ClosesAtOnceInTheMiddleOfASearch)
{
    m_system.SetCameras({&m_mono}, {});
    m_system.held = true;
    Open();
    ASSERT_TRUE(Eventually([this] { return m_system.running == 1; }));
    m_dialog->reject();
    m_dialog.reset();
    EXPECT_EQ(m_system.running, 1) << "the window has waited for the search";
    EXPECT_EQ(m_system.references, 1) << "the search holds the system";
    for (int i = 0; i < 5; ++i)
        Open(); // the next ones wait their turn
    m_system.Proceed();
    EXPECT_TRUE(Says("1 camera found"));
}

} // namespace
