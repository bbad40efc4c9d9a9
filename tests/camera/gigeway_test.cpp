// A camera behind a way that carries packets of a limited size: in a network namespace of its own, with a cable to the
// one that the test runs in.
#include "wireclients.h"

#include <future>
#include <sched.h>

namespace {

constexpr char Address[] = "192.0.2.1";

void Run(std::string const &command)
{
    Outcome const outcome = RunShell("set -e; " + command);
    EXPECT_EQ(outcome.code, 0) << command << '\n' << outcome.text;
}

// From construction to destruction. What its thread makes is in its namespace.
class FarCamera
{
public:
    FarCamera(int nearMtu, int farMtu, std::string const &plug)
    {
        std::promise<bool> served;
        std::promise<pid_t> here;
        m_thread = std::thread([&, plug] {
            bool const isAway = unshare(CLONE_NEWNET) == 0;
            here.set_value(gettid());
            m_plugged.get_future().wait();
            std::unique_ptr<WireCamera> camera;
            if (isAway) {
                Run("ip link set lo up; ip link set far up; " + plug);
                camera = Serve(Grey, Address);
                MakeSmall(*camera);
            }
            served.set_value(isAway);
            m_end.get_future().wait();
        });
        std::string const mtu = std::to_string(farMtu), there = std::to_string(here.get_future().get());
        Run("ip link add near mtu " + std::to_string(nearMtu) + " type veth peer name far mtu " + mtu + " netns " +
            there + "; ip address add 192.0.2.100/24 brd + dev near; ip link set near up");
        m_plugged.set_value();
        EXPECT_TRUE(served.get_future().get());
    }
    ~FarCamera()
    {
        m_end.set_value();
        m_thread.join();
        Run("ip link delete near");
    }

private:
    std::promise<void> m_plugged, m_end;
    std::thread m_thread;
};

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
        FarCamera const camera(row.nearMtu, row.farMtu, row.plug);
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
