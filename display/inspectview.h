// A small floating window that shows a part of the live picture pixel by pixel, beside the main view, and has the main
// renderer mark that part. The main view hands it each frame that it shows.
//
// Threads: DisplayImage and StopDisplaying on the display thread, everything else on the GUI thread. The main view's
// list and its mutex keep the two apart: a view that has left the list gets no more frames.
#pragma once

#include "frameshape.h"
#include "inspectsink.h"
#include "playerpanel.h"
#include "ui_inspectview.h"

#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QWidget>

#include <atomic>
#include <cstdint>
#include <optional>

class DisplayView;
class InspectView;
class TovComponent;
class TovDisplay;
struct _TovImage;

// What the renderer paints on.
class InspectViewDisplay : public QWidget
{
    Q_OBJECT
public:
    explicit InspectViewDisplay(InspectView *view);

protected:
    bool nativeEvent(QByteArray const &eventType, void *message, long *result) override;

private:
    InspectView *m_view;
};

class InspectView : public PlayerPanel, public InspectSink, private Ui::InspectView
{
    Q_OBJECT
public:
    // `mainDisplay` is the store of the main renderer, where the rectangle is marked; it may be null, and outlives the
    // view. `position` is on the screen, x and y are a point of the image. The view is made hidden.
    InspectView(QMainWindow *window, TovComponent *mainDisplay, QPoint position, double x, double y);
    // May run while frames come.
    ~InspectView() override;

    // Includes whether the view is open, which the window's layout does not know.
    bool SaveStateToGlobalSettings(QSettings *settings) override;
    static bool WasOpen(QSettings *settings);

    // Takes a place in that view's list; the view outlives this one.
    void JoinDisplay(DisplayView *display);
    // Puts that pixel of the image into the middle, as far as the edges of the picture allow, once the first frame has
    // come.
    void LookAt(QPointF pixel);

    void StartDisplaying();
    void StopDisplaying() override;
    void DisplayImage(_TovImage const *image) override;
    void RefreshImage(_TovImage const *image) override;
    void KeepImage(_TovImage const *image) override;

    // True when the renderer is set up for frames of that shape; otherwise notes the shape. Display thread.
    bool VerifyDisplayFormat(_TovImage const *image);
    // Tells the main renderer which part of the image the view shows.
    void UpdateRectangle();
    bool displayNativeEvent(QByteArray const &eventType, void *message, long *result);

    bool eventFilter(QObject *watched, QEvent *event) override;

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void customEvent(QEvent *event) override;

private:
    void InitByFirstFrame(_TovImage const *image);
    void TakeShape(_TovImage const *image);
    void ApplyPoint();
    QRect Rectangle() const; // as the dump keys have it

    static int s_id; // instances ever made

    TovDisplay *m_display;       // owned; null when the widget could not be bound
    TovComponent *m_mainDisplay; // not owned
    InspectViewDisplay *m_displayWidget = nullptr;
    FrameShape m_displayFormat;           // that was set up last; display thread
    std::atomic<bool> m_firstFrame{true}; // the next frame sets up the format
    double m_clickX;
    double m_clickY;
    std::atomic<std::uint32_t> m_imageWidth{0}; // stored by the thread that brings the first frame
    std::atomic<std::uint32_t> m_imageHeight{0};
    std::atomic<bool> m_shown{false}; // stored by the GUI thread

    // GUI thread.
    DisplayView *m_displayView = nullptr; // whose list has this view
    std::optional<QPointF> m_point;       // waits for the image's size
    QRect m_marked;                       // what the main renderer was told last
};
