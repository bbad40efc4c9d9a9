#include "configurationnotice.h"

#include "noticeboard.h"
#include "tovlog.h"

#include <QFileInfo>
#include <QStringList>

#include <algorithm>

using TovCam::ConfigurationReport;
using TovCam::RefusedSetting;

namespace {

constexpr std::size_t MostTold = 3; // settings by name in one line

QString NameOf(QString const &path)
{
    return QFileInfo(path).fileName();
}

} // namespace

void ConfigurationNotice::Loaded(QString const &path, std::int32_t status, ConfigurationReport const &report)
{
    NoticeBoard &board = NoticeBoard::Instance();
    if (status == 0) {
        board.Withdraw(NoticeTopic::Configuration);
        return;
    }
    bool const inPart = report.problem == ConfigurationReport::Problem::None && !report.refused.empty();
    if (inPart) {
        for (RefusedSetting const &setting : report.refused)
            TovLog::Warning(static_cast<std::uint32_t>(setting.status), "Configuration %s: refused %s",
                            path.toUtf8().constData(), Setting(setting).toUtf8().constData());
        board.Report(NoticeTopic::Configuration, NoticeLevel::Warning,
                     tr("%1: the camera refused %2").arg(NameOf(path), Refused(report)));
    } else {
        board.Report(NoticeTopic::Configuration, NoticeLevel::Error,
                     tr("%1 was not loaded: %2").arg(NameOf(path), Problem(status, report)));
    }
}

void ConfigurationNotice::Saved(QString const &path, std::int32_t status, ConfigurationReport const &report)
{
    NoticeBoard &board = NoticeBoard::Instance();
    QString const kept = NameOf(QString::fromStdString(report.keptAs));
    if (status != 0)
        board.Report(NoticeTopic::Configuration, NoticeLevel::Error,
                     tr("%1 was not saved: %2").arg(NameOf(path), Problem(status, report)));
    else if (kept.isEmpty())
        board.Withdraw(NoticeTopic::Configuration);
    else if (report.model.empty())
        board.Report(NoticeTopic::Configuration, NoticeLevel::Info,
                     tr("%1 was saved; the file that was there is kept as %2").arg(NameOf(path), kept));
    else
        board.Report(NoticeTopic::Configuration, NoticeLevel::Info,
                     tr("%1 was saved; the file of the %2 that was there is kept as %3")
                         .arg(NameOf(path), Camera(report), kept));
}

void ConfigurationNotice::LoadingGivenUp(QString const &path)
{
    NoticeBoard::Instance().Report(
        NoticeTopic::Configuration, NoticeLevel::Warning,
        tr("%1 was given up while it was loaded: the camera may have a part of its settings").arg(NameOf(path)));
}

void ConfigurationNotice::SavingGivenUp(QString const &path)
{
    NoticeBoard::Instance().Report(NoticeTopic::Configuration, NoticeLevel::Warning,
                                   tr("%1 was not saved: it was given up").arg(NameOf(path)));
}

QString ConfigurationNotice::Problem(std::int32_t status, ConfigurationReport const &report)
{
    using enum ConfigurationReport::Problem;
    QString const error = qt_error_string(report.systemError);
    QString const feature = report.refused.empty() ? QString() : QString::fromStdString(report.refused.front().feature);
    switch (report.problem) {
    case File:
        return error;
    case NoConfiguration:
        return tr("it is not a camera configuration, or is one of a later version");
    case NotWhole:
        return tr("a part of the file is missing");
    case NoValue:
        return tr("\"%1\" is not a value for %2")
            .arg(report.refused.empty() ? QString() : QString::fromStdString(report.refused.front().wanted), feature);
    case OtherCamera:
        return tr("it was made by another model, the %1").arg(Camera(report));
    case NoCamera:
        return tr("the %1 was not found, nor another of its model").arg(Camera(report));
    case CameraInUse:
        return tr("the camera is in use by this or another program");
    case NotKept:
        return tr("the existing file is another camera's and could not be put aside: %1").arg(error);
    case Selector:
        return tr("the camera does not let %1 be set").arg(feature);
    case None:
        break;
    }
    return status == TOV_CAM_ERR_NO_DEVICE ? tr("the camera is gone") : tr("error %1").arg(status);
}

QString ConfigurationNotice::Refused(ConfigurationReport const &report)
{
    std::size_t const told = std::min(report.refused.size(), MostTold);
    QStringList settings;
    for (std::size_t i = 0; i < told; ++i)
        settings << Setting(report.refused[i]);
    if (report.refused.size() > told)
        settings << tr("%1 more").arg(report.refused.size() - told);
    QString const list = settings.join(QStringLiteral(", "));
    return report.refused.size() == 1
               ? list
               : tr("%1 of %2 settings: %3")
                     .arg(QString::number(report.refused.size()), QString::number(report.settings), list);
}

QString ConfigurationNotice::Setting(RefusedSetting const &setting)
{
    QString name = QString::fromStdString(setting.feature);
    if (!setting.selectors.empty())
        name += tr(" at %1").arg(QString::fromStdString(setting.selectors));
    QString const wanted = QString::fromStdString(setting.wanted);
    QString const present = QString::fromStdString(setting.present);
    return present.isEmpty() ? tr("%1 = %2 (%3)").arg(name, wanted, Why(setting))
                             : tr("%1 = %2 (%3; it is %4)").arg(name, wanted, Why(setting), present);
}

QString ConfigurationNotice::Why(RefusedSetting const &setting)
{
    if (setting.streamLocked)
        return tr("locked while the picture runs");
    switch (setting.status) {
    case TOV_CAM_ERR_OK:
        return tr("taken, but not kept");
    case TOV_CAM_ERR_GENICAM_OUT_OF_RANGE:
        return tr("out of range");
    case TOV_CAM_ERR_GENICAM_ACCESS:
        return tr("cannot be changed now");
    case TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT:
    case TOV_CAM_ERR_INVALID_ARGUMENT:
        return tr("not a value of this camera");
    default:
        return tr("error %1").arg(setting.status);
    }
}

QString ConfigurationNotice::Camera(ConfigurationReport const &report)
{
    QString const model = QString::fromStdString(report.model);
    return report.serial.empty() ? model : tr("%1 (%2)").arg(model, QString::fromStdString(report.serial));
}
