#include "formatpicture.h"

#include "failures.h"
#include "pixellayout.h"
#include "tovmisc.h"

#include <cerrno>

namespace {

int ErrorOf(unsigned long status)
{
    return TovSucceeded(status) ? 0 : status == TOV_IMAGE_ERR_MEMORY ? ENOMEM : int(NotHeld);
}

} // namespace

FormatPicture::~FormatPicture()
{
    End();
}

int FormatPicture::Begin(_TovImage const &image, std::uint32_t type)
{
    End();
    if (type == 0)
        return NotHeld;
    if (type != image.pixelType) {
        if (int const error = ErrorOf(TovCreateImage(&m_converted, {image.width, image.height}, type))) {
            m_converted = nullptr;
            return error;
        }
    }
    m_width = image.width;
    m_height = image.height;
    m_pixelType = image.pixelType;
    return 0;
}

void FormatPicture::End()
{
    TovReleaseImage(&m_converted);
    m_converted = nullptr;
}

char const *FormatPicture::Objection(_TovImage const &image) const
{
    if (image.width != m_width || image.height != m_height || image.pixelType != m_pixelType)
        return "The picture's size or pixel type has changed";
    return LineStep(image) < LineBytes(image) ? "The picture's lines are too short" : nullptr;
}

int FormatPicture::Convert(_TovImage const &image, _TovImage const *&target)
{
    target = &Converted(image);
    return m_converted ? ErrorOf(TovConvertImage(m_converted, &image)) : 0;
}
