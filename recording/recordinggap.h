// The gap between two recordings of which the second goes on with the first, because the camera was lost in between: in
// the tables and ledgers of both, by the last frame before it, the first one after it, and the seconds in between.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

struct RecordedFrame
{
    std::uint64_t id = 0;
    std::int64_t arrival = 0; // by this computer's clock: nanoseconds since 1970, UTC; 0: not known
};

// What is known of a recording that has ended.
struct RecordingEnd
{
    QByteArray folder, name;           // of the files beside it, as ImageWriter gives them; empty where there are none
    std::optional<RecordedFrame> last; // of its frames
    bool isSnap = false;
};

struct RecordingGap
{
    std::optional<RecordedFrame> before;
    RecordedFrame after;

    // Of the table that has it in front of its rows, or behind them. `other` is the folder with the files of the other
    // recording.
    QByteArray Line(QByteArray const &other) const;
    // Appends it to what stands beside a recording that has ended: the line to the table, and the same to the ledger.
    // Files that are not there are left out. Returns why one could not be written; empty when all were.
    QString AppendTo(RecordingEnd const &recording, QByteArray const &other) const;
    // To the ledger alone, whose recording begins with the gap.
    QString AppendToLedger(RecordingEnd const &recording, QByteArray const &other, bool isBefore) const;

private:
    QByteArray Seconds() const; // empty where they are not known
};
