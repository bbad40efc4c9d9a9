// Recordings of a camera on the network. Runs in a network namespace of its own.
#include "companionfiles.h"
#include "wireclients.h"

#include "displayview.h"
#include "fakehost.h"
#include "imagewriter.h"
#include "params.h"
#include "session.h"

#include <algorithm>

namespace {

// The session of a camera on the network, which records into a folder of its own.
class Recorded
{
public:
    void Begin()
    {
        TovCam::Device *const device = TovCam_CreateDevice(FindAt(m_system), 2, nullptr);
        ASSERT_NE(device, nullptr);
        m_session = std::make_unique<Session>(nullptr, device, &m_host);
        GetWriter()->SetParamString("FilePath", m_folder.path().toUtf8().constData());
        QCoreApplication::processEvents();
        emit m_session->signalStartAcquisition();
        emit m_session->signalStartCapturing();
        ASSERT_EQ(m_session->GetState(), SessionStateCapturing);
    }
    ~Recorded()
    {
        m_session.reset();
        m_system->Release();
    }
    ImageWriter *GetWriter() const
    {
        return static_cast<ImageWriter *>(m_session->GetImageWriter());
    }
    void SaveMore(int frames) const
    {
        auto const before = IntOf(GetWriter(), "FramesSaved");
        EXPECT_TRUE(Eventually([&] { return IntOf(GetWriter(), "FramesSaved") >= before + frames; }));
    }
    void Stop() const
    {
        emit m_session->signalStopCapturing();
    }
    QString GetCompanions() const
    {
        return Companions(m_folder.path());
    }
    Session &GetSession() const
    {
        return *m_session;
    }

private:
    TovCam::System *const m_system = TovCam_GetSystem();
    FakeScript m_script;
    FakeHost m_host{m_script};
    QTemporaryDir m_folder;
    std::unique_ptr<Session> m_session;
};

TEST(WireRecording, TheTableHasExposureAndGainOfEachFrame)
{
    std::unique_ptr<WireCamera> const wire = Serve(Grey);
    MakeSmall(*wire);
    Set(*wire, {{"ChunkModeActive", "1"},
                {"ChunkSelector", "ExposureTime"},
                {"ChunkEnable", "1"},
                {"ChunkSelector", "Gain"},
                {"ChunkEnable", "1"},
                {"SimIncompleteEvery", "7"}});
    Recorded recorded;
    ASSERT_NO_FATAL_FAILURE(recorded.Begin());
    recorded.SaveMore(15);
    Set(*wire, {{"ExposureTime", "2500"}, {"Gain", "6"}});
    recorded.SaveMore(15);
    recorded.Stop();

    std::vector<Row> rows = RowsOf(recorded.GetCompanions());
    // Chunks come last, and not at all with an incomplete frame.
    EXPECT_GT(std::erase_if(rows, [](Row const &row) { return row.incomplete && !row.exposure && !row.gain; }), 0u);
    std::sort(rows.begin(), rows.end(), [](Row const &a, Row const &b) { return a.frameId < b.frameId; });
    ASSERT_GE(rows.size(), 20u);
    double exposure = 1000, gain = 0;
    for (Row const &row : rows) {
        ASSERT_TRUE(row.exposure && row.gain) << row.frameId;
        EXPECT_TRUE(*row.exposure == exposure || *row.exposure == 2500.0) << *row.exposure;
        EXPECT_TRUE(std::abs(*row.gain - gain) < 1e-9 || std::abs(*row.gain - 6) < 1e-9) << *row.gain;
        exposure = *row.exposure;
        gain = *row.gain;
    }
    EXPECT_TRUE(rows.front().exposure == 1000.0 && exposure == 2500.0 && gain > 5);
}

// What is missing in a recording is put where it was lost: in the table, in the ledger's file, in the findings.
TEST(WireRecording, TellsWhereFramesWereLost)
{
    struct
    {
        Features faults;
        std::vector<std::string> words; // in the table
        char const *place;              // in the ledger
    } const rows[] = {
        {{{"SimMissingEvery", "5"}}, {"camera"}, "camera"},
        {{{"WireLostPackets", "7"}, {"WireLostEvery", "3"}, {"WireIgnoreResend", "1"}}, {"network"}, "network"},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.place);
        std::unique_ptr<WireCamera> const wire = Serve(Grey);
        MakeSmall(*wire);
        Set(*wire, row.faults);
        Recorded recorded;
        ASSERT_NO_FATAL_FAILURE(recorded.Begin());
        recorded.SaveMore(30);
        recorded.Stop();
        std::size_t told = 0;
        for (Row const &frame : RowsOf(recorded.GetCompanions())) {
            EXPECT_EQ(frame.lossCause.empty(), frame.gapBefore == 0 && !frame.incomplete) << frame.frameId;
            told += std::count(row.words.begin(), row.words.end(), frame.lossCause);
        }
        EXPECT_GE(told, 4u);
        ASSERT_FALSE(recorded.GetSession().GetLosses().empty());
        QFile ledger(recorded.GetCompanions() + QStringLiteral(".ledger.txt"));
        ASSERT_TRUE(ledger.open(QIODevice::ReadOnly));
        QByteArray const text = ledger.readAll();
        EXPECT_TRUE(text.contains(QByteArray("[Losses]\n") + row.place + '=')) << text.constData();
        EXPECT_TRUE(text.contains(QByteArray("[Explanations]\n") + row.place + '=')) << text.constData();
    }
}

} // namespace
