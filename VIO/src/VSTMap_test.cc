#include "VSTMap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using AR::CV::Camera;
using AR::CV::Image;
using AR::Math::SE3;
using AR::Math::SO3;
using Vec2F = AR::Math::Vector<float, 2>;
using Vec2I = AR::Math::Vector<int, 2>;
using Vec3F = AR::Math::Vector<float, 3>;
using Vec6F = AR::Math::Vector<float, 6>;

Camera<float> linearCamera(float width, float height, float f, float cx, float cy) {
  Camera<float> camera;
  EXPECT_TRUE(camera.init(Vec2F(width, height), Vec2F(f, f), Vec2F(cx, cy), Vec6F(), Vec2F(), LINEAR));
  return camera;
}

struct Maps {
  std::array<Image<float>, 2> images;
  AR::Common::ArrayView<Image<float>> view{images};
  std::array<Image<float>, 3> points;
  explicit Maps(Vec2I size) {
    for (auto& image : images) image.allocPixels(size, AR::Common::MEMORY_ALIGNMENT_16, false);
  }
  float x(int px, int py) const { return images[0].at(px, py); }
  float y(int px, int py) const { return images[1].at(px, py); }
};

SE3<float> translation(float x, float y, float z) { return SE3<float>(SO3<float>(), Vec3F(x, y, z)); }

// Source 640x480 with f = 300, eye 200x160 with f = 150: without rotation
// and distortion, a plane at depth d seen by an eye displaced by t from the
// camera gives sx = 2 (x - 100) + 320 + 300 t.x / d (and likewise in y).
class VSTMapParallax : public testing::Test {
 protected:
  Camera<float> source = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  Camera<float> eye = linearCamera(200.0f, 160.0f, 150.0f, 100.0f, 80.0f);
};

TEST_F(VSTMapParallax, ShiftIsInverselyProportionalToPlaneDepth) {
  const SE3<float> eyeToCamera = translation(0.03f, -0.01f, 0.0f);
  const float depths[] = {0.25f, 0.5f, 1.0f, 2.0f, 8.0f};
  float previousShift = INFINITY;
  for (float depth : depths) {
    Maps maps(Vec2I(200, 160));
    VIO::setupVSTMap(source, eye, false, eyeToCamera, maps.view, maps.points, depth);
    const float shiftX = 300.0f * 0.03f / depth;
    const float shiftY = 300.0f * -0.01f / depth;
    for (int y = 0; y < 160; y += 7)
      for (int x = 0; x < 200; x += 7) {
        ASSERT_NEAR(maps.x(x, y), 2.0f * float(x - 100) + 320.0f + shiftX, 2e-3f) << depth;
        ASSERT_NEAR(maps.y(x, y), 2.0f * float(y - 80) + 240.0f + shiftY, 2e-3f) << depth;
      }
    // Nearer planes shift the map further from where infinity would be.
    EXPECT_LT(shiftX, previousShift);
    previousShift = shiftX;
  }
}

TEST_F(VSTMapParallax, PointsHoldThePlanePoints) {
  Maps maps(Vec2I(200, 160));
  VIO::setupVSTMap(source, eye, false, translation(0.0f, 0.0f, 0.0f), maps.view, maps.points, 2.5f);
  for (const auto& image : maps.points) EXPECT_EQ(image.size(), Vec2I(200, 160));
  for (int y = 0; y < 160; y += 5)
    for (int x = 0; x < 200; x += 5) {
      EXPECT_NEAR(maps.points[0].at(x, y), float(x - 100) / 150.0f * 2.5f, 1e-5f);
      EXPECT_NEAR(maps.points[1].at(x, y), float(y - 80) / 150.0f * 2.5f, 1e-5f);
      EXPECT_EQ(maps.points[2].at(x, y), 2.5f);
    }
}

TEST(VSTMap, PixelsThatCannotBeUnprojectedKeepMinusOneEverywhere) {
  // With f = 10 the corners lie beyond the valid radius of 9 focal lengths.
  const Camera<float> source = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  const Camera<float> eye = linearCamera(300.0f, 240.0f, 10.0f, 150.0f, 120.0f);
  Maps maps(Vec2I(300, 240));
  // Scratch images of another size are reallocated to the eye's size.
  for (auto& image : maps.points) image.allocPixels(Vec2I(7, 3), AR::Common::MEMORY_ALIGNMENT_16, false);
  AR::Test::LogCapture log;
  VIO::setupVSTMap(source, eye, true, translation(0.0f, 0.0f, 0.0f), maps.view, maps.points, 1.0f);
  size_t none = 0;
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 300; ++x) {
      const float dx = float(x - 150) / 10.0f, dy = float(y - 120) / 10.0f;
      const bool unprojects = dx * dx + dy * dy < 81.0f;
      if (unprojects) {
        EXPECT_EQ(maps.points[2].at(x, y), 1.0f);
        continue;
      }
      ++none;
      for (const auto& image : maps.points) EXPECT_EQ(image.at(x, y), -1.0f);
      EXPECT_EQ(maps.x(x, y), -1.0f);
      EXPECT_EQ(maps.y(x, y), -1.0f);
    }
  EXPECT_GT(none, 0u);
  EXPECT_EQ(log.countContaining("AR_ASSERT success VIO/src/StereoRectify("), none);
}

TEST(VSTMap, PlanePointsBehindTheCameraHaveNoSource) {
  const Camera<float> source = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  const Camera<float> eye = linearCamera(40.0f, 30.0f, 30.0f, 20.0f, 15.0f);
  // The camera looks the other way (rotated by pi about y).
  const SE3<float> backwards =
      SE3<float>::exp(AR::Math::Vector<float, 6>(0.0f, 0.0f, 0.0f, 0.0f, AR_PI, 0.0f));
  Maps maps(Vec2I(40, 30));
  VIO::setupVSTMap(source, eye, true, backwards, maps.view, maps.points, 1.0f);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      EXPECT_EQ(maps.x(x, y), -1.0f);
      EXPECT_EQ(maps.y(x, y), -1.0f);
      EXPECT_EQ(maps.points[2].at(x, y), 1.0f);  // the plane point itself exists
    }
  // A plane point closer than 0.01 in front of the camera is skipped too; a
  // little further away it projects. (Offsets exact in float.)
  const Camera<float> narrow = linearCamera(4.0f, 4.0f, 400.0f, 2.0f, 2.0f);
  Maps close(Vec2I(4, 4));
  VIO::setupVSTMap(source, narrow, true, translation(0.0f, 0.0f, -0.4921875f), close.view, close.points,
                   0.5f);  // 0.0078125 in front
  EXPECT_EQ(close.x(2, 2), -1.0f);
  VIO::setupVSTMap(source, narrow, true, translation(0.0f, 0.0f, -0.484375f), close.view, close.points,
                   0.5f);  // 0.015625 in front
  EXPECT_NEAR(close.x(2, 2), 320.0f, 1e-3f);
}

TEST(VSTMap, BadPlaneDepthsAreReportedAndDefined) {
  const Camera<float> source = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  const Camera<float> eye = linearCamera(6.0f, 4.0f, 30.0f, 3.0f, 2.0f);
  for (float depth : {0.0f, -1.0f, NAN}) {
    Maps maps(Vec2I(6, 4));
    AR::Test::LogCapture log;
    VIO::setupVSTMap(source, eye, false, translation(0.0f, 0.0f, 0.0f), maps.view, maps.points, depth);
    EXPECT_EQ(log.countContaining("AR_ASSERT depth>0 "), 24u) << depth;
    // Points at or behind the eye (or undefined) never reach the camera.
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 6; ++x) EXPECT_EQ(maps.x(x, y), -1.0f) << depth;
  }
}

TEST(VSTMap, ViewMismatchesAreReportedAndWritesStayInside) {
  const Camera<float> source = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  const Camera<float> eye = linearCamera(40.0f, 30.0f, 30.0f, 20.0f, 15.0f);
  {
    Maps maps(Vec2I(20, 50));  // narrower and taller than the eye
    AR::Test::LogCapture log;
    VIO::setupVSTMap(source, eye, false, translation(0.0f, 0.0f, 0.0f), maps.view, maps.points, 1.0f);
    EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[0].size() == size "), 1u);
    EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[1].size() == size "), 1u);
    EXPECT_NEAR(maps.x(19, 29), 10.0f * (19 - 20) + 320.0f, 1e-3f);
    EXPECT_EQ(maps.x(5, 30), -1.0f);  // rows the eye does not have
  }
  {
    std::array<Image<float>, 1> one;
    one[0].allocPixels(Vec2I(40, 30), AR::Common::MEMORY_ALIGNMENT_16, false);
    AR::Common::ArrayView<Image<float>> view(one);
    std::array<Image<float>, 3> points;
    AR::Test::LogCapture log;
    VIO::setupVSTMap(source, eye, false, translation(0.0f, 0.0f, 0.0f), view, points, 1.0f);
    EXPECT_EQ(log.countContaining("AR_ASSERT mapXY.size() == 2 "), 1u);
    EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[1].size() == size "), 1u);
    EXPECT_NEAR(one[0].at(39, 29), 10.0f * 19 + 320.0f, 1e-3f);
  }
}

TEST(VSTMap, UninitialisedCamerasAreReportedOnceAndGiveNoEntries) {
  const Camera<float> ready = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  const Camera<float> eye = linearCamera(40.0f, 30.0f, 30.0f, 20.0f, 15.0f);
  const Camera<float> unfitted;
  for (int which = 0; which < 2; ++which) {
    Maps maps(Vec2I(40, 30));
    AR::Test::LogCapture log;
    VIO::setupVSTMap(which == 0 ? unfitted : ready, which == 1 ? unfitted : eye, false,
                     translation(0.0f, 0.0f, 0.0f), maps.view, maps.points, 1.0f);
    EXPECT_EQ(log.countContaining(which == 0 ? "AR_ASSERT source.getDistortionSpline().isInit() "
                                             : "AR_ASSERT target.getUndistortionSpline().isInit() "),
              1u);
    EXPECT_LT(log.countContaining("AR_ASSERT"), 5u);
    for (int y = 0; y < 30; ++y)
      for (int x = 0; x < 40; ++x) EXPECT_EQ(maps.x(x, y), -1.0f);
  }
}

TEST(VSTMap, LogsTheTargetSizeAtDebug) {
  const Camera<float> source = linearCamera(640.0f, 480.0f, 300.0f, 320.0f, 240.0f);
  const Camera<float> eye = linearCamera(6.0f, 4.0f, 30.0f, 3.0f, 2.0f);
  Maps maps(Vec2I(6, 4));
  AR::Test::LogCapture log;
  VIO::setupVSTMap(source, eye, false, translation(0.0f, 0.0f, 0.0f), maps.view, maps.points, 1.0f);
  EXPECT_TRUE(log.has("AR DEBUG: setupVSTMap::targetSize(6.000000,4.000000)\n"));
}

}  // namespace
