// On a screen with two device pixels a point.
#include "displayfixture.h"

namespace {

// Before the QApplication exists.
bool const s_scaled = qputenv("QT_SCALE_FACTOR", "2");

using HiDpi = DisplayFixture;

TEST_F(HiDpi, PaintsAndTranslatesInDevicePixels)
{
    ASSERT_TRUE(s_scaled);
    ASSERT_EQ(widget->devicePixelRatioF(), 2.0);
    Pixels const pixels(TypeOf("Mono8"), 700, 500, 0, 1);
    Set("display.fit", 3);
    for (int zoom = 0; zoom < 3; ++zoom) {
        QImage const shown = Show(pixels.Image());
        ASSERT_EQ(shown.size(), QSize(400, 300));
        for (int y = 0; y < 150; y += 7) {
            for (int x = 0; x < 200; ++x) {
                QPoint const at = At(x, y);
                ASSERT_EQ(qRed(shown.pixel(2 * x, 2 * y)), pixels.Sample(at.y(), at.x())) << x << " " << y;
            }
        }
        // At actual size every device pixel has an image pixel of its own.
        if (zoom == 0) {
            EXPECT_EQ(At(1, 0).x() - At(0, 0).x(), 2);
            QPoint const first = At(0, 0);
            EXPECT_EQ(qRed(shown.pixel(1, 0)), pixels.Sample(first.y(), first.x() + 1));
        }
        QPoint const before = At(60, 50);
        Wheel({60, 50}, 200);
        EXPECT_EQ(At(60, 50), before);
    }
}

} // namespace
