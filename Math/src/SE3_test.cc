#include "AR/Math/SE3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>

namespace AR {
namespace Math {
namespace {

template <typename T>
class RotationTest : public ::testing::Test {
 protected:
  using V3 = Vector<T, 3>;
  using M3 = Matrix<T, 3, 3>;
  static T tol() { return std::is_same<T, float>::value ? T(2e-5f) : T(1e-12); }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(RotationTest, Precisions);

TYPED_TEST(RotationTest, AxisAngleNearZeroAndAtPi) {
  using V3 = typename TestFixture::V3;
  using M3 = typename TestFixture::M3;
  V3 axis(7, 7, 7);
  TypeParam angle = 7;
  matrix2AxisAngle(M3::identity(), axis, angle);
  EXPECT_TRUE(isZero(axis) && angle == 0);
  EXPECT_TRUE(isZero(SE3<TypeParam>().ln()));
  const struct {
    M3 R;
    V3 axis;
  } atPi[] = {{M3(1, 0, 0, 0, -1, 0, 0, 0, -1), V3(1, 0, 0)},
              {M3(-1, 0, 0, 0, -1, 0, 0, 0, 1), V3(0, 0, 1)},
              {M3(0, 1, 0, 1, 0, 0, 0, 0, -1), unit(V3(1, 1, 0))}};  // x and y tie
  for (const auto& c : atPi) {
    matrix2AxisAngle(c.R, axis, angle);
    EXPECT_EQ(angle, pi<TypeParam>());
    EXPECT_LT(norm(axis - c.axis), this->tol()) << to_string(axis);
  }
}

TYPED_TEST(RotationTest, EnforceRotationShrinksOrthogonalityError) {
  using M3 = typename TestFixture::M3;
  const M3 rotation = SO3<TypeParam>::exp(typename TestFixture::V3(0.4, -0.2, 1.1)).matrix();
  const M3 bent = rotation + M3(1, -2, 0.5, 0.3, 1, -1, 2, 0.7, -1.5) * TypeParam(1e-3);
  const TypeParam before = orthogonalityError(bent);
  M3 R = bent;
  enforceRotation(R);
  // One step removes the error to first order: it falls quadratically.
  EXPECT_LT(orthogonalityError(R), TypeParam(10) * before * before + this->tol());
  // Making an SO3 from a matrix, and composing rotations, run the same step.
  EXPECT_EQ(SO3<TypeParam>(bent).matrix(), R);
  const SO3<TypeParam> raw = SO3<TypeParam>::fromOrthonormal(bent);
  EXPECT_LT(orthogonalityError((raw * raw).matrix()), before);
  const SE3<TypeParam> T_bent(raw, typename TestFixture::V3(1, 2, 3));
  EXPECT_LT(orthogonalityError((T_bent * T_bent).rotation().matrix()), before);
}

TYPED_TEST(RotationTest, InverseAndCompositionInMatrixOrder) {
  using V3 = typename TestFixture::V3;
  using V6 = Vector<TypeParam, 6>;
  const SE3<TypeParam> T_a2b = SE3<TypeParam>::exp(V6(1, -2, 0.5, 0.2, 0.9, -1.3));
  const V3 p(0.3, 4, -1);
  EXPECT_LT(norm(T_a2b.inverse() * (T_a2b * p) - p), this->tol() * 8);
  // A pure translation and a quarter turn about z: (A * B) p = A (B p).
  const SE3<TypeParam> shift = SE3<TypeParam>::exp(V6(1, 2, 3, 0, 0, 0));
  const SE3<TypeParam> turn = SE3<TypeParam>::exp(V6(0, 0, 0, 0, 0, pi<TypeParam>() / 2));
  EXPECT_LT(norm((shift * turn) * V3(1, 0, 0) - V3(1, 3, 3)), this->tol());
}

TYPED_TEST(RotationTest, ExpUsesTheSeriesJustBelowTheSmallAngleThreshold) {
  const TypeParam threshold = std::is_same<TypeParam, float>::value ? TypeParam(0.01f) : 1e-5;
  for (TypeParam theta :
       {threshold * TypeParam(0.999), std::numeric_limits<TypeParam>::epsilon()}) {
    const internal::ExpCoefficients<TypeParam> k(theta * theta);
    // Reference: the series to two more terms, in long double. The closed
    // forms would have lost most of their digits here.
    const long double t2 = (long double)theta * theta;
    const long double A = 1 - t2 / 6 + t2 * t2 / 120 - t2 * t2 * t2 / 5040;
    const long double B = 0.5L - t2 / 24 + t2 * t2 / 720 - t2 * t2 * t2 / 40320;
    const long double C = 1.0L / 6 - t2 / 120 + t2 * t2 / 5040 - t2 * t2 * t2 / 362880;
    const long double ulp = std::numeric_limits<TypeParam>::epsilon();
    EXPECT_TRUE(std::fabs(k.A - A) < 2 * ulp && std::fabs(k.B - B) < 2 * ulp &&
                std::fabs(k.C - C) < 2 * ulp)
        << theta;
  }
}

TYPED_TEST(RotationTest, ExpLnRoundTripsUpToAndAtPi) {
  using V3 = typename TestFixture::V3;
  using V6 = Vector<TypeParam, 6>;
  // Angles on every branch of the axis-angle conversion.
  for (const V3& axis : {V3(1, 0, 0), unit(V3(0.3, -0.5, 0.8)), unit(V3(-2, 1, 0.5))})
    for (TypeParam angle : {1e-4, 0.1, 0.8, 1.5, 2.3, 3.0, 3.1}) {
      const V6 v(0.5, -1.5, 2, axis(0) * angle, axis(1) * angle, axis(2) * angle);
      const SE3<TypeParam> T = SE3<TypeParam>::exp(v);
      // Near pi the rotation vector loses about one digit per step towards pi.
      EXPECT_LT(norm(T.ln() - v), this->tol() * 100) << angle << " " << to_string(axis);
      EXPECT_LT(norm(SE3<TypeParam>::exp(T.ln()).translation() - T.translation()),
                this->tol() * 20);
    }
  // At pi itself the logarithm stays finite and keeps the translation along the axis.
  const typename TestFixture::M3 halfTurn(1, 0, 0, 0, -1, 0, 0, 0, -1);
  const V6 v = SE3<TypeParam>(SO3<TypeParam>(halfTurn), V3(1, 2, 3)).ln();
  EXPECT_LT(norm(v - V6(1, v(1), v(2), pi<TypeParam>(), 0, 0)), this->tol()) << to_string(v);
}

TYPED_TEST(RotationTest, MakeSo3FromToForGeneralEqualAndOppositeDirections) {
  using V3 = typename TestFixture::V3;
  const V3 from(1, 2, -0.5), to(-3, 0.2, 1);
  EXPECT_LT(norm(SO3<TypeParam>::exp(makeso3FromTo(from, to)) * unit(from) - unit(to)),
            this->tol());
  EXPECT_TRUE(isZero(makeso3FromTo(V3(1, 2, 3), V3(2, 4, 6))));
  for (const V3& dir : {V3(0, 0, 2), V3(1, 0, 0), V3(1, -2, 3)}) {
    const V3 w = makeso3FromTo(dir, -dir * TypeParam(3));  // a half turn about a perpendicular
    EXPECT_NEAR(norm(w), pi<TypeParam>(), this->tol());
    EXPECT_NEAR(dot(w, dir), TypeParam(0), this->tol());
  }
  EXPECT_DEATH(makeso3FromTo(V3(), V3(1, 0, 0)),
               "!isZero\\(from\\).*Math/include/AR/Math/SO3.*AR::Math::makeso3FromTo");
  EXPECT_DEATH(makeso3FromTo(V3(1, 0, 0), V3()), "!isZero\\(to\\)");
}

}  // namespace
}  // namespace Math
}  // namespace AR
