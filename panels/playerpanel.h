// The base of every dock panel: binds widgets to parameters of components, finds the panels that show a parameter when
// it changes anywhere in the program, and keeps the dock's place and its menu action.
//
// A widget is found again by its object name, which is set before it is linked. A change is queued by its key, and the
// panel's timer refreshes each queued key once a period, so a parameter may change as often as it likes.
//
// Threads: the GUI thread. OnParamChanged and UpdateFromComponentAsync may be called, and enableControl be emitted, on
// any. A panel without a timer is refreshed on the thread that makes the change, so it may only show what the GUI
// thread changes.
#pragma once

#include <QDockWidget>
#include <QString>

#include <map>
#include <mutex>
#include <vector>

class QCheckBox;
class QGroupBox;
class QLineEdit;
class QMainWindow;
class QSettings;
class QTableView;
class QTimer;
class Session;
class TovComponent;
struct _TovStParam;

// One widget bound to one parameter.
struct ParamLink
{
    QString paramName;
    char const *format = nullptr; // a printf format of the text form, or null; outlives the link
    QString controlName;          // the widget's object name when it was linked
    int row = 0;                  // in a table's model
    TovComponent *component = nullptr;
};

class PlayerPanel : public QDockWidget
{
    Q_OBJECT
public:
    // `actionName` is the object name of the menu action that shows the panel. The period is in milliseconds; 0 makes
    // no timer.
    PlayerPanel(QMainWindow *window, QString const &actionName, int timerPeriod);
    ~PlayerPanel() override;

    virtual void SetCurrentSession(Session *session);
    virtual void UpdateAll();
    // The panel's place, in the group of its object name.
    virtual bool SaveStateToGlobalSettings(QSettings *settings);
    virtual bool SaveStateToSessionSettings(QSettings *settings, QString const &name);
    virtual bool LoadStateFromGlobalSettings(QSettings *settings);
    virtual bool LoadStateFromSessionSettings(QSettings *settings, QString const &name);
    virtual void OnCameraParamUpdated(QString const &name);
    // At each tick; false keeps the queued refreshes for a later one.
    virtual bool UpdateSelfByTimer();
    virtual void AddParamLink(char const *param, QWidget *widget, TovComponent *component, int row, char const *format);

    // Link a widget, connect it unless it is read-only, and show the parameter's value. A control or a parameter that
    // is linked twice is found by its first link.
    void AddIntegerEdit(QLineEdit *edit, char const *param, char const *format, TovComponent *component);
    // What is typed is written under the edit's object name, not under `param`: the two have to be the same.
    void AddFloatEdit(QLineEdit *edit, char const *param, char const *format, TovComponent *component);
    bool AddStringEdit(QLineEdit *edit, char const *param, TovComponent *component);
    // A null component leaves the box unchecked and unwritten.
    void AddBoolCheckBox(QCheckBox *box, char const *param, TovComponent *component);
    void AddBoolCheckGroupBox(QGroupBox *box, char const *param, TovComponent *component);
    // A row at the end of the view's TovParamTableModel; without a label it shows the key. Nothing for another model.
    void AddTableParam(QTableView *view, char const *param, TovComponent *component, char const *label);

    QString const &GetActionName() const;

    // The first link of that name, or a link with a null component.
    ParamLink GetParamForControl(QString const &controlName) const;
    ParamLink GetControlForParam(QString const &paramName) const;
    bool HasParam(QString const &paramName) const;
    // The first living panel of that action, or null.
    static PlayerPanel *GetPanel(QString const &actionName);

    // Refreshes the widget of one parameter, or of all for an empty name. A field that is being typed into is left
    // alone.
    void UpdateFromComponent(QString const &name);
    // The same at the next tick. Any thread; the GUI thread for an empty name.
    void UpdateFromComponentAsync(QString const &name);
    // Tells every panel that shows the parameter. Any thread; always 0.
    static unsigned int OnParamChanged(unsigned int component, _TovStParam *param);

    // False also for a tab behind another one, a minimised window, and a window that others cover wholly.
    bool CanBeSeen() const;
    // Hides the panel if it can be seen; else shows it in front of what covers it. The menu action follows.
    void ShowOrHide();
    // Moves a floating panel wholly onto its screen, and makes it smaller if it must.
    void KeepOnScreen();

    // Checks the actions of that name in all menus of the main window.
    void CheckActionMenu(QString const &name, bool checked);

signals:
    // From any thread: enables or disables a widget on the GUI thread.
    void enableControl(QObject *w, bool e);

public slots:
    void enableControlSlot(QObject *w, bool e);
    void IntegerEditChanged();
    void FloatEditChanged();
    void StringEditChanged();
    void CheckBoxChanged(int state);
    void CheckGroupBoxChanged(bool on);
    void UpdateByTimer();

protected:
    // Gives the panel at once the size that its contents need, which the event loop would give it later.
    void SettleLayout();
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

    QMainWindow *m_mainWindow;
    QString m_actionName;
    Session *m_session = nullptr;

private:
    static bool IsAlive(PlayerPanel *panel);
    ParamLink SenderLink(QObject *control) const;
    void LinkEdit(QLineEdit *edit, char const *param, char const *format, TovComponent *component,
                  void (PlayerPanel::*changed)());

    // Every panel ever made as its own key, with a null value once it is gone. It and every panel's m_links are written
    // on the GUI thread under s_registryMutex, which readers on other threads hold. m_pendingMutex may be taken under
    // it. Neither is held while widgets are refreshed or parameters written.
    static std::map<PlayerPanel *, PlayerPanel *> s_panels;
    static std::mutex s_registryMutex;

    std::vector<ParamLink> m_links; // in the order of adding
    QTimer *m_timer = nullptr;      // set before the panel is in the registry
    std::recursive_mutex m_pendingMutex;
    std::vector<QString> m_pendingParams; // m_pendingMutex; each name once
};
