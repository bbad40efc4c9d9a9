#include "bayerhelper2.h"

#include "histo.h"
#include "pixelmemory.h"
#include "samplestatistics.h"
#include "tovcamera.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

namespace {

constexpr std::uint64_t SensorRegister = 0x20006004;
// More than sensors have, and not so many that masks of what a camera claims hold the window or take all memory.
constexpr std::uint64_t MostMasked = 160 << 20; // pixels

void MakeMask(cv::Mat &mask, int rows, int columns)
{
    mask.create(rows, columns, CV_8UC1);
    mask.setTo(0);
}

} // namespace

std::uint32_t BayerHelper2::ReadSensorClass(TovCam::Device *device)
{
    if (!device)
        return 0;
    TovCam::ParamArray *const params = device->GetCameraParameters(nullptr);
    // Only cameras of the families have the register. Another maker's camera has something else at the address, or
    // nothing, and some stop answering for good when it is read.
    std::int32_t error = params ? 0 : -1;
    if (params)
        params->GetIntegerValue("FamilyID", &error);
    std::uint32_t value = 0;
    if (error == 0 && device->ReadRegister(SensorRegister, &value, sizeof value) == 0)
        return value >> 24 & 0xF;
    char const *const format = params ? params->GetEnumValueStr("PixelFormat", nullptr) : nullptr;
    return format && std::strncmp(format, "Bayer", 5) == 0 ? ColorClass : 0;
}

void BayerHelper2::SetUp(std::uint32_t frameWidth, std::uint32_t frameHeight, std::uint32_t depth,
                         std::uint32_t sensorClass, std::int64_t familyId, ComplexHisto *histo)
{
    bits = depth;
    x = 0;
    y = 0;
    width = frameWidth;
    height = frameHeight;
    colorSensor = sensorClass == ColorClass;
    if (colorSensor && (familyId == 1 || familyId == 2)) {
        bayerPattern = familyId == 1 ? 3 : 0;
        histo->bayerPattern = static_cast<std::int32_t>(bayerPattern);
    }
    BayerTap2 tap;
    tap.bits = bits;
    tap.width = width;
    tap.height = height;
    taps.assign(1, tap);
    tapCount = 1;
    PrepareMasks();
}

void BayerHelper2::PrepareMasks()
{
    // With swapped rows the masks of red and blue change places here, and their roles below: red stays in the even
    // rows, and only the order of the series differs.
    swapRows = bayerPattern == 2 || bayerPattern == 3;
    std::uint8_t const a = bayerPattern == 0 || bayerPattern == 3;
    std::uint8_t const b = !a;
    if (width > INT_MAX || height > INT_MAX || std::uint64_t{width} * height > MostMasked)
        return;
    try {
        auto const rows = static_cast<int>(height);
        auto const columns = static_cast<int>(width);
        for (cv::Mat *mask : {&MaskA, &MaskB, &MaskG})
            MakeMask(*mask, rows, columns);
        std::vector<std::uint8_t> rowA(width), rowB(width);
        for (std::uint32_t i = 0; i < width; ++i) {
            rowA[i] = i % 2 ? b : a;
            rowB[i] = i % 2 ? a : b;
        }
        // Pairs of lines: the last line of an odd height stays without a colour.
        for (int pair = 0; pair < rows / 2; ++pair) {
            int const even = 2 * pair;
            int const odd = even + 1;
            std::copy(rowA.begin(), rowA.end(), MaskA.ptr(swapRows ? odd : even));
            std::copy(rowB.begin(), rowB.end(), MaskB.ptr(swapRows ? even : odd));
            std::copy(rowA.begin(), rowA.end(), MaskG.ptr(swapRows ? even : odd));
            std::copy(rowB.begin(), rowB.end(), MaskG.ptr(swapRows ? odd : even));
        }
    } catch (cv::Exception const &) {
    }
}

void BayerHelper2::CreateBayerHistogramm(void *data, long lineStep, ComplexHisto *histo, std::uint64_t size)
{
    int const levels = HistoLevels(bits);
    std::size_t const pixelSize = bits == 8 ? 1 : 2;
    auto const step = static_cast<std::size_t>(lineStep);
    struct
    {
        QColor color;
        cv::Mat const &mask;
        double others; // share of the pixels that have another colour
    } const colours[] = {
        {QColor(255, 0, 0), swapRows ? MaskB : MaskA, 0.75},
        {QColor(0, 255, 0), MaskG, 0.5},
        {QColor(0, 0, 255), swapRows ? MaskA : MaskB, 0.75},
    };
    std::unique_ptr<SimpleHisto> series[3];
    for (int i = 0; i < 3; ++i) {
        series[i] = std::make_unique<SimpleHisto>();
        SimpleHisto &plot = *series[i];
        plot.bits = static_cast<std::int32_t>(bits);
        plot.color = colours[i].color;
        plot.values.assign(static_cast<std::size_t>(levels), 0);
        plot.positions.assign(static_cast<std::size_t>(levels), 0); // and not filled: the view draws them all at 0
        if (std::uint64_t{width} * height > MostMasked)
            continue;
        try {
            // The frame has the shape of the masks, whatever the image's own is.
            cv::Mat const image =
                WrapPixels({static_cast<std::uint8_t *>(data), size},
                           static_cast<std::int64_t>(y) * lineStep + static_cast<std::int64_t>(x * pixelSize), height,
                           width, bits == 8 ? CV_8UC1 : CV_16UC1, step);
            workImage.create(image.size(), image.type());
            workImage.setTo(0);
            image.copyTo(workImage, colours[i].mask);

            CountValues(workImage, levels, plot.values.data());
            TakeMoments(workImage, &plot); // of the whole frame: the zeros of the other colours pull the mean down
            plot.values[0] = static_cast<std::int32_t>(plot.values[0] - colours[i].others * width * height);
        } catch (cv::Exception const &) {
            // The series stays in the result, without counts.
        }
    }
    if (!swapRows)
        std::swap(series[0], series[2]);
    for (auto &plot : series)
        histo->plots.push_back(plot.release());
}
