#pragma once

#include <limits>

namespace AR {
namespace Math {

/// A double converted to T (float or double), rounding to nearest. A finite
/// double beyond the float range becomes an infinity of its sign, as the
/// hardware conversion gives it, without relying on a conversion that the
/// language leaves undefined; NaN stays NaN. The identity for double.
template <typename T>
T roundToPrecision(double value) {
  if constexpr (std::numeric_limits<T>::digits < std::numeric_limits<double>::digits) {
    // Smallest magnitude that rounds to infinity: FLT_MAX plus half an ulp.
    constexpr double kFloatOverflow = 0x1.ffffffp127;
    static_assert(sizeof(T) == sizeof(float), "float is the only narrower precision in use");
    if (value >= kFloatOverflow) return std::numeric_limits<T>::infinity();
    if (value <= -kFloatOverflow) return -std::numeric_limits<T>::infinity();
  }
  return static_cast<T>(value);
}

}  // namespace Math
}  // namespace AR
