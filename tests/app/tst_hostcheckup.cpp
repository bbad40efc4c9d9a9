// What the window says of a host that is unfit for its camera, which is at the end of a cable. In a network namespace
// of its own.
#include "farcamera.h"
#include "window.h"

#include "hostcheckup.h"
#include "notices.h"

namespace {

class Checkup : public WindowTest
{
protected:
    void SetUp() override
    {
        if (std::string const why = WhyNoFarCamera(); !why.empty())
            GTEST_SKIP() << why;
        // It takes this host for one behind a router, and its packets are small for the cable.
        m_camera.emplace(9000, 1500,
                         std::string(NoFilter) + "; ip address add 192.0.2.2/30 brd + dev far; "
                                                 "ip route add 192.0.2.100/32 dev far src 192.0.2.2",
                         "192.0.2.2");
        RunShell(NoFilter);
        NewWindow();
    }
    ~Checkup() override
    {
        m_window.reset();
        m_system->Release();
    }
    // What is told of the host then.
    std::string Open()
    {
        QSignalSpy examined(Gui().findChild<HostCheckup *>(), &HostCheckup::examined);
        m_system->UpdateDeviceList(); // which knows who has heard it
        TovCam::DeviceInfo *const info = m_system->GetInterfaceList(255)->GetFirst()->GetFirstDeviceInfo();
        if (!info || !examined.isValid())
            return "no camera";
        Gui().Open(info);
        EXPECT_TRUE(Reaches(SessionStateIdle));
        EXPECT_TRUE(Eventually([&] { return examined.count() == 1; }));
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
        return NoticeOf(NoticeTopic::Host);
    }
    void Close()
    {
        Action("Disconnect")->trigger();
        EXPECT_TRUE(Eventually([this] { return !Current(); }));
        EXPECT_EQ(NoticeOf(NoticeTopic::Host), "");
    }
    QDialog *Details()
    {
        auto *const button = Find<QToolButton>("noticeDetails");
        EXPECT_TRUE(Eventually([&] { return button->isVisible(); }));
        button->click();
        auto *const dialog = Find<QDialog>("hostFindingsDialog");
        if (!dialog || !dialog->isVisible() || dialog->isModal())
            throw std::runtime_error("no details");
        return dialog;
    }

    TovCam::System *m_system = TovCam_GetSystem();
    std::optional<FarCamera> m_camera;
};

TEST_F(Checkup, IsToldOnceUnlessItChangesAndNotToWhoWantsNone)
{
    std::string const told = "No picture may come of Velmor VG-2048M (W2048M). Velmor VG-2048M (W2048M) has the "
                             "netmask 255.255.255.252, and near 255.255.255.0.";
    EXPECT_EQ(Open(), told);
    QDialog *dialog = Details();
    QStringList texts;
    for (QLabel const *const label : dialog->findChildren<QLabel *>())
        texts += label->text();
    // The second one takes what the camera's features say.
    int const first = texts.indexOf(QRegularExpression(QStringLiteral(".*has the netmask .*")));
    int const second = texts.indexOf(QRegularExpression(QStringLiteral(".*packets of 1500 bytes, though near .*")));
    EXPECT_TRUE(first >= 0 && second > first) << texts.join(QLatin1Char('\n')).toStdString();
    dialog->findChild<QPushButton *>(QStringLiteral("copyButton"))->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("tovdoctor --set-address W2048M 192.0.2.2/24"));
    Action("Play")->trigger(); // beside it
    EXPECT_TRUE(Reaches(SessionStateAcquisition));
    dialog->close();
    EXPECT_EQ(NoticeOf(NoticeTopic::Host), "");
    Close();

    EXPECT_EQ(Open(), "");
    Close();
    ::Run("ip link set near mtu 1500"); // of 10 Gb/s
    EXPECT_EQ(Open(), told);
    Details()->findChild<QCheckBox *>(QStringLiteral("quietBox"))->click();
    Close();
    ::Run("ip link set near mtu 9000");
    EXPECT_EQ(Open(), "");
    NewWindow();
    EXPECT_EQ(Open(), ""); // the settings know
}

} // namespace
