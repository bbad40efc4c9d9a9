#include "featuredelegate.h"

#include "featureeditors.h"

#include "tovplaintip.h"

#include <QApplication>
#include <QIconEngine>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPointer>
#include <QToolTip>

#include <algorithm>

namespace TovGui {

namespace {

// The signs beside a value, drawn at any size and in the colours of the palette.
class MarkEngine : public QIconEngine
{
public:
    explicit MarkEngine(FeatureModel::Mark mark) : m_mark(mark)
    {
    }
    QIconEngine *clone() const override
    {
        return new MarkEngine(m_mark);
    }
    QPixmap pixmap(QSize const &size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }
    void paint(QPainter *painter, QRect const &rect, QIcon::Mode mode, QIcon::State) override
    {
        bool const selected = mode == QIcon::Selected;
        QPalette const palette = QApplication::palette();
        QColor const plain = selected ? palette.color(QPalette::HighlightedText) : FeatureModel::Grey();
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        double const side = std::min(rect.width(), rect.height());
        painter->translate(rect.center() + QPointF(0.5, 0.5) - QPointF(side / 2, side / 2));
        painter->scale(side / 16, side / 16); // a field of 16 x 16
        switch (m_mark) {
        case FeatureModel::Mark::Locked:
            painter->setPen(QPen(plain, 1.6));
            painter->setBrush(Qt::NoBrush);
            painter->drawArc(QRectF(5, 2, 6, 8), 0, 180 * 16);
            painter->drawLine(QPointF(5, 6), QPointF(5, 8));
            painter->drawLine(QPointF(11, 6), QPointF(11, 8));
            painter->setPen(Qt::NoPen);
            painter->setBrush(plain);
            painter->drawRoundedRect(QRectF(3, 7.5, 10, 6.5), 1.2, 1.2);
            break;
        case FeatureModel::Mark::Waiting: {
            QPainterPath glass;
            glass.moveTo(4, 2.5);
            glass.lineTo(12, 2.5);
            glass.lineTo(8.6, 8);
            glass.lineTo(12, 13.5);
            glass.lineTo(4, 13.5);
            glass.lineTo(7.4, 8);
            glass.closeSubpath();
            painter->setPen(QPen(plain, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            painter->drawPath(glass);
            painter->setPen(Qt::NoPen);
            painter->setBrush(plain);
            painter->drawPolygon(QPolygonF({{5.6, 12.6}, {10.4, 12.6}, {8, 9.6}}));
            break;
        }
        case FeatureModel::Mark::Warning:
            painter->setPen(QPen(QColor(0x8A, 0x5A, 0x00), 0.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            painter->setBrush(QColor(0xFF, 0xB9, 0x1F));
            painter->drawPolygon(QPolygonF({{8, 1.5}, {15, 14}, {1, 14}}));
            painter->setPen(QPen(QColor(0x30, 0x20, 0x00), 1.6, Qt::SolidLine, Qt::RoundCap));
            painter->drawLine(QPointF(8, 6), QPointF(8, 9.4));
            painter->drawPoint(QPointF(8, 12));
            break;
        case FeatureModel::Mark::None:
            break;
        }
        painter->restore();
    }

private:
    FeatureModel::Mark m_mark;
};

} // namespace

FeatureDelegate::FeatureDelegate(FeatureModel *model, QObject *parent) : QStyledItemDelegate(parent), m_model(model)
{
    for (auto const mark : {FeatureModel::Mark::Locked, FeatureModel::Mark::Waiting, FeatureModel::Mark::Warning})
        m_icons[int(mark)] = QIcon(new MarkEngine(mark));
}

bool FeatureDelegate::IsButton(QModelIndex const &index) const
{
    FeatureRow const *row = m_model->RowOf(index);
    return row && index.column() == FeatureModel::ColumnValue && row->info->kind == TovCam::FeatureKind::Command;
}

QRect FeatureDelegate::ButtonRect(QStyleOptionViewItem const &option, QModelIndex const &index) const
{
    QRect rect = option.rect.adjusted(2, 1, -2, -1);
    if (m_model->MarkOf(index) != FeatureModel::Mark::None)
        rect.setRight(rect.right() - option.fontMetrics.height() - 4);
    rect.setWidth(std::min(rect.width(), option.fontMetrics.averageCharWidth() * 18));
    return rect;
}

void FeatureDelegate::Execute(QModelIndex const &index)
{
    FeatureRow const *row = m_model->RowOf(index);
    if (row && row->IsWritable() && !row->ticket && row->run != FeatureRow::Run::Running)
        emit m_model->writeRequested(m_model->FeatureOf(index), {}, false);
}

void FeatureDelegate::initStyleOption(QStyleOptionViewItem *option, QModelIndex const &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (index.column() != FeatureModel::ColumnValue)
        return;
    FeatureModel::Mark const mark = m_model->MarkOf(index);
    if (mark == FeatureModel::Mark::None)
        return;
    int const side = option->fontMetrics.height();
    option->features |= QStyleOptionViewItem::HasDecoration;
    option->icon = m_icons[int(mark)];
    option->decorationSize = QSize(side, side);
    option->decorationPosition = QStyleOptionViewItem::Right;
}

void FeatureDelegate::paint(QPainter *painter, QStyleOptionViewItem const &option, QModelIndex const &index) const
{
    if (!IsButton(index)) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    QString const text = std::exchange(item.text, QString());
    QWidget const *const widget = option.widget;
    QStyle *const style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &item, painter, widget);

    FeatureRow const &row = *m_model->RowOf(index);
    bool const enabled = row.IsWritable() && !row.ticket && row.run != FeatureRow::Run::Running;
    QStyleOptionButton button;
    button.rect = ButtonRect(option, index);
    button.text = row.run == FeatureRow::Run::Done ? QStringLiteral("\u2713 ") + text : text;
    button.fontMetrics = option.fontMetrics;
    button.palette = widget ? widget->palette() : QApplication::palette();
    if (!enabled)
        button.palette.setCurrentColorGroup(QPalette::Disabled);
    button.direction = option.direction;
    button.state = enabled ? QStyle::State_Enabled : QStyle::State_None;
    button.state |= index == m_pressed ? QStyle::State_Sunken : QStyle::State_Raised;
    if (enabled && (option.state & QStyle::State_MouseOver))
        button.state |= QStyle::State_MouseOver;
    style->drawControl(QStyle::CE_PushButton, &button, painter, widget);
}

QSize FeatureDelegate::sizeHint(QStyleOptionViewItem const &option, QModelIndex const &index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(std::max(size.height(), option.fontMetrics.height() + 9)); // room for a frame around the text
    return size;
}

bool FeatureDelegate::editorEvent(QEvent *event, QAbstractItemModel *model, QStyleOptionViewItem const &option,
                                  QModelIndex const &index)
{
    if (!IsButton(index))
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    bool const press = event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonDblClick;
    if (!press && event->type() != QEvent::MouseButtonRelease)
        return false;
    auto const *const mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton)
        return false;
    bool const inside = ButtonRect(option, index).contains(mouse->pos());
    bool const clicked = !press && inside && index == m_pressed;
    m_pressed = press && inside ? QPersistentModelIndex(index) : QPersistentModelIndex();
    if (option.widget)
        const_cast<QWidget *>(option.widget)->update();
    if (clicked)
        Execute(index);
    return inside;
}

QWidget *FeatureDelegate::createEditor(QWidget *parent, QStyleOptionViewItem const &, QModelIndex const &index) const
{
    FeatureEditor *const editor = FeatureEditor::Make(m_model, m_model->FeatureOf(index), parent);
    if (!editor)
        return nullptr;
    auto *const self = const_cast<FeatureDelegate *>(this);
    connect(editor, &FeatureEditor::givenUp, self, [self, editor] {
        editor->GiveUp();
        editor->End();
        emit self->closeEditor(editor, NoHint);
    });
    connect(editor, &FeatureEditor::finished, self, [self, editor](bool keyboard) {
        ParsedValue const result = editor->Result();
        QPointer<QWidget> const viewport = editor->parentWidget();
        QPoint const below = editor->mapToGlobal(QPoint(0, editor->height()));
        auto const hint = [&] {
            if (result.hint.isEmpty() || !viewport)
                return;
            emit self->hinted(result.hint);
            QToolTip::showText(below, TovPlainTip(result.hint), viewport, {}, 6000);
        };
        if (keyboard && !result.accepted && !result.hint.isEmpty()) {
            hint();
            return; // what was typed stays, to be corrected
        }
        if (result.accepted)
            emit self->commitData(editor);
        editor->End();
        emit self->closeEditor(editor, NoHint);
        hint(); // the change of focus hides a tooltip
    });
    return editor;
}

void FeatureDelegate::setModelData(QWidget *editor, QAbstractItemModel *model, QModelIndex const &index) const
{
    auto const *const feature = qobject_cast<FeatureEditor *>(editor);
    ParsedValue const result = feature ? feature->Result() : ParsedValue();
    if (result.accepted && !model->setData(index, QVariant::fromValue(result.value), Qt::EditRole))
        emit hinted(tr("The feature cannot be written any more; it keeps its value."));
}

void FeatureDelegate::updateEditorGeometry(QWidget *editor, QStyleOptionViewItem const &option,
                                           QModelIndex const &) const
{
    editor->setGeometry(option.rect);
}

bool FeatureDelegate::eventFilter(QObject *, QEvent *)
{
    return false;
}

} // namespace TovGui
