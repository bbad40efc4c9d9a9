// The live picture of a session: the widget in the main window, the thread that pulls frames out of the grabbing FIFO,
// and the component that carries the display settings. The painting is TovDisplay's.
//
// Threads: the widget, the timer, the zoom commands, StartDisplaying and StopDisplaying on the GUI thread; Work and
// what it calls on the display thread. m_updateMutex guards the wake-up flag, m_inspectViewsMutex the inspection views;
// lastimage.h tells who may use the last image.
#pragma once

#include "frameshape.h"
#include "lastimage.h"
#include "streamwatch.h"
#include "tovcomponentimp.h"
#include "workingthread.h"

#include "tovdisplay.h"

#include <QBasicTimer>
#include <QGraphicsView>
#include <QPoint>
#include <QTimer>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

class GrabbingFifo;
class InspectSink;
class QMainWindow;

class DisplayView : public QGraphicsView, private WorkingThread, public TovComponentImp
{
    Q_OBJECT
public:
    DisplayView(QMainWindow *window, GrabbingFifo *fifo);
    ~DisplayView() override;

    bool StartDisplaying();
    int StopDisplaying();
    void StartVideoTimer();
    void StopVideoTimer();

    // The copy of the last frame shown, or false. GUI thread; the image lives until StopDisplaying.
    bool GetDisplayedImageRaw(_TovImage **image);
    std::int32_t ConvertImage(_TovImage const *source, _TovImage *destination);

    bool ZoomIn();
    bool ZoomOut();
    bool CenterImage();
    bool Zoom100();
    bool ZoomFitToWnd();
    bool ZoomSpreadToWnd();

    // Colours pixels at the markers lo and hi of a scale of `range` values, or stretches between them.
    bool Colorize(bool colorize, long lo, long hi, long range, bool stretch);
    static unsigned int ApplyColoration(void *context);

    // True when the renderer is set up for frames of that shape; otherwise notes the shape.
    bool VerifyDisplayFormat(_TovImage const *image);
    bool IsImageSolid(_TovImage const *image);
    // The pointer is at that pixel: emits mouseMoved with its values.
    void sendMouseMoved(int x, int y);

    void showHexPixelDump();
    void hideHexPixelDump();
    void drawHexDumpRectangle();
    void drawHexPixelDumpRectangle(int x, int y, int w, int h);
    TovStatus clearHexDumpRectangle();
    void onClosing();
    void onStartPointChanged(int x, int y);
    void onSizeChanged(int w, int h);
    bool isInRectangle(int x, int y) const;

    TovDisplay *GetRenderer() const;

    // An inspection view gets each frame shown from now on, and the picture of a stream that has stopped at once. It
    // leaves before it or this view goes; once it has left, no call to it is under way. GUI thread.
    void AddInspectView(InspectSink *view);
    void RemoveInspectView(InspectSink *view);
    // The image pixel at a point of the screen; nothing outside the picture. GUI thread.
    std::optional<QPoint> PixelAt(QPoint global) const;

signals:
    void mouseMoved(int x, int y, int r, int g, int b);
    void pointerLeft(); // the picture, or the view
    // A double click on the picture: where on the screen, and on which pixel.
    void inspectionRequested(QPoint global, QPoint pixel);

public slots:
    void UpdateVideo();

protected:
    bool nativeEvent(QByteArray const &eventType, void *message, long *result) override;
    int Stop() override;
    void Work() override;
    void InitByFirstFrame(_TovImage const *image);

    bool viewportEvent(QEvent *event) override;
    void timerEvent(QTimerEvent *event) override;

private:
    void RegisterParams();
    bool RunDisplayCommand(char const *key);
    bool SetDisplayFit(long fit);
    void ReadPointer();
    void Refresh();
    void StartWatch();
    void EndWatch();
    void Watch();

    std::uint64_t m_lastFrameId = 0;           // display thread
    std::atomic<bool> m_firstFrame{false};     // set by the start, cleared by the display thread
    GrabbingFifo *m_fifo;                      // not owned
    TovDisplay *m_display;                     // owned
    double m_displayRate = 30.0;               // bound; relaxed atomic access
    QTimer *m_videoTimer;                      // GUI thread
    std::condition_variable m_updateCondition; // with m_updateMutex
    std::mutex m_updateMutex;
    bool m_updateRequested = true;              // m_updateMutex
    std::int64_t m_colorationType = 0;          // bound; relaxed atomic access
    std::atomic<std::uint32_t> m_pixelDepth{8}; // written by the display thread
    LastImage m_lastImage;
    struct Rectangle
    {
        std::int32_t x = 0, y = 0, w = 0, h = 0;
    };
    bool m_hexDumpShown = false;               // GUI thread
    Rectangle m_hexDumpRect;                   // image pixels; GUI thread
    QMainWindow *m_mainWindow;                 // not owned
    std::vector<InspectSink *> m_inspectViews; // m_inspectViewsMutex; the GUI thread, which writes it, reads without
    std::mutex m_inspectViewsMutex;
    FrameShape m_displayFormat;     // that the renderer is set up for; display thread
    std::int64_t m_displayMode = 0; // bound; relaxed atomic access

    // The pointer over the picture; GUI thread.
    std::optional<QPoint> m_pointer;
    std::uint64_t m_framesSeen = 0; // at the last tick
    int m_idleTicks = 0;            // ticks without a new frame

    // Whether the picture is older than it looks; GUI thread.
    QBasicTimer m_watchTimer;
    StreamWatch m_watch;
    std::optional<StreamWatch::Silence> m_silence; // as the picture says it
};
