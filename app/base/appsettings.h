// Persistent settings: one global QSettings for the application, and one for each kind of camera. GUI thread only.
//
// What has changed goes to the disk soon afterwards, as with every QSettings, but on a thread of its own: the disk may
// take long. Meanwhile an access to the same settings waits.
#pragma once

#include <QObject>
#include <QSettings>
#include <QString>

#include <deque>
#include <map>
#include <memory>
#include <thread>

class TovComponent;

class AppSettings : public QObject
{
    Q_OBJECT
public:
    AppSettings();
    ~AppSettings() override;

    QSettings *GetGlobalSettings();
    // Settings of one kind of camera, made on first use and open until the program ends. Never null.
    QSettings *GetSessionSettings(QString const &name);

    // All parameters of a component, as text under a group. Parameters that cannot be read are left out.
    static void SaveTovComponentSettings(QSettings *settings, QString const &group, TovComponent *component);
    // Sets what the group holds; refused values leave the parameter as it was. A null component is ignored.
    static void LoadTovComponentSettings(QSettings *settings, QString const &group, TovComponent *component);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void StoreNext();

    std::unique_ptr<QSettings> m_globalSettings;
    std::map<QString, std::unique_ptr<QSettings>> m_sessionSettings;
    std::deque<QSettings *> m_changed; // and not stored
    std::thread m_storing;             // joinable until the GUI thread has heard that it is done
};
