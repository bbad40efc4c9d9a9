// The operator's notices in the status bar: the most pressing one as far as there is room, with its mark, and how many
// more there are; all of them whole in the tooltip, which a click brings up at once. It takes no focus and no room that
// others need. GUI thread only.
#pragma once

#include "noticeboard.h"

#include <QWidget>

#include <vector>

class NoticeBar : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString text READ Text)
public:
    explicit NoticeBar(QWidget *parent);

    QString Text() const; // of the notice that is shown; empty without one
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    // A new notice is shown, of a topic or a level that the board did not have before. Not emitted when a count goes
    // on, or when a notice comes to the front because another has gone.
    void news();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    void Take();

    std::vector<Notice> m_notices;
};
