#include "qttovlogviewer.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPersistentModelIndex>
#include <QStringList>
#include <QStyleOptionHeader>
#include <QStyleOptionViewItem>
#include <QTime>

#include <algorithm>

namespace {

// The rows' numbers. Asked for its width after every batch, it measures the longest numbers alone; the base class
// measures two hundred.
class RowHeader : public QHeaderView
{
public:
    explicit RowHeader(QWidget *parent) : QHeaderView(Qt::Vertical, parent)
    {
        setSectionsClickable(true);
        setHighlightSections(true);
    }
    QSize sizeHint() const override
    {
        constexpr int Measured = 10;
        if (count() < Measured)
            return QHeaderView::sizeHint();
        QSize size;
        for (int i = count() - Measured; i < count(); ++i)
            size = size.expandedTo(sectionSizeFromContents(i));
        return size;
    }
};

} // namespace

class QtTovLogViewerPrivate
{
public:
    explicit QtTovLogViewerPrivate(QtTovLogViewer *viewer) : q(viewer)
    {
    }
    // Widths and heights from the fonts and the style: headers are fixed, so rows are never measured.
    void SizeSections();

    QtTovLogViewer *const q;
    QtTovLogViewer::AutoScrollMode mode = QtTovLogViewer::AutoScroll;
};

void QtTovLogViewerPrivate::SizeSections()
{
    QHeaderView *const horizontal = q->horizontalHeader();
    QHeaderView *const vertical = q->verticalHeader();
    QStyleOptionHeader option;
    option.initFrom(horizontal);
    option.text = QTime(0, 0, 0, 0).toString(QStringLiteral("h:mm:ss.zzz"));
    QSize const size = q->style()->sizeFromContents(QStyle::CT_HeaderSection, &option, QSize(), horizontal);
    // From ten o'clock on a time has a digit more; a cell has its own margins, and the line of the grid.
    QStyleOptionViewItem cell;
    cell.initFrom(q);
    cell.font = q->font();
    cell.features = QStyleOptionViewItem::HasDisplay;
    cell.text = QStringLiteral("00:00:00.000");
    int const cellWidth = q->style()->sizeFromContents(QStyle::CT_ItemViewItem, &cell, QSize(), q).width() + 1;
    horizontal->resizeSection(0, std::max({size.width(), horizontal->sectionSizeHint(0), cellWidth}));
    vertical->setDefaultSectionSize(std::max(size.height(), vertical->sectionSizeHint(0)));
}

QtTovLogViewer::QtTovLogViewer(QWidget *parent) : QTableView(parent), d(std::make_unique<QtTovLogViewerPrivate>(this))
{
    setVerticalHeader(new RowHeader(this));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setWordWrap(false); // or a long line would end after the last word that fits, far from the edge
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    d->SizeSections();
}

QtTovLogViewer::~QtTovLogViewer() = default;

void QtTovLogViewer::setModel(QAbstractItemModel *newModel)
{
    if (model())
        disconnect(model(), &QAbstractItemModel::rowsInserted, this, &QtTovLogViewer::_q_rowsInserted);
    QTableView::setModel(newModel);
    if (!newModel)
        return;
    d->SizeSections(); // there are no sections before there is a model
    connect(newModel, &QAbstractItemModel::rowsInserted, this, &QtTovLogViewer::_q_rowsInserted);
}

QtTovLogViewer::AutoScrollMode QtTovLogViewer::autoScrollMode() const
{
    return d->mode;
}

void QtTovLogViewer::setAutoScrollMode(QtTovLogViewer::AutoScrollMode mode)
{
    d->mode = mode;
}

void QtTovLogViewer::keyboardSearch(QString const &)
{
}

void QtTovLogViewer::keyPressEvent(QKeyEvent *event)
{
    if (!event->matches(QKeySequence::Copy) || !selectionModel() || !selectionModel()->hasSelection()) {
        QTableView::keyPressEvent(event);
        return;
    }
    QModelIndexList rows = selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    QStringList lines;
    for (QModelIndex const &row : rows) {
        QStringList cells;
        for (int column = 0; column < model()->columnCount(); ++column)
            cells += row.sibling(row.row(), column).data().toString();
        lines += cells.join(QLatin1Char(' '));
    }
    QGuiApplication::clipboard()->setText(lines.join(QLatin1Char('\n')));
}

void QtTovLogViewer::_q_rowsInserted(const QModelIndex &, int start, int end)
{
    if (d->mode == AutoScrollDisabled)
        return;
    if (start != 0 && d->mode != AutoScrollAlways && currentIndex().row() != start - 1)
        return;
    // Queued: it comes when the insert is over. By then the row may have been cleared, or another one been chosen by
    // hand, which stops the following.
    QPersistentModelIndex const last = model()->index(end, 0);
    QPersistentModelIndex const current = currentIndex();
    QMetaObject::invokeMethod(
        this,
        [this, last, current] {
            if (!last.isValid() || (d->mode != AutoScrollAlways && current.isValid() && currentIndex() != current))
                return;
            executeDelayedItemsLayout(); // or the first rows of a table are beyond its scroll bar's range
            setCurrentIndex(last);
        },
        Qt::QueuedConnection);
}
