// What the analysis is asked for and what it answers: data series with the dimensions that go with them, and the
// markers that the user places in them. Plain records of the GUI thread.
#pragma once

#include <QColor>

#include <cstdint>
#include <vector>

// One series: values[i] belongs to positions[i].
struct SimpleHisto
{
    std::int32_t bits = 8; // depth of the series
    QColor color;
    std::vector<std::int32_t> values;    // counts, or for a profile the signal in ADU
    std::vector<std::int32_t> positions; // signal in ADU, or for a profile the pixel's index
    double mean = 111.0;                 // ADU; both until they are computed
    double stdDev = 22.0;
};

enum HistoMode : std::int32_t { HistoRaw = 0, HistoRow = 1, HistoColumn = 2, HistoRGB = 3, HistoYUV = 4 };

// Request and answer in one.
struct ComplexHisto
{
    ComplexHisto() = default;
    ~ComplexHisto()
    {
        ClearPlots();
    }
    ComplexHisto(ComplexHisto const &) = delete;
    ComplexHisto &operator=(ComplexHisto const &) = delete;

    void ClearPlots()
    {
        for (SimpleHisto *plot : plots)
            delete plot;
        plots.clear();
    }

    // Asked for.
    std::int32_t row = 0;    // of a row profile that is not integrated
    std::int32_t column = 0; // of a column profile that is not integrated
    std::int32_t mode = HistoRaw;
    bool integrated = false; // the profile is the mean of all lines
    // Answered.
    std::int32_t currentIndex = -1; // of the series appended last
    std::int32_t width = 640;
    std::int32_t height = 480;
    std::int32_t bits = 8;
    std::vector<SimpleHisto *> plots; // owned
    double snr = 0.0;                 // dB
    std::int32_t bayerPattern = 0;
};

// The markers as signal values, and the pixels around them. Copied and stored as one block of bytes.
struct HistoThresholds
{
    std::uint16_t lowThreshold;
    std::uint16_t highThreshold;
    std::uint16_t markThreshold;
    std::int32_t belowLow;       // at or below lowThreshold
    std::int32_t betweenLowHigh; // above lowThreshold and below highThreshold
    std::int32_t aboveHigh;      // at or above highThreshold
    std::int32_t belowMark;      // at or below markThreshold
    std::int32_t aboveMark;      // above markThreshold
};
static_assert(sizeof(HistoThresholds) == 28, "stored settings hold it as a block");

// The number of signal values of a depth: 2 to its power. 0 for a depth that no sample has.
inline std::int32_t HistoLevels(std::int64_t bits)
{
    return bits >= 0 && bits <= 16 ? 1 << bits : 0;
}
