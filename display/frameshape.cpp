#include "frameshape.h"

#include "tovimage.h"
#include "tovmisc.h"

FrameShape::~FrameShape()
{
    TovReleaseImageHeader(&m_header);
}

bool FrameShape::Verify(_TovImage const *image)
{
    if (!image)
        return false;
    if (m_header && m_header->width == image->width && m_header->height == image->height &&
        m_header->pixelType == image->pixelType)
        return true;
    TovReleaseImageHeader(&m_header);
    m_header = nullptr;
    if (!TovSucceeded(TovCreateImageHeader(&m_header, {image->width, image->height}, image->pixelType)))
        m_header = nullptr;
    return false;
}
