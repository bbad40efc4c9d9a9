// What the host says of its adapters, from a folder that looks like /sys and /proc.
#include "hostinfo.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::string const s_root = testing::TempDir() + "/host_" + std::to_string(getpid());

void Put(std::string const &file, std::string const &text)
{
    fs::path const path = s_root + file;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text << '\n';
}

TEST(HostInfo, ReadsWhatIsThere)
{
    Put("/proc/sys/kernel/osrelease", "6.1.0");
    Put("/sys/class/net/eth0/address", "02:fc:00:00:0a:01");
    Put("/sys/class/net/eth0/mtu", "9000");
    Put("/sys/class/net/eth0/speed", "10000");
    fs::create_directories(s_root + "/sys/class/net/eth0/device");
    fs::create_symlink("../../../bus/pci/drivers/fast", s_root + "/sys/class/net/eth0/device/driver");
    Put("/sys/class/net/down0/address", "02:fc:00:00:0a:02");
    Put("/sys/class/net/down0/speed", "-1");
    Put("/sys/bus/usb/devices/2-1/serial", "19200342");
    Put("/sys/bus/usb/devices/2-1/speed", "5000");
    HostFacts const host(s_root);
    NetworkAdapter adapter = host.GetAdapter("eth0");
    EXPECT_EQ(adapter.mac, 0x02FC00000A01u);
    EXPECT_EQ(adapter.mtu, "9000 bytes");
    EXPECT_EQ(adapter.speed, "10000 Mb/s");
    EXPECT_EQ(adapter.driver, "fast, kernel 6.1.0");
    Put("/sys/module/fast/version", "2.4");
    EXPECT_EQ(host.GetAdapter("eth0").driver, "fast 2.4");
    adapter = host.GetAdapter("down0");
    EXPECT_EQ(adapter.speed + adapter.mtu + adapter.driver, "");
    for (char const *name : {"", "eth1", "../net/eth0"})
        EXPECT_EQ(host.GetAdapter(name).name, "") << name;
    EXPECT_EQ(host.GetUsbSpeed("19200342"), "5000 Mb/s");
    EXPECT_EQ(host.GetUsbSpeed("1"), "");
    EXPECT_EQ(host.GetUsbBuffer(), "");
    Put("/sys/module/usbcore/parameters/usbfs_memory_mb", "0");
    EXPECT_EQ(host.GetUsbBuffer(), "without limit (usbfs_memory_mb)");
    EXPECT_EQ(AlignLines({{"MTU", "9000 bytes"}, {"Unknown", ""}, {"Speed", "1"}}), "MTU:   9000 bytes\nSpeed: 1\n");
    fs::remove_all(s_root);
}

} // namespace
