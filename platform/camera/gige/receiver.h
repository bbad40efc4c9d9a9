// A stream's datagrams on their way into buffers: a UDP socket, a thread that reads it in batches, and the table of
// frames under way.
//
// Header and payload are read into places of their own, and the payload of a packet that comes when it is expected
// lands in its frame. One that comes at another time is moved there, once.
//
// Threads: the calls come from one thread at a time; the sink's from the receiver's own, while it runs, and from within
// Stop.
#pragma once

#include "blocktable.h"
#include "dropcredit.h"
#include "gatherpause.h"
#include "strangers.h"
#include "streamcontrol.h"
#include "streamstatistics.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

// Where buffers come from and where they go. Calls must not wait.
class FrameSink : public BufferSupply
{
public:
    // Complete or incomplete.
    virtual void Deliver(BlockFrame const &frame) = 0;
    // Not filled after all.
    virtual void GiveBack(BlockBuffer const &buffer) = 0;

protected:
    ~FrameSink() = default;
};

// Something else than the socket that brings the datagrams, such as a packet ring. Read and Wait are called on the
// receiver's thread.
class DatagramSource
{
public:
    virtual ~DatagramSource() = default;
    // Shows what is there, a limited number at once, without waiting; returns how many. The bytes are good during the
    // call of `take`.
    virtual std::size_t Read(std::function<void(Datagram const &)> const &take) = 0;
    // Until there is something, there or at the socket `other` unless that is -1, the patience is over, or Wake is
    // called. Wake ends the next wait where none is under way.
    virtual void Wait(std::chrono::milliseconds patience, int other) = 0;
    virtual void Wake() = 0;
    // Does not show what came until now. While nobody reads.
    virtual void Forget() = 0;
    // So far: what there was no room for, what was not shown because it contradicts itself, and fragments, which are
    // not shown either.
    struct Losses
    {
        std::uint64_t dropped = 0, malformed = 0, fragments = 0;
    };
    virtual Losses GetLosses() = 0;
    // Bytes that may wait to be shown.
    virtual std::uint64_t GetRoom() const
    {
        return 0;
    }
    // What packets wait at most until they are shown.
    virtual std::chrono::milliseconds GetDelay() const
    {
        return {};
    }
};

class Receiver
{
public:
    // All of them outlive the receiver.
    Receiver(StreamControl &control, FrameSink &sink, StreamStatistics &statistics);
    ~Receiver();
    Receiver(Receiver const &) = delete;
    Receiver &operator=(Receiver const &) = delete;

    // Binds a socket on the way to the camera, with room for so many bytes as far as the system allows it. False where
    // there is none.
    bool Open(std::size_t room);
    // After Stop.
    void Close();
    std::uint16_t GetPort() const; // 0 while closed
    // In place of the socket, which stays bound and hears nothing then. A source that turns out not to hear what the
    // socket would, because it comes in fragments or another way, is left for the socket. Before Start.
    void SetSource(std::unique_ptr<DatagramSource> source);
    // Whether a test packet of this size, with the headers of IP, UDP and GVSP, comes in time. Before Start.
    bool AwaitTestPacket(std::uint32_t size, std::chrono::milliseconds patience);

    // Throws std::bad_alloc or std::system_error. What came before is not looked at.
    void Start(BlockLayout const &layout);
    // The frames under way are given back.
    void Stop();

private:
    class Batch;

    void Run();
    void Drain();
    bool Read(BlockTable::Time now);
    bool ReadSocket(BlockTable::Time now);
    void CountDrops(std::uint32_t drops);
    void AddDrops(std::uint64_t drops);
    void BeginCredit();
    void ChargeDrops(BlockFrame &frame);
    void LookAround(BlockTable::Time now);
    void CountLosses();
    void CountRingDrops(DatagramSource::Losses const &losses);
    void LeaveSource();
    void JoinTrains(bool on);
    std::uint64_t GetRoom() const;
    void DoWhatIsDue(BlockTable::Time now);
    void Wait(BlockTable::Time now);
    void KeepPathOpen(BlockTable::Time now);
    void HandOver();

    StreamControl &m_control;
    FrameSink &m_sink;
    StreamStatistics &m_statistics;
    int m_socket = -1, m_wake = -1;
    std::unique_ptr<DatagramSource> m_source;

    // The thread's, while it runs.
    BlockTable m_table;
    std::unique_ptr<Batch> m_batch;
    Strangers m_strangers;
    std::uint32_t m_drops = 0; // as the system last told
    DropCredit m_credit;
    bool m_usesSource = false, m_isUnheard = false;
    DatagramSource::Losses m_losses; // as the source last told
    std::uint64_t m_shown = 0;       // by the source
    std::uint32_t m_camera = 0, m_packetSize = 1;
    BlockTable::Time m_nextGreeting, m_nextLook;
    bool m_hasRead = false, m_hasNews = false; // since the last look, and in it or before it
    std::size_t m_readBytes = 0;               // since the last wait
    GatherPause m_gather;

    std::atomic<bool> m_quit{false};
    std::thread m_thread;
};
