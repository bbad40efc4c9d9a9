#include "messagelabel.h"

#include "tovplaintip.h"

namespace TovGui {

MessageLabel::MessageLabel(QWidget *parent) : QLabel(parent)
{
    setObjectName(QStringLiteral("featureMessage"));
    setTextFormat(Qt::PlainText);
    setContentsMargins(4, 1, 4, 2);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Minimum);
}

void MessageLabel::Show(QString const &text, bool whole)
{
    if (text == m_text && whole == m_whole)
        return;
    m_text = text;
    m_whole = whole;
    setWordWrap(whole);
    setToolTip(TovPlainTip(text));
    Fit();
}

void MessageLabel::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    Fit();
}

void MessageLabel::Fit()
{
    QString const line = TovPlainLine(m_text);
    setText(m_whole ? line : fontMetrics().elidedText(line, Qt::ElideRight, contentsRect().width()));
    setAccessibleName(m_text);
}

} // namespace TovGui
