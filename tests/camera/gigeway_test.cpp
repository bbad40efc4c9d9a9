// A camera behind a way that carries packets of a limited size: in a network namespace of its own, with a cable to the
// one that the test runs in.
#include "farcamera.h"

namespace {

constexpr char Address[] = "192.0.2.1";

class WayTest : public CameraTest
{
    void SetUp() override
    {
        for (std::string const type : {"veth", "bridge"}) {
            if (Outcome const made = RunShell("ip link add probe type " + type + " && ip link delete probe"); made.code)
                GTEST_SKIP() << "this system makes no " << type << ": " << made.text;
        }
    }
};

TEST_F(WayTest, PacketsAreAsLargeAsItCarries)
{
    std::string const direct = "ip address add 192.0.2.1/24 brd + dev far";
    // Both ends believe in more than the bridge between them lets through.
    std::string const narrow = "ip link add bridge type bridge; ip link set far master bridge; "
                               "ip link set bridge mtu 9000 up; ip address add 192.0.2.1/24 brd + dev bridge";
    struct Row
    {
        int nearMtu, farMtu;
        std::string const &plug;
        std::int64_t least, most, forced;
    };
    for (Row const &row : {Row{9000, 9000, direct, 8968, 9000, 0}, Row{9000, 1500, narrow, 1468, 1500, 0},
                           Row{1500, 1500, direct, 1500, 1500, 4000}}) {
        SCOPED_TRACE(row.forced);
        FarCamera const camera(row.nearMtu, row.farMtu, row.plug, Address);
        Open(FindAt(m_system, Address));
        std::int64_t const size = m_nodes->GetIntegerValue("GevSCPSPacketSize", nullptr);
        EXPECT_GE(size, row.least);
        EXPECT_LE(size, row.most);
        // A camera that does not heed that sends fragments, which only a socket puts together.
        EXPECT_TRUE(row.forced == 0 || m_nodes->SetIntegerValue("GevSCPSPacketSize", row.forced) == 0);
        int whole = 0;
        {
            RunningCamera running(m_device);
            for (int i = 0; i < 200 && whole < 20; ++i)
                running.ForFrames(1, [&](TovCam::Buffer &buffer) { whole += !buffer.IsIncomplete(); });
        }
        EXPECT_EQ(whole, 20);
        EXPECT_EQ(m_nodes->GetIntegerValue("TovStreamMalformed", nullptr) > 0, row.forced != 0);
        Close();
    }
}

} // namespace
