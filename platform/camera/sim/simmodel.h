// The simulated models, and what their parts share about pictures, pace and faults.
#pragma once

#include "simregisters.h"

#include "tovimage.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

extern std::string_view const SimXml_vg2048m;
extern std::string_view const SimXml_vu1920c;
extern std::string_view const SimXml_vg1280c;

// The fixed properties of a model.
struct SimModel
{
    char const *name;
    char const *family;
    char const *serial;
    char const *userID;
    std::string_view xml;
    std::uint32_t kind; // TovCam::InterfaceKind; also decides byte order and packets
    std::uint32_t sensorWidth, sensorHeight;
    bool colour;
    std::uint32_t pixelFormat; // the standard's code, at power-up
    std::uint32_t familyID;    // 1: LineTime, 2: PixelClock, 0: a fixed clock and no such node
    std::uint32_t sensorClass; // 0: no such register
    std::uint64_t tickFrequency;
    std::uint64_t firstFrameID; // of an acquisition
    double linkSpeed;           // MB/s
};

std::span<SimModel const> GetSimModels();

// The description that the model has on the network, where more can be set and more can go wrong; "" for a model that
// is not served there. Part of tov_wirecamera.
std::string_view SimWireXml(SimModel const &model);

// Size and layout of a frame. Fixed while frames run.
struct SimFormat
{
    std::uint32_t pixelType = TV_PIXEL_MONO8;
    std::uint32_t width = 0, height = 0, offsetX = 0, offsetY = 0;
    std::uint32_t binningX = 1, binningY = 1;
    bool reverseX = false, reverseY = false;

    bool operator==(SimFormat const &) const = default;
    std::uint64_t LineBytes() const
    {
        return TovLineBytes(pixelType, width);
    }
    std::uint64_t Payload() const
    {
        return LineBytes() * height;
    }
};

enum class SimPattern : std::uint32_t { Off, HorizontalRamp, VerticalRamp, MovingRamp, ColourBars };

// What becomes of the light. May change from frame to frame.
struct SimLook
{
    double exposure = 10000.0;                 // us
    double gain = 1.0;                         // factor
    double black = 0.0;                        // share of the full scale
    double gamma = 1.0;                        // exponent
    std::array<double, 3> balance{1., 1., 1.}; // factors of red, green and blue
    bool useTable = false;
    std::array<std::uint16_t, SimRegister::LutEntries> table{}; // 12 bits
    SimPattern pattern = SimPattern::Off;

    bool operator==(SimLook const &) const = default;
};

struct SimFaults
{
    double packetLoss = 0.0; // probability of each packet
    bool resend = false;
    std::uint32_t incompleteEvery = 0, missingEvery = 0; // 0: never
    double linkLimit = 0.0;                              // bytes a second, 0: none
};

// What the frames follow. May change from frame to frame.
struct SimSettings
{
    SimLook look;
    SimFaults faults;
    std::int64_t period = 0; // ns
    bool triggered = false;  // frames wait for Trigger()
    std::uint32_t packetSize = 1500;
    bool exposureEndEvent = false, frameStartEvent = false;
    std::uint32_t lines = 0; // bit n: line n is high while frames run
};
