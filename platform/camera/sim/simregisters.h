// Where the registers of a simulated camera are; its XML files name the same addresses. Integers take 4 bytes where
// nothing else is said, in the byte order of the camera's transport.
#pragma once

#include <cstdint>

namespace SimRegister {

enum : std::uint32_t {
    Vendor = 0x0100,       // text of 64 bytes
    Model = 0x0140,        // text of 64 bytes
    Family = 0x0180,       // text of 64 bytes
    Version = 0x01C0,      // text of 64 bytes
    Info = 0x0200,         // text of 64 bytes
    Serial = 0x0240,       // text of 64 bytes
    UserID = 0x0280,       // text of 64 bytes
    FirmwareText = 0x02C0, // text of 64 bytes
    Width = 0x1000,
    Height = 0x1008,
    OffsetX = 0x1010,
    OffsetY = 0x1018,
    BinningHorizontal = 0x1020,
    BinningVertical = 0x1028,
    ReverseX = 0x1030,
    ReverseY = 0x1038,
    PixelFormat = 0x1040,
    TestPattern = 0x1048,
    SensorWidth = 0x1050,
    SensorHeight = 0x1058,
    AcquisitionMode = 0x1060,
    AcquisitionFrameCount = 0x1068,
    AcquisitionStart = 0x1070,
    AcquisitionStop = 0x1078,
    AcquisitionAbort = 0x1080,
    AcquisitionFrameRateEnable = 0x1088,
    AcquisitionFrameRate = 0x1090, // double
    ExposureTime = 0x1098,         // double
    PixelClock = 0x10A0,
    PixelClockInfo = 0x10A8,
    LineTime = 0x10B0,
    ResultingFrameRate = 0x10B8, // double
    SensorFrameRate = 0x10C0,    // double
    TriggerMode = 0x10C8,
    TriggerSource = 0x10D0,
    TriggerSoftware = 0x10D8,
    AcquisitionActive = 0x10E0,
    TLParamsLocked = 0x10E8,
    PayloadSize = 0x10F0,
    PacketSize = 0x10F8,
    BlackLevel = 0x1100,
    Gamma = 0x1108, // double
    GainSelector = 0x1110,
    GainRaw = 0x1120, // four of 8 bytes, in 0.1 dB
    BalanceRatioSelector = 0x1140,
    BalanceRatio = 0x1150, // double, three of 8 bytes
    LUTEnable = 0x1170,
    LUTIndex = 0x1178,
    TemperatureSelector = 0x1180,
    Temperature = 0x1188, // double, two of 8 bytes
    Uptime = 0x1198,
    TimestampLatch = 0x11A0,
    TimestampValue = 0x11A8, // 8 bytes
    TimestampReset = 0x11B0,
    TickFrequency = 0x11B8, // 8 bytes
    IndicatorMode = 0x11C0,
    LineSelector = 0x11C8,
    LineMode = 0x11D0,     // two of 8 bytes
    LineInverter = 0x11E0, // two of 8 bytes
    LineStatus = 0x11F0,   // two of 8 bytes
    TimerSelector = 0x1200,
    TimerDuration = 0x1208, // double, two of 8 bytes
    TimerDelay = 0x1218,    // double, two of 8 bytes
    UserSetSelector = 0x1228,
    UserSetLoad = 0x1230,
    EventSelector = 0x1238,
    EventNotification = 0x1240, // two of 8 bytes
    DeviceReset = 0x1250,
    FirmwareNumbers = 0x1260, // sixteen of 8 bytes
    IPAddress = 0x12E0,
    MACAddress = 0x12E8, // 8 bytes
    FamilyID = 0x1300,
    LinkSpeed = 0x1308, // double
    ScanType = 0x1310,
    SensorColour = 0x1318,
    BinningPlace = 0x1320,
    ExposureMode = 0x1328,
    LUTSelector = 0x1330,
    SimPacketLoss = 0x2000, // double
    SimResend = 0x2008,
    SimIncompleteEvery = 0x2010,
    SimMissingEvery = 0x2018,
    SimLinkLimit = 0x2020, // double
    SimClockStep = 0x2028,
    SimAccessDelay = 0x2030,
    SimSlowDelay = 0x2038,
    SimLoseCamera = 0x2040,
    SimFailFeature = 0x2080, // text of 64 bytes
    SimSlowFeature = 0x20C0, // text of 64 bytes
    LUT = 0x3000,            // 256 of 4 bytes
    End = 0x4000,
};

constexpr std::uint32_t TextSize = 64;
constexpr std::uint32_t LutEntries = 256;
// Bits 24 to 27 are the class of the sensor, 12 for one with a colour mosaic.
constexpr std::uint64_t SensorClass = 0x20006004;

} // namespace SimRegister
