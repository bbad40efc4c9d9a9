#include "imgprocessor.h"

#include "bayerhelper2.h"
#include "displayview.h"
#include "pixelmemory.h"
#include "samplestatistics.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <numeric>

namespace {

// The display thread stores these with every frame.
std::uint32_t DepthOf(_TovImage const *image)
{
    return TovLoadBound(image->bitDepth);
}

std::size_t PixelSize(long bits)
{
    return bits == 8 ? 1 : 2;
}

int PixelType(long bits)
{
    return bits == 8 ? CV_8UC1 : CV_16UC1;
}

std::unique_ptr<SimpleHisto> MakeSeries(ComplexHisto const *histo)
{
    auto series = std::make_unique<SimpleHisto>();
    series->bits = histo->bits;
    series->color = Qt::yellow;
    auto const levels = static_cast<std::size_t>(HistoLevels(histo->bits));
    series->values.reserve(levels);
    series->positions.reserve(levels);
    return series;
}

void Append(ComplexHisto *histo, std::unique_ptr<SimpleHisto> series)
{
    histo->plots.push_back(series.release());
    histo->currentIndex = static_cast<std::int32_t>(histo->plots.size()) - 1;
}

void AppendPoint(SimpleHisto *series, int position, std::int32_t value)
{
    series->positions.push_back(position);
    series->values.push_back(value);
}

// Where nothing of the image lies, so that it reads as zeros.
std::int64_t Outside(PixelMemory const &memory)
{
    return static_cast<std::int64_t>(memory.size);
}

// No error of the analysis reaches the user.
template<class Work>
void Guarded(Work &&work)
{
    try {
        work();
    } catch (cv::Exception const &) {
    }
}

} // namespace

unsigned char ImgProcessor::s_CompID = 0;

ImgProcessor::ImgProcessor(QObject *parent, DisplayView *display)
    : QObject(parent),
      TovComponentImp(++s_CompID),
      m_display(display)
{
    std::memset(&m_thresholds, 0, sizeof m_thresholds); // including its padding: it is stored as a block
    std::iota(m_narrowPositions.begin(), m_narrowPositions.end(), 0);
    std::iota(m_widePositions.begin(), m_widePositions.end(), 0);

    // Without onChange: no panel hears of it.
    AddParam(TovArrayParam("HistoThresholds", &m_thresholds, sizeof m_thresholds, &m_thresholds));
}

ImgProcessor::~ImgProcessor() = default;

std::int32_t ImgProcessor::ConvertImage(_TovImage const *source, _TovImage *destination)
{
    return m_display->ConvertImage(source, destination);
}

int ImgProcessor::GetHistoData(ComplexHisto *histo, BayerHelper2 *bayer)
{
    _TovImage *image = nullptr;
    if (!m_display->GetDisplayedImageRaw(&image) || !image)
        return 0;
    return Analyse(image, histo, bayer);
}

int ImgProcessor::GetKeptHistoData(ComplexHisto *histo, BayerHelper2 *bayer)
{
    _TovImage *image = nullptr;
    TovDisplay const *const renderer = m_display->GetRenderer();
    if (!renderer || m_display->GetDisplayedImageRaw(&image))
        return 0;
    image = const_cast<_TovImage *>(renderer->GetKeptVideo()); // which is only read
    return image ? Analyse(image, histo, bayer) : 0;
}

_TovImage const &ImgProcessor::GetSource() const
{
    return m_source;
}

int ImgProcessor::Analyse(_TovImage *image, ComplexHisto *histo, BayerHelper2 *bayer)
{
    m_source = {};
    m_source.pixelType = image->pixelType;
    m_source.bitDepth = DepthOf(image);
    m_source.formatClass = TovLoadBound(image->formatClass);
    m_source.width = image->width;
    m_source.height = image->height;
    histo->ClearPlots();
    // What a mode does not set keeps its value from earlier calls: in RGB mode the depth is that of the last RAW
    // histogram.
    histo->currentIndex = -1;
    histo->width = m_lastWidth;
    histo->height = m_lastHeight;
    histo->bits = m_lastBits;
    switch (histo->mode) {
    case HistoRow:
        GetRowHisto(image, histo);
        break;
    case HistoColumn:
        GetColHisto(image, histo);
        break;
    case HistoRGB:
        GetRGBHisto(image, histo, bayer);
        break;
    case HistoYUV:
        GetYUVHisto(image, histo);
        break;
    default:
        GetRAWHisto(image, histo);
        break;
    }
    UpdateFloatImage(image);
    m_lastWidth = histo->width;
    m_lastHeight = histo->height;
    m_lastBits = histo->bits;
    return 1;
}

void ImgProcessor::UpdateFloatImage(_TovImage *image)
{
    if (m_floatImage && (static_cast<std::uint32_t>(m_floatWidth) != image->width ||
                         static_cast<std::uint32_t>(m_floatHeight) != image->height))
        m_floatImage.reset();
    if (!m_floatImage)
        m_floatImage.reset(CreateFloatimage(image, m_floatStride, m_floatWidth, m_floatHeight));
}

// ---- Histograms -----------------------------------------------------------------------------------------------------

void ImgProcessor::GetRAWHisto(_TovImage *image, ComplexHisto *histo)
{
    std::unique_ptr<SimpleHisto> series = MakeSeries(histo);
    std::uint32_t const bits = DepthOf(image);
    histo->bits = static_cast<std::int32_t>(bits);
    series->bits = histo->bits;
    std::uint32_t const formatClass = TovLoadBound(image->formatClass);
    bool const deep = formatClass == TOV_CLASS_MONO_UNPACKED || formatClass == TOV_CLASS_BAYER_UNPACKED;
    if (bits != 8 && !((bits == 10 || bits == 12) && deep))
        return;
    int const levels = HistoLevels(bits);
    std::int32_t *const buffer = bits == 8 ? m_narrowCounts.data() : m_wideCounts.data();
    std::int32_t const *const positions = bits == 8 ? m_narrowPositions.data() : m_widePositions.data();
    Guarded([&] {
        cv::Mat const pixels =
            WrapPixels(GetPixelMemory(*image), 0, image->height, image->width, PixelType(bits), GetLineStep(*image));
        CountValues(pixels, levels, buffer);
        TakeMoments(pixels, series.get());
        series->positions.assign(positions, positions + levels);
        series->values.assign(buffer, buffer + levels);
        Append(histo, std::move(series));
    });
}

void ImgProcessor::GetRGBHisto(_TovImage *image, ComplexHisto *histo, BayerHelper2 *bayer)
{
    if (bayer)
        bayer->CreateBayerHistogramm(image->imageData, static_cast<long>(GetLineStep(*image)), histo,
                                     GetPixelMemory(*image).size);
}

void ImgProcessor::GetYUVHisto(_TovImage *, ComplexHisto *)
{
}

// ---- Profiles -------------------------------------------------------------------------------------------------------

void ImgProcessor::GetRowHisto(_TovImage *image, ComplexHisto *histo)
{
    std::unique_ptr<SimpleHisto> series = MakeSeries(histo);
    long const bits = DepthOf(image);
    if (histo->integrated)
        CalcIntegratedRow(bits, image, series.get());
    else
        CalcCurrentRow(bits, image, series.get(), histo->row);
    Append(histo, std::move(series));
    histo->width = static_cast<std::int32_t>(image->width);
    histo->height = static_cast<std::int32_t>(image->height);
}

void ImgProcessor::GetColHisto(_TovImage *image, ComplexHisto *histo)
{
    std::unique_ptr<SimpleHisto> series = MakeSeries(histo);
    long const bits = DepthOf(image);
    if (histo->integrated)
        CalcIntegratedCol(bits, image, series.get());
    else
        CalcCurrentCol(bits, image, series.get(), histo->column);
    Append(histo, std::move(series));
    histo->width = static_cast<std::int32_t>(image->width);
    histo->height = static_cast<std::int32_t>(image->height);
}

void ImgProcessor::CalcCurrentRow(long bits, _TovImage *image, SimpleHisto *series, int row)
{
    series->bits = static_cast<std::int32_t>(bits);
    Guarded([&] {
        PixelMemory const memory = GetPixelMemory(*image);
        bool const inside = row >= 0 && static_cast<std::uint32_t>(row) < image->height;
        std::int64_t const offset = inside ? static_cast<std::int64_t>(GetLineStep(*image)) * row : Outside(memory);
        cv::Mat line = WrapPixels(memory, offset, 1, image->width, PixelType(bits));
        std::size_t const size = PixelSize(bits);
        for (int x = 0; x < line.cols; ++x)
            AppendPoint(series, x, LoadPixel(line.data + x * size, size));
        TakeMoments(line, series);
    });
}

void ImgProcessor::CalcCurrentCol(long bits, _TovImage *image, SimpleHisto *series, int column)
{
    series->bits = static_cast<std::int32_t>(bits);
    Guarded([&] {
        PixelMemory const memory = GetPixelMemory(*image);
        std::size_t const size = PixelSize(bits);
        bool const inside = column >= 0 && static_cast<std::uint32_t>(column) < image->width;
        std::int64_t const offset = inside ? static_cast<std::int64_t>(size) * column : Outside(memory);
        cv::Mat line = WrapPixels(memory, offset, image->height, 1, PixelType(bits), GetLineStep(*image));
        std::size_t const step = line.step / size * size;
        for (int y = 0; y < line.rows; ++y)
            AppendPoint(series, y, LoadPixel(line.data + y * step, size));
        TakeMoments(line, series);
    });
}

// The moments of each column as cv::meanStdDev gives them, to the last bit, but gathered line by line: a column at a
// time walks the whole memory for every pixel of the width.
void ImgProcessor::CalcIntegratedRow(long bits, _TovImage *image, SimpleHisto *series)
{
    series->bits = static_cast<std::int32_t>(bits);
    Guarded([&] {
        PixelMemory const memory = GetPixelMemory(*image);
        std::size_t const step = GetLineStep(*image);
        auto const width = static_cast<int>(image->width);
        auto const height = static_cast<int>(image->height);
        if (width > 0 && WrapPixels(memory, 0, height, 1, PixelType(bits), step).empty())
            CV_Error(cv::Error::StsBadSize, "columns without pixels have no mean");
        // Whole numbers, which a double holds exactly.
        cv::Mat sums(1, std::max(width, 0), CV_64FC1, cv::Scalar(0));
        cv::Mat squares = sums.clone();
        for (int y = 0; y < height && width > 0; ++y) {
            cv::Mat const line = WrapPixels(memory, static_cast<std::int64_t>(step) * y, 1, width, PixelType(bits));
            cv::accumulate(line, sums);
            cv::accumulateSquare(line, squares);
        }
        double const scale = 1.0 / height;
        double meanSum = 0.0;
        double stdDevSum = 0.0;
        for (int x = 0; x < width; ++x) {
            double const mean = sums.at<double>(x) * scale;
            AppendPoint(series, x, static_cast<std::int32_t>(mean));
            meanSum += mean;
            stdDevSum += std::sqrt(std::max(squares.at<double>(x) * scale - mean * mean, 0.0));
        }
        series->mean = meanSum / image->width;
        series->stdDev = stdDevSum / image->width;
    });
}

void ImgProcessor::CalcIntegratedCol(long bits, _TovImage *image, SimpleHisto *series)
{
    series->bits = static_cast<std::int32_t>(bits);
    Guarded([&] {
        PixelMemory const memory = GetPixelMemory(*image);
        auto const height = static_cast<int>(image->height);
        double meanSum = 0.0;
        double stdDevSum = 0.0;
        for (int y = 0; y < height; ++y) {
            cv::Scalar mean, stdDev;
            cv::meanStdDev(WrapPixels(memory, static_cast<std::int64_t>(GetLineStep(*image)) * y, 1, image->width,
                                      PixelType(bits)),
                           mean, stdDev);
            AppendPoint(series, y, static_cast<std::int32_t>(mean[0]));
            meanSum += mean[0];
            stdDevSum += stdDev[0];
        }
        // By the width as well, although there is one mean per line: for a picture twice as wide as high, the figures
        // are half of the lines'.
        series->mean = meanSum / image->width;
        series->stdDev = stdDevSum / image->width;
    });
}

// ---- Noise ----------------------------------------------------------------------------------------------------------

float *ImgProcessor::CreateFloatimage(_TovImage *image, int &stride, int &width, int &height)
{
    width = static_cast<int>(image->width);
    height = static_cast<int>(image->height);
    stride = static_cast<int>(image->width * sizeof(float));
    if (width < 0 || height < 0 || static_cast<std::int64_t>(width) * height > INT_MAX)
        return nullptr;
    std::unique_ptr<float[]> floats;
    bool made = false;
    Guarded([&] {
        // The source first, so that an image without pixels costs no memory.
        cv::Mat const pixels =
            WrapPixels(GetPixelMemory(*image), 0, height, width, PixelType(DepthOf(image)), GetLineStep(*image));
        floats.reset(new (std::nothrow) float[static_cast<std::size_t>(width) * height]);
        cv::Mat target(height, width, CV_32FC1, floats.get());
        pixels.convertTo(target, CV_32F, 1.0, 0.0);
        made = true;
    });
    return made ? floats.release() : nullptr;
}

void ImgProcessor::CalcSNR(_TovImage *image, ComplexHisto *histo)
{
    if (!m_floatImage || !image)
        return;
    int stride = 0;
    int width = 0;
    int height = 0;
    std::unique_ptr<float[]> current(CreateFloatimage(image, stride, width, height));
    Guarded([&] {
        std::size_t const kept = static_cast<std::size_t>(m_floatWidth) * m_floatHeight;
        std::size_t const wanted = static_cast<std::size_t>(width) * height;
        cv::Mat a(height, width, CV_32FC1, m_floatImage.get());
        if (kept < wanted) { // of a smaller image: what is missing is zero
            a = cv::Mat(height, width, CV_32FC1, cv::Scalar(0));
            std::copy_n(m_floatImage.get(), kept, a.ptr<float>());
        }
        cv::Mat b(height, width, CV_32FC1, current.get());
        cv::Scalar const meanA = cv::mean(a);
        cv::Scalar const meanB = cv::mean(b);
        cv::subtract(a, meanA, a, cv::noArray(), CV_32F);
        cv::subtract(b, meanB, b, cv::noArray(), CV_32F);
        cv::subtract(a, b, a);
        cv::multiply(a, a, a, 1.0);
        double const sum = cv::sum(a)[0];
        std::uint32_t const count = 2u * image->width * image->height;
        auto const sigma = static_cast<float>(std::sqrt(sum / count));
        histo->snr = 20.0 * std::log10(std::pow(2.0, DepthOf(image)) / sigma);
        m_floatImage = std::move(current);
        m_floatStride = stride;
        m_floatWidth = width;
        m_floatHeight = height;
    });
}
