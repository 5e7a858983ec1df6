#include "VSTMap.h"

#include <gtest/gtest.h>

#include <cmath>

#include "LogCapture.h"

namespace {

using AR::CV::Camera;
using AR::CV::Image;
using AR::Math::SE3;
using AR::Math::Vec2F;
using AR::Math::Vec2I;
using AR::Math::Vec3F;

Camera<float> linearCamera(float width, float height, float f) {
  Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(width, height), Vec2F(f, f), Vec2F(width / 2, height / 2),
                          AR::Math::Vector<float, 6>(), Vec2F(), LINEAR));
  return camera;
}

SE3<float> shift(float x, float y, float z) { return SE3<float>(AR::Math::SO3<float>(), Vec3F(x, y, z)); }

struct Maps {
  std::array<Image<float>, 2> images;
  AR::Common::ArrayView<Image<float>> view{images};
  std::array<Image<float>, 3> points;
  explicit Maps(Vec2I size) {
    for (auto& image : images) image.allocPixels(size, AR::Common::MEMORY_ALIGNMENT_16, false);
  }
  void build(const Camera<float>& source, const Camera<float>& eye, bool allowOut, const SE3<float>& T,
             float depth) {
    VIO::setupVSTMap(source, eye, allowOut, T, view, points, depth);
  }
  float x(int px, int py) const { return images[0].at(px, py); }
  float y(int px, int py) const { return images[1].at(px, py); }
};

// Tracking camera 640x480 with f = 300 and an eye 200x160 with f = 150,
// neither rotated nor distorted.
class VSTMap : public testing::Test {
 protected:
  const Camera<float> kSource = linearCamera(640.0f, 480.0f, 300.0f);
  const Camera<float> kEye = linearCamera(200.0f, 160.0f, 150.0f);
  const Camera<float> kSmallEye = linearCamera(40.0f, 30.0f, 30.0f);
};

// An eye displaced by t from the camera sees the plane at depth d at
// sx = 2 (x - 100) + 320 + 300 t.x / d (likewise in y): nearer planes shift
// more. The scratch images hold the plane points.
TEST_F(VSTMap, ParallaxShiftIsInverselyProportionalToPlaneDepth) {
  for (float depth : {0.25f, 1.0f, 8.0f}) {
    Maps maps(Vec2I(200, 160));
    AR::Test::LogCapture log;
    maps.build(kSource, kEye, false, shift(0.03f, -0.01f, 0.0f), depth);
    EXPECT_TRUE(log.has("AR DEBUG: setupVSTMap::targetSize(200.000000,160.000000)\n"));
    for (int y = 0; y < 160; y += 7)
      for (int x = 0; x < 200; x += 7) {
        ASSERT_NEAR(maps.x(x, y), 2.0f * float(x - 100) + 320.0f + 9.0f / depth, 2e-3f) << depth;
        ASSERT_NEAR(maps.y(x, y), 2.0f * float(y - 80) + 240.0f - 3.0f / depth, 2e-3f) << depth;
        EXPECT_NEAR(maps.points[0].at(x, y), float(x - 100) / 150.0f * depth, 1e-5f * depth);
        EXPECT_NEAR(maps.points[1].at(x, y), float(y - 80) / 150.0f * depth, 1e-5f * depth);
        EXPECT_EQ(maps.points[2].at(x, y), depth);
      }
  }
}

// A source outside the camera image is -1.0 unless allowOutOfImage keeps it.
TEST_F(VSTMap, AllowOutOfImageKeepsSourcesOutsideTheImage) {
  const Camera<float> wideEye = linearCamera(400.0f, 300.0f, 150.0f);  // sx = 2 (x - 200) + 320
  for (bool allowOut : {false, true}) {
    Maps maps(Vec2I(400, 300));
    maps.build(kSource, wideEye, allowOut, shift(0.0f, 0.0f, 0.0f), 1.0f);
    EXPECT_NEAR(maps.x(100, 150), 120.0f, 1e-3f);
    EXPECT_NEAR(maps.x(10, 150), allowOut ? -60.0f : -1.0f, 1e-3f);
    EXPECT_NEAR(maps.x(370, 150), allowOut ? 660.0f : -1.0f, 1e-3f);
    EXPECT_NEAR(maps.y(200, 299), allowOut ? 538.0f : -1.0f, 1e-3f);
  }
}

// With f = 10 the eye's corners lie beyond the valid radius of 9: each such
// pixel is reported and keeps -1.0 in the maps and in the (reallocated)
// scratch images.
TEST_F(VSTMap, PixelsThatCannotBeUnprojectedKeepMinusOne) {
  const Camera<float> wideEye = linearCamera(300.0f, 240.0f, 10.0f);
  Maps maps(Vec2I(300, 240));
  for (auto& image : maps.points) image.allocPixels(Vec2I(7, 3), AR::Common::MEMORY_ALIGNMENT_16, false);
  AR::Test::LogCapture log;
  maps.build(kSource, wideEye, true, shift(0.0f, 0.0f, 0.0f), 1.0f);
  size_t none = 0;
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 300; ++x) {
      const float dx = float(x - 150) / 10.0f, dy = float(y - 120) / 10.0f;
      if (dx * dx + dy * dy < 81.0f) continue;
      ++none;
      for (const auto& image : maps.points) ASSERT_EQ(image.at(x, y), -1.0f);
      ASSERT_EQ(maps.x(x, y), -1.0f);
      ASSERT_EQ(maps.y(x, y), -1.0f);
    }
  EXPECT_GT(none, 0u);
  EXPECT_EQ(log.countContaining("AR_ASSERT success VIO/src/StereoRectify("), none);
}

// Plane points behind the camera, or less than 0.01 in front of it, have no
// source; a little further away they project.
TEST_F(VSTMap, PointsCloserThanOneCentimetreHaveNoSource) {
  Maps maps(Vec2I(40, 30));
  maps.build(kSource, kSmallEye, true, SE3<float>::exp(AR::Math::Vector<float, 6>(0, 0, 0, 0, AR_PI, 0)), 1.0f);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) ASSERT_EQ(maps.x(x, y), -1.0f);
  EXPECT_EQ(maps.points[2].at(5, 5), 1.0f);  // the plane point itself exists

  // Offsets exact in float: 0.0078125 and 0.015625 in front of the camera.
  maps.build(kSource, kSmallEye, true, shift(0.0f, 0.0f, -0.9921875f), 1.0f);
  EXPECT_EQ(maps.x(20, 15), -1.0f);
  maps.build(kSource, kSmallEye, true, shift(0.0f, 0.0f, -0.984375f), 1.0f);
  EXPECT_NEAR(maps.x(20, 15), 320.0f, 1e-3f);
}

// Maps of the wrong count or size are reported and written only where they
// have pixels.
TEST_F(VSTMap, MismatchedMapsAreReportedAndWrittenOnlyInside) {
  Maps maps(Vec2I(20, 50));
  AR::Test::LogCapture log;
  maps.build(kSource, kSmallEye, false, shift(0.0f, 0.0f, 0.0f), 1.0f);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[0].size() == size "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[1].size() == size "), 1u);
  EXPECT_NEAR(maps.x(19, 29), 10.0f * (19 - 20) + 320.0f, 1e-3f);
  EXPECT_EQ(maps.x(5, 30), -1.0f);

  Maps one(Vec2I(40, 30));
  one.view = AR::Common::ArrayView<Image<float>>(one.images.data(), 1);
  log.clear();
  one.build(kSource, kSmallEye, false, shift(0.0f, 0.0f, 0.0f), 1.0f);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY.size() == 2 "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[1].size() == size "), 1u);
  EXPECT_NEAR(one.x(39, 29), 10.0f * 19 + 320.0f, 1e-3f);
}

}  // namespace
