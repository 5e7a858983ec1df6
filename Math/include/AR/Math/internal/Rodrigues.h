#pragma once

#include <cmath>

#include "AR/Math/Constants.h"
#include "AR/Math/Matrix.h"
#include "AR/Math/internal/VectorFunctions.h"

namespace AR {
namespace Math {
namespace internal {

/// Coefficients of the exponential map for a rotation vector with squared
/// length theta2: A = sin(t)/t, B = (1 - cos(t))/t^2, C = (1 - A)/t^2.
/// Below the precision's threshold the closed forms cancel catastrophically,
/// so their Taylor series are used instead. At t = 0 C is not needed and is 0.
template <typename T>
struct ExpCoefficients {
  T A = T(1);
  T B = T(0.5);
  T C = T(0);

  explicit ExpCoefficients(T theta2) {
    const T theta = std::sqrt(theta2);
    if (!(theta > T(0))) return;
    if (theta < PrecisionConstants<T>::seriesThreshold) {
      A = T(1) - theta2 / T(6);
      B = T(0.5) - theta2 / T(24);
      C = T(1) / T(6) - theta2 / T(120);
    } else {
      A = std::sin(theta) / theta;
      B = (T(1) - std::cos(theta)) / theta2;
      C = (T(1) - A) / theta2;
    }
  }
};

/// Rodrigues' formula R = I + A [w]x + B [w]x^2, written out element by element.
template <typename T>
Matrix<T, 3, 3> rodrigues(const Vector<T, 3>& w, T A, T B) {
  Matrix<T, 3, 3> R;
  const T w00 = w(0) * w(0);
  const T w11 = w(1) * w(1);
  const T w22 = w(2) * w(2);
  R(0, 0) = T(1) - B * (w11 + w22);
  R(1, 1) = T(1) - B * (w00 + w22);
  R(2, 2) = T(1) - B * (w00 + w11);
  {
    const T a = A * w(2);
    const T b = B * (w(0) * w(1));
    R(0, 1) = b - a;
    R(1, 0) = b + a;
  }
  {
    const T a = A * w(1);
    const T b = B * (w(0) * w(2));
    R(0, 2) = b + a;
    R(2, 0) = b - a;
  }
  {
    const T a = A * w(0);
    const T b = B * (w(1) * w(2));
    R(1, 2) = b - a;
    R(2, 1) = b + a;
  }
  return R;
}

}  // namespace internal
}  // namespace Math
}  // namespace AR
