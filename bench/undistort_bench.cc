// Undistortion maps: the whole entry point, the camera set-up (model checks
// and spline fitting) alone, and the per-pixel map loop alone, for each lens
// model at 640x480 and 1280x1024. Per-pixel figures are reported as the
// counter "per_px" (seconds per output pixel, shown with an SI prefix).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <vector>

#include "AR/Common/Logger.h"
#include "DeviceCalibration.h"
#include "StereoRectifyWrapper.h"
#include "BenchSupport.h"
#include "UndistortMap.h"

namespace {

using namespace BenchSupport;

/// The whole entry point: conversion and set-up of both cameras, then both
/// cameras' maps. Per pixel of output (both cameras).
void BM_CreateUndistortMap(benchmark::State& state) {
  quietLogger();
  const Lens& lens = kLenses[state.range(0)];
  const int width = int(state.range(1)), height = int(state.range(2));
  const DeviceCalibrationMRV device = makeDevice(lens, width, height);
  const uint32_t n = uint32_t(width) * uint32_t(height);
  std::vector<float> maps(4 * size_t(n));
  QuietStdout quiet;
  for (auto _ : state) {
    const bool ok = CreateUndistortMap(&device, 0, 1.0f, maps.data(), n, maps.data() + n, n,
                                       maps.data() + 2 * n, n, maps.data() + 3 * n, n);
    benchmark::DoNotOptimize(ok);
    benchmark::ClobberMemory();
  }
  state.SetLabel(CamModel::modelName(lens.model));
  setPerPixel(state, 2.0 * n);
}

/// Camera set-up alone: the device-record conversion, which validates both
/// models, narrows their valid ranges and fits their two splines each.
void BM_CameraSetup(benchmark::State& state) {
  quietLogger();
  const Lens& lens = kLenses[state.range(0)];
  const DeviceCalibrationMRV device = makeDevice(lens, 640, 480);
  QuietStdout quiet;
  for (auto _ : state) {
    AR::CV::FullStereoCameraCalibration<float> calibration;
    DeviceFrameParams frame{};
    const bool ok = VIO::deviceToStereoCalibration(&device, calibration, frame);
    benchmark::DoNotOptimize(ok);
  }
  state.SetLabel(CamModel::modelName(lens.model));
}

/// The per-pixel loop alone: one camera's maps from an initialised camera
/// (including the set-up of the distortion-free virtual camera, a single
/// spline bin each). Per output pixel of that camera.
void BM_UndistortMapLoop(benchmark::State& state) {
  quietLogger();
  const Lens& lens = kLenses[state.range(0)];
  const int width = int(state.range(1)), height = int(state.range(2));
  const DeviceCalibrationMRV device = makeDevice(lens, width, height);
  QuietStdout quiet;
  AR::CV::FullStereoCameraCalibration<float> calibration;
  if (!convertOrSkip(state, device, calibration)) return;
  const AR::Math::Vec2I size(width, height);
  std::array<AR::CV::Image<float>, 2> images{AR::CV::Image<float>(size), AR::CV::Image<float>(size)};
  AR::Common::ArrayView<AR::CV::Image<float>> view(images);
  const AR::CV::Camera<float>& camera = calibration[0].getIntrinsics();
  for (auto _ : state) {
    VIO::setupUndistortMap(camera, false, 1.0f, view);
    benchmark::ClobberMemory();
  }
  state.SetLabel(CamModel::modelName(lens.model));
  setPerPixel(state, double(width) * height);
}

BENCHMARK(BM_CreateUndistortMap)->Apply(lensesAndSizes);
BENCHMARK(BM_CameraSetup)->DenseRange(0, 5)->ArgName("lens")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UndistortMapLoop)->Apply(lensesAndSizes);

}  // namespace
