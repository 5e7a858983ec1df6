#include "AR/CV/Camera/CameraUtil.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstdio>
#include <string>

#include "LogCapture.h"

namespace {

using AR::Math::Vec2F;
using Rect = AR::Math::Rectangle<float>;

/// A camera of the given lens (the validity lines it prints are dropped).
AR::CV::Camera<float> camera(Vec2F size, float f, Vec2F principalPoint, float k0 = 0, float k1 = 0) {
  AR::CV::Camera<float> cam;
  ::testing::internal::CaptureStdout();
  EXPECT_TRUE(cam.init(size, Vec2F(f, f), principalPoint, AR::Math::Vec6F(k0, k1, 0, 0, 0, 0), Vec2F(),
                       k0 == 0 ? LINEAR : RADIAL_2_PARAMETERS));
  ::testing::internal::GetCapturedStdout();
  return cam;
}

/// The rectangle message with `suffix`.
std::string rectangleText(const char* level, const Rect& r, const char* suffix = "") {
  char text[512];
  std::snprintf(text, sizeof(text),
                "AR %s: MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), maxCamCoord = (%f, %f)%s\n",
                level, double(r.minCorner(0)), double(r.minCorner(1)), double(r.maxCorner(0)), double(r.maxCorner(1)),
                suffix);
  return text;
}

const char* const kNotFound = "AR ERROR: MapperBridge::computeCamCoordBoundaries: maxCamCoord not found\n";
const char* const kFalse = "AR ERROR: AR_ASSERT false CV/src/Camera/CameraUtil(";

TEST(CameraUtilTest, ModelNamesConvertExactly) {
  const char* names[] = {"LINEAR", "RADIAL_2_PARAMETERS", "RADIAL_3_PARAMETERS", "RADIAL_6_PARAMETERS",
                         "FISHEYE_1_PARAMETER", "FISHEYE_4_PARAMETERS"};
  for (uint32_t value = 0; value < 6; ++value) {
    DistortionModel model = DistortionModel((value + 1) % 6);
    EXPECT_EQ(CamModel::modelName(DistortionModel(value)), names[value]);
    ASSERT_TRUE(AR::CV::radialDistortionModelStringToEnum(names[value], model)) << names[value];
    EXPECT_EQ(uint32_t(model), value);
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

TEST(CameraUtilTest, LinearCameraSpansItsPixelGrid) {
  const auto cam = camera(Vec2F(64, 48), 40, Vec2F(32, 24));
  AR::Test::LogCapture capture;
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1);
  EXPECT_EQ(r.minCorner, Vec2F(-32 / 40.f, -24 / 40.f));
  EXPECT_FLOAT_EQ(r.maxCorner(1), 23 / 40.f);
  EXPECT_EQ(capture.messages(), std::vector<std::string>{rectangleText("DEBUG", r)});
  // Every step-th pixel of every step-th row: the last row sampled is 42.
  EXPECT_FLOAT_EQ(AR::CV::computeCamCoordBoundaries(cam, 7).maxCorner(1), 18 / 40.f);
  EXPECT_EQ(AR::CV::computeCamCoordBoundaries(cam, 0).maxCorner, r.maxCorner) << "a step of 0 is taken as 1";
  EXPECT_EQ(capture.countContaining("AR_ASSERT step > 0 CV/src/Camera/CameraUtil("), 1u);
  // The approximate rectangle reaches one pixel beyond the image through its (w, h) sample.
  EXPECT_FLOAT_EQ(AR::CV::computeCamCoordApproxBoundaries(cam).maxCorner(0), 32 / 40.f);
}

TEST(CameraUtilTest, DistortedCameraBoundsEveryPixel) {
  const auto cam = camera(Vec2F(160, 120), 110, Vec2F(80.5f, 60.5f), -0.28f, 0.07f);
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1);
  Vec2F ideal;
  for (int y = 0; y < 120; y += 3)
    for (int x = 0; x < 160; x += 3) {
      ASSERT_TRUE(cam.tryPixel2ideal(Vec2F(float(x), float(y)), ideal));
      EXPECT_TRUE(ideal(0) >= r.minCorner(0) && ideal(1) >= r.minCorner(1) && ideal(0) <= r.maxCorner(0) &&
                  ideal(1) <= r.maxCorner(1));
    }
}

TEST(CameraUtilTest, NoSampleInsideTheValidCircleIsReportedTwice) {
  // Valid radius 9 focal lengths = 72 pixels around (160, 120); the only sample, (0, 0), is 200 away.
  const auto cam = camera(Vec2F(640, 480), 8, Vec2F(160, 120));
  AR::Test::LogCapture capture;
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1000);
  EXPECT_EQ(r.minCorner, Vec2F(FLT_MAX, FLT_MAX));
  EXPECT_EQ(r.maxCorner, Vec2F(-FLT_MAX, -FLT_MAX));
  ASSERT_EQ(capture.messages().size(), 5u);
  for (int i : {0, 2}) {
    EXPECT_EQ(capture.messages()[i], kNotFound);
    EXPECT_EQ(capture.messages()[i + 1].rfind(kFalse, 0), 0u);
  }
  EXPECT_EQ(capture.messages()[4], rectangleText("DEBUG", r));
  // Every fixed sample of the approximate variant lies outside the valid
  // radius of 90 pixels, and the circle points round onto its excluded end.
  const auto approxCam = camera(Vec2F(640, 480), 10, Vec2F(160, 120));
  capture.clear();
  const Rect approx = AR::CV::computeCamCoordApproxBoundaries(approxCam);
  EXPECT_EQ(approx.minCorner, r.minCorner);
  EXPECT_EQ(capture.countContaining(kNotFound), 2u);
  EXPECT_EQ(capture.messages().size(), 4u);
}

TEST(CameraUtilTest, SingleRowIsNotARectangle) {
  const auto cam = camera(Vec2F(64, 1), 40, Vec2F(32, 0.5f));
  AR::Test::LogCapture capture;
  const Rect r = AR::CV::computeCamCoordBoundaries(cam, 1);
  ASSERT_EQ(capture.messages().size(), 3u);
  EXPECT_EQ(capture.messages()[0], rectangleText("ERROR", r, " - not a rectangle"));
  EXPECT_EQ(capture.messages()[1].rfind(kFalse, 0), 0u);
}

}  // namespace
