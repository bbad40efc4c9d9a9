#include "histogrampanel.h"
#include "displayview.h"
#include "fakehost.h"
#include "histoview.h"
#include "session.h"

#include "../image/reference.h"

#include <QComboBox>
#include <QLabel>
#include <QSlider>
#include <QTest>

#include <gtest/gtest.h>

#include <cstring>

namespace {

class HistogramPanelTest : public testing::Test
{
protected:
    HistogramPanelTest()
    {
        device.params.ints["Width"].value = 20;
        device.params.ints["Height"].value = 10;
        device.params.ints["FamilyID"].value = 1; // whose mosaics begin with green, red
        device.params.enums["PixelFormat"].value = "BayerRG8";
        session = std::make_unique<Session>(nullptr, &device, &host);
        QCoreApplication::processEvents();
        panel = std::make_unique<HistogramPanel>(&host.window);
        panel->SetCurrentSession(session.get());
        panel->show();
        view = panel->findChild<HistoView *>();
    }
    ~HistogramPanelTest() override
    {
        panel.reset();
        session.reset();
        EXPECT_EQ(device.script.Violations(), "");
    }
    QString Text(char const *label) const
    {
        return panel->findChild<QLabel *>(QLatin1String(label))->text();
    }
    void Select(int mode)
    {
        panel->findChild<QComboBox *>(QStringLiteral("modeComboBox"))->setCurrentIndex(mode);
    }
    // A running picture whose bytes are all 0x25.
    void Play(char const *format, std::uint32_t width, std::uint32_t height)
    {
        TovPixelTypeInfo const &info = InfoOf(format);
        device.stream.SetFormat(width, height, info.pixelType, info.bitDepth);
        emit session->signalStartAcquisition();
        ASSERT_TRUE(
            device.stream.Push({1}, [](_TovImage &image) { std::memset(image.imageData, 0x25, image.imageSize); }));
        _TovImage *image = nullptr;
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return session->GetDisplayView()->GetDisplayedImageRaw(&image) && image->frameID == 1; }, 10000));
    }
    void Stop()
    {
        emit session->signalStopAcquisition();
    }

    FakeDevice device;
    FakeHost host{device.script};
    std::unique_ptr<Session> session;
    std::unique_ptr<HistogramPanel> panel;
    HistoView *view;
};

TEST_F(HistogramPanelTest, ShowsFiguresOfThePictureInItsModeAndFormatOrADash)
{
    panel->UpdateSelfByTimer();
    EXPECT_NE(view->accessibleDescription(), QString()); // there is no picture
    struct
    {
        char const *format;
        std::uint32_t width, height;
        int row;
        // What the mean says in each of the four modes, and whether there is a sentence to the figures.
        char const *means[4];
        bool told[4];
    } const pictures[] = {
        {"BayerGR8", 20, 10, 3, {"37.00", "37.00", "37.00", " 9.25"}, {}},
        {"BayerRG8", 20, 10, 3, {"37.00", "37.00", "37.00", " 9.25"}, {false, false, false, true}},
        {"BayerRG8", 12, 6, 6, {"37.00", " 0.00", "37.00", "-"}, {false, true, false, true}}, // a smaller region
        {"BayerRG12", 20, 10, 3, {"9509.00", "9509.00", "9509.00", "-"}, {false, false, false, true}},
        {"Mono8", 20, 10, 3, {"37.00", "37.00", "37.00", "-"}, {false, false, false, true}},
        {"Mono16", 20, 10, 3, {"-", "9509.00", "9509.00", "-"}, {true, false, false, true}},
        {"Mono10p", 20, 10, 3, {"-", "-", "-", "-"}, {true, true, true, true}},
        {"RGB8", 20, 10, 3, {"-", "-", "-", "-"}, {true, true, true, true}},
    };
    for (auto const &picture : pictures) {
        Play(picture.format, picture.width, picture.height);
        panel->findChild<QSlider *>(QStringLiteral("rowSlider"))->setValue(picture.row);
        for (bool const stopped : {false, true}) { // then it is the picture that stays
            for (int mode : {3, 0, 1, 2}) {
                SCOPED_TRACE(testing::Message() << picture.format << ", mode " << mode << ", stopped " << stopped);
                Select(mode);
                EXPECT_EQ(Text("meanLabel"), QString(QChar(0x2013))); // until the next update
                bool const shown = *picture.means[mode] != '-';
                EXPECT_EQ(panel->UpdateSelfByTimer(), shown);
                EXPECT_EQ(Text("meanLabel"), shown ? QLatin1String(picture.means[mode]) : QString(QChar(0x2013)));
                EXPECT_EQ(view->accessibleDescription() != QString(), picture.told[mode]);
                EXPECT_EQ(view->data && !view->data->plots.empty(), shown);
                for (char const *name : {"meanLabel", "devLabel", "SNRLabel"}) {
                    auto const *label = panel->findChild<QLabel *>(QLatin1String(name));
                    EXPECT_GE(label->minimumWidth(), label->sizeHint().width()) << name;
                }
                view->grab();
            }
            if (!stopped)
                Stop();
        }
    }
}

} // namespace
