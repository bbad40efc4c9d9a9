#include "featureview.h"

#include "featuretext.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPainter>

namespace TovGui {

FeatureView::FeatureView(FeatureModel *model, QWidget *parent)
    : QTreeView(parent),
      m_model(model),
      m_delegate(new FeatureDelegate(model, this))
{
    setObjectName(QStringLiteral("featureTree"));
    setAccessibleName(tr("Camera features"));
    setModel(model);
    setItemDelegate(m_delegate);
    setUniformRowHeights(true);
    setAlternatingRowColors(true);
    setAllColumnsShowFocus(true);
    setMouseTracking(true); // buttons light up
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setEditTriggers(NoEditTriggers); // by OnClicked and keyPressEvent
    header()->setStretchLastSection(true);
    header()->setSectionsMovable(false);
    header()->setMinimumSectionSize(fontMetrics().averageCharWidth() * 8);
    setColumnWidth(FeatureModel::ColumnFeature, fontMetrics().averageCharWidth() * 32);
    connect(this, &QTreeView::clicked, this, &FeatureView::OnClicked);
    connect(this, &QTreeView::doubleClicked, this, [this](QModelIndex const &index) {
        if (index.column() == FeatureModel::ColumnFeature)
            OnClicked(index.siblingAtColumn(FeatureModel::ColumnValue));
    });
    connect(this, &QTreeView::expanded, this, &FeatureView::seenChanged);
    connect(this, &QTreeView::collapsed, this, &FeatureView::seenChanged);
}

FeatureDelegate *FeatureView::Delegate() const
{
    return m_delegate;
}

void FeatureView::SetPlaceholder(QString const &text)
{
    m_placeholder = text;
    viewport()->update();
}

std::vector<std::uint32_t> FeatureView::VisibleFeatures() const
{
    std::vector<std::uint32_t> features;
    if (!isVisible() || window()->isMinimized())
        return features;
    int const bottom = viewport()->height();
    for (QModelIndex index = indexAt(QPoint(1, 0)); index.isValid(); index = indexBelow(index)) {
        if (visualRect(index).top() >= bottom)
            break;
        std::uint32_t const feature = m_model->FeatureOf(index);
        if (!m_model->IsCategory(index) && std::find(features.begin(), features.end(), feature) == features.end())
            features.push_back(feature);
    }
    return features;
}

void FeatureView::OnClicked(QModelIndex const &index)
{
    if (index.column() == FeatureModel::ColumnValue && (index.flags() & Qt::ItemIsEditable) && state() != EditingState)
        edit(index);
}

bool FeatureView::Act(QModelIndex const &index)
{
    FeatureRow const *row = m_model->RowOf(index);
    if (!row)
        return false;
    if (index.flags() & Qt::ItemIsUserCheckable)
        return m_model->setData(index, row->Shown().integer ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
    if (row->info->kind != TovCam::FeatureKind::Command)
        return false;
    m_delegate->Execute(index);
    return true;
}

void FeatureView::CopyRow() const
{
    QModelIndex const name = currentIndex().siblingAtColumn(FeatureModel::ColumnFeature);
    FeatureRow const *row = m_model->RowOf(name);
    if (!row)
        return;
    QString text = name.data().toString();
    if (row->info->kind != TovCam::FeatureKind::Category && row->HasValue())
        text += QStringLiteral(" = ") + FeatureText::Value(*row->info, row->Shown());
    QApplication::clipboard()->setText(text);
}

void FeatureView::keyPressEvent(QKeyEvent *event)
{
    QModelIndex const value = currentIndex().siblingAtColumn(FeatureModel::ColumnValue);
    if (event->matches(QKeySequence::Copy)) {
        CopyRow();
        return;
    }
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_F2:
        if (m_model->IsCategory(value) && event->key() != Qt::Key_F2)
            setExpanded(currentIndex().siblingAtColumn(0), !isExpanded(currentIndex().siblingAtColumn(0)));
        else if (value.flags() & Qt::ItemIsEditable)
            edit(value);
        else
            Act(value);
        event->accept();
        return;
    case Qt::Key_Space:
        if (Act(value))
            return;
        break;
    default:
        break;
    }
    QTreeView::keyPressEvent(event);
}

void FeatureView::paintEvent(QPaintEvent *event)
{
    QTreeView::paintEvent(event);
    if (m_model->rowCount() > 0)
        return;
    QPainter painter(viewport());
    painter.setPen(FeatureModel::Grey());
    painter.drawText(viewport()->rect().adjusted(8, 8, -8, -8), Qt::AlignCenter | Qt::TextWordWrap, m_placeholder);
}

void FeatureView::resizeEvent(QResizeEvent *event)
{
    QTreeView::resizeEvent(event);
    emit seenChanged();
}

void FeatureView::scrollContentsBy(int dx, int dy)
{
    QTreeView::scrollContentsBy(dx, dy);
    emit seenChanged();
}

void FeatureView::showEvent(QShowEvent *event)
{
    QTreeView::showEvent(event);
    emit seenChanged();
}

void FeatureView::hideEvent(QHideEvent *event)
{
    QTreeView::hideEvent(event);
    emit seenChanged();
}

} // namespace TovGui
