// Addresses that a camera can have, and their texts.
#pragma once

#include "hoststate.h"

#include <span>

// Whether one host in the subnet of `mask` can have it: not the subnet's own, its broadcast, loopback, nor multicast.
bool IsHostAddress(std::uint32_t address, std::uint32_t mask);
// A netmask is ones, then zeros.
bool IsNetmask(std::uint32_t mask);

// "192.0.2.1/24"
std::string SubnetText(std::uint32_t address, std::uint32_t mask);
// That, or with the mask in four numbers. Nothing where it is neither, or no host's.
std::optional<SubnetAddress> ParseSubnetAddress(std::string const &text);

// In the subnet of `own`, with the last part of `like` where that is free; the `taken` are not. 0: there is none.
std::uint32_t FindFreeAddress(SubnetAddress const &own, std::uint32_t like, std::span<std::uint32_t const> taken);
