// The line below the feature tree. GUI thread only.
#pragma once

#include <QLabel>

namespace TovGui {

// One line, which is cut rather than widening its panel, with the whole text in its tooltip; or as many lines as the
// text needs.
class MessageLabel : public QLabel
{
    Q_OBJECT
public:
    explicit MessageLabel(QWidget *parent);
    void Show(QString const &text, bool whole);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void Fit();

    QString m_text;
    bool m_whole = false;
};

} // namespace TovGui
