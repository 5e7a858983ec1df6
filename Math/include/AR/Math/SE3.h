#pragma once

#include <algorithm>
#include <cmath>

#include "AR/Common/FatalAssert.h"
#include "AR/Common/Macros.h"
#include "AR/Math/Constants.h"
#include "AR/Math/MathDebugging.h"
#include "AR/Math/Matrix.h"
#include "AR/Math/SO3.h"
#include "AR/Math/Vector.h"
#include "AR/Math/internal/MatrixFunctions.h"
#include "AR/Math/internal/Rodrigues.h"
#include "AR/Math/internal/VectorFunctions.h"

namespace AR {
namespace Math {

/// A rigid transform: p -> R p + t. Poses are named by their frames, from one
/// frame to another (T_cam2dev maps camera coordinates into device
/// coordinates), and compose in matrix order: (A * B) p = A (B p).
/// Default: identity rotation, zero translation.
template <typename T>
class AR_EXPORT SE3 {
 public:
  using Scalar = T;
  using Vector3 = Vector<T, 3>;
  using Vector6 = Vector<T, 6>;

  SE3() = default;
  SE3(const SO3<T>& rotation, const Vector3& translation)
      : rotation_(rotation), translation_(translation) {}

  const SO3<T>& rotation() const { return rotation_; }
  SO3<T>& rotation() { return rotation_; }
  const Vector3& translation() const { return translation_; }
  Vector3& translation() { return translation_; }

  /// Composition: rotation Ra Rb (one enforceRotation step), translation Ra tb + ta.
  SE3 operator*(const SE3& b) const {
    return SE3(rotation_ * b.rotation_, rotation_ * b.translation_ + translation_);
  }

  /// Transforms a point: R p + t.
  Vector3 operator*(const Vector3& p) const { return rotation_ * p + translation_; }

  /// Rotation R^T, translation -R^T t.
  SE3 inverse() const {
    const SO3<T> inverseRotation = rotation_.inverse();
    return SE3(inverseRotation, -(inverseRotation * translation_));
  }

  /// Exponential map of the tangent vector (upsilon, omega): upsilon in
  /// elements 0..2, the rotation vector omega (axis times angle) in 3..5.
  static SE3 exp(const Vector6& v) {
    const Vector3 upsilon(v(0), v(1), v(2));
    const Vector3 omega(v(3), v(4), v(5));
    const T theta2 = squaredNorm(omega);
    const internal::ExpCoefficients<T> k(theta2);
    SE3 result;
    result.translation_ = upsilon;
    if (theta2 > T(0)) {
      const Vector3 wxu = cross(omega, upsilon);
      result.translation_ = upsilon + wxu * k.B + cross(omega, wxu) * k.C;
    }
    result.rotation_ = SO3<T>::fromOrthonormal(internal::rodrigues(omega, k.A, k.B));
    return result;
  }

  /// Logarithm: the tangent vector (u, w) with exp(ln(T)) == T for rotation
  /// angles below pi.
  Vector6 ln() const {
    Vector3 axis;
    T angle;
    matrix2AxisAngle(rotation_.matrix(), axis, angle);
    const Vector3 w = axis * angle;
    // Clamped so that theta / 2 stays below the pole of tan at pi / 2.
    const T theta2 = std::min(squaredNorm(w), PrecisionConstants<T>::piSquared);
    const T theta = std::sqrt(theta2);
    const T tanLen = std::tan(theta / T(2));
    AR_FATAL_ASSERT(tanLen >= 0, "tanLen >= 0", "Math/include/AR/Math/SE3",
                    "AR::Math::SE3<T>::Vector6 AR::Math::SE3<T>::ln() const");
    const T f = tanLen > T(0) ? (theta / T(2)) / tanLen : T(0);
    Vector3 u = translation_;
    if (f > T(0)) {
      const Vector3 wxt = cross(w, translation_);
      u = translation_ - wxt * T(0.5) + cross(w, wxt) * ((T(1) - f) / theta2);
    }
    return Vector6(u(0), u(1), u(2), w(0), w(1), w(2));
  }

  /// Element-wise conversion to another precision (no enforceRotation).
  template <typename OTHER>
  SE3<OTHER> cast() const {
    return SE3<OTHER>(rotation_.template cast<OTHER>(), translation_.template cast<OTHER>());
  }

 private:
  SO3<T> rotation_;
  Vector3 translation_;
};

using SE3F = SE3<float>;
using SE3D = SE3<double>;

extern template class SE3<float>;
extern template class SE3<double>;

}  // namespace Math
}  // namespace AR
