#include "AR/Math/internal/VectorFunctions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "AR/Math/Matrix.h"
#include "LogCapture.h"

namespace AR {
namespace Math {
namespace {

template <typename T>
class VectorFunctionsTest : public ::testing::Test {
 protected:
  // A few units in the last place of a value of order 1.
  static T tolerance() { return T(8) * std::numeric_limits<T>::epsilon(); }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(VectorFunctionsTest, Precisions);

TYPED_TEST(VectorFunctionsTest, ProductsFollowTheRightHandRule) {
  using V = Vector<TypeParam, 3>;
  const V x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
  EXPECT_EQ(cross(x, y), z);
  EXPECT_EQ(cross(y, z), x);
  EXPECT_EQ(cross(z, x), y);
  EXPECT_EQ(cross(y, x), -z);
  const V a(1, -2, 3), b(4, 5, -6);
  EXPECT_EQ(dot(a, b), TypeParam(-24));
  EXPECT_EQ(dot(cross(a, b), a), TypeParam(0));
  EXPECT_EQ(dot(cross(a, b), b), TypeParam(0));
  EXPECT_EQ(norm(V(2, 3, 6)), TypeParam(7));
  EXPECT_EQ(fabs(a), V(1, 2, 3));
  EXPECT_EQ(fabs(TypeParam(-0.5)), TypeParam(0.5));
}

TYPED_TEST(VectorFunctionsTest, IsZeroOnlyForExactZeros) {
  using V = Vector<TypeParam, 3>;
  EXPECT_TRUE(isZero(V()));
  EXPECT_TRUE(isZero(V(0, -0.0, 0)));
  EXPECT_FALSE(isZero(V(0, 0, std::numeric_limits<TypeParam>::denorm_min())));
  EXPECT_FALSE(isZero(V(0, std::numeric_limits<TypeParam>::quiet_NaN(), 0)));
}

TYPED_TEST(VectorFunctionsTest, NormalizeAndUnitGiveUnitLength) {
  using V = Vector<TypeParam, 4>;
  V v(3, 0, -4, 12);
  const V u = unit(v);
  normalize(v);
  for (const V& w : {u, v}) {
    EXPECT_NEAR(norm(w), TypeParam(1), this->tolerance());
    EXPECT_NEAR(w(0), TypeParam(3) / 13, this->tolerance());
    EXPECT_NEAR(w(3), TypeParam(12) / 13, this->tolerance());
    EXPECT_EQ(w(1), TypeParam(0));
  }
  // Short vectors keep their direction as long as the squared length is normal.
  Vector<TypeParam, 2> tiny(TypeParam(-1e-15), 0);
  normalize(tiny);
  EXPECT_EQ(tiny, (Vector<TypeParam, 2>(-1, 0)));
}

TYPED_TEST(VectorFunctionsTest, NormalizingZeroLengthIsFatal) {
  Vector<TypeParam, 3> zero;
  EXPECT_DEATH(normalize(zero),
               "length>0.*Math/include/AR/Math/internal/VectorFunctions.*AR::Math::normalize");
  EXPECT_DEATH(unit(zero), "length>0.*Math/include/AR/Math/internal/VectorFunctions.*AR::Math::unit");
  Vector<TypeParam, 3> nan(std::numeric_limits<TypeParam>::quiet_NaN(), 0, 0);
  EXPECT_DEATH(normalize(nan), "length>0");
  // The squared length underflows to 0: no direction can be recovered.
  Vector<TypeParam, 3> underflow(std::numeric_limits<TypeParam>::min(), 0, 0);
  EXPECT_DEATH(normalize(underflow), "length>0");
}

TYPED_TEST(VectorFunctionsTest, PerpendicularIsTheNearestUnitVectorOrthogonalToV) {
  using V = Vector<TypeParam, 3>;
  const V p = perpendicular(V(0, 0, 1), V(3, 4, 5));
  const TypeParam tol = this->tolerance();
  EXPECT_NEAR(p(0), TypeParam(0.6), tol);
  EXPECT_NEAR(p(1), TypeParam(0.8), tol);
  EXPECT_EQ(p(2), TypeParam(0));
  const V v = unit(V(1, 2, 2));
  const V q = perpendicular(v, V(0.5, -1, 3));
  EXPECT_NEAR(norm(q), TypeParam(1), tol);
  EXPECT_NEAR(dot(q, v), TypeParam(0), tol);
}

TYPED_TEST(VectorFunctionsTest, PerpendicularFallsBackWhenTIsParallel) {
  using V = Vector<TypeParam, 3>;
  // v(0) == 0: the fallback is (1,0,0), already perpendicular to v.
  EXPECT_EQ(perpendicular(V(0, 0, 1), V(0, 0, 5)), V(1, 0, 0));
  EXPECT_EQ(perpendicular(V(0, 1, 0), V(0, -2, 0)), V(1, 0, 0));
  // v(0) != 0: the fallback is (0,1,0), projected off v.
  EXPECT_EQ(perpendicular(V(1, 0, 0), V(3, 0, 0)), V(0, 1, 0));
  EXPECT_EQ(perpendicular(V(-1, 0, 0), V()), V(0, 1, 0));
  EXPECT_EQ(perpendicular(V(0, -1, 0), V(0, 0.25, 0)), V(1, 0, 0));
}

TYPED_TEST(VectorFunctionsTest, PerpendicularOfANonUnitVIsFatal) {
  using V = Vector<TypeParam, 3>;
  // A short v removes too little of t, so the result still leans along v and
  // fails the orthogonality check. A long v overshoots and the result leans
  // against v, which the signed check lets pass.
  EXPECT_DEATH(perpendicular(V(0.5, 0, 0), V(1, 1, 0)),
               "dot\\(v, perpendicular\\) < 1e-4.*Math/include/AR/Math/internal/VectorFunctions.*"
               "AR::Math::perpendicular");
  const V p = perpendicular(V(2, 0, 0), V(1, 1, 0));
  EXPECT_LT(dot(V(2, 0, 0), p), TypeParam(0));
}

TEST(VectorToString, PrintsElementsWithStandardConversion) {
  EXPECT_EQ(to_string(Vec2I(-3, 17)), "(-3,17)");
  EXPECT_EQ(to_string(Vec2F(0.5f, -1e-7f)), "(0.500000,-0.000000)");
  EXPECT_EQ(to_string(Vec3F(0.f, 1.f, -2.5f)), "(0.000000,1.000000,-2.500000)");
  EXPECT_EQ(to_string(Vec3D(1e6, 0.1234567, 2)), "(1000000.000000,0.123457,2.000000)");
}

TEST(DynamicSize, ElementAccessIsChecked) {
  AR::Test::LogCapture log;
  VecXD v(3, 1.5);
  v(2) = -4;
  EXPECT_EQ(v[2], -4.0);
  EXPECT_TRUE(log.messages().empty());
  // Out of range: reported, reads 0, writes go nowhere.
  v(3) = 7;
  EXPECT_EQ(v(5), 0.0);
  EXPECT_EQ(VecXF()(0), 0.f);  // an empty vector has no valid index at all
  EXPECT_EQ(log.countContaining("AR_ASSERT i<this->size() Math/include/AR/Math/Vector("), 3u);
  VecXD expected(3, 1.5);
  expected(2) = -4;
  EXPECT_EQ(v, expected);  // the out-of-range write changed nothing

  log.clear();
  MatrixXF m(2, 3);
  m(1, 2) = 5.f;
  EXPECT_EQ(m.data()[5], 5.f);  // row-major
  m(2, 0) = 9.f;
  EXPECT_EQ(m(0, 3), 0.f);
  EXPECT_EQ(log.countContaining("AR_ASSERT nRow<this->rows() Math/include/AR/Math/Matrix("), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT nCol<this->cols() Math/include/AR/Math/Matrix("), 1u);
  MatrixXF expectedM(2, 3);
  expectedM(1, 2) = 5.f;
  EXPECT_EQ(m, expectedM);
}

}  // namespace
}  // namespace Math
}  // namespace AR
