// The view of the feature tree: keys, clicks, and which features can be seen. GUI thread only.
#pragma once

#include "featuredelegate.h"

#include <QTreeView>

namespace TovGui {

class FeatureView : public QTreeView
{
    Q_OBJECT
public:
    FeatureView(FeatureModel *model, QWidget *parent);

    FeatureDelegate *Delegate() const;
    void SetPlaceholder(QString const &text); // while there are no rows
    // Of the rows inside the viewport, categories left out; none while the view is hidden or its window minimised.
    std::vector<std::uint32_t> VisibleFeatures() const;

signals:
    void seenChanged(); // other rows may be visible now

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void OnClicked(QModelIndex const &index);
    bool Act(QModelIndex const &index); // as Space does
    void CopyRow() const;

    FeatureModel *m_model;
    FeatureDelegate *m_delegate;
    QString m_placeholder;
};

} // namespace TovGui
