#include "samplestatistics.h"

#include "histo.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

void CountValues(cv::Mat const &samples, int levels, std::int32_t *counts)
{
    int const channel = 0;
    float const range[] = {0.0f, static_cast<float>(levels)};
    float const *ranges = range;
    cv::Mat histogram;
    cv::calcHist(&samples, 1, &channel, cv::Mat(), histogram, 1, &levels, &ranges, true, false);
    cv::Mat whole(histogram.size(), CV_32SC1, counts);
    histogram.convertTo(whole, CV_32S, 1.0, 0.0);
    if (whole.ptr<std::int32_t>() != counts)
        std::copy_n(whole.ptr<std::int32_t>(), levels, counts);
}

void TakeMoments(cv::Mat const &samples, SimpleHisto *series)
{
    cv::Scalar mean, stdDev;
    cv::meanStdDev(samples, mean, stdDev);
    series->mean = mean[0];
    series->stdDev = stdDev[0];
}
