// Channels of the protocol log, switched off while a simulated camera's packets come.
#include "asleep.h"
#include "fakehost.h"
#include "qttovlogmodel.h"
#include "session.h"
#include "simcamera.h"
#include "wait.h"

#include <QCoreApplication>

namespace {

class LogChannels : public testing::TestWithParam<char const *>
{
protected:
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
    std::unique_ptr<Session> m_session = std::make_unique<Session>(nullptr, m_device, &m_host);
};

TEST_P(LogChannels, AreSwitchedOffWhileTheirCallbacksRunAndNoLineComesAfterwards)
{
    QCoreApplication::processEvents();
    auto *const features = m_device->GetCameraParameters(nullptr);
    features->SetIntegerValue("Width", 256);
    features->SetIntegerValue("Height", 128);
    features->SetEnumValueStr("EventNotification", "On");
    emit m_session->signalStartAcquisition();
    ASSERT_EQ(m_session->GetState(), SessionStateAcquisition);
    char const *const keys[] = {"LogControl", "LogStream", "LogEvent"};
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        m_session->SetParamBool("EnableLog", true);
        for (char const *key : keys)
            m_session->SetParamBool(key, true);
        // With packets under way; now and then of every channel.
        std::size_t const wanted = round % 20 == 0 ? std::size(keys) : 1;
        EXPECT_TRUE(Becomes([&] {
            features->GetIntegerValue("Width", nullptr); // a packet of the control channel
            return Seen().size() >= wanted;
        })) << testing::PrintToString(Seen());
        // By its own switch, or by the main one.
        for (int i = 0; i < 3 && round % 2 == 0; ++i)
            m_session->SetParamBool(keys[(round + i) % 3], false);
        m_session->SetParamBool("EnableLog", round % 2 == 0);
        int const before = m_session->GetLogModel()->log().size();
        std::this_thread::yield();
        EXPECT_EQ(m_session->GetLogModel()->log().size(), before) << "a line after the end";
        m_session->clearLog();
    }
    m_session->SetParamBool("EnableLog", true);
    m_session.reset(); // with everything on, and running
}

INSTANTIATE_TEST_SUITE_P(EachProtocol, LogChannels, testing::Values("20480117", "19200342"));

} // namespace
