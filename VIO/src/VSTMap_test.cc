#include "VSTMap.h"

#include <gtest/gtest.h>

#include "LogCapture.h"

namespace {

using AR::CV::Camera;
using AR::CV::Image;
using AR::Math::SE3;
using AR::Math::Vec2F;
using AR::Math::Vec2I;

/// A centred camera without distortion; valid up to r^2 = 81.
Camera<float> linearCamera(float width, float height, float f) {
  Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(width, height), Vec2F(f, f), Vec2F(width / 2, height / 2),
                          AR::Math::Vector<float, 6>(), Vec2F(), LINEAR));
  return camera;
}

SE3<float> shift(float x, float y, float z) { return SE3<float>(AR::Math::SO3<float>(), AR::Math::Vec3F(x, y, z)); }

/// The two maps (of `size`) and the scratch images of one eye, built against
/// a 640x480 tracking camera with f = 300.
struct Maps {
  std::array<Image<float>, 2> images;
  AR::Common::ArrayView<Image<float>> view{images};
  std::array<Image<float>, 3> points;
  explicit Maps(Vec2I size) : images{Image<float>(size), Image<float>(size)} {}
  void build(const Camera<float>& eye, bool allowOut, const SE3<float>& eyeTransform, float depth) {
    VIO::setupVSTMap(linearCamera(640.0f, 480.0f, 300.0f), eye, allowOut, eyeTransform, view, points, depth);
  }
  float x(int px, int py) const { return images[0].at(px, py); }
  float y(int px, int py) const { return images[1].at(px, py); }
};

// An eye (f = 150) displaced by t from the camera sees the plane at depth d at
// sx = 2 (x - 200) + 320 + 300 t.x / d (likewise in y): nearer planes shift
// more. Sources outside the camera image are -1.0 unless allowOutOfImage keeps
// them. The scratch images hold the plane points.
TEST(VSTMap, ParallaxShiftIsInverselyProportionalToPlaneDepth) {
  const Camera<float> eye = linearCamera(400.0f, 300.0f, 150.0f);
  for (float depth : {0.25f, 1.0f, 8.0f})
    for (bool allowOut : {false, true}) {
      Maps maps(Vec2I(400, 300));
      AR::Test::LogCapture log;
      maps.build(eye, allowOut, shift(0.03f, -0.01f, 0.0f), depth);
      EXPECT_TRUE(log.has("AR DEBUG: setupVSTMap::targetSize(400.000000,300.000000)\n"));
      for (int y = 0; y < 300; y += 7)
        for (int x = 0; x < 400; x += 7) {
          const float sx = 2.0f * float(x - 200) + 320.0f + 9.0f / depth;
          const float sy = 2.0f * float(y - 150) + 240.0f - 3.0f / depth;
          const bool kept = allowOut || (sx >= 0.0f && sx < 640.0f && sy >= 0.0f && sy < 480.0f);
          ASSERT_NEAR(maps.x(x, y), kept ? sx : -1.0f, 2e-3f) << depth << " " << allowOut;
          ASSERT_NEAR(maps.y(x, y), kept ? sy : -1.0f, 2e-3f) << depth << " " << allowOut;
          ASSERT_NEAR(maps.points[0].at(x, y), float(x - 200) / 150.0f * depth, 1e-5f * depth);
          ASSERT_NEAR(maps.points[1].at(x, y), float(y - 150) / 150.0f * depth, 1e-5f * depth);
          ASSERT_EQ(maps.points[2].at(x, y), depth);
        }
    }
}

// With f = 10 the eye's corners lie beyond the valid radius of 9: they keep
// -1.0 in the maps and in the (reallocated) scratch images, and each is
// reported. Plane points less than 0.01 in front of the camera have no
// source (offsets exact in float: 0.0078125 and 0.015625).
TEST(VSTMap, PixelsWithoutAPlanePointOrTooCloseKeepMinusOne) {
  Maps maps(Vec2I(300, 240));
  for (auto& image : maps.points) image.allocPixels(Vec2I(7, 3), AR::Common::MEMORY_ALIGNMENT_16, false);
  AR::Test::LogCapture log;
  maps.build(linearCamera(300.0f, 240.0f, 10.0f), true, shift(0.0f, 0.0f, 0.0f), 1.0f);
  size_t none = 0;
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 300; ++x) none += (x - 150) * (x - 150) + (y - 120) * (y - 120) >= 8100;
  EXPECT_EQ(log.countContaining("AR_ASSERT success VIO/src/StereoRectify("), none);
  for (const auto& image : {&maps.images[0], &maps.images[1], &maps.points[0], &maps.points[1], &maps.points[2]})
    EXPECT_EQ(image->at(299, 0), -1.0f);

  const Camera<float> eye = linearCamera(300.0f, 240.0f, 150.0f);
  maps.build(eye, true, shift(0.0f, 0.0f, -0.9921875f), 1.0f);
  EXPECT_EQ(maps.x(150, 120), -1.0f);
  EXPECT_EQ(maps.points[2].at(150, 120), 1.0f);  // the plane point itself exists
  maps.build(eye, true, shift(0.0f, 0.0f, -0.984375f), 1.0f);
  EXPECT_NEAR(maps.x(150, 120), 320.0f, 1e-3f);
}

}  // namespace
