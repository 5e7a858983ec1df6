#pragma once

/// Pi as the single-precision value 3.1415927f. Float code uses it directly;
/// double code that must agree with float code bit for bit writes double(AR_PI),
/// double code that wants full precision uses AR_PI_D or AR::Math::pi<double>().
inline constexpr float AR_PI = 3.1415927f;
/// Pi in double precision.
inline constexpr double AR_PI_D = 3.141592653589793;

namespace AR {
namespace Math {

using ::AR_PI;
using ::AR_PI_D;

/// Constants that differ between the float and the double instances of the
/// rotation code. Everything else is shared.
template <typename T>
struct PrecisionConstants;

template <>
struct PrecisionConstants<float> {
  /// Pi in this precision.
  static constexpr float pi = 3.1415927f;
  /// Pi squared; the logarithm clamps the squared angle to it so that
  /// tan(theta / 2) stays on the positive side of its pole.
  static constexpr float piSquared = 9.869604f;
  /// cos(pi / 4): beyond 3/4 pi the axis is read from the symmetric part of
  /// the matrix, below pi / 4 the angle comes from asin, which is accurate there.
  static constexpr float cosQuarterPi = 0.70710677f;
  /// Below this angle the exponential uses Taylor series for sin(t)/t and
  /// (1 - cos(t))/t^2: the closed forms lose all digits to cancellation.
  static constexpr float seriesThreshold = 0.01f;
};

template <>
struct PrecisionConstants<double> {
  static constexpr double pi = 3.141592653589793;
  static constexpr double piSquared = 3.141592653589793 * 3.141592653589793;
  static constexpr double cosQuarterPi = 0.7071067811865476;
  static constexpr double seriesThreshold = 1e-5;
};

/// Pi in the precision T (3.1415927f for float, 3.141592653589793 for double).
template <typename T>
constexpr T pi() {
  return PrecisionConstants<T>::pi;
}

}  // namespace Math
}  // namespace AR
