// What is found of a host, by facts about it, and the facts by files.
#include "doctor/hostcheck.h"

#include "doctor/addresses.h"
#include "hostfacts.h"
#include "protocol/socketaddress.h"
#include "tovdoctor.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <unistd.h>

namespace {

constexpr std::uint32_t Mask24 = 0xFFFFFF00;

std::uint32_t At(char const *address)
{
    return ParseAddress(address).value();
}

struct Scene
{
    HostState host;
    std::vector<CameraState> cameras;
    AdapterState &eth1 = (host.adapters.resize(2), host.adapters[1]);
    CameraState &camera = (cameras.reserve(4), cameras.emplace_back());

    // One to which there is nothing to say: lo, eth1, and a camera there.
    Scene()
    {
        host.isKnown = host.hasDefaultRoute = true;
        host.socketRoom = 64 << 20;
        host.usbMemory = 1000u << 20;
        AdapterState &lo = host.adapters[0];
        lo.name = "lo";
        lo.addresses = {{At("127.0.0.1"), 0xFF000000}};
        lo.isUp = lo.hasLink = lo.isLoopback = true;
        lo.mtu = 65536;
        eth1.name = "eth1";
        eth1.addresses = {{At("192.0.2.1"), Mask24}};
        eth1.isUp = eth1.hasLink = eth1.isHardware = true;
        eth1.mtu = 9000;
        eth1.speed = 1000;
        eth1.ring = eth1.largestRing = 4096;
        eth1.returnPathFilter = 2;
        camera.name = "Cam";
        camera.serial = "S1";
        camera.place = {At("192.0.2.7"), Mask24, 0, 1, "eth1", false};
        camera.routeAdapter = "eth1";
        camera.needs = {1000000, 50, 8996};
    }
    void MoveAway(char const *address = "10.9.9.7")
    {
        camera.place.address = At(address);
        camera.place.isForeign = true;
        camera.routeAdapter.clear();
    }
    CameraState &AddCamera(char const *address)
    {
        cameras.push_back(camera);
        cameras.back().serial = "S2";
        cameras.back().name = "Cam2";
        cameras.back().place.address = At(address);
        return cameras.back();
    }
    void MakeUsb(std::uint32_t speed)
    {
        camera.isUsb = true;
        camera.place = {};
        camera.usbSpeed = speed;
    }
};

TEST(HostCheck, FindsWhatIsWrongAndHowToMendIt)
{
    struct Row
    {
        void (*change)(Scene &);
        std::vector<std::string> findings; // severity, what and mending, as patterns
    };
    Row const rows[] = {
        {[](Scene &) {}, {}},
        {[](Scene &s) { s.eth1.hasLink = false; }, {}},
        // Subnets.
        {[](Scene &s) { s.MoveAway(); },
         {"2 Wrong subnet: Cam is at 10.9.9.7/24, and eth1*at 192.0.2.1/24. > "
          "$ tovdoctor --set-address S1 192.0.2.7/24"}},
        {[](Scene &s) {
             s.MoveAway("10.9.9.1"); // whose end is this host's here
             s.camera.serial = "`rm -rf ~`";
         },
         {"2 Wrong subnet:*> $ tovdoctor --set-address 10.9.9.1 192.0.2.100/24"}},
        {[](Scene &s) {
             s.MoveAway();
             s.eth1.addresses[0].mask = ~0u;
         },
         {"2 Wrong subnet:*> Give eth1 an address in the camera's subnet."}},
        {[](Scene &s) { s.camera.place.mask = 0xFFFFFFFC; },
         {"2 Cam has the netmask 255.255.255.252*> $ tovdoctor --set-address S1 192.0.2.7/24"}},
        {[](Scene &s) { s.camera.place.mask = 0xFFFF0000; }, {"0 Cam has the netmask 255.255.0.0, and eth1 255*"}},
        {[](Scene &s) { s.AddCamera("192.0.2.7"); },
         {"2 Cam and Cam2 are both at 192.0.2.7. > $ tovdoctor --set-address S2 192.0.2.100/24"}},
        {[](Scene &s) { s.AddCamera("192.0.2.7").serial = "S1"; }, {"2 Cam and Cam2*> Switch the first one off*"}},
        {[](Scene &s) {
             s.cameras.clear();
             s.eth1.addresses.clear();
             s.host.adapters[0].addresses.push_back({At("192.168.77.3"), Mask24});
         },
         {"0 eth1 has a link, but*> $ sudo ip address add 192.168.78.1/24 brd + dev eth1"}},
        // Ways.
        {[](Scene &s) { s.camera.routeAdapter = "eth0"; },
         {"1 Cam is at eth1, but*leaves by eth0. > $ sudo ip route add 192.0.2.7/32 dev eth1"}},
        {[](Scene &s) {
             s.camera.routeAdapter = "eth0";
             s.eth1.returnPathFilter = 1;
         },
         {"2 Cam is at eth1*"}},
        {[](Scene &s) {
             s.cameras.clear();
             s.eth1.name = "eth1.5";
             s.eth1.returnPathFilter = 1;
         },
         {"0 The return-path filter of eth1.5 is on (rp_filter 1). > $ sudo sysctl -w "
          "net.ipv4.conf.eth1/5.rp_filter=2"}},
        {[](Scene &s) {
             s.cameras.clear();
             s.host.hasDefaultRoute = false;
         },
         {"0 *> $ sudo sysctl -w net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.eth1.rp_filter=0"}},
        // Packets.
        {[](Scene &s) { s.eth1.mtu = 1500; },
         {"2 Cam sends packets of 8996 bytes, and eth1 takes 1500 bytes at most. > $ sudo ip link set eth1 mtu 9000"}},
        {[](Scene &s) {
             s.eth1.mtu = 1500;
             s.camera.needs.packetSize = 0;
         },
         {"0 eth1 takes packets of 1500 bytes at most (MTU). > $ sudo ip link set eth1 mtu 9000"}},
        {[](Scene &s) {
             s.eth1.mtu = 1500;
             s.eth1.speed = 2500;
             s.camera.needs.packetSize = 1500;
         },
         {"1 eth1 takes packets of 1500 bytes*"}},
        {[](Scene &s) { s.camera.needs.packetSize = 1500; }, {"0 Cam sends packets of 1500 bytes, though*> Allow*"}},
        {[](Scene &s) { s.eth1.ring = 100; },
         {"1 The ring of eth1 holds 100 packets of 4096 that it could. > $ sudo ethtool -G eth1 rx 4096"}},
        {[](Scene &s) { s.eth1.ring = 256; }, {}}, // 18 ms of large packets
        {[](Scene &s) { s.host.socketRoom = 212992; },
         {"1 A socket gets a receive buffer of 208 KB; a stream asks for 4 MB. > $ sudo sysctl -w "
          "net.core.rmem_max=33554432"}},
        {[](Scene &s) {
             s.host.socketRoom = 32 << 20;
             s.AddCamera("192.0.2.8").needs = {20 << 20, 0.1, 8996};
         },
         {"1 *receive buffer of 32 MB; two frames of Cam2 are 40 MB. > $ sudo sysctl -w net.core.rmem_max=41943040"}},
        {[](Scene &s) {
             s.host.socketRoom = 212992;
             s.host.mayCapture = true;
         },
         {}},
        // Links. 50 MB/s are 403 Mb/s in large packets.
        {[](Scene &s) { s.eth1.speed = 100; },
         {"1 The link of eth1 runs at 100 Mb/s. > Use*", "1 Cam is to send 403 Mb/s, and the link carries 100 Mb/s*"}},
        {[](Scene &s) { s.eth1.isHalfDuplex = true; }, {"1 *half duplex*$ sudo ethtool -s eth1 autoneg on"}},
        {[](Scene &s) { s.AddCamera("192.0.2.8"); }, {}},
        {[](Scene &s) {
             s.AddCamera("192.0.2.8");
             s.AddCamera("192.0.2.9");
         },
         {"1 The 3 cameras at eth1 are to send 1.21 Gb/s, and the link carries 1 Gb/s. > Have each send 37 MB/s*"}},
        {[](Scene &s) { s.AddCamera("192.0.2.8").needs = {}; },
         {"0 2 cameras share the link of eth1, 1 Gb/s.*56 MB/s*"}},
        {[](Scene &s) {
             s.AddCamera("192.0.2.8").needs = {};
             s.eth1.speed = 2500;
         },
         {}},
        // USB.
        {[](Scene &s) { s.MakeUsb(5000); }, {}},
        {[](Scene &s) { s.MakeUsb(480); }, {"1 Cam is connected at 480 Mb/s. > Plug it into a USB 3 port*"}},
        {[](Scene &s) {
             s.MakeUsb(0);
             s.camera.needs.frameSize = 20 << 20;
             s.host.usbMemory = 16u << 20;
         },
         {"1 All USB transfers share 16 MB of memory; the camera needs 40 MB. > $ echo 1000 | sudo tee *"}},
        {[](Scene &s) {
             s.MakeUsb(5000);
             s.camera.needs.frameSize = 20 << 20;
             s.host.usbMemory = 0; // no limit
         },
         {}},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        Scene scene;
        row.change(scene);
        std::vector<std::string> found;
        for (TovCam::HostFinding const &finding : CheckHost(scene.host, scene.cameras)) {
            found.push_back(std::to_string(static_cast<int>(finding.severity)) + ' ' + finding.what + " > " +
                            (finding.isCommand ? "$ " : "") + finding.mending);
            EXPECT_FALSE(finding.why.empty());
        }
        EXPECT_EQ(found.size(), row.findings.size());
        for (std::size_t i = 0; i < std::max(found.size(), row.findings.size()); ++i) {
            std::string const one = i < found.size() ? found[i] : "",
                              wanted = i < row.findings.size() ? row.findings[i] : "";
            EXPECT_EQ(fnmatch(wanted.c_str(), one.c_str(), 0), 0) << one << "\nis not " << wanted;
        }
    }
}

TEST(HostCheck, ReadsTheHostsFiles)
{
    std::string const root = testing::TempDir() + "/host_" + std::to_string(getpid());
    auto const write = [&root](std::string const &file, char const *text) {
        std::filesystem::create_directories(std::filesystem::path(root + file).parent_path());
        std::ofstream(root + file) << text << '\n';
    };
    write("/proc/sys/net/ipv4/conf/all/rp_filter", "1");
    write("/proc/sys/net/ipv4/conf/eth1/rp_filter", "2");
    write("/proc/sys/net/ipv4/conf/eth2/rp_filter", "0");
    write("/proc/net/route",
          "Iface\tDestination\tGateway\nlo 0000007F 0 1 0 0 0 00000000\nlo 00000000 0 1 0 0 0 00000000");
    write("/sys/class/net/eth1/device/vendor", "0x8086");
    write("/sys/module/usbcore/parameters/usbfs_memory_mb", "16");
    SystemCalls calls;
    calls.listAdapters = [] {
        std::vector<AdapterState> adapters(2);
        adapters[0].name = "eth1";
        adapters[1].name = "eth2";
        return std::optional(adapters);
    };
    calls.getSocketRoom = [](std::uint64_t wanted) {
        return wanted / 2;
    };
    calls.mayCapture = [] {
        return true;
    };
    HostState host = ReadHost(HostFacts(root), calls);
    EXPECT_TRUE(host.isKnown && host.hasDefaultRoute && host.mayCapture && host.Find("eth1")->isHardware);
    EXPECT_FALSE(host.Find("eth2")->isHardware);
    EXPECT_EQ(host.Find("eth1")->returnPathFilter, 2);
    EXPECT_EQ(host.Find("eth2")->returnPathFilter, 1);
    EXPECT_EQ(host.socketRoom, 32u << 20);
    EXPECT_EQ(host.usbMemory, 16u << 20);
    std::filesystem::remove_all(root);
    calls.listAdapters = []() -> std::optional<std::vector<AdapterState>> {
        return std::nullopt;
    };
    host = ReadHost(HostFacts(root), calls);
    EXPECT_FALSE(host.isKnown || host.hasDefaultRoute || host.usbMemory);
}

TEST(HostCheck, KnowsTheAddressesThatACameraCanHave)
{
    for (auto const &[address, gateway, shown] :
         std::vector<std::array<char const *, 3>>{{"192.0.2.7/24", "192.0.2.1", "192.0.2.7/24"},
                                                  {"10.0.0.1/255.255.0.0", "", "10.0.0.1/16"},
                                                  {"192.0.2.7/31", "", "192.0.2.7/31"},
                                                  {"192.0.2.7", "", ""},
                                                  {"192.0.2.7/0", "", ""},
                                                  {"192.0.2.7/33", "", ""},
                                                  {"192.0.2.7/24 ", "", ""},
                                                  {"192.0.2.7/255.0.255.0", "", ""},
                                                  {"192.0.2.0/24", "", ""},
                                                  {"192.0.2.255/24", "", ""},
                                                  {"127.0.0.2/8", "", ""},
                                                  {"224.0.0.1/24", "", ""},
                                                  {"0.0.0.7/24", "", ""},
                                                  {"192.0.2.7/24", "here", ""}}) {
        TovCam::CameraAddress read;
        bool const isGood = TovCam_ReadAddress(address, gateway, &read);
        EXPECT_EQ(isGood ? TovCam_AddressText(read) : "", shown) << address;
    }
}

} // namespace
