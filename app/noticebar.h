// The operator's notices in the status bar: the most pressing one as far as there is room, with its mark, and how many
// more there are; all of them whole in the tooltip, which a click brings up at once. Behind one about the host is a
// button for what else there is to say. It takes no focus but by Tab, to that button, and no room that others need. GUI
// thread only.
#pragma once

#include "noticeboard.h"

#include <QWidget>

#include <vector>

class QToolButton;

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
    void hostDetailsWanted();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void Take();
    QRect TextPlace() const; // and of the button, if it is there
    QString More() const;    // how many notices there are behind the one that is shown
    void PlaceDetails();

    std::vector<Notice> m_notices;
    QToolButton *m_details; // shown with a notice that has some
};
