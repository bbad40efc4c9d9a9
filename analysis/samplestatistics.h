// What both kinds of histogram ask of OpenCV. Everything throws cv::Exception; GUI thread.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

struct SimpleHisto;

// How often each of the values from 0 to `levels` - 1 occurs; `counts` has that many entries.
void CountValues(cv::Mat const &samples, int levels, std::int32_t *counts);
// Mean and standard deviation of the samples, which become the series'.
void TakeMoments(cv::Mat const &samples, SimpleHisto *series);
