#include "viewgeometry.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

// Pictures of a few pixels on a scale of 64 and pointers far outside stay well inside an int.
int ToInt(double value)
{
    return static_cast<int>(std::clamp(value, -1e9, 1e9));
}

ViewAxis MakeAxis(double scale, double centre, int view, int image)
{
    ViewAxis axis{scale, 0.0, view, image};
    double const size = image * scale;
    if (size <= view)
        axis.origin = (view - size) / 2;
    else
        axis.origin = std::clamp(view / 2.0 - centre * size, view - size, 0.0);
    // With whole scales every image pixel covers the same number of device pixels. Halves go down: that keeps the image
    // pixel under the pointer when zooming there.
    if (scale == std::floor(scale))
        axis.origin = std::ceil(axis.origin - 0.5);
    return axis;
}

constexpr double s_roundScales[] = {1.0 / 16, 1.0 / 12, 1.0 / 8, 1.0 / 6, 1.0 / 4, 1.0 / 3, 1.0 / 2,
                                    2.0 / 3,  1.0,      1.5,     2.0,     3.0,     4.0,     6.0,
                                    8.0,      12.0,     16.0,    24.0,    32.0,    48.0,    64.0};

} // namespace

int ViewAxis::ToImage(int device) const
{
    return ToInt(std::floor((device + 0.5 - origin) / scale));
}

int ViewAxis::ToDevice(int pixel) const
{
    int device = ToInt(std::ceil(pixel * scale + origin - 0.5));
    // The estimate may be one off where a pixel's edge falls on the middle of a device pixel.
    if (ToImage(device) < pixel)
        ++device;
    else if (ToImage(device - 1) >= pixel)
        --device;
    return device;
}

int ViewAxis::First() const
{
    return std::clamp(ToDevice(0), 0, view);
}

int ViewAxis::End() const
{
    return std::clamp(ToDevice(image), 0, view);
}

void ViewState::SetViewSize(int width, int height)
{
    m_viewWidth = width;
    m_viewHeight = height;
}

void ViewState::SetImageSize(int width, int height)
{
    m_imageWidth = width;
    m_imageHeight = height;
}

void ViewState::SetFit(ViewFit fit)
{
    if (fit == FitNone)
        m_scale = Scale();
    if (fit == FitWindow || fit == FitSpread)
        SetCentre(0.5, 0.5);
    m_fit = fit;
}

void ViewState::SetScale(double scale)
{
    m_fit = FitNone;
    m_scale = std::clamp(scale, 1.0 / MaxScale, MaxScale);
}

void ViewState::SetCentre(double x, double y)
{
    m_centreX = std::clamp(x, 0.0, 1.0);
    m_centreY = std::clamp(y, 0.0, 1.0);
}

double ViewState::FitScale() const
{
    double const x = double(m_viewWidth) / m_imageWidth;
    double const y = double(m_viewHeight) / m_imageHeight;
    return std::max(m_fit == FitSpread ? std::max(x, y) : std::min(x, y), 1e-6);
}

// Half of what shows the whole picture, and half of its own size for a picture smaller than the view.
double ViewState::MinScale() const
{
    double const x = double(m_viewWidth) / m_imageWidth;
    double const y = double(m_viewHeight) / m_imageHeight;
    return std::clamp(std::min(x, y) / 2, 1e-6, 0.5);
}

double ViewState::Scale() const
{
    switch (m_fit) {
    case FitActual:
        return 1.0;
    case FitWindow:
    case FitSpread:
        return HasImage() ? FitScale() : m_scale;
    default:
        return m_scale;
    }
}

ViewGeometry ViewState::Geometry() const
{
    double const scale = Scale();
    return {MakeAxis(scale, m_centreX, m_viewWidth, m_imageWidth),
            MakeAxis(scale, m_centreY, m_viewHeight, m_imageHeight)};
}

bool ViewState::CanPan() const
{
    double const scale = Scale();
    return m_imageWidth * scale > m_viewWidth + 0.5 || m_imageHeight * scale > m_viewHeight + 0.5;
}

// Takes over what the picture's edges have made of the requested centre, so that the next step starts from what is
// seen.
void ViewState::TakeCentre()
{
    ViewGeometry const geometry = Geometry();
    auto const centre = [](ViewAxis const &axis) {
        return (axis.view / 2.0 - axis.origin) / (axis.image * axis.scale);
    };
    SetCentre(centre(geometry.x), centre(geometry.y));
}

void ViewState::ZoomTo(double scale, double deviceX, double deviceY)
{
    ViewGeometry const before = Geometry();
    double const x = (deviceX + 0.5 - before.x.origin) / before.x.scale;
    double const y = (deviceY + 0.5 - before.y.origin) / before.y.scale;
    m_fit = FitNone;
    m_scale = scale;
    // Not SetCentre: a point outside the image still says on which side its edge has to be.
    m_centreX = ((m_viewWidth / 2.0 - deviceX - 0.5) / scale + x) / m_imageWidth;
    m_centreY = ((m_viewHeight / 2.0 - deviceY - 0.5) / scale + y) / m_imageHeight;
    TakeCentre();
}

void ViewState::ZoomAt(double factor, double deviceX, double deviceY)
{
    if (!HasImage())
        return;
    double const before = Scale();
    double scale = std::clamp(before * factor, std::min(MinScale(), before), std::max(MaxScale, before));
    // Actual size is worth a stop on the way.
    if ((before < 1.0 && scale > 1.0) || (before > 1.0 && scale < 1.0))
        scale = 1.0;
    if (scale != before)
        ZoomTo(scale, deviceX, deviceY);
}

void ViewState::ZoomStep(bool in)
{
    double const before = Scale();
    double scale = before;
    if (in) {
        auto const next = std::upper_bound(std::begin(s_roundScales), std::end(s_roundScales), before * 1.001);
        if (next != std::end(s_roundScales))
            scale = *next;
    } else {
        auto const next = std::lower_bound(std::begin(s_roundScales), std::end(s_roundScales), before * 0.999);
        scale = next != std::begin(s_roundScales) ? *(next - 1) : before / 1.5;
        scale = std::max(scale, std::min(HasImage() ? MinScale() : s_roundScales[0], before));
    }
    if (HasImage())
        ZoomTo(scale, m_viewWidth / 2.0 - 0.5, m_viewHeight / 2.0 - 0.5);
    else if (m_fit == FitNone || m_fit == FitActual)
        SetScale(scale); // a fit has no scale to step from before there is a picture
}

void ViewState::Pan(ViewGeometry const &from, double dx, double dy)
{
    if (!HasImage() || !from.HasImage())
        return;
    m_centreX = (m_viewWidth / 2.0 - from.x.origin - dx) / (m_imageWidth * Scale());
    m_centreY = (m_viewHeight / 2.0 - from.y.origin - dy) / (m_imageHeight * Scale());
    TakeCentre();
}
