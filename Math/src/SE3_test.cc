#include "AR/Math/SE3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

namespace AR {
namespace Math {
namespace {

template <typename T>
class RotationTest : public ::testing::Test {
 protected:
  using V3 = Vector<T, 3>;
  using V6 = Vector<T, 6>;
  using M3 = Matrix<T, 3, 3>;
  static constexpr bool kFloat = std::is_same<T, float>::value;
  static T tol() { return kFloat ? T(2e-5f) : T(1e-12); }
  /// Angle below which the exponential must use its series.
  static T seriesBelow() { return kFloat ? T(0.01f) : T(1e-5); }

  static void expectNear(const M3& a, const M3& b, T tolerance) {
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(a(r, c), b(r, c), tolerance) << "element (" << r << "," << c << ")";
  }
  template <int N>
  static void expectNear(const Vector<T, N>& a, const Vector<T, N>& b, T tolerance) {
    for (int i = 0; i < N; ++i) EXPECT_NEAR(a(i), b(i), tolerance) << "element " << i;
  }

  /// Rotation vectors covering every branch of the axis-angle conversion:
  /// tiny, below pi/4, between pi/4 and 3/4 pi, above 3/4 pi, close to pi.
  static std::vector<V3> rotationVectors() {
    const V3 axes[] = {unit(V3(1, 0, 0)), unit(V3(0, -1, 0)), unit(V3(0.3, -0.5, 0.8)),
                       unit(V3(-2, 1, 0.5))};
    const T angles[] = {T(1e-4), T(0.1), T(0.7), T(0.8), T(1.5), T(2.3), T(2.4),
                        T(3.0), T(3.1)};
    std::vector<V3> out;
    for (const V3& a : axes)
      for (T angle : angles) out.push_back(a * angle);
    return out;
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(RotationTest, Precisions);

TYPED_TEST(RotationTest, AxisAngleOfIdentityIsZero) {
  typename TestFixture::V3 axis(7, 7, 7);
  TypeParam angle = 7;
  matrix2AxisAngle(TestFixture::M3::identity(), axis, angle);
  EXPECT_TRUE(isZero(axis));
  EXPECT_EQ(angle, TypeParam(0));
  EXPECT_TRUE(isZero(SO3<TypeParam>().ln()));
  EXPECT_TRUE(isZero(SE3<TypeParam>().ln()));
}

TYPED_TEST(RotationTest, AxisAngleAtPi) {
  using V3 = typename TestFixture::V3;
  using M3 = typename TestFixture::M3;
  V3 axis;
  TypeParam angle;
  matrix2AxisAngle(M3(1, 0, 0, 0, -1, 0, 0, 0, -1), axis, angle);
  EXPECT_EQ(angle, pi<TypeParam>());
  EXPECT_EQ(axis, V3(1, 0, 0));
  matrix2AxisAngle(M3(-1, 0, 0, 0, -1, 0, 0, 0, 1), axis, angle);
  EXPECT_EQ(angle, pi<TypeParam>());
  EXPECT_EQ(axis, V3(0, 0, 1));
  // Diagonal (0, 0, -1): a tie between x and y.
  matrix2AxisAngle(M3(0, 1, 0, 1, 0, 0, 0, 0, -1), axis, angle);
  EXPECT_EQ(angle, pi<TypeParam>());
  this->expectNear(axis, unit(V3(1, 1, 0)), this->tol());
}

TYPED_TEST(RotationTest, AxisAngleTieKeepsTheLowerIndex) {
  using V3 = typename TestFixture::V3;
  using M3 = typename TestFixture::M3;
  // Not a rotation, so the columns of the symmetric part disagree and the
  // choice shows: x and y tie, so column 0 is used, not column 1.
  V3 axis;
  TypeParam angle;
  matrix2AxisAngle(M3(0, 0.5, 0, 0.5, 0, 0.8, 0, 0.8, -1), axis, angle);
  this->expectNear(axis, unit(V3(1, 0.5, 0)), this->tol());
  // z must be strictly larger than the winner to be chosen.
  matrix2AxisAngle(M3(-1, 0.5, 0, 0.5, 0, 0.8, 0, 0.8, 0), axis, angle);
  this->expectNear(axis, unit(V3(0.5, 1, 0.8)), this->tol());
}

TYPED_TEST(RotationTest, EnforceRotationShrinksOrthogonalityError) {
  using M3 = typename TestFixture::M3;
  using V3 = typename TestFixture::V3;
  const M3 rotation = SO3<TypeParam>::exp(V3(0.4, -0.2, 1.1)).matrix();
  for (TypeParam eps : {TypeParam(1e-2), TypeParam(1e-3)}) {
    M3 R = rotation + M3(1, -2, 0.5, 0.3, 1, -1, 2, 0.7, -1.5) * eps;
    const TypeParam before = orthogonalityError(R);
    enforceRotation(R);
    const TypeParam after = orthogonalityError(R);
    EXPECT_GT(before, eps);
    // One step removes the error to first order: it falls quadratically.
    EXPECT_LT(after, TypeParam(10) * before * before + this->tol());
  }
  // Making an SO3 from a matrix runs the same step.
  const M3 perturbed = rotation + M3(1, -2, 0.5, 0.3, 1, -1, 2, 0.7, -1.5) * TypeParam(1e-3);
  M3 enforced = perturbed;
  enforceRotation(enforced);
  EXPECT_EQ(SO3<TypeParam>(perturbed).matrix(), enforced);
  // And so does composition, whose product of slightly bent rotations is
  // straightened instead of bent further.
  const SO3<TypeParam> bent = SO3<TypeParam>::fromOrthonormal(perturbed);
  const SE3<TypeParam> T_bent(bent, V3(1, 2, 3));
  EXPECT_LT(orthogonalityError((bent * bent).matrix()), orthogonalityError(perturbed));
  EXPECT_LT(orthogonalityError((T_bent * T_bent).rotation().matrix()),
            orthogonalityError(perturbed));
  // An exact rotation is (up to rounding) left alone.
  M3 R = rotation;
  enforceRotation(R);
  this->expectNear(R, rotation, this->tol());
}

TYPED_TEST(RotationTest, CompositionKeepsRotationsOrthonormal) {
  using V6 = typename TestFixture::V6;
  const V6 xi(0.1, 0, 0, 0.3, -0.7, 0.2);
  const SE3<TypeParam> step = SE3<TypeParam>::exp(xi);
  SE3<TypeParam> pose;
  const int n = 1000;
  for (int i = 0; i < n; ++i) pose = pose * step;
  // Without a correction after every product the error would grow with n.
  EXPECT_LT(orthogonalityError(pose.rotation().matrix()), TypeParam(4) * this->tol());
  // n steps of the same screw motion are one motion along n times the tangent.
  const SE3<TypeParam> direct = SE3<TypeParam>::exp(xi * TypeParam(n));
  this->expectNear(pose.rotation().matrix(), direct.rotation().matrix(), this->tol() * 50);
  this->expectNear(pose.translation(), direct.translation(), this->tol() * 500);
}

TYPED_TEST(RotationTest, InverseUndoesTheTransform) {
  using V3 = typename TestFixture::V3;
  const SE3<TypeParam> T_a2b = SE3<TypeParam>::exp(Vector<TypeParam, 6>(1, -2, 0.5, 0.2, 0.9, -1.3));
  const SE3<TypeParam> T_b2a = T_a2b.inverse();
  EXPECT_EQ(T_b2a.rotation().matrix(), T_a2b.rotation().matrix().transpose());
  const V3 p(0.3, 4, -1);
  this->expectNear(T_b2a * (T_a2b * p), p, this->tol() * 8);
  this->expectNear((T_a2b * T_b2a).rotation().matrix(), TestFixture::M3::identity(), this->tol());
}

TYPED_TEST(RotationTest, ExpMatchesRotationPlusTranslationOfAPoint) {
  using V3 = typename TestFixture::V3;
  // A pure translation and a pure rotation about z by 90 degrees.
  const SE3<TypeParam> shift = SE3<TypeParam>::exp(Vector<TypeParam, 6>(1, 2, 3, 0, 0, 0));
  EXPECT_TRUE(isIdentity(shift.rotation().matrix()));
  EXPECT_EQ(shift.translation(), V3(1, 2, 3));
  const SE3<TypeParam> turn =
      SE3<TypeParam>::exp(Vector<TypeParam, 6>(0, 0, 0, 0, 0, pi<TypeParam>() / 2));
  this->expectNear(turn * V3(1, 0, 5), V3(0, 1, 5), this->tol());
  // Composition is in matrix order: (A * B) p = A (B p).
  this->expectNear((shift * turn) * V3(1, 0, 0), V3(1, 3, 3), this->tol());
  this->expectNear((turn * shift) * V3(1, 0, 0), V3(-2, 2, 3), this->tol() * 4);
}

TYPED_TEST(RotationTest, ExpSwitchesToSeriesBelowThreshold) {
  const TypeParam threshold = TestFixture::seriesBelow();
  for (TypeParam theta : {threshold * TypeParam(0.999), threshold * TypeParam(0.1),
                          std::numeric_limits<TypeParam>::epsilon()}) {
    const TypeParam theta2 = theta * theta;
    const internal::ExpCoefficients<TypeParam> k(theta2);
    // Reference: the series to two more terms, in long double.
    const long double t2 = (long double)theta * theta;
    const long double A = 1 - t2 / 6 + t2 * t2 / 120 - t2 * t2 * t2 / 5040;
    const long double B = 0.5L - t2 / 24 + t2 * t2 / 720 - t2 * t2 * t2 / 40320;
    const long double C = 1.0L / 6 - t2 / 120 + t2 * t2 / 5040 - t2 * t2 * t2 / 362880;
    // Accurate to a few units in the last place where the closed forms would
    // have lost most of their digits.
    const long double ulp = std::numeric_limits<TypeParam>::epsilon();
    EXPECT_NEAR(k.A, A, 2 * ulp);
    EXPECT_NEAR(k.B, B, 2 * ulp);
    EXPECT_NEAR(k.C, C, 2 * ulp);
  }
  // Just above the threshold the closed forms are used.
  const TypeParam theta = threshold * TypeParam(1.001);
  const internal::ExpCoefficients<TypeParam> k(theta * theta);
  EXPECT_EQ(k.A, std::sin(theta) / theta);
  EXPECT_EQ(k.B, (TypeParam(1) - std::cos(theta)) / (theta * theta));
}

TYPED_TEST(RotationTest, ExpLnRoundTrips) {
  using V3 = typename TestFixture::V3;
  using V6 = typename TestFixture::V6;
  for (const V3& w : this->rotationVectors()) {
    SCOPED_TRACE(to_string(w));
    const V6 v(0.5, -1.5, 2, w(0), w(1), w(2));
    const SE3<TypeParam> T = SE3<TypeParam>::exp(v);
    const V6 lnT = T.ln();
    // The tangent gets its digits from the translation's cross products; near
    // pi the rotation vector itself loses about one digit per step towards pi.
    this->expectNear(lnT, v, this->tol() * 100);
    const SE3<TypeParam> back = SE3<TypeParam>::exp(lnT);
    this->expectNear(back.rotation().matrix(), T.rotation().matrix(), this->tol() * 4);
    this->expectNear(back.translation(), T.translation(), this->tol() * 20);
  }
}

TYPED_TEST(RotationTest, LnAtPiStaysFinite) {
  using V3 = typename TestFixture::V3;
  using M3 = typename TestFixture::M3;
  const SE3<TypeParam> half(SO3<TypeParam>(M3(1, 0, 0, 0, -1, 0, 0, 0, -1)), V3(1, 2, 3));
  const Vector<TypeParam, 6> v = half.ln();
  ASSERT_TRUE(isGoodVector(v, true)) << to_string(v);
  EXPECT_NEAR(v(3), pi<TypeParam>(), this->tol());
  EXPECT_EQ(v(4), TypeParam(0));
  EXPECT_EQ(v(5), TypeParam(0));
  // Translation along the axis is untouched by the screw's rotation.
  EXPECT_NEAR(v(0), TypeParam(1), this->tol());
  const SE3<TypeParam> back = SE3<TypeParam>::exp(v);
  this->expectNear(back.rotation().matrix(), half.rotation().matrix(), this->tol());
  this->expectNear(back.translation(), half.translation(), this->tol() * 10);
}

TYPED_TEST(RotationTest, MakeSo3FromToTurnsFromIntoTo) {
  using V3 = typename TestFixture::V3;
  const V3 from(1, 2, -0.5), to(-3, 0.2, 1);
  const V3 w = makeso3FromTo(from, to);
  this->expectNear(SO3<TypeParam>::exp(w) * unit(from), unit(to), this->tol());
  EXPECT_NEAR(dot(w, from), TypeParam(0), this->tol());
  // Equal directions need no rotation.
  EXPECT_TRUE(isZero(makeso3FromTo(V3(1, 2, 3), V3(2, 4, 6))));
  EXPECT_TRUE(isZero(makeso3FromTo(V3(0, 0, -1), V3(0, 0, -0.25))));
}

TYPED_TEST(RotationTest, MakeSo3FromToOppositeDirectionsTurnsByPi) {
  using V3 = typename TestFixture::V3;
  for (const V3& from : {V3(0, 0, 2), V3(1, 0, 0), V3(1, -2, 3), V3(0, 1, 1)}) {
    SCOPED_TRACE(to_string(from));
    const V3 w = makeso3FromTo(from, -from * TypeParam(3));
    EXPECT_NEAR(norm(w), pi<TypeParam>(), this->tol());
    EXPECT_NEAR(dot(w, from), TypeParam(0), this->tol());
    this->expectNear(SO3<TypeParam>::exp(w) * unit(from), -unit(from), this->tol() * 4);
  }
}

TYPED_TEST(RotationTest, MakeSo3FromToZeroDirectionIsFatal) {
  using V3 = typename TestFixture::V3;
  EXPECT_DEATH(makeso3FromTo(V3(), V3(1, 0, 0)),
               "!isZero\\(from\\).*Math/include/AR/Math/SO3.*AR::Math::makeso3FromTo");
  EXPECT_DEATH(makeso3FromTo(V3(1, 0, 0), V3()), "!isZero\\(to\\)");
}

TYPED_TEST(RotationTest, PrecisionCastKeepsTheTransform) {
  const SE3<TypeParam> T = SE3<TypeParam>::exp(Vector<TypeParam, 6>(1, 2, 3, 0.1, 0.2, 0.3));
  const SE3<double> Td = T.template cast<double>();
  const SE3<TypeParam> back = Td.template cast<TypeParam>();
  EXPECT_EQ(back.rotation().matrix(), T.rotation().matrix());
  EXPECT_EQ(back.translation(), T.translation());
}

}  // namespace
}  // namespace Math
}  // namespace AR
