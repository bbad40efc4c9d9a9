#include "cameratree.h"

#include <QHeaderView>
#include <QPainter>

namespace TovGui {

CameraTree::CameraTree(QWidget *parent) : QTreeView(parent)
{
    setObjectName(QStringLiteral("cameraTree"));
    setAccessibleName(tr("Cameras"));
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setUniformRowHeights(true);
    setAllColumnsShowFocus(true);
    header()->setStretchLastSection(true);
}

void CameraTree::SetPlaceholder(QString const &text)
{
    m_placeholder = text;
    viewport()->update();
}

void CameraTree::paintEvent(QPaintEvent *event)
{
    QTreeView::paintEvent(event);
    if (model()->rowCount() > 0)
        return;
    QPainter painter(viewport());
    painter.setPen(palette().color(QPalette::Disabled, QPalette::Text));
    painter.drawText(viewport()->rect(), Qt::AlignCenter, m_placeholder);
}

QModelIndex CameraTree::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    QModelIndex const next = QTreeView::moveCursor(action, modifiers);
    if ((action != MoveUp && action != MoveDown) || next.parent().isValid() || !isExpanded(next))
        return next;
    QModelIndex const beyond = action == MoveUp ? indexAbove(next) : indexBelow(next);
    return beyond.isValid() ? beyond : currentIndex();
}

} // namespace TovGui
