// On a screen with two device pixels a point.
#include "displayfixture.h"

namespace {

// Before the QApplication exists.
[[maybe_unused]] bool const s_scaled = qputenv("QT_SCALE_FACTOR", "2");

using HiDpi = DisplayFixture;

TEST_F(HiDpi, PaintsAndTranslatesInDevicePixels)
{
    Pixels const pixels(TypeOf("Mono8"), 700, 500, 0, 1);
    Set("display.fit", 3);
    for (int zoom = 0; zoom < 3; ++zoom) {
        QImage const shown = Show(pixels.Image());
        ASSERT_EQ(shown.size(), QSize(400, 300));
        for (int i = 0; i < 200 * 150; i += 7) {
            QPoint const at = At(i % 200, i / 200);
            ASSERT_EQ(qRed(shown.pixel(i % 200 * 2, i / 200 * 2)), pixels.Sample(at.y(), at.x())) << i;
            // At actual size every device pixel has an image pixel of its own.
            if (zoom == 0) {
                ASSERT_EQ(qRed(shown.pixel(i % 200 * 2 + 1, i / 200 * 2)), pixels.Sample(at.y(), at.x() + 1)) << i;
            }
        }
        QPoint const before = At(60, 50);
        Wheel({60, 50}, 200);
        EXPECT_EQ(At(60, 50), before);
    }
}

} // namespace
