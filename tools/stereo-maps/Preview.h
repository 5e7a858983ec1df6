#pragma once

#include <opencv2/core.hpp>

namespace StereoMaps {

/// Samples `source` (8-bit grey) through a pair of maps of the library's
/// convention: bilinear, and black wherever an entry is -1.0 (no source) or
/// falls outside the image.
cv::Mat remapWithInvalid(const cv::Mat& source, const cv::Mat& mapX, const cv::Mat& mapY);

/// Places images side by side on one row (heights may differ; the row takes
/// the largest) and converts the result to 3-channel colour.
cv::Mat sideBySide(const cv::Mat& left, const cv::Mat& right);

/// Stacks two rows vertically, left-aligned, on a black background.
cv::Mat stack(const cv::Mat& top, const cv::Mat& bottom);

/// Draws horizontal lines every `spacing` rows across the band of rows
/// [top, top + height) so a viewer can check that rows line up.
void drawRowLines(cv::Mat& image, int top, int height, int spacing);

}  // namespace StereoMaps
