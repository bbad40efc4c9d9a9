#include "recordinggap.h"

#include <QFile>

#include <utility>

namespace {

QByteArray Number(std::uint64_t value)
{
    return QByteArray::number(static_cast<qulonglong>(value));
}

// Of a frame: id and arrival, each empty where it is not known.
std::pair<QByteArray, QByteArray> Texts(std::optional<RecordedFrame> const &frame)
{
    if (!frame)
        return {};
    return {Number(frame->id),
            frame->arrival == 0 ? QByteArray() : QByteArray::number(static_cast<qlonglong>(frame->arrival))};
}

// One line, whatever the file system lets a name hold.
QByteArray NameOf(QByteArray const &folder)
{
    QByteArray name = folder.mid(folder.lastIndexOf('/') + 1);
    return name.replace('\n', '?').replace('\r', '?');
}

QByteArray Field(QByteArray text)
{
    return text.contains(',') || text.contains('"') ? '"' + text.replace('"', "\"\"") + '"' : text;
}

QString Append(QByteArray const &name, QByteArray const &text)
{
    QFile file(QFile::decodeName(name));
    if (!file.exists())
        return {};
    if (file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::ExistingOnly) &&
        file.write(text) == text.size() && file.flush())
        return {};
    return QStringLiteral("%1 (%2)").arg(file.errorString(), file.fileName());
}

} // namespace

QByteArray RecordingGap::Seconds() const
{
    if (!before || before->arrival == 0 || after.arrival == 0)
        return {};
    constexpr double NanosecondsASecond = 1e9;
    return QByteArray::number(static_cast<double>(after.arrival - before->arrival) / NanosecondsASecond, 'f', 3);
}

QByteArray RecordingGap::Line(QByteArray const &other) const
{
    auto const [lastId, lastArrival] = Texts(before);
    auto const [firstId, firstArrival] = Texts(after);
    return "#gap," + lastId + ',' + lastArrival + ',' + firstId + ',' + firstArrival + ',' + Seconds() + ',' +
           Field(NameOf(other)) + '\n';
}

QString RecordingGap::AppendTo(RecordingEnd const &recording, QByteArray const &other) const
{
    if (recording.folder.isEmpty())
        return {};
    QString const table = Append(recording.folder + '/' + recording.name + ".frames.csv", Line(other));
    QString const ledger = AppendToLedger(recording, other, false);
    return table.isEmpty() ? ledger : table;
}

QString RecordingGap::AppendToLedger(RecordingEnd const &recording, QByteArray const &other, bool isBefore) const
{
    if (recording.folder.isEmpty())
        return {};
    auto const [lastId, lastArrival] = Texts(before);
    auto const [firstId, firstArrival] = Texts(after);
    QByteArray const text = (isBefore ? "[GapBefore]\nlastFrame=" : "[GapAfter]\nlastFrame=") + lastId +
                            "\nlastArrival=" + lastArrival + "\nfirstFrame=" + firstId +
                            "\nfirstArrival=" + firstArrival + "\nseconds=" + Seconds() + "\nother=" + NameOf(other) +
                            '\n';
    return Append(recording.folder + '/' + recording.name + ".ledger.txt", text);
}
