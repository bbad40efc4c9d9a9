// How a camera is told to keep its address. In a network namespace of its own.
#include "scriptedcamera.h"

#include "doctor/keepaddress.h"

namespace B = gvcp::bootstrap;

namespace {

constexpr std::uint64_t Mac = 0x025401020304;
constexpr TovCam::CameraAddress Address{INADDR_LOOPBACK, 0xFFFF0000, 0x7F000063};

class KeepAddressTest : public testing::Test
{
protected:
    using Bytes = ScriptedCamera::Bytes;

    KeepAddressTest()
    {
        m_camera.Put(B::ManufacturerName, std::string("Maker"));
        m_camera.Put(B::DeviceMacAddressHigh, Mac >> 32);
        m_camera.Put(B::DeviceMacAddressLow, static_cast<std::uint32_t>(Mac));
        m_camera.Put(B::NetworkInterfaceCapability, 7);
        m_camera.Put(B::NetworkInterfaceConfiguration, 6);
    }
    // The camera has nothing to do with what `is` says of a write.
    void Script(std::uint16_t status, bool (*is)(std::uint32_t address))
    {
        m_camera.Set([=, this](Bytes const &request, Bytes const &good) {
            if (LoadBig16(&request[2]) != gvcp::WRITEREG_CMD || !is(LoadBig32(&request[8])))
                return std::vector<ScriptedCamera::Datagram>{{good}};
            Bytes answer = good;
            StoreBig16(answer.data(), status);
            return std::vector<ScriptedCamera::Datagram>{{answer}};
        });
    }

    ScriptedCamera m_camera;
};

TEST_F(KeepAddressTest, StoresTheAddressAndThenSwitchesItOn)
{
    ASSERT_EQ(KeepAddress(Mac, Address), TOV_CAM_ERR_OK);
    EXPECT_EQ(m_camera.Get(B::PersistentIpAddress), Address.address);
    EXPECT_EQ(m_camera.Get(B::PersistentSubnetMask), Address.mask);
    EXPECT_EQ(m_camera.Get(B::PersistentDefaultGateway), Address.gateway);
    EXPECT_EQ(m_camera.Get(B::NetworkInterfaceConfiguration), 7u); // beside what was on
    EXPECT_EQ(m_camera.Get(B::ControlChannelPrivilege), 0u);       // given back
    std::vector<std::uint32_t> written;
    for (Bytes const &request : m_camera.Requests(gvcp::WRITEREG_CMD)) {
        if (std::uint32_t const address = LoadBig32(&request[8]); address < B::ControlChannelPrivilege)
            written.push_back(address);
    }
    ASSERT_EQ(written.size(), 4u);
    EXPECT_EQ(written.back(), B::NetworkInterfaceConfiguration);
}

TEST_F(KeepAddressTest, TellsWhyNot)
{
    EXPECT_EQ(KeepAddress(Mac + 1, Address), TOV_CAM_ERR_NO_DEVICE); // it is another camera that answers
    m_camera.Put(B::NetworkInterfaceCapability, 6);
    EXPECT_EQ(KeepAddress(Mac, Address), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    m_camera.Put(B::NetworkInterfaceCapability, 7);
    Script(gvcp::GEV_STATUS_WRITE_PROTECT, [](std::uint32_t address) { return address == B::PersistentSubnetMask; });
    EXPECT_EQ(KeepAddress(Mac, Address), TOV_CAM_ERR_UNKNOWN);
    EXPECT_EQ(m_camera.Get(B::NetworkInterfaceConfiguration), 6u); // it comes up as before
    // It says yes, and keeps something else.
    m_camera.Set([this](Bytes const &request, Bytes const &good) {
        std::vector<ScriptedCamera::Datagram> out{{good}};
        if (LoadBig16(&request[2]) == gvcp::READREG_CMD && LoadBig32(&request[8]) == B::PersistentIpAddress)
            StoreBig32(&out[0].bytes[gvcp::HeaderSize], 0);
        return out;
    });
    EXPECT_EQ(KeepAddress(Mac, Address), TOV_CAM_ERR_UNKNOWN);
    m_camera.Set({});
    m_camera.Put(B::ControlChannelPrivilege, gvcp::ControlAccess);
    EXPECT_EQ(KeepAddress(Mac, Address), TOV_CAM_ERR_GENICAM_ACCESS);
}

} // namespace
