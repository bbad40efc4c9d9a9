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
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Device *const device = TovCam_CreateDevice(FindAt(system), 2, nullptr);
    ASSERT_NE(device, nullptr);
    FakeScript script;
    FakeHost host(script);
    QTemporaryDir folder;
    auto session = std::make_unique<Session>(nullptr, device, &host);
    auto *const writer = static_cast<ImageWriter *>(session->GetImageWriter());
    writer->SetParamString("FilePath", folder.path().toUtf8().constData());
    QCoreApplication::processEvents();
    emit session->signalStartAcquisition();
    emit session->signalStartCapturing();
    ASSERT_EQ(session->GetState(), SessionStateCapturing);
    EXPECT_TRUE(Eventually([&] { return IntOf(writer, "FramesSaved") >= 15; }));
    Set(*wire, {{"ExposureTime", "2500"}, {"Gain", "6"}});
    auto const before = IntOf(writer, "FramesSaved");
    EXPECT_TRUE(Eventually([&] { return IntOf(writer, "FramesSaved") >= before + 15; }));
    emit session->signalStopCapturing();

    std::vector<Row> rows = RowsOf(Companions(folder.path()));
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
    session.reset();
    system->Release();
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
        TovCam::System *const system = TovCam_GetSystem();
        TovCam::Device *const device = TovCam_CreateDevice(FindAt(system), 2, nullptr);
        ASSERT_NE(device, nullptr);
        FakeScript script;
        FakeHost host(script);
        QTemporaryDir folder;
        auto session = std::make_unique<Session>(nullptr, device, &host);
        auto *const writer = static_cast<ImageWriter *>(session->GetImageWriter());
        writer->SetParamString("FilePath", folder.path().toUtf8().constData());
        QCoreApplication::processEvents();
        emit session->signalStartAcquisition();
        emit session->signalStartCapturing();
        EXPECT_TRUE(Eventually([&] { return IntOf(writer, "FramesSaved") >= 30; }));
        emit session->signalStopCapturing();
        std::size_t told = 0;
        for (Row const &frame : RowsOf(Companions(folder.path()))) {
            EXPECT_EQ(frame.lossCause.empty(), frame.gapBefore == 0 && !frame.incomplete) << frame.frameId;
            told += std::count(row.words.begin(), row.words.end(), frame.lossCause);
        }
        EXPECT_GE(told, 4u);
        ASSERT_FALSE(session->GetLosses().empty());
        QFile ledger(Companions(folder.path()) + QStringLiteral(".ledger.txt"));
        ASSERT_TRUE(ledger.open(QIODevice::ReadOnly));
        QByteArray const text = ledger.readAll();
        EXPECT_TRUE(text.contains(QByteArray("[Losses]\n") + row.place + '=')) << text.constData();
        EXPECT_TRUE(text.contains(QByteArray("[Explanations]\n") + row.place + '=')) << text.constData();
        session.reset();
        system->Release();
    }
}

} // namespace
