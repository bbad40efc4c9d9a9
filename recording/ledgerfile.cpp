#include "ledgerfile.h"

#include <QByteArray>
#include <QSaveFile>

namespace {

QByteArray Line(QByteArray const &key, std::int64_t value)
{
    return key + '=' + QByteArray::number(static_cast<qlonglong>(value)) + '\n';
}

} // namespace

QString WriteLedgerFile(QString const &file, RecordingLedger const &ledger,
                        std::vector<std::pair<QString, std::int64_t>> const &reasons)
{
    QByteArray text = "[Ledger]\n";
    struct
    {
        char const *key;
        std::int64_t value;
    } const entries[] = {
        {"acquired", ledger.acquired},   {"incomplete", ledger.incomplete},
        {"saved", ledger.saved},         {"savedIncomplete", ledger.savedIncomplete},
        {"unwanted", ledger.unwanted},   {"failed", ledger.failed},
        {"droppedSW", ledger.droppedSW}, {"queued", ledger.queued},
        {"missing", ledger.missing},
    };
    for (auto const &entry : entries)
        text += Line(entry.key, entry.value);
    if (!reasons.empty())
        text += "[Failures]\n";
    for (auto const &[reason, frames] : reasons)
        text += Line(reason.simplified().toUtf8(), frames);

    QSaveFile to(file);
    if (to.open(QIODevice::WriteOnly) && to.write(text) == text.size() && to.commit())
        return {};
    return QStringLiteral("%1 (%2)").arg(to.errorString(), file);
}
