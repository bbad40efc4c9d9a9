#include "imagewriter.h"

#include "asleep.h"
#include "displayview.h"
#include "fakehost.h"
#include "fakeserializer.h"
#include "fifofixture.h"
#include "imgprocessor.h"
#include "params.h"
#include "wait.h"

#include <QRegularExpression>

#include <new>

namespace {

class Writer : public FifoFixture
{
protected:
    Writer()
    {
        serializer.Reset();
        writer.SetParamString("FilePath", "/s");
        QObject::connect(&writer, &ImageWriter::WritingDone, [this] { ++done; });
        QObject::connect(&writer, &ImageWriter::EvaluationTestDone, [this] { ++evaluated; });
    }
    void Run(std::uint32_t pixelType = TV_PIXEL_MONO8, std::uint32_t bitDepth = 8)
    {
        device.stream.SetFormat(32, 32, pixelType, bitDepth);
        Begin();
    }
    void Record()
    {
        fifo.SetState(SessionStateCapturing);
        ASSERT_TRUE(writer.StartWriting());
    }
    // The ledger of the recording, which adds up.
    RecordingLedger Stop()
    {
        EXPECT_TRUE(writer.StopWriting());
        fifo.SetState(SessionStateAcquisition);
        EXPECT_TRUE(writer.GetLedger().AddsUp());
        EXPECT_FALSE(writer.GetReport().IsRunning());
        EXPECT_EQ(IntOf(&writer, "FramesSaved"), static_cast<long>(writer.GetLedger().saved));
        return writer.GetLedger();
    }
    // What the operator reads of the recording, with its level in front and without the time.
    std::string Told()
    {
        for (Notice const &notice : NoticeBoard::Instance().Notices()) {
            if (notice.topic == NoticeTopic::Recording)
                return "IWE"[static_cast<int>(notice.level)] +
                       (' ' +
                        QString(notice.text).remove(QRegularExpression(QStringLiteral(" \\d+:\\d\\d"))).toStdString());
        }
        return "";
    }
    // One by one, each after the FIFO has taken the one before.
    void Feed(std::uint64_t first, std::uint64_t last, std::function<void(_TovImage &)> const &paint = {})
    {
        for (std::uint64_t id = first; id <= last; ++id) {
            ASSERT_TRUE(device.stream.Push({id, id * 1000}, paint));
            ASSERT_TRUE(device.stream.WaitUntilDrained());
        }
    }
    bool Drained()
    {
        return Eventually([this] {
            GrabbingFifo::Accounts const accounts = fifo.GetAccounts();
            return accounts.queued == 0 && accounts.withConsumers == 0;
        });
    }

    Gate gate; // for what the recording thread calls
    FakeSerializerScript &serializer = FakeSerializerScript::Get();
    DisplayView display{nullptr, &fifo};
    ImgProcessor processor{nullptr, &display};
    ImageWriter writer{nullptr, &fifo, &processor};
    std::atomic<int> done{0};
    std::atomic<int> evaluated{0};
};

// What a series or movie is started with, and what its frames have become.
TEST_F(Writer, ConvertsWhatTheFormatCannotHold)
{
    struct
    {
        ImageWriter::FileFormat format;
        std::uint32_t type, bits;
        bool normalized;
        std::uint32_t written;
        char const *log;
    } const rows[] = {
        {ImageWriter::FormatTvi, 0x10C2307, 12, true, 0x10C2307, "Series tvi 10C2307 q50; Stop"},
        {ImageWriter::FormatBmp, 0x308010D, 8, true, TV_PIXEL_BGR8, "Series bmp 2180172 q50; Stop"},
        {ImageWriter::FormatJpg, 0x1100202, 10, true, TV_PIXEL_MONO8, "Series jpg 1080101 q77; Stop"},
        {ImageWriter::FormatJpg, TV_PIXEL_MONO16, 16, true, TV_PIXEL_MONO16, "Series jpg 110050B q77; Stop"},
        {ImageWriter::FormatPng, 0x30C1328, 12, true, TV_PIXEL_RGB8, "Series png 2180171 q77; Stop"},
        {ImageWriter::FormatTif, 0x3100315, 12, true, TV_PIXEL_RGB16, "Series tif 230057B q77; Stop"},
        {ImageWriter::FormatTif, 0x3100315, 12, false, TV_PIXEL_RGB12, "Series tif 2300377 q77; Stop"},
        {ImageWriter::FormatTif, 0x308010E, 8, true, TV_PIXEL_RGB8, "Series tif 2180171 q77; Stop"},
        {ImageWriter::FormatTif, 0x10C1308, 12, false, TV_PIXEL_MONO12, "Series tif 1100306 q77; Stop"},
        {ImageWriter::FormatTif, 0x1100202, 10, true, TV_PIXEL_MONO16, "Series tif 110050B q77; Stop"},
        {ImageWriter::FormatAvi, 0x30A221B, 10, true, TV_PIXEL_BGR8, "Movie /s/m1.avi 2180172 12.5; Stop"},
        {ImageWriter::FormatAvi, TV_PIXEL_MONO8, 8, true, TV_PIXEL_MONO8, "Movie /s/m1.avi 1080101 12.5; Stop"},
    };
    writer.SetParamString("MovieName", "m${image.id:%lu}");
    writer.SetParamFloat("MovieFPS", 12.5);
    writer.SetParamInt("JpgQuality", 77);
    for (auto const &row : rows) {
        SCOPED_TRACE(row.log);
        serializer.Reset();
        writer.SetParamInt("FileFormat", row.format);
        writer.SetParamBool("NormalizedTiff", row.normalized);
        Run(row.type, row.bits);
        Record();
        Feed(1, 3);
        ASSERT_TRUE(Drained());
        EXPECT_EQ(Stop().saved, 3);
        EXPECT_EQ(serializer.TakeLog(), row.log);
        for (FakeWrite const &write : serializer.Writes()) {
            EXPECT_EQ(write.pixelType, row.written);
            EXPECT_EQ(write.name.empty(), row.format == ImageWriter::FormatAvi);
        }
    }
}

// Each failure costs what it must; afterwards every buffer is back and the next recording is whole.
TEST_F(Writer, GetsOverFailures)
{
    using Format = ImageWriter::FileFormat;
    constexpr std::uint32_t Bayer = 0x308010D;
    enum Step { Start, Conversion, Third }; // where it fails; the last is the third frame
    struct
    {
        char const *what;
        Format format;
        std::uint32_t type;
        Step step;
        bool throws;
        int saved, requests;
        char const *told;
    } const rows[] = {
        {"a file", Format::FormatRaw, TV_PIXEL_MONO8, Third, false, 4, 0, "No room (/s/image_00000003.raw)"},
        {"a file, converted", Format::FormatPng, Bayer, Third, false, 4, 0, "No room (/s/image_00000003.png)"},
        {"a frame of a movie", Format::FormatAvi, TV_PIXEL_MONO8, Third, false, 4, 1, "No room (/s/movie.avi)"},
        // The conversion's target is gone once the recording was wound up.
        {"a frame, converted", Format::FormatAvi, Bayer, Third, false, 2, 3, "No room (/s/movie.avi)"},
        {"a conversion", Format::FormatBmp, Bayer, Conversion, false, 2, 3, "the picture cannot be converted"},
        {"memory", Format::FormatRaw, TV_PIXEL_MONO8, Third, true, 4, 1, "not enough memory"},
        {"the start of a series", Format::FormatRaw, TV_PIXEL_MONO8, Start, false, 0, 0, "No room"},
        {"a start, converted", Format::FormatBmp, Bayer, Start, false, 0, 1, "No room"},
        {"the start of a movie", Format::FormatAvi, TV_PIXEL_MONO8, Start, false, 0, 5, "No room (/s/movie.avi)"},
        {"the same, converted", Format::FormatAvi, Bayer, Start, false, 0, 6, "No room (/s/movie.avi)"},
        {"memory at the start", Format::FormatRaw, TV_PIXEL_MONO8, Start, true, 0, 1, "not enough memory"},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.what);
        serializer.Reset();
        serializer.Set(&FakeSerializing::failure, "No room");
        auto const fail = [&row] {
            return row.throws ? throw std::bad_alloc() : -4;
        };
        if (row.step == Start)
            serializer.Set(&FakeSerializing::onStart, fail);
        if (row.step == Third)
            serializer.Set(&FakeSerializing::onWrite, [fail](std::size_t n) { return n == 2 ? fail() : 0; });
        done = 0;
        writer.SetParamInt("FileFormat", row.format);
        Run(row.type);
        Record();
        Feed(1, 5, [&row](_TovImage &image) { image.width = row.step == Conversion && image.frameID == 3 ? 31 : 32; });
        ASSERT_TRUE(Drained());
        ASSERT_TRUE(Eventually([&] { return done == row.requests; }));
        std::string const failed = std::to_string(5 - row.saved) + " failed: " + row.told;
        EXPECT_TRUE(Eventually([&] { return Told().find("Recording: " + failed + ", ") != std::string::npos; }))
            << Told();
        EXPECT_EQ(Told().find("another folder") != std::string::npos, failed.back() == ')') << Told();
        RecordingLedger const ledger = Stop();
        EXPECT_EQ(ledger.saved, row.saved);
        EXPECT_EQ(ledger.failed, 5 - row.saved);
        EXPECT_EQ(done, row.requests);
        EXPECT_EQ(Told(), "E Recording ended after: " + std::to_string(row.saved) + " saved, " + failed +
                              ", 0 missing, 0 dropped here");

        serializer.Reset();
        Record();
        EXPECT_EQ(Told(), "I Recording: 0 saved") << "the next one begins anew";
        Feed(6, 8);
        Feed(10, 10);
        ASSERT_TRUE(Drained());
        EXPECT_EQ(Stop().saved, 4);
        EXPECT_EQ(Told(), "W Recording ended after: 4 saved, 0 failed, 1 missing, 0 dropped here");
    }
}

// Frames stay in an encoder, files lose what they had, and some frames come damaged or not at all: what is said to be
// saved is what a reader finds.
TEST_F(Writer, CountsAsSavedWhatAReaderFinds)
{
    using Readable = std::function<std::int64_t(std::size_t, bool)>;
    struct
    {
        Readable readable;
        std::int32_t stop;
        long meanwhile, saved, incomplete;
        char const *told;
    } const rows[] = {
        {{}, 0, 6, 6, 2, "W 6 saved (2 of them incomplete), 0 failed, 1 missing, 0 dropped here"},
        {{}, -4, 6, 6, 2, "E 6 saved (2 of them incomplete), closing failed: No room (/a/b.avi), 1 missing, "},
        {[](auto n, bool stopped) { return stopped ? n : n - 2; }, 0, 4, 6, 2, "W 6 saved (2 of them incomplete), 0 f"},
        {[](auto n, bool stopped) { return stopped ? n - 1 : n - 2; }, -4, 4, 5, 1,
         "E 5 saved (1 of them incomplete), 1 failed: No room (/a/b.avi), 1 missing, 0 dropped here"},
        {[](auto n, bool stopped) { return stopped ? -1 : n - 2; }, -4, 4, 4, 1,
         "E 4 saved (1 of them incomplete), 2 failed: No room (/a/b.avi), 1 missing, 0 dropped here"},
        {[](auto, bool) { return 0; }, 0, 0, 0, 0, "E 0 saved, 6 failed: No room (/a/b.avi), 1 missing, "},
        {[](auto n, bool stopped) { return stopped ? 0 : n; }, 0, 6, 0, 0, "E 0 saved, 6 failed: No room (/a/b.avi), "},
        {[](auto n, bool) { return n + 1000; }, 0, 6, 6, 2, "W 6 saved"},
    };
    writer.SetParamInt("FileFormat", ImageWriter::FormatAvi);
    writer.SetParamString("FilePath", "/a");
    writer.SetParamString("MovieName", "b");
    for (auto const &row : rows) {
        SCOPED_TRACE(&row - rows);
        serializer.Reset();
        serializer.Set(&FakeSerializing::readable, row.readable);
        serializer.Set(&FakeSerializing::onStop, [&] { return row.stop; });
        serializer.Set(&FakeSerializing::failure, "No room");
        Run();
        Record();
        for (std::uint64_t const id : {1, 2, 3, 5, 6, 7}) {
            ASSERT_TRUE(device.stream.Push({id, id * 1000, id == 2 || id == 7}));
            ASSERT_TRUE(device.stream.WaitUntilDrained());
        }
        ASSERT_TRUE(Drained());
        EXPECT_EQ(IntOf(&writer, "FramesSaved"), row.meanwhile);
        RecordingLedger const ledger = Stop();
        EXPECT_EQ(ledger.saved, row.saved);
        EXPECT_EQ(ledger.savedIncomplete, row.incomplete);
        EXPECT_EQ(ledger.failed, 6 - row.saved);
        EXPECT_EQ(ledger.missing, 1);
        std::string told = Told();
        EXPECT_EQ(told.erase(2, sizeof "Recording ended after: " - 1).find(row.told), 0u) << Told();
    }
}

// What frames arrive meanwhile are not the recording's.
TEST_F(Writer, HandsTheConfigurationToAMovieThatHoldsIt)
{
    writer.SetParamInt("FileFormat", ImageWriter::FormatAvi);
    for (bool const holds : {true, false}) {
        serializer.Reset();
        serializer.Set(&FakeSerializing::holdsConfiguration, holds);
        Run();
        Record();
        Feed(1, 1);
        ASSERT_TRUE(Drained());
        EXPECT_TRUE(writer.StopWriting([this] {
            Feed(2, 40);
            return QByteArray("Gain=1");
        }));
        EXPECT_EQ(writer.GetLedger().acquired, 1);
        EXPECT_EQ(serializer.TakeLog(),
                  "Movie /s/movie.avi 1080101 30; " + std::string(holds ? "Gain=1; " : "") + "Stop");
    }
}

TEST_F(Writer, KnowsTheFolderThatAllFramesAreBelow)
{
    std::pair<char const *, char const *> const cases[] = {
        {"f", "/s/"}, {"${image.id}/f", "/s/"}, {"a/b${image.id}/c", "/s/a/"}};
    for (auto const &[name, folder] : cases) {
        writer.SetParamString("ImageName", name);
        Run();
        Record();
        Feed(1, 1);
        ASSERT_TRUE(Drained());
        Stop();
        EXPECT_EQ(serializer.Home(), folder);
    }
}

// The recorder holds one frame, the FIFO QueueSize - 3; what comes on top replaces the newest.
TEST_F(Writer, SlowerThanTheCameraItKeepsTheOldestInOrderAndCounts)
{
    gate.Close();
    serializer.Set(&FakeSerializing::onWrite, [this](std::size_t) { return gate.Pass(), 0; });
    auto const paint = [](_TovImage &image) {
        image.imageData[0] = static_cast<std::uint8_t>(image.frameID);
    };
    Run();
    Feed(1, 1, paint);
    Feed(3, 3, paint); // the display has this one
    TovCam::Buffer *borrowed = nullptr;
    ASSERT_EQ(fifo.GetNewestBuffer(&borrowed, false), 0);
    Record();
    EXPECT_EQ(fifo.ReturnBuffer(borrowed), 0);
    ASSERT_TRUE(Eventually([this] { return fifo.GetAccounts().queued == 0; }));
    Feed(4, 62, paint);
    EXPECT_EQ(fifo.GetAccounts().queued, 13);
    EXPECT_EQ(fifo.GetAccounts().withConsumers, 1);
    gate.Open();
    ASSERT_TRUE(Drained());
    ASSERT_TRUE(Eventually([this] { return IntOf(&writer, "CaptureFramesDroppedSW") == 46; }));
    EXPECT_TRUE(Eventually([this] { return IntOf(&writer, "CaptureFramesAcquired") == 59; }));
    EXPECT_EQ(IntOf(&writer, "CaptureFramesDroppedHW"), 0);
    RecordingLedger const ledger = Stop();
    EXPECT_EQ(ledger.acquired, 60);
    EXPECT_EQ(ledger.saved, 14);
    EXPECT_EQ(ledger.droppedSW, 46);
    EXPECT_EQ(serializer.TakeLog(), "Series raw 1080101 q50; Stop");
    std::string names;
    for (FakeWrite const &write : serializer.Writes()) {
        names += write.name.substr(write.name.size() - 6, 2) + ' ';
        EXPECT_EQ(write.name, "/s/image_000000" + names.substr(names.size() - 3, 2) + ".raw");
        EXPECT_EQ(write.id, std::stoul(names.substr(names.size() - 3)));
        EXPECT_EQ(write.firstByte, write.id);
    }
    EXPECT_EQ(names, "03 04 05 06 07 08 09 10 11 12 13 14 15 62 ");
    EXPECT_EQ(done, 0);
}

TEST_F(Writer, StopsInTheMiddleOfAFrameAndCountsWhatIsLeft)
{
    Run();
    Record();
    EXPECT_EQ(Stop().acquired, 0) << "asleep over an empty FIFO";

    gate.Close();
    serializer.Set(&FakeSerializing::onWrite, [this](std::size_t) { return gate.Pass(), 0; });
    Record();
    Feed(1, 8);
    ASSERT_TRUE(Eventually([this] { return gate.Reached() == 1; }));
    TovCam::Buffer *borrowed = nullptr; // the display's
    ASSERT_EQ(fifo.GetNewestBuffer(&borrowed, false), 0);
    auto const opened =
        gate.OpenOnceAllSleep([this] { EXPECT_EQ(serializer.TakeLog(), "Stop; Series raw 1080101 q50"); });
    RecordingLedger const ledger = Stop();
    EXPECT_EQ(ledger.acquired, 8);
    EXPECT_EQ(ledger.saved, 1);
    EXPECT_EQ(ledger.queued, 7);
    EXPECT_EQ(fifo.ReturnBuffer(borrowed), 0);

    Record();
    serializer.Set(&FakeSerializing::onStop, []() -> int { throw std::bad_alloc(); });
    EXPECT_THROW(writer.StopWriting(), std::bad_alloc);
    serializer.Reset();
    Record();
    Feed(9, 10);
    ASSERT_TRUE(Drained());
    EXPECT_GE(Stop().saved, 2) << "the FIFO blocks and the rules are fresh all the same";
}

class EvaluationPlugin : public FakePlugin
{
public:
    using FakePlugin::FakePlugin;
    void ProcessBuffer(TovCam::Buffer *buffer) override
    {
        if (buffer->GetFrameID() == 13)
            throw std::runtime_error("unlucky");
        ids.push_back(buffer->GetFrameID());
    }
    bool NeedNextFrame(bool *wantsNewest) override
    {
        EXPECT_TRUE(*wantsNewest);
        *wantsNewest = newest;
        gate.Pass();
        return ids.size() < 3;
    }

    Gate gate;
    bool newest = false;
    std::vector<std::uint64_t> ids; // recording thread
};

TEST_F(Writer, FeedsTheEvaluationPluginInsteadOfWriting)
{
    std::pair<bool, std::vector<std::uint64_t>> const rows[] = {{false, {1, 2, 4}}, {true, {6, 5, 4}}};
    for (auto const &[newest, ids] : rows) {
        Run();
        EvaluationPlugin plugin(device.script);
        plugin.newest = newest;
        plugin.gate.Close();
        evaluated = 0;
        Record();
        for (std::uint64_t id = 1; id <= 6; ++id)
            ASSERT_TRUE(device.stream.Push({id, 0, id == 3}));
        ASSERT_TRUE(device.stream.WaitUntilDrained());
        plugin.gate.Open();
        ASSERT_TRUE(Eventually([this] { return evaluated == 1; }));
        // It has ended by itself, and begins again when it is told to.
        ASSERT_TRUE(Eventually([this] { return writer.Start(); }));
        ASSERT_TRUE(Eventually([this] { return evaluated == 2; }));
        writer.StopWriting();
        EXPECT_EQ(plugin.ids, ids);
        EXPECT_EQ(fifo.GetAccounts().withConsumers, 0);
    }
    Run();
    EvaluationPlugin plugin(device.script);
    evaluated = 0;
    Record();
    Feed(13, 13);
    ASSERT_TRUE(Eventually([this] { return evaluated == 1; })) << "it threw";
    writer.StopWriting();
    EXPECT_TRUE(serializer.Writes().empty());
    EXPECT_EQ(IntOf(&writer, "CaptureFramesAcquired"), 0);
}

// The first failure of a kind is shown by the next pass of the event loop, and no timer need run for it.
TEST(Report, ShowsAFreshReasonAtOnceAndCountsEveryFrame)
{
    RecordingReport report;
    report.Begin(false, [] { return RecordingLedger{}; });
    for (int i = 0; i < 12; ++i) {
        bool const fresh = i < 4;
        EXPECT_EQ(report.Failed(1, {QString::number(i % 6), {}}), fresh) << i;
        QCoreApplication::sendPostedEvents(&report);
        EXPECT_EQ(report.GetLedger().failed, std::min(i + 1, 4)) << i;
    }
    RecordingLedger ledger;
    ledger.failed = 12;
    report.End(ledger);
    EXPECT_EQ(report.GetFailures(), QStringLiteral("2 failed: 0, 2 failed: 1, 2 failed: 2, 6 failed: 3"));
}

// A full queue is the disk's fault where the recording thread waits for that, and otherwise the program's.
TEST(RecordingLossesTest, ToldByTheTimeOfTheDisk)
{
    using namespace std::chrono_literals;
    GrabbingFifo::Loss dropped;
    dropped.frames = dropped.dropped = 3;
    dropped.before.Add(LossPlace::Fifo);
    RecordingLosses losses;
    auto const disk = [&losses] {
        LossCounts counts;
        counts.frames.At(LossPlace::Fifo).missing = 8; // as the FIFO counts them
        losses.AddTo(counts);
        EXPECT_EQ(counts.frames.At(LossPlace::Fifo).missing + counts.frames.At(LossPlace::Disk).missing -
                      counts.unwritten,
                  8);
        return counts.frames.At(LossPlace::Disk).missing;
    };
    losses.Begin();
    losses.Take({});
    losses.Written();
    losses.Spent(10ms, 1ms);
    losses.Take(dropped);
    EXPECT_EQ(losses.Words(), "fifo");
    EXPECT_EQ(disk(), 0);
    losses.Failed(true);
    losses.Spent(100ms, 99ms);
    losses.Take({});
    EXPECT_EQ(losses.Words(), "fifo+disk") << "the one that failed is missing, too";
    EXPECT_EQ(disk(), 1);
    losses.Written();
    losses.Take(dropped);
    EXPECT_EQ(losses.Words(), "disk");
    EXPECT_EQ(disk(), 4);
    losses.Failed(false);
    losses.End(8, 1);
    EXPECT_EQ(disk(), 7) << "two that were dropped at the end, and one whose file was lost";
    losses.Begin();
    losses.Take(dropped);
    EXPECT_EQ(losses.Words(), "") << "nothing is missing before the first row";
}

} // namespace
