#include "packetplan.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace {

std::string_view Trim(std::string_view text)
{
    constexpr char Blanks[] = " \t";
    std::size_t const begin = text.find_first_not_of(Blanks);
    return begin == text.npos ? std::string_view() : text.substr(begin, text.find_last_not_of(Blanks) - begin + 1);
}

std::optional<std::uint32_t> ParseId(std::string_view text)
{
    text = Trim(text);
    if (text == "last")
        return PacketRange::LastPacket;
    std::uint32_t id = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (error != std::errc() || end != text.data() + text.size() || id == PacketRange::LastPacket)
        return std::nullopt;
    return id;
}

} // namespace

bool ParsePacketList(std::string_view text, std::vector<PacketRange> &ranges)
{
    std::vector<PacketRange> parsed;
    if (!Trim(text).empty()) {
        for (std::size_t at = 0; at <= text.size();) {
            std::size_t const end = std::min(text.find(',', at), text.size());
            std::string_view const item = text.substr(at, end - at);
            std::size_t const dash = item.find('-');
            auto const first = ParseId(item.substr(0, dash));
            auto const last = dash == item.npos ? first : ParseId(item.substr(dash + 1));
            if (!first || !last || *first > *last)
                return false;
            parsed.push_back({*first, *last});
            at = end + 1;
        }
    }
    ranges = std::move(parsed);
    return true;
}

bool FrameGaps::IsGone(std::uint32_t id) const
{
    // Leader and trailer frame the data, but for one packet that holds all.
    bool const whole = packets == 1;
    if (!whole && (id == 0 || id + 1 >= packets))
        return false;
    std::uint32_t const index = whole ? 0 : id - 1, count = whole ? 1 : packets - 2;
    if (middle && index == count / 2)
        return true;
    // At least one is too much, the first.
    return excess > 0.0 && (index == 0 || std::floor(index * excess) > std::floor((index - 1) * excess));
}

void PacketPlan::SetFaults(StreamFaults const &faults)
{
    m_faults = faults;
    if (!ParsePacketList(faults.lostPackets, m_listed))
        m_listed.clear();
    m_burst = 0;
    m_harmless = !faults.silent && faults.loss <= 0.0 && m_listed.empty() && faults.reorder <= 0.0 &&
                 faults.duplicate <= 0.0 && faults.truncate <= 0.0 && faults.wrongLength <= 0.0 &&
                 faults.wrongPacketId <= 0.0 && faults.wrongBlockId <= 0.0;
}

void PacketPlan::Make(std::uint64_t number, std::uint32_t packets, double rate)
{
    m_sequence.clear();
    bool const excess = m_faults.linkLimit > 0.0 && rate > m_faults.linkLimit;
    m_gaps.packets = packets;
    m_gaps.middle = m_faults.incompleteEvery != 0 && number % m_faults.incompleteEvery == 0;
    m_gaps.excess = excess ? 1.0 - m_faults.linkLimit / rate : 0.0;
    m_plain = m_harmless && !m_gaps.middle && !excess;
    if (m_plain || m_faults.silent || packets == 0)
        return;
    bool const listed = !m_listed.empty() && number % std::max(m_faults.lostEvery, 1u) == 0;
    m_held.clear();
    std::size_t released = 0;
    for (std::uint32_t id = 0; id < packets; ++id) {
        // The dice are thrown for every packet, so that no fault changes the fall of another.
        bool const lost = Loses();
        PlannedPacket const packet{id, Damage()};
        bool const reordered = Throw(m_faults.reorder);
        bool const doubled = Throw(m_faults.duplicate);
        if (lost || m_gaps.IsGone(id) || (listed && IsListed(id, packets - 1)))
            continue;
        for (int copies = doubled ? 2 : 1; copies > 0; --copies) {
            if (reordered) {
                m_held.push_back({packet, m_sequence.size() + std::max(m_faults.reorderDistance, 1u)});
                continue;
            }
            m_sequence.push_back(packet);
            Release(released);
        }
    }
    for (; released < m_held.size(); ++released)
        m_sequence.push_back(m_held[released].packet);
}

// Whom enough others have overtaken.
void PacketPlan::Release(std::size_t &released)
{
    while (released < m_held.size() && m_held[released].until <= m_sequence.size())
        m_sequence.push_back(m_held[released++].packet);
}

bool PacketPlan::Throw(double share)
{
    return share > 0.0 && std::uniform_real_distribution<double>(0.0, 1.0)(m_random) < share;
}

bool PacketPlan::Loses()
{
    if (m_burst > 0) {
        --m_burst;
        return true;
    }
    if (!Throw(m_faults.loss))
        return false;
    m_burst = std::max(m_faults.burst, 1u) - 1;
    return true;
}

bool PacketPlan::IsListed(std::uint32_t id, std::uint32_t last) const
{
    return std::any_of(m_listed.begin(), m_listed.end(), [=](PacketRange const &range) {
        return id >= (range.first == PacketRange::LastPacket ? last : range.first) && id <= range.last;
    });
}

PacketDamage PacketPlan::Damage()
{
    if (Throw(m_faults.truncate))
        return PacketDamage::Truncated;
    if (Throw(m_faults.wrongLength))
        return PacketDamage::TooLong;
    if (Throw(m_faults.wrongPacketId))
        return PacketDamage::WrongPacketId;
    return Throw(m_faults.wrongBlockId) ? PacketDamage::WrongBlockId : PacketDamage::None;
}

bool PacketPlan::LosesResent()
{
    return Loses();
}
