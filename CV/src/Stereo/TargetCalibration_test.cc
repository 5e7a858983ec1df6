#include <gtest/gtest.h>

#include <cmath>

#include "LogCapture.h"
#include "RectifyTestRig.h"

namespace {

using AR::Common::Logger;
using AR::Math::SE3;
using AR::Math::SO3;
using AR::Math::Vec3F;
using AR::Test::LogCapture;
using AR::Test::makeTarget;
using AR::Test::parallelRig;

template <typename T>
class TargetTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TargetTest, Precisions);

TYPED_TEST(TargetTest, SetupTargetIntrinsicsFitsTheDisparityRangeToTheDepthRange) {
  using T = TypeParam;
  using AR::CV::Internal::setupTargetIntrinsics;
  for (T minDepth : {T(0), T(-1)}) {
    const auto off = setupTargetIntrinsics<T>(64, minDepth, T(10), T(40));
    EXPECT_EQ(off.focalScale, T(1));
    EXPECT_EQ(off.offsetX, T(0));
  }
  const T tol = std::is_same_v<T, float> ? T(1e-5) : T(1e-12);
  const auto fitted = setupTargetIntrinsics<T>(64, T(1), T(10), T(40));
  EXPECT_NEAR(fitted.offsetX, T(64) / T(9), 10 * tol);
  const T constant = T(40) * fitted.focalScale;
  EXPECT_NEAR(constant / (T(64) + fitted.offsetX), T(1), tol);  // disparity 64 is minDepth
  EXPECT_NEAR(constant / fitted.offsetX, T(10), 10 * tol);       // disparity 0 is maxDepth

  LogCapture log;
  setupTargetIntrinsics<T>(64, T(5), T(2), T(40));
  EXPECT_EQ(log.countContaining("AR_ASSERT minDepth <= maxDepth CV/include/AR/CV/Stereo/Rectify("), 1u);
}

TYPED_TEST(TargetTest, AlreadyRectifiedRigKeepsItsFrame) {
  using T = TypeParam;
  LogCapture log;
  const auto target = makeTarget<T>(parallelRig<T>(T(0.12)), T(0));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);

  const auto& S = target.R_tl2ol.matrix();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(S(r, c), r == c ? T(1) : T(0), T(1e-6));
  ASSERT_EQ(target.calibration.size(), 2u);
  EXPECT_EQ(target.calibration[0].getNameStr(), "left");
  EXPECT_EQ(target.calibration[1].getNameStr(), "right");
  EXPECT_TRUE(AR::Math::isIdentity(target.calibration[0].getCamReferenceToLocal().rotation().matrix()));
  const auto& t_right = target.calibration[1].getCamReferenceToLocal().translation();
  EXPECT_NEAR(t_right(0), T(-0.12), T(1e-6));
  EXPECT_EQ(t_right(1), T(0));
  EXPECT_EQ(t_right(2), T(0));

  // The vertical field of view of the centre column is kept (f = 400);
  // without depth fitting fx = fy and both principal points are centred.
  for (int i = 0; i < 2; ++i) {
    const auto& model = target.calibration[i].getIntrinsics().getCamModel();
    EXPECT_EQ(model.model, LINEAR);
    EXPECT_NEAR(model.focalLength(0), T(400), T(1e-3));
    EXPECT_EQ(model.focalLength(0), model.focalLength(1));
    EXPECT_EQ(model.principalPoint, (AR::Math::Vector<T, 2>(320, 240)));
    EXPECT_EQ(model.size, (AR::Math::Vector<T, 2>(640, 480)));
  }
  EXPECT_NEAR(target.depth.constant, T(0.12) * T(400), T(1e-3));
  EXPECT_EQ(target.depth.offsetX, T(0));
}

TEST(MakeTargetCalibration, TargetWidthWiderThanTheImageIsReportedAndUsed) {
  const char* condition = "targetImageWidth == 0u || targetImageWidth <= static_cast<uint32_t>(size(0))";
  for (uint32_t width : {640u, 641u}) {
    LogCapture log;
    const auto target = makeTarget<float>(parallelRig<float>(), 0.0f, width);
    EXPECT_EQ(log.countContaining(condition), width == 641u ? 1u : 0u);
    EXPECT_EQ(target.calibration[1].getIntrinsics().getSize()(0), float(width));
    EXPECT_EQ(target.calibration[1].getIntrinsics().getPrincipalPoint()(0), float(width) / 2);
  }
}

TEST(MakeTargetCalibration, LeftCameraOffTheOriginIsReported) {
  LogCapture log;
  makeTarget<float>(AR::Test::makeRig<float>(SE3<float>(SO3<float>(), Vec3F(-0.1f, 0, 0)),
                                             SE3<float>(SO3<float>::exp(Vec3F(0, 0, 0.01f)), Vec3F(0, 0.02f, 0))),
                    0.0f);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::isIdentity(T_ol2ol.rotation().matrix()) "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::norm(T_ol2ol.translation())==0 "), 1u);
}

// The rectifying rotation (R_half * A)^T aligns the baseline with the target
// x axis only to first order in the half rotation: a real rig (2 degrees,
// millimetres off axis) stays far inside the check, a rig turned by 70
// degrees does not.
TEST(MakeTargetCalibration, BaselineAlignmentIsFirstOrderInTheRelativeRotation) {
  const std::string condition =
      "AR_ASSERT (Math::fabs(Math::dot(Math::unit(R_tl2ol.inverse()*baselineVec_ol), baselineDir_target_t) - 1)) "
      "< 0.0001 CV/include/AR/CV/Stereo/Rectify(";
  const Vec3F axis = AR::Math::unit(Vec3F(0.3f, 1, -0.2f));
  {
    LogCapture log;
    const SE3<float> T_ol2or(SO3<float>::exp(axis * 0.035f), Vec3F(-0.1f, 0.002f, -0.0025f));
    const auto target = makeTarget<float>(AR::Test::makeRig<float>(T_ol2or), 0.0f);
    EXPECT_EQ(log.countContaining(condition), 0u);
    const Vec3F baseline_ol = T_ol2or.rotation().matrix().transpose() * T_ol2or.translation();
    EXPECT_LT(AR::Math::unit(Vec3F(target.R_tl2ol.matrix().transpose() * baseline_ol))(0), -1.0f + 1e-5f);
  }
  LogCapture log;
  makeTarget<float>(AR::Test::makeRig<float>(SE3<float>(SO3<float>::exp(axis * 1.2f), Vec3F(-0.1f, 0.03f, -0.04f))),
                    0.0f);
  EXPECT_EQ(log.countContaining(condition), 1u);
}

TEST(MakeTargetCalibration, LeaningTurnsThePairAboutItsBaseline) {
  AR::Test::ScopedLogLevel debug(Logger::LEVEL_DEBUG);
  LogCapture log;
  // Towards a direction 0.2 up from the optical axis (y points down).
  const auto target = makeTarget<float>(parallelRig<float>(), 0.0f, 0, Vec3F(0, -0.2f, 1));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  EXPECT_EQ(log.countContaining("Target calibration angle from desired direction 0.000000rads; was 0.197396rads."),
            1u);
  // The baseline still lies along -x, the target axis points at the direction.
  const auto& R = target.R_tl2ol.matrix();
  EXPECT_NEAR(AR::Math::unit(Vec3F(R.transpose() * Vec3F(-0.1f, 0, 0)))(0), -1.0f, 1e-6f);
  const Vec3F axis_ol = R * Vec3F(0, 0, 1);
  EXPECT_NEAR(axis_ol(1) / axis_ol(2), -0.2f, 1e-5f);
  // Both principal points move to where the new axis appeared before the turn.
  for (int i = 0; i < 2; ++i) {
    const auto& principal = target.calibration[i].getIntrinsics().getPrincipalPoint();
    EXPECT_NEAR(principal(0), 320.0f, 1e-3f);
    EXPECT_NEAR(principal(1), 240.0f - 400.0f * 0.2f, 1e-2f);
  }
}

TEST(MakeTargetCalibration, LeaningAtRightAnglesIsReportedAndKeepsThePrincipalPoints) {
  LogCapture log;
  const auto target = makeTarget<float>(parallelRig<float>(), 0.0f, 0, Vec3F(0, -1, 0));
  EXPECT_EQ(log.countContaining("AR_ASSERT angleFromTargetBefore < FloatType(AR_PI/4) "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::dot(currentDir_tl, newDir_tl) > 0 "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::dot(nearNewDir_tl, nearCurrentDir_tl) > 0 "), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT 0 && \"Principal point moved outside FOV. Rotation too large\" "), 1u);
  EXPECT_EQ(target.calibration[0].getIntrinsics().getPrincipalPoint()(1), 240.0f);
}

}  // namespace
