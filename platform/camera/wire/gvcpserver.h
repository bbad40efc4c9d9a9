// The control channel of a camera: takes the datagrams of hosts and answers them by the rules of GigE Vision. It knows
// no socket, no thread and no clock, so that any datagrams at any times can be tried on it.
//
// It owns the bootstrap registers: who has control, the heartbeat, the retransmission of answers and events, and which
// access is allowed. What lies behind the bootstrap registers, and what a write to them does to the camera, is the
// business of a GvcpCamera.
//
// Used by one thread at a time.
#pragma once

#include "bootstrapmemory.h"
#include "gvcpdatagram.h"
#include "wirefaults.h"

#include "protocol/gigevision.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <span>
#include <vector>

struct GvcpResend
{
    std::uint64_t blockId;
    std::uint32_t first, last; // packet ids, both included
    bool extended;
};

// What the server serves. Every call comes from within the server's.
class GvcpCamera
{
public:
    virtual ~GvcpCamera() = default;

    // Memory behind the bootstrap registers. Addresses and sizes are whole registers, and end below 4 GB.
    virtual gvcp::Status Read(std::uint32_t address, std::span<std::uint8_t> out) = 0;
    virtual gvcp::Status Write(std::uint32_t address, std::span<std::uint8_t const> bytes) = 0;
    // How long an access takes this camera.
    virtual std::chrono::milliseconds DelayOf(std::uint32_t address, std::uint32_t size) = 0;
    // A host has written a bootstrap register, which holds the value already. Another status than success takes it
    // back; bits that are commands (the test packet's) are 0 again afterwards. The control channel privilege is the
    // server's, and nothing is told about it.
    virtual gvcp::Status React(std::uint32_t address) = 0;
    virtual void Resend(GvcpResend const &request) = 0;
    // Nobody has control any more; stream and messages are off.
    virtual void ControlEnded() = 0;
    // An action that this camera listens to.
    virtual void Act(std::uint32_t action) = 0;
    // Answers are sent before the address changes; false where it cannot be had.
    virtual bool TakeAddress(std::uint32_t address, std::uint32_t mask, std::uint32_t gateway) = 0;
};

class GvcpServer
{
public:
    using Clock = std::chrono::steady_clock;

    GvcpServer(BootstrapMemory &memory, GvcpCamera &camera);

    // A datagram of any bytes, from either channel. `broadcast`: it was not sent to this camera alone. `now` never goes
    // back.
    void Handle(std::span<std::uint8_t const> datagram, GvcpPeer from, bool broadcast, Clock::time_point now);
    // Does what is due: late answers, events that nobody has acknowledged, the end of the heartbeat.
    void Poll(Clock::time_point now);
    // When Poll is to be called next.
    std::optional<Clock::time_point> NextDue() const;
    // What is to be sent, oldest first.
    std::vector<GvcpDatagram> TakeOutgoing();

    // A write to bootstrap registers by the camera itself, which every register allows that can be written at all.
    gvcp::Status WriteBootstrap(std::uint32_t address, std::span<std::uint8_t const> bytes);
    // Tells the host, where it has opened the message channel. `blockId` 0: no frame is concerned. An event that finds
    // too many others waiting for their acknowledges is lost.
    void SendEvent(std::uint16_t event, std::uint64_t blockId, std::uint64_t timestamp, Clock::time_point now);
    bool IsControlled() const;
    std::optional<GvcpPeer> GetController() const;
    // How many times a host has got control.
    std::uint64_t CountControls() const;
    // As after power-up: nobody has control, nothing is pending, the channels are closed. The camera is not told. Other
    // registers and the faults stay.
    void Reset();
    void SetFaults(ControlFaults const &faults);

private:
    struct Request
    {
        gvcp::Header header;
        std::vector<std::uint8_t> bytes; // with the header
        GvcpPeer from;
        bool broadcast;

        bool Has(gvcp::Flag flag) const;
        std::span<std::uint8_t const> Body() const;
    };
    struct Discovery
    {
        std::uint16_t id;
        GvcpPeer to;
        Clock::time_point due;
    };
    struct Answered // a request and its acknowledge
    {
        GvcpPeer to;
        std::vector<std::uint8_t> request;
        gvcp::Status status;
        std::vector<std::uint8_t> body;
        Clock::time_point time;
    };
    struct Event
    {
        std::uint16_t id;
        bool asks; // for an acknowledge
        std::vector<std::uint8_t> bytes;
    };

    // Requests, from their arrival to their acknowledge.
    void Queue(Request &&request, Clock::time_point now);
    void BeginNext(Clock::time_point at);
    void EndNext(Clock::time_point now);
    std::chrono::milliseconds TimeOf(Request const &request) const;
    void TellPending(Clock::time_point now);
    void Execute(Request const &request, Clock::time_point now);
    bool Repeat(Request const &request, Clock::time_point now);
    void Acknowledge(Request const &request, gvcp::Status status, std::span<std::uint8_t const> body,
                     Clock::time_point now);

    // What the commands do.
    void Discover(Request const &request, Clock::time_point now);
    void AnswerDiscovery(Discovery const &discovery);
    void ForceIp(Request const &request, Clock::time_point now);
    void ReadRegisters(Request const &request, Clock::time_point now);
    void WriteRegisters(Request const &request, Clock::time_point now);
    void ReadMemory(Request const &request, Clock::time_point now);
    void WriteMemory(Request const &request, Clock::time_point now);
    void Resend(Request const &request);
    void Act(Request const &request, Clock::time_point now);

    // Access to memory, and who has it.
    gvcp::Status Read(GvcpPeer from, std::uint32_t address, std::span<std::uint8_t> out);
    gvcp::Status Write(GvcpPeer from, std::uint32_t address, std::span<std::uint8_t const> bytes,
                       Clock::time_point now);
    gvcp::Status WritePrivilege(GvcpPeer from, std::uint32_t value, Clock::time_point now);
    bool IsController(GvcpPeer peer) const;
    void SetController(std::optional<GvcpPeer> controller, std::uint32_t privilege);
    void EndControl();
    std::optional<Clock::time_point> HeartbeatEnd() const;

    // Events.
    GvcpPeer MessageHost() const;
    bool IsMessageChannelOpen() const;
    void TransmitEvents(Clock::time_point now);
    void RepeatEvent(Clock::time_point now);
    void TakeEventAck(std::uint16_t id, GvcpPeer from, Clock::time_point now);

    GvcpPeer ReplyAddress(Request const &request) const;
    void SendAnswer(GvcpPeer to, gvcp::Status status, std::uint16_t code, std::uint16_t id,
                    std::span<std::uint8_t const> body);
    void Transmit(Event const &event);
    bool Hits(double probability);

    BootstrapMemory &m_memory;
    GvcpCamera &m_camera;
    ControlFaults m_faults;
    std::minstd_rand m_random; // the same faults in every run
    std::vector<GvcpDatagram> m_outgoing;

    std::optional<GvcpPeer> m_controller;
    std::uint64_t m_controls = 0;
    Clock::time_point m_heard; // the controller, last

    std::deque<Request> m_requests;                   // the first is being done, the others wait
    Clock::time_point m_requestDue;                   // of the first
    std::optional<Clock::time_point> m_pendingAckDue; // of the first
    std::deque<Answered> m_answered;                  // the last of each host, oldest first
    std::deque<Discovery> m_discoveries;              // late answers

    std::deque<Event> m_events; // the first waits for its acknowledge
    std::uint16_t m_eventId = 0;
    std::uint32_t m_eventRetries = 0; // left
    Clock::time_point m_eventDue;
};
