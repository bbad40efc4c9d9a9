// Waiting for what threads, timers and windows bring about. The tests wait here and nowhere else, so that a busy
// machine has time for what comes late, and what does not come at all is a failure that shows the condition, not a
// hang.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#ifdef QT_CORE_LIB
#include <QCoreApplication>
#include <QEventLoop>
#endif

constexpr std::chrono::seconds Patience{90};
constexpr int PatienceMs = 90000; // the same, for calls that take milliseconds

inline std::thread::id const MainThread = std::this_thread::get_id();

// True once the condition holds, which is looked at every few milliseconds; false when it has not within the time. On
// the thread of the application the events are processed meanwhile.
[[nodiscard]] inline testing::AssertionResult Eventually(std::function<bool()> const &condition,
                                                         std::chrono::milliseconds patience = Patience)
{
    auto const end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return testing::AssertionFailure() << "has not come true within " << patience.count() / 1000 << " s";
#ifdef QT_CORE_LIB
        if (QCoreApplication::instance() && std::this_thread::get_id() == MainThread) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
#endif
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return testing::AssertionSuccess();
}
