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

/// A centred camera without distortion; valid up to r^2 = 81.
Camera<float> linearCamera(float width, float height, float f) {
  Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(width, height), Vec2F(f, f), Vec2F(width / 2, height / 2),
                          AR::Math::Vector<float, 6>(), Vec2F(), LINEAR));
  return camera;
}

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

// An eye (f = 150) at t from the camera sees its pixel x on the plane at depth
// d at X = (x - 200) / 150 d; the camera (f = 300) sees that point at
// sx = 300 (X + t.x) / (d + t.z) + 320 (likewise in y): nearer planes shift
// more. Points less than 0.01 in front of the camera (offsets exact in float)
// or beyond its valid radius have no source; sources outside the image are
// -1.0 unless allowOutOfImage keeps them. The scratch images hold the plane points.
TEST(VSTMap, EntriesAreThePinholeProjectionsOfThePlanePoints) {
  const Camera<float> eye = linearCamera(400.0f, 300.0f, 150.0f);
  const struct {
    float tx, ty, tz, depth;
  } cases[] = {{0.03f, -0.01f, 0.0f, 0.25f},
               {0.03f, -0.01f, 0.0f, 1.0f},
               {0.03f, -0.01f, 0.0f, 8.0f},
               {0.0f, 0.0f, -0.9921875f, 1.0f},
               {0.0f, 0.0f, -0.984375f, 1.0f}};
  for (const auto& c : cases)
    for (bool allowOut : {false, true}) {
      Maps maps(Vec2I(400, 300));
      AR::Test::LogCapture log;
      maps.build(eye, allowOut, SE3<float>(AR::Math::SO3<float>(), AR::Math::Vec3F(c.tx, c.ty, c.tz)), c.depth);
      EXPECT_TRUE(log.has("AR DEBUG: setupVSTMap::targetSize(400.000000,300.000000)\n"));
      for (int y = 0; y < 300; y += 7)
        for (int x = 0; x < 400; x += 7) {
          const float X = float(x - 200) / 150.0f * c.depth, Y = float(y - 150) / 150.0f * c.depth;
          const float sx = 300.0f * (X + c.tx) / (c.depth + c.tz) + 320.0f;
          const float sy = 300.0f * (Y + c.ty) / (c.depth + c.tz) + 240.0f;
          const bool inside = sx >= 0.0f && sx < 640.0f && sy >= 0.0f && sy < 480.0f;
          const float rSq = ((sx - 320.0f) * (sx - 320.0f) + (sy - 240.0f) * (sy - 240.0f)) / 90000.0f;
          const bool kept = c.depth + c.tz >= 0.01f && rSq < 81.0f && (allowOut || inside);
          const float tol = 2e-3f + 1e-6f * std::fabs(sx) + 1e-6f * std::fabs(sy);
          ASSERT_NEAR(maps.x(x, y), kept ? sx : -1.0f, tol) << c.tz << " " << c.depth << " " << x << " " << y;
          ASSERT_NEAR(maps.y(x, y), kept ? sy : -1.0f, tol) << c.tz << " " << c.depth << " " << x << " " << y;
          ASSERT_NEAR(maps.points[0].at(x, y), X, 1e-5f * c.depth);
          ASSERT_NEAR(maps.points[1].at(x, y), Y, 1e-5f * c.depth);
          ASSERT_EQ(maps.points[2].at(x, y), c.depth);
        }
    }
}

}  // namespace
