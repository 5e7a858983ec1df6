#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "AR/CV/Camera/StereoCamera.h"
#include "LogCapture.h"
#include "RectifyMap.h"

namespace {

using AR::CV::FullCamera;
using AR::CV::Image;
using AR::Math::SE3;
using AR::Math::SO3;
using AR::Math::Vec3F;
using AR::Test::LogCapture;

constexpr const char* kFunction =
    "void VIO::setupRectifyMap(const VIO::FullCamera &, bool, const VIO::FullCamera &, const VIO::SO3Pose &, "
    "AR::Common::ArrayView<AR::CV::ImageFloat> &)";

/// The logged assertion; the function text is cut to its first 100 characters.
std::string assertText(const std::string& condition, int line) {
  return "AR_ASSERT " + condition + " VIO/src/StereoRectify(" + std::to_string(line) + ") " +
         std::string(kFunction).substr(0, 100) + "\n";
}

FullCamera<float> pinhole(float width, float height, float focal, const SE3<float>& pose = SE3<float>(),
                          const char* name = "cam") {
  CamModel::CameraModel<float> model;
  model.size = AR::Math::Vec2F(width, height);
  model.focalLength = AR::Math::Vec2F(focal, focal);
  model.principalPoint = AR::Math::Vec2F(width / 2, height / 2);
  model.model = LINEAR;
  model.maxValidDistortionRSq = 81;
  model.maxValidUndistortionRSq = 81;
  FullCamera<float> camera;
  camera.init(model, pose, AR::CV::CamImageId(name), false, 0.0f, AR::CV::CaptureDetails(), 0.0);
  return camera;
}

/// A map pair of the given size, owning its memory, filled with a marker.
struct MapPair {
  MapPair(int width, int height) {
    for (Image<float>& image : images) {
      image.allocPixels(AR::Math::Vec2I(width, height), AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);
      image.clear(42.0f);
    }
  }
  AR::Common::ArrayView<Image<float>> view() { return AR::Common::ArrayView<Image<float>>(images.data(), 2); }
  std::array<Image<float>, 2> images;
};

TEST(SetupRectifyMap, IdenticalPinholeCamerasGiveTheIdentityMap) {
  const FullCamera<float> camera = pinhole(64, 48, 50);
  MapPair maps(64, 48);
  auto view = maps.view();
  LogCapture log;
  VIO::setupRectifyMap(camera, false, camera, SO3<float>(), view);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      ASSERT_NEAR(maps.images[0].at(x, y), float(x), 1e-4f);
      ASSERT_NEAR(maps.images[1].at(x, y), float(y), 1e-4f);
    }
}

TEST(SetupRectifyMap, SourcePoseAndRectificationAreBothApplied) {
  // Source turned by +a about y, rectification by -a: M = R_c * S is the
  // identity and the map again the identity; with the same sign it is not.
  const float a = 0.1f;
  const SO3<float> turn = SO3<float>::exp(Vec3F(0, a, 0));
  const FullCamera<float> target = pinhole(64, 48, 50);
  const FullCamera<float> source = pinhole(64, 48, 50, SE3<float>(turn, Vec3F(0.3f, 0, 0)));
  MapPair cancelled(64, 48), doubled(64, 48);
  auto cancelledView = cancelled.view();
  auto doubledView = doubled.view();
  VIO::setupRectifyMap(source, true, target, turn.inverse(), cancelledView);
  VIO::setupRectifyMap(source, true, target, turn, doubledView);
  EXPECT_NEAR(cancelled.images[0].at(32, 24), 32.0f, 1e-3f);
  EXPECT_NEAR(cancelled.images[0].at(5, 40), 5.0f, 1e-3f);
  // Turning by 2a about y moves the centre by f * tan(2a) to the right.
  EXPECT_NEAR(doubled.images[0].at(32, 24), 32.0f + 50.0f * std::tan(2 * a), 1e-3f);
  EXPECT_NEAR(doubled.images[1].at(32, 24), 24.0f, 1e-3f);
}

TEST(SetupRectifyMap, BackwardRaysKeepTheInvalidValue) {
  const FullCamera<float> camera = pinhole(64, 48, 50);
  MapPair maps(64, 48);
  auto view = maps.view();
  // Turned half way round: every ray points behind the source.
  VIO::setupRectifyMap(camera, true, camera, SO3<float>::exp(Vec3F(0, float(M_PI), 0)), view);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      ASSERT_EQ(maps.images[0].at(x, y), -1.0f);
      ASSERT_EQ(maps.images[1].at(x, y), -1.0f);
    }

  // Turned by 60 degrees about y: rays of the columns more than 30 degrees
  // off the axis towards the turn have d.z < 0.01 and stay invalid; the
  // others are written (allowOutOfImage), even far outside the source, as
  // long as they stay within the source's valid radius of 9.
  MapPair wide(200, 48);
  auto wideView = wide.view();
  const FullCamera<float> wideTarget = pinhole(200, 48, 50);
  VIO::setupRectifyMap(camera, true, wideTarget, SO3<float>::exp(Vec3F(0, float(M_PI / 3), 0)), wideView);
  for (int x = 0; x < 200; ++x) {
    const float u = (float(x) - 100.0f) / 50.0f;
    const float dz = -std::sin(float(M_PI / 3)) * u + std::cos(float(M_PI / 3));
    const float dx = std::cos(float(M_PI / 3)) * u + std::sin(float(M_PI / 3));
    if (std::fabs(dz - 0.01f) < 1e-3f || std::fabs(dx / dz) > 8.9f) continue;
    if (dz < 0.01f)
      EXPECT_EQ(wide.images[0].at(x, 24), -1.0f) << x;
    else
      EXPECT_NE(wide.images[0].at(x, 24), -1.0f) << x;
  }
}

TEST(SetupRectifyMap, OutOfImageEntriesAreWrittenOnlyWhenAllowed) {
  // A target twice the source's size: its border maps outside the source.
  const FullCamera<float> source = pinhole(32, 24, 50);
  const FullCamera<float> target = pinhole(64, 48, 50);
  MapPair allowed(64, 48), refused(64, 48);
  auto allowedView = allowed.view();
  auto refusedView = refused.view();
  VIO::setupRectifyMap(source, true, target, SO3<float>(), allowedView);
  VIO::setupRectifyMap(source, false, target, SO3<float>(), refusedView);
  EXPECT_NEAR(allowed.images[0].at(0, 0), -16.0f, 1e-3f);
  EXPECT_NEAR(allowed.images[1].at(63, 47), 47.0f - 12.0f, 1e-3f);
  int outside = 0;
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      const float sx = allowed.images[0].at(x, y), sy = allowed.images[1].at(x, y);
      if (sx >= 0 && sx < 32 && sy >= 0 && sy < 24) {
        ASSERT_EQ(refused.images[0].at(x, y), sx);
        ASSERT_EQ(refused.images[1].at(x, y), sy);
      } else {
        ++outside;
        ASSERT_EQ(refused.images[0].at(x, y), -1.0f);
        ASSERT_EQ(refused.images[1].at(x, y), -1.0f);
      }
    }
  EXPECT_EQ(outside, 64 * 48 - 32 * 24);
}

TEST(SetupRectifyMap, FailedPixelsReuseThePreviousIdealPoint) {
  // Focal length 10 on 200 x 100: a pixel 9 focal lengths (90 pixels) or
  // more from the principal point cannot be made ideal.
  const FullCamera<float> camera = pinhole(200, 100, 10);
  MapPair maps(200, 100);
  auto view = maps.view();
  LogCapture log;
  VIO::setupRectifyMap(camera, true, camera, SO3<float>(), view);
  EXPECT_GT(log.countContaining(assertText("success", 40)), 0u);
  // Row 50 succeeds for |x - 100| < 90: x = 11..189. Pixels after it repeat
  // the last good entry, and so do the first pixels of the next row.
  EXPECT_NEAR(maps.images[0].at(189, 50), 189.0f, 1e-3f);
  for (int x = 190; x < 200; ++x) {
    EXPECT_EQ(maps.images[0].at(x, 50), maps.images[0].at(189, 50));
    EXPECT_EQ(maps.images[1].at(x, 50), maps.images[1].at(189, 50));
  }
  for (int x = 0; x < 11; ++x) EXPECT_EQ(maps.images[0].at(x, 51), maps.images[0].at(189, 50));
  // Nothing precedes the very first pixel, which fails: it stays invalid.
  EXPECT_EQ(maps.images[0].at(0, 0), -1.0f);
}

TEST(SetupRectifyMap, WrongViewsAreReportedWithoutOverrun) {
  const FullCamera<float> camera = pinhole(64, 48, 50);
  {
    MapPair small(32, 48);
    auto view = small.view();
    LogCapture log;
    VIO::setupRectifyMap(camera, false, camera, SO3<float>(), view);
    EXPECT_EQ(log.countContaining(assertText("mapXY[0].size() == size", 26)), 1u);
    EXPECT_EQ(log.countContaining(assertText("mapXY[1].size() == size", 27)), 1u);
    // What fits is written; checked access reports the rest.
    EXPECT_NEAR(small.images[0].at(31, 47), 31.0f, 1e-3f);
  }
  {
    MapPair maps(64, 48);
    AR::Common::ArrayView<Image<float>> one(maps.images.data(), 1);
    LogCapture log;
    VIO::setupRectifyMap(camera, false, camera, SO3<float>(), one);
    EXPECT_EQ(log.countContaining(assertText("mapXY.size() == 2", 25)), 1u);
    EXPECT_NEAR(maps.images[0].at(10, 20), 10.0f, 1e-3f);
    EXPECT_EQ(maps.images[1].at(10, 20), 42.0f);
  }
}

}  // namespace
