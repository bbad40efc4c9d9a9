// A GigE camera opened as a whole: what its description leaves out, how its registers are reached, and what whoever
// waits for the opening sees of it. In a network namespace of its own.
#include "wireclients.h"

#include "asleep.h"
#include "scriptedcamera.h"

#include <future>

namespace {

namespace bootstrap = gvcp::bootstrap;
using TovCam::OpenProgress;

std::string Describe(char const *minorVersion, std::string const &nodes)
{
    return std::string("<?xml version=\"1.0\"?><RegisterDescription SchemaMajorVersion=\"1\" SchemaMinorVersion=\"") +
           minorVersion +
           "\" SchemaSubMinorVersion=\"0\"><Category Name=\"Root\"><pFeature>Width</pFeature></Category>" + nodes +
           "</RegisterDescription>";
}

std::string Integer(char const *name, std::uint32_t address, int length, char const *order)
{
    return std::string("<IntReg Name=\"") + name + "\"><Address>" + std::to_string(address) + "</Address><Length>" +
           std::to_string(length) + "</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Cachable>NoCache" +
           "</Cachable><Sign>Unsigned</Sign><Endianess>" + order + "</Endianess></IntReg>";
}

class GigeDeviceTest : public CameraTest
{
protected:
    void Serve(std::string const &description)
    {
        Close();
        m_camera.reset();
        m_camera = std::make_unique<ScriptedCamera>();
        m_camera->Describe(description);
        Open(FindAt(m_system));
    }

    std::unique_ptr<ScriptedCamera> m_camera;
};

TEST_F(GigeDeviceTest, WhatTheStandardLaysDownIsThere)
{
    std::string const port = "<Port Name=\"Device\"/>";
    Serve(Describe("1", port));
    EXPECT_STREQ(m_nodes->GetString("DeviceVendorName", nullptr)->GetValue(nullptr), "Maker");
    EXPECT_STREQ(m_nodes->GetString("DeviceID", nullptr)->GetValue(nullptr), "Serial");
    m_camera->Put(bootstrap::StreamChannelPacketSize, 0x40000000 | 1500);
    EXPECT_EQ(m_nodes->GetIntegerValue("GevSCPSPacketSize", nullptr), 1500);
    EXPECT_EQ(m_nodes->SetIntegerValue("GevSCPSPacketSize", 3000), 0);
    EXPECT_EQ(m_camera->Get(bootstrap::StreamChannelPacketSize), 0x40000000 | 3000u);
    EXPECT_EQ(m_nodes->SetIntegerValue("GevSCPD", 100), 0);
    EXPECT_EQ(m_camera->Get(bootstrap::StreamChannelPacketDelay), 100u);
    EXPECT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", 1), 0);
    EXPECT_EQ(m_nodes->SetIntegerValue("GevSCPD", 200), TOV_CAM_ERR_GENICAM_ACCESS);
    // The description's own come first.
    Serve(Describe("1", "<Integer Name=\"GevSCPD\"><Value>7</Value></Integer>" + port));
    EXPECT_EQ(m_nodes->GetIntegerValue("GevSCPD", nullptr), 7);
    EXPECT_NE(m_nodes->GetInt("GevSCPSPacketSize", nullptr), nullptr);
    // None that would need a port without one, or one that is something else.
    for (char const *other : {"", "<Integer Name=\"Device\"><Value>7</Value></Integer>"}) {
        Serve(Describe("1", other));
        EXPECT_EQ(m_nodes->GetInt("GevSCPSPacketSize", nullptr), nullptr);
        EXPECT_NE(m_nodes->GetInt("TLParamsLocked", nullptr), nullptr);
    }
}

TEST_F(GigeDeviceTest, RegistersAreReachedAsTheDescriptionMeansIt)
{
    struct Row
    {
        char const *minorVersion, *order;
        int length;
        bool asRegister;
        std::int64_t value;
    };
    Row const rows[] = {
        {"1", "BigEndian", 4, false, 0x01020304},        {"1", "LittleEndian", 4, false, 0x04030201},
        {"0", "BigEndian", 4, true, 0x01020304},         {"0", "LittleEndian", 4, true, 0x04030201},
        {"0", "BigEndian", 8, false, 0x102030405060708}, {"0", "BigEndian", 2, false, 0x0102},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(std::string(row.minorVersion) + row.order + std::to_string(row.length));
        Serve(Describe(row.minorVersion, Integer("Width", 0x10000, row.length, row.order) + "<Port Name=\"Device\"/>"));
        m_camera->Put(0x10000, std::string("\1\2\3\4\5\6\7\10"));
        ScriptedCamera::Bytes const beside = m_camera->Get(0x10008, 4);
        std::uint16_t const read = row.asRegister ? gvcp::READREG_CMD : gvcp::READMEM_CMD,
                            write = row.asRegister ? gvcp::WRITEREG_CMD : gvcp::WRITEMEM_CMD;
        std::size_t const reads = m_camera->Requests(read).size(), writes = m_camera->Requests(write).size();
        EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), row.value);
        EXPECT_EQ(m_nodes->SetIntegerValue("Width", row.value + 1), 0);
        EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), row.value + 1);
        EXPECT_EQ(m_camera->Get(0x10008, 4), beside); // what is beside it stays
        EXPECT_GT(m_camera->Requests(read).size(), reads);
        EXPECT_GT(m_camera->Requests(write).size(), writes);
        std::uint32_t value = 0; // in the host's order, as a register
        m_camera->Put(0x10010, 0xA1B2C3D4);
        EXPECT_EQ(m_device->ReadRegister(0x10010, &value, sizeof value), 0);
        EXPECT_EQ(value, 0xA1B2C3D4);
        EXPECT_NE(m_device->ReadRegister(0x1234567890, &value, sizeof value), 0);
    }
}

std::string Big(std::uint64_t value, int bytes)
{
    return bytes == 0 ? "" : Big(value >> 8, bytes - 1) + static_cast<char>(value);
}

TEST_F(GigeDeviceTest, FramesAreWhatTheCameraSaysOfThem)
{
    // Lines of 6 pixels with 2 bytes behind each.
    constexpr std::uint64_t Ticks = 0x23456789ABD;
    std::string const pixels = "abcdef__ghijkl__mnopqr__";
    std::string nodes = Integer("Start", 0xF000, 4, "BigEndian") + "<Port Name=\"Device\"/>" +
                        "<Command Name=\"AcquisitionStart\"><CommandValue>1</CommandValue><pValue>Start</pValue>" +
                        "</Command>";
    for (auto const &[name, value] : {std::pair("Width", "6"),
                                      {"Height", "3"},
                                      {"PayloadSize", "24"},
                                      {"PixelFormat", "17301505"},
                                      {"GevTimestampTickFrequency", "125000000"}})
        nodes += std::string("<Integer Name=\"") + name + "\"><Value>" + value + "</Value></Integer>";
    Serve(Describe("0", nodes));
    struct Block
    {
        std::uint64_t number;
        bool leader;
        std::size_t bytes;
    };
    constexpr Block Blocks[] = {
        {65533, true, 24}, {65535, true, 24}, {65536, false, 24}, {65537, true, 23}, {65538, true, 24}};
    std::vector<ScriptedCamera::Datagram> stream{{}}; // behind the answer
    for (auto const &[number, leader, bytes] : Blocks) {
        auto const add = [&stream, id = (number - 1) % 65535 + 1](std::uint64_t content, std::string const &body) {
            std::string const packet = Big(id, 4) + Big(content, 4) + body; // 0 is skipped
            stream.push_back({{packet.begin(), packet.end()}});
        };
        if (leader)
            add(0x01000000, Big(1, 4) + Big(Ticks * (number - 65532), 8) + Big(0x01080001, 4) + Big(6, 4) + Big(3, 4) +
                                Big(0, 8) + Big(2, 2) + Big(0, 2));
        add(0x03000001, pixels.substr(0, bytes));
        add(0x02000002, Big(1, 4) + Big(3, 4));
    }
    m_camera->Set([stream, port = std::uint16_t{0}](auto const &request, auto const &good) mutable {
        std::uint32_t const written = LoadBig16(&request[2]) == gvcp::WRITEREG_CMD ? LoadBig32(&request[8]) : 0;
        if (written == bootstrap::StreamChannelPort)
            port = LoadBig16(&request[14]);
        for (ScriptedCamera::Datagram &packet : stream)
            packet.port = port;
        stream[0] = {good};
        return written == 0xF000 ? stream : std::vector{stream[0]};
    });
    ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 7), 0);
    for (int start = 0; start < 2; ++start) { // ids begin anew
        ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
        ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
        for (auto const &[number, leader, bytes] : Blocks) {
            SCOPED_TRACE(number);
            if (start == 0 && number == 65538)
                break; // nobody takes it, and it does not come later
            TovCam::Buffer *const buffer = m_stream->GetBuffer(Generous, nullptr);
            ASSERT_NE(buffer, nullptr);
            EXPECT_EQ(buffer->IsIncomplete(), !leader || bytes < 24);
            EXPECT_TRUE(!leader || (buffer->GetTimestamp() == Ticks * (number - 65532) &&
                                    buffer->GetFrameID() == number && buffer->GetBufferSize() == bytes));
            _TovImage const &image = *buffer->GetImage();
            EXPECT_EQ(std::tuple(image.width, image.height, image.lineStep, image.imageSize),
                      std::tuple(6u, 3u, leader ? 8u : 6u, leader ? 24u : 18u));
            EXPECT_EQ(std::string(reinterpret_cast<char *>(image.imageData), bytes), pixels.substr(0, bytes));
            EXPECT_EQ(m_stream->QueueBuffer(buffer), 0);
        }
        EXPECT_EQ(m_stream->StopAcquisition(1), 0);
    }
    Close(); // while there is somebody to say goodbye to
    // The port was written last when the channel opened, and alone when it closed.
    using namespace bootstrap;
    EXPECT_EQ(m_camera->Get(StreamChannelPort), 0u);
    std::vector<std::uint32_t> written;
    for (ScriptedCamera::Bytes const &request : m_camera->Requests(gvcp::WRITEREG_CMD)) {
        if (std::uint32_t const address = LoadBig32(&request[8]); address >= StreamChannelPort)
            written.push_back(address);
    }
    EXPECT_EQ(written, (std::vector<std::uint32_t>{StreamChannelPacketSize, StreamChannelDestinationAddress,
                                                   StreamChannelPort, 0xF000, 0xF000, StreamChannelPort}));
}

// By what is sent: each datagram that is not is a wait less.
TEST_F(GigeDeviceTest, ACameraThatFellSilentIsStoppedAndClosedAtOnce)
{
    std::string nodes =
        Integer("Start", 0xF000, 4, "BigEndian") + Integer("Stop", 0xF004, 4, "BigEndian") + "<Port Name=\"Device\"/>";
    for (auto const &[name, target] :
         {std::pair("AcquisitionStart", "Start"), {"AcquisitionStop", "Stop"}, {"AcquisitionAbort", "Stop"}})
        nodes += std::string("<Command Name=\"") + name + "\"><CommandValue>1</CommandValue><pValue>" + target +
                 "</pValue></Command>";
    for (auto const &[name, value] :
         {std::pair("Width", "8"), {"Height", "8"}, {"PayloadSize", "64"}, {"PixelFormat", "17301505"}})
        nodes += std::string("<Integer Name=\"") + name + "\"><Value>" + value + "</Value></Integer>";
    Serve(Describe("0", nodes));
    ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 2), 0);
    ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
    ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
    EXPECT_EQ(m_device->GetSilence(), 0u);
    m_camera->Set([](auto const &, auto const &) { return std::vector<ScriptedCamera::Datagram>{}; });
    auto const writes = [this] {
        return m_camera->Requests(gvcp::WRITEREG_CMD);
    };
    std::size_t const before = writes().size();
    EXPECT_NE(m_nodes->ExecuteCommand("AcquisitionStop"), 0);
    EXPECT_GT(m_device->GetSilence(), 0u);
    std::size_t const stopped = writes().size();
    EXPECT_LE(stopped - before, 4u);
    EXPECT_EQ(m_nodes->ExecuteCommand("AcquisitionAbort"), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(m_stream->StopAcquisition(1), 0);
    EXPECT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", 0), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(m_stream->ReleaseBufferQueue(), 0);
    EXPECT_EQ(writes().size(), stopped);
    Close();
    ASSERT_TRUE(Eventually([&] { return writes().size() == stopped + 1; })); // nobody waits for what comes of it
    EXPECT_EQ(LoadBig32(&writes().back()[8]), bootstrap::ControlChannelPrivilege);
}

TEST_F(GigeDeviceTest, WhyACameraCannotBeOpenedIsTold)
{
    using TovCam::OpenRefusal;
    auto camera = ::Serve(Grey);
    TovCam::DeviceInfo *const info = FindAt(m_system);
    for (auto const &[kind, reason] : {std::pair("NotXml", "it is not well-formed in line "),
                                       {"Circle", "its features refer to each other without end"},
                                       {"OutsideUrl", "the camera refuses to send it"},
                                       {"FileUrl", "the camera does not say where it is"}}) {
        SCOPED_TRACE(kind);
        Set(*camera, "WireDescription", kind);
        TovCam::Device *const device = TovCam_CreateDevice(info, 2, nullptr);
        ASSERT_NE(device, nullptr);
        EXPECT_EQ(device->GetCameraParameters(nullptr), nullptr);
        device->Release();
        TovCam::OpenFailure const failure = info->GetOpenFailure();
        EXPECT_EQ(failure.refusal, OpenRefusal::Description);
        EXPECT_EQ(failure.reason.rfind(reason, 0), 0u) << failure.reason;
    }
    Set(*camera, "WireDescription", "Good");
    Open(info);
    EXPECT_EQ(info->GetOpenFailure(), TovCam::OpenFailure());
    // Ours; and that is over when it is closed.
    EXPECT_EQ(TovCam_CreateDevice(info, 2, nullptr), nullptr);
    EXPECT_EQ(info->GetOpenFailure(), (TovCam::OpenFailure{OpenRefusal::InUse, true, "127.0.0.1", {}}));
    Close();
    EXPECT_EQ(info->GetOpenFailure(), TovCam::OpenFailure());
    camera.reset();
    EXPECT_EQ(TovCam_CreateDevice(info, 2, nullptr), nullptr);
    EXPECT_EQ(info->GetOpenFailure().refusal, OpenRefusal::NoAnswer);
}

TEST_F(GigeDeviceTest, WhatBecameOfThePacketsIsInTheTree)
{
    auto const camera = ::Serve(Grey);
    TovCam::DeviceInfo *const info = FindAt(m_system);
    Open(info);
    Set(*camera, "WireDuplicate", "5");
    auto const number = [this](char const *name) {
        return m_nodes->GetIntegerValue(name, nullptr);
    };
    EXPECT_EQ(number("TovStreamComplete"), 0);
    EXPECT_EQ(std::string(info->GetHostInformation()).find("\nFrames: "), std::string::npos);
    RunningCamera(m_device).ForFrames(5, [](auto &) {});
    EXPECT_GE(number("TovStreamComplete") + number("TovStreamIncomplete"), 5);
    EXPECT_GT(number("TovStreamDuplicate"), 0);
    EXPECT_GT(number("TovStreamPackets"), 5);
    EXPECT_GE(number("TovStreamReceived"), number("TovStreamPackets") + number("TovStreamDuplicate"));
    EXPECT_EQ(m_nodes->SetIntegerValue("TovStreamLate", 1), TOV_CAM_ERR_GENICAM_ACCESS);
    TovCam::FeatureInfo const &category = *m_nodes->GetFeature(FindFeature(m_nodes, "TovStreamStatistics"));
    EXPECT_EQ(category.children.size(), 18u);
    EXPECT_EQ(m_nodes->GetFeature(category.children[0])->displayName, "Packets Received");
    std::vector<std::uint32_t> const &top = m_nodes->GetFeature(0)->children;
    EXPECT_EQ(top.back(), FindFeature(m_nodes, "TovStreamStatistics"));
    EXPECT_NE(std::string(info->GetHostInformation()).find("\nPackets left:   "), std::string::npos)
        << info->GetHostInformation();
    Close();
    EXPECT_EQ(std::string(info->GetHostInformation()).find("\nFrames: "), std::string::npos);
}

TEST_F(GigeDeviceTest, AnOpeningIsSeenAndCanBeCancelled)
{
    auto const camera = ::Serve(Grey);
    TovCam::DeviceInfo *const info = FindAt(m_system);
    Set(*camera, "WireAnswerDelay", "50");
    OpenProgress progress;
    info->SetOpenProgress(&progress);
    auto opening = std::async(std::launch::async, [info] { return TovCam_CreateDevice(info, 2, nullptr); });
    EXPECT_TRUE(
        Eventually([&] { return progress.stage == OpenProgress::Stage::Description && progress.bytes > 4000; }));
    EXPECT_GT(progress.total, progress.bytes);
    EXPECT_TRUE(IsUnderWay(opening));
    progress.cancel = true;
    EXPECT_EQ(opening.get(), nullptr);
    EXPECT_EQ(progress.stage, OpenProgress::Stage::Over);
    EXPECT_LT(progress.bytes, progress.total);
    // It is free again, and the next one goes through.
    Set(*camera, "WireAnswerDelay", "0");
    EXPECT_TRUE(Eventually([&] { return camera->GetStatus().controller.empty(); }));
    OpenProgress another;
    info->SetOpenProgress(&another);
    Open(info);
    EXPECT_EQ(another.stage, OpenProgress::Stage::Over);
    EXPECT_EQ(another.bytes, another.total);
    info->SetOpenProgress(nullptr);
    std::string const file = testing::TempDir() + "/opened_" + std::to_string(getpid()) + ".tcfg";
    EXPECT_EQ(m_device->SaveConfiguration(file.c_str()), 0);
    Close();

    // The same by a configuration file.
    OpenProgress third;
    m_system->SetOpenProgress(&third);
    Set(*camera, "WireAnswerDelay", "50");
    opening =
        std::async(std::launch::async, [&] { return m_system->OpenDeviceFromConfiguration(file.c_str(), nullptr); });
    EXPECT_TRUE(Eventually([&] { return third.stage == OpenProgress::Stage::Description && third.bytes > 4000; }));
    third.cancel = true;
    EXPECT_EQ(opening.get(), nullptr);
    m_system->SetOpenProgress(nullptr);
    std::remove(file.c_str());
}

} // namespace
