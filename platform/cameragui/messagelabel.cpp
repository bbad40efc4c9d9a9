#include "messagelabel.h"

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
    setToolTip(text.toHtmlEscaped());
    Fit();
}

void MessageLabel::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    Fit();
}

void MessageLabel::Fit()
{
    setText(m_whole ? m_text : fontMetrics().elidedText(m_text, Qt::ElideRight, contentsRect().width()));
    setAccessibleName(m_text);
}

} // namespace TovGui
