// Each fault of the cameras on the network, as foreign clients and our own see it. In a network namespace of its own.
#include "wireclients.h"

#include "gige/controlchannel.h"

namespace {

using WireFaultsTest = CameraTest;

// As arv-camera-test counts it; the tests of our own stream see what it makes of the same faults.
TEST_F(WireFaultsTest, OfTheStream)
{
    struct Row
    {
        Features faults;
        std::vector<char const *> counted, uncounted = {};
    };
    Row const rows[] = {
        {{}, {"n_completed_buffers"}, {"n_size_mismatch_errors", "n_error_packets"}},
        {{{"WirePacketLoss", "8"}}, {"n_resend_requests", "n_resent_packets"}},
        {{{"SimPacketLoss", "8"}}, {"n_resend_requests", "n_resent_packets"}},
        {{{"WirePacketLoss", "3"}, {"WireIgnoreResend", "1"}},
         {"n_resend_requests", "n_missing_packets", "n_failures"},
         {"n_resent_packets"}},
        {{{"WireLostPackets", "4,last"}}, {"n_resent_packets"}},
        {{{"WireLostPackets", "5"}, {"WireLostEvery", "3"}, {"WireIgnoreResend", "1"}}, {"n_missing_packets"}, {}},
        {{{"WireTruncate", "3"}, {"WireIgnoreResend", "1"}}, {"n_completed_buffers"}},
        {{{"WireWrongLength", "8"}}, {"n_size_mismatch_errors"}},
        {{{"WireWrongPacketId", "3"}, {"WireIgnoreResend", "1"}}, {"n_resend_requests"}, {"n_resent_packets"}},
        {{{"WireWrongBlockId", "3"}, {"WireIgnoreResend", "1"}}, {"n_missing_frames"}},
        {{{"WireDuplicate", "8"}}, {"n_duplicated_packets"}, {"n_missing_packets"}},
        {{{"WireReorder", "8"}, {"WireReorderDistance", "3"}}, {"n_completed_buffers"}},
        {{{"WireDelay", "50"}}, {"n_completed_buffers"}, {"n_missing_frames"}},
        {{{"SimMissingEvery", "3"}}, {"n_missing_frames"}, {"n_missing_packets"}},
        {{{"SimIncompleteEvery", "2"}}, {"n_missing_packets", "n_failures"}},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.faults.empty() ? "none" : row.faults[0].first);
        auto const camera = Serve(Grey);
        MakeSmall(*camera);
        Set(*camera, row.faults);
        Outcome const seen = Stream(*camera, "-n 127.0.0.1", 60);
        for (char const *name : row.counted)
            EXPECT_GT(seen.Number(name), 0) << name << '\n' << seen.text;
        for (char const *name : row.uncounted)
            EXPECT_EQ(seen.Number(name), 0) << name << '\n' << seen.text;
    }
}

TEST_F(WireFaultsTest, OfTheControlChannel)
{
    using Counters = ControlChannel::Counters;
    struct Row
    {
        char const *feature, *value;
        bool answers, streams;
        std::uint64_t Counters::*counter = nullptr; // that grows by it
    };
    Row const rows[] = {
        {"WireAnswerLoss", "3", true, true, &Counters::repeated},
        {"WireAnswerWrongId", "3", true, true, &Counters::stale},
        {"WireAnswerWrongLength", "3", true, true, &Counters::malformed},
        {"WireAnswerDelay", "120", true, true},
        {"WireSilence", "Stream", true, false},
        {"WireSilence", "Control", false, false},
        {"WireSilence", "All", false, false},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(std::string(row.feature) + ' ' + row.value);
        auto const camera = Serve(Grey);
        MakeSmall(*camera);
        Set(*camera, row.feature, row.value);
        Outcome const seen = RunShell("arv-tool-0.8 -a 127.0.0.1 control Width");
        EXPECT_EQ(seen.text.find("Width = 320") != std::string::npos, row.answers) << seen.text;
        if (!row.answers) {
            EXPECT_EQ(m_system->FindDeviceByAddress("127.0.0.1", nullptr), nullptr);
            continue;
        }
        Open(FindAt(m_system, "127.0.0.1"));
        EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 320);
        {
            RunningCamera const running(m_device);
            TovCam::Buffer *const buffer = m_stream->GetBuffer(row.streams ? Generous : 300, nullptr);
            EXPECT_EQ(buffer != nullptr, row.streams);
            if (buffer)
                m_stream->QueueBuffer(buffer);
        }
        Close();
        ControlChannel channel("127.0.0.1");
        EXPECT_TRUE(Eventually([&channel] { return channel.Open() == 0; }));
        EXPECT_TRUE(!row.counter || Eventually([&] {
            std::uint32_t privilege = 0;
            EXPECT_EQ(channel.ReadRegister(gvcp::bootstrap::ControlChannelPrivilege, privilege), 0);
            return channel.GetCounters().*row.counter > 0;
        }));
    }
}

} // namespace
