// The dock panels of an open camera, and its inspection view: made once the session is built, and deleted before it.
// Their states are loaded when they are made and stored when they go. GUI thread only.
#pragma once

#include "tovcameragui.h"

#include <QObject>
#include <QPoint>

#include <optional>
#include <vector>

class CamGenParamPanelImpl;
class CapturePanelImpl;
class DisplayView;
class HistogramPanel;
class InspectView;
class LogPanelImpl;
class ManagedWindow;
class PanelHost;
class PlayerPanel;
class QMainWindow;
class StatisticsPanelImpl;

class PanelSet : public QObject
{
    Q_OBJECT
public:
    // Both outlive the set.
    PanelSet(ManagedWindow *window, PanelHost *host);

    // For the host's session. Panels that exist already are given that session.
    void Create();
    // Stores the states, unless Store has, and deletes the panels.
    void Close();
    // Stores the states now: the window is still open, but will not be when Close is called, and floating panels will
    // be hidden by then.
    void Store();
    // The window's layout, as last stored.
    void RestoreLayout();
    void UpdateAll();

    // Commits what is being typed in the capture panel.
    void FinishEditing();
    void ShowParameters(TovGui::Visibility level);

    // Shows that pixel in an inspection view at that point of the screen; without a pixel, the middle of the image.
    void Inspect(QPoint position, std::optional<QPoint> pixel);
    // Shows or hides the inspection view; opens it at the pointer, or else in the middle of the picture.
    void ToggleInspection();
    // Where it was when the last camera went, if it was open then.
    void ReopenInspection();
    // It looks at the session's display, which it must not outlive.
    void DeleteInspection();

private:
    QMainWindow *MainWindow() const;
    DisplayView *CurrentDisplay() const;
    std::vector<PlayerPanel *> Panels() const;
    void Introduce(PlayerPanel *panel); // a new panel to the session
    void LoadState(PlayerPanel *panel);
    void SaveStates();
    template<typename Panel>
    void Remove(Panel *&panel);
    void OpenInspection(DisplayView *display, QPoint position, QPoint pixel);
    void ParameterMenu(QPoint const &pos); // the choice of basic and expert view, on the panel's title

    ManagedWindow *m_window;
    PanelHost *m_host;
    // Owned, null when no camera is open.
    CapturePanelImpl *m_capture = nullptr;
    CamGenParamPanelImpl *m_parameters = nullptr;
    LogPanelImpl *m_log = nullptr;
    StatisticsPanelImpl *m_statistics = nullptr;
    HistogramPanel *m_histogram = nullptr;
    InspectView *m_inspection = nullptr; // also until the operator opens it
    bool m_statesStored = false;         // by Store
};
