// A camera in a wrong subnet, at the end of a cable, in the selector. In a network namespace of its own.
#include "farcamera.h"
#include "tovcameragui.h"
#include "wait.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <QTreeView>
#include <QtWidgets/QApplication>

#include <optional>

namespace {

class SetAddressTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (std::string const why = WhyNoFarCamera(); !why.empty())
            GTEST_SKIP() << why;
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovCameraGui")).clear();
        m_camera.emplace(9000, 9000, WrongSubnet, "10.9.9.2");
        RunShell(NoFilter); // of the cable's end, too
        m_selector = std::make_unique<TovGui::TovCameraSelectorDialog>(m_system, nullptr);
        m_tree = m_selector->findChild<QTreeView *>();
        m_selector->show();
        ASSERT_TRUE(Selects("10.9.9.2"));
    }
    ~SetAddressTest() override
    {
        m_selector.reset();
        m_system->Release();
    }
    template<class Widget>
    static Widget *Find(QWidget *parent, char const *name)
    {
        return parent->findChild<Widget *>(QString::fromLatin1(name));
    }
    // Of the camera that is selected.
    std::string Cell(int column)
    {
        QModelIndexList const rows = m_tree->selectionModel()->selectedRows(column);
        return rows.isEmpty() ? std::string() : rows.front().data().toString().toStdString();
    }
    bool Selects(std::string const &address)
    {
        return Eventually([&] { return Cell(4) == address; });
    }
    QPushButton *Button(char const *name)
    {
        return Find<QPushButton>(m_selector.get(), name);
    }
    std::string Message()
    {
        return Find<QLabel>(m_selector.get(), "messageLabel")->text().toStdString();
    }
    // Opens the dialog, and hands it to `act`.
    void Ask(std::function<void(QDialog *)> const &act)
    {
        bool hasActed = false;
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, [&] {
            auto *const dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
            if (!dialog || dialog->objectName() != QLatin1String("setAddressDialog"))
                return;
            timer.stop();
            hasActed = true;
            act(dialog);
        });
        timer.start(5);
        Button("setAddressButton")->click();
        EXPECT_TRUE(hasActed);
    }
    static void Type(QDialog *dialog, char const *field, char const *text)
    {
        Find<QLineEdit>(dialog, field)->setText(QString::fromLatin1(text));
    }
    static std::string TextOf(QDialog *dialog, char const *label)
    {
        return Find<QLabel>(dialog, label)->text().toStdString();
    }
    static void Set(QDialog *dialog)
    {
        Find<QPushButton>(dialog, "setButton")->click();
        EXPECT_FALSE(Find<QPushButton>(dialog, "setButton")->isEnabled()); // while it works
        EXPECT_TRUE(
            Eventually([&] { return !dialog->isVisible() || Find<QPushButton>(dialog, "setButton")->isEnabled(); }));
    }
    void GiveAddress(bool isForGood)
    {
        Ask([&](QDialog *dialog) {
            Type(dialog, "newAddress", "192.0.2.7");
            Find<QRadioButton>(dialog, isForGood ? "forGood" : "forNow")->click();
            Set(dialog);
            EXPECT_EQ(dialog->result(), QDialog::Accepted) << TextOf(dialog, "state");
            dialog->reject(); // where it is still there
        });
        EXPECT_TRUE(Selects("192.0.2.7"));
        EXPECT_EQ(Message(), "Velmor VG-2048M (W2048M) is at 192.0.2.7");
        EXPECT_EQ(Cell(5), "free");
        EXPECT_TRUE(Button("connectButton")->isEnabled());
        EXPECT_EQ((**m_camera).GetStatus().address, "192.0.2.7");
    }
    // Switched off and on again.
    std::string AddressAfterRestart()
    {
        (**m_camera).Return();
        return (**m_camera).GetStatus().address;
    }

    TovCam::System *m_system = TovCam_GetSystem();
    std::optional<FarCamera> m_camera;
    std::unique_ptr<TovGui::TovCameraSelectorDialog> m_selector;
    QTreeView *m_tree = nullptr;
};

TEST_F(SetAddressTest, ForNowOrForGood)
{
    EXPECT_EQ(Cell(5), "wrong subnet");
    EXPECT_TRUE(Eventually([this] {
        return Message() == "Velmor VG-2048M (W2048M) is in a wrong subnet and cannot be opened there: set its address";
    }));
    EXPECT_FALSE(Button("connectButton")->isEnabled());
    ASSERT_TRUE(Button("setAddressButton")->isEnabled());
    GiveAddress(false);
    EXPECT_EQ(AddressAfterRestart(), "10.9.9.2");
    // Whose place was selected is gone, and the next one is not selected by itself.
    ASSERT_TRUE(Eventually([this] {
        m_tree->setCurrentIndex(m_tree->model()->index(0, 0, m_tree->model()->index(0, 0)));
        return Cell(4) == "10.9.9.2";
    }));
    GiveAddress(true);
    EXPECT_EQ(AddressAfterRestart(), "192.0.2.7");
    std::string why;
    EXPECT_EQ((**m_camera).GetFeature("GevCurrentSubnetMask", why).value_or(why), std::to_string(0xFFFFFF00u));
}

TEST_F(SetAddressTest, SaysWhatIsWrongBesideTheField)
{
    struct
    {
        char const *address, *mask, *gateway, *wrong[3];
    } const rows[] = {
        {"192.0.2.300", "255.255.255.0", "", {"no address such as 192.168.0.10", "", ""}},
        {"192.0.2.7", "255.0.255.0", "", {"", "no netmask such as 255.255.255.0", ""}},
        {"192.0.2.7", "", "x", {"", "no netmask such as 255.255.255.0", "no address such as 192.168.0.1"}},
        {"192.0.2.255", "24", "", {"no address that a camera can have in such a subnet", "", ""}},
        {"192.0.2.100", "24", "", {"taken by Velmor VG-1280C (W1280C)", "", ""}},
        {"192.0.2.101", "24", "", {"taken by this computer", "", ""}},
        {"192.0.2.7", "24", "192.0.3.1", {"", "", "no host in that subnet"}},
        {"192.0.2.7", "24", "192.0.2.1", {"", "", ""}},
        {"192.0.3.7", "24", "", {"out of reach of near, so the camera could not be told to keep it", "", ""}},
    };
    ::Run("ip address add 192.0.2.101/24 dev near");
    std::unique_ptr<WireCamera> const other = Serve(Colour, "192.0.2.100");
    ASSERT_TRUE(Eventually([this] { return m_tree->model()->rowCount(m_tree->model()->index(0, 0)) == 2; }));
    ASSERT_TRUE(Selects("10.9.9.2")); // still
    Ask([&](QDialog *dialog) {
        EXPECT_EQ(Find<QLineEdit>(dialog, "newAddress")->text(), QStringLiteral("192.0.2.2")); // proposed
        EXPECT_EQ(Find<QLineEdit>(dialog, "newMask")->text(), QStringLiteral("255.255.255.0"));
        Find<QRadioButton>(dialog, "forGood")->click();
        for (auto const &row : rows) {
            Type(dialog, "newAddress", row.address);
            Type(dialog, "newMask", row.mask);
            Type(dialog, "newGateway", row.gateway);
            EXPECT_EQ(TextOf(dialog, "newAddressError"), row.wrong[0]) << row.address;
            EXPECT_EQ(TextOf(dialog, "newMaskError"), row.wrong[1]) << row.mask;
            EXPECT_EQ(TextOf(dialog, "newGatewayError"), row.wrong[2]) << row.gateway;
            bool const isGood = std::all_of(row.wrong, row.wrong + 3, [](char const *text) { return !*text; });
            EXPECT_EQ(Find<QPushButton>(dialog, "setButton")->isEnabled(), isGood) << row.address;
        }
        Find<QRadioButton>(dialog, "forNow")->click(); // which asks nobody to hear it there
        EXPECT_EQ(TextOf(dialog, "newAddressError"), "");
        dialog->reject();
    });
    EXPECT_EQ((**m_camera).GetStatus().address, "10.9.9.2");
}

TEST_F(SetAddressTest, TellsWhyTheCameraKeepsItsAddress)
{
    std::string const keeps = "Velmor VG-2048M (W2048M) keeps its old address: ";
    Ask([&](QDialog *dialog) {
        Type(dialog, "newAddress", "192.0.2.9"); // which its adapter has not got
        Set(dialog);
        EXPECT_EQ(TextOf(dialog, "state"), keeps + "it refuses");
        (**m_camera).Die();
        Set(dialog);
        EXPECT_EQ(TextOf(dialog, "state"), keeps + "it does not answer");
        (**m_camera).Return();
        Type(dialog, "newAddress", "192.0.2.7");
        Set(dialog);
        EXPECT_EQ(dialog->result(), QDialog::Accepted) << TextOf(dialog, "state");
    });
    ASSERT_TRUE(Selects("192.0.2.7"));
    TovCam::DeviceInfo *const info = FindAt(m_system, "192.0.2.7");
    TovCam::Device *device = nullptr;
    Ask([&](QDialog *dialog) {
        device = TovCam_CreateDevice(info, 2, nullptr);
        Type(dialog, "newAddress", "192.0.2.8");
        Set(dialog);
        EXPECT_EQ(TextOf(dialog, "state"), keeps + "it is in use");
        dialog->reject();
    });
    ASSERT_NE(device, nullptr);
    Button("refreshButton")->click();
    EXPECT_TRUE(Eventually([this] { return Cell(5) == "busy" && !Button("setAddressButton")->isEnabled(); }));
    device->Release();
}

// The window goes in the middle of it.
TEST_F(SetAddressTest, ClosesWhileTheCameraIsAwaited)
{
    (**m_camera).Die();
    Ask([&](QDialog *dialog) {
        Type(dialog, "newAddress", "192.0.2.7");
        Find<QPushButton>(dialog, "setButton")->click();
        dialog->reject();
    });
    m_selector.reset();
}

} // namespace
