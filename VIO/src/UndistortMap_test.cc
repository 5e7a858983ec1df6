#include "UndistortMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

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
  const int n = 20000;
  for (int i = 0; i < n; ++i) {
    const float x = range(0) + (range(1) - range(0)) * float(i) / float(n);
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
};

class UndistortMapLens : public testing::TestWithParam<Lens> {};

TEST_P(UndistortMapLens, EverySourceLiesOnTheVirtualCamerasRay) {
  const Lens lens = GetParam();
  const Camera<float> camera = makeCamera(lens);
  const auto& model = camera.getCamModel();
  const float errD = splineError(camera.getDistortionSpline(),
                                 [&](double r2) { return model.distortionFactor(r2); });
  const float errU = splineError(camera.getUndistortionSpline(),
                                 [&](double r2) { return model.undistortionFactor(r2); });

  for (float fovFactor : {1.0f, 1.4f}) {
    MapPair maps;
    VIO::setupUndistortMap(camera, false, fovFactor, maps.view);
    const Vec2F pp = camera.getPrincipalPoint();
    const Vec2F f = camera.getCorrectedFocalLengthVec() * fovFactor;
    size_t numValid = 0, numChecked = 0;
    float worst = 0.0f;
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        if (!maps.valid(x, y)) continue;
        ++numValid;
        const float sx = maps.x(x, y), sy = maps.y(x, y);
        ASSERT_TRUE(sx >= 0.0f && sx < float(kWidth) && sy >= 0.0f && sy < float(kHeight))
            << "(" << x << ", " << y << ") -> (" << sx << ", " << sy << ")";
        Vec2F ideal;
        if (!camera.tryPixel2ideal(Vec2F(sx, sy), ideal)) continue;
        ++numChecked;
        const Vec2F ray((float(x) - pp(0)) / f(0), (float(y) - pp(1)) / f(1));
        const float r = std::sqrt(ray(0) * ray(0) + ray(1) * ray(1));
        // The map goes through the distortion spline, the check back through
        // the undistortion spline: their errors (in the factor, so scaled by
        // the radius) bound the miss, with rounding of float pixels on top.
        const float tolerance = 4.0f * (1.0f + r) * (1.0f + r) * (errD + errU) + 2e-5f * (1.0f + r);
        const float miss = std::max(std::fabs(ideal(0) - ray(0)), std::fabs(ideal(1) - ray(1)));
        worst = std::max(worst, miss / tolerance);
        ASSERT_LE(miss, tolerance) << lens << " fov " << fovFactor << " at (" << x << ", " << y
                                   << ") r=" << r;
      }
    }
    // A real lens covers most of its undistorted view.
    EXPECT_GT(numValid, size_t(kWidth * kHeight) / 2) << lens;
    EXPECT_GT(numChecked, numValid * 99 / 100) << lens;
  }
}

TEST_P(UndistortMapLens, NoSourceIsExactlyMinusOneInBothMaps) {
  const Camera<float> camera = makeCamera(GetParam());
  MapPair maps;
  VIO::setupUndistortMap(camera, false, 0.5f, maps.view);
  size_t invalid = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const bool noX = maps.x(x, y) == -1.0f, noY = maps.y(x, y) == -1.0f;
      EXPECT_EQ(noX, noY) << x << "," << y;
      invalid += noX ? 1 : 0;
    }
  // Half the focal length doubles the view: its border sees past the image.
  EXPECT_GT(invalid, 0u);
}

TEST_P(UndistortMapLens, AllowOutOfImageOnlyAddsEntriesOutsideTheImage) {
  const Camera<float> camera = makeCamera(GetParam());
  MapPair inside, all;
  VIO::setupUndistortMap(camera, false, 0.5f, inside.view);
  VIO::setupUndistortMap(camera, true, 0.5f, all.view);
  size_t outside = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      if (inside.valid(x, y)) {
        ASSERT_EQ(inside.x(x, y), all.x(x, y));
        ASSERT_EQ(inside.y(x, y), all.y(x, y));
      } else if (all.valid(x, y)) {
        const float sx = all.x(x, y), sy = all.y(x, y);
        EXPECT_TRUE(sx < 0.0f || sx >= float(kWidth) || sy < 0.0f || sy >= float(kHeight));
        ++outside;
      }
    }
  EXPECT_GT(outside, 0u) << GetParam();
}

TEST_P(UndistortMapLens, LargerFactorNarrowsTheView) {
  const Camera<float> camera = makeCamera(GetParam());
  MapPair wide, narrow;
  VIO::setupUndistortMap(camera, false, 1.0f, wide.view);
  VIO::setupUndistortMap(camera, false, 2.0f, narrow.view);
  const Vec2F pp = camera.getPrincipalPoint();
  size_t compared = 0, narrowValid = 0, wideValid = 0;
  for (int y = 0; y < kHeight; y += 3)
    for (int x = 0; x < kWidth; x += 3) {
      narrowValid += narrow.valid(x, y) ? 1 : 0;
      wideValid += wide.valid(x, y) ? 1 : 0;
      if (!wide.valid(x, y) || !narrow.valid(x, y)) continue;
      const float dw = std::hypot(wide.x(x, y) - pp(0), wide.y(x, y) - pp(1));
      const float dn = std::hypot(narrow.x(x, y) - pp(0), narrow.y(x, y) - pp(1));
      if (dw < 2.0f) continue;  // at the centre both stay put
      EXPECT_LT(dn, dw) << x << "," << y;
      ++compared;
    }
  EXPECT_GT(compared, 1000u);
  EXPECT_GE(narrowValid, wideValid);
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

TEST(UndistortMap, NaNFactorLeavesNoValidEntry) {
  const Camera<float> camera = makeCamera(kLenses[1]);
  MapPair maps;
  VIO::setupUndistortMap(camera, true, std::numeric_limits<float>::quiet_NaN(), maps.view);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) ASSERT_FALSE(maps.valid(x, y));
}

TEST(UndistortMap, ViewMismatchesAreReportedAndWritesStayInside) {
  const Camera<float> camera = makeCamera(kLenses[0]);
  // The logged function text is cut to 100 characters.
  const std::string function =
      " " + std::string("void VIO::setupUndistortMap(const VIO::IntrinsicCamera &, bool, float, "
                        "AR::Common::ArrayView<AR::CV::ImageFloat> &)")
                .substr(0, 100) +
      "\n";
  {
    AR::Test::LogCapture log;
    std::array<Image<float>, 1> one{Image<float>(Vec2I(kWidth, kHeight))};
    AR::Common::ArrayView<Image<float>> view(one);
    VIO::setupUndistortMap(camera, false, 1.0f, view);
    EXPECT_TRUE(log.has("AR ERROR: AR_ASSERT mapXY.size() == 2 VIO/src/StereoRectify(65)" + function));
    EXPECT_TRUE(log.has("AR ERROR: AR_ASSERT mapXY[1].size() == size VIO/src/StereoRectify(67)" +
                        function));
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 2u);
    EXPECT_EQ(one[0].at(5, 5), -1.0f);  // cleared, though there is no pair to fill
  }
  {
    AR::Test::LogCapture log;
    MapPair small(Vec2I(100, 50));
    VIO::setupUndistortMap(camera, false, 1.0f, small.view);
    EXPECT_TRUE(log.has("AR ERROR: AR_ASSERT mapXY[0].size() == size VIO/src/StereoRectify(66)" +
                        function));
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 2u);  // one report per image, not per pixel
    // The pixels the small image does have are those of the full map.
    MapPair full;
    VIO::setupUndistortMap(camera, false, 1.0f, full.view);
    EXPECT_EQ(small.x(99, 49), full.x(99, 49));
    EXPECT_EQ(small.y(10, 20), full.y(10, 20));
  }
}

TEST(UndistortMap, FailedVirtualCameraIsReportedAndLeavesNoEntries) {
  AR::Test::LogCapture log;
  const Camera<float> camera = makeCamera(kLenses[2]);
  MapPair maps;
  testing::internal::CaptureStdout();
  // The entry point refuses such factors; the builder on its own reports them.
  VIO::setupUndistortMap(camera, true, 0.0f, maps.view);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: Focal length should be positive\n");
  EXPECT_EQ(log.countContaining("AR_ASSERT success VIO/src/StereoRectify(64)"), 1u);
  for (int y = 0; y < kHeight; y += 7)
    for (int x = 0; x < kWidth; x += 7) ASSERT_FALSE(maps.valid(x, y));
}

}  // namespace
