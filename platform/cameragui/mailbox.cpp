#include "mailbox.h"

#include <QObject>

namespace TovGui {

Mailbox::Mailbox(QObject *receiver) : m_receiver(receiver)
{
}

void Mailbox::Post(std::function<void()> call)
{
    std::lock_guard const lock(m_mutex);
    if (m_receiver)
        QMetaObject::invokeMethod(m_receiver, std::move(call), Qt::QueuedConnection);
}

void Mailbox::Close()
{
    std::lock_guard const lock(m_mutex);
    m_receiver = nullptr;
}

bool Mailbox::IsClosed()
{
    std::lock_guard const lock(m_mutex);
    return !m_receiver;
}

} // namespace TovGui
