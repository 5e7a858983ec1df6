#include "Preview.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace StereoMaps {

cv::Mat remapWithInvalid(const cv::Mat& source, const cv::Mat& mapX, const cv::Mat& mapY) {
  cv::Mat out;
  cv::remap(source, out, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0));
  for (int y = 0; y < out.rows; ++y) {
    const float* mx = mapX.ptr<float>(y);
    const float* my = mapY.ptr<float>(y);
    unsigned char* row = out.ptr<unsigned char>(y);
    for (int x = 0; x < out.cols; ++x)
      if (mx[x] == -1.0f || my[x] == -1.0f) row[x] = 0;
  }
  return out;
}

namespace {

cv::Mat toColour(const cv::Mat& image) {
  if (image.channels() == 3) return image;
  cv::Mat colour;
  cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
  return colour;
}

}  // namespace

cv::Mat sideBySide(const cv::Mat& left, const cv::Mat& right) {
  const cv::Mat a = toColour(left), b = toColour(right);
  cv::Mat out(std::max(a.rows, b.rows), a.cols + b.cols, CV_8UC3, cv::Scalar(0, 0, 0));
  a.copyTo(out(cv::Rect(0, 0, a.cols, a.rows)));
  b.copyTo(out(cv::Rect(a.cols, 0, b.cols, b.rows)));
  return out;
}

cv::Mat stack(const cv::Mat& top, const cv::Mat& bottom) {
  const cv::Mat a = toColour(top), b = toColour(bottom);
  cv::Mat out(a.rows + b.rows, std::max(a.cols, b.cols), CV_8UC3, cv::Scalar(0, 0, 0));
  a.copyTo(out(cv::Rect(0, 0, a.cols, a.rows)));
  b.copyTo(out(cv::Rect(0, a.rows, b.cols, b.rows)));
  return out;
}

void drawRowLines(cv::Mat& image, int top, int height, int spacing) {
  for (int y = top; y < top + height && y < image.rows; y += spacing)
    cv::line(image, cv::Point(0, y), cv::Point(image.cols - 1, y), cv::Scalar(0, 200, 0), 1);
}

}  // namespace StereoMaps
