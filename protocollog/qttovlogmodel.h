// The table of a protocol's lines: time, channel, message. Only grows, until it is cleared. Lines become rows in
// batches, 100 ms after the first of them at the latest, so a view sees at most ten inserts a second however many lines
// come.
//
// Thread-safety: append, clear, log, visitLog and lines from any thread; the rest on the model's thread. No lock is
// held while signals are emitted.
#pragma once

#include "qttovlogviewer.h"

#include <QAbstractTableModel>
#include <QList>

#include <functional>
#include <memory>

class LineStore;
class QtTovLogModelPrivate;

class QtTovLogModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    explicit QtTovLogModel(QObject *parent = nullptr);
    ~QtTovLogModel() override;

    // Every line, also those that are not rows yet. Makes each line's text anew; appending goes on meanwhile.
    QList<QtTovLogViewer::LogData> log() const;
    // The same, line by line: nothing but the line in hand takes memory.
    void visitLog(std::function<void(QtTovLogViewer::LogData const &)> const &visit) const;
    // The lines as they are kept, shared and not copied.
    LineStore lines() const;

    int rowCount(QModelIndex const &parent = QModelIndex()) const override;
    int columnCount(QModelIndex const &parent = QModelIndex()) const override;
    QVariant data(QModelIndex const &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

public Q_SLOTS:
    // `time` in milliseconds since the start of the day. Throws std::bad_alloc, having changed nothing.
    void append(qlonglong time, QString channel, QString message);
    // Drops every line, also those that are not rows yet. From another thread the rows, and the memory, go when the
    // model's thread gets to it.
    void clear();
    void _q_delayedAppendData();

private:
    std::unique_ptr<QtTovLogModelPrivate> const d;
};
