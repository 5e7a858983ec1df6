#pragma once

#include <cmath>

#include "AR/Common/FatalAssert.h"
#include "AR/Common/Macros.h"
#include "AR/Math/Constants.h"
#include "AR/Math/Matrix.h"
#include "AR/Math/Vector.h"
#include "AR/Math/internal/MatrixFunctions.h"
#include "AR/Math/internal/Rodrigues.h"
#include "AR/Math/internal/VectorFunctions.h"

namespace AR {
namespace Math {

/// A rotation, held as its 3x3 row-major matrix. Default: the identity.
template <typename T>
class AR_EXPORT SO3 {
 public:
  using Scalar = T;
  using Matrix3 = Matrix<T, 3, 3>;
  using Vector3 = Vector<T, 3>;

  SO3() : matrix_(Matrix3::identity()) {}

  /// Takes a nearly orthonormal matrix and applies one enforceRotation step.
  explicit SO3(const Matrix3& m) : matrix_(m) { enforceRotation(matrix_); }

  /// Stores m exactly as given, without enforceRotation. For matrices that are
  /// already as orthonormal as the precision allows (transposes, the output
  /// of the exponential map, precision casts).
  static SO3 fromOrthonormal(const Matrix3& m) {
    SO3 r;
    r.matrix_ = m;
    return r;
  }

  /// Rotation of the rotation vector w (axis times angle in radians), by
  /// Rodrigues' formula with series coefficients for tiny angles. The result
  /// is not passed through enforceRotation.
  static SO3 exp(const Vector3& w) {
    const internal::ExpCoefficients<T> k(squaredNorm(w));
    return fromOrthonormal(internal::rodrigues(w, k.A, k.B));
  }

  /// Rotation vector (axis times angle in [0, pi]); inverse of exp.
  Vector3 ln() const {
    Vector3 axis;
    T angle;
    matrix2AxisAngle(matrix_, axis, angle);
    return axis * angle;
  }

  const Matrix3& matrix() const { return matrix_; }

  /// The transpose, exactly.
  SO3 inverse() const { return fromOrthonormal(matrix_.transpose()); }

  /// Composition (a * b) p = a (b p); the product gets one enforceRotation step.
  SO3 operator*(const SO3& b) const { return SO3(matrix_ * b.matrix_); }

  /// Rotates a vector.
  Vector3 operator*(const Vector3& v) const { return matrix_ * v; }

  /// Element-wise conversion to another precision (no enforceRotation).
  template <typename OTHER>
  SO3<OTHER> cast() const {
    return SO3<OTHER>::fromOrthonormal(matrix_.template cast<OTHER>());
  }

 private:
  Matrix3 matrix_;
};

/// Rotation vector that turns the direction `from` into the direction `to`
/// (neither needs unit length; both must be non-zero). Opposite directions
/// give a rotation by pi about an axis perpendicular to `from`; equal
/// directions give (0,0,0).
template <typename T>
Vector<T, 3> makeso3FromTo(const Vector<T, 3>& from, const Vector<T, 3>& to) {
  AR_FATAL_ASSERT(!isZero(from), "!isZero(from)", "Math/include/AR/Math/SO3",
                  "AR::Math::Vector<T, 3> AR::Math::makeso3FromTo(const Vector<T, 3>&, "
                  "const Vector<T, 3>&)");
  AR_FATAL_ASSERT(!isZero(to), "!isZero(to)", "Math/include/AR/Math/SO3",
                  "AR::Math::Vector<T, 3> AR::Math::makeso3FromTo(const Vector<T, 3>&, "
                  "const Vector<T, 3>&)");
  Vector<T, 3> axis = cross(from, to);
  if (isZero(axis) && dot(from, to) < T(0)) {
    // Opposite: any axis perpendicular to `from` works; from x (from + e)
    // = from x e is one, with e chosen so that it is not parallel to `from`.
    const Vector<T, 3> e = from(0) == T(0) ? Vector<T, 3>(1, 0, 0) : Vector<T, 3>(0, 1, 0);
    axis = cross(from, from + e);
  }
  if (isZero(axis)) return Vector<T, 3>();
  normalize(axis);
  const T c = dot(from, to) / std::sqrt(squaredNorm(from) * squaredNorm(to));
  T angle;
  if (c < T(-1))
    angle = PrecisionConstants<T>::pi;
  else if (c > T(1))
    angle = T(0);
  else
    angle = std::acos(c);
  return axis * angle;
}

using SO3F = SO3<float>;
using SO3D = SO3<double>;

extern template class SO3<float>;
extern template class SO3<double>;

}  // namespace Math
}  // namespace AR
