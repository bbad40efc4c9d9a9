#include "adaptercounts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct LinkQuestion
{
    nlmsghdr head{};
    ifinfomsg link{};
};

bool Ask(int socket, unsigned adapter)
{
    LinkQuestion question;
    question.head.nlmsg_len = sizeof question;
    question.head.nlmsg_type = RTM_GETLINK;
    question.head.nlmsg_flags = NLM_F_REQUEST;
    question.link.ifi_index = static_cast<int>(adapter);
    return send(socket, &question, sizeof question, 0) == static_cast<ssize_t>(sizeof question);
}

AdapterCounts CountsOf(rtnl_link_stats64 const &told)
{
    AdapterCounts counts;
    // Drivers put the same packets under one or several of these.
    counts.noRoom = std::max({told.rx_missed_errors, told.rx_fifo_errors, told.rx_over_errors});
    counts.dropped = told.rx_dropped;
    counts.damaged = told.rx_crc_errors + told.rx_frame_errors + told.rx_length_errors;
    return counts;
}

template<class Value>
Value ValueOf(rtattr const *attribute)
{
    Value value{};
    std::memcpy(&value, RTA_DATA(attribute), std::min(sizeof value, std::size_t{RTA_PAYLOAD(attribute)}));
    return value;
}

} // namespace

std::optional<AdapterCounts> ReadAdapterCounts(std::string const &adapter)
{
    unsigned const index = adapter.empty() ? 0 : if_nametoindex(adapter.c_str());
    if (index == 0)
        return std::nullopt;
    alignas(nlmsghdr) std::array<std::byte, 32768> answer;
    int const socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    ssize_t const size = socket >= 0 && Ask(socket, index) ? recv(socket, answer.data(), answer.size(), 0) : -1;
    if (socket >= 0)
        close(socket);
    auto const *const head = reinterpret_cast<nlmsghdr const *>(answer.data());
    if (size < 0 || !NLMSG_OK(head, static_cast<std::size_t>(size)) || head->nlmsg_type != RTM_NEWLINK)
        return std::nullopt;
    AdapterCounts counts;
    std::uint64_t linkLosses = 0;
    auto const *const link = static_cast<ifinfomsg const *>(NLMSG_DATA(head));
    auto left = static_cast<int>(IFLA_PAYLOAD(head));
    for (rtattr const *one = IFLA_RTA(link); RTA_OK(one, left); one = RTA_NEXT(one, left)) {
        if (one->rta_type == IFLA_STATS64)
            counts = CountsOf(ValueOf<rtnl_link_stats64>(one));
        else if (one->rta_type == IFLA_CARRIER_DOWN_COUNT)
            linkLosses = ValueOf<std::uint32_t>(one);
    }
    counts.linkLosses = linkLosses;
    return counts;
}
