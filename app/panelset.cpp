#include "panelset.h"

#include "camgenparampanelimpl.h"
#include "capturepanelimpl.h"
#include "displayview.h"
#include "histogrampanel.h"
#include "inspectview.h"
#include "logpanelimpl.h"
#include "managedwindow.h"
#include "panelhost.h"
#include "session.h"
#include "statisticspanel.h"

#include "tovdisplay.h"

#include <QAbstractButton>
#include <QAction>
#include <QCursor>
#include <QHeaderView>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QSettings>
#include <QTableView>

#include <initializer_list>
#include <utility>

namespace {

QString const StateKey = QStringLiteral("wndState");
constexpr int StateVersion = 0;

// Gives screen readers names for the parts of a panel without a text, those of Qt's own widgets included.
void NameParts(PlayerPanel *panel)
{
    for (QAbstractScrollArea *const view : panel->findChildren<QAbstractScrollArea *>()) {
        if (view->accessibleName().isEmpty() && !qobject_cast<QHeaderView *>(view))
            view->setAccessibleName(panel->accessibleName());
    }
    for (QAbstractButton *const button : panel->findChildren<QAbstractButton *>()) {
        if (!button->text().isEmpty() || !button->accessibleName().isEmpty())
            continue;
        bool const ofTable = qobject_cast<QTableView *>(button->parent()) != nullptr;
        if (ofTable || qobject_cast<QLineEdit *>(button->parent()))
            button->setAccessibleName(ofTable ? PanelSet::tr("Select all") : PanelSet::tr("Clear"));
    }
}

} // namespace

PanelSet::PanelSet(ManagedWindow *window, PanelHost *host) : m_window(window), m_host(host)
{
}

QMainWindow *PanelSet::MainWindow() const
{
    return m_window->GetMainWindow();
}

DisplayView *PanelSet::CurrentDisplay() const
{
    Session *const session = m_host->GetSession();
    return session ? session->GetDisplayView() : nullptr;
}

// ---- Making and closing ---------------------------------------------------------------------------------------------

void PanelSet::Create()
{
    m_statesStored = false;
    if (!m_parameters) {
        m_parameters = new CamGenParamPanelImpl(MainWindow());
        m_parameters->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(m_parameters, &QWidget::customContextMenuRequested, this, &PanelSet::ParameterMenu);
    }
    Introduce(m_parameters);
    if (!m_capture)
        m_capture = new CapturePanelImpl(MainWindow(), m_host);
    Introduce(m_capture);
    if (!m_log)
        m_log = new LogPanelImpl(MainWindow());
    Introduce(m_log);
    if (!m_statistics)
        m_statistics = new StatisticsPanelImpl(MainWindow(), m_host);
    Introduce(m_statistics);
    // The log's lines need the width that the capture panel's file names need, and hardly ever at the same time.
    MainWindow()->tabifyDockWidget(m_capture, m_log);
    m_capture->raise();
    if (!m_histogram)
        m_histogram = new HistogramPanel(MainWindow());
    m_histogram->SetCurrentSession(m_host->GetSession());
    m_histogram->close(); // it starts hidden
    LoadState(m_histogram);
    // The picture gets the rest, unless a stored layout says otherwise.
    MainWindow()->resizeDocks({m_capture}, {m_capture->sizeHint().height()}, Qt::Vertical);
    for (PlayerPanel *const panel : Panels())
        NameParts(panel);
}

void PanelSet::Introduce(PlayerPanel *panel)
{
    panel->SetCurrentSession(m_host->GetSession());
    LoadState(panel);
}

void PanelSet::LoadState(PlayerPanel *panel)
{
    Session *const session = m_host->GetSession();
    panel->LoadStateFromGlobalSettings(m_window->GetGlobalSettings());
    panel->LoadStateFromSessionSettings(session->GetSettings(), session->GetSettingsName());
}

// Those there are, in the order in which they are stored.
std::vector<PlayerPanel *> PanelSet::Panels() const
{
    std::vector<PlayerPanel *> panels{m_capture, m_parameters, m_log, m_statistics, m_inspection, m_histogram};
    std::erase(panels, nullptr);
    return panels;
}

void PanelSet::RestoreLayout()
{
    MainWindow()->restoreState(m_window->GetGlobalSettings()->value(StateKey).toByteArray(), StateVersion);
}

void PanelSet::SaveStates()
{
    if (Session *const session = m_host->GetSession()) {
        for (PlayerPanel *const panel : Panels())
            panel->SaveStateToSessionSettings(session->GetSettings(), session->GetSettingsName());
    }
    m_window->GetGlobalSettings()->setValue(StateKey, MainWindow()->saveState(StateVersion));
}

void PanelSet::Store()
{
    SaveStates();
    for (PlayerPanel *const panel : Panels())
        panel->SaveStateToGlobalSettings(m_window->GetGlobalSettings());
    m_statesStored = true;
}

template<typename Panel>
void PanelSet::Remove(Panel *&panel)
{
    if (!panel)
        return;
    if (!m_statesStored)
        panel->SaveStateToGlobalSettings(m_window->GetGlobalSettings());
    panel->CheckActionMenu(panel->GetActionName(),
                           false); // not by hiding it, which would be stored as the operator's wish
    delete std::exchange(panel, nullptr);
}

void PanelSet::Close()
{
    // While the docks still exist.
    if (!m_statesStored)
        SaveStates();
    Remove(m_capture);
    Remove(m_parameters);
    Remove(m_log);
    Remove(m_statistics);
    if (DisplayView *const display = m_inspection ? CurrentDisplay() : nullptr)
        display->RemoveInspectView(m_inspection);
    Remove(m_inspection);
    Remove(m_histogram);
    // Deleting a floating dock leaves it hidden in the layout, and the window's next saveState would store that.
    RestoreLayout();
}

void PanelSet::UpdateAll()
{
    std::initializer_list<PlayerPanel *> const panels{m_capture,    m_parameters, m_log,
                                                      m_statistics, m_histogram,  m_inspection};
    for (PlayerPanel *const panel : panels) {
        if (panel)
            panel->UpdateAll();
    }
}

// ---- Capture and parameters -----------------------------------------------------------------------------------------

void PanelSet::FinishEditing()
{
    if (m_capture)
        m_capture->FinishEditing();
}

void PanelSet::ShowParameters(TovGui::Visibility level)
{
    if (m_parameters)
        m_parameters->setVisibility(level);
}

void PanelSet::ParameterMenu(QPoint const &pos)
{
    auto *const menu = new QMenu(m_parameters); // the panel may go while it is open
    menu->setAttribute(Qt::WA_DeleteOnClose);
    std::pair<QString, TovGui::Visibility> const views[] = {
        {QStringLiteral("actionCamConfig_BasicView"), TovGui::Beginner},
        {QStringLiteral("actionCamConfig_ExpertView"), TovGui::Expert}};
    for (auto const &[name, level] : views) {
        if (auto *const action = MainWindow()->findChild<QAction *>(name)) {
            action->setChecked(m_parameters->visibility() == level);
            menu->addAction(action);
        }
    }
    menu->popup(m_parameters->mapToGlobal(pos));
}

// ---- The inspection view --------------------------------------------------------------------------------------------

void PanelSet::OpenInspection(DisplayView *display, QPoint position, QPoint pixel)
{
    TovDisplay *const renderer = display->GetRenderer();
    m_inspection =
        new InspectView(MainWindow(), renderer ? renderer->GetComponent() : nullptr, position, pixel.x(), pixel.y());
    Introduce(m_inspection);
    m_inspection->JoinDisplay(display);
}

void PanelSet::Inspect(QPoint position, std::optional<QPoint> pixel)
{
    DisplayView *const display = CurrentDisplay();
    if (!display)
        return;
    if (!m_inspection)
        OpenInspection(display, position, pixel.value_or(QPoint()));
    m_inspection->move(position); // its size is kept; its place is the pointer's
    m_inspection->KeepOnScreen();
    if (pixel)
        m_inspection->LookAt(*pixel);
    m_inspection->show();
    m_inspection->raise();
    m_inspection->activateWindow();
    m_inspection->setFocus();
}

void PanelSet::ToggleInspection()
{
    if (m_inspection) {
        m_inspection->ShowOrHide();
        return;
    }
    DisplayView *const display = CurrentDisplay();
    if (!display)
        return;
    QPoint position = QCursor::pos();
    std::optional<QPoint> pixel = display->PixelAt(position);
    if (!pixel) {
        position = display->mapToGlobal(display->rect().center());
        pixel = display->PixelAt(position);
    }
    Inspect(position, pixel);
}

void PanelSet::ReopenInspection()
{
    DisplayView *const display = CurrentDisplay();
    if (!display || m_inspection || !InspectView::WasOpen(m_window->GetGlobalSettings()))
        return;
    OpenInspection(display, QPoint(), QPoint());
    m_inspection->setAttribute(Qt::WA_ShowWithoutActivating);
    m_inspection->show();
    m_inspection->setAttribute(Qt::WA_ShowWithoutActivating, false);
}

void PanelSet::DeleteInspection()
{
    delete std::exchange(m_inspection, nullptr);
}
