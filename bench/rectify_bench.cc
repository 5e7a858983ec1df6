// Rectification maps: the whole entry point, the set-up alone (device-record
// conversion with its spline fits, target calibration and its self-checks)
// and the per-pixel map loop alone, for each lens model at 640x480 and
// 1280x1024. Per-pixel figures are the counter "per_px" (seconds per output
// pixel, shown with an SI prefix).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "AR/CV/Stereo/Rectify.h"
#include "AR/Common/Logger.h"
#include "DeviceCalibration.h"
#include "RectifyMap.h"
#include "StereoRectifyWrapper.h"

namespace {

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
DeviceCalibrationMRV makeDevice(const Lens& lens, int width, int height) {
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

void quietLogger() { AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_ERROR); }

void setPerPixel(benchmark::State& state, double pixelsPerIteration) {
  state.counters["per_px"] = benchmark::Counter(
      pixelsPerIteration, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// The target of the entry point: 64 disparities, no depth fitting.
void makeTarget(const AR::CV::FullStereoCameraCalibration<float>& calibration,
                AR::CV::FullStereoCameraCalibration<float>& target, AR::Math::SO3<float>& S) {
  AR::CV::DepthParams<float> depth;
  AR::CV::makeTargetCalibration<float>(calibration, 64, 0.0f, 10.0f, 0, AR::Math::SE3<float>(), AR::Math::Vec3F(),
                                       target, S, depth);
}

/// The whole entry point. Per output pixel (both cameras).
void BM_CreateRectifyMap(benchmark::State& state) {
  quietLogger();
  const Lens& lens = kLenses[state.range(0)];
  const int width = int(state.range(1)), height = int(state.range(2));
  const DeviceCalibrationMRV device = makeDevice(lens, width, height);
  const uint32_t n = uint32_t(width) * uint32_t(height);
  std::vector<float> maps(4 * size_t(n));
  float depth = 0;
  CameraCalibrationMRV rectified{};
  QuietStdout quiet;
  for (auto _ : state) {
    const bool ok = CreateRectifyMap(&device, 0, maps.data(), n, maps.data() + n, n, maps.data() + 2 * n, n,
                                     maps.data() + 3 * n, n, &depth, &rectified);
    benchmark::DoNotOptimize(ok);
    benchmark::ClobberMemory();
  }
  state.SetLabel(CamModel::modelName(lens.model));
  setPerPixel(state, 2.0 * n);
}

/// Set-up alone: device-record conversion (model checks, valid ranges, two
/// splines per camera) plus target calibration and its self-checks.
void BM_RectifySetup(benchmark::State& state) {
  quietLogger();
  const Lens& lens = kLenses[state.range(0)];
  const DeviceCalibrationMRV device = makeDevice(lens, int(state.range(1)), int(state.range(2)));
  QuietStdout quiet;
  for (auto _ : state) {
    AR::CV::FullStereoCameraCalibration<float> calibration, target;
    DeviceFrameParams frame{};
    const bool ok = VIO::deviceToStereoCalibration(&device, calibration, frame);
    AR::Math::SO3<float> S;
    makeTarget(calibration, target, S);
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(S);
  }
  state.SetLabel(CamModel::modelName(lens.model));
}

/// The per-pixel loop alone: one camera's maps from initialised cameras and
/// a computed target. Per output pixel of that camera.
void BM_RectifyMapLoop(benchmark::State& state) {
  quietLogger();
  const Lens& lens = kLenses[state.range(0)];
  const int width = int(state.range(1)), height = int(state.range(2));
  const DeviceCalibrationMRV device = makeDevice(lens, width, height);
  QuietStdout quiet;
  AR::CV::FullStereoCameraCalibration<float> calibration, target;
  DeviceFrameParams frame{};
  if (!VIO::deviceToStereoCalibration(&device, calibration, frame)) {
    state.SkipWithError("camera set-up failed");
    return;
  }
  AR::Math::SO3<float> S;
  makeTarget(calibration, target, S);
  const AR::Math::Vec2I size(width, height);
  std::array<AR::CV::Image<float>, 2> images{AR::CV::Image<float>(size), AR::CV::Image<float>(size)};
  AR::Common::ArrayView<AR::CV::Image<float>> view(images);
  for (auto _ : state) {
    VIO::setupRectifyMap(calibration[1], false, target[1], S, view);
    benchmark::ClobberMemory();
  }
  state.SetLabel(CamModel::modelName(lens.model));
  setPerPixel(state, double(width) * height);
}

void lensesAndSizes(benchmark::internal::Benchmark* b) {
  for (int lens = 0; lens < 6; ++lens) {
    b->Args({lens, 640, 480});
    b->Args({lens, 1280, 1024});
  }
  b->ArgNames({"lens", "w", "h"});
  b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_CreateRectifyMap)->Apply(lensesAndSizes);
BENCHMARK(BM_RectifySetup)->Apply(lensesAndSizes);
BENCHMARK(BM_RectifyMapLoop)->Apply(lensesAndSizes);

}  // namespace
