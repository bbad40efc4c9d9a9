// What a real camera's frames say about themselves, from the packets on. Runs in a network namespace of its own.
#include "registerserver.h"

namespace {

bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0; // before any system is made

using AravisStreamTest = CameraTest;

std::string Node(std::string const &kind, std::string const &name, std::string const &content)
{
    return "<" + kind + " Name=\"" + name + "\">" + content + "</" + kind + ">";
}

TEST_F(AravisStreamTest, FramesAreWhatTheCameraSaysOfThem)
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
        return Big((block - 1) % 65535 + 1, 4) + Big(content, 4) + body; // 0 is skipped
    };
    std::tuple<std::uint64_t, bool, std::size_t> const blocks[] = {// with a leader, and how many bytes
                                                                   {65533, true, 24},
                                                                   {65535, true, 24},
                                                                   {65536, false, 24},
                                                                   {65537, true, 23},
                                                                   {65538, true, 24}};
    for (auto const &[block, leader, bytes] : blocks) {
        std::string const time = Big(Ticks * (block - 65532), 8);
        if (leader)
            server.stream.push_back(packet(block, 0x01000000,
                                           Big(1, 4) + time + Big(0x01080001, 4) + Big(6, 4) + Big(3, 4) + Big(0, 8) +
                                               Big(2, 2) + Big(0, 2)));
        server.stream.push_back(packet(block, 0x03000001, pixels.substr(0, bytes)));
        server.stream.push_back(packet(block, 0x02000002, Big(1, 4) + Big(3, 4)));
    }
    TovCam::DeviceInfo *info = nullptr;
    ASSERT_TRUE(Eventually([&] { return (info = m_system->FindDeviceByAddress("127.0.0.1", nullptr)) != nullptr; }));
    ASSERT_NO_FATAL_FAILURE(Open(info));
    ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 7), 0);
    for (int start = 0; start < 2; ++start) { // ids begin anew
        ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
        ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
        for (auto const &[block, leader, bytes] : blocks) {
            SCOPED_TRACE(block);
            if (start == 0 && block == 65538)
                break; // nobody takes it, and it does not come later
            TovCam::Buffer *const buffer = m_stream->GetBuffer(Generous, nullptr);
            ASSERT_NE(buffer, nullptr);
            EXPECT_EQ(buffer->IsIncomplete(), !leader || bytes < 24);
            if (leader) {
                EXPECT_EQ(buffer->GetTimestamp(), Ticks * (block - 65532));
                EXPECT_EQ(buffer->GetFrameID(), block);
                EXPECT_EQ(buffer->GetBufferSize(), bytes);
            }
            _TovImage const &image = *buffer->GetImage();
            EXPECT_EQ(std::tuple(image.width, image.height, image.lineStep, image.imageSize),
                      std::tuple(6u, 3u, leader ? 8u : 6u, leader ? 24u : 18u));
            EXPECT_EQ(std::string(reinterpret_cast<char *>(image.imageData), bytes), pixels.substr(0, bytes));
            EXPECT_EQ(m_stream->QueueBuffer(buffer), 0);
        }
        EXPECT_EQ(m_stream->StopAcquisition(1), 0);
    }
    Close(); // while there is somebody to say goodbye to
}

} // namespace
