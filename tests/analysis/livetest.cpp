// The analysis of what a running display shows.
#include "bayerhelper2.h"
#include "imgprocessor.h"

#include "plain.h"
#include "viewfixture.h"

#include <QDeadlineTimer>

#include <cstring>
#include <thread>

namespace {

class LiveAnalysis : public ViewFixture
{
protected:
    void Begin(TovPixelTypeInfo const &info, std::uint32_t width, std::uint32_t height)
    {
        device.stream.SetFormat(width, height, info.pixelType, info.bitDepth);
        ViewFixture::Begin();
    }
    // A frame with the picture's bytes.
    void Show(_TovImage const &picture)
    {
        ASSERT_TRUE(ViewFixture::Show(
            {++m_frame}, [&](_TovImage &image) { std::memcpy(image.imageData, picture.imageData, image.imageSize); }));
    }
    ImgProcessor processor{nullptr, view.get()};
    BayerHelper2 bayer;
    ComplexHisto histo;
    std::uint64_t m_frame = 0;
};

TEST_F(LiveAnalysis, ModesLeaveEachOtherTheirDepthAndSize)
{
    histo.plots.push_back(new SimpleHisto);
    EXPECT_EQ(processor.GetHistoData(&histo, &bayer), 0);
    ASSERT_EQ(histo.plots.size(), 1u); // still there

    bayer.SetUp(20, 10, 8, 0, 0, &histo);
    Pixels const small(TypeOf("Mono8"), 20, 10, 0, 1), large(TypeOf("Mono16"), 30, 10, 0, 2);
    // In this order: what the mode leaves in width, height and bits, and how many series.
    struct
    {
        Pixels const &picture;
        std::int32_t mode;
        bool integrated;
        std::int32_t width, height, bits;
        std::size_t plots;
    } const cases[] = {
        {small, HistoRGB, false, 640, 480, 12, 3}, {small, HistoYUV, false, 640, 480, 12, 0},
        {small, HistoRow, true, 20, 10, 12, 1},    {small, HistoRaw, true, 20, 10, 8, 1},
        {large, HistoRGB, false, 20, 10, 8, 3},    {large, 5, false, 20, 10, 16, 0},
        {large, -1, false, 20, 10, 16, 0},         {large, HistoColumn, false, 30, 10, 16, 1},
        {small, HistoYUV, false, 30, 10, 16, 0},   {small, 77, false, 30, 10, 8, 1},
    };
    Pixels const *running = nullptr;
    for (auto const &c : cases) {
        SCOPED_TRACE(testing::Message() << c.mode << " of " << c.picture.Info().name);
        if (running != &c.picture) {
            if (running)
                Finish();
            running = &c.picture;
            Begin(c.picture.Info(), c.picture.Image()->width, c.picture.Image()->height);
            Show(*c.picture.Image());
        }
        histo.mode = c.mode;
        histo.integrated = c.integrated;
        EXPECT_EQ(processor.GetHistoData(&histo, &bayer), 1);
        EXPECT_EQ(histo.width, c.width);
        EXPECT_EQ(histo.height, c.height);
        EXPECT_EQ(histo.bits, c.bits);
        ASSERT_EQ(histo.plots.size(), c.plots);
        EXPECT_EQ(histo.currentIndex, c.plots == 1 ? 0 : -1);
    }
    Finish();
    EXPECT_EQ(processor.GetHistoData(&histo, &bayer), 0);
    EXPECT_EQ(histo.plots.size(), 1u);
}

TEST_F(LiveAnalysis, NoiseIsThatOfTheFirstImageOfItsSizeAndThenOfEachPair)
{
    Pixels const first(TypeOf("Mono12"), 31, 17, 0, 1), second(TypeOf("Mono12"), 31, 17, 0, 2);
    Pixels const small(TypeOf("Mono8"), 9, 4, 0, 3), large(TypeOf("Mono8"), 90, 40, 0, 4);
    std::vector<std::int32_t> difference;
    for (std::uint32_t i = 0; i < 31 * 17; ++i)
        difference.push_back(int(first.Sample(i / 31, i % 31)) - int(second.Sample(i / 31, i % 31)));
    double const expected = 20.0 * std::log10(4096.0 / (MomentsOf(difference).stdDev / std::sqrt(2.0)));
    Begin(first.Info(), 31, 17);
    Show(*first.Image());
    processor.CalcSNR(second.Image(), &histo);
    EXPECT_EQ(histo.snr, 0.0); // nothing to compare with
    EXPECT_EQ(processor.GetHistoData(&histo, &bayer), 1);
    Show(*second.Image());
    EXPECT_EQ(processor.GetHistoData(&histo, &bayer), 1); // keeps the first one
    processor.CalcSNR(first.Image(), &histo);
    EXPECT_TRUE(std::isinf(histo.snr)) << histo.snr;
    processor.CalcSNR(second.Image(), &histo);
    EXPECT_NEAR(histo.snr, expected, 1e-3);
    for (Pixels const *const other : {&small, &large, &small}) {
        processor.CalcSNR(other->Image(), &histo);
        EXPECT_TRUE(std::isfinite(histo.snr));
    }
    Finish();
}

// The display overwrites its last image as fast as it can while the panel's thread reads it, over changes of the format
// with and without a stop between. The sanitizers check the rest.
TEST_F(LiveAnalysis, ReadsAnImageThatIsBeingOverwritten)
{
    std::tuple<char const *, std::uint32_t, std::uint32_t> const rounds[] = {
        {"Mono8", 64, 48},      {"BayerRG12", 320, 200}, {"RGB8", 100, 75},
        {"BayerRG10", 33, 500}, {"Mono12p", 64, 48},     {"Mono16", 500, 20}};
    for (auto const &[type, width, height] : rounds) {
        SCOPED_TRACE(type);
        TovPixelTypeInfo const &info = InfoOf(type);
        Begin(info, width, height);
        std::atomic<bool> running{true};
        std::thread camera([&] {
            for (int shade = 0;
                 running && device.stream.WaitForFree() &&
                 device.stream.Push(
                     {++m_frame}, [&](_TovImage &image) { std::memset(image.imageData, shade & 3, image.imageSize); });
                 ++shade) {
                view->UpdateVideo();
                if (device.stream.OutCount() > 3)
                    std::this_thread::yield();
            }
        });
        int reads = 0;
        _TovImage *kept = nullptr;
        for (QDeadlineTimer enough(250), deadline(20000);
             !enough.hasExpired() || (reads < 40 && !deadline.hasExpired());) {
            QApplication::processEvents();
            histo.mode = reads % 6;
            histo.integrated = reads % 4 == 1;
            histo.row = histo.column = reads % 700;
            bayer.SetUp(width, height, info.bitDepth, 12, reads % 3, &histo);
            if (!processor.GetHistoData(&histo, &bayer))
                continue;
            ++reads;
            processor.CalcSNR(Last(), &histo);
            if (!kept)
                kept = Last();
            if (reads == 20)
                view->StartDisplaying(); // the next frame is a first one again, and the image another
        }
        EXPECT_GE(reads, 40);
        EXPECT_NE(Last(), kept);
        processor.GetRowHisto(kept, &histo); // the old image stays until the stop
        running = false;
        camera.join();
        Finish();
        EXPECT_EQ(processor.GetHistoData(&histo, &bayer), 0);
    }
}

} // namespace
