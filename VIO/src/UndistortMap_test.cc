#include "UndistortMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using AR::CV::Camera;
using AR::CV::Image;
using Vec2F = AR::Math::Vector<float, 2>;
using Vec2I = AR::Math::Vector<int, 2>;
using Vec6F = AR::Math::Vector<float, 6>;

/// A tracking camera of one lens model with coefficients of the kind real
/// calibrations give.
struct Lens {
  const char* name;
  DistortionModel model;
  Vec6F radial;
  Vec2F tangential;
  float focal;
};

std::ostream& operator<<(std::ostream& os, const Lens& lens) { return os << lens.name; }

const Lens kLenses[] = {
    {"Linear", LINEAR, Vec6F(), Vec2F(), 420.0f},
    {"Radial2", RADIAL_2_PARAMETERS, Vec6F(-0.28f, 0.07f, 0.f, 0.f, 0.f, 0.f), Vec2F(), 430.0f},
    {"Radial3Tangential", RADIAL_3_PARAMETERS, Vec6F(-0.3f, 0.1f, -0.015f, 0.f, 0.f, 0.f),
     Vec2F(4e-4f, -3e-4f), 440.0f},
    {"Radial6", RADIAL_6_PARAMETERS, Vec6F(0.42f, -0.03f, 0.002f, 0.75f, 0.04f, 0.001f), Vec2F(),
     450.0f},
    {"Fisheye1", FISHEYE_1_PARAMETER, Vec6F(0.92f, 0.f, 0.f, 0.f, 0.f, 0.f), Vec2F(), 260.0f},
    {"Fisheye4", FISHEYE_4_PARAMETERS, Vec6F(-0.012f, 0.003f, -0.0006f, 0.0001f, 0.f, 0.f),
     Vec2F(), 250.0f},
};

constexpr int kWidth = 640;
constexpr int kHeight = 480;

Camera<float> makeCamera(const Lens& lens) {
  Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(float(kWidth), float(kHeight)), Vec2F(lens.focal, lens.focal * 1.01f),
                          Vec2F(321.3f, 238.6f), lens.radial, lens.tangential, lens.model))
      << lens.name;
  return camera;
}

/// Largest error of a spline against the model function it tabulates,
/// sampled far more densely than the fit's own midpoint test.
template <typename FN>
float splineError(const AR::CV::HermiteSplineInterpolation<float>& spline, FN fn) {
  const Vec2F range = spline.getRange();
  float err = 0.0f;
  for (int i = 0; i < 20000; ++i) {
    const float x = range(0) + (range(1) - range(0)) * float(i) / 20000.0f;
    float y = 0.0f;
    if (spline.evaluate(x, y)) err = std::max(err, std::fabs(y - float(fn(double(x)))));
  }
  return err;
}

struct MapPair {
  std::array<Image<float>, 2> images;
  AR::Common::ArrayView<Image<float>> view{images};
  explicit MapPair(Vec2I size = Vec2I(kWidth, kHeight)) {
    for (auto& image : images) image.allocPixels(size, AR::Common::MEMORY_ALIGNMENT_16, false);
  }
  float x(int px, int py) const { return images[0].at(px, py); }
  float y(int px, int py) const { return images[1].at(px, py); }
  bool valid(int px, int py) const { return !(x(px, py) == -1.0f && y(px, py) == -1.0f); }
  bool inImage(int px, int py) const {
    return x(px, py) >= 0.0f && x(px, py) < float(kWidth) && y(px, py) >= 0.0f &&
           y(px, py) < float(kHeight);
  }
};

class UndistortMapLens : public testing::TestWithParam<Lens> {};

TEST_P(UndistortMapLens, EverySourceLiesOnTheVirtualCamerasRayAndLargerFactorsNarrowTheView) {
  const Camera<float> camera = makeCamera(GetParam());
  const auto& model = camera.getCamModel();
  // The map goes through the distortion spline, the check back through the
  // undistortion spline: their errors (in the factor, so scaled by the
  // radius) bound the miss, with rounding of float pixels on top.
  const float splineErrors =
      splineError(camera.getDistortionSpline(), [&](double r2) { return model.distortionFactor(r2); }) +
      splineError(camera.getUndistortionSpline(),
                  [&](double r2) { return model.undistortionFactor(r2); });
  const Vec2F pp = camera.getPrincipalPoint();
  const auto fromCentre = [&](const MapPair& m, int x, int y) {
    return std::hypot(m.x(x, y) - pp(0), m.y(x, y) - pp(1));
  };

  // The second factor narrows the view: the same output pixel sees a ray
  // nearer the axis, so its source lies nearer the centre.
  const float factors[2] = {1.0f, 1.4f};
  MapPair maps[2];
  size_t numValid[2] = {0, 0};
  for (size_t k = 0; k < 2; ++k) {
    VIO::setupUndistortMap(camera, false, factors[k], maps[k].view);
    const Vec2F f = camera.getCorrectedFocalLengthVec() * factors[k];
    size_t numChecked = 0;
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        if (!maps[k].valid(x, y)) continue;
        ++numValid[k];
        ASSERT_TRUE(maps[k].inImage(x, y)) << x << "," << y;
        if (k == 1 && maps[0].valid(x, y) && fromCentre(maps[0], x, y) > 2.0f) {
          ASSERT_LT(fromCentre(maps[1], x, y), fromCentre(maps[0], x, y)) << x << "," << y;
        }
        Vec2F ideal;
        if (!camera.tryPixel2ideal(Vec2F(maps[k].x(x, y), maps[k].y(x, y)), ideal)) continue;
        ++numChecked;
        const Vec2F ray((float(x) - pp(0)) / f(0), (float(y) - pp(1)) / f(1));
        const float r = std::hypot(ray(0), ray(1));
        const float tolerance = 4.0f * (1.0f + r) * (1.0f + r) * splineErrors + 2e-5f * (1.0f + r);
        ASSERT_LE(std::max(std::fabs(ideal(0) - ray(0)), std::fabs(ideal(1) - ray(1))), tolerance)
            << "fov " << factors[k] << " at (" << x << ", " << y << ") r=" << r;
      }
    }
    // A real lens covers most of its undistorted view.
    EXPECT_GT(numValid[k], size_t(kWidth * kHeight) / 2);
    EXPECT_GT(numChecked, numValid[k] * 99 / 100);
  }
  EXPECT_GE(numValid[1], numValid[0]);
}

TEST_P(UndistortMapLens, NoSourceIsMinusOneAndAllowOutOfImageAddsOnlyOutsideSources) {
  const Camera<float> camera = makeCamera(GetParam());
  // Half the focal length doubles the view: its border sees past the image.
  MapPair inside, all;
  VIO::setupUndistortMap(camera, false, 0.5f, inside.view);
  VIO::setupUndistortMap(camera, true, 0.5f, all.view);
  size_t outside = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      ASSERT_EQ(inside.x(x, y) == -1.0f, inside.y(x, y) == -1.0f) << x << "," << y;
      if (inside.valid(x, y)) {
        ASSERT_EQ(inside.x(x, y), all.x(x, y));
        ASSERT_EQ(inside.y(x, y), all.y(x, y));
      } else if (all.valid(x, y)) {
        ASSERT_FALSE(all.inImage(x, y)) << x << "," << y;
        ++outside;
      }
    }
  EXPECT_GT(outside, 0u);
}

INSTANTIATE_TEST_SUITE_P(LensModels, UndistortMapLens, testing::ValuesIn(kLenses),
                         [](const testing::TestParamInfo<Lens>& info) { return info.param.name; });

TEST(UndistortMap, WithoutDistortionFactorOneIsTheIdentity) {
  Camera<float> camera;
  ASSERT_TRUE(camera.init(Vec2F(64.0f, 48.0f), Vec2F(50.0f, 52.0f), Vec2F(31.5f, 24.25f), Vec6F(),
                          Vec2F(), LINEAR));
  MapPair maps(Vec2I(64, 48));
  // Allowing sources outside the image keeps column 0 and row 0, whose
  // sources may round to a hair below 0.
  VIO::setupUndistortMap(camera, true, 1.0f, maps.view);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      EXPECT_NEAR(maps.x(x, y), float(x), 1e-4f);
      EXPECT_NEAR(maps.y(x, y), float(y), 1e-4f);
    }
}

TEST(UndistortMap, ViewMismatchesAndAFailedVirtualCameraAreReported) {
  const Camera<float> camera = makeCamera(kLenses[2]);
  // The logged function text is cut to 100 characters.
  const std::string function =
      " " + std::string("void VIO::setupUndistortMap(const VIO::IntrinsicCamera &, bool, float, "
                        "AR::Common::ArrayView<AR::CV::ImageFloat> &)")
                .substr(0, 100) +
      "\n";
  const auto assertLine = [&](const std::string& condition, int line) {
    return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectify(" + std::to_string(line) +
           ")" + function;
  };
  {
    AR::Test::LogCapture log;
    std::array<Image<float>, 1> one{Image<float>(Vec2I(kWidth, kHeight))};
    AR::Common::ArrayView<Image<float>> view(one);
    VIO::setupUndistortMap(camera, false, 1.0f, view);
    EXPECT_TRUE(log.has(assertLine("mapXY.size() == 2", 65)));
    EXPECT_TRUE(log.has(assertLine("mapXY[1].size() == size", 67)));
    EXPECT_EQ(log.countContaining("AR_ASSERT idx<numItems"), 1u);
    EXPECT_EQ(log.countContaining("AR ERROR"), 3u);
    EXPECT_EQ(one[0].at(5, 5), -1.0f);  // cleared, though there is no pair to fill
  }
  {
    AR::Test::LogCapture log;
    MapPair small(Vec2I(100, 50));
    VIO::setupUndistortMap(camera, false, 1.0f, small.view);
    EXPECT_TRUE(log.has(assertLine("mapXY[0].size() == size", 66)));
    EXPECT_EQ(log.countContaining("AR ERROR"), 2u);  // one report per image, not per pixel
    // The pixels the small image does have are those of the full map.
    MapPair full;
    VIO::setupUndistortMap(camera, false, 1.0f, full.view);
    EXPECT_EQ(small.x(99, 49), full.x(99, 49));
    EXPECT_EQ(small.y(10, 20), full.y(10, 20));
  }
  AR::Test::LogCapture log;
  MapPair maps;
  testing::internal::CaptureStdout();
  // The entry point refuses such factors; the builder on its own reports them.
  VIO::setupUndistortMap(camera, true, 0.0f, maps.view);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: Focal length should be positive\n");
  EXPECT_TRUE(log.has(assertLine("success", 64)));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u);
  for (int y = 0; y < kHeight; y += 7)
    for (int x = 0; x < kWidth; x += 7) ASSERT_FALSE(maps.valid(x, y));
}

}  // namespace
