#include "addressedit.h"

#include <QKeyEvent>
#include <QRegularExpression>

namespace TovGui {

AddressEdit::AddressEdit(QWidget *parent) : QLineEdit(parent)
{
    setObjectName(QStringLiteral("addressEdit"));
    setPlaceholderText(QStringLiteral("192.168.0.10"));
    setToolTip(tr("IP address of a GigE Vision camera that the search does not find,\n"
                  "such as one behind a router"));
    setClearButtonEnabled(true);
    setMaxLength(64);
}

void AddressEdit::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        onEnter();
        event->accept();
    } else {
        QLineEdit::keyPressEvent(event);
    }
}

bool IsIPv4Address(QString const &text)
{
    static QRegularExpression const pattern(
        QStringLiteral(R"(\A(25[0-5]|2[0-4]\d|1?\d?\d)(\.(25[0-5]|2[0-4]\d|1?\d?\d)){3}\z)"));
    return pattern.match(text).hasMatch();
}

} // namespace TovGui
