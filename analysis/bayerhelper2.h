// Colour histograms of a mosaic: masks that pick the pixels of one colour, made once, and a histogram of what each
// leaves. The pattern of the masks follows the camera's family.
//
// Threads: GUI thread.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

struct ComplexHisto;

namespace TovCam {
class Device;
}

// A rectangle of the sensor with its masks. Copies share the images' data.
class BayerTap2
{
public:
    BayerTap2() = default;
    BayerTap2(BayerTap2 const &) = default;
    BayerTap2 &operator=(BayerTap2 const &) = default;
    virtual ~BayerTap2() = default;

    std::uint32_t bits = 0; // of the camera's pixel format
    std::uint32_t x = 0;    // pixels
    std::uint32_t y = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t colorSensor = 0;  // 1 for a sensor of the colour class
    std::uint32_t bayerPattern = 0; // 0 to 3
    std::uint8_t swapRows = 0;
    cv::Mat MaskA; // height by width, CV_8UC1, 1 on the pixels of the colour
    cv::Mat MaskB;
    cv::Mat MaskG;
    cv::Mat workImage; // the pixels of one colour, zeros elsewhere
};

// The helper is the one tap there is, of the whole frame; the list of taps is filled and not read.
class BayerHelper2 : public BayerTap2
{
public:
    static constexpr std::uint32_t ColorClass = 12;

    // The class of the camera's sensor, from its register. A camera without a family, or without that register, is of
    // the colour class when its pixel format is a mosaic's, and of class 0 otherwise.
    static std::uint32_t ReadSensorClass(TovCam::Device *device);

    // Sets the fields, the pattern (in `histo` too) and the masks for frames of that size. `bits` is the pixel format's
    // depth; only 8 means pixels of one byte.
    void SetUp(std::uint32_t frameWidth, std::uint32_t frameHeight, std::uint32_t depth, std::uint32_t sensorClass,
               std::int64_t familyId, ComplexHisto *histo);
    // The masks of `bayerPattern`. On failure, and for frames of more pixels than any sensor has, they stay as they
    // are.
    void PrepareMasks();

    // Appends three series to `histo`. `data` is the first pixel of a frame, of the size and depth of SetUp whatever
    // the image is; `size` the bytes there are, after which zeros are read.
    void CreateBayerHistogramm(void *data, long lineStep, ComplexHisto *histo, std::uint64_t size = INT64_MAX);

    std::uint32_t tapCount = 0;
    std::vector<BayerTap2> taps;
};
