#include "addresses.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <bit>
#include <charconv>

bool IsNetmask(std::uint32_t mask)
{
    return (~mask & (~mask + 1)) == 0;
}

bool IsHostAddress(std::uint32_t address, std::uint32_t mask)
{
    constexpr std::uint32_t Loopback = 127, Multicast = 224; // the first part, and from there on
    std::uint32_t const first = address >> 24;
    if (first == 0 || first == Loopback || first >= Multicast || !IsNetmask(mask) || mask == 0)
        return false;
    // Subnets of one or two have neither of these.
    return ~mask < 2 || ((address & ~mask) != 0 && (address | mask) != ~0u);
}

std::string SubnetText(std::uint32_t address, std::uint32_t mask)
{
    return AddressText(address) + '/' + (IsNetmask(mask) ? std::to_string(std::countl_one(mask)) : AddressText(mask));
}

std::optional<SubnetAddress> ParseSubnetAddress(std::string const &text)
{
    std::size_t const slash = text.find('/');
    std::optional<std::uint32_t> const address = ParseAddress(text.substr(0, slash));
    if (slash == std::string::npos || !address)
        return std::nullopt;
    std::string const rest = text.substr(slash + 1);
    std::optional<std::uint32_t> mask = ParseAddress(rest);
    unsigned bits = 0;
    auto const [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), bits);
    if (!mask && error == std::errc() && end == rest.data() + rest.size() && bits >= 1 && bits <= 32)
        mask = ~0u << (32 - bits);
    if (!mask || !IsHostAddress(*address, *mask))
        return std::nullopt;
    return SubnetAddress{*address, *mask};
}

std::uint32_t FindFreeAddress(SubnetAddress const &own, std::uint32_t like, std::span<std::uint32_t const> taken)
{
    constexpr std::uint32_t MostTries = 1000, FirstTry = 100; // behind what routers and their hosts like to have
    std::uint32_t const network = own.address & own.mask, room = ~own.mask;
    auto const isFree = [&](std::uint32_t address) {
        return IsHostAddress(address, own.mask) && address != own.address &&
               std::find(taken.begin(), taken.end(), address) == taken.end();
    };
    if (isFree(network | (like & room & 0xFF)))
        return network | (like & room & 0xFF);
    for (std::uint32_t i = 0; i <= std::min(room, MostTries); ++i) {
        std::uint32_t const address = network | ((FirstTry + i) & room);
        if (isFree(address))
            return address;
    }
    return 0;
}
