// GigE cameras' frames as GigeStream brings them, from cameras of ours on the network. Runs in a network namespace of
// its own.
#include "gige/gigestream.h"

#include "wireclients.h"

#include "chunkdata.h"
#include "gige/controlchannel.h"
#include "gige/packetsize.h"
#include "gige/ringsource.h"
#include "sim/simscene.h"
#include "wire/wireregisters.h"

#include <cmath>

using namespace gvcp::bootstrap;

namespace {

class GigeStreamTest : public CameraTest
{
protected:
    void Open()
    {
        CameraTest::Open(FindAt(m_system));
    }
    StreamStatistics const &Statistics() const
    {
        return static_cast<GigeStream &>(*m_stream).GetStatistics();
    }
    // Every datagram is accounted for.
    void ExpectSums() const
    {
        StreamStatistics const &s = Statistics();
        EXPECT_EQ(s.received.Get(), s.packets.Get() + s.duplicate.Get() + s.late.Get() + s.foreign.Get() +
                                        s.malformed.Get() + s.refused.Get() + s.ignored.Get());
    }
};

// A camera whose every pixel can be foretold: a ramp that moves from frame to frame.
class Camera
{
public:
    explicit Camera(std::string const &name, Features const &features = {})
        : wire(Serve(name)),
          m_model(FindModel(name)),
          m_scene(m_model.sensorWidth, m_model.sensorHeight, m_model.colour)
    {
        MakeSmall(*wire);
        Set(*wire, {{"AcquisitionFrameRate", "100"},
                    {"TestPattern", "GreyHorizontalRampMoving"},
                    {"GevHeartbeatTimeout", "600000"}});
        Set(*wire, features);
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
        m_scene.Draw(m_model.firstFrameID + buffer.GetFrameID() - 1, 0, pixels.data());
        return image.imageSize == pixels.size() && std::equal(pixels.begin(), pixels.end(), image.imageData);
    }

    std::unique_ptr<WireCamera> const wire;

private:
    SimModel const &m_model;
    SimScene m_scene;
};

TEST_F(GigeStreamTest, FramesOfEveryKindComeExact)
{
    struct Row
    {
        char const *model, *format, *packetSize;
        Features features;
    };
    Features const extended{{"GevGVSPExtendedIDMode", "On"}};
    Features const chunks{{"ChunkModeActive", "1"}, {"ChunkSelector", "Timestamp"},
                          {"ChunkEnable", "1"},     {"ChunkSelector", "ExposureTime"},
                          {"ChunkEnable", "1"},     {"ChunkSelector", "Gain"},
                          {"ChunkEnable", "1"},     {"Gain", "6"}};
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
        Camera camera(row.model, {{"PixelFormat", row.format}});
        Set(*camera.wire, row.features);
        ASSERT_NO_FATAL_FAILURE(Open());
        Set(*camera.wire, "GevSCPSPacketSize", row.packetSize); // opening has found another one
        bool const hasChunks = std::count(row.features.begin(), row.features.end(), chunks[0]) > 0;
        for (bool const byRing : {false, true}) {
            SCOPED_TRACE(std::string(row.model) + ' ' + row.format + ' ' + row.packetSize + ' ' +
                         (row.features.empty() ? "" : row.features.back().first) + std::to_string(row.features.size()) +
                         (byRing ? " by the ring" : " by the socket"));
            PermitRingSource(byRing);
            std::uint64_t last = 0;
            RunningCamera(m_device).ForFrames(10, [&](TovCam::Buffer &buffer) {
                EXPECT_FALSE(buffer.IsIncomplete());
                EXPECT_TRUE(camera.IsExact(buffer)) << buffer.GetFrameID();
                EXPECT_GT(buffer.GetFrameID(), last);
                EXPECT_GT(buffer.GetTimestamp(), 0u);
                last = buffer.GetFrameID();
                auto const chunk =
                    FindChunk(static_cast<StreamFrame &>(buffer).m_chunks, WireChunkId(WireChunk::Timestamp));
                ASSERT_EQ(chunk && chunk->size() == 8, hasChunks);
                EXPECT_TRUE(!hasChunks || LoadBig64(chunk->data()) == buffer.GetTimestamp());
                TovCam::FrameFacts facts;
                EXPECT_TRUE(buffer.GetFacts(&facts) && facts.arrival > 0);
                EXPECT_TRUE(hasChunks ? facts.exposure == 1000.0 && std::abs(facts.gain - 6) < 1e-9
                                      : std::isnan(facts.exposure) && std::isnan(facts.gain));
            });
            ExpectSums();
            StreamStatistics const &s = Statistics();
            EXPECT_EQ(s.malformed.Get() + s.foreign.Get() + s.duplicate.Get(), 0u);
        }
        Close();
    }
}

TEST_F(GigeStreamTest, FaultsAreMendedByAskingAgain)
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
            int unmended = 0;
            for (bool const ignored : {true, false}) {
                SCOPED_TRACE(std::string(row.faults[0].first) + ' ' + std::to_string(way.size()) +
                             (ignored ? " ignored" : ""));
                Camera camera(Grey);
                PermitRingSource(!ignored);
                ASSERT_NO_FATAL_FAILURE(Open());
                Set(*camera.wire, "GevSCPSPacketSize", "1500");
                Set(*camera.wire, way);
                Set(*camera.wire, row.faults);
                Set(*camera.wire, "WireIgnoreResend", ignored ? "1" : "0");
                int incomplete = 0;
                RunningCamera(m_device, 32).ForFrames(40, [&](TovCam::Buffer &buffer) {
                    incomplete += buffer.IsIncomplete();
                    EXPECT_TRUE(buffer.IsIncomplete() || camera.IsExact(buffer)) << buffer.GetFrameID();
                });
                ExpectSums();
                StreamStatistics const &s = Statistics();
                bool const needsResends = std::count(row.counted.begin(), row.counted.end(), &S::resent) > 0;
                // A busy computer may be late for some.
                if (!needsResends)
                    EXPECT_LE(incomplete, 10);
                else if (ignored)
                    EXPECT_GE(unmended = incomplete, 10);
                else
                    EXPECT_LT(incomplete, unmended / 2);
                for (Counter const counter : row.counted)
                    EXPECT_EQ((s.*counter).Get() > 0, !ignored || counter != &S::resent);
                EXPECT_GE(s.complete.Get() + s.incomplete.Get(), 40u);
                Close();
            }
        }
    }
}

TEST_F(GigeStreamTest, EveryFrameIsAccountedFor)
{
    Camera camera(Grey, {{"WirePacketLoss", "0.5"}, {"SimMissingEvery", "7"}});
    ASSERT_NO_FATAL_FAILURE(Open());
    StreamStatistics const &s = Statistics();
    std::uint64_t first = 0, last = 0;
    {
        RunningCamera running(m_device, 3);
        running.ForFrames(60, [&](TovCam::Buffer &buffer) {
            first = first == 0 ? buffer.GetFrameID() : first;
            last = buffer.GetFrameID();
        });
        // Nobody takes the next ones.
        EXPECT_TRUE(Eventually([&] { return s.lost.Get() >= 5; }));
        running.ForFrames(3, [&](TovCam::Buffer &buffer) { last = buffer.GetFrameID(); });
    }
    ExpectSums();
    EXPECT_GE(s.skipped.Get(), 8u);
    std::uint64_t const told = s.complete.Get() + s.incomplete.Get() + s.lost.Get() + s.aborted.Get() + s.skipped.Get();
    EXPECT_GE(told, last - first + 1);
    EXPECT_GE(camera.wire->GetStatus().frames + s.skipped.Get(), told);
}

TEST(PacketSizeTest, IsAsLargeAsTheWayCarries)
{
    struct Row
    {
        char const *address;
        int mtu; // of the way
        std::uint32_t adapterMtu, least, most;
    };
    for (Row const &row : {Row{"127.0.0.1", 65536, 1500, 8192, 8192}, Row{"10.9.8.7", 65536, 9000, 9000, 9000},
                           Row{"10.9.8.7", 4000, 9000, 3960, 4000}, Row{"10.9.8.7", 1400, 1500, 1360, 1400},
                           Row{"10.9.8.7", 4000, 0, 1500, 1500},
                           // Not even the smallest test packet comes.
                           Row{"10.9.8.7", 570, 9000, 1600, 1600}}) {
        SCOPED_TRACE(row.mtu);
        ASSERT_EQ(
            std::system(
                ("ip link set lo mtu " + std::to_string(row.mtu) + "; ip address replace 10.9.8.7/24 dev lo").c_str()),
            0);
        auto const camera = Serve(Grey, row.address);
        Set(*camera, "GevSCPSPacketSize", "1600");
        ControlChannel control(row.address);
        ASSERT_TRUE(Eventually([&] { return control.Open() == TOV_CAM_ERR_OK; }));
        EXPECT_EQ(NegotiatePacketSize(control, row.adapterMtu), 0);
        std::uint32_t size = 0, port = 1;
        EXPECT_EQ(control.ReadRegister(StreamChannelPacketSize, size), 0);
        EXPECT_EQ(control.ReadRegister(StreamChannelPort, port), 0);
        EXPECT_GE(size, row.least);
        EXPECT_LE(size, row.most);
        EXPECT_EQ(port, 0u);
    }
}

} // namespace
