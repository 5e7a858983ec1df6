#include <gtest/gtest.h>

#include "AR/CV/Stereo/Rectify.h"
#include "LogCapture.h"
#include "RectifyTestRig.h"

namespace {

using AR::Common::Logger;
using AR::CV::DepthParams;
using AR::CV::FullStereoCameraCalibration;
using AR::Math::SE3;
using AR::Math::SO3;
using AR::Math::Vec2F;
using AR::Math::Vec3F;
using AR::Test::LogCapture;
using AR::Test::ScopedLogLevel;

constexpr const char* kMappingCondition =
    "AR::Math::fabs((disp + depthParams.offsetX) * depth - depthParams.constant) < 0.0001f";

struct Target {
  FullStereoCameraCalibration<float> calibration;
  SO3<float> R_tl2ol;
  DepthParams<float> depth;
};

Target makeTarget(const FullStereoCameraCalibration<float>& rig, float minDepth) {
  ScopedLogLevel quiet(Logger::LEVEL_OFF);
  Target target;
  AR::CV::makeTargetCalibration<float>(rig, 64, minDepth, 10.0f, 0, SE3<float>(), Vec3F(), target.calibration,
                                       target.R_tl2ol, target.depth);
  return target;
}

FullStereoCameraCalibration<float> parallelRig() {
  return AR::Test::makeRig<float>(AR::Test::pinhole640<float>(), AR::Test::pinhole640<float>(),
                                  SE3<float>(SO3<float>(), Vec3F(-0.1f, 0, 0)));
}

TEST(CheckMappingFactor, SaneTargetLogsOnlyTheParallelRowAtVerbose) {
  const Target target = makeTarget(parallelRig(), 0.0f);
  ASSERT_EQ(target.depth.offsetX, 0.0f);
  {
    ScopedLogLevel verbose(Logger::LEVEL_VERBOSE);
    LogCapture log;
    AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, target.depth);
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
    EXPECT_EQ(log.countContaining("\tDisparity\tDepth"), 1u);
    // Header plus one line per disparity 0..127.
    EXPECT_EQ(log.messages().size(), 129u);
    // With offsetX = 0 the rays of disparity 0 are parallel: depth 1000 stands in.
    EXPECT_EQ(log.countContaining("\t0\t1000.000000"), 1u);
    EXPECT_EQ(log.countContaining("\t1000.000000"), 1u);
  }
  {
    // Below VERBOSE a sane target logs nothing at all.
    ScopedLogLevel debug(Logger::LEVEL_DEBUG);
    LogCapture log;
    AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, target.depth);
    EXPECT_TRUE(log.messages().empty());
  }
}

TEST(CheckMappingFactor, WrongConstantIsReportedForEveryTriangulatedRow) {
  const Target target = makeTarget(parallelRig(), 0.0f);
  DepthParams<float> wrong = target.depth;
  wrong.constant *= 1.01f;
  LogCapture log;
  AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, wrong);
  // Rows 1..127; row 0 has parallel rays and is not compared.
  EXPECT_EQ(log.countContaining(kMappingCondition), 127u);
}

TEST(CheckMappingFactor, FittedDepthRangeTriangulatesEveryRow) {
  const Target target = makeTarget(parallelRig(), 1.0f);
  ASSERT_NEAR(target.depth.offsetX, 64.0f / 9.0f, 1e-5f);
  ScopedLogLevel verbose(Logger::LEVEL_VERBOSE);
  LogCapture log;
  AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, target.depth);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  // The right principal point is shifted by offsetX, so no row is parallel.
  EXPECT_EQ(log.countContaining("\t1000.000000"), 0u);
  // Disparity 64 is the nearest depth of the range.
  EXPECT_EQ(log.countContaining("\t64\t1.000000"), 1u);
}

TEST(ValidateStereoRectify, RectifiedRigPassesSilently) {
  const FullStereoCameraCalibration<float> rig = parallelRig();
  const Target target = makeTarget(rig, 0.0f);
  ScopedLogLevel info(Logger::LEVEL_INFO);
  LogCapture log;
  AR::CV::Internal::validateStereoRectify(rig, target.calibration, target.R_tl2ol);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  // The two projections are logged at INFO, on the same row.
  EXPECT_EQ(log.countContaining("x_tl=(320.000000,240.000000)"), 1u);
  EXPECT_EQ(log.countContaining("x_tr=(2"), 1u);
  EXPECT_EQ(log.countContaining(",240.000000)"), 2u);
}

TEST(ValidateStereoRectify, TargetsOnDifferentRowsAreReported) {
  const FullStereoCameraCalibration<float> rig = parallelRig();
  Target target = makeTarget(rig, 0.0f);
  // Replace the right target camera by one whose principal point is half a
  // row lower.
  CamModel::CameraModel<float> shifted = target.calibration[1].getIntrinsics().getCamModel();
  shifted.principalPoint(1) += 0.5f;
  auto camera = AR::Common::makeRefCounted<AR::CV::Camera<float>>();
  ASSERT_TRUE(camera->init(shifted));
  target.calibration[1].setIntrinsics(camera);

  LogCapture log;
  AR::CV::Internal::validateStereoRectify(rig, target.calibration, target.R_tl2ol);
  EXPECT_EQ(log.countContaining("AR_ASSERT AR::Math::fabs(x_tl(1) - x_tr(1)) < 1e-2 "), 1u);
  EXPECT_EQ(log.countContaining("AR::Math::norm(x_ol_reproj - x_ol) < 1e-1"), 0u);
}

TEST(ValidateStereoRectify, LeftCameraOffTheOriginBreaksTheRoundTrip) {
  // The round trip rescales the test point along its ray, which only lands
  // on the same pixel when the input left camera sits at the origin.
  const FullStereoCameraCalibration<float> rig = AR::Test::makeRig<float>(
      AR::Test::pinhole640<float>(), AR::Test::pinhole640<float>(), SE3<float>(SO3<float>(), Vec3F(-0.1f, 0, 0)),
      SE3<float>(SO3<float>(), Vec3F(0.5f, 0, 0)));
  const Target target = makeTarget(rig, 0.0f);
  const SO3<float> tilted = AR::Test::rotationAbout(Vec3F(0, 1, 0), 0.35f);
  LogCapture log;
  AR::CV::Internal::validateStereoRectify(rig, target.calibration, tilted);
  EXPECT_EQ(log.countContaining("AR::Math::norm(x_ol_reproj - x_ol) < 1e-1"), 1u);
}

}  // namespace
