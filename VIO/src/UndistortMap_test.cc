#include "UndistortMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "AR/Math/SE3.h"
#include "RecordRig.h"

namespace {

using AR::CV::Image;
using Vec2F = AR::Math::Vector<float, 2>;
using Vec2I = AR::Math::Vector<int, 2>;

constexpr int kWidth = 640, kHeight = 480;

AR::CV::Camera<float> makeCamera(const RecordRig::LensCase& lens) {
  AR::Math::Vector<float, 6> k;
  for (size_t i = 0; i < lens.k.size(); ++i) k(int(i)) = float(lens.k[i]);
  AR::CV::Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(float(kWidth), float(kHeight)), Vec2F(280.0f, 281.0f), Vec2F(320.5f, 240.25f), k,
                          Vec2F(float(lens.p1), float(lens.p2)), DistortionModel(lens.model)));
  return camera;
}

struct MapPair {
  std::array<Image<float>, 2> images{Image<float>(Vec2I(kWidth, kHeight)), Image<float>(Vec2I(kWidth, kHeight))};
  AR::Common::ArrayView<Image<float>> view{images};
  Vec2F at(int x, int y) const { return Vec2F(images[0].at(x, y), images[1].at(x, y)); }
  bool valid(int x, int y) const { return at(x, y) != Vec2F(-1.0f, -1.0f); }
  bool inImage(int x, int y) const {
    const Vec2F s = at(x, y);
    return s(0) >= 0.0f && s(0) < float(kWidth) && s(1) >= 0.0f && s(1) < float(kHeight);
  }
};

class UndistortMapLens : public testing::TestWithParam<RecordRig::LensCase> {};

TEST_P(UndistortMapLens, SourcesLieOnTheVirtualRaysAndOutsideSourcesComeOnlyWhenAllowed) {
  const AR::CV::Camera<float> camera = makeCamera(GetParam());
  const auto& model = camera.getCamModel();
  // The map goes through the distortion spline, the check back through the undistortion spline: their
  // reported errors (in the factor, so scaled by the radius) bound the miss, plus float rounding.
  const float splineErrors =
      camera.getDistortionSpline().testAccuracy([&](float r2) { return model.distortionFactor(r2); }) +
      camera.getUndistortionSpline().testAccuracy([&](float r2) { return model.undistortionFactor(r2); });
  const Vec2F pp = camera.getPrincipalPoint();
  // Half the focal length doubles the view, so its border sees past the image.
  const float factors[3] = {0.5f, 1.0f, 1.4f};
  MapPair maps[3], withOutside;
  VIO::setupUndistortMap(camera, true, 0.5f, withOutside.view);
  size_t numValid[3] = {0, 0, 0}, numOutside = 0;
  for (size_t k = 0; k < 3; ++k) {
    VIO::setupUndistortMap(camera, false, factors[k], maps[k].view);
    const Vec2F f = camera.getCorrectedFocalLengthVec() * factors[k];
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x) {
        const Vec2F source = maps[k].at(x, y);
        ASSERT_EQ(source(0) == -1.0f, source(1) == -1.0f) << x << "," << y;  // no source: both exactly -1
        if (k == 0 && withOutside.at(x, y) != source) {  // only sources outside the image are added
          ASSERT_FALSE(maps[0].valid(x, y) || withOutside.inImage(x, y)) << x << "," << y;
          ++numOutside;
        }
        if (!maps[k].valid(x, y)) continue;
        ++numValid[k];
        ASSERT_TRUE(maps[k].inImage(x, y)) << x << "," << y;
        // A narrower view sees a ray nearer the axis: its source lies nearer the centre.
        if (k > 0 && maps[k - 1].valid(x, y) && norm(maps[k - 1].at(x, y) - pp) > 2.0f) {
          ASSERT_LT(norm(source - pp), norm(maps[k - 1].at(x, y) - pp)) << x << "," << y;
        }
        if (GetParam().model == LINEAR && k == 1) {  // no distortion and factor 1: the identity
          ASSERT_LE(norm(source - Vec2F(float(x), float(y))), 1e-3f) << x << "," << y;
        }
        if (k == 0) continue;  // the wide view's border lies past the undistortion spline's range
        Vec2F ideal;
        ASSERT_TRUE(camera.tryPixel2ideal(source, ideal)) << x << "," << y;
        const Vec2F ray((float(x) - pp(0)) / f(0), (float(y) - pp(1)) / f(1));
        const float r = norm(ray);
        const float tolerance = 4.0f * (1.0f + r) * (1.0f + r) * splineErrors + 2e-5f * (1.0f + r);
        ASSERT_LE(std::max(std::fabs(ideal(0) - ray(0)), std::fabs(ideal(1) - ray(1))), tolerance)
            << "fov " << factors[k] << " at (" << x << ", " << y << ") r=" << r;
      }
  }
  EXPECT_GT(numOutside, 0u);
  EXPECT_GT(numValid[1], size_t(kWidth * kHeight) / 2);  // a real lens covers most of its view
}

INSTANTIATE_TEST_SUITE_P(
    LensModels, UndistortMapLens, testing::ValuesIn(RecordRig::realisticLenses()),
    [](const testing::TestParamInfo<RecordRig::LensCase>& info) { return info.param.name; });

}  // namespace
