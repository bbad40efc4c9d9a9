// A watch on the window's event loop: for how long nothing was answered or painted, and what went on meanwhile.
//
// A timer of the GUI thread, 200 times a second, says that the loop turns; the time between two of its calls, but for
// its period, is a block. Where one has lasted 100 ms, a thread of the watch has the GUI thread note its call stack by
// a signal (SIGUSR2). Of the longest ones it is told how much of the time the GUI thread computed and how much it
// waited for a processor: the rest it slept.
//
// Threads: GUI thread, all calls.
#pragma once

#include <QApplication>
#include <QTimer>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

// Knows which event is handled, nested ones included.
class WatchedApplication : public QApplication
{
public:
    using QApplication::QApplication;
    bool notify(QObject *receiver, QEvent *event) override;
};

class BlockWatch
{
public:
    using Clock = std::chrono::steady_clock;

    BlockWatch();
    ~BlockWatch();
    BlockWatch(BlockWatch const &) = delete;
    BlockWatch &operator=(BlockWatch const &) = delete;

    // What the script did last; a literal.
    void SetDeed(char const *deed);
    // Forgets what was.
    void Begin();
    std::chrono::milliseconds Longest() const;
    std::string Histogram() const; // a line
    // The longest ones, several lines each.
    std::string Report() const;

private:
    static constexpr std::size_t MostKept = 10, MostFrames = 48, MostEvents = 16;
    struct Handled
    {
        char const *receiver; // its class
        int event;            // its type
    };
    struct Sample
    {
        std::array<void *, MostFrames> frames;
        int frameCount;
        std::array<Handled, MostEvents> events;
        int eventCount;
    };
    struct Block
    {
        double at; // seconds since Begin
        Clock::duration length, computed, waited;
        char const *deed;
        std::chrono::milliseconds sinceDeed;
        bool isSampled;
        Sample sample;
    };
    struct Share // of the processors, so far
    {
        std::chrono::nanoseconds computed{0}, waited{0};
    };

    static void OnSignal(int);
    Share Look() const;
    void Tick();
    void Keep(Clock::duration block, Clock::time_point now, Share const &share);
    void Watch();
    static std::string NameOf(void *address);

    friend class WatchedApplication;
    static inline std::array<Handled, MostEvents> s_handled; // the GUI thread's, and its signal handler's
    static inline std::atomic<int> s_depth{0};
    static inline Sample s_sample;                    // written by the handler
    static inline std::atomic<bool> s_sampled{false}; // since the last tick

    QTimer m_timer;
    int const m_schedule; // the file with the GUI thread's share
    pthread_t const m_gui = pthread_self();
    Clock::time_point m_begin = Clock::now(), m_last = m_begin, m_deedAt = m_begin;
    Share m_share;
    char const *m_deed = "";
    Clock::duration m_longest{0};
    std::array<std::uint64_t, 5> m_counts{};
    std::vector<Block> m_blocks; // the longest first

    std::atomic<Clock::rep> m_ticked;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_quit = false; // m_mutex
    std::thread m_thread;
};
