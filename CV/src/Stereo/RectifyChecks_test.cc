#include <gtest/gtest.h>

#include <cmath>

#include "LogCapture.h"
#include "RectifyTestRig.h"

namespace {

using AR::Common::Logger;
using AR::CV::TriangulationDetails;
using AR::CV::MidPoint::twoPoints;
using AR::Math::SE3;
using AR::Math::SO3;
using AR::Math::Vec2F;
using AR::Math::Vec3F;
using AR::Test::LogCapture;
using AR::Test::ScopedLogLevel;

template <typename T>
class TwoPointsTest : public ::testing::Test {
 protected:
  using Vec3 = AR::Math::Vector<T, 3>;
  static T tol() { return std::is_same_v<T, float> ? T(1e-5) : T(1e-12); }
  static void expectNear(const Vec3& a, const Vec3& b, T tolerance) {
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a(i), b(i), tolerance) << i;
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TwoPointsTest, Precisions);

TYPED_TEST(TwoPointsTest, ParallelRaysFailAndWriteNothing) {
  using Vec3 = typename TestFixture::Vec3;
  Vec3 point(7, 8, 9);
  TriangulationDetails<TypeParam> details;
  details.distance = TypeParam(-5);
  EXPECT_FALSE(twoPoints(Vec3(0, 0, 0), Vec3(0, 0, 1), Vec3(1, 0, 0), Vec3(0, 0, 3), point, &details));
  EXPECT_FALSE(twoPoints(Vec3(0, 0, 0), Vec3(1, 2, 3), Vec3(0, 1, 0), Vec3(-2, -4, -6), point, &details));
  EXPECT_EQ(point, Vec3(7, 8, 9));
  EXPECT_EQ(details.distance, TypeParam(-5));
}

TYPED_TEST(TwoPointsTest, IntersectingRaysGiveTheirIntersectionAndAngle) {
  using T = TypeParam;
  using Vec3 = typename TestFixture::Vec3;
  // Directions of unequal length at 60 degrees, both rays through (2, 1, 3).
  const Vec3 target(2, 1, 3), d1(1, 0, 0), d2 = Vec3(T(0.5), std::sqrt(T(3)) / T(2), 0) * T(4);
  Vec3 point;
  TriangulationDetails<T> details;
  ASSERT_TRUE(twoPoints(Vec3(target - d1 * T(2)), d1, Vec3(target - d2 * T(0.75)), d2, point, &details));
  TestFixture::expectNear(point, target, 10 * TestFixture::tol());
  TestFixture::expectNear(details.pointOnRay2, target, 10 * TestFixture::tol());
  EXPECT_NEAR(details.distance, T(0), 10 * TestFixture::tol());
  EXPECT_NEAR(details.cosAngle, T(0.5), TestFixture::tol());
  EXPECT_NEAR(details.angle, T(M_PI / 3), 10 * TestFixture::tol());
}

TYPED_TEST(TwoPointsTest, SkewRaysGiveTheMidpointOfTheCommonPerpendicular) {
  using T = TypeParam;
  using Vec3 = typename TestFixture::Vec3;
  // Ray 1 is the x axis, ray 2 runs along z through (3, 2): the shortest
  // segment joins (3, 0, 0) and (3, 2, 0).
  const Vec3 o1(-1, 0, 0), d1(2, 0, 0), o2(3, 2, 5), d2(0, 0, -2);
  Vec3 point, withoutDetails;
  TriangulationDetails<T> details;
  ASSERT_TRUE(twoPoints(o1, d1, o2, d2, point, &details));
  TestFixture::expectNear(point, Vec3(3, 1, 0), TestFixture::tol());
  TestFixture::expectNear(details.pointOnRay1, Vec3(3, 0, 0), TestFixture::tol());
  EXPECT_NEAR(details.distance, T(2), TestFixture::tol());
  EXPECT_NEAR(details.angle, T(M_PI / 2), TestFixture::tol());
  ASSERT_TRUE(twoPoints(o1, d1, o2, d2, withoutDetails));
  EXPECT_EQ(withoutDetails, point);
}

constexpr const char* kMappingCondition =
    "AR_ASSERT AR::Math::fabs((disp + depthParams.offsetX) * depth - depthParams.constant) < 0.0001f "
    "CV/include/AR/CV/Stereo/Rectify(";

TEST(CheckMappingFactor, SaneTargetLogsRowsOnlyAtVerboseWithDepth1000ForParallelRays) {
  const auto target = AR::Test::makeTarget<float>(AR::Test::parallelRig<float>(), 0.0f);
  {
    ScopedLogLevel verbose(Logger::LEVEL_VERBOSE);
    LogCapture log;
    AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, target.depth);
    ASSERT_EQ(log.messages().size(), 129u);  // header, disparities 0..127
    EXPECT_EQ(log.messages()[0], "AR VERBOSE: \tDisparity\tDepth\n");
    // With offsetX = 0 the rays of disparity 0 are parallel, and only those.
    EXPECT_EQ(log.messages()[1], "AR VERBOSE: \t0\t1000.000000\n");
    EXPECT_EQ(log.countContaining("\t1000.000000"), 1u);
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  }
  ScopedLogLevel debug(Logger::LEVEL_DEBUG);
  LogCapture log;
  AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, target.depth);
  EXPECT_TRUE(log.messages().empty());

  // A wrong constant is reported for every triangulated row (1..127).
  AR::CV::DepthParams<float> wrong = target.depth;
  wrong.constant *= 1.01f;
  AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, wrong);
  EXPECT_EQ(log.countContaining(kMappingCondition), 127u);
}

TEST(CheckMappingFactor, FittedDepthRangeTriangulatesEveryRow) {
  const auto target = AR::Test::makeTarget<float>(AR::Test::parallelRig<float>(), 1.0f);
  ScopedLogLevel verbose(Logger::LEVEL_VERBOSE);
  LogCapture log;
  AR::CV::Internal::checkMappingFactor(Vec2F(640, 480), target.calibration, target.depth);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  EXPECT_EQ(log.countContaining("\t1000.000000"), 0u);  // offsetX shifts every right ray
  EXPECT_TRUE(log.has("AR VERBOSE: \t64\t1.000000\n"));  // disparity 64 is minDepth
}

TEST(ValidateStereoRectify, RectifiedRigPassesAndLogsBothProjectionsAtInfo) {
  const auto rig = AR::Test::parallelRig<float>();
  const auto target = AR::Test::makeTarget<float>(rig, 0.0f);
  ScopedLogLevel info(Logger::LEVEL_INFO);
  LogCapture log;
  AR::CV::Internal::validateStereoRectify(rig, target.calibration, target.R_tl2ol);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  EXPECT_EQ(log.countContaining("x_tl=(320.000000,240.000000)"), 1u);
  EXPECT_EQ(log.countContaining("x_tr=(280.000000,240.000000)"), 1u);  // 400 * 0.1 to the left
}

TEST(ValidateStereoRectify, RowsDifferingBy1e2OrMoreAreReported) {
  // The test point lands on the principal point's row of each camera. The
  // bound is the double 0.01: a float difference of exactly 0.01f passes.
  const SE3<float> right(SO3<float>(), Vec3F(-0.1f, 0, 0));
  for (const auto& [rightCy, reported] : {std::pair{0.02f, 0u}, std::pair{0.03f, 1u}}) {
    const auto rig = AR::Test::makeRig<float>(right, SE3<float>(), AR::Test::pinhole640<float>(0.01f),
                                              AR::Test::pinhole640<float>(rightCy));
    LogCapture log;
    AR::CV::Internal::validateStereoRectify(rig, rig, SO3<float>());
    EXPECT_EQ(log.countContaining("AR_ASSERT AR::Math::fabs(x_tl(1) - x_tr(1)) < 1e-2 "), reported) << rightCy;
    EXPECT_EQ(log.countContaining("AR_ASSERT"), reported) << rightCy;
  }
}

TEST(ValidateStereoRectify, LeftCameraOffTheOriginBreaksTheRoundTrip) {
  // The round trip rescales the test point along its ray, which only lands
  // on the same pixel when the input left camera sits at the origin.
  const auto rig = AR::Test::makeRig<float>(SE3<float>(SO3<float>(), Vec3F(-0.1f, 0, 0)),
                                            SE3<float>(SO3<float>(), Vec3F(0.5f, 0, 0)));
  const auto target = AR::Test::makeTarget<float>(rig, 0.0f);
  LogCapture log;
  AR::CV::Internal::validateStereoRectify(rig, target.calibration, SO3<float>::exp(Vec3F(0, 0.35f, 0)));
  EXPECT_EQ(log.countContaining("AR_ASSERT AR::Math::norm(x_ol_reproj - x_ol) < 1e-1 "), 1u);
}

}  // namespace
