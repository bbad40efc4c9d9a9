#include "displayview.h"

#include "grabbingfifo.h"
#include "inspectsink.h"
#include "markermap.h"
#include "pixelreadout.h"
#include "tovlog.h"

#include <QEvent>
#include <QMouseEvent>
#include <QTimerEvent>

#include <algorithm>
#include <cstring>

namespace {

constexpr int IdleTicks = 3;     // without a frame, after which a changed view gets its crisp picture from the last one
constexpr int WatchPeriod = 250; // milliseconds between two looks for a silent stream

QString SilenceText(StreamWatch::Silence const &silence)
{
    auto const count = silence.lasts.count();
    QString const lasts = count < 120    ? DisplayView::tr("%1 s").arg(count)
                          : count < 7200 ? DisplayView::tr("%1 min").arg(count / 60)
                                         : DisplayView::tr("%1 h").arg(count / 3600);
    if (silence.incomplete == 0)
        return DisplayView::tr("no frames for %1").arg(lasts);
    return DisplayView::tr("no complete frame for %1: %2 incomplete").arg(lasts, QString::number(silence.incomplete));
}

} // namespace

DisplayView::DisplayView(QMainWindow *window, GrabbingFifo *fifo)
    : WorkingThread("DisplayView"),
      TovComponentImp('d'),
      m_fifo(fifo),
      m_display(TovDisplay::CreateComponent()),
      m_videoTimer(new QTimer(this)),
      m_mainWindow(window)
{
    TovLog::Debug(0, "DisplayView::DisplayView()");

    // Nothing but the picture: the scene behind a graphics view is not used.
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setBackgroundBrush(QColor(0x26, 0x26, 0x26)); // shown only when the renderer could not be bound
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(160, 120);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    viewport()->setMouseTracking(true);
    setAccessibleName(tr("Live picture"));

    std::int32_t const status = m_display ? m_display->Initialize(this, "auto", 0) : -1;
    if (status != 0)
        TovLog::Fatal(static_cast<std::uint32_t>(status), "TovDisplay->Initialize() failed: %08x",
                      static_cast<unsigned int>(status));
    RegisterParams();
    connect(m_videoTimer, SIGNAL(timeout()), this, SLOT(UpdateVideo()));
    connect(m_videoTimer, &QTimer::timeout, this, &DisplayView::Refresh);
}

DisplayView::~DisplayView()
{
    // The base's destructor would stop the worker without waking it, when this part is gone.
    if (m_bStart)
        StopDisplaying();
    Terminate();
    TovLog::Debug(0, "DisplayView::~DisplayView()");
    TovDisplay::DeleteComponent(m_display);
}

void DisplayView::RegisterParams()
{
    // Without onChange: a change takes effect by itself.
    AddParam(TovFloatParam("DisplayRate", &m_displayRate, 30.0, 0.0, 120.0));
    AddParam(TovIntParam("ColorationType", &m_colorationType, 0, 0, 2));
    AddParam(TovIntParam("DisplayMode", &m_displayMode, 0, 0, 2));
    AddParam(TovCommandParam("ApplyColoration", &DisplayView::ApplyColoration, this));
}

// ---- Start and stop -------------------------------------------------------------------------------------------------

bool DisplayView::StartDisplaying()
{
    TovLog::Debug(0, "DisplayView::StartDisplaying()");
    m_firstFrame = true;
    StartVideoTimer();
    StartWatch();
    return Start();
}

int DisplayView::StopDisplaying()
{
    TovLog::Debug(0, "DisplayView::StopDisplaying()");
    m_fifo->SetGrabberThtreadBlocking(false);
    StopVideoTimer();
    EndWatch();
    int const status = Stop();
    m_fifo->SetGrabberThtreadBlocking(true);
    // The picture stays on the screen, so the renderer takes what it needs to zoom into it.
    if (_TovImage const *image = m_lastImage.Get(); image && m_display && m_lastImage.Count() != 0) {
        m_display->KeepVideo(image);
        for (InspectSink *const view : m_inspectViews)
            view->KeepImage(image);
    }
    m_lastImage.Release();
    return status;
}

void DisplayView::StartVideoTimer()
{
    TovLog::Debug(0, "DisplayView::StartVideoTimer()");
    double const rate = TovLoadBound(m_displayRate);
    if (rate > 0.001) {
        m_videoTimer->setSingleShot(false);
        m_videoTimer->start(static_cast<int>(1000.0 / rate));
    } else {
        m_videoTimer->stop();
    }
}

void DisplayView::StopVideoTimer()
{
    TovLog::Debug(0, "DisplayView::StopVideoTimer()");
    m_videoTimer->stop();
}

int DisplayView::Stop()
{
    if (!m_bStart) {
        TovLog::Error(0,
                      "DisplayView::Start: Invalid state: m_bStart==false"); // the wording that logs are searched for
        return 0;
    }
    {
        std::lock_guard const lock(m_startMutex);
        m_bStart = false;
    }
    m_startCondition.notify_all();
    std::unique_lock lock(m_stopMutex);
    for (;;) {
        UpdateVideo(); // the thread may sleep for the next tick
        if (m_stopped)
            break;
        m_stopCondition.wait(lock);
    }
    m_stopped = false;
    return 1;
}

void DisplayView::UpdateVideo()
{
    TovLog::Debug(0, "DisplayView::UpdateVideo()");
    {
        std::lock_guard const lock(m_updateMutex);
        m_updateRequested = true;
    }
    m_updateCondition.notify_one();
}

// ---- The display thread ---------------------------------------------------------------------------------------------

void DisplayView::Work()
{
    TovLog::Debug(0, "DisplayView::Work()");
    {
        std::unique_lock lock(m_updateMutex);
        m_updateCondition.wait(lock, [this] { return m_updateRequested || !m_bStart; });
        m_updateRequested = false;
    }

    TovCam::Buffer *buffer = nullptr;
    if (std::int32_t const error = m_fifo->GetNewestBuffer(&buffer, false)) {
        TovLog::Error(static_cast<std::uint32_t>(error), "GetNewestBuffer returned err=%X",
                      static_cast<unsigned int>(error));
        return;
    }
    if (!buffer) {
        TovLog::Error(0, "GetNewestBuffer returned buff=0");
        return;
    }
    std::uint64_t const frameId = buffer->GetFrameID();
    if ((frameId != m_lastFrameId || m_firstFrame) && !buffer->IsIncomplete()) {
        m_lastFrameId = frameId;
        _TovImage const *const image = buffer->GetImage();
        if (m_firstFrame)
            InitByFirstFrame(image);

        TovLog::Info(0, "DisplayView::Work() DisplayVideo called for frame ID=%i", static_cast<int>(frameId));
        std::int32_t const status = m_display->DisplayVideo(image);
        TovLog::Info(static_cast<std::uint32_t>(status), "DisplayView::Work() DisplayVideo returned for frame ID=%i",
                     static_cast<int>(frameId));

        {
            std::lock_guard const lock(m_inspectViewsMutex);
            for (InspectSink *const view : m_inspectViews)
                view->DisplayImage(image);
        }

        // After the painting, so that the copy does not delay the picture.
        if (TovStatus const copied = m_lastImage.Store(image); !TovSucceeded(copied))
            TovLog::Error(copied, "TVCopyImage failed for m_lastImage, err=%i", static_cast<int>(copied));
    }
    m_fifo->ReturnBuffer(buffer);
}

bool DisplayView::VerifyDisplayFormat(_TovImage const *image)
{
    return m_displayFormat.Verify(image);
}

void DisplayView::InitByFirstFrame(_TovImage const *image)
{
    m_pixelDepth = image->bitDepth;
    if (!VerifyDisplayFormat(image)) {
        std::int64_t const mode = TovLoadBound(m_displayMode);
        m_display->SetVideoFormat(image, mode == 2 ? "OpenGL" : mode == 1 ? "GDI" : "auto");
        std::lock_guard const lock(m_inspectViewsMutex);
        for (InspectSink *const view : m_inspectViews)
            view->StopDisplaying();
    }
    m_lastImage.MakeRoom(*image);
    m_firstFrame = false; // also after a failure
}

// ---- Readers of the last image --------------------------------------------------------------------------------------

bool DisplayView::GetDisplayedImageRaw(_TovImage **image)
{
    _TovImage *const last = m_lastImage.Get();
    if (!last)
        return false;
    *image = last;
    return true;
}

std::int32_t DisplayView::ConvertImage(_TovImage const *source, _TovImage *destination)
{
    return m_display->ConvertImage(source, destination);
}

bool DisplayView::IsImageSolid(_TovImage const *image)
{
    if (m_firstFrame)
        return true;
    _TovImage const *const last = m_lastImage.Get();
    if (!last)
        return true;
    if (image->width == last->width && image->height == last->height && image->pixelType == last->pixelType &&
        image->imageSize == last->imageSize)
        return image->imageData != nullptr;
    return false;
}

void DisplayView::sendMouseMoved(int x, int y)
{
    _TovImage const *const image = m_lastImage.Get();
    if (!image || x < 0 || y < 0 || std::uint32_t(x) >= image->width || std::uint32_t(y) >= image->height) {
        emit pointerLeft();
        return;
    }
    PixelValues const values = ReadPixel(*image, x, y);
    emit mouseMoved(x, y, values.r, values.g, values.b);
}

// ---- Commands -------------------------------------------------------------------------------------------------------

bool DisplayView::RunDisplayCommand(char const *key)
{
    TovComponent *const component = m_display ? m_display->GetComponent() : nullptr;
    return component && component->RunCommand(key) == 0;
}

bool DisplayView::SetDisplayFit(long fit)
{
    TovComponent *const component = m_display ? m_display->GetComponent() : nullptr;
    return component && component->SetParamInt("display.fit", fit) == 0;
}

bool DisplayView::ZoomIn()
{
    TovLog::Debug(0, "DisplayView::ZoomIn()");
    return RunDisplayCommand("display.zoom.in");
}

bool DisplayView::ZoomOut()
{
    TovLog::Debug(0, "DisplayView::ZoomOut()");
    return RunDisplayCommand("display.zoom.out");
}

bool DisplayView::CenterImage()
{
    TovLog::Debug(0, "DisplayView::CenterImage()");
    return RunDisplayCommand("display.atcenter");
}

bool DisplayView::Zoom100()
{
    TovLog::Debug(0, "DisplayView::Zoom100()");
    return SetDisplayFit(3);
}

bool DisplayView::ZoomFitToWnd()
{
    TovLog::Debug(0, "DisplayView::ZoomFitToWnd()");
    return SetDisplayFit(1);
}

bool DisplayView::ZoomSpreadToWnd()
{
    TovLog::Debug(0, "DisplayView::ZoomSpreadToWnd()");
    return SetDisplayFit(2);
}

unsigned int DisplayView::ApplyColoration(void *context)
{
    auto *const view = static_cast<DisplayView *>(context);
    long const range = 1L << std::min(view->m_pixelDepth.load(), 62u);
    // The two top codes show as saturated.
    view->Colorize(TovLoadBound(view->m_colorationType) != 0, 0, range - 2, range, false);
    return 0;
}

bool DisplayView::Colorize(bool colorize, long lo, long hi, long range, bool stretch)
{
    if (range < 2)
        return false;
    TovComponent *const component = m_display ? m_display->GetComponent() : nullptr;
    if (!component)
        return false;
    component->SetParamInt("filter.id", 1000); // also when the filter only goes
    MarkerPair const markers{lo, hi, range};
    if (!markers.IsValid() || (!colorize && !stretch)) {
        component->RunCommand("filter.del");
        return false;
    }
    component->SetParamString("filter.name", "cmap.base");
    component->SetParamInt("filter.channels", 1);
    component->SetParamString("filter.channel.0", MarkerMap(markers, colorize, stretch).c_str());
    component->SetParamInt("filter.state", 1);
    component->RunCommand("filter.add");
    return true;
}

// ---- The pixel dump's rectangle -------------------------------------------------------------------------------------

// This program has no pixel dump window; the rectangle is kept all the same, for isInRectangle.
void DisplayView::showHexPixelDump()
{
}

void DisplayView::hideHexPixelDump()
{
}

void DisplayView::drawHexDumpRectangle()
{
}

void DisplayView::drawHexPixelDumpRectangle(int x, int y, int w, int h)
{
    m_hexDumpShown = true;
    m_hexDumpRect = {x, y, w, h};
    drawHexDumpRectangle();
}

TovStatus DisplayView::clearHexDumpRectangle()
{
    TovComponent *const component = m_display ? m_display->GetComponent() : nullptr;
    return component ? component->RunCommand("display.dump.off") : TovStatus(TOV_PARAM_OK);
}

void DisplayView::onClosing()
{
    m_hexDumpShown = false;
    clearHexDumpRectangle();
}

void DisplayView::onStartPointChanged(int x, int y)
{
    m_hexDumpRect.x = x;
    m_hexDumpRect.y = y;
    drawHexDumpRectangle();
}

void DisplayView::onSizeChanged(int w, int h)
{
    m_hexDumpRect.w = w;
    m_hexDumpRect.h = h;
    drawHexDumpRectangle();
}

bool DisplayView::isInRectangle(int x, int y) const
{
    Rectangle const &rect = m_hexDumpRect;
    if (rect.w < 1 || rect.h < 1)
        return false;
    // Both ends count: the pixel after the rectangle's last one is in it as well.
    auto const in = [](std::int64_t value, std::int64_t from, std::int64_t size) {
        return value >= from && value <= from + size;
    };
    return in(x, rect.x, rect.w) && in(y, rect.y, rect.h);
}

TovDisplay *DisplayView::GetRenderer() const
{
    return m_display;
}

// ---- Inspection views -----------------------------------------------------------------------------------------------

void DisplayView::AddInspectView(InspectSink *view)
{
    {
        std::lock_guard const lock(m_inspectViewsMutex);
        m_inspectViews.push_back(view);
    }
    if (_TovImage const *const kept = m_display && !m_lastImage.Get() ? m_display->GetKeptVideo() : nullptr)
        view->KeepImage(kept);
}

void DisplayView::RemoveInspectView(InspectSink *view)
{
    std::lock_guard const lock(m_inspectViewsMutex);
    m_inspectViews.erase(std::remove(m_inspectViews.begin(), m_inspectViews.end(), view), m_inspectViews.end());
}

std::optional<QPoint> DisplayView::PixelAt(QPoint global) const
{
    QPoint const at = viewport()->mapFromGlobal(global);
    _TovImage const *image = m_lastImage.Get();
    if (!image && m_display)
        image = m_display->GetKeptVideo();
    int x = at.x();
    int y = at.y();
    if (!image || !viewport()->rect().contains(at) || m_display->Translate(&x, &y, 1) != 0)
        return {};
    if (x < 0 || y < 0 || std::uint32_t(x) >= image->width || std::uint32_t(y) >= image->height)
        return {};
    return QPoint(x, y);
}

// ---- Events of the widget -------------------------------------------------------------------------------------------

bool DisplayView::nativeEvent(QByteArray const &eventType, void *, long *)
{
    TovLog::Debug(0, "DisplayView::nativeEvent()");
    // Messages of another window system are left alone like all others.
    if (eventType == "windows_generic_MSG")
        return false;
    return false;
}

bool DisplayView::viewportEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseMove:
        m_pointer = static_cast<QMouseEvent *>(event)->pos();
        ReadPointer();
        break;
    case QEvent::MouseButtonDblClick: {
        auto const *const click = static_cast<QMouseEvent *>(event);
        if (click->button() != Qt::LeftButton)
            break;
        if (auto const pixel = PixelAt(click->globalPos()))
            emit inspectionRequested(click->globalPos(), *pixel);
        return true;
    }
    case QEvent::Leave:
    case QEvent::Hide:
        m_pointer.reset();
        emit pointerLeft();
        break;
    default:
        break;
    }
    return QGraphicsView::viewportEvent(event);
}

// The pixel under the pointer. The pointer may have left the picture, or the view while a button is held.
void DisplayView::ReadPointer()
{
    if (!m_pointer || !m_display || !viewport()->rect().contains(*m_pointer))
        return;
    int x = m_pointer->x();
    int y = m_pointer->y();
    if (m_display->Translate(&x, &y, 1) == 0)
        sendMouseMoved(x, y);
}

// On each tick of the video timer: a resting pointer reads the new frame, and a stream that pauses follows the zoom.
void DisplayView::Refresh()
{
    std::uint64_t const shown = m_lastImage.Count();
    if (shown != m_framesSeen) {
        m_framesSeen = shown;
        m_idleTicks = 0;
        ReadPointer();
    } else if (m_idleTicks < IdleTicks) {
        ++m_idleTicks;
    } else if (_TovImage const *image = m_lastImage.Get(); image && shown != 0 && m_display) {
        auto const hold = m_lastImage.TryHold();
        if (!hold)
            return; // a new frame has come
        m_display->RefreshVideo(image);
        for (InspectSink *const view : m_inspectViews)
            view->RefreshImage(image);
    }
}

// ---- A stream that has fallen silent --------------------------------------------------------------------------------

void DisplayView::StartWatch()
{
    if (!m_display || !m_videoTimer->isActive())
        return; // the operator has stopped the picture
    GrabbingFifo::Accounts const accounts = m_fifo->GetAccounts();
    m_watch.Start(std::chrono::steady_clock::now(), accounts.arrived, accounts.incomplete);
    m_watchTimer.start(WatchPeriod, this);
}

void DisplayView::EndWatch()
{
    m_watchTimer.stop();
    m_silence.reset();
    if (m_display)
        m_display->ShowMessage(nullptr);
}

void DisplayView::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_watchTimer.timerId())
        Watch();
    else
        QGraphicsView::timerEvent(event);
}

// Once a second while the silence lasts, and at once when it ends; the renderer takes the line away by itself when it
// shows a frame.
void DisplayView::Watch()
{
    GrabbingFifo::Accounts const accounts = m_fifo->GetAccounts();
    auto const silence = m_watch.Look(std::chrono::steady_clock::now(), accounts.arrived, accounts.incomplete);
    if (silence && m_silence && silence->lasts == m_silence->lasts &&
        (silence->incomplete == 0) == (m_silence->incomplete == 0))
        return;
    m_silence = silence;
    m_display->ShowMessage(silence ? SilenceText(*silence).toUtf8().constData() : "");
}
