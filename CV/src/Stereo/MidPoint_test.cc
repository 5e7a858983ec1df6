#include <gtest/gtest.h>

#include <cmath>

#include "AR/CV/Stereo/Rectify.h"

namespace {

using AR::CV::TriangulationDetails;
using AR::CV::MidPoint::twoPoints;

template <typename T>
class TwoPointsTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TwoPointsTest, Precisions);

template <typename T>
T tolerance() {
  return std::is_same_v<T, float> ? T(1e-5) : T(1e-12);
}

TYPED_TEST(TwoPointsTest, ParallelRaysFailAndWriteNothing) {
  using T = TypeParam;
  using Vec3 = AR::Math::Vector<T, 3>;
  const Vec3 sentinel(7, 8, 9);
  Vec3 point = sentinel;
  TriangulationDetails<T> details;
  details.distance = T(-5);
  // Same direction, opposite direction and different lengths: all parallel.
  EXPECT_FALSE(twoPoints(Vec3(0, 0, 0), Vec3(0, 0, 1), Vec3(1, 0, 0), Vec3(0, 0, 3), point, &details));
  EXPECT_FALSE(twoPoints(Vec3(0, 0, 0), Vec3(1, 2, 3), Vec3(0, 1, 0), Vec3(-2, -4, -6), point, &details));
  EXPECT_EQ(point, sentinel);
  EXPECT_EQ(details.distance, T(-5));
}

TYPED_TEST(TwoPointsTest, IntersectingRaysGiveTheirIntersection) {
  using T = TypeParam;
  using Vec3 = AR::Math::Vector<T, 3>;
  // Rays through (2, 1, 3) from two origins, directions of unequal length at
  // 60 degrees to each other.
  const Vec3 target(2, 1, 3);
  const Vec3 d1(1, 0, 0);
  const Vec3 d2 = Vec3(T(0.5), std::sqrt(T(3)) / T(2), 0) * T(4);
  const Vec3 o1 = target - d1 * T(2);
  const Vec3 o2 = target - d2 * T(0.75);
  Vec3 point;
  TriangulationDetails<T> details;
  ASSERT_TRUE(twoPoints(o1, d1, o2, d2, point, &details));
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(point(i), target(i), tolerance<T>() * 10);
    EXPECT_NEAR(details.pointOnRay1(i), target(i), tolerance<T>() * 10);
    EXPECT_NEAR(details.pointOnRay2(i), target(i), tolerance<T>() * 10);
  }
  EXPECT_NEAR(details.distance, T(0), tolerance<T>() * 10);
  EXPECT_NEAR(details.cosAngle, T(0.5), tolerance<T>());
  EXPECT_NEAR(details.angle, T(M_PI / 3), tolerance<T>() * 10);
}

TYPED_TEST(TwoPointsTest, SkewRaysGiveTheMidpointOfTheCommonPerpendicular) {
  using T = TypeParam;
  using Vec3 = AR::Math::Vector<T, 3>;
  // Ray 1 is the x axis; ray 2 runs along z through (3, 2, *). The shortest
  // segment joins (3, 0, 0) and (3, 2, 0).
  Vec3 point;
  TriangulationDetails<T> details;
  ASSERT_TRUE(twoPoints(Vec3(-1, 0, 0), Vec3(2, 0, 0), Vec3(3, 2, 5), Vec3(0, 0, -2), point, &details));
  const Vec3 expected(3, 1, 0);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(point(i), expected(i), tolerance<T>());
  EXPECT_NEAR(details.pointOnRay1(1), T(0), tolerance<T>());
  EXPECT_NEAR(details.pointOnRay2(1), T(2), tolerance<T>());
  EXPECT_NEAR(details.distance, T(2), tolerance<T>());
  EXPECT_NEAR(details.angle, T(M_PI / 2), tolerance<T>());

  // The details are optional and do not change the point.
  Vec3 withoutDetails;
  ASSERT_TRUE(twoPoints(Vec3(-1, 0, 0), Vec3(2, 0, 0), Vec3(3, 2, 5), Vec3(0, 0, -2), withoutDetails));
  EXPECT_EQ(withoutDetails, point);
}

}  // namespace
