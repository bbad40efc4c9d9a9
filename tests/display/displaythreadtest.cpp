// Frames from the display thread while the operator does everything at once on the GUI thread.
#include "displayfixture.h"

#include <atomic>
#include <functional>
#include <thread>

namespace {

using DisplayThreads = DisplayFixture;

TEST_F(DisplayThreads, FramesAndOperatorDoNotMeet)
{
    Pixels const first(TypeOf("BayerRG12Packed"), 640, 481, 3, 1), second(TypeOf("Mono8"), 333, 222, 0, 2);
    std::atomic<bool> stop{false};
    std::atomic<int> frames{0};
    std::thread thread([&] {
        while (!stop) {
            int const frame = frames++;
            _TovImage const *const image = (frame / 8 % 2 ? second : first).Image();
            EXPECT_TRUE(frame % 8 != 0 || display->SetVideoFormat(image, "auto") == 0);
            EXPECT_EQ(display->DisplayVideo(image), 0);
            At(1, 1);
        }
    });
    std::mt19937 random(3);
    auto const number = [&](int below) {
        return int(random() % unsigned(below));
    };
    std::function<void()> const actions[] = {
        [&] { widget->resize(1 + number(300), 1 + number(200)); },
        [&] { Wheel({number(200), number(150)}, number(2) ? 120 : -120); },
        [&] { Drag({number(200), number(150)}, {number(200), number(150)}); },
        [&] { Set("display.fit", number(4)); },
        [&] { AddMap(number(2) ? "0.1,1,0.,1.,0.;0.9,0;1.,1,1.,0.,0.;" : "0.2,0.5,0.;0.8,0.5,1.;"); },
        [&] { Run(number(2) ? "filter.del" : "display.zoom.in"); },
        [&] {
            Set("dump.w", number(100));
            Run(number(2) ? "display.dump.on" : "display.dump.off");
        },
        [&] {
            display->KeepVideo(number(2) ? second.Image() : nullptr);
            display->RefreshVideo(first.Image());
        },
    };
    for (int i = 0; i < 300 || frames < 100; ++i) {
        actions[number(8)]();
        QApplication::processEvents();
        widget->repaint();
    }
    stop = true;
    thread.join();
    Run("filter.del");
    Run("display.dump.off");
    widget->resize(200, 150);
    Set("display.fit", 3);
    QImage const shown = Show(second.Image());
    QPoint const at = At(77, 66);
    EXPECT_EQ(qRed(shown.pixel(77, 66)), second.Sample(at.y(), at.x()));
}

} // namespace
