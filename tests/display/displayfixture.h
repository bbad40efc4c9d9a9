// A renderer on a widget of its own.
#pragma once

#include "tovdisplay.h"

#include "../image/reference.h"

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

constexpr QRgb Background = 0xFF262626;

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
    void Mouse(QEvent::Type type, QPoint at, Qt::MouseButtons held = Qt::LeftButton)
    {
        QMouseEvent event(type, at, type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, held, Qt::NoModifier);
        QApplication::sendEvent(widget.get(), &event);
    }
    void Drag(QPoint from, QPoint to)
    {
        Mouse(QEvent::MouseButtonPress, from);
        Mouse(QEvent::MouseMove, (from + to) / 2);
        Mouse(QEvent::MouseMove, to);
        Mouse(QEvent::MouseButtonRelease, to, Qt::NoButton);
    }
    TovStatus AddMap(char const *map, long channels = 1, long state = 1)
    {
        TovComponent *const component = display->GetComponent();
        component->SetParamInt("filter.id", 1000);
        component->SetParamString("filter.name", "cmap.base");
        component->SetParamInt("filter.channels", channels);
        component->SetParamString("filter.channel.0", map);
        component->SetParamInt("filter.state", state);
        return Run("filter.add");
    }

    std::unique_ptr<QWidget> widget = std::make_unique<QWidget>();
    TovDisplay *display = TovDisplay::CreateComponent();
};
