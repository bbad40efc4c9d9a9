// The shape of the frames that a renderer is set up for: width, height and pixel type. One thread at a time.
#pragma once

struct _TovImage;

class FrameShape
{
public:
    FrameShape() = default;
    ~FrameShape();
    FrameShape(FrameShape const &) = delete;
    FrameShape &operator=(FrameShape const &) = delete;

    // True when the image has the shape; otherwise takes the image's shape. False for a null image.
    bool Verify(_TovImage const *image);

private:
    _TovImage *m_header = nullptr;
};
