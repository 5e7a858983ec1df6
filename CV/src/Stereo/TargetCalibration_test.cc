#include <gtest/gtest.h>

#include <cmath>

#include "AR/CV/Stereo/Rectify.h"
#include "LogCapture.h"
#include "RectifyTestRig.h"

namespace {

using AR::Common::Logger;
using AR::CV::DepthParams;
using AR::CV::FullStereoCameraCalibration;
using AR::Math::SE3;
using AR::Math::SO3;
using AR::Test::LogCapture;
using AR::Test::ScopedLogLevel;

constexpr const char* kBaselineCondition =
    "(Math::fabs(Math::dot(Math::unit(R_tl2ol.inverse()*baselineVec_ol), baselineDir_target_t) - 1)) < 0.0001";

template <typename T>
struct Target {
  FullStereoCameraCalibration<T> calibration;
  SO3<T> R_tl2ol;
  DepthParams<T> depth;
};

template <typename T>
Target<T> makeTarget(const FullStereoCameraCalibration<T>& rig, T minDepth, uint32_t width = 0,
                     const AR::Math::Vector<T, 3>& direction = AR::Math::Vector<T, 3>()) {
  Target<T> target;
  AR::CV::makeTargetCalibration<T>(rig, 64, minDepth, T(10), width, SE3<T>(), direction, target.calibration,
                                   target.R_tl2ol, target.depth);
  return target;
}

template <typename T>
FullStereoCameraCalibration<T> parallelRig(T baseline) {
  using Vec3 = AR::Math::Vector<T, 3>;
  return AR::Test::makeRig<T>(AR::Test::pinhole640<T>(), AR::Test::pinhole640<T>(),
                              SE3<T>(SO3<T>(), Vec3(-baseline, 0, 0)));
}

template <typename T>
class TargetIntrinsicsTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TargetIntrinsicsTest, Precisions);

TYPED_TEST(TargetIntrinsicsTest, NoDepthFittingKeepsTheFocalLength) {
  using T = TypeParam;
  for (T minDepth : {T(0), T(-1)}) {
    const auto params = AR::CV::Internal::setupTargetIntrinsics<T>(64, minDepth, T(10), T(40));
    EXPECT_EQ(params.focalScale, T(1));
    EXPECT_EQ(params.offsetX, T(0));
  }
}

TYPED_TEST(TargetIntrinsicsTest, DisparityRangeSpansTheDepthRange) {
  using T = TypeParam;
  const T baselineFocal = T(0.1) * T(400);
  const auto params = AR::CV::Internal::setupTargetIntrinsics<T>(64, T(1), T(10), baselineFocal);
  const T tol = std::is_same_v<T, float> ? T(1e-5) : T(1e-12);
  EXPECT_NEAR(params.offsetX, T(64) / T(9), tol * 10);
  // depth = constant / (d + offsetX) with constant = baselineFocal * focalScale.
  const T constant = baselineFocal * params.focalScale;
  EXPECT_NEAR(constant, T(10) * params.offsetX, tol * 100);
  EXPECT_NEAR(constant / (T(64) + params.offsetX), T(1), tol);
  EXPECT_NEAR(constant / (T(0) + params.offsetX), T(10), tol * 10);
}

TYPED_TEST(TargetIntrinsicsTest, ReversedDepthRangeIsReported) {
  using T = TypeParam;
  LogCapture log;
  AR::CV::Internal::setupTargetIntrinsics<T>(64, T(5), T(2), T(40));
  EXPECT_EQ(log.countContaining("AR_ASSERT minDepth <= maxDepth CV/include/AR/CV/Stereo/Rectify("), 1u);
}

template <typename T>
class RectifiedRigTest : public ::testing::Test {};
TYPED_TEST_SUITE(RectifiedRigTest, Precisions);

TYPED_TEST(RectifiedRigTest, AlreadyRectifiedRigKeepsItsFrame) {
  using T = TypeParam;
  LogCapture log;
  const Target<T> target = makeTarget<T>(parallelRig<T>(T(0.12)), T(0));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);

  const auto& S = target.R_tl2ol.matrix();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(S(r, c), r == c ? T(1) : T(0), T(1e-6));

  ASSERT_EQ(target.calibration.size(), 2u);
  EXPECT_EQ(target.calibration[0].getNameStr(), "left");
  EXPECT_EQ(target.calibration[1].getNameStr(), "right");
  const auto& rightPose = target.calibration[1].getCamReferenceToLocal();
  EXPECT_NEAR(rightPose.translation()(0), T(-0.12), T(1e-6));
  EXPECT_EQ(rightPose.translation()(1), T(0));
  EXPECT_EQ(rightPose.translation()(2), T(0));
  EXPECT_TRUE(AR::Math::isIdentity(target.calibration[0].getCamReferenceToLocal().rotation().matrix()));

  // The vertical field of view of the centre column is kept: f = 400, and
  // without depth fitting fx = fy and both principal points are centred.
  for (int i = 0; i < 2; ++i) {
    const auto& model = target.calibration[i].getIntrinsics().getCamModel();
    EXPECT_EQ(model.model, LINEAR);
    EXPECT_NEAR(model.focalLength(0), T(400), T(1e-3));
    EXPECT_EQ(model.focalLength(0), model.focalLength(1));
    EXPECT_EQ(model.principalPoint(0), T(320));
    EXPECT_EQ(model.principalPoint(1), T(240));
    EXPECT_EQ(model.size(0), T(640));
    EXPECT_EQ(model.size(1), T(480));
  }
  EXPECT_NEAR(target.depth.constant, T(0.12) * T(400), T(1e-3));
  EXPECT_EQ(target.depth.offsetX, T(0));
}

TEST(MakeTargetCalibration, FittedDepthRangeShiftsTheRightPrincipalPoint) {
  const Target<float> target = makeTarget<float>(parallelRig<float>(0.1f), 1.0f);
  const auto& left = target.calibration[0].getIntrinsics().getCamModel();
  const auto& right = target.calibration[1].getIntrinsics().getCamModel();
  const float offsetX = 64.0f / 9.0f;
  EXPECT_NEAR(target.depth.offsetX, offsetX, 1e-5f);
  EXPECT_NEAR(target.depth.constant, 10.0f * offsetX, 1e-4f);
  EXPECT_EQ(left.principalPoint(0), 320.0f);
  EXPECT_NEAR(right.principalPoint(0), 320.0f + offsetX, 1e-4f);
  EXPECT_EQ(left.principalPoint(1), right.principalPoint(1));
  // constant = baseline * fx: the horizontal focal length carries the scale.
  EXPECT_NEAR(left.focalLength(0) * 0.1f, target.depth.constant, 1e-3f);
  EXPECT_NEAR(left.focalLength(1), 400.0f, 1e-3f);
}

TEST(MakeTargetCalibration, TargetWidthWiderThanTheImageIsReportedAndUsed) {
  const FullStereoCameraCalibration<float> rig = parallelRig<float>(0.1f);
  const char* condition = "targetImageWidth == 0u || targetImageWidth <= static_cast<uint32_t>(size(0))";
  {
    LogCapture log;
    const Target<float> target = makeTarget<float>(rig, 0.0f, 640);
    EXPECT_EQ(log.countContaining(condition), 0u);
    EXPECT_EQ(target.calibration[0].getIntrinsics().getSize()(0), 640.0f);
  }
  {
    LogCapture log;
    const Target<float> target = makeTarget<float>(rig, 0.0f, 641);
    EXPECT_EQ(log.countContaining(condition), 1u);
    EXPECT_EQ(target.calibration[1].getIntrinsics().getSize()(0), 641.0f);
    EXPECT_EQ(target.calibration[1].getIntrinsics().getPrincipalPoint()(0), 320.5f);
  }
}

TEST(MakeTargetCalibration, LeftCameraOffTheOriginIsReported) {
  using Vec3 = AR::Math::Vec3F;
  const FullStereoCameraCalibration<float> rig = AR::Test::makeRig<float>(
      AR::Test::pinhole640<float>(), AR::Test::pinhole640<float>(), SE3<float>(SO3<float>(), Vec3(-0.1f, 0, 0)),
      SE3<float>(AR::Test::rotationAbout(Vec3(0, 0, 1), 0.01f), Vec3(0, 0.02f, 0)));
  LogCapture log;
  makeTarget<float>(rig, 0.0f);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::isIdentity(T_ol2ol.rotation().matrix()) "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::norm(T_ol2ol.translation())==0 "), 1u);
}

// The rectifying rotation is (R_half * A)^T: it aligns the baseline with the
// target x axis only to first order in the half rotation. Real rigs stay far
// inside the check's tolerance; a rig turned by tens of degrees does not.
TEST(MakeTargetCalibration, BaselineAlignmentIsFirstOrderInTheRelativeRotation) {
  using Vec3 = AR::Math::Vec3F;
  const Vec3 offAxisBaseline(-0.1f, 0.002f, -0.0025f);
  {
    LogCapture log;
    const auto rig = AR::Test::makeRig<float>(
        AR::Test::pinhole640<float>(), AR::Test::pinhole640<float>(),
        SE3<float>(AR::Test::rotationAbout(Vec3(0.3f, 1, -0.2f), 0.035f), offAxisBaseline));
    const Target<float> target = makeTarget<float>(rig, 0.0f);
    EXPECT_EQ(log.countContaining(kBaselineCondition), 0u);
    const Vec3 baseline_ol = rig[1].getCamReferenceToLocal().rotation().matrix().transpose() *
                             rig[1].getCamReferenceToLocal().translation();
    const Vec3 v = AR::Math::unit(target.R_tl2ol.matrix().transpose() * baseline_ol);
    EXPECT_GT(-v(0), 1.0f - 1e-5f);
  }
  {
    LogCapture log;
    const auto rig = AR::Test::makeRig<float>(
        AR::Test::pinhole640<float>(), AR::Test::pinhole640<float>(),
        SE3<float>(AR::Test::rotationAbout(Vec3(0.3f, 1, -0.2f), 1.2f), Vec3(-0.1f, 0.03f, -0.04f)));
    makeTarget<float>(rig, 0.0f);
    EXPECT_EQ(log.countContaining(kBaselineCondition), 1u);
  }
}

TEST(MakeTargetCalibration, LeaningTurnsThePairAboutItsBaseline) {
  using Vec3 = AR::Math::Vec3F;
  const FullStereoCameraCalibration<float> rig = parallelRig<float>(0.1f);
  ScopedLogLevel debug(Logger::LEVEL_DEBUG);
  LogCapture log;
  // Lean towards a direction 0.2 up from the optical axis (y points down).
  const Target<float> target = makeTarget<float>(rig, 0.0f, 0, Vec3(0, -0.2f, 1));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  EXPECT_EQ(log.countContaining("Target calibration angle from desired direction "), 1u);

  // The baseline still lies along -x in the target frame.
  const Vec3 v = AR::Math::unit(target.R_tl2ol.matrix().transpose() * Vec3(-0.1f, 0, 0));
  EXPECT_NEAR(v(0), -1.0f, 1e-6f);
  // The target axis now points at the desired direction.
  const Vec3 axis_ol = target.R_tl2ol.matrix() * Vec3(0, 0, 1);
  EXPECT_NEAR(axis_ol(1) / axis_ol(2), -0.2f, 1e-5f);
  // Both principal points move to where the new axis appeared before the
  // turn: up by f * 0.2.
  for (int i = 0; i < 2; ++i) {
    const auto& principal = target.calibration[i].getIntrinsics().getPrincipalPoint();
    EXPECT_NEAR(principal(0), 320.0f, 1e-3f);
    EXPECT_NEAR(principal(1), 240.0f - 400.0f * 0.2f, 1e-2f);
  }
}

TEST(MakeTargetCalibration, LeaningAtRightAnglesIsReported) {
  using Vec3 = AR::Math::Vec3F;
  LogCapture log;
  const Target<float> target = makeTarget<float>(parallelRig<float>(0.1f), 0.0f, 0, Vec3(0, -1, 0));
  EXPECT_EQ(log.countContaining("AR_ASSERT angleFromTargetBefore < FloatType(AR_PI/4) "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::dot(currentDir_tl, newDir_tl) > 0 "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::dot(nearNewDir_tl, nearCurrentDir_tl) > 0 "), 1u);
  EXPECT_EQ(log.countContaining("Principal point moved outside FOV. Rotation too large"), 1u);
  // The principal points of the unrotated target are kept.
  EXPECT_EQ(target.calibration[0].getIntrinsics().getPrincipalPoint()(1), 240.0f);
}

}  // namespace
