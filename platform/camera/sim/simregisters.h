// Where the registers of a simulated camera are; its XML files name the same addresses, which lie behind those that
// GigE Vision keeps for itself. Integers take 4 bytes where nothing else is said, in the byte order of the camera's
// transport.
#pragma once

#include <cstdint>

namespace SimRegister {

enum : std::uint32_t {
    Begin = 0x10000,
    Vendor = 0x10100,       // text of 64 bytes
    Model = 0x10140,        // text of 64 bytes
    Family = 0x10180,       // text of 64 bytes
    Version = 0x101C0,      // text of 64 bytes
    Info = 0x10200,         // text of 64 bytes
    Serial = 0x10240,       // text of 64 bytes
    UserID = 0x10280,       // text of 64 bytes
    FirmwareText = 0x102C0, // text of 64 bytes
    Width = 0x11000,
    Height = 0x11008,
    OffsetX = 0x11010,
    OffsetY = 0x11018,
    BinningHorizontal = 0x11020,
    BinningVertical = 0x11028,
    ReverseX = 0x11030,
    ReverseY = 0x11038,
    PixelFormat = 0x11040,
    TestPattern = 0x11048,
    SensorWidth = 0x11050,
    SensorHeight = 0x11058,
    AcquisitionMode = 0x11060,
    AcquisitionFrameCount = 0x11068,
    AcquisitionStart = 0x11070,
    AcquisitionStop = 0x11078,
    AcquisitionAbort = 0x11080,
    AcquisitionFrameRateEnable = 0x11088,
    AcquisitionFrameRate = 0x11090, // double
    ExposureTime = 0x11098,         // double
    PixelClock = 0x110A0,
    PixelClockInfo = 0x110A8,
    LineTime = 0x110B0,
    ResultingFrameRate = 0x110B8, // double
    SensorFrameRate = 0x110C0,    // double
    TriggerMode = 0x110C8,
    TriggerSource = 0x110D0,
    TriggerSoftware = 0x110D8,
    AcquisitionActive = 0x110E0,
    TLParamsLocked = 0x110E8,
    PayloadSize = 0x110F0,
    PacketSize = 0x110F8,
    BlackLevel = 0x11100,
    Gamma = 0x11108, // double
    GainSelector = 0x11110,
    GainRaw = 0x11120, // four of 8 bytes, in 0.1 dB
    BalanceRatioSelector = 0x11140,
    BalanceRatio = 0x11150, // double, three of 8 bytes
    LUTEnable = 0x11170,
    LUTIndex = 0x11178,
    TemperatureSelector = 0x11180,
    Temperature = 0x11188, // double, two of 8 bytes
    Uptime = 0x11198,
    TimestampLatch = 0x111A0,
    TimestampValue = 0x111A8, // 8 bytes
    TimestampReset = 0x111B0,
    TickFrequency = 0x111B8, // 8 bytes
    IndicatorMode = 0x111C0,
    LineSelector = 0x111C8,
    LineMode = 0x111D0,     // two of 8 bytes
    LineInverter = 0x111E0, // two of 8 bytes
    LineStatus = 0x111F0,   // two of 8 bytes
    TimerSelector = 0x11200,
    TimerDuration = 0x11208, // double, two of 8 bytes
    TimerDelay = 0x11218,    // double, two of 8 bytes
    UserSetSelector = 0x11228,
    UserSetLoad = 0x11230,
    EventSelector = 0x11238,
    EventNotification = 0x11240, // two of 8 bytes
    DeviceReset = 0x11250,
    FirmwareNumbers = 0x11260, // sixteen of 8 bytes
    IPAddress = 0x112E0,
    MACAddress = 0x112E8, // 8 bytes
    FamilyID = 0x11300,
    LinkSpeed = 0x11308, // double
    ScanType = 0x11310,
    SensorColour = 0x11318,
    BinningPlace = 0x11320,
    ExposureMode = 0x11328,
    LUTSelector = 0x11330,
    SimPacketLoss = 0x12000, // double
    SimResend = 0x12008,
    SimIncompleteEvery = 0x12010,
    SimMissingEvery = 0x12018,
    SimLinkLimit = 0x12020, // double
    SimClockStep = 0x12028,
    SimAccessDelay = 0x12030,
    SimSlowDelay = 0x12038,
    SimLoseCamera = 0x12040,
    SimFailFeature = 0x12080, // text of 64 bytes
    SimSlowFeature = 0x120C0, // text of 64 bytes
    LUT = 0x13000,            // 256 of 4 bytes
    End = 0x14000,
};

constexpr std::uint32_t TextSize = 64;
constexpr std::uint32_t LutEntries = 256;
// Bits 24 to 27 are the class of the sensor, 12 for one with a colour mosaic.
constexpr std::uint64_t SensorClass = 0x20006004;

} // namespace SimRegister
