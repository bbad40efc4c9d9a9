// The grabber's running counters in a table, refreshed once a second, with a menu that copies a row or all of them.
#pragma once

#include "playerpanel.h"
#include "tovparamtablemodel.h"
#include "ui_statisticspanel.h"

#include <QModelIndex>

class PanelHost;
class QMenu;

class StatisticsPanelImpl : public PlayerPanel, private Ui::StatisticsPanel
{
    Q_OBJECT
public:
    // Shows the grabber of the host's current session, which the panel must not outlive.
    StatisticsPanelImpl(QMainWindow *window, PanelHost *host);

    void UpdateAll() override;
    // The header's layout as well.
    bool SaveStateToGlobalSettings(QSettings *settings) override;
    bool LoadStateFromGlobalSettings(QSettings *settings) override;

public slots:
    void contextMenuRequested(QPoint pos);
    void Copy();
    void CopyAll();

private:
    void MeasureRows();
    void CopyCurrent(); // by the keyboard
    class RateDelegate;

    TovParamTableModel m_model;
    QAction *m_copy;
    QAction *m_copyAll;
    QModelIndex m_contextIndex; // rows only come, at the end
    QMenu *m_menu;
    bool m_running = false; // the camera: else its last rates are grey
};
