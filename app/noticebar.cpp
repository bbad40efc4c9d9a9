#include "noticebar.h"

#include <QAccessible>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QToolButton>
#include <QToolTip>

#include <algorithm>
#include <utility>

namespace {

constexpr int Gap = 4;
constexpr int FewestCharacters = 12;

QStyle::StandardPixmap Mark(NoticeLevel level)
{
    switch (level) {
    case NoticeLevel::Info:
        return QStyle::SP_MessageBoxInformation;
    case NoticeLevel::Warning:
        return QStyle::SP_MessageBoxWarning;
    case NoticeLevel::Error:
        break;
    }
    return QStyle::SP_MessageBoxCritical;
}

} // namespace

NoticeBar::NoticeBar(QWidget *parent) : QWidget(parent), m_details(new QToolButton(this))
{
    m_details->setObjectName(QStringLiteral("noticeDetails"));
    m_details->setText(tr("Details..."));
    m_details->setToolTip(tr("What was found, why it matters, and what mends it"));
    m_details->setAutoRaise(true);
    QFont font = m_details->font(); // there is no room for a frame
    font.setUnderline(true);
    m_details->setFont(font);
    m_details->setFocusPolicy(Qt::TabFocus);
    m_details->hide();
    connect(m_details, &QToolButton::clicked, this, &NoticeBar::hostDetailsWanted);
    setObjectName(QStringLiteral("noticeBar"));
    setAccessibleName(tr("Notices"));
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    connect(&NoticeBoard::Instance(), &NoticeBoard::changed, this, &NoticeBar::Take);
    Take();
}

QString NoticeBar::Text() const
{
    return m_notices.empty() ? QString() : m_notices.front().text;
}

void NoticeBar::Take()
{
    std::vector<Notice> const before = std::exchange(m_notices, NoticeBoard::Instance().Notices());
    QString tip;
    for (Notice const &notice : m_notices)
        tip += QStringLiteral("<p>%1</p>").arg(notice.text.toHtmlEscaped());
    setToolTip(tip);
    setAccessibleDescription(Text());
    // A count that goes on is not news, and screen readers do not read it out.
    auto const same = [](Notice const &a, Notice const &b) {
        return a.topic == b.topic && a.level == b.level;
    };
    if (!m_notices.empty() && (before.empty() || !same(m_notices.front(), before.front()))) {
        QAccessibleEvent event(this, QAccessible::Alert);
        QAccessible::updateAccessibility(&event);
        Notice const &shown = m_notices.front();
        if (std::none_of(before.begin(), before.end(), [&](Notice const &other) { return same(shown, other); }))
            emit news();
    }
    m_details->setVisible(!m_notices.empty() && m_notices.front().topic == NoticeTopic::Host);
    PlaceDetails();
    update();
}

QString NoticeBar::More() const
{
    return m_notices.size() > 1 ? tr(" (+%1)").arg(m_notices.size() - 1) : QString();
}

QRect NoticeBar::TextPlace() const
{
    return rect().adjusted(Gap + std::min(fontMetrics().height(), height()) + Gap, 0, -Gap, 0);
}

// Behind the text, or at the end where that is too long.
void NoticeBar::PlaceDetails()
{
    QRect const text = TextPlace();
    int const width = m_details->sizeHint().width();
    int const end = text.left() + fontMetrics().horizontalAdvance(Text() + More()) + Gap;
    m_details->setGeometry(std::min(end, text.right() + 1 - width), 0, width, height());
}

QSize NoticeBar::sizeHint() const
{
    return {fontMetrics().horizontalAdvance(Text()) + fontMetrics().height() + 2 * Gap, minimumSizeHint().height()};
}

QSize NoticeBar::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * FewestCharacters, fontMetrics().height() + 2};
}

void NoticeBar::paintEvent(QPaintEvent *)
{
    if (m_notices.empty())
        return;
    QPainter painter(this);
    int const side = std::min(fontMetrics().height(), height());
    QRect const mark(Gap, (height() - side) / 2, side, side);
    style()->standardIcon(Mark(m_notices.front().level), nullptr, this).paint(&painter, mark);

    QString const more = More();
    QRect text = TextPlace();
    if (m_details->isVisible())
        text.setRight(m_details->x() - 1);
    int const room = text.width() - fontMetrics().horizontalAdvance(more);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(text, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                     fontMetrics().elidedText(Text(), Qt::ElideRight, room) + more);
}

void NoticeBar::mousePressEvent(QMouseEvent *event)
{
    QToolTip::showText(event->globalPos(), toolTip(), this);
}

void NoticeBar::resizeEvent(QResizeEvent *)
{
    PlaceDetails();
}
