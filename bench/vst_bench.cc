// Fixed-plane see-through maps: the whole entry point, and the per-pixel map
// loop alone, for square display eyes of 1280 and 2048 pixels (90 degrees
// across) over 640x480 tracking cameras. Per-pixel figures are the counter
// "per_px" (seconds per display pixel, shown with an SI prefix).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <vector>

#include "AR/CV/Stereo/Rectify.h"
#include "AR/Common/Logger.h"
#include "DeviceCalibration.h"
#include "StereoRectifyWrapper.h"
#include "BenchSupport.h"
#include "VSTMap.h"
#include "RecordRig.h"

namespace {

using namespace BenchSupport;

/// Lens index into RecordRig::realisticLenses() and eye size in pixels.
struct Setup {
  RecordRig::LensCase lens;
  DeviceCalibrationMRV device;
  CameraCalibrationMRV left, right;
  Setup(int64_t lensIndex, int64_t eyeSize)
      : lens(RecordRig::realisticLenses()[size_t(lensIndex)]),
        device(RecordRig::makeDevice(lens)),
        left(RecordRig::makeDisplay(int32_t(eyeSize), int32_t(eyeSize), eyeSize * 0.5, eyeSize * 0.5,
                                  RecordRig::Vec3d(-0.032, 0.0, 0.01), 0.0)),
        right(RecordRig::makeDisplay(int32_t(eyeSize), int32_t(eyeSize), eyeSize * 0.5, eyeSize * 0.5,
                                   RecordRig::Vec3d(0.032, 0.0, 0.01), 0.0)) {}
};

/// The whole entry point: record conversion, camera set-up, eye calibration
/// and both eyes' maps. Per display pixel (both eyes).
void BM_CreateFixedPlaneVSTMaps(benchmark::State& state) {
  quietLogger();
  const Setup setup(state.range(0), state.range(1));
  const uint32_t n = uint32_t(setup.left.width) * uint32_t(setup.left.height);
  std::vector<float> maps(4 * size_t(n));
  QuietStdout quiet;
  for (auto _ : state) {
    const bool ok = CreateFixedPlaneVSTMaps(&setup.device, &setup.left, &setup.right, 1.5f, 0, maps.data(), n,
                                            maps.data() + n, n, maps.data() + 2 * n, n, maps.data() + 3 * n, n);
    benchmark::DoNotOptimize(ok);
    benchmark::ClobberMemory();
  }
  state.SetLabel(setup.lens.name);
  setPerPixel(state, 2.0 * n);
}

/// One eye's map loop alone, on cameras and eye transforms prepared once.
void BM_SetupVSTMap(benchmark::State& state) {
  quietLogger();
  const Setup setup(state.range(0), state.range(1));
  AR::CV::FullStereoCameraCalibration<float> rig, eyes;
  std::array<AR::Math::SE3<float>, 2> eyePoses;
  {
    QuietStdout quiet;
    DeviceFrameParams frame{};
    VIO::deviceToStereoCalibration(&setup.device, rig, frame);
    const AR::Math::SE3<float> devicePose(
        AR::Math::SO3<float>::exp(AR::Math::Vec3F(frame.values[21], frame.values[22], frame.values[23])),
        AR::Math::Vec3F(frame.values[24], frame.values[25], frame.values[26]));
    AR::CV::makeSeeThroughCalibration<float>(rig, setup.left, setup.right, devicePose, eyes, eyePoses);
  }
  const AR::Math::Vec2I size(setup.left.width, setup.left.height);
  std::array<AR::CV::Image<float>, 2> images;
  for (auto& image : images) image.allocPixels(size, AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);
  AR::Common::ArrayView<AR::CV::Image<float>> view(images);
  std::array<AR::CV::Image<float>, 3> points;
  for (auto _ : state) {
    VIO::setupVSTMap(rig[0].getIntrinsics(), eyes[0].getIntrinsics(), false, eyePoses[0], view, points, 1.5f);
    benchmark::ClobberMemory();
  }
  state.SetLabel(setup.lens.name);
  setPerPixel(state, double(size(0)) * double(size(1)));
}

// Lenses: 0 Linear, 2 Radial3 with tangential terms, 5 Fisheye4.
void eyeSizes(benchmark::internal::Benchmark* b) {
  for (int64_t lens : {0, 2, 5})
    for (int64_t size : {1280, 2048}) b->Args({lens, size});
  b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_CreateFixedPlaneVSTMaps)->Apply(eyeSizes);
BENCHMARK(BM_SetupVSTMap)->Apply(eyeSizes);

}  // namespace
