// The line in which a camera's IP address is typed. GUI thread only.
#pragma once

#include <QLineEdit>

#include <functional>

namespace TovGui {

// Enter asks for the address, and does not reach the dialog's default button.
class AddressEdit : public QLineEdit
{
    Q_OBJECT
public:
    explicit AddressEdit(QWidget *parent);
    std::function<void()> onEnter; // set before anybody types

protected:
    void keyPressEvent(QKeyEvent *event) override;
};

// Four numbers up to 255, with dots between them.
bool IsIPv4Address(QString const &text);

} // namespace TovGui
