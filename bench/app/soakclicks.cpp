#include "soakclicks.h"

#include "blockwatch.h"
#include "displayview.h"
#include "guimanager.h"
#include "session.h"
#include "tovscope.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QMenuBar>
#include <QTest>
#include <QTimer>
#include <QToolBar>
#include <QWheelEvent>
#include <QWindow>

#include <algorithm>
#include <iterator>

namespace {

int s_timestamp = 0; // of the events that are sent, in milliseconds

bool Send(QWidget *widget, QPoint place, QEvent::Type type, bool pressed)
{
    QWidget *const window = widget->window();
    QWindow *const handle = window->windowHandle();
    if (!handle || !widget->isVisible())
        return false;
    QPoint const at = widget->mapTo(window, place);
    qt_handleMouseEvent(handle, at, window->mapToGlobal(at), pressed ? Qt::LeftButton : Qt::NoButton,
                        type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, type, Qt::NoModifier,
                        s_timestamp += 20);
    return true;
}

} // namespace

bool SoakClicks::Click(QWidget *widget, QPoint const *at, bool twice)
{
    if (!widget || !widget->isVisible() || !widget->isEnabled())
        return false;
    constexpr int BetweenClicks = 1000; // more than a double click may take
    s_timestamp += BetweenClicks;
    QPoint const place = at ? *at : widget->rect().center();
    QPointer<QWidget> const there = widget;
    for (int i = 0; i < (twice ? 2 : 1); ++i) {
        if (!there || !Send(widget, place, QEvent::MouseButtonPress, true))
            return false;
        if (there)
            Send(widget, place, QEvent::MouseButtonRelease, false);
    }
    return true;
}

SoakClicks::SoakClicks(TovScope &window, BlockWatch &watch) : m_window(window), m_watch(watch)
{
    auto const action = [this](char const *name) {
        return [this, name] {
            ClickAction(name);
        };
    };
    m_deeds = {
        {"statistics", 4, action("actionStatistics")},
        {"histogram", 6, action("actionHistogramPanel")},
        {"log", 4, action("actionLog")},
        {"parameters", 2, action("actionGenICamTree")},
        {"capture panel", 1, action("actionCapture")},
        {"inspection view", 3, action("actionInspectionView")},
        {"double click on the picture", 3,
         [this] {
             if (QWidget *const picture = Picture()) {
                 QPoint const place = SomePlace(picture);
                 Click(picture, &place, true);
             }
         }},
        {"zoom in", 3, action("actionZoomIn")},
        {"zoom out", 3, action("actionZoomOut")},
        {"actual size", 2, action("actionActualSize")},
        {"fit", 3, action("actionFitToWindow")},
        {"spread", 2, action("actionSpreadToWindow")},
        {"centre", 1, action("actionCenterImage")},
        {"wheel", 6,
         [this] {
             Wheel();
         }},
        {"drag", 3,
         [this] {
             Drag();
         }},
        {"pointer", 8,
         [this] {
             if (QWidget *const picture = Picture())
                 Send(picture, SomePlace(picture), QEvent::MouseMove, false);
         }},
        {"saturated pixels in colour", 3,
         [this] {
             Session *const session = m_window.GetGuiManager().GetSession();
             long type = 0;
             if (session && TovSucceeded(session->GetDisplay()->GetParamInt("ColorationType", &type)))
                 session->GetDisplay()->SetParamInt("ColorationType", type == 0);
         }},
        {"histogram's mode", 4,
         [this] {
             Measure();
         }},
        {"histogram's logarithm", 2,
         [this] {
             Toggle("logCheckBox");
         }},
        {"resize", 4,
         [this] {
             Resize();
         }},
        {"menu", 3,
         [this] {
             Menu();
         }},
        {"log of the control channel on", 1,
         [this] {
             LogControl(true);
         }},
        {"log of the control channel off", 2,
         [this] {
             LogControl(false);
         }},
        {"clear the log", 2,
         [this] {
             Click(Find<QAbstractButton>("btnClear"));
         }},
    };
}

void SoakClicks::Begin()
{
    m_runs = true;
    Next();
}

void SoakClicks::End()
{
    m_runs = false;
    LogControl(false);
}

void SoakClicks::Next()
{
    if (!m_runs)
        return;
    // Before the deed, which may run an event loop.
    QTimer::singleShot(100 + static_cast<int>(m_random() % 400), this, [this] { Next(); });
    int all = 0;
    for (Deed const &deed : m_deeds)
        all += deed.weight;
    int at = static_cast<int>(m_random() % static_cast<unsigned>(all));
    Deed const *chosen = m_deeds.data();
    for (; at >= chosen->weight; ++chosen)
        at -= chosen->weight;
    m_watch.SetDeed(chosen->name);
    ++m_count;
    chosen->act();
}

template<typename W>
W *SoakClicks::Find(char const *name)
{
    return m_window.findChild<W *>(QString::fromLatin1(name));
}

QWidget *SoakClicks::Picture()
{
    Session *const session = m_window.GetGuiManager().GetSession();
    return session ? session->GetDisplayView() : nullptr;
}

QPoint SoakClicks::SomePlace(QWidget const *widget)
{
    auto const below = [this](int most) {
        return static_cast<int>(m_random() % static_cast<unsigned>(std::max(most, 1)));
    };
    return {below(widget->width()), below(widget->height())};
}

void SoakClicks::ClickAction(char const *name)
{
    auto *const action = Find<QAction>(name);
    for (QToolBar *const bar : m_window.findChildren<QToolBar *>()) {
        if (Click(bar->widgetForAction(action)))
            return;
    }
    if (action->isEnabled() && !QApplication::activeModalWidget())
        action->trigger();
}

void SoakClicks::Toggle(char const *box)
{
    // Its left end, where the mark is.
    if (auto *const check = Find<QCheckBox>(box)) {
        QPoint const mark(8, check->height() / 2);
        Click(check, &mark);
    }
}

void SoakClicks::Wheel()
{
    QWidget *const picture = Picture();
    if (!picture || QApplication::activeModalWidget())
        return;
    QPoint const place = SomePlace(picture);
    QWheelEvent event(place, picture->mapToGlobal(place), QPoint(), QPoint(0, m_random() % 2 != 0 ? 120 : -120),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(picture, &event);
}

void SoakClicks::Drag()
{
    QPointer<QWidget> const picture = Picture();
    if (!picture || !Send(picture, SomePlace(picture), QEvent::MouseButtonPress, true))
        return;
    for (int i = 0; i < 5 && picture; ++i)
        Send(picture, SomePlace(picture), QEvent::MouseMove, true);
    if (picture)
        Send(picture, SomePlace(picture), QEvent::MouseButtonRelease, false);
}

void SoakClicks::Menu()
{
    QMenuBar *const bar = m_window.menuBar();
    if (QApplication::activeModalWidget() || bar->actions().isEmpty())
        return;
    QAction *const menu = bar->actions().at(static_cast<int>(m_random() % 5) % bar->actions().size());
    QPoint const place = bar->actionGeometry(menu).center();
    Click(bar, &place);
    QTimer::singleShot(200, this, [] {
        if (QWidget *const popup = QApplication::activePopupWidget())
            popup->close();
    });
}

void SoakClicks::Measure()
{
    auto *const modes = Find<QComboBox>("modeComboBox");
    if (modes && modes->isVisible() && modes->count() > 0)
        modes->setCurrentIndex(static_cast<int>(m_random() % static_cast<unsigned>(modes->count())));
}

void SoakClicks::Resize()
{
    QSize const sizes[] = {{1136, 726}, {1400, 900}, {1600, 1000}, {1000, 700}};
    m_window.resize(sizes[m_random() % std::size(sizes)]);
}

void SoakClicks::LogControl(bool on)
{
    auto *const group = Find<QGroupBox>("groupLogging");
    if (group && group->isChecked() != on)
        group->setChecked(on);
    auto *const box = Find<QCheckBox>("chkControl");
    if (box && box->isChecked() != on)
        Toggle("chkControl");
}
