// The control channel of a GigE Vision camera that this program has control of.
#pragma once

#include "giveupwatch.h"
#include "gvcpanswer.h"
#include "streamcontrol.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>

class OpenWatch;

// Requests to one camera, one at a time, and the heartbeat that keeps control of it.
//
// Statuses: TOV_CAM_ERR_NO_DEVICE where no answer came in time, after a loss, a cancel and the end;
// TOV_CAM_ERR_GENICAM_ACCESS, TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT and TOV_CAM_ERR_GENICAM_GENERIC where the camera
// refuses. An access takes three seconds at most, and ten where the camera asks for more time; under one second and
// under three for whoever is in a hurry. Once one has had no answer, the others fail at once until the heartbeat has
// had one and found that control is still ours.
//
// Threads: any, unless something else is said. Nothing that comes from the network is believed before it has been
// compared with what was asked for; what does not fit is counted and left.
class ControlChannel final : public StreamControl
{
public:
    using Clock = std::chrono::steady_clock;

    // Of datagrams that came in, but for the first two.
    struct Counters
    {
        std::uint64_t repeated = 0;  // requests that were sent again
        std::uint64_t abandoned = 0; // requests that had no answer
        std::uint64_t foreign = 0;   // from elsewhere, or more of the camera's than the socket holds
        std::uint64_t stale = 0;     // answers to other requests
        std::uint64_t malformed = 0; // answers that do not fit the request
    };

    // Takes `address`, dotted IPv4; with anything else, and without a way to it, Open fails.
    explicit ControlChannel(std::string const &address);
    // Closes it.
    ~ControlChannel() override;
    ControlChannel(ControlChannel const &) = delete;
    ControlChannel &operator=(ControlChannel const &) = delete;

    // Takes control, and keeps it until Close. TOV_CAM_ERR_GENICAM_ACCESS when another program has it. Once.
    std::int32_t Open();
    // Called once, on a thread of the channel, when control is lost; also when that was before. Must not close the
    // channel. Once, after Open.
    void SetLossHandler(std::function<void()> handler);
    // Gives control back. One thread; nobody reads and writes any more.
    void Close();
    // Somebody is in a hurry from now on, or no longer; in pairs. What his thread asks while the camera does not answer
    // fails soon, and what others ask gives way.
    void Hurry(bool begins) override;
    // The camera is to be closed: whoever asks it anything is in a hurry.
    void BeginClosing();
    // Ends what waits for the camera, and all that comes later.
    void Cancel();
    // Accesses end when the opening is cancelled or its time is over. Null: no longer. The thread that opens.
    void Follow(OpenWatch const *watch);
    // Accesses end once it is over. Null: they do not.
    void SetGiveUpWatch(std::shared_ptr<GiveUpWatch const> watch);

    // Whether the camera has stopped answering, so that accesses fail at once.
    bool IsSilent() const;
    // How long ago its last answer was, if anything has been asked in vain since; otherwise 0.
    std::chrono::milliseconds GetSilence() const;
    bool IsLost() const;
    Counters GetCounters() const;
    // Of the adapter on the way to the camera; 0 where it is not known.
    std::uint32_t GetMtu() const;
    // Which application has control, by the camera's registers; not every camera has them.
    std::int32_t ReadController(std::uint32_t &address, std::uint16_t &port);

    // Any address and size; whole registers are read and, where a write begins or ends within one, written.
    std::int32_t ReadMemory(std::uint32_t address, std::span<std::uint8_t> out);
    std::int32_t WriteMemory(std::uint32_t address, std::span<std::uint8_t const> bytes);

    // StreamControl
    std::int32_t ReadRegister(std::uint32_t address, std::uint32_t &value) override;
    std::int32_t WriteRegister(std::uint32_t address, std::uint32_t value) override;
    void RequestPackets(PacketRequest const &request) override;
    std::uint32_t GetCameraAddress() const override;
    std::uint32_t GetHostAddress() const override;

private:
    // How much is invested in a request.
    struct Effort
    {
        enum Kind : std::uint8_t {
            Patient,
            Hasty, // of somebody in a hurry
            Beat,  // of the heartbeat, which ends with it
            Final  // not to be broken off
        };
        int tries;
        std::chrono::milliseconds patience; // for each, but for the first
        std::chrono::milliseconds first;
        std::chrono::milliseconds limit; // for all, however much time the camera asks for
        Kind kind = Patient;
    };
    enum class Outcome { Answered, Refused, Silent, Stopped };
    static Effort const Access, Hasty, Beat, Probe, Goodbye;
    static constexpr std::size_t LongestDatagram = 2048; // more than any answer

    bool OpenSocket();
    std::uint16_t NextId();
    // With m_mutex held.
    Outcome Transact(GvcpRequest request, Effort const &effort);
    Outcome Await(GvcpRequest const &request, Effort const &effort, Clock::time_point end, Clock::time_point last);
    std::optional<GvcpAnswer> Take(GvcpRequest const &request);
    Clock::time_point EndOf(Effort const &effort) const;
    bool IsStopped(Effort const &effort) const;
    bool GivesWay(Effort const &effort) const;
    bool WaitReadable(Effort const &effort, Clock::time_point end);
    void NoteAnswer();
    void NoteVain();
    bool Transmit(std::span<std::uint8_t const> packet);

    std::int32_t Ask(GvcpRequest const &request, Effort const &wanted, std::span<std::uint8_t> out);
    bool MayAsk(Effort const &effort) const;
    std::int32_t StatusOf(Outcome outcome) const;
    std::int32_t ReadRegisterBy(Effort const &effort, std::uint32_t address, std::uint32_t &value);
    std::int32_t ReadControllerBy(Effort const &effort, std::uint32_t &address, std::uint16_t &port);
    std::int32_t SetRegister(std::uint32_t address, std::uint32_t value);
    std::int32_t ReadBlock(std::uint32_t address, std::span<std::uint8_t> out);
    std::int32_t WriteBlock(std::uint32_t address, std::span<std::uint8_t const> bytes);
    void LearnTimeout();

    // The heartbeat's thread.
    void RunHeartbeat();
    bool DoBeat();
    enum class Keeper { Us, Another, Untold };
    Keeper FindKeeper(Effort const &effort);

    std::uint32_t m_cameraAddress = 0, m_hostAddress = 0, m_mtu = 0; // set by the constructor
    std::uint16_t m_hostPort = 0;                                    // the same
    int m_socket = -1, m_wake = -1; // the same; m_wake is readable once something is to stop
    std::atomic<bool> m_cancelled{false};
    std::atomic<bool> m_ending{false}; // the heartbeat
    std::atomic<bool> m_open{false};
    std::atomic<bool> m_silent{false}, m_lost{false};
    std::atomic<Clock::time_point> m_answered{}; // when the camera has last answered a request
    std::atomic<bool> m_vain{false};             // it has been asked in vain since
    std::atomic<int> m_hurries{0};
    std::atomic<bool> m_closing{false};
    std::atomic<Clock::time_point> m_hurryBegan{};
    std::atomic<bool> m_yields{false}; // an access has given way: the others of those who are in no hurry do at once
    std::atomic<std::uint32_t> m_lastId;
    std::atomic<bool> m_timeoutChanged{false}; // the heartbeat's, by a write of the register
    std::atomic<std::uint64_t> m_repeated{0}, m_abandoned{0}, m_stale{0}, m_malformed{0};

    mutable std::mutex m_mutex; // one request at a time; guards the next ones
    std::array<std::uint8_t, LongestDatagram> m_datagram;
    GvcpAnswer m_answer;       // the last one, in m_datagram
    Clock::time_point m_heard; // the camera, last, if only that it needs time
    Clock::time_point m_began; // the request under way
    bool m_pends = false;      // the camera has asked for time for it
    OpenWatch const *m_watch = nullptr;
    std::shared_ptr<GiveUpWatch const> m_giveUp;

    std::mutex m_beatMutex; // guards the next ones; alone
    std::condition_variable m_beatWake;
    bool m_beatIsDue = false; // before its time
    std::function<void()> m_lossHandler;
    std::thread m_heartbeat;

    // The heartbeat's thread alone, once it runs.
    std::chrono::milliseconds m_timeout{0}; // after which the camera takes control away
    std::chrono::milliseconds m_period{0};
    bool m_namesController = false; // the camera's registers tell who has control
    int m_unanswered = 0;           // beats in a row
    bool m_gaveWay = false;         // the last beat
    bool m_inDoubt = false;         // another host may have taken control
};
