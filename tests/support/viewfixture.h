// A scripted camera whose frames run into the display.
#pragma once

#include "displayview.h"
#include "fifofixture.h"
#include "wait.h"

#include <QApplication>
#include <QMainWindow>
#include <QTest>

class ViewFixture : public FifoFixture
{
protected:
    using Painter = std::function<void(_TovImage &)>;

    ViewFixture()
    {
        view->resize(200, 150);
        view->show();
        QApplication::processEvents();
        view->SetParamFloat("DisplayRate", 120.0);
    }
    void Begin()
    {
        FifoFixture::Begin();
        ASSERT_TRUE(view->StartDisplaying());
    }
    void Finish()
    {
        EXPECT_NE(view->StopDisplaying(), 0);
        FifoFixture::Finish();
    }
    static bool WaitFor(std::function<bool()> const &condition)
    {
        return Eventually(condition);
    }
    // Until the display thread has given the frame's buffer back.
    bool Offer(FakeFrame const &frame, Painter const &paint = {})
    {
        return device.stream.WaitForFree() && device.stream.Push(frame, paint) && device.stream.WaitUntilDrained() &&
               Eventually([&] { return device.stream.OutCount() == 0; });
    }
    _TovImage *Last()
    {
        _TovImage *image = nullptr;
        return view->GetDisplayedImageRaw(&image) ? image : nullptr;
    }
    bool Show(FakeFrame const &frame, Painter const &paint = {})
    {
        return Offer(frame, paint) && Last() && Last()->frameID == frame.id;
    }

    QMainWindow window;
    std::unique_ptr<DisplayView> view = std::make_unique<DisplayView>(&window, &fifo);
};
