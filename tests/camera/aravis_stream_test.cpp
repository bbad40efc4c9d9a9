// What a real camera's frames say about themselves, from the packets on. Runs in a network namespace of its own.
#include "registerserver.h"

namespace {

bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0; // before any system is made

using AravisStreamTest = CameraTest;

std::string Node(std::string const &kind, std::string const &name, std::string const &content)
{
    return "<" + kind + " Name=\"" + name + "\">" + content + "</" + kind + ">";
}

TEST_F(AravisStreamTest, TimeStampAndPaddingAreTheCameras)
{
    // Lines of 6 pixels with 2 bytes behind each.
    constexpr std::uint64_t Ticks = 0x23456789ABD;
    std::string const pixels = "abcdef__ghijkl__mnopqr__";
    auto const value = [](std::string const &number) {
        return "<Value>" + number + "</Value>";
    };
    std::string const xml =
        "<?xml version=\"1.0\"?><RegisterDescription>" + Node("Integer", "Width", value("6")) +
        Node("Integer", "Height", value("3")) + Node("Integer", "PayloadSize", value("24")) +
        Node("Integer", "PixelFormat", value("17301505")) + // Mono8
        Node("Integer", "GevTimestampTickFrequency", value("125000000")) +
        Node("Command", "AcquisitionStart", "<CommandValue>1</CommandValue><pValue>Start</pValue>") +
        Node("IntReg", "Start",
             "<Address>0xF000</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
             "<Endianess>BigEndian</Endianess>") +
        "<Port Name=\"Device\"/></RegisterDescription>";
    char url[64];
    std::snprintf(url, sizeof url, "Local:a.xml;1000;%zx", xml.size());
    RegisterServer server(url, xml);
    auto const packet = [](std::uint64_t block, std::uint64_t content, std::string const &body) {
        return Big(block, 4) + Big(content, 4) + body;
    };
    for (std::uint64_t const block : {7, 9}) {
        std::string const time = Big(Ticks * (block - 6), 8);
        server.stream.push_back(
            packet(block, 0x01000000,
                   Big(1, 4) + time + Big(0x01080001, 4) + Big(6, 4) + Big(3, 4) + Big(0, 8) + Big(2, 2) + Big(0, 2)));
        server.stream.push_back(packet(block, 0x03000001, pixels));
        server.stream.push_back(packet(block, 0x02000002, Big(1, 4) + Big(3, 4)));
    }
    TovCam::DeviceInfo *info = nullptr;
    ASSERT_TRUE(Eventually([&] { return (info = m_system->FindDeviceByAddress("127.0.0.1", nullptr)) != nullptr; }));
    ASSERT_NO_FATAL_FAILURE(Open(info));
    ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 4), 0);
    ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
    ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
    for (std::uint64_t const block : {7, 9}) {
        TovCam::Buffer *const buffer = m_stream->GetBuffer(Generous, nullptr);
        ASSERT_NE(buffer, nullptr);
        EXPECT_FALSE(buffer->IsIncomplete());
        EXPECT_EQ(buffer->GetTimestamp(), Ticks * (block - 6));
        EXPECT_EQ(buffer->GetFrameID(), block);
        EXPECT_EQ(buffer->GetBufferSize(), pixels.size());
        _TovImage const &image = *buffer->GetImage();
        EXPECT_EQ(std::tuple(image.width, image.height, image.lineStep, image.imageSize), std::tuple(6u, 3u, 8u, 24u));
        EXPECT_EQ(std::string(reinterpret_cast<char *>(image.imageData), pixels.size()), pixels);
        EXPECT_EQ(m_stream->QueueBuffer(buffer), 0);
    }
    Close(); // while there is somebody to say goodbye to
}

} // namespace
