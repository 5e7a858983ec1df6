#include "AR/CV/Camera/CameraUtil.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstdio>
#include <string>

#include "LogCapture.h"

namespace {

using AR::Math::Vec2F;
using AR::Math::Vec6F;

/// A distortion-free camera; the validity lines it would print are dropped.
AR::CV::Camera<float> linearCamera(Vec2F size, Vec2F focal, Vec2F principalPoint) {
  AR::CV::Camera<float> cam;
  ::testing::internal::CaptureStdout();
  const bool ok = cam.init(size, focal, principalPoint, Vec6F(), Vec2F(), LINEAR);
  ::testing::internal::GetCapturedStdout();
  EXPECT_TRUE(ok);
  return cam;
}

std::string format(const char* fmt, const AR::Math::Rectangle<float>& r) {
  char text[256];
  std::snprintf(text, sizeof(text), fmt, double(r.minCorner(0)), double(r.minCorner(1)),
                double(r.maxCorner(0)), double(r.maxCorner(1)));
  return text;
}

TEST(RadialDistortionModelStringToEnum, EveryModelNameMapsToItsValue) {
  const char* names[] = {"LINEAR",           "RADIAL_2_PARAMETERS", "RADIAL_3_PARAMETERS",
                         "RADIAL_6_PARAMETERS", "FISHEYE_1_PARAMETER", "FISHEYE_4_PARAMETERS"};
  for (uint32_t value = 0; value < 6; ++value) {
    DistortionModel model = static_cast<DistortionModel>((value + 1) % 6);
    ASSERT_TRUE(AR::CV::radialDistortionModelStringToEnum(names[value], model)) << names[value];
    EXPECT_EQ(static_cast<uint32_t>(model), value);
  }
}

TEST(RadialDistortionModelStringToEnum, OtherSpellingsAreRefusedWithAHint) {
  AR::Test::LogCapture capture;
  DistortionModel model = FISHEYE_1_PARAMETER;
  EXPECT_FALSE(AR::CV::radialDistortionModelStringToEnum("radial_3_parameters", model));
  EXPECT_FALSE(AR::CV::radialDistortionModelStringToEnum("LINEAR ", model));
  EXPECT_FALSE(AR::CV::radialDistortionModelStringToEnum("", model));
  EXPECT_EQ(model, FISHEYE_1_PARAMETER);
  const std::vector<std::string> expected = {
      "AR ERROR: Radial distortion model radial_3_parameters not supported (use UPPERCASE).\n",
      "AR ERROR: Radial distortion model LINEAR  not supported (use UPPERCASE).\n",
      "AR ERROR: Radial distortion model  not supported (use UPPERCASE).\n"};
  EXPECT_EQ(capture.messages(), expected);
}

TEST(ComputeCamCoordBoundaries, LinearCameraSpansItsPixelGrid) {
  const float w = 64, h = 48, cx = 32, cy = 24, fx = 40, fy = 50;
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(w, h), Vec2F(fx, fy), Vec2F(cx, cy));
  AR::Test::LogCapture capture;
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordBoundaries(cam, 1);
  EXPECT_FLOAT_EQ(r.minCorner(0), (0 - cx) / fx);
  EXPECT_FLOAT_EQ(r.minCorner(1), (0 - cy) / fy);
  EXPECT_FLOAT_EQ(r.maxCorner(0), (w - 1 - cx) / fx);
  EXPECT_FLOAT_EQ(r.maxCorner(1), (h - 1 - cy) / fy);
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0],
            format("AR DEBUG: MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), "
                   "maxCamCoord = (%f, %f)\n",
                   r));
}

TEST(ComputeCamCoordBoundaries, StepSamplesEveryStepthPixel) {
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(64, 48), Vec2F(40, 50), Vec2F(32, 24));
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordBoundaries(cam, 7);
  // Last sampled column 63, last row 42.
  EXPECT_FLOAT_EQ(r.maxCorner(0), (63 - 32) / 40.f);
  EXPECT_FLOAT_EQ(r.maxCorner(1), (42 - 24) / 50.f);
  EXPECT_FLOAT_EQ(r.minCorner(0), -32 / 40.f);

  AR::Test::LogCapture capture;
  const AR::Math::Rectangle<float> r0 = AR::CV::computeCamCoordBoundaries(cam, 0);
  EXPECT_EQ(capture.countContaining("AR_ASSERT step > 0 CV/src/Camera/CameraUtil("), 1u);
  EXPECT_FLOAT_EQ(r0.maxCorner(1), (47 - 24) / 50.f) << "a step of 0 samples every pixel";
}

TEST(ComputeCamCoordBoundaries, DistortedCameraBoundsEveryPixel) {
  AR::CV::Camera<float> cam;
  ::testing::internal::CaptureStdout();
  ASSERT_TRUE(cam.init(Vec2F(160, 120), Vec2F(110, 110), Vec2F(80.5f, 60.5f),
                       Vec6F(-0.28f, 0.07f, 0, 0, 0, 0), Vec2F(), RADIAL_2_PARAMETERS));
  ::testing::internal::GetCapturedStdout();
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordBoundaries(cam, 1);
  for (int y = 0; y < 120; y += 3)
    for (int x = 0; x < 160; x += 3) {
      Vec2F ideal;
      ASSERT_TRUE(cam.tryPixel2ideal(Vec2F(float(x), float(y)), ideal));
      EXPECT_GE(ideal(0), r.minCorner(0));
      EXPECT_GE(ideal(1), r.minCorner(1));
      EXPECT_LE(ideal(0), r.maxCorner(0));
      EXPECT_LE(ideal(1), r.maxCorner(1));
    }
  // Barrel distortion pushes the corners out furthest.
  Vec2F corner;
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2F(0, 0), corner));
  EXPECT_EQ(r.minCorner, corner);
}

TEST(ComputeCamCoordApproxBoundaries, ReachesOnePixelBeyondTheImage) {
  const float w = 64, h = 48, cx = 32, cy = 24, fx = 40, fy = 50;
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(w, h), Vec2F(fx, fy), Vec2F(cx, cy));
  AR::Test::LogCapture capture;
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordApproxBoundaries(cam);
  EXPECT_FLOAT_EQ(r.minCorner(0), (0 - cx) / fx);
  EXPECT_FLOAT_EQ(r.minCorner(1), (0 - cy) / fy);
  // The (w, h) sample lies one pixel beyond the last one.
  EXPECT_FLOAT_EQ(r.maxCorner(0), (w - cx) / fx);
  EXPECT_FLOAT_EQ(r.maxCorner(1), (h - cy) / fy);
  EXPECT_TRUE(capture.messages().empty()) << "nothing is logged on success";
}

TEST(ComputeCamCoordApproxBoundaries, ValidCirclePointsInsideTheImageCount) {
  // A pinhole with a short focal length: the valid circle (9 focal lengths)
  // lies well inside the image, so it is the circle, not the sampled
  // corners, that bounds the rectangle.
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(640, 480), Vec2F(10, 10), Vec2F(320, 240));
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordApproxBoundaries(cam);
  EXPECT_GT(r.maxCorner(0), 6.f);
  EXPECT_LT(r.maxCorner(0), 9.f);
  EXPECT_LT(r.minCorner(1), -6.f);
  EXPECT_GT(r.minCorner(1), -9.f);
}

TEST(ComputeCamCoordBoundaries, NoSampleInsideTheValidCircleIsReportedTwice) {
  // Valid radius 9 * 8 = 72 pixels around (160, 120); the only sample, (0, 0),
  // is 200 pixels away.
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(640, 480), Vec2F(8, 8), Vec2F(160, 120));
  AR::Test::LogCapture capture;
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordBoundaries(cam, 1000);
  EXPECT_EQ(r.minCorner, Vec2F(FLT_MAX, FLT_MAX));
  EXPECT_EQ(r.maxCorner, Vec2F(-FLT_MAX, -FLT_MAX));
  EXPECT_EQ(capture.countContaining(
                "AR ERROR: MapperBridge::computeCamCoordBoundaries: maxCamCoord not found\n"),
            2u);
  EXPECT_EQ(capture.countContaining("AR ERROR: AR_ASSERT false CV/src/Camera/CameraUtil("), 2u);
  EXPECT_EQ(capture.countContaining("not a rectangle"), 0u);
  EXPECT_TRUE(capture.has(
      "AR DEBUG: MapperBridge::computeCamCoordBoundaries: minCamCoord = "
      "(340282346638528859811704183484516925440.000000, "
      "340282346638528859811704183484516925440.000000), maxCamCoord = "
      "(-340282346638528859811704183484516925440.000000, "
      "-340282346638528859811704183484516925440.000000)\n"));
}

TEST(ComputeCamCoordApproxBoundaries, NoSampleInsideTheValidCircleIsReportedTwice) {
  // Every fixed sample is at least 200 pixels from (160, 120), outside the
  // valid radius of 90 pixels. The circle points lie on that radius, whose
  // end is excluded; with these numbers each one rounds onto or beyond it.
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(640, 480), Vec2F(10, 10), Vec2F(160, 120));
  AR::Test::LogCapture capture;
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordApproxBoundaries(cam);
  EXPECT_EQ(r.minCorner, Vec2F(FLT_MAX, FLT_MAX));
  EXPECT_EQ(r.maxCorner, Vec2F(-FLT_MAX, -FLT_MAX));
  const std::string notFound =
      "AR ERROR: MapperBridge::computeCamCoordBoundaries: maxCamCoord not found\n";
  ASSERT_EQ(capture.messages().size(), 4u);
  EXPECT_EQ(capture.messages()[0], notFound);
  EXPECT_EQ(capture.messages()[2], notFound);
  EXPECT_EQ(capture.messages()[1].rfind("AR ERROR: AR_ASSERT false CV/src/Camera/CameraUtil(", 0), 0u);
}

TEST(ComputeCamCoordBoundaries, SingleRowIsNotARectangle) {
  const AR::CV::Camera<float> cam = linearCamera(Vec2F(64, 1), Vec2F(40, 40), Vec2F(32, 0.5f));
  AR::Test::LogCapture capture;
  const AR::Math::Rectangle<float> r = AR::CV::computeCamCoordBoundaries(cam, 1);
  EXPECT_EQ(r.minCorner(1), r.maxCorner(1));
  EXPECT_TRUE(capture.has(format("AR ERROR: MapperBridge::computeCamCoordBoundaries: minCamCoord = "
                                 "(%f, %f), maxCamCoord = (%f, %f) - not a rectangle\n",
                                 r)));
  EXPECT_EQ(capture.countContaining("AR_ASSERT false"), 1u);
}

}  // namespace
