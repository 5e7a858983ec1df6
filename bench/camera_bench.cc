// Cost of building an intrinsic camera (range set-up excluded, spline fits
// included) per lens model, and throughput of the per-pixel conversions the
// map builders run: tryPixel2ideal, tryIdeal2pixel and a bare spline lookup.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

#include "AR/CV/Camera/Camera.h"
#include "AR/Common/Logger.h"

namespace {

using AR::Math::Vec2F;
using Model = CamModel::CameraModel<float>;

struct Lens {
  const char* name;
  DistortionModel model;
  float k[6];
  float f;
  float p[2];
};

// Realistic tracking-camera lenses (640x480).
const Lens kLenses[] = {
    {"LINEAR", LINEAR, {0, 0, 0, 0, 0, 0}, 450, {0, 0}},
    {"RADIAL_2", RADIAL_2_PARAMETERS, {-0.28f, 0.07f, 0, 0, 0, 0}, 450, {0, 0}},
    {"RADIAL_3", RADIAL_3_PARAMETERS, {-0.3f, 0.1f, -0.015f, 0, 0, 0}, 455, {0, 0}},
    {"RADIAL_6", RADIAL_6_PARAMETERS, {0.6f, 0.1f, 0.002f, 0.9f, 0.25f, 0.01f}, 450, {0, 0}},
    {"FISHEYE_1", FISHEYE_1_PARAMETER, {0.92f, 0, 0, 0, 0, 0}, 280, {0, 0}},
    {"FISHEYE_4", FISHEYE_4_PARAMETERS, {-0.01f, 0.005f, -0.002f, 0.0003f, 0, 0}, 280, {0, 0}},
    {"RADIAL_3_TANGENTIAL", RADIAL_3_PARAMETERS, {-0.3f, 0.1f, -0.015f, 0, 0, 0}, 455,
     {1e-3f, -5e-4f}},
};
constexpr int kNumLenses = sizeof(kLenses) / sizeof(kLenses[0]);

void quietLogger() {
  AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_WARNING);
}

/// The lens with its valid ranges narrowed, as init(model) expects it. The
/// range set-up prints two lines per model; they go out once, here.
Model narrowedModel(const Lens& lens) {
  Model m;
  m.size = Vec2F(640, 480);
  m.principalPoint = Vec2F(320.5f, 240.5f);
  m.focalLength = Vec2F(lens.f, lens.f);
  for (int i = 0; i < 6; ++i) m.radialDistortionCoeffs(i) = lens.k[i];
  m.tangentialDistortionCoeffs = Vec2F(lens.p[0], lens.p[1]);
  m.model = lens.model;
  m.maxValidDistortionRSq = 81;
  m.maxValidUndistortionRSq = 81;
  m.setupValidDistortionRange();
  return m;
}

const Model& cachedModel(int index) {
  static std::vector<Model> models = [] {
    std::vector<Model> all;
    for (const Lens& lens : kLenses) all.push_back(narrowedModel(lens));
    return all;
  }();
  return models[static_cast<size_t>(index)];
}

/// A camera of lens `index` for a benchmark; marks the benchmark skipped when
/// the camera cannot be set up.
bool initOrSkip(benchmark::State& state, int index, AR::CV::Camera<float>& camera) {
  quietLogger();
  if (camera.init(cachedModel(index))) return true;
  state.SkipWithError("camera init failed");
  return false;
}

void BM_CameraInit(benchmark::State& state) {
  quietLogger();
  const int index = static_cast<int>(state.range(0));
  const Model& model = cachedModel(index);
  state.SetLabel(kLenses[index].name);
  for (auto _ : state) {
    AR::CV::Camera<float> camera;
    benchmark::DoNotOptimize(camera.init(model));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CameraInit)->DenseRange(0, kNumLenses - 1)->Unit(benchmark::kMicrosecond);

/// Every pixel of the 640x480 image once per iteration.
void BM_TryPixel2ideal(benchmark::State& state) {
  const int index = static_cast<int>(state.range(0));
  AR::CV::Camera<float> camera;
  if (!initOrSkip(state, index, camera)) return;
  state.SetLabel(kLenses[index].name);
  int64_t converted = 0;
  for (auto _ : state) {
    for (int y = 0; y < 480; ++y)
      for (int x = 0; x < 640; ++x) {
        Vec2F ideal;
        const bool ok = camera.tryPixel2ideal(Vec2F(float(x), float(y)), ideal);
        converted += ok;
        benchmark::DoNotOptimize(ideal);
      }
  }
  state.SetItemsProcessed(state.iterations() * 640 * 480);
  state.counters["valid"] = double(converted) / double(state.iterations() * 640 * 480);
}
BENCHMARK(BM_TryPixel2ideal)->DenseRange(0, kNumLenses - 1)->Unit(benchmark::kMillisecond);

/// A grid of ideal points inside the valid distortion range.
void BM_TryIdeal2pixel(benchmark::State& state) {
  const int index = static_cast<int>(state.range(0));
  AR::CV::Camera<float> camera;
  if (!initOrSkip(state, index, camera)) return;
  state.SetLabel(kLenses[index].name);
  const float extent = 0.7f;  // inside every lens's range
  for (auto _ : state) {
    for (int j = 0; j < 480; ++j)
      for (int i = 0; i < 640; ++i) {
        Vec2F pixel;
        benchmark::DoNotOptimize(camera.tryIdeal2pixel(
            Vec2F(extent * (float(i) / 320.f - 1.f), extent * (float(j) / 240.f - 1.f)), pixel));
        benchmark::DoNotOptimize(pixel);
      }
  }
  state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_TryIdeal2pixel)->DenseRange(0, kNumLenses - 1)->Unit(benchmark::kMillisecond);

/// One million lookups spread over the undistortion spline's range.
void BM_SplineEvaluate(benchmark::State& state) {
  const int index = static_cast<int>(state.range(0));
  AR::CV::Camera<float> camera;
  if (!initOrSkip(state, index, camera)) return;
  const auto& spline = camera.getUndistortionSpline();
  state.SetLabel(std::string(kLenses[index].name) + " " +
                 std::to_string(spline.getSegments().size()) + " bins");
  const float top = spline.getRange()(1);
  constexpr int kLookups = 1 << 20;
  const float step = top / float(kLookups);
  for (auto _ : state) {
    float sum = 0;
    for (int i = 0; i < kLookups; ++i) {
      float y;
      if (spline.evaluate(float(i) * step, y)) sum += y;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kLookups);
}
BENCHMARK(BM_SplineEvaluate)->DenseRange(0, kNumLenses - 2)->Unit(benchmark::kMillisecond);

}  // namespace
