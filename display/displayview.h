// The live picture of a session: the widget in the main window, the thread that pulls frames out of the grabbing FIFO,
// and the component that carries the display settings. The painting is TovDisplay's.
//
// Threads: the widget, the timer, the zoom commands, StartDisplaying and StopDisplaying on the GUI thread; Work and
// what it calls on the display thread. m_updateMutex guards the wake-up flag. The last image has no lock: a reader may
// see a frame that is being overwritten.
#pragma once

#include "tovcomponentimp.h"
#include "workingthread.h"

#include "tovdisplay.h"

#include <QGraphicsView>
#include <QPoint>
#include <QTimer>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

class GrabbingFifo;
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

    // True when the renderer is set up for frames of that shape; otherwise takes note of the shape.
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

signals:
    void mouseMoved(int x, int y, int r, int g, int b);

public slots:
    void UpdateVideo();

protected:
    bool nativeEvent(QByteArray const &eventType, void *message, long *result) override;
    int Stop() override;
    void Work() override;
    void InitByFirstFrame(_TovImage const *image);

    // Further members, private or protected, are the implementation's.
private:
    std::uint64_t m_lastFrameId = 0;
};
