#include "blockwatch.h"

#include <QThread>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

using std::chrono::milliseconds;

namespace {

constexpr milliseconds Period{5}, Look100{100}, WatchPeriod{10}, LeastKept{50};
constexpr milliseconds Bounds[] = {milliseconds(16), milliseconds(50), milliseconds(100), milliseconds(200)};

double Milliseconds(BlockWatch::Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

} // namespace

bool WatchedApplication::notify(QObject *receiver, QEvent *event)
{
    int const depth = BlockWatch::s_depth.load(std::memory_order_relaxed);
    bool const here = QThread::currentThread() == thread();
    if (here && depth < static_cast<int>(BlockWatch::MostEvents))
        BlockWatch::s_handled[static_cast<std::size_t>(depth)] = {receiver->metaObject()->className(), event->type()};
    if (here)
        BlockWatch::s_depth.store(depth + 1, std::memory_order_relaxed);
    bool const taken = QApplication::notify(receiver, event);
    if (here)
        BlockWatch::s_depth.store(depth, std::memory_order_relaxed);
    return taken;
}

BlockWatch::BlockWatch()
    : m_schedule(open(("/proc/self/task/" + std::to_string(gettid()) + "/schedstat").c_str(), O_RDONLY | O_CLOEXEC)),
      m_ticked(m_last.time_since_epoch().count())
{
    void *frame = nullptr;
    backtrace(&frame, 1); // loads what it needs, which a signal handler must not
    struct sigaction action{};
    action.sa_handler = &BlockWatch::OnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR2, &action, nullptr);
    m_timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_timer, &QTimer::timeout, [this] { Tick(); });
    m_timer.start(Period);
    m_thread = std::thread([this] { Watch(); });
}

BlockWatch::~BlockWatch()
{
    {
        std::lock_guard const lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
    close(m_schedule);
}

void BlockWatch::SetDeed(char const *deed)
{
    m_deed = deed;
    m_deedAt = Clock::now();
}

void BlockWatch::Begin()
{
    m_begin = m_last = Clock::now();
    m_share = Look();
    m_longest = {};
    m_counts = {};
    m_blocks.clear();
}

milliseconds BlockWatch::Longest() const
{
    return std::chrono::ceil<milliseconds>(m_longest);
}

// Calls nothing that allocates or locks.
void BlockWatch::OnSignal(int)
{
    s_sample.frameCount = backtrace(s_sample.frames.data(), MostFrames);
    s_sample.eventCount = std::min(s_depth.load(std::memory_order_relaxed), static_cast<int>(MostEvents));
    s_sample.events = s_handled;
    s_sampled.store(true, std::memory_order_release);
}

void BlockWatch::Watch()
{
    Clock::rep sampled = 0;
    std::unique_lock lock(m_mutex);
    while (!m_wake.wait_for(lock, WatchPeriod, [this] { return m_quit; })) {
        Clock::rep const ticked = m_ticked.load();
        Clock::duration const since = Clock::now().time_since_epoch() - Clock::duration(ticked);
        if (since < Look100 || ticked == sampled)
            continue;
        sampled = ticked;
        pthread_kill(m_gui, SIGUSR2);
    }
}

BlockWatch::Share BlockWatch::Look() const
{
    char text[96] = {};
    unsigned long long computed = 0, waited = 0;
    if (pread(m_schedule, text, sizeof text - 1, 0) > 0)
        std::sscanf(text, "%llu %llu", &computed, &waited);
    return {std::chrono::nanoseconds(computed), std::chrono::nanoseconds(waited)};
}

void BlockWatch::Tick()
{
    Clock::time_point const now = Clock::now();
    Clock::duration const block = std::max<Clock::duration>(now - m_last - Period, Clock::duration::zero());
    Share const share = Look();
    std::size_t bin = 0;
    while (bin < std::size(Bounds) && block >= Bounds[bin])
        ++bin;
    ++m_counts[bin];
    m_longest = std::max(m_longest, block);
    if (block >= LeastKept)
        Keep(block, now, share);
    m_share = share;
    m_last = Clock::now();
    s_sampled.store(false);
    m_ticked.store(m_last.time_since_epoch().count());
}

void BlockWatch::Keep(Clock::duration block, Clock::time_point now, Share const &share)
{
    if (m_blocks.size() == MostKept && m_blocks.back().length >= block)
        return;
    Block kept{std::chrono::duration<double>(now - block - m_begin).count(),
               block,
               share.computed - m_share.computed,
               share.waited - m_share.waited,
               m_deed,
               std::chrono::duration_cast<milliseconds>(now - m_deedAt),
               s_sampled.load(std::memory_order_acquire),
               s_sample};
    m_blocks.insert(std::upper_bound(m_blocks.begin(), m_blocks.end(), kept,
                                     [](Block const &a, Block const &b) { return a.length > b.length; }),
                    kept);
    if (m_blocks.size() > MostKept)
        m_blocks.pop_back();
}

std::string BlockWatch::Histogram() const
{
    char text[200];
    std::snprintf(text, sizeof text, "<16 ms %llu, <50 ms %llu, <100 ms %llu, <200 ms %llu, 200 ms and more %llu",
                  static_cast<unsigned long long>(m_counts[0]), static_cast<unsigned long long>(m_counts[1]),
                  static_cast<unsigned long long>(m_counts[2]), static_cast<unsigned long long>(m_counts[3]),
                  static_cast<unsigned long long>(m_counts[4]));
    return text;
}

// What is not exported has no name: of the program itself a place for addr2line, otherwise nothing.
std::string BlockWatch::NameOf(void *address)
{
    Dl_info info{};
    if (dladdr(address, &info) == 0)
        return {};
    if (!info.dli_sname) {
        std::string const file = info.dli_fname;
        char place[32];
        std::snprintf(place, sizeof place, "+0x%zx",
                      static_cast<std::size_t>(static_cast<char *>(address) - static_cast<char *>(info.dli_fbase)));
        bool const isOurs = file.find("program_soak") != std::string::npos || file.find("libTov") != std::string::npos;
        return isOurs ? file.substr(file.rfind('/') + 1) + place : std::string();
    }
    int status = 0;
    char *const plain = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    std::string name = plain ? plain : info.dli_sname;
    std::free(plain);
    constexpr std::size_t Longest = 90;
    return name.size() > Longest ? name.substr(0, Longest) + "..." : name;
}

std::string BlockWatch::Report() const
{
    std::string report;
    char line[300];
    for (Block const &block : m_blocks) {
        std::snprintf(
            line, sizeof line,
            "%8.1f s: %.0f ms, of which it computed %.0f and waited %.0f for a processor; %lld ms after: %s\n",
            block.at, Milliseconds(block.length), Milliseconds(block.computed), Milliseconds(block.waited),
            static_cast<long long>(block.sinceDeed.count()), block.deed);
        report += line;
        if (!block.isSampled)
            continue;
        for (int i = 0; i < block.sample.eventCount; ++i) {
            Handled const &handled = block.sample.events[static_cast<std::size_t>(i)];
            std::snprintf(line, sizeof line, "             event %d of %s\n", handled.event, handled.receiver);
            report += line;
        }
        for (int i = 0; i < block.sample.frameCount; ++i) {
            std::string const name = NameOf(block.sample.frames[static_cast<std::size_t>(i)]);
            if (!name.empty())
                report += "             in " + name + '\n';
        }
    }
    return report;
}
