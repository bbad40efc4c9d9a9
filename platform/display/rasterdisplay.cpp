#include "rasterdisplay.h"

#include <QAbstractScrollArea>
#include <QCoreApplication>
#include <QEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWheelEvent>
#include <QWidget>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr std::int32_t OK = 0;
constexpr std::int32_t ErrArgument = -1;
constexpr std::int32_t ErrNoWidget = -2;
constexpr std::int32_t ErrFormat = -3;
constexpr std::int32_t ErrMemory = -4;
constexpr std::int32_t ErrNoImage = -5;

constexpr double WheelStep = 1.189207115; // the fourth root of 2 a notch
constexpr int KeyPanPart = 8;             // an arrow key moves by this part of the view

constexpr std::size_t SparePictures = 2; // beside the one shown, the one waiting and the one in the making

QEvent::Type PictureEvent()
{
    static int const type = QEvent::registerEventType();
    return static_cast<QEvent::Type>(type);
}

bool IsFormat(char const *format)
{
    return format && (!std::strcmp(format, "auto") || !std::strcmp(format, "GDI") || !std::strcmp(format, "OpenGL"));
}

// The type of an image whose every pixel can be read, else null.
TovPixelTypeInfo const *Readable(_TovImage const *image)
{
    if (!image || !image->imageData || image->width == 0 || image->height == 0 || image->width > 1u << 24 ||
        image->height > 1u << 24)
        return nullptr;
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(image->pixelType);
    std::uint64_t const lineBytes = info ? TovLineBytes(image->pixelType, image->width) : 0;
    if (!info || image->lineStep < lineBytes || image->imageSize < (image->height - 1) * image->lineStep + lineBytes)
        return nullptr;
    return info;
}

} // namespace

TovDisplay *TovDisplay::CreateComponent()
{
    return new (std::nothrow) RasterDisplay;
}

void TovDisplay::DeleteComponent(TovDisplay *display)
{
    delete static_cast<RasterDisplay *>(display);
}

RasterDisplay::RasterDisplay() : TovComponentBase(0)
{
    AddParams();
}

RasterDisplay::~RasterDisplay()
{
    if (m_target) {
        m_target->removeEventFilter(this);
        m_target->setAttribute(Qt::WA_OpaquePaintEvent, m_opaqueBefore);
        m_target->unsetCursor();
        m_target->update();
    }
    if (m_widget)
        m_widget->removeEventFilter(this);
    TovReleaseImage(&m_kept);
}

// ---- The store ------------------------------------------------------------------------------------------------------

template<TovStatus (RasterDisplay::*Command)()>
unsigned int RasterDisplay::Run(void *context)
{
    return static_cast<unsigned int>((static_cast<RasterDisplay *>(context)->*Command)());
}

void RasterDisplay::AddParams()
{
    m_params.AddTo(m_storage,
                   {&Run<&RasterDisplay::ZoomIn>, &Run<&RasterDisplay::ZoomOut>, &Run<&RasterDisplay::Centre>,
                    &Run<&RasterDisplay::DumpOn>, &Run<&RasterDisplay::DumpOff>, &Run<&RasterDisplay::AddFilter>,
                    &Run<&RasterDisplay::DeleteFilter>},
                   this);
    for (char const *key : {"display.fit", "display.init.fit", "display.init.at.x", "display.init.at.y", "display.at.x",
                            "display.at.y", "display.view.scale", "dump.x", "dump.y", "dump.w", "dump.h"})
        m_storage.AddParamChangedListener(key, this);
}

void RasterDisplay::ParamChanged(_TovStParam param)
{
    auto const is = [&param](char const *key) {
        return std::strcmp(param.name, key) == 0;
    };
    if (is("display.fit")) {
        ChangeView([this](View &view) { view.state.SetFit(static_cast<ViewFit>(TovLoadBound(m_params.fit))); });
    } else if (is("display.init.fit")) {
        // How a view opens: no effect once it has a picture.
        auto const fit = static_cast<ViewFit>(TovLoadBound(m_params.initFit));
        bool open = false;
        ChangeView([&](View &view) {
            open = view.state.HasImage();
            if (!open)
                view.state.SetFit(fit);
        });
        if (!open)
            TovStoreBound(m_params.fit, std::int64_t(fit));
    } else if (is("display.init.at.x") || is("display.init.at.y")) {
        ChangeView([this](View &view) {
            if (!view.state.HasImage())
                view.state.SetCentre(TovLoadBound(m_params.initAt[0]), TovLoadBound(m_params.initAt[1]));
        });
    } else if (is("display.at.x") || is("display.at.y")) {
        ChangeView(
            [this](View &view) { view.state.SetCentre(TovLoadBound(m_params.at[0]), TovLoadBound(m_params.at[1])); });
    } else if (is("display.view.scale")) {
        if (std::int64_t const scale = TovLoadBound(m_params.viewScale)) {
            ChangeView([scale](View &view) { view.state.SetScale(double(scale)); });
            TovStoreBound(m_params.fit, std::int64_t(FitNone));
        }
    } else if (m_target && m_dumpShown) {
        m_target->update();
    }
}

TovStatus RasterDisplay::ZoomIn()
{
    ChangeView([](View &view) { view.state.ZoomStep(true); });
    return TOV_PARAM_OK;
}

TovStatus RasterDisplay::ZoomOut()
{
    ChangeView([](View &view) { view.state.ZoomStep(false); });
    return TOV_PARAM_OK;
}

TovStatus RasterDisplay::Centre()
{
    ChangeView([](View &view) { view.state.SetCentre(0.5, 0.5); });
    return TOV_PARAM_OK;
}

TovStatus RasterDisplay::DumpOn()
{
    m_dumpShown = true;
    if (m_target)
        m_target->update();
    return TOV_PARAM_OK;
}

TovStatus RasterDisplay::DumpOff()
{
    m_dumpShown = false;
    if (m_target)
        m_target->update();
    return TOV_PARAM_OK;
}

// A filter of state 0 is known but shows nothing.
TovStatus RasterDisplay::AddFilter()
{
    if (TovLoadBound(m_params.filterChannels) != 1)
        return TOV_PARAM_ERR_VALUE;
    std::shared_ptr<DisplayLut const> lut = DisplayLut::Parse(m_params.filterChannel.get());
    if (!lut)
        return TOV_PARAM_ERR_VALUE;
    if (TovLoadBound(m_params.filterState) == 0)
        lut = nullptr;
    m_filters[TovLoadBound(m_params.filterId)] = lut;
    ShowFilter();
    return TOV_PARAM_OK;
}

TovStatus RasterDisplay::DeleteFilter()
{
    m_filters.erase(TovLoadBound(m_params.filterId));
    ShowFilter();
    return TOV_PARAM_OK;
}

// Of several that are on, the one with the highest id shows.
void RasterDisplay::ShowFilter()
{
    auto const shown = std::find_if(m_filters.rbegin(), m_filters.rend(), [](auto const &f) { return f.second; });
    ChangeView([&](View &view) { view.lut = shown != m_filters.rend() ? shown->second : nullptr; });
}

TovComponent *RasterDisplay::GetComponent()
{
    return this;
}

// ---- The view -------------------------------------------------------------------------------------------------------

RasterDisplay::View RasterDisplay::GetView()
{
    std::lock_guard const lock(m_viewMutex);
    return m_view;
}

// GUI thread.
template<class Change>
void RasterDisplay::ChangeView(Change change)
{
    ViewState state;
    {
        std::lock_guard const lock(m_viewMutex);
        change(m_view);
        state = m_view.state;
    }
    TovStoreBound(m_params.fit, std::int64_t(state.Fit()));
    TovStoreBound(m_params.at[0], state.CentreX());
    TovStoreBound(m_params.at[1], state.CentreY());
    if (m_target)
        m_target->update();
}

void RasterDisplay::TakeViewSize()
{
    double const ratio = m_target->devicePixelRatioF();
    int const width = qRound(m_target->width() * ratio);
    int const height = qRound(m_target->height() * ratio);
    std::lock_guard const lock(m_viewMutex);
    m_view.pixelRatio = ratio;
    m_view.state.SetViewSize(width, height);
}

std::int32_t RasterDisplay::Initialize(QWidget *widget, char const *format, int)
{
    if (!widget || m_widget)
        return ErrArgument;
    if (!IsFormat(format))
        return ErrFormat;
    m_widget = widget;
    auto *const area = qobject_cast<QAbstractScrollArea *>(widget);
    m_target = area ? area->viewport() : widget;
    m_opaqueBefore = m_target->testAttribute(Qt::WA_OpaquePaintEvent);
    m_target->setAttribute(Qt::WA_OpaquePaintEvent);
    m_target->installEventFilter(this);
    if (m_widget != m_target)
        m_widget->installEventFilter(this);
    TakeViewSize();
    m_target->update();
    return OK;
}

std::int32_t RasterDisplay::SetVideoFormat(_TovImage const *image, char const *format)
{
    if (!image || image->width == 0 || image->height == 0 || !TovGetPixelTypeInfo(image->pixelType))
        return ErrArgument;
    if (!IsFormat(format))
        return ErrFormat;
    std::lock_guard const lock(m_viewMutex);
    m_view.state.SetImageSize(static_cast<int>(image->width), static_cast<int>(image->height));
    return OK;
}

std::int32_t RasterDisplay::ConvertImage(_TovImage const *source, _TovImage *destination)
{
    return static_cast<std::int32_t>(TovConvertImage(destination, source));
}

std::int32_t RasterDisplay::Translate(int *x, int *y, int direction)
{
    if (!x || !y)
        return ErrArgument;
    View const view = GetView();
    if (!view.state.HasImage())
        return ErrNoImage;
    ViewGeometry const geometry = view.state.Geometry();
    if (direction == 1) {
        *x = geometry.x.ToImage(static_cast<int>(std::floor(*x * view.pixelRatio)));
        *y = geometry.y.ToImage(static_cast<int>(std::floor(*y * view.pixelRatio)));
    } else {
        *x = static_cast<int>(std::ceil(geometry.x.ToDevice(*x) / view.pixelRatio));
        *y = static_cast<int>(std::ceil(geometry.y.ToDevice(*y) / view.pixelRatio));
    }
    return OK;
}

// ---- Pictures -------------------------------------------------------------------------------------------------------

std::unique_ptr<Picture> RasterDisplay::TakePicture()
{
    {
        std::lock_guard const lock(m_slotMutex);
        if (!m_free.empty()) {
            std::unique_ptr<Picture> picture = std::move(m_free.back());
            m_free.pop_back();
            return picture;
        }
    }
    return std::make_unique<Picture>();
}

void RasterDisplay::GivePicture(std::unique_ptr<Picture> picture)
{
    if (!picture)
        return;
    std::lock_guard const lock(m_slotMutex);
    if (m_free.size() < SparePictures)
        m_free.push_back(std::move(picture));
}

std::int32_t RasterDisplay::Render(_TovImage const *image, FramePainter *painter, std::unique_ptr<Picture> *picture)
{
    TovPixelTypeInfo const *const info = Readable(image);
    if (!info)
        return ErrArgument;
    View view;
    {
        std::lock_guard const lock(m_viewMutex);
        m_view.state.SetImageSize(static_cast<int>(image->width), static_cast<int>(image->height));
        view = m_view;
    }
    try {
        std::unique_ptr<Picture> made = TakePicture();
        painter->Paint(*image, *info, view.state.Geometry(), view.lut, made.get());
        *picture = std::move(made);
    } catch (std::bad_alloc const &) {
        return ErrMemory;
    }
    return OK;
}

std::int32_t RasterDisplay::DisplayVideo(_TovImage const *image)
{
    std::unique_ptr<Picture> picture;
    if (std::int32_t const status = Render(image, &m_painter, &picture))
        return status;
    {
        // The event is made and posted under the lock that its receiver takes, which orders the two threads whatever Qt
        // does.
        std::lock_guard const lock(m_slotMutex);
        picture.swap(m_newest);
        if (!std::exchange(m_eventPending, true))
            QCoreApplication::postEvent(this, new QEvent(PictureEvent()));
    }
    GivePicture(std::move(picture)); // a picture that was never shown
    return OK;
}

void RasterDisplay::customEvent(QEvent *)
{
    TakeNewest(); // our only event
}

void RasterDisplay::TakeNewest()
{
    std::unique_ptr<Picture> picture;
    {
        std::lock_guard const lock(m_slotMutex);
        picture = std::move(m_newest);
        m_eventPending = false;
    }
    if (!picture)
        return;
    m_current.swap(picture);
    GivePicture(std::move(picture));
    TovReleaseImage(&m_kept);
    m_kept = nullptr;
    m_message.clear();
    if (m_target)
        m_target->update();
}

bool RasterDisplay::IsStale(View const &view) const
{
    return !m_current || m_current->geometry != view.state.Geometry() || m_current->lut != view.lut;
}

std::int32_t RasterDisplay::RefreshVideo(_TovImage const *image)
{
    if (!m_target || !IsStale(GetView()))
        return m_target ? OK : ErrNoWidget;
    std::unique_ptr<Picture> picture;
    if (std::int32_t const status = Render(image, &m_guiPainter, &picture))
        return status;
    m_current.swap(picture);
    GivePicture(std::move(picture));
    m_target->update();
    return OK;
}

std::int32_t RasterDisplay::KeepVideo(_TovImage const *image)
{
    TakeNewest(); // a picture still on its way is no newer than this frame
    TovReleaseImage(&m_kept);
    m_kept = nullptr;
    if (!image)
        return OK;
    if (!Readable(image))
        return ErrArgument;
    if (!TovSucceeded(TovCreateImage(&m_kept, {image->width, image->height}, image->pixelType))) {
        m_kept = nullptr;
        return ErrMemory;
    }
    TovCopyImage(m_kept, image);
    return OK;
}

_TovImage const *RasterDisplay::GetKeptVideo() const
{
    return m_kept;
}

void RasterDisplay::ClearVideo()
{
    std::unique_ptr<Picture> waiting;
    {
        std::lock_guard const lock(m_slotMutex);
        waiting = std::move(m_newest);
    }
    GivePicture(std::move(waiting));
    GivePicture(std::move(m_current));
    if (m_target)
        m_target->update();
}

void RasterDisplay::ShowMessage(char const *text)
{
    QString message = QString::fromUtf8(text);
    if (message == m_message)
        return;
    m_message = std::move(message);
    if (m_target)
        m_target->update();
}

// ---- Painting -------------------------------------------------------------------------------------------------------

void RasterDisplay::Paint(QPaintEvent *event)
{
    TakeViewSize(); // the screen's scale may have changed without a resize
    View const view = GetView();
    ViewGeometry const geometry = view.state.Geometry();
    if (m_kept && IsStale(view)) {
        std::unique_ptr<Picture> picture;
        if (Render(m_kept, &m_guiPainter, &picture) == OK) {
            m_current.swap(picture);
            GivePicture(std::move(picture));
        }
    }

    QPainter painter(m_target);
    if (view.pixelRatio != 1.0)
        painter.scale(1 / view.pixelRatio, 1 / view.pixelRatio); // from here on in device pixels
    else
        painter.setClipRegion(event->region());
    PaintPicture(painter, m_current.get(), geometry);
    if (m_dumpShown && geometry.HasImage())
        PaintMark(painter, geometry, Dump(), std::max(1, qRound(view.pixelRatio)));
    if (!m_message.isEmpty())
        PaintMessage(painter, *m_target, m_message);
}

PixelRect RasterDisplay::Dump() const
{
    return {TovLoadBound(m_params.dump[0]), TovLoadBound(m_params.dump[1]), TovLoadBound(m_params.dump[2]),
            TovLoadBound(m_params.dump[3])};
}

// ---- The operator's hand --------------------------------------------------------------------------------------------

QPoint RasterDisplay::ToDevice(QPointF const &position) const
{
    double const ratio = m_target->devicePixelRatioF();
    return {static_cast<int>(std::floor(position.x() * ratio)), static_cast<int>(std::floor(position.y() * ratio))};
}

bool RasterDisplay::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_widget && event->type() == QEvent::KeyPress)
        return Key(static_cast<QKeyEvent *>(event));
    if (watched != m_target)
        return false;
    switch (event->type()) {
    case QEvent::Paint:
        Paint(static_cast<QPaintEvent *>(event));
        return true;
    case QEvent::Resize:
        TakeViewSize();
        m_target->update();
        return false;
    case QEvent::Wheel:
        return Wheel(static_cast<QWheelEvent *>(event));
    case QEvent::MouseButtonPress:
        return MousePress(static_cast<QMouseEvent *>(event));
    case QEvent::MouseMove:
        MouseMove(static_cast<QMouseEvent *>(event));
        return false; // the owner reads the pixel under the pointer
    case QEvent::MouseButtonRelease:
        return MouseRelease(static_cast<QMouseEvent *>(event));
    default:
        return false;
    }
}

bool RasterDisplay::Wheel(QWheelEvent *event)
{
    int const delta = event->angleDelta().y();
    if (delta != 0) {
        QPoint const at = ToDevice(event->position());
        ChangeView([&](View &view) { view.state.ZoomAt(std::pow(WheelStep, delta / 120.0), at.x(), at.y()); });
    }
    event->accept();
    return true;
}

bool RasterDisplay::MousePress(QMouseEvent *event)
{
    View const view = GetView();
    if (event->button() != Qt::LeftButton || !view.state.CanPan())
        return false;
    m_dragging = true;
    m_dragFrom = ToDevice(event->localPos());
    m_dragGeometry = view.state.Geometry();
    m_target->setCursor(Qt::ClosedHandCursor);
    return true;
}

void RasterDisplay::MouseMove(QMouseEvent *event)
{
    if (!m_dragging)
        return;
    QPoint const by = ToDevice(event->localPos()) - m_dragFrom;
    ChangeView([&](View &view) { view.state.Pan(m_dragGeometry, by.x(), by.y()); });
}

bool RasterDisplay::MouseRelease(QMouseEvent *event)
{
    if (!m_dragging || event->button() != Qt::LeftButton)
        return false;
    m_dragging = false;
    m_target->unsetCursor();
    return true;
}

// + and - zoom, 0 fits, 1 shows the actual size, the arrows move the view over the picture.
bool RasterDisplay::Key(QKeyEvent *event)
{
    if (event->modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier))
        return false;
    auto const pan = [this](int x, int y) {
        ChangeView([&](View &view) {
            ViewGeometry const geometry = view.state.Geometry();
            view.state.Pan(geometry, x * geometry.x.view / KeyPanPart, y * geometry.y.view / KeyPanPart);
        });
    };
    switch (event->key()) {
    case Qt::Key_Plus:
        ZoomIn();
        return true;
    case Qt::Key_Minus:
        ZoomOut();
        return true;
    case Qt::Key_0:
        m_storage.SetParamInt("display.fit", FitWindow, true);
        return true;
    case Qt::Key_1:
        m_storage.SetParamInt("display.fit", FitActual, true);
        return true;
    case Qt::Key_Left:
        pan(1, 0);
        return true;
    case Qt::Key_Right:
        pan(-1, 0);
        return true;
    case Qt::Key_Up:
        pan(0, 1);
        return true;
    case Qt::Key_Down:
        pan(0, -1);
        return true;
    default:
        return false;
    }
}
