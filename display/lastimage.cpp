#include "lastimage.h"

#include "tovlog.h"

#include "tovimage.h"

LastImage::~LastImage()
{
    Release();
}

void LastImage::MakeRoom(_TovImage const &shape)
{
    if (_TovImage *const old = m_image.exchange(nullptr))
        m_replaced.push_back(old);
    _TovImage *created = nullptr;
    if (!TovSucceeded(TovCreateImage(&created, {shape.width, shape.height}, shape.pixelType))) {
        TovLog::Error(0, "TovCreateImage failed m_lastImage, w=%i, h=%i, type=%x", static_cast<int>(shape.width),
                      static_cast<int>(shape.height), shape.pixelType);
        created = nullptr;
    }
    m_count = 0;
    m_image = created;
}

TovStatus LastImage::Store(_TovImage const *frame)
{
    std::lock_guard const lock(m_overwriteMutex);
    TovStatus const status = TovCopyImage(m_image, frame);
    if (TovSucceeded(status))
        m_count.fetch_add(1, std::memory_order_release);
    return status;
}

void LastImage::Release()
{
    _TovImage *image = m_image.exchange(nullptr);
    TovReleaseImage(&image);
    for (_TovImage *replaced : m_replaced)
        TovReleaseImage(&replaced);
    m_replaced.clear();
}

std::unique_lock<std::mutex> LastImage::TryHold()
{
    return std::unique_lock(m_overwriteMutex, std::try_to_lock);
}
