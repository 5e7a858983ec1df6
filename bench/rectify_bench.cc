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
#include "BenchSupport.h"

namespace {

using namespace BenchSupport;

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
  if (!convertOrSkip(state, device, calibration)) return;
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

BENCHMARK(BM_CreateRectifyMap)->Apply(lensesAndSizes);
BENCHMARK(BM_RectifySetup)->Apply(lensesAndSizes);
BENCHMARK(BM_RectifyMapLoop)->Apply(lensesAndSizes);

}  // namespace
