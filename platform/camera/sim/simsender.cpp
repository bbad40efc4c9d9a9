#include "simsender.h"

#include "tovcamera.h"

#include <algorithm>

SimSender::SimSender(std::uint32_t interfaceKind, EventHub &events)
    : m_events(events),
      m_packets(MakeSimPackets(interfaceKind))
{
}

std::size_t SimSender::PayloadBytes(std::uint32_t packetSize) const
{
    return m_packets->PayloadBytes(packetSize);
}

void SimSender::SendFrame(SimSentFrame frame, SimLoss const &loss)
{
    std::size_t const count = (frame.size + frame.packetBytes - 1) / frame.packetBytes;
    Send(TovCam::EventStreamChannel, m_packets->Leader(frame.facts));
    std::size_t gap = count; // where the packets begin that have not come; count: nowhere
    for (std::size_t i = 0; i < count; ++i) {
        if (std::uint8_t const arrival = loss.Arrival(i); arrival != 0) {
            gap = std::min(gap, i);
            if (arrival == SimLoss::LostForGood)
                frame.facts.validPayload -= std::min(frame.packetBytes, frame.size - i * frame.packetBytes);
            continue;
        }
        SendPayload(frame, i, false);
        // The host notices a gap by the first packet after it.
        if (gap < i)
            SendResends(frame, loss, gap, i);
        gap = count;
    }
    Send(TovCam::EventStreamChannel,
         m_packets->Trailer(frame.facts, static_cast<std::uint32_t>(count + 1), !frame.incomplete));
    if (gap < count)
        SendResends(frame, loss, gap, count);
}

// Packet `index` of the payload; it has the id above, as the leader is packet 0.
void SimSender::SendPayload(SimSentFrame const &frame, std::size_t index, bool resent)
{
    std::size_t const at = index * frame.packetBytes;
    Send(TovCam::EventStreamChannel,
         m_packets->PayloadHeader(frame.facts, static_cast<std::uint32_t>(index + 1), resent),
         {frame.pixels + at, std::min(frame.packetBytes, frame.size - at)});
}

// The host asks for the packets from `first` up to `last`, which is excluded, and again for those that stay away.
void SimSender::SendResends(SimSentFrame const &frame, SimLoss const &loss, std::size_t first, std::size_t last)
{
    if (!frame.resend)
        return;
    for (std::uint8_t request = 1; request <= SimLoss::Requests; ++request) {
        for (std::size_t from = first; from < last; ++from) {
            if (loss.Arrival(from) < request)
                continue;
            std::size_t to = from;
            while (to < last && loss.Arrival(to) >= request)
                ++to;
            SimPacket const packet =
                m_packets->Resend(frame.facts, static_cast<std::uint32_t>(from + 1), static_cast<std::uint32_t>(to));
            if (packet.empty())
                return;
            Send(TovCam::EventControlChannel, packet);
            for (; from != to; ++from) {
                if (loss.Arrival(from) == request)
                    SendPayload(frame, from, true);
            }
        }
    }
}

// With the host's answer, which goes the other way on the same channel.
void SimSender::SendEvent(std::uint16_t eventId, std::uint64_t frame, std::uint64_t timestamp)
{
    SimPacket const event = m_packets->Event(eventId, frame, timestamp);
    SimPacket const answer = m_packets->EventAcknowledge(event);
    Send(TovCam::EventEventChannel, event);
    if (!answer.empty())
        Send(TovCam::EventEventChannel, answer);
}

void SimSender::SendControl(SimPacket const &packet)
{
    Send(TovCam::EventControlChannel, packet);
}

void SimSender::Send(std::uint32_t channel, std::span<std::uint8_t const> head, std::span<std::uint8_t const> body)
{
    std::size_t const total = head.size() + body.size();
    if (m_events.IsWanted(channel))
        m_events.Emit(channel, m_bytes.Lay(head.data(), head.size(), body.data(), body.size(), total), total);
}
