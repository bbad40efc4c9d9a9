#include "simloss.h"

#include <algorithm>
#include <cmath>
#include <cstring>

SimLoss::SimLoss(bool tellsRequests) : m_tellsRequests(tellsRequests)
{
}

void SimLoss::Decide(SimFaults const &faults, std::uint64_t number, double rate, std::size_t packets)
{
    m_arrivals.clear();
    bool const marked = faults.incompleteEvery != 0 && number % faults.incompleteEvery == 0;
    bool const overrun = faults.linkLimit > 0.0 && rate > faults.linkLimit;
    if (!marked && !overrun && faults.packetLoss <= 0.0)
        return;
    m_arrivals.assign(packets, 0);
    if (marked)
        m_arrivals[packets / 2] = LostForGood;
    if (overrun)
        Overrun(1.0 - faults.linkLimit / rate);
    if (faults.packetLoss > 0.0)
        Lose(std::min(faults.packetLoss, 1.0), faults.resend);
}

// What the link cannot carry is spread over the frame; at least one packet is too much.
void SimLoss::Overrun(double share)
{
    double owed = 1.0;
    for (std::uint8_t &arrival : m_arrivals) {
        if (owed >= 1.0) {
            arrival = LostForGood;
            owed -= 1.0;
        }
        owed += share;
    }
}

void SimLoss::Lose(double probability, bool resend)
{
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (double i = 0;; i += 1.0) {
        // The distance to the next lost packet, instead of a throw of dice for each.
        if (probability < 1.0)
            i += std::floor(std::log(1.0 - uniform(m_random)) / std::log1p(-probability));
        if (!(i < static_cast<double>(m_arrivals.size())))
            break;
        std::uint8_t &arrival = m_arrivals[static_cast<std::size_t>(i)];
        if (arrival == LostForGood)
            continue;
        // A packet that is asked for again gets lost with the same probability.
        arrival = LostForGood;
        for (std::uint8_t request = 1; resend && request <= Requests && arrival == LostForGood; ++request) {
            if (uniform(m_random) >= probability)
                arrival = m_tellsRequests ? request : std::uint8_t{0};
        }
    }
}

bool SimLoss::IsNone() const
{
    return m_arrivals.empty();
}

std::uint8_t SimLoss::Arrival(std::size_t packet) const
{
    return m_arrivals.empty() ? std::uint8_t{0} : m_arrivals[packet];
}

std::uint64_t SimLoss::Blacken(std::uint8_t *frame, std::size_t frameBytes, std::size_t packetBytes) const
{
    std::uint64_t missing = 0;
    for (std::size_t i = 0; i < m_arrivals.size(); ++i) {
        if (m_arrivals[i] != LostForGood)
            continue;
        std::size_t const bytes = std::min(packetBytes, frameBytes - i * packetBytes);
        std::memset(frame + i * packetBytes, 0, bytes);
        missing += bytes;
    }
    return missing;
}
