// The cameras on the network before foreign clients and our own. Runs in a network namespace of its own.
#include "wirecamera.h"

#include "contract.h"

#include "aravis/gvcpclient.h"
#include "capture/capturehelper.h"
#include "gige/packetring.h"
#include "protocol/gigevision.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <netinet/in.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

// Before any system is made.
bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

struct Outcome
{
    int code;
    std::string text; // all that was printed

    // The number behind `name`, which is to stand there.
    double Number(std::string const &name) const
    {
        double number;
        std::size_t const at = text.find('\n' + name);
        if (at != std::string::npos && std::sscanf(text.c_str() + at + 1 + name.size(), " = %lf", &number) == 1)
            return number;
        ADD_FAILURE() << "no " << name << " in " << text;
        return -1;
    }
};

Outcome RunShell(std::string const &command)
{
    FILE *const pipe = popen((command + " 2>&1").c_str(), "r");
    Outcome outcome{};
    std::array<char, 4096> part;
    while (std::size_t const got = fread(part.data(), 1, part.size(), pipe))
        outcome.text.append(part.data(), got);
    int const status = pclose(pipe);
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// A client that runs until it is told to end, and what it printed then.
class Client
{
public:
    explicit Client(std::string const &command)
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        m_process = fork();
        if (m_process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        m_output = ends[0];
    }
    ~Client()
    {
        if (m_process > 0)
            Stop(SIGKILL);
    }
    Client(Client const &) = delete;
    Client &operator=(Client const &) = delete;

    Outcome Stop(int signal = SIGINT)
    {
        kill(m_process, signal);
        Outcome outcome{};
        std::array<char, 4096> part;
        for (ssize_t got; (got = read(m_output, part.data(), part.size())) > 0;)
            outcome.text.append(part.data(), static_cast<std::size_t>(got));
        int status = 0;
        waitpid(m_process, &status, 0);
        close(m_output);
        m_process = -1;
        outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return outcome;
    }

private:
    pid_t m_process = -1;
    int m_output = -1;
};

std::unique_ptr<WireCamera> Serve(std::string const &model, std::string const &address = "127.0.0.1")
{
    for (SimModel const *known : GetWireModels()) {
        if (model == known->name)
            return std::make_unique<WireCamera>(WireCameraOptions{known, address, "W" + model.substr(3), {}});
    }
    throw std::runtime_error("no model " + model);
}

void Set(WireCamera &camera, std::string const &name, std::string const &value)
{
    std::string why;
    EXPECT_TRUE(camera.SetFeature(name, value, why)) << why;
}

// Frames that a busy computer keeps up with.
void MakeSmall(WireCamera &camera)
{
    Set(camera, "Width", "320");
    Set(camera, "Height", "200");
    Set(camera, "ExposureTime", "1000");
    Set(camera, "AcquisitionFrameRateEnable", "1");
    Set(camera, "AcquisitionFrameRate", "60");
}

TovCam::DeviceInfo *FindAt(TovCam::System *system, char const *address)
{
    TovCam::DeviceInfo *info = nullptr;
    EXPECT_TRUE(Eventually([&] { return (info = system->FindDeviceByAddress(address, nullptr)) != nullptr; }));
    return info;
}

std::unique_ptr<WireCamera> s_contractCamera;

template<char const *Model>
TovCam::DeviceInfo *FindFresh(TovCam::System *system)
{
    s_contractCamera.reset();
    s_contractCamera = Serve(Model);
    return FindAt(system, "127.0.0.1");
}

constexpr char Grey[] = "VG-2048M", Colour[] = "VG-1280C";

INSTANTIATE_TEST_SUITE_P(Wire, CameraContract,
                         testing::Values(ContractCamera{"Grey", FindFresh<Grey>},
                                         ContractCamera{"Colour", FindFresh<Colour>}),
                         testing::PrintToStringParamName());

class WireTest : public CameraTest
{
protected:
    WireTest()
    {
        s_contractCamera.reset();
    }
};

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

// What arv-camera-test counts while the camera sends so many frames.
Outcome Stream(WireCamera &camera, std::string const &options, std::uint64_t frames = 20)
{
    std::uint64_t const before = camera.GetStatus().frames;
    Client client("arv-camera-test-0.8 " + options);
    EXPECT_TRUE(Eventually([&] { return camera.GetStatus().frames >= before + frames; })) << options;
    return client.Stop();
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

TEST_F(WireTest, ArvCameraTestSeesTheFaults)
{
    struct Row
    {
        std::vector<std::pair<char const *, char const *>> faults;
        std::vector<char const *> counted, uncounted;
    };
    Row const rows[] = {
        {{{"WirePacketLoss", "2"}}, {"n_resend_requests", "n_resent_packets", "n_completed_buffers"}, {}},
        {{{"WirePacketLoss", "2"}, {"WireIgnoreResend", "1"}},
         {"n_resend_requests", "n_missing_packets", "n_failures"},
         {"n_resent_packets"}},
        {{{"WireLostPackets", "3-5,last"}, {"WireLostEvery", "2"}}, {"n_resent_packets", "n_completed_buffers"}, {}},
        {{{"WireDuplicate", "5"}},
         {"n_duplicated_packets", "n_completed_buffers"},
         {"n_failures", "n_missing_packets"}},
        {{{"SimMissingEvery", "3"}}, {"n_missing_frames", "n_completed_buffers"}, {"n_missing_packets"}},
        {{{"SimIncompleteEvery", "2"}}, {"n_missing_packets", "n_failures", "n_completed_buffers"}, {}},
    };
    for (Row const &row : rows) {
        auto const camera = Serve(Grey);
        MakeSmall(*camera);
        for (auto const &[fault, value] : row.faults)
            Set(*camera, fault, value);
        Outcome const seen = Stream(*camera, "", 60);
        for (char const *name : row.counted)
            EXPECT_GT(seen.Number(name), 0) << name << ' ' << row.faults[0].first << '\n' << seen.text;
        for (char const *name : row.uncounted)
            EXPECT_EQ(seen.Number(name), 0) << name << ' ' << row.faults[0].first << '\n' << seen.text;
    }
}

TEST_F(WireTest, TsharkFindsNothingMalformed)
{
    std::string const file = testing::TempDir() + "/wire_" + std::to_string(getpid()) + ".pcapng";
    Client shark("tshark -q -i lo -f udp -w " + file);
    auto const size = [&file] {
        struct stat status;
        return stat(file.c_str(), &status) == 0 ? status.st_size : 0;
    };
    // Something has to be on the way for a capture to be seen to run.
    ASSERT_TRUE(Eventually([&] {
        GvcpClient("127.0.0.1").GetLocalAddress();
        GvcpIdentity nobody;
        GvcpClient("127.0.0.9").Discover(nobody);
        return size() > 1000;
    }));
    auto const camera = Serve(Grey);
    MakeSmall(*camera);
    Set(*camera, "WirePacketLoss", "1");
    EXPECT_EQ(RunShell("arv-tool-0.8 -a 127.0.0.1 values").code, 0);
    Stream(*camera, "--chunks=Timestamp");
    Stream(*camera, "--features GevGVSPExtendedIDMode=On --multipart");
    std::uint64_t const packets = camera->GetStatus().packets;
    off_t last = 0;
    EXPECT_TRUE(Eventually([&] { return std::exchange(last, size()) == size() && last > 1000; }));
    shark.Stop();
    // Who streams sends from a port that no other has: everything but the control channel.
    std::string const read = "tshark -r " + file + " --disable-protocol tpkt ";
    Outcome const ports = RunShell(read + "-Y 'udp.srcport != 3956 && udp.dstport != 3956 && ip.src == 127.0.0.1 && "
                                          "udp.length > 500' -T fields -e udp.srcport | sort -u");
    std::string decode;
    std::istringstream lines(ports.text);
    for (std::string port; std::getline(lines, port);) {
        if (std::isdigit(static_cast<unsigned char>(port[0])) != 0)
            decode += "-d udp.port==" + port + ",gvsp ";
    }
    ASSERT_FALSE(decode.empty()) << ports.text;
    auto const count = [&](std::string const &filter) {
        Outcome const seen = RunShell(read + decode + "-Y '" + filter + "' 2>/dev/null | wc -l");
        return std::stoul(seen.text);
    };
    EXPECT_EQ(count("_ws.malformed && (gvcp || gvsp)"), 0u);
    EXPECT_GT(count("gvcp.cmd.command == 0x0080"), 10u); // READREG_CMD
    EXPECT_GT(count("gvcp.cmd.command == 0x0040"), 0u);  // PACKETRESEND_CMD
    EXPECT_GT(count("gvsp.format == 1"), 10u);           // leaders
    EXPECT_GT(count("gvsp.payloadtype == 0x4001"), 0u);  // with chunk data
    EXPECT_GT(count("gvsp.payloadtype == 0x000a"), 0u);  // multi-part
    EXPECT_GT(count("gvsp"), std::min<std::size_t>(packets / 2, 1000));
    std::remove(file.c_str());
}

TEST_F(WireTest, DiesAndComesBackElsewhere)
{
    auto const camera = Serve(Grey);
    Open(FindAt(m_system, "127.0.0.1"));
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", 640), 0);
    ExpectLoss([&] { camera->Die(); });
    Close();
    EXPECT_EQ(m_system->FindDeviceByAddress("127.0.0.1", nullptr), nullptr);
    EXPECT_FALSE(camera->GetStatus().alive);
    for (bool const reset : {false, true}) {
        char const *const address = reset ? "127.0.0.3" : "127.0.0.2";
        camera->Return(address, reset);
        Open(FindAt(m_system, address));
        EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), reset ? 2048 : 640);
        RunningCamera(m_device).ForFrames(3, [](TovCam::Buffer &buffer) { EXPECT_FALSE(buffer.IsIncomplete()); });
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
    EXPECT_EQ(TovCam_CreateDevice(FindAt(m_system, "127.0.0.1"), 2, &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_ACCESS);
    std::string why;
    first.Stop(SIGKILL);
    EXPECT_TRUE(Eventually([&] { return camera->GetStatus().controller.empty(); }));
    EXPECT_EQ(camera->GetFeature("TLParamsLocked", why).has_value(), true) << why;
    Open(FindAt(m_system, "127.0.0.1"));
    RunningCamera(m_device).ForFrames(3, [](auto &) {});
}

// What no client of ours uses: a host made by hand.
TEST_F(WireTest, TakesActionsAndAddressesAndTellsEvents)
{
    auto const camera = Serve(Grey);
    MakeSmall(*camera);
    int const host = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{}, control{};
    own.sin_family = control.sin_family = AF_INET;
    own.sin_addr.s_addr = control.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    control.sin_port = htons(gvcp::Port);
    socklen_t length = sizeof own;
    ASSERT_EQ(bind(host, reinterpret_cast<sockaddr *>(&own), sizeof own), 0);
    ASSERT_EQ(getsockname(host, reinterpret_cast<sockaddr *>(&own), &length), 0);
    for (auto const &[feature, value] : std::initializer_list<std::pair<char const *, std::string>>{
             {"GevHeartbeatTimeout", "600000"},
             {"GevMCDA", "127.0.0.1"},
             {"GevMCPHostPort", std::to_string(ntohs(own.sin_port))},
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
             {"AcquisitionStart", ""}})
        Set(*camera, feature, value);
    std::array<std::uint8_t, 20> action{0x42, 0x01, 0x01, 0x00, 0, 12, 0, 5, 0, 0, 0, 7, 0, 0, 0, 8, 0, 0, 0, 1};
    std::array<std::uint8_t, 600> packet;
    timeval const patience{PatienceMs / 1000, 0};
    setsockopt(host, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    constexpr std::array<std::uint8_t, 16> TakeControl{0x42, 0x01, 0, 0x82, 0, 8, 0, 4, 0, 0, 0x0A, 0, 0, 0, 0, 2};
    sendto(host, TakeControl.data(), TakeControl.size(), 0, reinterpret_cast<sockaddr *>(&control), sizeof control);
    ASSERT_GT(recv(host, packet.data(), packet.size(), 0), 0);
    int actions = 0, events = 0;
    std::uint64_t lastEvent = 0;
    while (events < 3) {
        if (actions == events) {
            action[7] = static_cast<std::uint8_t>(5 + actions);
            sendto(host, action.data(), action.size(), 0, reinterpret_cast<sockaddr *>(&control), sizeof control);
        }
        sockaddr_in from{};
        length = sizeof from;
        ssize_t const size =
            recvfrom(host, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&from), &length);
        ASSERT_GT(size, 0) << actions << ' ' << events;
        std::span const bytes(packet.data(), static_cast<std::size_t>(size));
        std::optional<gvcp::Header> const header = gvcp::ReadHeader(bytes);
        ASSERT_TRUE(header);
        if (header->code == gvcp::ACTION_ACK) {
            EXPECT_EQ(header->lead, gvcp::GEV_STATUS_SUCCESS);
            ++actions;
            continue;
        }
        ASSERT_EQ(header->code, gvcp::EVENT_CMD);
        std::uint64_t const block = LoadBig16(&gvcp::BodyOf(bytes, *header)[gvcp::EventRecord::BlockId]);
        events += block != lastEvent; // not one that is told again
        lastEvent = block;
        std::array<std::uint8_t, gvcp::HeaderSize> acknowledge;
        gvcp::WriteHeader(acknowledge, {gvcp::GEV_STATUS_SUCCESS, gvcp::EVENT_ACK, 0, header->id});
        sendto(host, acknowledge.data(), acknowledge.size(), 0, reinterpret_cast<sockaddr *>(&from), sizeof from);
    }
    EXPECT_EQ(lastEvent, 3u);
    // A camera is sent elsewhere by its hardware address while nobody has control.
    constexpr std::array<std::uint8_t, 16> GiveBack{0x42, 0x01, 0, 0x82, 0, 8, 1, 4, 0, 0, 0x0A, 0, 0, 0, 0, 0};
    sendto(host, GiveBack.data(), GiveBack.size(), 0, reinterpret_cast<sockaddr *>(&control), sizeof control);
    std::array<std::uint8_t, gvcp::HeaderSize + gvcp::ForceIp::Size> force{0x42, 0x01, 0, 4, 0, 56, 1, 5};
    std::uint8_t *const body = force.data() + gvcp::HeaderSize;
    StoreBig16(body + gvcp::ForceIp::MacAddressHigh, 0x0254);
    StoreBig32(body + gvcp::ForceIp::MacAddressLow, INADDR_LOOPBACK);
    StoreBig32(body + gvcp::ForceIp::IpAddress, INADDR_LOOPBACK + 6);
    StoreBig32(body + gvcp::ForceIp::SubnetMask, 0xFF000000);
    sendto(host, force.data(), force.size(), 0, reinterpret_cast<sockaddr *>(&control), sizeof control);
    EXPECT_TRUE(Eventually([&] { return camera->GetStatus().address == "127.0.0.7"; }));
    EXPECT_EQ(RunShell("arv-tool-0.8 -a 127.0.0.7 control Width").code, 0);
    close(host);
}

// The program's own eyes: what it tells of frames and of the camera.
TEST_F(WireTest, FaultsShowAsWhatTheyAre)
{
    enum Look { Whole = 0, Incomplete = 1, Gaps = 2 };
    struct Row
    {
        std::vector<std::pair<char const *, char const *>> faults;
        int looks;
    };
    Row const rows[] = {
        {{{"WirePacketLoss", "1"}, {"WireIgnoreResend", "1"}}, Incomplete},
        {{{"WireLostPackets", "5"}, {"WireLostEvery", "3"}, {"WireIgnoreResend", "1"}}, Incomplete},
        {{{"WireTruncate", "1"}, {"WireIgnoreResend", "1"}}, Incomplete},
        {{{"SimMissingEvery", "3"}}, Gaps},
        {{{"WireDuplicate", "5"}}, Whole},
        {{{"WireReorder", "5"}, {"WireReorderDistance", "3"}}, Whole},
        {{{"WireDelay", "50"}}, Whole},
        {{{"WireAnswerDelay", "100"}}, Whole},
        {{{"WireAnswerWrongId", "20"}}, Whole},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.faults[0].first);
        auto const camera = Serve(Grey);
        MakeSmall(*camera);
        Open(FindAt(m_system, "127.0.0.1"));
        for (auto const &[fault, value] : row.faults)
            Set(*camera, fault, value);
        int incomplete = 0, gaps = 0;
        std::uint64_t last = 0;
        auto const look = [&](TovCam::Buffer &buffer) {
            incomplete += buffer.IsIncomplete();
            gaps += last != 0 && buffer.GetFrameID() > last + 1;
            last = buffer.GetFrameID();
        };
        RunningCamera(m_device, 32).ForFrames(40, look);
        // Some 14 are expected; a busy computer may lose packets and frames of its own.
        EXPECT_EQ(incomplete > 3, row.looks == Incomplete) << incomplete;
        EXPECT_TRUE(gaps > 0 || row.looks != Gaps);
        Close();
    }
}

TEST_F(WireTest, FramesOfEveryFormatComeWhole)
{
    for (char const *model : {Grey, Colour}) {
        auto const camera = Serve(model);
        MakeSmall(*camera);
        Open(FindAt(m_system, "127.0.0.1"));
        for (TovCam::FeatureEntry const &entry : m_nodes->GetFeature(FindFeature(m_nodes, "PixelFormat"))->entries) {
            ASSERT_EQ(m_nodes->SetEnumValueStr("PixelFormat", entry.name.c_str()), 0);
            TovPixelTypeInfo const *const info = TovGetPixelTypeInfoByPfnc(static_cast<std::uint32_t>(entry.value));
            ASSERT_NE(info, nullptr) << entry.name;
            RunningCamera(m_device).ForFrames(2, [&](TovCam::Buffer &buffer) {
                EXPECT_FALSE(buffer.IsIncomplete()) << entry.name;
                EXPECT_EQ(buffer.GetImage()->pixelType, info->pixelType) << entry.name;
            });
        }
        Close();
    }
}

// The ring beside the stream's own receiver: frames that both have whole are the same. On loopback a packet goes out
// and comes in; it is seen once.
TEST_F(WireTest, APacketRingSeesTheSameFrames)
{
    using Bytes = std::vector<std::uint8_t>;
    auto const camera = Serve(Grey);
    MakeSmall(*camera);
    Open(FindAt(m_system, "127.0.0.1"));
    RunningCamera running(m_device);
    std::uint32_t port = 0;
    ASSERT_TRUE(GvcpClient("127.0.0.1").ReadRegister(gvcp::bootstrap::StreamChannelPort, port));
    std::int32_t status;
    int const capture = RequestCaptureSocket(
        {CaptureStream, "lo", INADDR_LOOPBACK, INADDR_LOOPBACK, static_cast<std::uint16_t>(port)}, &status, nullptr);
    ASSERT_GE(capture, 0);
    std::unique_ptr<PacketRing> const ring = PacketRing::Make(capture);
    ASSERT_NE(ring, nullptr);
    std::map<std::uint64_t, Bytes> heard, received; // by frame
    int same = 0;
    auto const take = [&](RingDatagram const &datagram) {
        gvsp::Header const header = gvsp::ReadHeader(datagram.payload).value();
        if (header.format == gvsp::DataLeader)
            heard[header.blockId];
        else if (header.format == gvsp::DataPayload && heard.contains(header.blockId))
            heard[header.blockId].insert(heard[header.blockId].end(), datagram.payload.begin() + gvsp::HeaderSize,
                                         datagram.payload.end());
        return true;
    };
    EXPECT_TRUE(Eventually([&] {
        running.ForFrames(1, [&](TovCam::Buffer &buffer) {
            auto const *const pixels = buffer.GetImage()->imageData;
            if (!buffer.IsIncomplete())
                received[buffer.GetFrameID()].assign(pixels, pixels + 320 * 200);
        });
        ring->ReadDatagrams(take);
        same = 0;
        for (auto const &[id, pixels] : received)
            same += heard.contains(id) && heard[id] == pixels;
        return same >= 20;
    })) << same
        << " of " << received.size() << ", " << heard.size();
    EXPECT_EQ(ring->GetDropped() + ring->GetFragments() + ring->GetMalformed(), 0u);
}

// Whatever a description does to its reader.
TEST_F(WireTest, BadDescriptionsAreRefused)
{
    for (char const *kind : {"Truncated", "NotXml", "Empty", "Entities", "Nested", "Circle", "BadZip", "ZipBomb",
                             "HugeUrl", "FileUrl", "OutsideUrl"}) {
        auto const camera = Serve(Grey);
        Set(*camera, "WireDescription", kind);
        m_device = TovCam_CreateDevice(FindAt(m_system, "127.0.0.1"), 2, nullptr);
        ASSERT_NE(m_device, nullptr) << kind;
        std::int32_t error = 0;
        EXPECT_EQ(m_device->GetCameraParameters(&error), nullptr) << kind;
        EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_TREE) << kind;
        Close();
    }
}

} // namespace
