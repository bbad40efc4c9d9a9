// Shows values with their marks, commands as buttons, and makes the editor of each kind of feature. GUI thread only.
#pragma once

#include "featuremodel.h"

#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

namespace TovGui {

class FeatureDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    FeatureDelegate(FeatureModel *model, QObject *parent);

    // A button, by key or mouse. Nothing happens while the command runs.
    void Execute(QModelIndex const &index);

    void paint(QPainter *painter, QStyleOptionViewItem const &option, QModelIndex const &index) const override;
    QSize sizeHint(QStyleOptionViewItem const &option, QModelIndex const &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, QStyleOptionViewItem const &option,
                     QModelIndex const &index) override;
    QWidget *createEditor(QWidget *parent, QStyleOptionViewItem const &option, QModelIndex const &index) const override;
    // Filled when it is made, so that a value that changes meanwhile does not overwrite what is being typed.
    void setEditorData(QWidget *, QModelIndex const &) const override
    {
    }
    void setModelData(QWidget *editor, QAbstractItemModel *model, QModelIndex const &index) const override;
    void updateEditorGeometry(QWidget *editor, QStyleOptionViewItem const &option,
                              QModelIndex const &index) const override;
    bool eventFilter(QObject *editor, QEvent *event) override; // the editors do that themselves

signals:
    void hinted(QString const &text) const; // why a value was not taken as it was typed

protected:
    void initStyleOption(QStyleOptionViewItem *option, QModelIndex const &index) const override;

private:
    bool IsButton(QModelIndex const &index) const;
    QRect ButtonRect(QStyleOptionViewItem const &option, QModelIndex const &index) const;

    FeatureModel *m_model;
    QPersistentModelIndex m_pressed; // the button under the held mouse
    QIcon m_icons[4];                // by FeatureModel::Mark
};

} // namespace TovGui
