#include "qttovlogmodel.h"

#include "linestore.h"

#include "tovplaintip.h"

#include <QThread>
#include <QTime>
#include <QTimer>

#include <mutex>
#include <new>
#include <utility>

namespace {

enum Column { TimeColumn, ChannelColumn, MessageColumn, ColumnCount };
constexpr int BatchInterval = 100; // ms
constexpr qlonglong DayLength = 24 * 60 * 60 * 1000;

QString TimeText(qlonglong time)
{
    if (time < 0 || time >= DayLength)
        return {};
    return QTime::fromMSecsSinceStartOfDay(static_cast<int>(time)).toString(QStringLiteral("h:mm:ss.zzz"));
}

} // namespace

class QtTovLogModelPrivate
{
public:
    explicit QtTovLogModelPrivate(QtTovLogModel *model) : q(model), timer(model)
    {
    }

    QtTovLogModel *const q;
    std::mutex mutex;        // alone, for the copy of a line
    LineStore lines;         // mutex; every line, those past `visible` are pending
    bool timerAsked = false; // mutex; the timer's start is under way
    bool cleared = false;    // mutex; by another thread; views do not know yet
    LineStore visible;       // the rows, which share the lines' memory; the model's thread
    QTimer timer;            // the model's thread
};

QtTovLogModel::QtTovLogModel(QObject *parent)
    : QAbstractTableModel(parent),
      d(std::make_unique<QtTovLogModelPrivate>(this))
{
    d->timer.setInterval(BatchInterval);
    d->timer.setSingleShot(true);
    connect(&d->timer, &QTimer::timeout, this, &QtTovLogModel::_q_delayedAppendData);
    QMetaObject::connectSlotsByName(this);
}

QtTovLogModel::~QtTovLogModel() = default;

void QtTovLogModel::append(qlonglong time, QString channel, QString message)
{
    bool start = false;
    {
        std::lock_guard<std::mutex> const lock(d->mutex);
        d->lines.Append(time, channel, message);
        start = !std::exchange(d->timerAsked, true);
    }
    if (!start)
        return;
    try {
        QMetaObject::invokeMethod(&d->timer, "start"); // from another thread it is queued: a timer starts on its own
    } catch (std::bad_alloc const &) {
        std::lock_guard<std::mutex> const lock(d->mutex);
        d->timerAsked = false; // the next line asks again
    }
}

void QtTovLogModel::_q_delayedAppendData()
{
    d->timer.stop();
    bool cleared = false;
    LineStore lines;
    {
        std::lock_guard<std::mutex> const lock(d->mutex);
        d->timerAsked = false;
        cleared = std::exchange(d->cleared, false);
        lines = d->lines;
    }
    if (cleared) {
        beginResetModel();
        d->visible = {};
        endResetModel();
    }
    if (lines.Count() == d->visible.Count())
        return;
    beginInsertRows(QModelIndex(), rowCount(), static_cast<int>(lines.Count()) - 1);
    d->visible = std::move(lines);
    endInsertRows();
}

void QtTovLogModel::clear()
{
    LineStore dropped; // destroyed after the lock
    bool const isOwnThread = QThread::currentThread() == thread();
    if (isOwnThread)
        beginResetModel();
    {
        std::lock_guard<std::mutex> const lock(d->mutex);
        std::swap(d->lines, dropped);
        d->cleared = !isOwnThread;
    }
    if (isOwnThread) {
        d->visible = {};
        endResetModel();
    } else {
        QMetaObject::invokeMethod(this, "_q_delayedAppendData", Qt::QueuedConnection);
    }
}

QList<QtTovLogViewer::LogData> QtTovLogModel::log() const
{
    QList<QtTovLogViewer::LogData> log;
    visitLog([&](QtTovLogViewer::LogData const &line) { log.append(line); });
    return log;
}

void QtTovLogModel::visitLog(std::function<void(QtTovLogViewer::LogData const &)> const &visit) const
{
    LineStore const all = lines();
    all.ForEach([&](LineStore::Line const &line) { visit({line.time, all.ChannelOf(line), line.Message()}); });
}

LineStore QtTovLogModel::lines() const
{
    std::lock_guard<std::mutex> const lock(d->mutex);
    return d->lines;
}

int QtTovLogModel::rowCount(QModelIndex const &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(d->visible.Count());
}

int QtTovLogModel::columnCount(QModelIndex const &) const
{
    return ColumnCount;
}

QVariant QtTovLogModel::data(QModelIndex const &index, int role) const
{
    if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::ToolTipRole))
        return {};
    auto const row = static_cast<std::size_t>(index.row());
    if (row >= d->visible.Count())
        return {};
    LineStore::Line const line = d->visible.At(row);
    switch (index.column()) {
    case TimeColumn:
        return role == Qt::DisplayRole ? TimeText(line.time) : QVariant();
    case ChannelColumn:
        return d->visible.ChannelOf(line);
    case MessageColumn:
        return role == Qt::DisplayRole ? line.Message() : TovPlainTip(line.Message());
    default:
        return {};
    }
}

QVariant QtTovLogModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) {
        switch (section) {
        case TimeColumn:
            return tr("Time");
        case ChannelColumn:
            return tr("Channel");
        case MessageColumn:
            return tr("Message");
        default:
            break;
        }
    }
    return QAbstractTableModel::headerData(section, orientation, role);
}
