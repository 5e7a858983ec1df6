#pragma once

#include <cmath>
#include <string>

#include "AR/Common/FatalAssert.h"
#include "AR/Math/Vector.h"

namespace AR {
namespace Math {

/// Absolute value of a scalar.
inline float fabs(float x) { return std::fabs(x); }
inline double fabs(double x) { return std::fabs(x); }

/// Element-wise absolute value.
template <typename T, int N>
Vector<T, N> fabs(const Vector<T, N>& v) {
  static_assert(N > 0, "fixed-size vectors only");
  Vector<T, N> out;
  for (int i = 0; i < N; ++i) out(i) = fabs(v(i));
  return out;
}

/// Scalar product, summed from 0 in index order.
template <typename T, int N>
T dot(const Vector<T, N>& a, const Vector<T, N>& b) {
  static_assert(N > 0, "fixed-size vectors only");
  T sum = T(0);
  for (int i = 0; i < N; ++i) sum += a(i) * b(i);
  return sum;
}

/// Squared Euclidean length, summed from 0 in index order.
template <typename T, int N>
T squaredNorm(const Vector<T, N>& v) {
  return dot(v, v);
}

/// Euclidean length.
template <typename T, int N>
T norm(const Vector<T, N>& v) {
  return std::sqrt(squaredNorm(v));
}

/// Cross product a x b.
template <typename T>
Vector<T, 3> cross(const Vector<T, 3>& a, const Vector<T, 3>& b) {
  return Vector<T, 3>(a(1) * b(2) - a(2) * b(1), a(2) * b(0) - a(0) * b(2),
                      a(0) * b(1) - a(1) * b(0));
}

/// True when every element is exactly 0.
template <typename T, int N>
bool isZero(const Vector<T, N>& v) {
  static_assert(N > 0, "fixed-size vectors only");
  for (int i = 0; i < N; ++i)
    if (!(v(i) == T(0))) return false;
  return true;
}

/// Scales v to unit length in place: the squared length is summed in index
/// order and every element multiplied by 1 / sqrt(squared length). A vector
/// whose squared length is not positive (zero, NaN, or so short that its square
/// underflows) has no direction: that is a programming error and aborts with
/// "length>0".
template <typename T, int N>
void normalize(Vector<T, N>& v) {
  const T squaredLength = squaredNorm(v);
  AR_FATAL_ASSERT(squaredLength > T(0), "length>0", "Math/include/AR/Math/internal/VectorFunctions",
                  "void AR::Math::normalize(Vector<T, N>&)");
  const T inverseLength = T(1) / std::sqrt(squaredLength);
  for (int i = 0; i < N; ++i) v(i) *= inverseLength;
}

/// v / norm(v). Aborts with "length>0" when the length is not positive.
template <typename T, int N>
Vector<T, N> unit(const Vector<T, N>& v) {
  const T length = norm(v);
  AR_FATAL_ASSERT(length > T(0), "length>0", "Math/include/AR/Math/internal/VectorFunctions",
                  "AR::Math::Vector<T, N> AR::Math::unit(const Vector<T, N>&)");
  return v / length;
}

/// The unit vector perpendicular to the unit vector v that is nearest to t.
/// When t is parallel to v any perpendicular will do: t falls back to (1,0,0)
/// if v(0) is exactly 0 and to (0,1,0) otherwise, both of which are then
/// guaranteed not to be parallel to v.
template <typename T>
Vector<T, 3> perpendicular(const Vector<T, 3>& v, Vector<T, 3> t) {
  Vector<T, 3> perpendicular = t - v * dot(v, t);
  if (norm(perpendicular) == T(0)) {
    t = v(0) == T(0) ? Vector<T, 3>(1, 0, 0) : Vector<T, 3>(0, 1, 0);
    perpendicular = t - v * dot(v, t);
  }
  perpendicular /= norm(perpendicular);
  AR_FATAL_ASSERT(Math::fabs(Math::norm(perpendicular) - 1) < 1e-4,
                  "Math::fabs(Math::norm(perpendicular) - 1) < 1e-4",
                  "Math/include/AR/Math/internal/VectorFunctions",
                  "AR::Math::Vector<T, 3> AR::Math::perpendicular(const Vector<T, 3>&, Vector<T, 3>)");
  // Signed on purpose: only a clearly positive component along v is an error.
  AR_FATAL_ASSERT(dot(v, perpendicular) < 1e-4, "dot(v, perpendicular) < 1e-4",
                  "Math/include/AR/Math/internal/VectorFunctions",
                  "AR::Math::Vector<T, 3> AR::Math::perpendicular(const Vector<T, 3>&, Vector<T, 3>)");
  return perpendicular;
}

/// "(" elements joined by "," ")" with std::to_string for each element:
/// integers in decimal, floating values with six decimals, e.g.
/// "(0.000000,1.000000,-2.500000)".
template <typename T, int N>
std::string to_string(const Vector<T, N>& v) {
  static_assert(N > 0, "fixed-size vectors only");
  std::string text = "(";
  for (int i = 0; i < N; ++i) {
    if (i > 0) text += ",";
    text += std::to_string(v(i));
  }
  text += ")";
  return text;
}

}  // namespace Math
}  // namespace AR
