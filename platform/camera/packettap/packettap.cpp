#include "packettap.h"

#include <algorithm>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t Channels[] = {TovCam::EventControlChannel, TovCam::EventStreamChannel,
                                      TovCam::EventEventChannel};
// The hub that this thread reads packets for; null on every thread that is not a tap's. Kept with the thread, because a
// tap that ends has left all lists while its last callback still runs.
thread_local EventHub const *t_hub = nullptr;

constexpr auto Patience = 500ms;     // of a wait for packets
constexpr auto MissedPeriod = 200ms; // between two looks at what was missed

} // namespace

// One thread with its source.
class PacketTaps::Tap
{
public:
    Tap(EventHub &events, std::atomic<std::uint64_t> &missed, std::unique_ptr<PacketSource> source)
        : m_events(events),
          m_missed(missed),
          m_source(std::move(source)),
          m_thread([this] { Run(); })
    {
    }
    ~Tap()
    {
        AskToEnd();
        m_thread.join();
    }
    void AskToEnd()
    {
        m_end.store(true, std::memory_order_relaxed);
        m_source->Wake();
    }
    void Wake()
    {
        m_source->Wake();
    }
    bool IsOnThread() const
    {
        return m_thread.get_id() == std::this_thread::get_id();
    }

private:
    using Clock = std::chrono::steady_clock;

    void Run()
    {
        t_hub = &m_events;
        PacketBuffer buffer;
        PacketSource::Sink const sink = [this, &buffer](TapPacket const &packet) {
            if (m_end.load(std::memory_order_relaxed))
                return false;
            if (m_events.IsWanted(packet.channel))
                m_events.Emit(packet.channel, buffer.Lay(packet), packet.size);
            return !m_end.load(std::memory_order_relaxed);
        };
        Clock::time_point nextLook = Clock::now() + MissedPeriod;
        bool more = true;
        while (more && !m_end.load(std::memory_order_relaxed)) {
            m_source->SetStreamWanted(m_events.IsWanted(TovCam::EventStreamChannel));
            more = m_source->Read(sink, Patience);
            if (Clock::time_point const now = Clock::now(); now >= nextLook) {
                nextLook = now + MissedPeriod;
                TellMissed();
            }
        }
        TellMissed();
    }

    void TellMissed()
    {
        std::uint64_t const missed = m_source->GetMissed();
        if (missed == m_told)
            return;
        std::uint64_t const total = m_missed.fetch_add(missed - m_told, std::memory_order_relaxed) + missed - m_told;
        m_told = missed;
        m_events.Emit(TovCam::EventPacketsMissed, &total, sizeof total);
    }

    EventHub &m_events;
    std::atomic<std::uint64_t> &m_missed;
    std::unique_ptr<PacketSource> const m_source;
    std::uint64_t m_told = 0; // the thread's own
    std::atomic<bool> m_end{false};
    std::thread m_thread; // last: it uses everything above
};

PacketTaps::PacketTaps(EventHub &events, Opener opener) : m_events(events), m_opener(std::move(opener))
{
}

PacketTaps::~PacketTaps()
{
    Close();
}

bool PacketTaps::IsPacketChannel(std::uint32_t eventId)
{
    return std::find(std::begin(Channels), std::end(Channels), eventId) != std::end(Channels);
}

std::vector<std::unique_ptr<PacketTaps::Tap>> PacketTaps::TakeRetired()
{
    auto const own =
        std::partition(m_retired.begin(), m_retired.end(), [](auto const &tap) { return tap->IsOnThread(); });
    std::vector<std::unique_ptr<Tap>> taken(std::make_move_iterator(own), std::make_move_iterator(m_retired.end()));
    m_retired.erase(own, m_retired.end());
    return taken;
}

std::int32_t PacketTaps::Register(std::uint32_t id, TovCam::EventCallback callback, void *user, bool *started)
{
    std::vector<std::unique_ptr<Tap>> retired; // destroyed after the lock is released
    std::lock_guard<std::mutex> lock(m_mutex);
    retired = TakeRetired();
    std::int32_t status = m_events.Register(id, callback, user);
    if (status != TOV_CAM_ERR_OK)
        return status;
    if (started)
        *started = !m_tap;
    if (m_tap) {
        m_tap->Wake(); // it may have skipped what is wanted now
        return TOV_CAM_ERR_OK;
    }
    std::unique_ptr<PacketSource> source = m_opener(&status);
    if (source)
        m_tap = std::make_unique<Tap>(m_events, m_missed, std::move(source));
    else
        m_events.Unregister(id, callback, user);
    return status;
}

std::int32_t PacketTaps::Unregister(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    if (std::int32_t const status = m_events.Unregister(id, callback, user); status != TOV_CAM_ERR_OK)
        return status;
    // Destroyed after the lock is released: a callback that still runs may want it.
    std::vector<std::unique_ptr<Tap>> ended;
    std::lock_guard<std::mutex> lock(m_mutex);
    ended = TakeRetired();
    if (!m_tap || std::any_of(std::begin(Channels), std::end(Channels),
                              [this](std::uint32_t channel) { return m_events.IsWanted(channel); }))
        return TOV_CAM_ERR_OK;
    m_tap->AskToEnd();
    (m_tap->IsOnThread() ? m_retired : ended).push_back(std::move(m_tap));
    return TOV_CAM_ERR_OK;
}

bool PacketTaps::IsOnThread() const
{
    return t_hub == &m_events;
}

void PacketTaps::Close()
{
    std::vector<std::unique_ptr<Tap>> ended;
    std::lock_guard<std::mutex> lock(m_mutex);
    ended = TakeRetired();
    if (m_tap)
        ended.push_back(std::move(m_tap));
}
