// The renderer behind TovDisplay. The display thread makes a finished picture, the GUI thread paints it as it is.
//
// Hand-over: one slot, the newest picture wins, and one event is under way at a time, so a slow GUI thread is never
// flooded. Pictures go round between the two threads and are not allocated anew.
//
// After a change of zoom or size the last picture is shown transformed until the next frame brings a crisp one;
// RefreshVideo and KeepVideo do that for streams that pause or have stopped.
//
// Every format text gives this raster path: "OpenGL" would need a context to draw with, which this renderer does not
// make, and "auto" chooses among what there is.
#pragma once

#include "displayparams.h"
#include "framepainter.h"
#include "viewgeometry.h"
#include "viewpainting.h"

#include "tovcomponentbase.h"
#include "tovdisplay.h"

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QRect>
#include <QString>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

class QKeyEvent;
class QMouseEvent;
class QPaintEvent;
class QWheelEvent;
class QWidget;

class RasterDisplay final : public QObject, public TovDisplay, private TovComponentBase, private TovParamListener
{
public:
    RasterDisplay();
    ~RasterDisplay() override;

    TovComponent *GetComponent() override;
    std::int32_t Initialize(QWidget *widget, char const *format, int flags) override;
    std::int32_t SetVideoFormat(_TovImage const *image, char const *format) override;
    std::int32_t DisplayVideo(_TovImage const *image) override;
    std::int32_t ConvertImage(_TovImage const *source, _TovImage *destination) override;
    std::int32_t Translate(int *x, int *y, int direction) override;
    std::int32_t RefreshVideo(_TovImage const *image) override;
    std::int32_t KeepVideo(_TovImage const *image) override;
    _TovImage const *GetKeptVideo() const override;
    void ClearVideo() override;
    void ShowMessage(char const *text) override;

    bool eventFilter(QObject *watched, QEvent *event) override;

protected:
    void customEvent(QEvent *event) override;

private:
    // What the pictures are made for.
    struct View
    {
        ViewState state;
        double pixelRatio = 1.0;
        std::shared_ptr<DisplayLut const> lut; // null: plain
    };

    void AddParams();
    void ParamChanged(_TovStParam param) override;
    TovStatus AddFilter();
    TovStatus DeleteFilter();
    void ShowFilter();
    template<TovStatus (RasterDisplay::*Command)()>
    static unsigned int Run(void *context);
    TovStatus ZoomIn();
    TovStatus ZoomOut();
    TovStatus Centre();
    TovStatus DumpOn();
    TovStatus DumpOff();

    View GetView();
    template<class Change>
    void ChangeView(Change change);
    void TakeViewSize();

    std::unique_ptr<Picture> TakePicture();
    void GivePicture(std::unique_ptr<Picture> picture);
    std::int32_t Render(_TovImage const *image, FramePainter *painter, std::unique_ptr<Picture> *picture);
    void TakeNewest();
    bool IsStale(View const &view) const;

    void Paint(QPaintEvent *event);
    PixelRect Dump() const;
    bool Wheel(QWheelEvent *event);
    bool MousePress(QMouseEvent *event);
    void MouseMove(QMouseEvent *event);
    bool MouseRelease(QMouseEvent *event);
    bool Key(QKeyEvent *event);
    QPoint ToDevice(QPointF const &position) const;

    DisplayParams m_params; // written through the store, or by the GUI thread

    // GUI thread.
    QPointer<QWidget> m_widget; // the one that was handed in
    QPointer<QWidget> m_target; // the one that is painted on: itself, or its viewport
    bool m_opaqueBefore = false;
    std::unique_ptr<Picture> m_current;
    FramePainter m_guiPainter;
    _TovImage *m_kept = nullptr; // the frame of a stopped stream
    std::map<std::int64_t, std::shared_ptr<DisplayLut const>> m_filters;
    bool m_dumpShown = false;
    QString m_message; // over the picture
    bool m_dragging = false;
    QPoint m_dragFrom;
    ViewGeometry m_dragGeometry;

    FramePainter m_painter; // display thread

    std::mutex m_viewMutex; // held for a copy or a small change
    View m_view;            // m_viewMutex

    std::mutex m_slotMutex;                       // held for moving a pointer
    std::unique_ptr<Picture> m_newest;            // m_slotMutex
    std::vector<std::unique_ptr<Picture>> m_free; // m_slotMutex
    bool m_eventPending = false;                  // m_slotMutex
};
