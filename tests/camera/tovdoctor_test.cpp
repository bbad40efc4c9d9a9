// The program tovdoctor, in a network namespace of its own, with a camera at the end of a cable.
#include "farcamera.h"
#include "tovdoctor.h"

#include <fnmatch.h>

namespace {

void Expect(std::string const &arguments, std::string const &pattern)
{
    Outcome const seen = RunShell(TOVDOCTOR " " + arguments);
    std::string const text = seen.text + "=> " + std::to_string(seen.code);
    EXPECT_EQ(fnmatch(pattern.c_str(), text.c_str(), 0), 0) << arguments << '\n' << text << "\nis not\n" << pattern;
}

TEST(TovDoctor, KnowsItsOptions)
{
    std::pair<char const *, char const *> const rows[] = {
        {"", "Network adapters\n*lo: 127.0.0.1/8, MTU 65536\n*Cameras\n  none found\nNothing to mend.\n=> 0"},
        {"--help", "Usage: *--json*--set-address*\n=> 0"},
        {"--version", "tovdoctor 1.*\n=> 0"},
        {"-x", "tovdoctor: there is no option -x\nTry \"tovdoctor --help\".\n=> 2"},
        {"eth1", "*: there is no argument eth1\n*=> 2"},
        {"--frame-rate", "*: --frame-rate needs a value\n*=> 2"},
        {"--frame-rate -3", "*: \"-3\" is no frame rate\n*=> 2"},
        {"--frame-size 3MB", "*: \"3MB\" is no number of bytes\n*=> 2"},
        {"--set-address S1", "*: --set-address needs a camera and its address\n*=> 2"},
        {"--set-address S1 192.0.2.7", "*: \"192.0.2.7\" is not ADDRESS/MASK *=> 2"},
        {"--set-address S1 192.0.2.7/24 192.0.2.1 7", "*: there is no argument 7\n*=> 2"},
        {"--set-address S1 192.0.2.7/24", "tovdoctor: there is no GigE Vision camera S1\n=> 1"},
    };
    for (auto const &[arguments, pattern] : rows)
        Expect(arguments, pattern);
}

class DoctorTest : public CameraTest
{
};

TEST_F(DoctorTest, BringsACameraIntoTheRightSubnet)
{
    if (std::string const why = WhyNoFarCamera(); !why.empty())
        GTEST_SKIP() << why;
    FarCamera const camera(9000, 9000, WrongSubnet, "10.9.9.2");
    std::string const name = "Velmor VG-2048M (W2048M)";
    RunShell(NoFilter); // of the cable's end, too
    Expect("", "*\n  near: 192.0.2.100/24, MTU 9000, 10 Gb/s\n*Cameras\n  " + name +
                   ": 10.9.9.2 at near, wrong subnet\n    fault: Wrong subnet: *\n        $ tovdoctor --set-address "
                   "W2048M 192.0.2.2/24\nTo mend: 1.\n=> 1");
    Expect("--json", "*\"status\": 1*");
    EXPECT_EQ(m_system->UpdateDeviceList(), 0);
    TovCam::DeviceInfo *const foreign = m_system->GetInterfaceList(255)->GetFirst()->GetFirstDeviceInfo();
    ASSERT_NE(foreign, nullptr);
    EXPECT_TRUE(foreign->GetNetworkPlace().isForeign);
    EXPECT_EQ(TovCam_AddressText(TovCam_ProposeAddress(foreign, {})), "192.0.2.2/24");

    Expect("--set-address W2048M 192.0.2.100/24", "tovdoctor: 192.0.2.100/24 is taken by this computer\n=> 1");
    Expect("--set-address W2048M 192.0.2.9/24", "Warning: *keeps its address: it refuses\n=> 1"); // not on its adapter
    Expect("--set-address 10.9.9.2 192.0.2.7/24",
           "Warning: " + name + ", now at 10.9.9.2, gets *\n" + name + " is at 192.0.2.7/24.\n=> 0");
    Expect("", "*\n  " + name + ": 192.0.2.7 at near\nNothing to mend.\n=> 0");
    Expect("--frame-size 30000000 --frame-rate 60",
           "*\n    warning: " + name + " is to send 14.5 Gb/s, *To mend: 1.\n=> 1");
    Open(FindAt(m_system, "192.0.2.7"));
    Expect("--set-address W2048M 10.9.9.2/24", "*this computer has no address in that subnet*it is in use*=> 1");
    Close();
}

} // namespace
