// A renderer on a widget of its own.
#pragma once

#include "tovdisplay.h"
#include "tovimage.h"

#include "../image/reference.h"

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

constexpr QRgb BACKGROUND = 0xFF262626;

inline std::uint32_t TypeOf(char const *name)
{
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        if (!std::strcmp(TovGetPixelTypeInfoByRow(row)->name, name))
            return TovGetPixelTypeInfoByRow(row)->pixelType;
    }
    ADD_FAILURE() << name;
    return 0;
}

class DisplayFixture : public testing::Test
{
protected:
    DisplayFixture()
    {
        widget->resize(200, 150);
        EXPECT_EQ(display->Initialize(widget.get(), "auto", 0), 0);
        widget->show();
        QApplication::processEvents();
    }
    ~DisplayFixture() override
    {
        TovDisplay::DeleteComponent(display);
    }

    void Set(char const *key, long value)
    {
        EXPECT_EQ(display->GetComponent()->SetParamInt(key, value), 0u) << key;
    }
    long Get(char const *key)
    {
        long value = -1;
        EXPECT_EQ(display->GetComponent()->GetParamInt(key, &value), 0u) << key;
        return value;
    }
    TovStatus Run(char const *key)
    {
        return display->GetComponent()->RunCommand(key);
    }
    QImage Grab()
    {
        return widget->grab().toImage().convertToFormat(QImage::Format_RGB32);
    }
    QImage Show(_TovImage const *image)
    {
        EXPECT_EQ(display->DisplayVideo(image), 0);
        QApplication::processEvents();
        return Grab();
    }
    // The image pixel at a point of the widget.
    QPoint At(int x, int y)
    {
        EXPECT_EQ(display->Translate(&x, &y, 1), 0);
        return {x, y};
    }
    QPoint WidgetAt(int x, int y)
    {
        EXPECT_EQ(display->Translate(&x, &y, 0), 0);
        return {x, y};
    }
    void Wheel(QPoint at, int delta)
    {
        QWheelEvent event(at, widget->mapToGlobal(at), QPoint(), QPoint(0, delta), Qt::NoButton, Qt::NoModifier,
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(widget.get(), &event);
    }
    void Mouse(QEvent::Type type, QPoint at)
    {
        Qt::MouseButton const button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, at, button, type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(widget.get(), &event);
    }
    void Drag(QPoint from, QPoint to)
    {
        Mouse(QEvent::MouseButtonPress, from);
        Mouse(QEvent::MouseMove, (from + to) / 2);
        Mouse(QEvent::MouseMove, to);
        Mouse(QEvent::MouseButtonRelease, to);
    }
    TovStatus AddMap(char const *map)
    {
        TovComponent *const component = display->GetComponent();
        component->SetParamInt("filter.id", 1000);
        component->SetParamString("filter.name", "cmap.base");
        component->SetParamInt("filter.channels", 1);
        component->SetParamString("filter.channel.0", map);
        component->SetParamInt("filter.state", 1);
        return Run("filter.add");
    }

    std::unique_ptr<QWidget> widget = std::make_unique<QWidget>();
    TovDisplay *display = TovDisplay::CreateComponent();
};
