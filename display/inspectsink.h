// What the live view needs to know about an inspection view, which is above it.
#pragma once

struct _TovImage;

class InspectSink
{
public:
    // A frame that the live view has shown; the pointer is not kept. Display thread, under the list's mutex.
    virtual void DisplayImage(_TovImage const *image) = 0;
    // The stream has begun with another format. Display thread, under the list's mutex.
    virtual void StopDisplaying() = 0;
    // The last frame again, of a stream that pauses. GUI thread.
    virtual void RefreshImage(_TovImage const *image) = 0;
    // The last frame of a stream that has ended, to be copied. GUI thread.
    virtual void KeepImage(_TovImage const *image) = 0;

protected:
    ~InspectSink() = default;
};
