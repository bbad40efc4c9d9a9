// Painting frames on a widget.
#pragma once

#include "tovimage.h"
#include "tovmisc.h"

#include <cstdint>

class QWidget;

#if defined(TovDisplayQt_EXPORTS)
#define TOV_DISPLAY_API __attribute__((visibility("default")))
#else
#define TOV_DISPLAY_API
#endif

// A renderer bound to one widget. It takes the widget's paint, wheel and mouse events: zoom with the wheel at the
// pointer, drag to pan.
//
// Threads: DisplayVideo is called from the display thread; everything else, the parameter store included, from the
// GUI thread. Both may run at once.
//
// Keys of the store (GetComponent): commands "display.zoom.in", "display.zoom.out", "display.atcenter",
// "display.dump.on", "display.dump.off", "filter.add", "filter.del"; integers "display.fit" (0 none, 1 fit, 2 spread, 3
// actual size), "display.init.fit", "display.view.scale", "dump.x", "dump.y", "dump.w", "dump.h" (image pixels, a
// rectangle that is outlined), "filter.id", "filter.channels", "filter.state"; floats "display.init.at.x",
// "display.init.at.y", "display.at.x", "display.at.y" (0 to 1 of the image: the point in the middle of the view, on
// opening and now); strings "filter.name", "filter.channel.0" (a colour map).
class TovDisplay
{
public:
    TOV_DISPLAY_API static TovDisplay *CreateComponent();
    TOV_DISPLAY_API static void DeleteComponent(TovDisplay *display);

    virtual TovComponent *GetComponent() = 0;
    // `format` is "auto", "GDI" (raster) or "OpenGL". 0 on success.
    virtual std::int32_t Initialize(QWidget *widget, char const *format, int flags) = 0;
    // Prepares for frames of that shape; only width, height and type of the image are read. Display or GUI thread.
    virtual std::int32_t SetVideoFormat(_TovImage const *image, char const *format) = 0;
    // Shows one frame; the pointer is not kept. 0 on success.
    virtual std::int32_t DisplayVideo(_TovImage const *image) = 0;
    // Converts a frame to the destination's pixel type, at full size. Any thread.
    virtual std::int32_t ConvertImage(_TovImage const *source, _TovImage *destination) = 0;
    // Maps a point exactly: direction 1 from widget to image pixels (rounded down, also outside the image), any other
    // from image pixels to widget. Nonzero, with the arguments untouched, while no frame's shape is known. Any thread.
    virtual std::int32_t Translate(int *x, int *y, int direction) = 0;

    // ---- For a picture that stands still: GUI thread. Until they are called, a change of zoom shows the last picture
    // enlarged or reduced. ----

    // Shows the last frame again, if the view has changed since or shows none; for streams that pause. The pointer is
    // not kept.
    virtual std::int32_t RefreshVideo(_TovImage const *image) = 0;
    // Copies the frame that was shown last, so that a picture that stays after its stream has ended can be zoomed into
    // its own pixels. Null, or the next DisplayVideo, lets the copy go.
    virtual std::int32_t KeepVideo(_TovImage const *image) = 0;
    // That copy, or null.
    virtual _TovImage const *GetKeptVideo() const = 0;
    // Shows nothing until the next frame comes, or a kept one is there to be shown.
    virtual void ClearVideo() = 0;

    // A line over the picture, and in no image, until the next frame is shown; null or empty takes it away. UTF-8. GUI
    // thread.
    virtual void ShowMessage(char const * /*text*/)
    {
    }

protected:
    virtual ~TovDisplay() = default;
};
