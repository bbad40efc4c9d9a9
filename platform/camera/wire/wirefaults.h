// What goes wrong on the way between a camera on the network and its host. Shares are probabilities from 0 to 1.
#pragma once

#include "wireregisters.h"

#include <cstdint>
#include <string>

struct StreamFaults
{
    double loss = 0.0;
    std::uint32_t burst = 1;
    std::string lostPackets; // as WireRegister::LostPackets
    std::uint32_t lostEvery = 1;
    double reorder = 0.0;
    std::uint32_t reorderDistance = 1;
    double duplicate = 0.0, truncate = 0.0, wrongLength = 0.0, wrongPacketId = 0.0, wrongBlockId = 0.0;
    std::uint32_t delay = 0; // ms
    bool ignoreResend = false;
    bool silent = false;
    // The simulation's own, which know no resending: the packet in the middle of every n-th frame never comes, and what
    // is above the rate of the link neither.
    std::uint32_t incompleteEvery = 0; // 0: never
    double linkLimit = 0.0;            // bytes a second, 0: none
    WireStreamForgery forgery = WireStreamForgery::Off;
};

struct ControlFaults
{
    double loss = 0.0, wrongId = 0.0, wrongLength = 0.0; // of the answers
    std::uint32_t delay = 0;                             // ms
    bool silent = false;
    WireAnswerForgery forgery = WireAnswerForgery::Off;
    WireRegisterLie lie = WireRegisterLie::Off;
};
