// What became of a stream's packets, as features of the camera: nodes of ours at addresses that no camera has.
#pragma once

#include "streamstatistics.h"

#include <arv.h>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Adds the category "TovStreamStatistics" to the root of the tree; nothing where the description has no root, no port,
// or nodes of these names. Before the node map is used.
void AddStatisticNodes(ArvGc *genicam);

// Whether the address is one of these nodes'.
bool IsStatistic(std::uint64_t address, std::uint32_t size);
// The big-endian value at such an address.
void ReadStatistic(StreamStatistics const &statistics, std::uint64_t address, std::uint8_t *out);

// For an operator: lines "Label" and value, none for a stream that had no packets yet.
std::vector<std::pair<std::string, std::string>> DescribeStatistics(StreamStatistics const &statistics);
