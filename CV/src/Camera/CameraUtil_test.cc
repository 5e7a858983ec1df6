#include "AR/CV/Camera/CameraUtil.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstdio>
#include <string>

#include "LogCapture.h"

namespace {

using AR::Math::Vec2F;
using Rect = AR::Math::Rectangle<float>;

/// A distortion-free camera (the validity lines it would print are dropped).
AR::CV::Camera<float> linearCamera(Vec2F size, Vec2F focal, Vec2F principalPoint) {
  AR::CV::Camera<float> cam;
  ::testing::internal::CaptureStdout();
  EXPECT_TRUE(cam.init(size, focal, principalPoint, AR::Math::Vec6F(), Vec2F(), LINEAR));
  ::testing::internal::GetCapturedStdout();
  return cam;
}

std::string format(const char* fmt, const Rect& r) {
  char text[512];
  std::snprintf(text, sizeof(text), fmt, double(r.minCorner(0)), double(r.minCorner(1)), double(r.maxCorner(0)),
                double(r.maxCorner(1)));
  return text;
}

/// Equal up to four ulps per component (the camera multiplies by inverse focal lengths).
void expectFloatEq(const Vec2F& a, const Vec2F& b) {
  EXPECT_FLOAT_EQ(a(0), b(0));
  EXPECT_FLOAT_EQ(a(1), b(1));
}

const char* const kNotFound = "AR ERROR: MapperBridge::computeCamCoordBoundaries: maxCamCoord not found\n";
const char* const kFalse = "AR ERROR: AR_ASSERT false CV/src/Camera/CameraUtil(";

TEST(RadialDistortionModelStringToEnum, ExactNamesOnly) {
  for (uint32_t value = 0; value < 6; ++value) {
    DistortionModel model = static_cast<DistortionModel>((value + 1) % 6);
    const std::string name = CamModel::modelName(static_cast<DistortionModel>(value));
    ASSERT_TRUE(AR::CV::radialDistortionModelStringToEnum(name, model)) << name;
    EXPECT_EQ(static_cast<uint32_t>(model), value);
  }
  AR::Test::LogCapture capture;
  DistortionModel model = FISHEYE_1_PARAMETER;
  EXPECT_FALSE(AR::CV::radialDistortionModelStringToEnum("radial_3_parameters", model));
  EXPECT_FALSE(AR::CV::radialDistortionModelStringToEnum("LINEAR ", model));
  EXPECT_EQ(model, FISHEYE_1_PARAMETER);
  EXPECT_EQ(capture.messages(),
            (std::vector<std::string>{
                "AR ERROR: Radial distortion model radial_3_parameters not supported (use UPPERCASE).\n",
                "AR ERROR: Radial distortion model LINEAR  not supported (use UPPERCASE).\n"}));
}

TEST(ComputeCamCoordBoundaries, LinearCameraSpansItsPixelGrid) {
  const float w = 64, h = 48, cx = 32, cy = 24, fx = 40, fy = 50;
  const auto cam = linearCamera(Vec2F(w, h), Vec2F(fx, fy), Vec2F(cx, cy));
  AR::Test::LogCapture capture;
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1);
  expectFloatEq(r.minCorner, Vec2F((0 - cx) / fx, (0 - cy) / fy));
  expectFloatEq(r.maxCorner, Vec2F((w - 1 - cx) / fx, (h - 1 - cy) / fy));
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{format("AR DEBUG: MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), "
                                            "maxCamCoord = (%f, %f)\n",
                                            r)});

  // Every step-th pixel of every step-th row: last column 63, last row 42.
  expectFloatEq(AR::CV::computeCamCoordBoundaries(cam, 7).maxCorner, Vec2F((63 - cx) / fx, (42 - cy) / fy));
  capture.clear();
  EXPECT_EQ(AR::CV::computeCamCoordBoundaries(cam, 0).maxCorner, r.maxCorner) << "a step of 0 is taken as 1";
  EXPECT_EQ(capture.countContaining("AR_ASSERT step > 0 CV/src/Camera/CameraUtil("), 1u);

  // The approximate rectangle reaches one pixel beyond the image through its
  // (w, h) sample, and logs nothing on success.
  capture.clear();
  const Rect approx = AR::CV::computeCamCoordApproxBoundaries(cam);
  EXPECT_EQ(approx.minCorner, r.minCorner);
  expectFloatEq(approx.maxCorner, Vec2F((w - cx) / fx, (h - cy) / fy));
  EXPECT_TRUE(capture.messages().empty());
}

TEST(ComputeCamCoordBoundaries, DistortedCameraBoundsEveryPixel) {
  AR::CV::Camera<float> cam;
  ::testing::internal::CaptureStdout();
  ASSERT_TRUE(cam.init(Vec2F(160, 120), Vec2F(110, 110), Vec2F(80.5f, 60.5f), AR::Math::Vec6F(-0.28f, 0.07f, 0, 0, 0, 0),
                       Vec2F(), RADIAL_2_PARAMETERS));
  ::testing::internal::GetCapturedStdout();
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1);
  Vec2F ideal;
  for (int y = 0; y < 120; y += 3)
    for (int x = 0; x < 160; x += 3) {
      ASSERT_TRUE(cam.tryPixel2ideal(Vec2F(float(x), float(y)), ideal));
      EXPECT_TRUE(ideal(0) >= r.minCorner(0) && ideal(1) >= r.minCorner(1) && ideal(0) <= r.maxCorner(0) &&
                  ideal(1) <= r.maxCorner(1));
    }
  // Barrel distortion pushes the corners out furthest.
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2F(0, 0), ideal));
  EXPECT_EQ(r.minCorner, ideal);
}

TEST(ComputeCamCoordApproxBoundaries, ValidCircleInsideTheImageBoundsTheRectangle) {
  // Valid radius 9 focal lengths = 90 pixels, well inside the image: the
  // circle points, not the corners, give the extremes.
  const Rect r = AR::CV::computeCamCoordApproxBoundaries(linearCamera(Vec2F(640, 480), Vec2F(10, 10), Vec2F(320, 240)));
  EXPECT_GT(r.maxCorner(0), 6.f);
  EXPECT_LT(r.maxCorner(0), 9.f);
  EXPECT_LT(r.minCorner(1), -6.f);
  EXPECT_GT(r.minCorner(1), -9.f);
}

TEST(ComputeCamCoordBoundaries, NoSampleInsideTheValidCircleIsReportedTwice) {
  // Valid radius 72 pixels around (160, 120); the only sample, (0, 0), is 200 away.
  const auto cam = linearCamera(Vec2F(640, 480), Vec2F(8, 8), Vec2F(160, 120));
  // The approximate variant: every fixed sample lies outside the valid radius
  // of 90 pixels, and the circle points round onto or beyond its excluded end.
  const auto approxCam = linearCamera(Vec2F(640, 480), Vec2F(10, 10), Vec2F(160, 120));
  AR::Test::LogCapture capture;
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1000);
  EXPECT_EQ(r.minCorner, Vec2F(FLT_MAX, FLT_MAX));
  EXPECT_EQ(r.maxCorner, Vec2F(-FLT_MAX, -FLT_MAX));
  ASSERT_EQ(capture.messages().size(), 5u);
  EXPECT_EQ(capture.messages()[0], kNotFound);
  EXPECT_EQ(capture.messages()[1].rfind(kFalse, 0), 0u);
  EXPECT_EQ(capture.messages()[2], kNotFound);
  EXPECT_EQ(capture.messages()[3].rfind(kFalse, 0), 0u);
  EXPECT_EQ(capture.messages()[4],
            format("AR DEBUG: MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), maxCamCoord = (%f, %f)\n",
                   r));

  capture.clear();
  const Rect approx = AR::CV::computeCamCoordApproxBoundaries(approxCam);
  EXPECT_EQ(approx.minCorner, r.minCorner);
  EXPECT_EQ(approx.maxCorner, r.maxCorner);
  EXPECT_EQ(capture.countContaining(kNotFound), 2u);
  EXPECT_EQ(capture.countContaining(kFalse), 2u);
  EXPECT_EQ(capture.messages().size(), 4u);
}

TEST(ComputeCamCoordBoundaries, SingleRowIsNotARectangle) {
  const auto cam = linearCamera(Vec2F(64, 1), Vec2F(40, 40), Vec2F(32, 0.5f));
  AR::Test::LogCapture capture;
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1);
  EXPECT_EQ(r.minCorner(1), r.maxCorner(1));
  ASSERT_EQ(capture.messages().size(), 3u);
  EXPECT_EQ(capture.messages()[0], format("AR ERROR: MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), "
                                          "maxCamCoord = (%f, %f) - not a rectangle\n",
                                          r));
  EXPECT_EQ(capture.messages()[1].rfind(kFalse, 0), 0u);
}

}  // namespace
