// What a camera that wants to harm its hosts says on the control channel: answers forged in one of the ways of
// WireAnswerForgery, and registers that do not hold what they say.
#pragma once

#include "gvcpdatagram.h"
#include "wireregisters.h"

#include <cstdint>
#include <random>
#include <span>
#include <vector>

// Appends what goes out instead of the answer, which may be nothing.
void ForgeAnswer(WireAnswerForgery kind, GvcpDatagram answer, std::minstd_rand &random, std::vector<GvcpDatagram> &out);
// `bytes` were read at this address, and are what the host is to get.
void LieAbout(WireRegisterLie lie, std::uint32_t address, std::span<std::uint8_t> bytes, std::minstd_rand &random);
