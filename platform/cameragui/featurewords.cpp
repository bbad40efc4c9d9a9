#include "featurewords.h"

#include "featurescale.h"
#include "featuretext.h"

using namespace TovCam;

namespace TovGui {

QString FeatureWords::Range(FeatureInfo const &info, FeatureState const &state)
{
    if (info.kind == FeatureKind::String)
        return state.length ? tr("up to %1 bytes").arg(state.length) : QString();
    if (info.kind == FeatureKind::Register)
        return state.length == 1 ? tr("1 byte") : tr("%1 bytes").arg(state.length);
    if ((info.kind != FeatureKind::Integer && info.kind != FeatureKind::Float) ||
        !(FeatureScale::Minimum(info, state) <= FeatureScale::Maximum(info, state)))
        return {};
    FeatureValue low, high, step;
    low.integer = state.minimum;
    low.real = state.realMinimum;
    high.integer = state.maximum;
    high.real = state.realMaximum;
    step.integer = state.increment;
    step.real = state.realIncrement;
    QString text = tr("%1 to %2").arg(FeatureText::Value(info, low), FeatureText::Value(info, high));
    if (!info.unit.empty())
        text += QLatin1Char(' ') + QString::fromStdString(info.unit);
    bool const plain =
        info.representation != FeatureRepresentation::IPV4 && info.representation != FeatureRepresentation::MAC;
    if (plain && (info.kind == FeatureKind::Integer ? step.integer > 1 : step.real > 0.0))
        text += tr(", in steps of %1").arg(FeatureText::Value(info, step));
    return text;
}

QString FeatureWords::Type(FeatureInfo const &info)
{
    switch (info.kind) {
    case FeatureKind::Category:
        return tr("Category");
    case FeatureKind::Integer:
        return tr("Integer");
    case FeatureKind::Float:
        return tr("Float");
    case FeatureKind::Boolean:
        return tr("Boolean");
    case FeatureKind::Enumeration:
        return tr("Enumeration");
    case FeatureKind::String:
        return tr("String");
    case FeatureKind::Command:
        return tr("Command");
    case FeatureKind::Register:
        return tr("Register");
    }
    return {};
}

QString FeatureWords::Access(FeatureState const &state)
{
    return state.streamLocked ? tr("locked while the picture runs: Stop first") : Access(state.access);
}

QString FeatureWords::Access(FeatureAccess access)
{
    switch (access) {
    case FeatureAccess::NotImplemented:
        return tr("not implemented");
    case FeatureAccess::NotAvailable:
        return tr("not available now");
    case FeatureAccess::WriteOnly:
        return tr("write only");
    case FeatureAccess::ReadOnly:
        return tr("read only");
    case FeatureAccess::ReadWrite:
        return tr("read and write");
    }
    return {};
}

QString FeatureWords::Refused(RefusedSetting const &setting)
{
    QString const wanted = QString::fromStdString(setting.wanted);
    QString const value =
        setting.selectors.empty() ? wanted : tr("%1 at %2").arg(wanted, QString::fromStdString(setting.selectors));
    QString const why = setting.streamLocked  ? tr("locked while the picture ran")
                        : setting.status == 0 ? tr("it did not keep the value")
                                              : Status(setting.status);
    return tr("the camera refused %1 of the configuration file: %2").arg(value, why);
}

QString FeatureWords::Status(std::int32_t status)
{
    QString text;
    switch (status) {
    case TOV_CAM_ERR_NO_DEVICE:
        text = tr("The camera is gone");
        break;
    case TOV_CAM_ERR_INVALID_STATE:
        text = tr("The camera cannot do that in its present state");
        break;
    case TOV_CAM_ERR_GENICAM_ACCESS:
        text = tr("The camera does not permit it now");
        break;
    case TOV_CAM_ERR_GENICAM_PARAM_TYPE:
        text = tr("The value is of another type");
        break;
    case TOV_CAM_ERR_GENICAM_OUT_OF_RANGE:
        text = tr("The value is out of range");
        break;
    case TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM:
        text = tr("The camera has no such feature");
        break;
    case TOV_CAM_ERR_INVALID_ARGUMENT:
    case TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT:
        text = tr("The camera does not take the value");
        break;
    default:
        text = tr("The camera did not answer as it should");
        break;
    }
    return tr("%1 (error %2)").arg(text).arg(status);
}

} // namespace TovGui
