#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "AR/CV/Stereo/Rectify.h"
#include "LogCapture.h"

namespace {

using AR::Common::Logger;
using AR::CV::FullStereoCameraCalibration;
using AR::Math::SE3;
using AR::Math::SO3;
using AR::Math::Vec3F;
using AR::Test::LogCapture;
using SE3F = SE3<float>;
using SO3F = SO3<float>;

/// Two distortion-free 640 x 480 cameras with focal length 400: camera 0 at
/// `T_ref2left` (the origin for a proper rig), camera 1 at `T_ref2right`.
template <typename T>
FullStereoCameraCalibration<T> makeRig(const SE3<T>& T_ref2right, const SE3<T>& T_ref2left = SE3<T>()) {
  CamModel::CameraModel<T> model;
  model.size = AR::Math::Vector<T, 2>(640, 480);
  model.focalLength = AR::Math::Vector<T, 2>(400, 400);
  model.principalPoint = AR::Math::Vector<T, 2>(320, 240);
  FullStereoCameraCalibration<T> rig;
  rig.setupEmptyCalibrationWithDefaultIds(2);
  rig[0].init(model, T_ref2left, AR::CV::CamImageId("trackingA0"), false, T(0), AR::CV::CaptureDetails(), 0.0);
  rig[1].init(model, T_ref2right, AR::CV::CamImageId("trackingB1"), false, T(0), AR::CV::CaptureDetails(), 0.0);
  return rig;
}

template <typename T>
SE3<T> rightOf(T baseline) { return SE3<T>(SO3<T>(), AR::Math::Vector<T, 3>(-baseline, 0, 0)); }

template <typename T>
struct Target { FullStereoCameraCalibration<T> calibration; SO3<T> R_tl2ol; AR::CV::DepthParams<T> depth; };

/// makeTargetCalibration with 64 disparities and maxDepth 10.
template <typename T>
Target<T> makeTarget(const FullStereoCameraCalibration<T>& rig, T minDepth, uint32_t width = 0,
                     const AR::Math::Vector<T, 3>& direction = AR::Math::Vector<T, 3>()) {
  Target<T> target;
  AR::CV::makeTargetCalibration<T>(rig, 64, minDepth, T(10), width, SE3<T>(), direction, target.calibration,
                                   target.R_tl2ol, target.depth);
  return target;
}

std::string reported(const std::string& condition) {
  return "AR_ASSERT " + condition + " CV/include/AR/CV/Stereo/Rectify(";
}

template <typename T>
class Rectification : public testing::Test {
 protected:
  static constexpr T tol = std::is_same_v<T, float> ? T(1e-5) : T(1e-12);
};
using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(Rectification, Precisions);

// Parallel rays fail and write nothing; rays through (2, 1, 3) at 60 degrees
// (directions of unequal length) meet there; skew rays (the x axis and a line
// along z through (3, 2)) give the midpoint of their common perpendicular.
TYPED_TEST(Rectification, TwoPointsGivesTheMidpointOfTheCommonPerpendicular) {
  using T = TypeParam;
  using V = AR::Math::Vector<T, 3>;
  const T tol = TestFixture::tol;
  const V d60 = V(T(0.5), std::sqrt(T(3)) / T(2), 0) * T(4);
  struct Case { V o1, d1, o2, d2; bool meets; V point, onRay1; T distance, angle; };
  const Case cases[] = {
      {V(0, 0, 0), V(1, 2, 3), V(0, 1, 0), V(-2, -4, -6), false, V(7, 8, 9), V(), T(-5), 0},
      {V(0, 1, 3), V(1, 0, 0), V(2, 1, 3) - d60 * T(0.75), d60, true, V(2, 1, 3), V(2, 1, 3), 0, T(M_PI / 3)},
      {V(-1, 0, 0), V(2, 0, 0), V(3, 2, 5), V(0, 0, -2), true, V(3, 1, 0), V(3, 0, 0), 2, T(M_PI / 2)},
  };
  for (const Case& c : cases) {
    V point(7, 8, 9), withoutDetails;
    AR::CV::TriangulationDetails<T> details;
    details.distance = T(-5);
    ASSERT_EQ(AR::CV::MidPoint::twoPoints(c.o1, c.d1, c.o2, c.d2, point, &details), c.meets);
    ASSERT_EQ(AR::CV::MidPoint::twoPoints(c.o1, c.d1, c.o2, c.d2, withoutDetails), c.meets);
    EXPECT_NEAR(details.distance, c.distance, 10 * tol);  // unwritten (-5) for parallel rays
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(point(i), c.point(i), 10 * tol);
    if (!c.meets) continue;
    EXPECT_EQ(withoutDetails, point);
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(details.pointOnRay1(i), c.onRay1(i), 10 * tol);
      EXPECT_NEAR(details.pointOnRay2(i), 2 * c.point(i) - c.onRay1(i), 10 * tol);
    }
    EXPECT_NEAR(details.cosAngle, std::cos(c.angle), tol);
    EXPECT_NEAR(details.angle, c.angle, 10 * tol);
  }
}

TYPED_TEST(Rectification, SetupTargetIntrinsicsFitsTheDisparityRangeToTheDepthRange) {
  using T = TypeParam;
  using AR::CV::Internal::setupTargetIntrinsics;
  const auto off = setupTargetIntrinsics<T>(64, T(0), T(10), T(40));
  EXPECT_EQ(off.focalScale, T(1));
  EXPECT_EQ(off.offsetX, T(0));
  const T tol = TestFixture::tol;
  const auto fitted = setupTargetIntrinsics<T>(64, T(1), T(10), T(40));
  EXPECT_NEAR(fitted.offsetX, T(64) / T(9), 10 * tol);
  const T constant = T(40) * fitted.focalScale;
  EXPECT_NEAR(constant / (T(64) + fitted.offsetX), T(1), tol);  // disparity 64 is minDepth
  EXPECT_NEAR(constant / fitted.offsetX, T(10), 10 * tol);       // disparity 0 is maxDepth
  LogCapture log;
  setupTargetIntrinsics<T>(64, T(5), T(2), T(40));
  EXPECT_EQ(log.countContaining(reported("minDepth <= maxDepth")), 1u);
}

TYPED_TEST(Rectification, AlreadyRectifiedRigKeepsItsFrame) {
  using T = TypeParam;
  LogCapture log;
  const auto target = makeTarget<T>(makeRig<T>(rightOf(T(0.12))), T(0));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  const auto& S = target.R_tl2ol.matrix();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(S(r, c), r == c ? T(1) : T(0), T(1e-6));
  const auto& t_right = target.calibration[1].getCamReferenceToLocal().translation();
  EXPECT_EQ(t_right, (AR::Math::Vector<T, 3>(t_right(0), 0, 0)));
  EXPECT_NEAR(t_right(0), T(-0.12), T(1e-6));
  // The vertical field of view of the centre column is kept (f = 400);
  // without depth fitting fx = fy and both principal points are centred.
  for (int i = 0; i < 2; ++i) {
    const auto& model = target.calibration[i].getIntrinsics().getCamModel();
    EXPECT_NEAR(model.focalLength(0), T(400), T(1e-3));
    EXPECT_EQ(model.focalLength(0), model.focalLength(1));
    EXPECT_EQ(model.principalPoint, (AR::Math::Vector<T, 2>(320, 240)));
  }
  EXPECT_NEAR(target.depth.constant, T(0.12) * T(400), T(1e-3));
  EXPECT_EQ(target.depth.offsetX, T(0));
}

// With offsetX 0 only the rays of disparity 0 are parallel (depth 1000 in the
// log). The rows are logged at VERBOSE only, and a wrong constant is reported
// for every triangulated row.
TEST(CheckMappingFactor, LogsEveryRowAtVerboseAndReportsAWrongConstant) {
  const auto target = makeTarget<float>(makeRig<float>(rightOf(0.1f)), 0.0f);
  const AR::CV::DepthParams<float> wrong{target.depth.constant * 1.01f, target.depth.offsetX};
  Logger& logger = Logger::getInstance();
  const Logger::LEVEL level = logger.getLevel();
  LogCapture log;
  logger.setLevel(Logger::LEVEL_VERBOSE);
  AR::CV::Internal::checkMappingFactor(AR::Math::Vec2F(640, 480), target.calibration, target.depth);
  logger.setLevel(Logger::LEVEL_DEBUG);
  AR::CV::Internal::checkMappingFactor(AR::Math::Vec2F(640, 480), target.calibration, target.depth);
  AR::CV::Internal::checkMappingFactor(AR::Math::Vec2F(640, 480), target.calibration, wrong);
  logger.setLevel(level);
  ASSERT_EQ(log.messages().size(), 129u + 127u);
  EXPECT_EQ(log.messages()[0], "AR VERBOSE: \tDisparity\tDepth\n");
  EXPECT_EQ(log.messages()[1], "AR VERBOSE: \t0\t1000.000000\n");
  EXPECT_EQ(log.countContaining("\t1000.000000"), 1u);
  EXPECT_EQ(log.countContaining(
                reported("AR::Math::fabs((disp + depthParams.offsetX) * depth - depthParams.constant) < 0.0001f")),
            127u);
}

// The rectifying rotation aligns the baseline only to first order: a real rig
// (2 degrees, millimetres off axis) passes the check, one turned by 70 degrees
// does not (nor does the round trip through the target).
TEST(MakeTargetCalibration, FailedConditionsAreReported) {
  const Vec3F axis = AR::Math::unit(Vec3F(0.3f, 1, -0.2f)), none, up(0, -1, 0);
  const SE3F right = rightOf(0.1f), leftOff(SO3F::exp(Vec3F(0, 0, 0.01f)), Vec3F(0, 0.02f, 0));
  const SE3F real(SO3F::exp(axis * 0.035f), Vec3F(-0.1f, 0.002f, -0.0025f));
  const SE3F turned(SO3F::exp(axis * 1.2f), Vec3F(-0.1f, 0.03f, -0.04f));
  const char* baseline =
      "(Math::fabs(Math::dot(Math::unit(R_tl2ol.inverse()*baselineVec_ol), baselineDir_target_t) - 1)) < 0.0001";
  struct Case { SE3F right, left; uint32_t width; Vec3F direction; const char* condition; size_t count; };
  const Case cases[] = {
      {right, SE3F(), 641, none, "targetImageWidth == 0u || targetImageWidth <= static_cast<uint32_t>(size(0))", 1},
      {right, leftOff, 0, none, "Math::isIdentity(T_ol2ol.rotation().matrix())", 1},
      {right, leftOff, 0, none, "Math::norm(T_ol2ol.translation())==0", 1},
      {real, SE3F(), 0, none, baseline, 0},
      {turned, SE3F(), 0, none, baseline, 1},
      {turned, SE3F(), 0, none, "AR::Math::norm(x_ol_reproj - x_ol) < 1e-1", 1},
      {right, SE3F(), 0, up, "angleFromTargetBefore < FloatType(AR_PI/4)", 1},
      {right, SE3F(), 0, up, "Math::dot(currentDir_tl, newDir_tl) > 0", 1},
      {right, SE3F(), 0, up, "0 && \"Principal point moved outside FOV. Rotation too large\"", 1},
  };
  for (const Case& c : cases) {
    LogCapture log;
    makeTarget<float>(makeRig<float>(c.right, c.left), 0.0f, c.width, c.direction);
    EXPECT_EQ(log.countContaining(reported(c.condition)), c.count) << c.condition;
  }
}

}  // namespace
