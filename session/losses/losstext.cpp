#include "losstext.h"

#include <QCoreApplication>

QString LossLine(LossFinding const &finding)
{
    if (finding.mending.isEmpty())
        return finding.what + QLatin1Char('.');
    return finding.isCommand ? finding.what + QStringLiteral(": ") + finding.mending
                             : finding.what + QStringLiteral(". ") + finding.mending + QLatin1Char('.');
}

QString LossReport(std::vector<LossFinding> const &findings)
{
    if (findings.empty())
        return QCoreApplication::translate("Losses", "Nothing was lost since the picture was started.\n");
    QString report;
    for (LossFinding const &finding : findings) {
        report += (report.isEmpty() ? QString() : QStringLiteral("\n")) + finding.what + QStringLiteral(".\n");
        if (!finding.mending.isEmpty())
            report += QStringLiteral("    ") + finding.mending +
                      (finding.isCommand ? QStringLiteral("\n") : QStringLiteral(".\n"));
    }
    return report;
}
