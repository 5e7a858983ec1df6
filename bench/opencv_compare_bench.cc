// The two stereo map entry points against OpenCV in the same process, on the
// same rigs, single-threaded: CreateRectifyMap against stereoRectify plus two
// initUndistortRectifyMap calls, CreateUndistortMap against two
// initUndistortRectifyMap calls with an identity rotation (fisheye::
// variants for the equidistant lens), CV_32FC1 maps throughout.
//
// Each benchmark iteration times one call of ours and one of OpenCV's; the
// counters report the best time of each and "ratio" = ours / OpenCV's (below
// 1 means faster than OpenCV). The rig's right camera has a larger image
// in "BigSecondCamera", where only the left camera's size may be walked.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <vector>

#include "BenchSupport.h"
#include "RecordRig.h"

namespace {

using namespace BenchSupport;
using Clock = std::chrono::steady_clock;

/// 0: radial-tangential (RADIAL_3 with p1, p2), 1: equidistant (FISHEYE_4).
DeviceCalibrationMRV rig(int kind, int width, int height) {
  DeviceCalibrationMRV device = makeDevice(kLenses[kind == 0 ? 2 : 5], width, height);
  if (kind == 0)
    for (CameraCalibrationMRV& cam : device.cameras) {
      cam.p[0] = 4e-4;
      cam.p[1] = -3e-4;
    }
  return device;
}

cv::Mat intrinsics(const CameraCalibrationMRV& cam) {
  return (cv::Mat_<double>(3, 3) << cam.fx, 0, cam.cx, 0, cam.fy, cam.cy, 0, 0, 1);
}

/// OpenCV's coefficient vector: (k1, k2, p1, p2, k3) or the four fisheye k.
cv::Mat coefficients(const CameraCalibrationMRV& cam, bool fisheye) {
  if (fisheye) return (cv::Mat_<double>(4, 1) << cam.k[0], cam.k[1], cam.k[2], cam.k[3]);
  return (cv::Mat_<double>(5, 1) << cam.k[0], cam.k[1], cam.p[0], cam.p[1], cam.k[2]);
}

/// The right camera's pose relative to the left, from the two pose records.
void relativePose(const DeviceCalibrationMRV& device, cv::Mat& R, cv::Mat& T) {
  const auto R0 = RecordRig::rotationOf(device.cameras[0].pose.orientation);
  const auto R1 = RecordRig::rotationOf(device.cameras[1].pose.orientation);
  const auto Rrel = R1 * R0.transpose();
  const auto t0 = RecordRig::positionOf(device.cameras[0].pose);
  const auto t1 = RecordRig::positionOf(device.cameras[1].pose);
  const auto trel = t1 - Rrel * t0;
  R = cv::Mat(3, 3, CV_64F);
  T = cv::Mat(3, 1, CV_64F);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) R.at<double>(r, c) = Rrel(r, c);
    T.at<double>(r) = trel(r);
  }
}

struct OpenCVRig {
  cv::Mat K[2], D[2], R, T;
  cv::Size size;
  bool fisheye;
  OpenCVRig(const DeviceCalibrationMRV& device, bool isFisheye)
      : size(device.cameras[0].width, device.cameras[0].height), fisheye(isFisheye) {
    for (int i = 0; i < 2; ++i) {
      K[i] = intrinsics(device.cameras[i]);
      D[i] = coefficients(device.cameras[i], fisheye);
    }
    relativePose(device, R, T);
  }

  void rectify(cv::Mat maps[4]) const {
    cv::Mat R1, R2, P1, P2, Q;
    if (fisheye) {
      cv::fisheye::stereoRectify(K[0], D[0], K[1], D[1], size, R, T, R1, R2, P1, P2, Q, cv::CALIB_ZERO_DISPARITY);
      cv::fisheye::initUndistortRectifyMap(K[0], D[0], R1, P1, size, CV_32FC1, maps[0], maps[1]);
      cv::fisheye::initUndistortRectifyMap(K[1], D[1], R2, P2, size, CV_32FC1, maps[2], maps[3]);
    } else {
      cv::stereoRectify(K[0], D[0], K[1], D[1], size, R, T, R1, R2, P1, P2, Q);
      cv::initUndistortRectifyMap(K[0], D[0], R1, P1, size, CV_32FC1, maps[0], maps[1]);
      cv::initUndistortRectifyMap(K[1], D[1], R2, P2, size, CV_32FC1, maps[2], maps[3]);
    }
  }

  void undistort(cv::Mat maps[4]) const {
    const cv::Mat I = cv::Mat::eye(3, 3, CV_64F);
    for (int i = 0; i < 2; ++i) {
      if (fisheye)
        cv::fisheye::initUndistortRectifyMap(K[i], D[i], I, K[i], size, CV_32FC1, maps[2 * i], maps[2 * i + 1]);
      else
        cv::initUndistortRectifyMap(K[i], D[i], I, K[i], size, CV_32FC1, maps[2 * i], maps[2 * i + 1]);
    }
  }
};

double seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

/// Arguments: call (0 rectify, 1 undistort), rig kind, width, height.
void BM_VersusOpenCV(benchmark::State& state) {
  quietLogger();
  cv::setNumThreads(1);
  const bool rectifyCall = state.range(0) == 0;
  const int kind = int(state.range(1));
  const int width = int(state.range(2)), height = int(state.range(3));
  const DeviceCalibrationMRV device = rig(kind, width, height);
  const OpenCVRig opencv(device, kind == 1);
  const uint32_t n = uint32_t(width) * uint32_t(height);
  std::vector<float> maps(4 * size_t(n));
  cv::Mat cvMaps[4];
  float depth = 0;
  CameraCalibrationMRV rectified{};
  double bestOurs = std::numeric_limits<double>::infinity(), bestOpenCV = bestOurs;
  QuietStdout quiet;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    const bool ok = rectifyCall ? CreateRectifyMap(&device, 0, maps.data(), n, maps.data() + n, n, maps.data() + 2 * n,
                                                   n, maps.data() + 3 * n, n, &depth, &rectified)
                                : CreateUndistortMap(&device, 0, 1.0f, maps.data(), n, maps.data() + n, n,
                                                     maps.data() + 2 * n, n, maps.data() + 3 * n, n);
    benchmark::DoNotOptimize(ok);
    benchmark::ClobberMemory();
    const auto t1 = Clock::now();
    if (rectifyCall)
      opencv.rectify(cvMaps);
    else
      opencv.undistort(cvMaps);
    benchmark::ClobberMemory();
    const auto t2 = Clock::now();
    bestOurs = std::min(bestOurs, seconds(t0, t1));
    bestOpenCV = std::min(bestOpenCV, seconds(t1, t2));
  }
  state.counters["ours_ms"] = bestOurs * 1e3;
  state.counters["opencv_ms"] = bestOpenCV * 1e3;
  state.counters["ratio"] = bestOurs / bestOpenCV;
  state.SetLabel(std::string(rectifyCall ? "CreateRectifyMap " : "CreateUndistortMap ") +
                 (kind == 0 ? "radial-tangential" : "equidistant"));
}

void versusArgs(benchmark::internal::Benchmark* b) {
  for (int call : {0, 1})
    for (int kind : {0, 1})
      for (auto size : {std::pair<int, int>(640, 480), std::pair<int, int>(1280, 1024)})
        b->Args({call, kind, size.first, size.second});
  b->ArgNames({"call", "rig", "w", "h"});
  b->Unit(benchmark::kMillisecond);
}

/// 8x8 maps of a rig whose right camera is `state.range(0)` pixels square:
/// the time must follow the map, not the second camera.
void BM_BigSecondCamera(benchmark::State& state) {
  quietLogger();
  DeviceCalibrationMRV device = rig(0, 8, 8);
  CameraCalibrationMRV& big = device.cameras[1];
  const double scale = double(state.range(0)) / 8.0;
  big.width = int32_t(state.range(0));
  big.height = int32_t(state.range(0));
  big.fx *= scale;
  big.fy *= scale;
  big.cx *= scale;
  big.cy *= scale;
  std::vector<float> maps(4 * 64);
  QuietStdout quiet;
  for (auto _ : state) {
    const bool ok = CreateUndistortMap(&device, 0, 1.0f, maps.data(), 64, maps.data() + 64, 64, maps.data() + 128, 64,
                                       maps.data() + 192, 64);
    benchmark::DoNotOptimize(ok);
    benchmark::ClobberMemory();
  }
  state.SetLabel("CreateUndistortMap, 8x8 maps");
}

BENCHMARK(BM_VersusOpenCV)->Apply(versusArgs);
BENCHMARK(BM_BigSecondCamera)->Arg(8)->Arg(4000)->Unit(benchmark::kMillisecond);

}  // namespace
