#include "histogrampanel.h"
#include "displayview.h"
#include "fakehost.h"
#include "histoview.h"
#include "imgprocessor.h"
#include "session.h"
#include "wait.h"

#include "../image/reference.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QLabel>
#include <QSlider>
#include <QTest>

#include <cstring>
#include <tuple>

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
    template<typename W>
    W *Find(char const *name) const
    {
        return panel->findChild<W *>(QLatin1String(name));
    }
    QString Text(char const *label) const
    {
        return Find<QLabel>(label)->text();
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
        ASSERT_TRUE(
            Eventually([&] { return session->GetDisplayView()->GetDisplayedImageRaw(&image) && image->frameID == 1; }));
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

// The row control runs over the width and the column control over the height.
TEST_F(HistogramPanelTest, ItsControlsReachTheFigures)
{
    panel->UpdateSelfByTimer();
    Play("BayerRG8", 8, 6); // a smaller region than the camera's
    for (auto const &[slider, spin, mode, last, outside] :
         {std::tuple("rowSlider", "rowSpin", 1, 19, 6), std::tuple("columnSlider", "colSpin", 2, 9, 8)}) {
        SCOPED_TRACE(slider);
        Select(mode);
        auto *const bar = Find<QSlider>(slider);
        auto *const box = Find<QDoubleSpinBox>(spin);
        auto const expectMean = [&](char const *mean) {
            panel->UpdateSelfByTimer();
            EXPECT_EQ(Text("meanLabel").toStdString(), mean);
        };
        EXPECT_EQ(bar->maximum(), last);
        EXPECT_EQ(box->maximum(), last);
        box->setValue(outside);
        EXPECT_EQ(bar->value(), outside);
        expectMean(" 0.00");
        bar->setValue(3);
        EXPECT_EQ(box->value(), 3);
        expectMean("37.00");
        bar->setValue(outside);
        expectMean(" 0.00");
        Find<QCheckBox>("avrCheckBox")->click(); // all lines
        panel->UpdateSelfByTimer();
        EXPECT_NE(Text("meanLabel"), QStringLiteral(" 0.00"));
        Find<QCheckBox>("avrCheckBox")->click();
        box->setValue(0);
        expectMean("37.00");
    }

    // Limits around the mean, and the logarithm, change the picture and go again.
    Select(0);
    auto const picture = [&] {
        panel->UpdateSelfByTimer();
        return view->grab().toImage();
    };
    picture();
    QImage const plain = picture();
    for (char const *const box : {"logCheckBox", "xLimitsCheckBox"}) {
        Find<QCheckBox>(box)->click();
        QImage const changed = picture();
        EXPECT_NE(changed, plain) << box;
        Find<QDoubleSpinBox>("meanSpin")->setValue(3);
        Find<QCheckBox>(box)->click();
        picture();
        EXPECT_EQ(picture(), plain) << box;
    }

    // Markers by clicks, and how many of the 48 pixels of 37 stand on which side; the next click hands the counts over.
    struct
    {
        double signal;
        Qt::MouseButton button;
        int belowLow, between, aboveHigh, belowMark, aboveMark;
    } const clicks[] = {{100.5, Qt::LeftButton, 48, 0, 0, 0, 48},
                        {20.5, Qt::LeftButton, 0, 48, 0, 0, 48},
                        {37.5, Qt::LeftButton, 48, 0, 0, 0, 48},
                        {60.5, Qt::RightButton, 48, 0, 0, 48, 0}};
    for (auto const &click : clicks) {
        SCOPED_TRACE(click.signal);
        QRect const area = view->graph.GetPlotRect();
        QPoint const at(area.left() + qRound(click.signal / 256 * area.width()), area.center().y());
        QTest::mouseClick(view, click.button, {}, at);
        panel->UpdateSelfByTimer();
        QTest::mouseClick(view, click.button, {}, at);
        HistoThresholds const &markers = session->GetAnalysis()->m_thresholds;
        EXPECT_EQ(markers.belowLow, click.belowLow);
        EXPECT_EQ(markers.betweenLowHigh, click.between);
        EXPECT_EQ(markers.aboveHigh, click.aboveHigh);
        EXPECT_EQ(markers.belowMark, click.belowMark);
        EXPECT_EQ(markers.aboveMark, click.aboveMark);
    }

    // A hidden panel asks for nothing.
    panel->hide();
    Find<QLabel>("meanLabel")->setText(QStringLiteral("old"));
    EXPECT_FALSE(panel->UpdateSelfByTimer());
    EXPECT_EQ(Text("meanLabel"), QStringLiteral("old"));
    Stop();
}

TEST_F(HistogramPanelTest, ItsGroupsKeepClearOfEachOtherAtAnySize)
{
    for (QSize const size : {QSize(100, 100), QSize(900, 800), QSize(520, 541)}) {
        panel->resize(size);
        QCoreApplication::processEvents();
        char const *const groups[] = {"groupBoxHistoGraph", "groupMinStdDev", "groupVis", "groupRowColumn"};
        for (char const *one : groups) {
            auto *const box = Find<QGroupBox>(one);
            EXPECT_TRUE(box->parentWidget()->rect().contains(box->geometry())) << one << " at " << size.width();
            for (char const *other : groups)
                EXPECT_TRUE(one == other || !box->geometry().intersects(Find<QGroupBox>(other)->geometry()))
                    << one << " on " << other << " at " << size.width();
        }
    }
}

} // namespace
