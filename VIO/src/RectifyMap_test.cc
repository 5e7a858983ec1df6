#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "LogCapture.h"
#include "RectifyMap.h"

namespace {

using AR::CV::FullCamera;
using AR::CV::Image;
using AR::Math::SO3;
using AR::Test::LogCapture;

/// A distortion-free camera at the rig origin, principal point in the centre.
FullCamera<float> pinhole(float width, float height, float focal) {
  CamModel::CameraModel<float> model;
  model.size = AR::Math::Vec2F(width, height);
  model.focalLength = AR::Math::Vec2F(focal, focal);
  model.principalPoint = AR::Math::Vec2F(width / 2, height / 2);
  FullCamera<float> camera;
  camera.init(model, AR::Math::SE3<float>(), AR::CV::CamImageId("cam"), false, 0.0f, AR::CV::CaptureDetails(), 0.0);
  return camera;
}

/// The X and Y maps, `width` x `height`, of `target` from `source` through S.
std::array<Image<float>, 2> build(const FullCamera<float>& source, const FullCamera<float>& target,
                                  const SO3<float>& S, int width, int height) {
  std::array<Image<float>, 2> maps;
  for (Image<float>& image : maps)
    image.allocPixels(AR::Math::Vec2I(width, height), AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);
  AR::Common::ArrayView<Image<float>> view(maps.data(), 2);
  VIO::setupRectifyMap(source, true, target, S, view);
  return maps;
}

TEST(SetupRectifyMap, RaysPointingBackwardsKeepTheInvalidValue) {
  // Turned by 60 degrees about y, columns from 129 on have d.z < 0.01; far
  // right the rays point backwards yet their x/z would fall on the source.
  // Columns 120..128 are skipped: beyond the valid radius of 9 either way.
  const auto maps = build(pinhole(64, 48, 50), pinhole(200, 48, 50), SO3<float>::exp({0, float(M_PI / 3), 0}), 200, 48);
  for (int x = 0; x < 120; ++x) EXPECT_NE(maps[0].at(x, 24), -1.0f) << x;
  for (int x = 129; x < 200; ++x) EXPECT_EQ(maps[0].at(x, 24), -1.0f) << x;
}

TEST(SetupRectifyMap, FailedPixelsReuseThePreviousIdealPoint) {
  // Focal length 10 on 200 x 100: pixels 90 or more from the principal point
  // (9 focal lengths) cannot be made ideal.
  const FullCamera<float> camera = pinhole(200, 100, 10);
  LogCapture log;
  const auto maps = build(camera, camera, SO3<float>(), 200, 100);
  EXPECT_GT(log.countContaining("AR_ASSERT success VIO/src/StereoRectify(40) void VIO::setupRectifyMap("), 0u);
  // Row 50 succeeds for x = 11..189; the pixels after it, and the first ones
  // of the next row, repeat the last good entry.
  EXPECT_NEAR(maps[0].at(189, 50), 189.0f, 1e-3f);
  for (int x = 190; x < 200; ++x) EXPECT_EQ(maps[1].at(x, 50), maps[1].at(189, 50));
  for (int x = 0; x < 11; ++x) EXPECT_EQ(maps[0].at(x, 51), maps[0].at(189, 50));
  EXPECT_EQ(maps[0].at(0, 0), -1.0f);  // nothing precedes the very first pixel, which fails
}

}  // namespace
