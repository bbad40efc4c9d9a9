// A camera behind a cable: in a network namespace of its own, with a pair of adapters to the one that the test runs in.
#pragma once

#include "wireclients.h"

#include <future>
#include <sched.h>

inline void Run(std::string const &command)
{
    Outcome const outcome = RunShell("set -e; " + command);
    EXPECT_EQ(outcome.code, 0) << command << '\n' << outcome.text;
}

inline constexpr char NoFilter[] = "for f in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 >$f; done";

// Why there can be no camera in a wrong subnet here; empty where there can.
inline std::string WhyNoFarCamera()
{
    if (Outcome const made = RunShell("ip link add probe type veth && ip link delete probe"); made.code != 0)
        return "this system makes no veth: " + made.text;
    Outcome const set = RunShell(std::string("set -e; ") + NoFilter);
    return set.code == 0 ? std::string() : "the return-path filter stays as it is: " + set.text;
}

// The far end of a camera at 10.9.9.2, which has no way back to this host but by broadcast, until it is at 192.0.2.7.
inline constexpr char WrongSubnet[] =
    "for f in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 >$f; done; ip address add 10.9.9.2/24 brd + dev far; "
    "ip address add 192.0.2.7/24 brd + dev far noprefixroute; ip rule add from 192.0.2.7 lookup 100; "
    "ip route add 192.0.2.0/24 dev far table 100";

// From construction to destruction, at `address`, which `plug` gives to the cable's end "far". The other one, "near",
// is 192.0.2.100/24. What its thread makes is in its namespace.
class FarCamera
{
public:
    FarCamera(int nearMtu, int farMtu, std::string const &plug, std::string const &address)
    {
        std::promise<bool> served;
        std::promise<pid_t> here;
        m_thread = std::thread([&, plug, address] {
            bool const isAway = unshare(CLONE_NEWNET) == 0;
            here.set_value(gettid());
            m_plugged.get_future().wait();
            std::unique_ptr<WireCamera> camera;
            if (isAway) {
                Run("ip link set lo up; ip link set far up; " + plug);
                camera = Serve(Grey, address);
                MakeSmall(*camera);
                m_camera = camera.get();
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
        RunShell("ip link delete near"); // which may have gone with the other namespace
    }
    WireCamera &operator*() const
    {
        return *m_camera;
    }

private:
    WireCamera *m_camera = nullptr;
    std::promise<void> m_plugged, m_end;
    std::thread m_thread;
};
