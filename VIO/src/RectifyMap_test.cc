#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "LogCapture.h"
#include "RectifyMap.h"

namespace {

using AR::CV::FullCamera;
using AR::CV::Image;
using AR::Math::SO3;
using AR::Math::Vec3F;
using AR::Test::LogCapture;

/// The logged message; the function text is cut to its first 100 characters.
std::string assertText(const std::string& condition, int line) {
  const std::string function =
      "void VIO::setupRectifyMap(const VIO::FullCamera &, bool, const VIO::FullCamera &, const VIO::SO3Pose &, "
      "AR::Common::ArrayView<AR::CV::ImageFloat> &)";
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectify(" + std::to_string(line) + ") " +
         function.substr(0, 100) + "\n";
}

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

/// X and Y map images of the given size, filled with 42 beforehand.
struct MapPair {
  MapPair(int width, int height) {
    for (Image<float>& image : images) {
      image.allocPixels(AR::Math::Vec2I(width, height), AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);
      image.clear(42.0f);
    }
  }
  void build(const FullCamera<float>& source, const FullCamera<float>& target, const SO3<float>& S, int count = 2) {
    AR::Common::ArrayView<Image<float>> view(images.data(), count);
    VIO::setupRectifyMap(source, true, target, S, view);
  }
  float x(int u, int v) const { return images[0].at(u, v); }
  std::array<Image<float>, 2> images;
};

TEST(SetupRectifyMap, RaysLessThan1e2ForwardKeepTheInvalidValue) {
  // Turned by 60 degrees about y: columns more than 30 degrees off the axis
  // towards the turn have d.z < 0.01; the others are written, even far
  // outside the source, while they stay within its valid radius of 9.
  const float a = float(M_PI / 3);
  MapPair maps(200, 48);
  maps.build(pinhole(64, 48, 50), pinhole(200, 48, 50), SO3<float>::exp(Vec3F(0, a, 0)));
  int invalid = 0;
  for (int x = 0; x < 200; ++x) {
    const float u = (float(x) - 100.0f) / 50.0f;
    const float dz = std::cos(a) - std::sin(a) * u, dx = std::cos(a) * u + std::sin(a);
    if (std::fabs(dz - 0.01f) < 1e-3f || std::fabs(dx / dz) > 8.9f) continue;
    EXPECT_EQ(maps.x(x, 24) == -1.0f, dz < 0.01f) << x;
    invalid += dz < 0.01f;
  }
  EXPECT_GT(invalid, 50);
}

TEST(SetupRectifyMap, FailedPixelsReuseThePreviousIdealPoint) {
  // Focal length 10 on 200 x 100: pixels 90 or more from the principal point
  // (9 focal lengths) cannot be made ideal.
  const FullCamera<float> camera = pinhole(200, 100, 10);
  MapPair maps(200, 100);
  LogCapture log;
  maps.build(camera, camera, SO3<float>());
  EXPECT_GT(log.countContaining(assertText("success", 40)), 0u);
  // Row 50 succeeds for x = 11..189; the pixels after it, and the first ones
  // of the next row, repeat the last good entry.
  EXPECT_NEAR(maps.x(189, 50), 189.0f, 1e-3f);
  for (int x = 190; x < 200; ++x) EXPECT_EQ(maps.images[1].at(x, 50), maps.images[1].at(189, 50));
  for (int x = 0; x < 11; ++x) EXPECT_EQ(maps.x(x, 51), maps.x(189, 50));
  // Nothing precedes the very first pixel, which fails: it stays invalid.
  EXPECT_EQ(maps.x(0, 0), -1.0f);
}

TEST(SetupRectifyMap, WrongViewsAreReportedWithoutOverrun) {
  const FullCamera<float> camera = pinhole(64, 48, 50);
  {
    MapPair narrow(32, 48);
    LogCapture log;
    narrow.build(camera, camera, SO3<float>());
    EXPECT_TRUE(log.has(assertText("mapXY[0].size() == size", 26)));
    EXPECT_TRUE(log.has(assertText("mapXY[1].size() == size", 27)));
    EXPECT_NEAR(narrow.x(31, 47), 31.0f, 1e-3f);  // what fits is written
  }
  MapPair maps(64, 48);
  LogCapture log;
  maps.build(camera, camera, SO3<float>(), 1);
  EXPECT_TRUE(log.has(assertText("mapXY.size() == 2", 25)));
  EXPECT_NEAR(maps.x(10, 20), 10.0f, 1e-3f);
  EXPECT_EQ(maps.images[1].at(10, 20), 42.0f);
}

}  // namespace
