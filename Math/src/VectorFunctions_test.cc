#include "AR/Math/internal/VectorFunctions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "AR/Math/MathDebugging.h"
#include "AR/Math/Matrix.h"
#include "LogCapture.h"

namespace AR {
namespace Math {
namespace {

template <typename T>
class VectorFunctionsTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(VectorFunctionsTest, Precisions);

TYPED_TEST(VectorFunctionsTest, ProductsNormsAndExactZeros) {
  using V = Vector<TypeParam, 3>;
  EXPECT_TRUE(cross(V(1, 0, 0), V(0, 1, 0)) == V(0, 0, 1) &&
              cross(V(0, 0, 1), V(0, 1, 0)) == V(-1, 0, 0));
  EXPECT_EQ(fabs(V(1, -2, -0.5)), V(1, 2, 0.5));
  EXPECT_TRUE(isZero(V(0, -0.0, 0)));
  EXPECT_FALSE(isZero(V(0, 0, std::numeric_limits<TypeParam>::denorm_min())));
  EXPECT_FALSE(isZero(V(0, std::numeric_limits<TypeParam>::quiet_NaN(), 0)));
}

TYPED_TEST(VectorFunctionsTest, NormalizeAndUnitOrDieOnZeroLength) {
  using V = Vector<TypeParam, 4>;
  V v(3, 0, -4, 12);
  const V u = unit(v);
  normalize(v);
  const TypeParam tol = 8 * std::numeric_limits<TypeParam>::epsilon();
  for (const V& w : {u, v}) EXPECT_LT(norm(w - V(3, 0, -4, 12) * (TypeParam(1) / 13)), tol);
  Vector<TypeParam, 2> tiny(TypeParam(-1e-15), 0);  // fine while the squared length is normal
  normalize(tiny);
  EXPECT_EQ(tiny, (Vector<TypeParam, 2>(-1, 0)));
  Vector<TypeParam, 3> zero, underflow(std::numeric_limits<TypeParam>::min(), 0, 0);
  EXPECT_DEATH(normalize(zero),
               "length>0.*Math/include/AR/Math/internal/VectorFunctions.*AR::Math::normalize");
  EXPECT_DEATH(unit(zero), "length>0.*AR::Math::unit");
  EXPECT_DEATH(normalize(underflow), "length>0");  // no direction can be recovered
}

TYPED_TEST(VectorFunctionsTest, PerpendicularIsNearestToTOrFallsBackWhenTIsParallel) {
  using V = Vector<TypeParam, 3>;
  const V p = perpendicular(V(0, 0, 1), V(3, 4, 5));
  EXPECT_LT(norm(p - V(0.6, 0.8, 0)), 8 * std::numeric_limits<TypeParam>::epsilon());
  EXPECT_EQ(perpendicular(V(0, 0, 1), V(0, 0, 5)), V(1, 0, 0));  // v(0) == 0: (1,0,0)
  EXPECT_EQ(perpendicular(V(1, 0, 0), V(3, 0, 0)), V(0, 1, 0));  // else (0,1,0)
  EXPECT_EQ(perpendicular(V(0, -1, 0), V()), V(1, 0, 0));
  // A short v leaves the result leaning along v; a long one passes the signed check.
  EXPECT_DEATH(perpendicular(V(0.5, 0, 0), V(1, 1, 0)),
               "dot\\(v, perpendicular\\) < 1e-4.*Math/include/AR/Math/internal/VectorFunctions.*"
               "AR::Math::perpendicular");
  EXPECT_LT(dot(V(2, 0, 0), perpendicular(V(2, 0, 0), V(1, 1, 0))), TypeParam(0));
}

TEST(VectorText, ToStringAndCheckedDynamicAccessWhereOutOfRangeChangesNothing) {
  EXPECT_EQ(to_string(Vec2I(-3, 17)), "(-3,17)");
  EXPECT_EQ(to_string(Vec3F(0.f, 1.f, -2.5f)), "(0.000000,1.000000,-2.500000)");
  AR::Test::LogCapture log;
  VecXD v(3, 1.5);
  v(3) = 7;
  EXPECT_EQ(v(5) + VecXD()(0), 0.0);
  EXPECT_EQ(v, VecXD(3, 1.5));
  MatrixXF m(2, 3);
  m(1, 2) = 5.f;
  EXPECT_EQ(m.data()[5], 5.f);  // row-major
  m(2, 0) = 9.f;
  EXPECT_EQ(m(0, 3), 0.f);
  EXPECT_EQ(log.countContaining("AR ERROR: AR_ASSERT i<this->size() Math/include/AR/Math/Vector("),
            3u);
  EXPECT_EQ(log.countContaining("AR_ASSERT nRow<this->rows() Math/include/AR/Math/Matrix("), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT nCol<this->cols() Math/include/AR/Math/Matrix("), 1u);
}

TYPED_TEST(VectorFunctionsTest, IsGoodNumBoundsAreTheFloatConstantsInBothPrecisions) {
  using T = TypeParam;
  using L = std::numeric_limits<T>;
  const T big = T(1e15f), tiny = T(1e-30f);  // 999999986991104 and just above 1e-30
  const struct {
    T x;
    bool good, goodIfTinyAllowed;
  } cases[] = {{0, true, true}, {-big, true, true}, {tiny, true, true},
               {std::nextafter(big, L::infinity()), false, false}, {L::quiet_NaN(), false, false},
               {-L::infinity(), false, false}, {std::nextafter(-tiny, T(0)), false, true},
               {L::denorm_min(), false, true}};
  AR::Test::LogCapture log;
  for (const auto& c : cases) {
    EXPECT_EQ(isGoodNum(c.x, false), c.good) << c.x;
    EXPECT_EQ(isGoodNum(c.x, true), c.goodIfTinyAllowed) << c.x;
  }
  EXPECT_EQ(log.countContaining(" is nan or inf or denormal or uninitialised"), 8u);
}

TEST(MathDebugging, BadValuesAreLoggedInHexadecimalWithTheFirstBadElement) {
  AR::Test::LogCapture log;
  EXPECT_FALSE(isGoodNum(1e16f, false));
  EXPECT_FALSE(isGoodVector(Vec2D(1e16, 0), false));
  EXPECT_FALSE(isGoodVector(Vec2F(1e-31f, 1.f), false));
  const float inf = std::numeric_limits<float>::infinity();
  EXPECT_FALSE(isGoodVector(Vec4F(1.f, 2.f, std::nanf(""), inf), true));  // stops at the NaN
  const std::string bad = " is nan or inf or denormal or uninitialised\n";
  EXPECT_EQ(
      log.messages(),
      (std::vector<std::string>{
          "AR ERROR: Bad float: 0x1.1c3794p+53" + bad,
          "AR ERROR: Bad float: 0x1.1c37937e08p+53" + bad, "AR ERROR: (element 0 in vector)\n",
          "AR ERROR: Bad float: 0x1.039d66p-103" + bad, "AR ERROR: (element 0 in vector)\n",
          "AR ERROR: Bad float: nan" + bad, "AR ERROR: (element 2 in vector)\n"}));
}

}  // namespace
}  // namespace Math
}  // namespace AR
