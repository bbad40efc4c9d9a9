// GigE cameras' frames as GigeStream brings them, from cameras of ours on the network. Runs in a network namespace of
// its own.
#include "gige/gigestream.h"

#include "wireclients.h"

#include "gige/chunkdata.h"
#include "gige/controlchannel.h"
#include "gige/description.h"
#include "gige/openwatch.h"
#include "gige/packetsize.h"
#include "gige/ringsource.h"
#include "gige/standardnodes.h"
#include "registerdevice.h"
#include "sim/simscene.h"
#include "wire/wireregisters.h"

#include <functional>
#include <netinet/in.h>

using namespace std::chrono_literals;
using namespace gvcp::bootstrap;

namespace {

// The camera's control channel, with a look at what is written.
class Control final : public StreamControl, public RegisterPort
{
public:
    explicit Control(std::string const &address) : m_channel(address)
    {
        EXPECT_TRUE(Eventually([this] { return m_channel.Open() == TOV_CAM_ERR_OK; }));
        OpenWatch watch(nullptr);
        EXPECT_EQ(DownloadDescription(m_channel, watch, m_xml), 0);
    }
    ArvDevice *NewDevice()
    {
        ArvDevice *const made = NewRegisterDevice(m_xml);
        AddStandardNodes(arv_device_get_genicam(made));
        SetRegisterPort(made, this);
        return made;
    }
    std::int32_t ReadRegister(std::uint32_t address, std::uint32_t &value) override
    {
        return m_channel.ReadRegister(address, value);
    }
    std::int32_t WriteRegister(std::uint32_t address, std::uint32_t value) override
    {
        if (address == StreamChannelPacketSize && !hasTestPackets)
            value &= ~std::uint32_t{gvcp::packetsize::FireTestPacket};
        written.emplace_back(address, value);
        return m_channel.WriteRegister(address, value);
    }
    void RequestPackets(PacketRequest const &request) override
    {
        m_channel.RequestPackets(request);
    }
    std::uint32_t GetCameraAddress() const override
    {
        return m_channel.GetCameraAddress();
    }
    std::uint32_t GetHostAddress() const override
    {
        return m_channel.GetHostAddress();
    }
    bool Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **) override
    {
        return m_channel.ReadMemory(static_cast<std::uint32_t>(address), {out, size}) == TOV_CAM_ERR_OK;
    }
    bool Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **) override
    {
        return m_channel.WriteMemory(static_cast<std::uint32_t>(address), {bytes, size}) == TOV_CAM_ERR_OK;
    }
    bool IsBigEndian() const override
    {
        return true;
    }

    std::vector<std::pair<std::uint32_t, std::uint32_t>> written;
    bool hasTestPackets = true;

private:
    ControlChannel m_channel;
    std::string m_xml;
};

// The host's side of an open camera.
class Host
{
public:
    explicit Host(std::string const &address = "127.0.0.1")
        : control(std::make_shared<Control>(address)),
          device(control->NewDevice()),
          stream(device, access, reachability, control)
    {
        stream.SetSource([this](std::uint16_t port) {
            return OpenRingSource(control->GetCameraAddress(), control->GetHostAddress(), port);
        });
    }
    ~Host()
    {
        stream.Close();
        SetRegisterPort(device, nullptr);
        g_object_unref(device);
    }
    void Start(std::uint32_t buffers, std::int64_t frames = -1)
    {
        EXPECT_EQ(stream.AllocBufferQueue(nullptr, buffers), 0);
        EXPECT_EQ(stream.StartAcquisition(frames, 0), 0);
        arv_device_execute_command(device, "AcquisitionStart", nullptr);
    }
    void Stop()
    {
        arv_device_execute_command(device, "AcquisitionStop", nullptr);
        EXPECT_EQ(stream.StopAcquisition(0), 0);
        EXPECT_EQ(stream.ReleaseBufferQueue(), 0);
    }
    void ForFrames(int count, std::function<void(TovCam::Buffer &)> const &look)
    {
        for (int i = 0; i < count; ++i) {
            TovCam::Buffer *const buffer = stream.GetBuffer(Generous, nullptr);
            ASSERT_NE(buffer, nullptr);
            look(*buffer);
            EXPECT_EQ(stream.QueueBuffer(buffer), 0);
        }
    }
    // Every datagram and every frame is accounted for.
    void ExpectSums() const
    {
        StreamStatistics const &s = stream.GetStatistics();
        EXPECT_EQ(s.received.Get(), s.packets.Get() + s.duplicate.Get() + s.late.Get() + s.foreign.Get() +
                                        s.malformed.Get() + s.refused.Get() + s.ignored.Get());
    }

    std::recursive_mutex access;
    std::shared_ptr<Control> const control;
    ArvDevice *const device;
    Reachability reachability;
    GigeStream stream;
};

// A camera whose every pixel can be foretold: a ramp that moves from frame to frame.
class Camera
{
public:
    explicit Camera(std::string const &name, Features const &features = {}, std::string const &address = "127.0.0.1")
        : model(FindModel(name)),
          m_served(Serve(name, address)),
          m_scene(model.sensorWidth, model.sensorHeight, model.colour)
    {
        MakeSmall(wire);
        Set(wire, {{"AcquisitionFrameRate", "100"},
                   {"TestPattern", "GreyHorizontalRampMoving"},
                   {"GevHeartbeatTimeout", "600000"}});
        Set(wire, features);
    }
    bool IsExact(TovCam::Buffer &buffer)
    {
        _TovImage const &image = *buffer.GetImage();
        SimFormat format;
        format.pixelType = image.pixelType;
        format.width = image.width;
        format.height = image.height;
        SimLook look;
        look.pattern = SimPattern::MovingRamp;
        m_scene.Prepare(format, look);
        std::vector<std::uint8_t> pixels(format.Payload());
        m_scene.Draw(model.firstFrameID + buffer.GetFrameID() - 1, 0, pixels.data());
        return image.imageSize == pixels.size() && std::equal(pixels.begin(), pixels.end(), image.imageData);
    }

    SimModel const &model;

private:
    std::unique_ptr<WireCamera> const m_served;
    SimScene m_scene;

public:
    WireCamera &wire = *m_served;
};

TEST(GigeStreamTest, FramesOfEveryKindComeExact)
{
    struct Row
    {
        char const *model, *format, *packetSize;
        Features features;
    };
    Features const extended{{"GevGVSPExtendedIDMode", "On"}};
    Features const chunks{{"ChunkModeActive", "1"}, {"ChunkSelector", "Timestamp"}, {"ChunkEnable", "1"}};
    Features const small{{"Width", "64"}, {"Height", "32"}, {"GevSCCFGAllInTransmission", "1"}};
    auto const with = [](Features a, Features const &b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    Features const parts = with(extended, {{"GevSCCFGMultiPart", "1"}});
    std::vector<Row> rows;
    for (char const *format :
         {"Mono8", "Mono10", "Mono10p", "Mono10Packed", "Mono12", "Mono12p", "Mono12Packed", "Mono16"})
        rows.push_back({Grey, format, "1500", {}});
    for (char const *format : {"BayerRG8", "BayerRG12", "BayerRG12p", "RGB8"})
        rows.push_back({Colour, format, "8192", {}});
    for (char const *packetSize : {"576", "1500", "9000"}) {
        for (Features const &features : {Features(), extended, chunks, parts, with(extended, chunks),
                                         with(parts, chunks), small, with(small, chunks)})
            rows.push_back({Grey, "Mono12", packetSize, features});
    }
    for (Row const &row : rows) {
        Camera camera(row.model, {{"PixelFormat", row.format}, {"GevSCPSPacketSize", row.packetSize}});
        Set(camera.wire, row.features);
        bool const hasChunks = std::count(row.features.begin(), row.features.end(), chunks[0]) > 0;
        Host host;
        for (bool const byRing : {false, true}) {
            SCOPED_TRACE(std::string(row.model) + ' ' + row.format + ' ' + row.packetSize + ' ' +
                         (row.features.empty() ? "" : row.features.back().first) + std::to_string(row.features.size()) +
                         (byRing ? " by the ring" : " by the socket"));
            PermitRingSource(byRing);
            host.control->written.clear();
            host.Start(8);
            std::uint64_t last = 0;
            host.ForFrames(10, [&](TovCam::Buffer &buffer) {
                EXPECT_FALSE(buffer.IsIncomplete());
                EXPECT_TRUE(camera.IsExact(buffer)) << buffer.GetFrameID();
                EXPECT_GT(buffer.GetFrameID(), last);
                EXPECT_GT(buffer.GetTimestamp(), 0u);
                last = buffer.GetFrameID();
                auto const chunk =
                    FindChunk(static_cast<StreamFrame &>(buffer).m_chunks, WireChunkId(WireChunk::Timestamp));
                ASSERT_EQ(chunk && chunk->size() == 8, hasChunks);
                EXPECT_TRUE(!hasChunks || LoadBig64(chunk->data()) == buffer.GetTimestamp());
            });
            host.Stop();
            host.ExpectSums();
            StreamStatistics const &s = host.stream.GetStatistics();
            EXPECT_EQ(s.malformed.Get() + s.foreign.Get() + s.duplicate.Get(), 0u);
            // The port last when it opens, and alone when it closes.
            auto const &written = host.control->written;
            ASSERT_EQ(written.size(), 3u);
            EXPECT_EQ(written[0], std::pair(StreamChannelDestinationAddress + 0u, INADDR_LOOPBACK + 0u));
            EXPECT_EQ(written[1].first, StreamChannelPort);
            EXPECT_EQ(written[2], std::pair(StreamChannelPort + 0u, 0u));
        }
    }
}

TEST(GigeStreamTest, FaultsAreMendedByAskingAgain)
{
    using Counter = StreamCounter StreamStatistics::*;
    using S = StreamStatistics;
    struct Row
    {
        Features faults;
        std::vector<Counter> counted;
    };
    std::vector<Row> const rows{
        {{{"WirePacketLoss", "2"}}, {&S::asked, &S::resent}},
        {{{"SimPacketLoss", "2"}}, {&S::asked, &S::resent}},
        {{{"WirePacketLoss", "1"}, {"WireLossBurst", "5"}}, {&S::asked, &S::resent}},
        {{{"WireLostPackets", "0,3-5,last"}, {"WireLostEvery", "2"}}, {&S::asked, &S::resent}},
        {{{"WireReorder", "5"}, {"WireReorderDistance", "3"}}, {}},
        {{{"WireDuplicate", "5"}}, {&S::duplicate}},
        {{{"WireTruncate", "2"}}, {&S::malformed, &S::resent}},
        {{{"WireWrongLength", "2"}}, {&S::malformed, &S::resent}},
        {{{"WireWrongPacketId", "2"}}, {&S::malformed, &S::resent}},
        {{{"WireWrongBlockId", "2"}}, {&S::malformed, &S::resent}},
        {{{"WireDelay", "50"}}, {}},
    };
    Features const ways[] = {{},
                             {{"GevGVSPExtendedIDMode", "On"}},
                             {{"GevGVSPExtendedIDMode", "On"},
                              {"GevSCCFGMultiPart", "1"},
                              {"ChunkModeActive", "1"},
                              {"ChunkSelector", "FrameID"},
                              {"ChunkEnable", "1"}}};
    for (Row const &row : rows) {
        for (Features const &way : ways) {
            for (bool const ignored : {false, true}) {
                SCOPED_TRACE(std::string(row.faults[0].first) + ' ' + std::to_string(way.size()) +
                             (ignored ? " ignored" : ""));
                Camera camera(Grey, {{"GevSCPSPacketSize", "1500"}});
                PermitRingSource(!ignored);
                Host host;
                Set(camera.wire, way);
                Set(camera.wire, row.faults);
                Set(camera.wire, "WireIgnoreResend", ignored ? "1" : "0");
                host.Start(32);
                int incomplete = 0;
                host.ForFrames(40, [&](TovCam::Buffer &buffer) {
                    incomplete += buffer.IsIncomplete();
                    EXPECT_TRUE(buffer.IsIncomplete() || camera.IsExact(buffer)) << buffer.GetFrameID();
                });
                host.Stop();
                host.ExpectSums();
                StreamStatistics const &s = host.stream.GetStatistics();
                bool const needsResends = std::count(row.counted.begin(), row.counted.end(), &S::resent) > 0;
                // A busy computer may be late for a few.
                if (!ignored || !needsResends)
                    EXPECT_LE(incomplete, 4);
                else
                    EXPECT_GE(incomplete, 10);
                for (Counter const counter : row.counted)
                    EXPECT_EQ((s.*counter).Get() > 0, !ignored || counter != &S::resent);
                EXPECT_GE(s.complete.Get() + s.incomplete.Get(), 40u);
            }
        }
    }
}

TEST(GigeStreamTest, EveryFrameIsAccountedFor)
{
    Camera camera(Grey, {{"WirePacketLoss", "0.5"}, {"SimMissingEvery", "7"}});
    Host host;
    EXPECT_EQ(host.stream.AllocBufferQueue(nullptr, 3), 0);
    EXPECT_EQ(host.stream.StartAcquisition(-1, 0), 0);
    arv_device_execute_command(host.device, "AcquisitionStart", nullptr);
    std::uint64_t first = 0, last = 0;
    host.ForFrames(60, [&](TovCam::Buffer &buffer) {
        first = first == 0 ? buffer.GetFrameID() : first;
        last = buffer.GetFrameID();
    });
    // Nobody takes the next ones.
    StreamStatistics const &s = host.stream.GetStatistics();
    EXPECT_TRUE(Eventually([&] { return s.lost.Get() >= 5; }));
    host.ForFrames(3, [&](TovCam::Buffer &buffer) { last = buffer.GetFrameID(); });
    arv_device_execute_command(host.device, "AcquisitionStop", nullptr);
    host.Stop();
    host.ExpectSums();
    EXPECT_GE(s.skipped.Get(), 8u);
    std::uint64_t const told = s.complete.Get() + s.incomplete.Get() + s.lost.Get() + s.aborted.Get() + s.skipped.Get();
    EXPECT_GE(told, last - first + 1);
    EXPECT_GE(camera.wire.GetStatus().frames + s.skipped.Get(), told);
}

TEST(PacketSizeTest, IsAsLargeAsTheWayCarries)
{
    struct Row
    {
        char const *address;
        int mtu; // of the way
        std::uint32_t adapterMtu, least, most;
        bool hasTestPackets;
    };
    for (Row const &row :
         {Row{"127.0.0.1", 65536, 1500, 8192, 8192, true}, Row{"10.9.8.7", 65536, 9000, 9000, 9000, true},
          Row{"10.9.8.7", 4000, 9000, 3960, 4000, true}, Row{"10.9.8.7", 1400, 1500, 1360, 1400, true},
          Row{"10.9.8.7", 4000, 0, 1500, 1500, true}, Row{"10.9.8.7", 4000, 9000, 1600, 1600, false}}) {
        SCOPED_TRACE(row.mtu);
        ASSERT_EQ(
            std::system(
                ("ip link set lo mtu " + std::to_string(row.mtu) + "; ip address replace 10.9.8.7/24 dev lo").c_str()),
            0);
        Camera camera(Grey, {{"GevSCPSPacketSize", "1600"}}, row.address);
        Host host(row.address);
        host.control->hasTestPackets = row.hasTestPackets;
        EXPECT_EQ(NegotiatePacketSize(*host.control, row.adapterMtu), 0);
        std::uint32_t size = 0, port = 1;
        EXPECT_EQ(host.control->ReadRegister(StreamChannelPacketSize, size), 0);
        EXPECT_EQ(host.control->ReadRegister(StreamChannelPort, port), 0);
        EXPECT_GE(size, row.least);
        EXPECT_LE(size, row.most);
        EXPECT_EQ(port, 0u);
        host.Start(8);
        host.ForFrames(2, [&](TovCam::Buffer &buffer) { EXPECT_TRUE(camera.IsExact(buffer)); });
        host.Stop();
    }
}

} // namespace
