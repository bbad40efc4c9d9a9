// Calls from the library's threads to the GUI thread.
#pragma once

#include <functional>
#include <mutex>

class QObject;

namespace TovGui {

// The way back from a job to a receiver that may have gone meanwhile.
class Mailbox
{
public:
    explicit Mailbox(QObject *receiver); // a receiver of the GUI thread
    // Any thread. Runs `call` on the GUI thread later, unless the receiver is gone by then.
    void Post(std::function<void()> call);
    // GUI thread, before the receiver goes.
    void Close();
    bool IsClosed();

private:
    std::mutex m_mutex;  // guards m_receiver
    QObject *m_receiver; // null once closed
};

} // namespace TovGui
