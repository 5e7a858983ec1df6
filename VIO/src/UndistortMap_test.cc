#include "UndistortMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "AR/Math/SE3.h"
#include "LogCapture.h"
#include "RecordRig.h"

namespace {

using AR::CV::Camera;
using AR::CV::Image;
using Vec2F = AR::Math::Vector<float, 2>;
using Vec2I = AR::Math::Vector<int, 2>;

constexpr int kWidth = 640;
constexpr int kHeight = 480;

Camera<float> makeCamera(const RecordRig::LensCase& lens) {
  AR::Math::Vector<float, 6> k;
  for (size_t i = 0; i < lens.k.size(); ++i) k(int(i)) = float(lens.k[i]);
  Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(float(kWidth), float(kHeight)), Vec2F(280.0f, 281.0f), Vec2F(320.5f, 240.25f), k,
                          Vec2F(float(lens.p1), float(lens.p2)), DistortionModel(lens.model)));
  return camera;
}

struct MapPair {
  std::array<Image<float>, 2> images{Image<float>(Vec2I(kWidth, kHeight)),
                                     Image<float>(Vec2I(kWidth, kHeight))};
  AR::Common::ArrayView<Image<float>> view{images};
  Vec2F at(int x, int y) const { return Vec2F(images[0].at(x, y), images[1].at(x, y)); }
  bool valid(int x, int y) const { return at(x, y) != Vec2F(-1.0f, -1.0f); }
  bool inImage(int x, int y) const {
    return at(x, y)(0) >= 0.0f && at(x, y)(0) < kWidth && at(x, y)(1) >= 0.0f && at(x, y)(1) < kHeight;
  }
};

class UndistortMapLens : public testing::TestWithParam<RecordRig::LensCase> {};

TEST_P(UndistortMapLens, EverySourceLiesOnTheVirtualCamerasRayAndLargerFactorsNarrowTheView) {
  const Camera<float> camera = makeCamera(GetParam());
  const auto& model = camera.getCamModel();
  // The map goes through the distortion spline, the check back through the
  // undistortion spline: their reported errors (in the factor, so scaled by
  // the radius) bound the miss, with rounding of float pixels on top.
  const float splineErrors =
      camera.getDistortionSpline().testAccuracy([&](float r2) { return model.distortionFactor(r2); }) +
      camera.getUndistortionSpline().testAccuracy([&](float r2) { return model.undistortionFactor(r2); });
  const Vec2F pp = camera.getPrincipalPoint();
  const float factors[2] = {1.0f, 1.4f};
  MapPair maps[2];
  size_t numValid[2] = {0, 0};
  for (size_t k = 0; k < 2; ++k) {
    VIO::setupUndistortMap(camera, false, factors[k], maps[k].view);
    const Vec2F f = camera.getCorrectedFocalLengthVec() * factors[k];
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x) {
        if (!maps[k].valid(x, y)) continue;
        ++numValid[k];
        ASSERT_TRUE(maps[k].inImage(x, y)) << x << "," << y;
        // The narrower view sees a ray nearer the axis: its source lies nearer the centre.
        if (k == 1 && maps[0].valid(x, y) && norm(maps[0].at(x, y) - pp) > 2.0f) {
          ASSERT_LT(norm(maps[1].at(x, y) - pp), norm(maps[0].at(x, y) - pp)) << x << "," << y;
        }
        if (GetParam().model == LINEAR && k == 0) {  // no distortion and factor 1: the identity
          ASSERT_LE(norm(maps[k].at(x, y) - Vec2F(float(x), float(y))), 1e-3f) << x << "," << y;
        }
        Vec2F ideal;
        ASSERT_TRUE(camera.tryPixel2ideal(maps[k].at(x, y), ideal)) << x << "," << y;
        const Vec2F ray((float(x) - pp(0)) / f(0), (float(y) - pp(1)) / f(1));
        const float r = norm(ray);
        const float tolerance = 4.0f * (1.0f + r) * (1.0f + r) * splineErrors + 2e-5f * (1.0f + r);
        ASSERT_LE(std::max(std::fabs(ideal(0) - ray(0)), std::fabs(ideal(1) - ray(1))), tolerance)
            << "fov " << factors[k] << " at (" << x << ", " << y << ") r=" << r;
      }
    EXPECT_GT(numValid[k], size_t(kWidth * kHeight) / 2);  // a real lens covers most of the view
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
      ASSERT_EQ(inside.at(x, y)(0) == -1.0f, inside.at(x, y)(1) == -1.0f) << x << "," << y;
      if (inside.valid(x, y)) {
        ASSERT_EQ(inside.at(x, y), all.at(x, y));
      } else if (all.valid(x, y)) {
        ASSERT_FALSE(all.inImage(x, y)) << x << "," << y;
        ++outside;
      }
    }
  EXPECT_GT(outside, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    LensModels, UndistortMapLens, testing::ValuesIn(RecordRig::realisticLenses()),
    [](const testing::TestParamInfo<RecordRig::LensCase>& info) { return info.param.name; });

TEST(UndistortMap, ViewMismatchesAndAFailedVirtualCameraAreReported) {
  const Camera<float> camera = makeCamera(RecordRig::realisticLenses()[2]);
  const std::string function =  // cut to 100 characters
      ") void VIO::setupUndistortMap(const VIO::IntrinsicCamera &, bool, float, "
      "AR::Common::ArrayView<AR::CV:\n";
  const std::string source = " VIO/src/StereoRectify(";
  AR::Test::LogCapture log;
  std::array<Image<float>, 1> one{Image<float>(Vec2I(100, 50))};
  AR::Common::ArrayView<Image<float>> view(one);
  VIO::setupUndistortMap(camera, false, 1.0f, view);
  MapPair maps;
  // The entry point refuses such factors; the builder on its own reports them.
  VIO::setupUndistortMap(camera, true, 0.0f, maps.view);
  for (const std::string& line :
       {"mapXY.size() == 2" + source + "65" + function, "mapXY[0].size() == size" + source + "66" + function,
        "mapXY[1].size() == size" + source + "67" + function, "success" + source + "64" + function})
    EXPECT_TRUE(log.has("AR ERROR: AR_ASSERT " + line)) << line;
  for (int y = 0; y < kHeight; y += 7)
    for (int x = 0; x < kWidth; x += 7) ASSERT_FALSE(maps.valid(x, y));
}

}  // namespace
