#pragma once

// What the map benchmarks share: realistic lenses, a stereo device record
// built from them, and quiet library output so the report stays readable.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "AR/Common/Logger.h"
#include "CameraModel/DistortionModel.h"
#include "DeviceCalibration.h"
#include "StereoRectifyWrapper.h"

namespace BenchSupport {

struct Lens {
  DistortionModel model;
  std::array<double, 6> k;
  double focalAt640;
};

// Realistic coefficients per model, focal lengths for a 640-pixel-wide image.
const Lens kLenses[] = {
    {LINEAR, {0, 0, 0, 0, 0, 0}, 420.0},
    {RADIAL_2_PARAMETERS, {-0.28, 0.07, 0, 0, 0, 0}, 430.0},
    {RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015, 0, 0, 0}, 440.0},
    {RADIAL_6_PARAMETERS, {0.42, -0.03, 0.002, 0.75, 0.04, 0.001}, 450.0},
    {FISHEYE_1_PARAMETER, {0.92, 0, 0, 0, 0, 0}, 260.0},
    {FISHEYE_4_PARAMETERS, {-0.012, 0.003, -0.0006, 0.0001, 0, 0}, 250.0},
};

/// Camera set-up prints the valid ranges on standard output, where the
/// benchmark's own report goes too; the library's lines go to /dev/null while
/// a benchmark runs.
class QuietStdout {
 public:
  QuietStdout() {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    const int devNull = open("/dev/null", O_WRONLY);
    if (devNull >= 0) {
      dup2(devNull, STDOUT_FILENO);
      close(devNull);
    }
  }
  ~QuietStdout() {
    std::fflush(stdout);
    if (saved_ >= 0) {
      dup2(saved_, STDOUT_FILENO);
      close(saved_);
    }
  }

 private:
  int saved_ = -1;
};

/// A rig with a 10 cm baseline and the right camera turned by 1 degree about
/// y and 0.5 degree about x, so that the rectifying rotation is not trivial.
inline DeviceCalibrationMRV makeDevice(const Lens& lens, int width, int height) {
  DeviceCalibrationMRV device;
  std::memset(&device, 0, sizeof(device));
  device.num_cameras = 2;
  const double scale = width / 640.0;
  for (int i = 0; i < 2; ++i) {
    CameraCalibrationMRV& cam = device.cameras[i];
    cam.width = width;
    cam.height = height;
    cam.cx = width * 0.5 + 0.6;
    cam.cy = height * 0.5 - 1.1;
    cam.fx = lens.focalAt640 * scale;
    cam.fy = lens.focalAt640 * scale * 1.002;
    for (int j = 0; j < 6; ++j) cam.k[j] = lens.k[size_t(j)];
    cam.distortionModel = int32_t(lens.model);
    cam.pose.orientation.w = 1.0;
  }
  const double ay = 0.5 * M_PI / 180, ax = 0.25 * M_PI / 180;
  device.cameras[1].pose.orientation.x = std::sin(ax);
  device.cameras[1].pose.orientation.y = std::sin(ay);
  device.cameras[1].pose.orientation.w = std::cos(ay);
  device.cameras[1].pose.position.x = -0.1;
  device.cameras[1].pose.position.y = 0.001;
  return device;
}

inline void quietLogger() { AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_ERROR); }

inline void setPerPixel(benchmark::State& state, double pixelsPerIteration) {
  state.counters["per_px"] = benchmark::Counter(
      pixelsPerIteration, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// The rig of `device` for a benchmark; marks the benchmark skipped when a
/// camera cannot be set up.
inline bool convertOrSkip(benchmark::State& state, const DeviceCalibrationMRV& device,
                          AR::CV::FullStereoCameraCalibration<float>& calibration) {
  DeviceFrameParams frame{};
  if (VIO::deviceToStereoCalibration(&device, calibration, frame)) return true;
  state.SkipWithError("camera set-up failed");
  return false;
}

/// Every lens at 640x480 and 1280x1024: arguments (lens index, width, height).
inline void lensesAndSizes(benchmark::internal::Benchmark* b) {
  for (int lens = 0; lens < 6; ++lens) {
    b->Args({lens, 640, 480});
    b->Args({lens, 1280, 1024});
  }
  b->ArgNames({"lens", "w", "h"});
  b->Unit(benchmark::kMillisecond);
}

}  // namespace BenchSupport
