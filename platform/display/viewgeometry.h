// Where a picture is in a view. All in device pixels of the view and pixels of the image.
#pragma once

// One axis. A device pixel shows the image pixel under its middle; painting, pointer and marks all go through this.
struct ViewAxis
{
    double scale = 1.0;  // device pixels an image pixel
    double origin = 0.0; // where the image begins, in device pixels; often outside the view
    int view = 0;        // device pixels of the view
    int image = 0;       // pixels of the image, 0 while none is known

    int ToImage(int device) const; // rounded down, also outside the image
    int ToDevice(int pixel) const; // the first device pixel that shows `pixel` or a later one
    int First() const;             // device pixels of the view that show the image: from First to before End
    int End() const;

    bool operator==(ViewAxis const &) const = default;
};

struct ViewGeometry
{
    ViewAxis x, y;

    bool HasImage() const
    {
        return x.image > 0 && y.image > 0;
    }
    bool operator==(ViewGeometry const &) const = default;
};

enum ViewFit : int { FitNone = 0, FitWindow = 1, FitSpread = 2, FitActual = 3 };

// What the operator has chosen: zoom and the image point in the middle of the view. A plain value.
class ViewState
{
public:
    static constexpr double MaxScale = 64.0;

    void SetViewSize(int width, int height);
    void SetImageSize(int width, int height);
    bool HasImage() const
    {
        return m_imageWidth > 0;
    }

    // FitWindow shows the whole picture, FitSpread covers the whole view and lets the picture's longer side overhang;
    // both follow the view's size. FitNone keeps the zoom as it is.
    void SetFit(ViewFit fit);
    ViewFit Fit() const
    {
        return m_fit;
    }
    void SetScale(double scale);        // ends the fit
    void SetCentre(double x, double y); // 0 to 1 of the image
    double CentreX() const
    {
        return m_centreX;
    }
    double CentreY() const
    {
        return m_centreY;
    }

    // The image point under that device pixel stays there, unless the picture's edge would leave a gap.
    void ZoomAt(double factor, double deviceX, double deviceY);
    // To the next round scale, about the view's middle.
    void ZoomStep(bool in);
    // Moves the picture to where `from` puts it, shifted by so many device pixels.
    void Pan(ViewGeometry const &from, double dx, double dy);

    double Scale() const;
    ViewGeometry Geometry() const;
    bool CanPan() const; // a side of the picture overhangs

private:
    void ZoomTo(double scale, double deviceX, double deviceY);
    void TakeCentre();
    double FitScale() const;
    double MinScale() const;

    ViewFit m_fit = FitWindow;
    double m_scale = 1.0; // used by FitNone
    double m_centreX = 0.5;
    double m_centreY = 0.5;
    int m_viewWidth = 0;
    int m_viewHeight = 0;
    int m_imageWidth = 0;
    int m_imageHeight = 0;
};
