// The cameras on the network before foreign clients and our own. Runs in a network namespace of its own.
#include "wireclients.h"

#include "gige/controlchannel.h"
#include "protocol/socketaddress.h"

namespace {

using WireTest = CameraTest;

TEST_F(WireTest, ArvToolReadsAndWritesFeatures)
{
    auto const camera = Serve(Grey);
    Outcome const list = RunShell("arv-tool-0.8");
    EXPECT_NE(list.text.find("Velmor-VG-2048M-W2048M (127.0.0.1)"), std::string::npos) << list.text;
    std::string const tool = "arv-tool-0.8 -a 127.0.0.1 ";
    Outcome const features = RunShell(tool + "values");
    EXPECT_EQ(features.code, 0) << features.text;
    for (char const *line : {"'DeviceModelName' = 'VG-2048M'", "'DeviceSerialNumber' = 'W2048M'", "'Width' = 2048"})
        EXPECT_NE(features.text.find(line), std::string::npos) << line << "\n" << features.text;
    EXPECT_EQ(features.text.find("rror"), std::string::npos) << features.text;
    Outcome const control = RunShell(tool + "control Width=640 Width GevSCPSPacketSize=3000 R[0xd04]");
    EXPECT_NE(control.text.find("Width = 640"), std::string::npos) << control.text;
    EXPECT_NE(control.text.find("R[0x00000d04] = 0x00000bb8"), std::string::npos) << control.text;
    std::string why;
    EXPECT_EQ(camera->GetFeature("Width", why), "640") << why;
}

TEST_F(WireTest, ArvCameraTestReceivesWhateverIsSent)
{
    struct Row
    {
        char const *model, *format, *setting, *options;
    };
    std::vector<Row> rows;
    for (char const *format :
         {"Mono8", "Mono10", "Mono10p", "Mono10Packed", "Mono12", "Mono12p", "Mono12Packed", "Mono16"})
        rows.push_back({Grey, format, "", ""});
    for (char const *format : {"Mono8", "Mono12", "Mono12Packed", "BayerRG8", "BayerRG12", "BayerRG12p", "RGB8"})
        rows.push_back({Colour, format, "", ""});
    rows.push_back({Grey, "Mono8", "", "-i 576"});
    rows.push_back({Grey, "Mono12", "", "-i 9000"});
    rows.push_back({Grey, "Mono8", "GevGVSPExtendedIDMode=On", ""});
    rows.push_back({Colour, "RGB8", "GevGVSPExtendedIDMode=On", "--multipart"});
    rows.push_back({Grey, "Mono8", "", "--chunks=Timestamp,ExposureTime"});
    rows.push_back({Colour, "BayerRG8", "GevGVSPExtendedIDMode=On", "--multipart --chunks=FrameID"});
    for (Row const &row : rows) {
        SCOPED_TRACE(std::string(row.model) + ' ' + row.format + ' ' + row.setting + ' ' + row.options);
        auto const camera = Serve(row.model);
        MakeSmall(*camera);
        Set(*camera, "PixelFormat", row.format);
        std::string const features = *row.setting ? std::string("--features ") + row.setting + ' ' : "";
        Outcome const seen = Stream(*camera, features + row.options);
        EXPECT_GE(seen.Number("n_completed_buffers"), 5) << seen.text;
        // A busy computer may lose packets of its own.
        for (char const *none : {"n_size_mismatch_errors", "n_error_packets"})
            EXPECT_EQ(seen.Number(none), 0) << none << '\n' << seen.text;
        bool const hasChunks = std::string_view(row.options).find("chunks") != std::string_view::npos;
        EXPECT_EQ(seen.text.find("Chunk") != std::string::npos, hasChunks) << seen.text;
    }
}

TEST_F(WireTest, TsharkFindsNothingMalformed)
{
    Capture capture("");
    auto const camera = Serve(Grey);
    MakeSmall(*camera);
    Set(*camera, "WirePacketLoss", "1");
    EXPECT_EQ(RunShell("arv-tool-0.8 -a 127.0.0.1 values").code, 0);
    Stream(*camera, "--chunks=Timestamp");
    Stream(*camera, "--features GevGVSPExtendedIDMode=On --multipart");
    std::uint64_t const packets = camera->GetStatus().packets;
    capture.Stop();
    auto const count = [&](char const *protocol, std::string const &filter) {
        return std::stoul(capture.Read(protocol, filter, "| wc -l"));
    };
    EXPECT_EQ(count("gvcp", "_ws.malformed"), 0u);
    EXPECT_EQ(count("gvsp", "_ws.malformed"), 0u);
    EXPECT_GT(count("gvcp", "gvcp.cmd.command == 0x0080"), 10u); // READREG_CMD
    EXPECT_GT(count("gvcp", "gvcp.cmd.command == 0x0040"), 0u);  // PACKETRESEND_CMD
    EXPECT_GT(count("gvsp", "gvsp.format == 1"), 10u);           // leaders
    EXPECT_GT(count("gvsp", "gvsp.payloadtype == 0x4001"), 0u);  // with chunk data
    EXPECT_GT(count("gvsp", "gvsp.payloadtype == 0x000a"), 0u);  // multi-part
    EXPECT_GT(count("gvsp", "gvsp"), std::min<std::size_t>(packets / 2, 1000));
}

TEST_F(WireTest, DiesAndComesBackElsewhere)
{
    auto const camera = Serve(Grey);
    Open(FindAt(m_system, "127.0.0.1"));
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", 640), 0);
    ExpectLoss([&] { Set(*camera, "WireSilence", "All"); });
    Close();
    Set(*camera, "WireSilence", "Off");
    Open(FindAt(m_system, "127.0.0.1"));
    ExpectLoss([&] { camera->Die(); });
    Close();
    EXPECT_EQ(m_system->FindDeviceByAddress("127.0.0.1", nullptr), nullptr);
    EXPECT_FALSE(camera->GetStatus().alive);
    for (bool const reset : {false, true}) {
        char const *const address = reset ? "127.0.0.3" : "127.0.0.2";
        camera->Return(address, reset);
        Open(FindAt(m_system, address));
        EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), reset ? 2048 : 640);
        {
            RunningCamera running(m_device);
            bool whole = false; // a busy computer loses packets
            for (int i = 0; i < 100 && !whole; ++i)
                running.ForFrames(1, [&whole](TovCam::Buffer &buffer) { whole = !buffer.IsIncomplete(); });
            EXPECT_TRUE(whole);
        }
        Close();
        camera->Die();
    }
    // By itself, and from within.
    Set(*camera, "WireDownTime", "100");
    Set(*camera, "WireReturnAddress", "127.0.0.4");
    camera->Return();
    Set(*camera, "WireDie", "");
    Open(FindAt(m_system, "127.0.0.4"));
    EXPECT_NE(camera->GetStatus().controller, "");
    camera->Return(); // a restart
    EXPECT_EQ(camera->GetStatus().controller, "");
}

TEST_F(WireTest, OneHostHasControlUntilItFallsSilent)
{
    auto const camera = Serve(Grey);
    Client first("arv-camera-test-0.8");
    ASSERT_TRUE(Eventually([&] { return camera->GetStatus().frames > 0; }));
    EXPECT_NE(camera->GetStatus().controller, "");
    std::int32_t error = 0;
    TovCam::DeviceInfo *const info = FindAt(m_system, "127.0.0.1");
    TovCam::OpenFailure const inUse{TovCam::OpenRefusal::InUse, false, "127.0.0.1", {}};
    EXPECT_EQ(TovCam_CreateDevice(info, 2, &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(info->GetOpenFailure(), inUse);
    // The search asks as well; a busy computer may lose its questions.
    EXPECT_TRUE(Eventually([&] { return m_system->UpdateDeviceList() == 0 && info->GetOpenFailure() == inUse; }));
    EXPECT_NE(std::string(info->GetHostInformation()).find("\nIn use by:      127.0.0.1\n"), std::string::npos);
    std::string why;
    first.Stop(SIGKILL);
    EXPECT_TRUE(Eventually([&] { return camera->GetStatus().controller.empty(); }));
    EXPECT_EQ(camera->GetFeature("TLParamsLocked", why).has_value(), true) << why;
    Open(FindAt(m_system, "127.0.0.1"));
    RunningCamera(m_device).ForFrames(3, [](auto &) {});
}

// What no client of ours uses, by hand.
TEST_F(WireTest, TakesActionsAndAddressesAndTellsEvents)
{
    auto const camera = Serve(Grey);
    MakeSmall(*camera);
    ControlChannel control("127.0.0.1");
    ASSERT_EQ(control.Open(), 0);
    // Actions go out by one socket, events come to the other.
    int const asker = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0),
              host = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_TRUE(ConnectSocket(asker, {INADDR_LOOPBACK, gvcp::Port}));
    ASSERT_TRUE(BindSocket(host, {INADDR_LOOPBACK, 0}));
    timeval const patience{PatienceMs / 1000, 0};
    for (int const one : {asker, host})
        setsockopt(one, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Set(*camera, {{"GevMCDA", "127.0.0.1"},
                  {"GevMCPHostPort", std::to_string(AddressOfSocket(host).port)},
                  {"GevMCRC", "3"},
                  {"GevMCTT", "100"},
                  {"EventSelector", "ExposureEnd"},
                  {"EventNotification", "On"},
                  {"TriggerMode", "On"},
                  {"TriggerSource", "Action1"},
                  {"ActionDeviceKey", "7"},
                  {"ActionSelector", "1"},
                  {"ActionGroupKey", "8"},
                  {"ActionGroupMask", "1"},
                  {"AcquisitionStart", ""}});
    std::array<std::uint8_t, 20> action{0x42, 0x01, 0x01, 0x00, 0, 12, 0, 4, 0, 0, 0, 7, 0, 0, 0, 8, 0, 0, 0, 1};
    std::array<std::uint8_t, 600> packet;
    for (std::uint64_t frame = 1; frame <= 3; ++frame) {
        ++action[7];
        send(asker, action.data(), action.size(), 0);
        ASSERT_EQ(recv(asker, packet.data(), packet.size(), 0), 8);
        EXPECT_EQ(LoadBig32(packet.data()), std::uint32_t{gvcp::ACTION_ACK}); // and its status is success
        for (std::uint64_t told = 0; told != frame;) {                        // the one before may be told again
            SocketAddress from;
            ssize_t const size = ReceiveDatagram(host, packet, from);
            ASSERT_GT(size, 0) << frame;
            std::span const bytes(packet.data(), static_cast<std::size_t>(size));
            std::optional<gvcp::Header> const header = gvcp::ReadHeader(bytes);
            ASSERT_TRUE(header && header->code == gvcp::EVENT_CMD);
            told = LoadBig16(&gvcp::BodyOf(bytes, *header)[gvcp::EventRecord::BlockId]);
            std::array<std::uint8_t, gvcp::HeaderSize> acknowledge;
            gvcp::WriteHeader(acknowledge, {gvcp::GEV_STATUS_SUCCESS, gvcp::EVENT_ACK, 0, header->id});
            SendDatagram(host, acknowledge, from);
        }
    }
    // A camera is sent elsewhere by its hardware address while nobody has control.
    control.Close();
    std::array<std::uint8_t, gvcp::HeaderSize + gvcp::ForceIp::Size> force{0x42, 0x01, 0, 4, 0, 56, 1, 5};
    std::uint8_t *const body = force.data() + gvcp::HeaderSize;
    StoreBig16(body + gvcp::ForceIp::MacAddressHigh, 0x0254);
    StoreBig32(body + gvcp::ForceIp::MacAddressLow, INADDR_LOOPBACK);
    StoreBig32(body + gvcp::ForceIp::IpAddress, INADDR_LOOPBACK + 6);
    StoreBig32(body + gvcp::ForceIp::SubnetMask, 0xFF000000);
    send(asker, force.data(), force.size(), 0);
    EXPECT_TRUE(Eventually([&] { return camera->GetStatus().address == "127.0.0.7"; }));
    EXPECT_EQ(RunShell("arv-tool-0.8 -a 127.0.0.7 control Width").code, 0);
    close(asker);
    close(host);
}

} // namespace
