// The view of the selector's list. GUI thread only.
#pragma once

#include <QTreeView>

namespace TovGui {

// A tree with a line of text in its middle while it has no rows.
class CameraTree : public QTreeView
{
    Q_OBJECT
public:
    explicit CameraTree(QWidget *parent);
    using QTreeView::sizeHintForColumn;
    void SetPlaceholder(QString const &text);

protected:
    void paintEvent(QPaintEvent *event) override;
    // Up and down go from camera to camera, past the headings between them; Left reaches the headings, to fold them.
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;

private:
    QString m_placeholder;
};

} // namespace TovGui
