// Channels of the protocol log, switched off while a simulated camera's packets come.
#include "fakehost.h"
#include "qttovlogmodel.h"
#include "session.h"
#include "simcamera.h"

#include <QTest>

#include <gtest/gtest.h>

#include <thread>

namespace {

class LogChannels : public testing::TestWithParam<char const *>
{
protected:
    LogChannels()
    {
        m_session = std::make_unique<Session>(nullptr, m_device, &m_host);
        (void)QTest::qWaitFor([this] { return m_session->GetState() == SessionStateIdle; });
    }
    ~LogChannels() override
    {
        m_session.reset();
        m_system->Release();
    }

    std::set<QString> Seen() const // the channels of the lines
    {
        std::set<QString> channels;
        m_session->GetLogModel()->visitLog([&](auto const &line) { channels.insert(line.channel); });
        return channels;
    }

    TovCam::System *const m_system = TovCam_GetSystem();
    TovCam::Device *const m_device = TovCam_CreateDevice(FindSimulated(m_system, GetParam()), 2, nullptr);
    FakeScript m_script;
    FakeHost m_host{m_script};
    std::unique_ptr<Session> m_session;
};

TEST_P(LogChannels, AreSwitchedOffAThousandTimesWhileTheirCallbacksRun)
{
    auto *const features = m_device->GetCameraParameters(nullptr);
    features->SetIntegerValue("Width", 256);
    features->SetIntegerValue("Height", 128);
    features->SetEnumValueStr("EventNotification", "On");
    emit m_session->signalStartAcquisition();
    ASSERT_EQ(m_session->GetState(), SessionStateAcquisition);
    m_session->SetParamBool("EnableLog", true);
    std::atomic<bool> done{false};
    std::thread control([&] { // packets of the control channel; faster would leave the camera no time for frames
        while (!done) {
            features->GetIntegerValue("Width", nullptr);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    char const *const keys[] = {"LogControl", "LogStream", "LogEvent"};
    for (int round = 0; round < 1000 && !HasFailure(); ++round) {
        for (char const *key : keys)
            m_session->SetParamBool(key, true);
        // With packets under way; now and then of every channel.
        if (round % 20 == 0) {
            EXPECT_TRUE(QTest::qWaitFor([&] { return Seen().size() == std::size(keys); }, 20000))
                << testing::PrintToString(Seen());
        } else {
            while (Seen().empty())
                std::this_thread::yield();
        }
        // By its own switch, or by the main one.
        if (round % 2 == 0) {
            for (int i = 0; i < 3; ++i)
                m_session->SetParamBool(keys[(round + i) % 3], false);
        } else {
            m_session->SetParamBool("EnableLog", false);
        }
        int const before = m_session->GetLogModel()->log().size();
        std::this_thread::yield();
        EXPECT_EQ(m_session->GetLogModel()->log().size(), before) << "a line after the end";
        m_session->clearLog();
        m_session->SetParamBool("EnableLog", true);
    }
    for (char const *key : keys)
        m_session->SetParamBool(key, true);
    done = true;
    control.join();
    m_session.reset(); // with everything on, and running
}

INSTANTIATE_TEST_SUITE_P(EachProtocol, LogChannels, testing::Values("20480117", "19200342"));

} // namespace
