#include "inspectview.h"

#include "displayview.h"

#include "tovdisplay.h"

#include <QCoreApplication>
#include <QEvent>
#include <QKeyEvent>
#include <QMainWindow>
#include <QSettings>

#include <algorithm>

namespace {

constexpr int Period = 1000;                         // milliseconds
QString const Group = QStringLiteral("InspectView"); // its object name
QString const OpenKey = QStringLiteral("open");

QEvent::Type FirstFrameEvent()
{
    static int const type = QEvent::registerEventType();
    return static_cast<QEvent::Type>(type);
}

} // namespace

int InspectView::s_id = 0;

InspectViewDisplay::InspectViewDisplay(InspectView *view) : QWidget(view), m_view(view)
{
    setFocusPolicy(Qt::StrongFocus); // the arrow keys move the picture
}

bool InspectViewDisplay::nativeEvent(QByteArray const &eventType, void *message, long *result)
{
    return m_view->displayNativeEvent(eventType, message, result);
}

InspectView::InspectView(QMainWindow *window, TovComponent *mainDisplay, QPoint position, double x, double y)
    : PlayerPanel(window, QStringLiteral("actionInspectionView"), Period),
      m_display(TovDisplay::CreateComponent()),
      m_mainDisplay(mainDisplay),
      m_clickX(x),
      m_clickY(y)
{
    if (m_display) {
        TovComponent *const component = m_display->GetComponent();
        component->SetParamInt("display.init.fit", 3);
        component->SetParamFloat("display.init.at.x", 0.5); // LookAt has the point
        component->SetParamFloat("display.init.at.y", 0.5);
    }
    ++s_id;
    hide(); // or floating it would show it before it has its place
    // It belongs to the window and to none of its dock areas, so the window's layout does not hear of it.
    setupUi(this);
    setWindowTitle(tr("Inspection View"));
    setFloating(true);
    move(position);
    m_displayWidget = new InspectViewDisplay(this);
    delete widget();
    setWidget(m_displayWidget);
    setFocusProxy(m_displayWidget);
    m_displayWidget->setAccessibleName(tr("Part of the picture"));
    if (m_display && m_display->Initialize(m_displayWidget, "auto", 0) != 0) {
        TovDisplay::DeleteComponent(m_display);
        m_display = nullptr; // an empty window stays
    }
    if (m_display) {
        m_display->GetComponent()->SetParamInt("display.fit", 0);
        UpdateRectangle();
        m_display->GetComponent()->SetParamInt("display.view.scale", 1);
        m_displayWidget->installEventFilter(this); // before the renderer's
    }
    if (m_mainDisplay)
        m_mainDisplay->RunCommand("display.dump.off");
}

InspectView::~InspectView()
{
    if (m_displayView)
        m_displayView->RemoveInspectView(this); // from here on no frame comes
    if (m_mainDisplay)
        m_mainDisplay->RunCommand("display.dump.off");
    m_displayWidget->removeEventFilter(this);
    if (m_display)
        TovDisplay::DeleteComponent(m_display);
}

bool InspectView::SaveStateToGlobalSettings(QSettings *settings)
{
    settings->setValue(Group + QLatin1Char('/') + OpenKey, isVisible());
    return PlayerPanel::SaveStateToGlobalSettings(settings);
}

bool InspectView::WasOpen(QSettings *settings)
{
    return settings->value(Group + QLatin1Char('/') + OpenKey).toBool();
}

void InspectView::JoinDisplay(DisplayView *display)
{
    m_displayView = display;
    display->AddInspectView(this);
}

void InspectView::LookAt(QPointF pixel)
{
    m_point = pixel;
    ApplyPoint();
}

void InspectView::ApplyPoint()
{
    std::uint32_t const width = m_imageWidth;
    std::uint32_t const height = m_imageHeight;
    if (!m_point || !m_display || width == 0 || height == 0)
        return;
    TovComponent *const component = m_display->GetComponent();
    component->SetParamFloat("display.at.x", (m_point->x() + 0.5) / width);
    component->SetParamFloat("display.at.y", (m_point->y() + 0.5) / height);
    m_point.reset();
}

// ---- Frames ---------------------------------------------------------------------------------------------------------

// Both do the same: any start or stop of the main stream asks for a new set-up.
void InspectView::StartDisplaying()
{
    m_firstFrame = true;
}

void InspectView::StopDisplaying()
{
    m_firstFrame = true;
}

bool InspectView::VerifyDisplayFormat(_TovImage const *image)
{
    return m_displayFormat.Verify(image);
}

void InspectView::DisplayImage(_TovImage const *image)
{
    if (!m_display || !m_shown)
        return;
    bool const first = m_firstFrame;
    if (first && !VerifyDisplayFormat(image))
        m_display->SetVideoFormat(image, "auto");
    m_display->DisplayVideo(image);
    if (first)
        InitByFirstFrame(image);
    m_firstFrame = false;
}

// The rectangle belongs to the GUI thread and follows there.
void InspectView::InitByFirstFrame(_TovImage const *image)
{
    auto *const event = new QEvent(FirstFrameEvent());
    m_imageWidth = image->width;
    m_imageHeight = image->height;
    QCoreApplication::postEvent(this, event);
}

void InspectView::customEvent(QEvent *)
{
    ApplyPoint(); // our only event
    UpdateRectangle();
}

void InspectView::RefreshImage(_TovImage const *image)
{
    if (!m_display || !m_shown)
        return;
    TakeShape(image);
    m_display->RefreshVideo(image);
}

void InspectView::KeepImage(_TovImage const *image)
{
    if (!m_display)
        return;
    m_display->KeepVideo(image);
    TakeShape(image);
}

// A picture that does not come through DisplayImage: the view was opened, or shown again, when no more frames came.
void InspectView::TakeShape(_TovImage const *image)
{
    if (m_imageWidth == image->width && m_imageHeight == image->height)
        return;
    m_display->SetVideoFormat(image, "auto");
    m_imageWidth = image->width;
    m_imageHeight = image->height;
    ApplyPoint();
    UpdateRectangle();
}

// ---- The rectangle --------------------------------------------------------------------------------------------------

QRect InspectView::Rectangle() const
{
    QRect const view = m_displayWidget->geometry();
    int const width = view.right() - view.left() + 1;
    int const height = view.bottom() - view.top() + 1;
    int x = 0;
    int y = 0;
    int farX = width;
    int farY = height;
    if (m_display && m_display->Translate(&x, &y, 1) == 0)
        m_display->Translate(&farX, &farY, 1);
    x = std::max(x, 0);
    y = std::max(y, 0);
    auto const imageWidth = static_cast<std::int32_t>(m_imageWidth.load());
    auto const imageHeight = static_cast<std::int32_t>(m_imageHeight.load());
    // The mark begins one pixel inside what is shown, and ends with it, so that its lines lie in the picture.
    return {x + 1, y + 1, std::min(imageWidth - 1, farX - x - 1), std::min(imageHeight - 1, farY - y - 1)};
}

void InspectView::UpdateRectangle()
{
    m_marked = Rectangle();
    if (!m_mainDisplay)
        return;
    m_mainDisplay->SetParamInt("dump.x", m_marked.x());
    m_mainDisplay->SetParamInt("dump.y", m_marked.y());
    m_mainDisplay->SetParamInt("dump.w", m_marked.width());
    m_mainDisplay->SetParamInt("dump.h", m_marked.height());
    if (isHidden())
        m_mainDisplay->RunCommand("display.dump.off");
    else if (m_marked.width() >= 1 && m_marked.height() > 0)
        m_mainDisplay->RunCommand("display.dump.on");
}

// ---- Events ---------------------------------------------------------------------------------------------------------

bool InspectView::displayNativeEvent(QByteArray const &eventType, void * /*message*/, long * /*result*/)
{
    // Messages of another window system are left alone like all others.
    if (eventType == "windows_generic_MSG")
        return false;
    return false;
}

// The renderer's own handling of its widget's events would change the scale as well, which stays at 1 here.
bool InspectView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_displayWidget)
        return PlayerPanel::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::Wheel:
        return true;
    case QEvent::KeyPress:
        switch (static_cast<QKeyEvent *>(event)->key()) {
        case Qt::Key_Left:
        case Qt::Key_Right:
        case Qt::Key_Up:
        case Qt::Key_Down:
            return false;
        default:
            event->ignore();
            return true;
        }
    case QEvent::Paint:
        // Comes after everything that moves the picture in its view, whoever did it.
        if (Rectangle() != m_marked)
            UpdateRectangle();
        return false;
    default:
        return false;
    }
}

void InspectView::showEvent(QShowEvent *event)
{
    PlayerPanel::showEvent(event);
    if (!event->spontaneous() && m_display)
        m_display->ClearVideo(); // an old picture
    m_shown = true;
    if (m_mainDisplay)
        UpdateRectangle();
}

void InspectView::hideEvent(QHideEvent *event)
{
    PlayerPanel::hideEvent(event);
    m_shown = !isHidden(); // a window that is minimised is not hidden
    if (m_mainDisplay)
        UpdateRectangle();
}

void InspectView::moveEvent(QMoveEvent *event)
{
    PlayerPanel::moveEvent(event);
    UpdateRectangle(); // onto a screen of another scale
}
