#pragma once

#include <cmath>

#include "AR/Common/FatalAssert.h"
#include "AR/Math/Constants.h"
#include "AR/Math/Matrix.h"
#include "AR/Math/internal/VectorFunctions.h"

namespace AR {
namespace Math {

/// True when the matrix equals the identity exactly.
template <typename T, int N>
bool isIdentity(const Matrix<T, N, N>& m) {
  for (int r = 0; r < N; ++r)
    for (int c = 0; c < N; ++c)
      if (!(m(r, c) == (r == c ? T(1) : T(0)))) return false;
  return true;
}

/// Largest absolute element of m * m^T - I: 0 for an exact rotation.
template <typename T, int N>
T orthogonalityError(const Matrix<T, N, N>& m) {
  const Matrix<T, N, N> e = m * m.transpose() - Matrix<T, N, N>::identity();
  T worst = T(0);
  for (int i = 0; i < N * N; ++i) worst = std::fmax(worst, std::fabs(e.data()[i]));
  return worst;
}

/// Determinant of a 3x3 matrix (+1 for a rotation, -1 for a reflection).
template <typename T>
T determinant(const Matrix<T, 3, 3>& m) {
  return m(0, 0) * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)) -
         m(0, 1) * (m(1, 0) * m(2, 2) - m(1, 2) * m(2, 0)) +
         m(0, 2) * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0));
}

/// One step of re-orthonormalisation, in place: with E = (R R^T - I) / 2 the
/// matrix becomes R - E R. For a nearly orthonormal R the error shrinks
/// quadratically, so one step after every product keeps rounding from
/// accumulating; it is not meant to turn an arbitrary matrix into a rotation.
template <typename MATRIX>
void enforceRotation(MATRIX& R) {
  using T = typename MATRIX::Scalar;
  const MATRIX E = (R * R.transpose() - MATRIX::identity()) * T(0.5);
  R = R - E * R;
}

/// Rotation matrix to unit axis and angle in [0, pi]. The identity (and any
/// matrix without rotation) gives the zero axis and angle 0.
///
/// Near pi the antisymmetric part vanishes and loses the axis, so above 3/4 pi
/// the axis is the largest column of the symmetric part R + R^T - 2 cos I
/// (halved), with its sign taken from the antisymmetric part. Between pi/4 and
/// 3/4 pi acos is well conditioned; below pi/4 asin of the antisymmetric part is.
template <typename T>
void matrix2AxisAngle(const Matrix<T, 3, 3>& R, Vector<T, 3>& axis, T& angle) {
  const Vector<T, 3> s((R(2, 1) - R(1, 2)) * T(0.5), (R(0, 2) - R(2, 0)) * T(0.5),
                       (R(1, 0) - R(0, 1)) * T(0.5));
  const T sinAngle = norm(s);
  const T cosAngle = (R(0, 0) + R(1, 1) + R(2, 2) - T(1)) * T(0.5);
  const T cosQuarterPi = PrecisionConstants<T>::cosQuarterPi;

  if (cosAngle < -cosQuarterPi) {
    angle = PrecisionConstants<T>::pi - std::asin(sinAngle);
    const Vector<T, 3> d(R(0, 0) - cosAngle, R(1, 1) - cosAngle, R(2, 2) - cosAngle);
    int k = 0;
    if (std::fabs(d(1)) > std::fabs(d(0))) k = 1;
    if (std::fabs(d(2)) > std::fabs(d(k))) k = 2;
    switch (k) {
      case 0:
        axis = Vector<T, 3>(d(0), (R(1, 0) + R(0, 1)) * T(0.5), (R(0, 2) + R(2, 0)) * T(0.5));
        break;
      case 1:
        axis = Vector<T, 3>((R(1, 0) + R(0, 1)) * T(0.5), d(1), (R(2, 1) + R(1, 2)) * T(0.5));
        break;
      case 2:
        axis = Vector<T, 3>((R(0, 2) + R(2, 0)) * T(0.5), (R(2, 1) + R(1, 2)) * T(0.5), d(2));
        break;
      default:
        AR_FATAL_ASSERT(false, "0", "Math/include/AR/Math/internal/MatrixFunctions",
                        "void AR::Math::matrix2AxisAngle(const Matrix<T, 3, 3>&, Vector<T, 3>&, T&)");
    }
    if (dot(s, axis) < T(0)) axis = -axis;
  } else {
    axis = s;
    if (cosAngle <= cosQuarterPi)
      angle = std::acos(cosAngle);
    else if (sinAngle > T(0))
      angle = std::asin(sinAngle);
    else
      angle = T(0);
  }

  const T squaredLength = squaredNorm(axis);
  if (squaredLength > T(0)) axis /= std::sqrt(squaredLength);
}

}  // namespace Math
}  // namespace AR
