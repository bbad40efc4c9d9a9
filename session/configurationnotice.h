// Tells the operator what came of a configuration file: one line on the board, and every setting that was refused in
// the program's log. Any thread.
#pragma once

#include "tovcamera.h"

#include <QCoreApplication>
#include <QString>

class ConfigurationNotice
{
    Q_DECLARE_TR_FUNCTIONS(ConfigurationNotice)
public:
    // `status` is that of the operation; the report may be empty where a library makes none. Success withdraws the
    // notice before.
    static void Loaded(QString const &path, std::int32_t status, TovCam::ConfigurationReport const &report);
    static void Saved(QString const &path, std::int32_t status, TovCam::ConfigurationReport const &report);
    // By the operator, who has waited long enough.
    static void LoadingGivenUp(QString const &path);
    static void SavingGivenUp(QString const &path);

private:
    static QString Problem(std::int32_t status, TovCam::ConfigurationReport const &report);
    static QString Refused(TovCam::ConfigurationReport const &report);
    static QString Setting(TovCam::RefusedSetting const &setting);
    static QString Why(TovCam::RefusedSetting const &setting);
    static QString Camera(TovCam::ConfigurationReport const &report);
};
