// Persistent settings: one global QSettings for the application, and one for each kind of camera. GUI thread only.
#pragma once

#include <QObject>
#include <QSettings>
#include <QString>

#include <map>
#include <memory>

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

private:
    std::unique_ptr<QSettings> m_globalSettings;
    std::map<QString, std::unique_ptr<QSettings>> m_sessionSettings;
};
