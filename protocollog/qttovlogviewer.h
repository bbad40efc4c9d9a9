// The table that shows a log's lines and follows the newest by moving the current row to it. GUI thread.
#pragma once

#include <QString>
#include <QTableView>

#include <memory>

class QtTovLogViewerPrivate;

class QtTovLogViewer : public QTableView
{
    Q_OBJECT
    Q_CLASSINFO("version", "0.0.2")
    Q_PROPERTY(AutoScrollMode autoScrollMode READ autoScrollMode WRITE setAutoScrollMode)

public:
    struct LogData
    {
        qlonglong time; // milliseconds since the start of the day, local time
        QString channel;
        QString message;
    };

    // What happens when rows arrive.
    enum AutoScrollMode {
        AutoScrollDisabled, // the view stays where it is
        AutoScroll,         // it follows while the last row is the current one, and in an empty table
        AutoScrollAlways    // it follows
    };
    Q_ENUM(AutoScrollMode)

    explicit QtTovLogViewer(QWidget *parent = nullptr);
    ~QtTovLogViewer() override;

    void setModel(QAbstractItemModel *model) override;
    AutoScrollMode autoScrollMode() const;
    // Does nothing: searching millions of rows for what was typed would freeze the window.
    void keyboardSearch(QString const &search) override;

public Q_SLOTS:
    void setAutoScrollMode(QtTovLogViewer::AutoScrollMode mode);

protected:
    // Copying takes the selected rows whole, a line each, as a saved log has them.
    void keyPressEvent(QKeyEvent *event) override;

private:
    // Not a slot: the base class has one of this name, and connects it by its name.
    void _q_rowsInserted(const QModelIndex &parent, int start, int end);

    std::unique_ptr<QtTovLogViewerPrivate> const d;
};
