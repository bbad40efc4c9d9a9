#include "ledgerfile.h"

#include "losstext.h"

#include <QByteArray>
#include <QSaveFile>

namespace {

QByteArray Line(QByteArray const &key, std::int64_t value)
{
    return key + '=' + QByteArray::number(static_cast<qlonglong>(value)) + '\n';
}

} // namespace

QString WriteLedgerFile(QString const &file, RecordingLedger const &ledger,
                        std::vector<std::pair<QString, std::int64_t>> const &reasons,
                        std::vector<LossFinding> const &losses)
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
    if (!losses.empty())
        text += "[Losses]\n";
    for (LossFinding const &loss : losses)
        text += Line(WordOf(loss.place), loss.frames);
    if (!losses.empty())
        text += "[Explanations]\n";
    for (LossFinding const &loss : losses)
        text += QByteArray(WordOf(loss.place)) + '=' + LossLine(loss).simplified().toUtf8() + '\n';

    QSaveFile to(file);
    if (to.open(QIODevice::WriteOnly) && to.write(text) == text.size() && to.commit())
        return {};
    return QStringLiteral("%1 (%2)").arg(to.errorString(), file);
}
