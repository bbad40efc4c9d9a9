// Which packets of a simulated camera's frames get lost on their way, and which of them come when the host asks again.
//
// Used by one thread at a time.
#pragma once

#include "simmodel.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

class SimLoss
{
public:
    static constexpr std::uint8_t Requests = 3;      // for a packet, until it is given up
    static constexpr std::uint8_t LostForGood = 255; // more than any number of requests

    // `tellsRequests`: the transport has requests for packets. One without them repeats by itself, and no packet shows
    // it.
    explicit SimLoss(bool tellsRequests);
    // Throws the dice for a frame: the `number`th of the acquisition, of `packets` payload packets, which needs `rate`
    // bytes a second of the link.
    void Decide(SimFaults const &faults, std::uint64_t number, double rate, std::size_t packets);
    // Every packet of the frame came by itself.
    bool IsNone() const;
    // How a packet came: as the answer to which request, 0 for none, LostForGood for not at all.
    std::uint8_t Arrival(std::size_t packet) const;
    // Blackens what did not arrive in a frame whose packets have `packetBytes` each; the bytes that are missing.
    std::uint64_t Blacken(std::uint8_t *frame, std::size_t frameBytes, std::size_t packetBytes) const;

private:
    void Overrun(double share);
    void Lose(double probability, bool resend);

    bool const m_tellsRequests;
    std::vector<std::uint8_t> m_arrivals; // of the present frame, empty where each came by itself
    std::minstd_rand m_random{2024};
};
