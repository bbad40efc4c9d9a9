// The pictures of a recording as its format takes them: all of one shape, and converted where it wants another type.
#pragma once

#include "tovimage.h"

#include <cstdint>

// Operations return 0, an errno value, or one of FormatFailure.
class FormatPicture
{
public:
    FormatPicture() = default;
    ~FormatPicture();
    FormatPicture(FormatPicture const &) = delete;
    FormatPicture &operator=(FormatPicture const &) = delete;

    // For pictures like this one, which needs no pixels. `type` is what the format accepts for its type, 0 for nothing.
    int Begin(_TovImage const &image, std::uint32_t type);
    void End();

    // Why the picture is not one of them, for the operator; null where it is.
    char const *Objection(_TovImage const &image) const;
    // `target` becomes the picture itself, or what it was converted to.
    int Convert(_TovImage const &image, _TovImage const *&target);
    // What Convert will give for this one, without pixels that mean anything.
    _TovImage const &Converted(_TovImage const &image) const
    {
        return m_converted ? *m_converted : image;
    }

private:
    std::uint32_t m_width = 0, m_height = 0, m_pixelType = 0;
    _TovImage *m_converted = nullptr; // null: pictures go as they are
};
