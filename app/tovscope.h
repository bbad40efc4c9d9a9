// The main window: menus, toolbars and status bar. It decides nothing about cameras: actions go to the GuiManager, a
// session's live picture gets the central widget, and the status bar shows what lies under the pointer. GUI thread
// only.
#pragma once

#include "appsettings.h"
#include "guimanager.h"
#include "managedwindow.h"
#include "rigtestplugin.h"
#include "ui_tovscope.h"

#include <QMainWindow>

#include <atomic>

class QKeySequence;
class QLabel;
class QTimer;

class TovScope : public QMainWindow, public ManagedWindow
{
    Q_OBJECT
public:
    // With `rigTest` the evaluation plug-in is loaded; with `autoRun` as well, the first camera is connected at once
    // and the plug-in set to work.
    TovScope(QWidget *parent, bool rigTest, bool autoRun);
    ~TovScope() override;

    bool AddDisplayWidget(QWidget *widget) override;
    bool RemoveDisplayWidget(QWidget *widget) override;
    QSettings *GetSessionSettings(QString const &name) override;
    QMainWindow *GetMainWindow() override;
    void RunBandwidthTest(Session *session) override;
    bool WantsCompanions() override;
    void Wait(CameraWait const &wait, std::function<void()> const &action) override;
    QSettings *GetGlobalSettings() override;
    RigTestPlugin *GetRigTest() override;
    void ForgetRigTest() override;
    void clearCoordinatesAndValue() override;
    GuiManager &GetGuiManager();

    // Forgets the plug-in; its object stays loaded.
    static void UnloadRigTest();

    // The loaded evaluation plug-in, null in normal use. Written on the GUI thread, read by any.
    static std::atomic<RigTestPlugin *> &s_pRigTest;

public slots:
    void setCoordinatesAndValue(int x, int y, int r, int g, int b) override;

signals:
    // The window closes, and with it the session; floating panels and dialogs may still be open.
    void closed();

protected:
    void closeEvent(QCloseEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void LoadRigTestPlugin();
    void InitGuiManager();
    void readSettings();
    void writeSettings();
    void adjustStatusBar();
    void MakeKeys();
    void AddKey(QKeySequence const &keys, QAction *action);
    void NameWidgets();
    void PaintFirstSteps();
    void EndBeforeDisk();

    // The manager goes first: closing a session needs the settings and the form.
    Ui_TovScopeClass m_ui;
    AppSettings m_settings;
    GuiManager m_manager;
    QLabel *m_coordinates = nullptr;
    QLabel *m_value = nullptr;
    QTimer *m_tipTime = nullptr; // ends a status tip that nothing else has ended
    bool m_closesLater = false;  // when the action that waits is over
    bool m_closing = false;      // ends the session
    bool m_toldClosed = false;   // before the disk has answered
    bool m_mayWait = true;       // with an event loop
};
