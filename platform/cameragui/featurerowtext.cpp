#include "featurerowtext.h"

#include "featurescale.h"
#include "featuretext.h"
#include "featurewords.h"

#include "tovplaintip.h"

#include <QStringList>

using namespace TovCam;

namespace TovGui {

QString FeatureRowText::Value(FeatureRow const &row)
{
    FeatureInfo const &info = *row.info;
    if (info.kind == FeatureKind::Command)
        return row.ticket || row.run == FeatureRow::Run::Running ? tr("Running...")
               : row.run == FeatureRow::Run::Done                ? tr("Done")
                                                                 : tr("Execute");
    if (!row.HasValue()) {
        if (!row.known)
            return row.failure.isEmpty() ? QStringLiteral("...") : tr("not readable");
        return row.state.access == FeatureAccess::ReadWrite || row.state.access == FeatureAccess::ReadOnly
                   ? tr("not readable")
                   : FeatureWords::Access(row.state);
    }
    if (FeatureScale::EditingOf(info, row.state) == FeatureEditing::Check)
        return {};
    return FeatureText::Shown(info, row.Shown());
}

QString FeatureRowText::ToolTip(FeatureRow const &row)
{
    FeatureInfo const &info = *row.info;
    auto const shown = [](QString const &text, int most) {
        return TovBreakable(TovPlainLine(text, most)).toHtmlEscaped();
    };
    auto const name = [&](std::string const &text) {
        return shown(QString::fromStdString(text), 200);
    };
    auto const escaped = [&](std::string const &text) {
        return shown(QString::fromStdString(text), 1000);
    };
    QString text = QStringLiteral("<p><b>%1</b>").arg(name(info.displayName));
    if (info.displayName != info.name)
        text += QStringLiteral(" (%1)").arg(name(info.name));
    text += QStringLiteral("</p>");
    if (!info.toolTip.empty() && info.toolTip != info.description)
        text += QStringLiteral("<p>%1</p>").arg(escaped(info.toolTip));
    if (!info.description.empty())
        text += QStringLiteral("<p>%1</p>").arg(escaped(info.description));
    if (info.kind == FeatureKind::Category)
        return text;
    QStringList facts{tr("Type: %1").arg(FeatureWords::Type(info))};
    if (row.known) {
        facts << tr("Access: %1").arg(FeatureWords::Access(row.state));
        if (QString const range = FeatureWords::Range(info, row.state); !range.isEmpty() && !row.IsAbsent())
            facts << tr("Range: %1").arg(shown(range, 500));
    }
    if (!info.unit.empty())
        facts << tr("Unit: %1").arg(name(info.unit));
    if (row.slow)
        facts << tr("<b>Waiting for the camera</b>");
    if (row.ticket)
        facts << tr("<b>On its way to the camera</b>");
    if (!row.failure.isEmpty())
        facts << (row.writeFailed ? tr("<b>Not written: %1</b>") : tr("<b>Not read: %1</b>"))
                     .arg(row.failure.toHtmlEscaped());
    for (RefusedSetting const &setting : row.state.refused)
        facts << tr("<b>Not loaded: %1</b>").arg(shown(FeatureWords::Refused(setting), 500));
    return text + QStringLiteral("<p>%1</p>").arg(facts.join(QStringLiteral("<br>")));
}

QString FeatureRowText::Summary(FeatureRow const &row)
{
    if (row.info->kind == FeatureKind::Category)
        return {};
    QString const name = TovPlainLine(QString::fromStdString(row.info->displayName));
    if (!row.failure.isEmpty())
        return tr("%1: %2").arg(name, row.failure);
    if (!row.state.refused.empty())
        return tr("%1: %2").arg(name, TovPlainLine(FeatureWords::Refused(row.state.refused.front())));
    QStringList facts{FeatureWords::Type(*row.info)};
    if (row.known) {
        facts.insert(row.state.streamLocked ? 0 : 1, FeatureWords::Access(row.state)); // what mends it first
        if (QString const range = FeatureWords::Range(*row.info, row.state); !range.isEmpty() && !row.IsAbsent())
            facts << range;
    }
    return tr("%1: %2").arg(name, TovPlainLine(facts.join(QStringLiteral(", "))));
}

} // namespace TovGui
