#pragma once

#include <cmath>
#include <cstddef>

#include "AR/Common/Logger.h"
#include "AR/Math/Vector.h"

namespace AR {
namespace Math {
namespace internal {

/// Shared body of isGoodNum. The bounds are the single-precision values 1e15f
/// and 1e-30f in both precisions, so float and double data are judged alike.
template <typename T>
bool isGoodNumImpl(T x, bool allowTiny, const char* function, int line) {
  const T magnitude = std::fabs(x);
  const bool bad = std::isnan(x) || magnitude > T(1e15f) ||
                   (!allowTiny && x != T(0) && magnitude < T(1e-30f));
  if (!bad) return true;
  auto& logger = AR::Common::Logger::getInstance();
  if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
    logger.logEx2(AR::Common::Logger::LEVEL_ERROR, "Math/include/AR/Math/MathDebugging", function,
                  line, "Bad float: %a is nan or inf or denormal or uninitialised",
                  static_cast<double>(x));
  return false;
}

}  // namespace internal

/// False (and an ERROR log line with the value in %a notation) when x is NaN,
/// infinite or larger than 1e15 in magnitude, or, unless allowTiny, a non-zero
/// value below 1e-30 in magnitude (a denormal or garbage from uninitialised
/// memory). Never stops anything: the caller decides.
inline bool isGoodNum(float x, bool allowTiny) {
  return internal::isGoodNumImpl(x, allowTiny, "bool AR::Math::isGoodNum(float, bool)", __LINE__);
}
inline bool isGoodNum(double x, bool allowTiny) {
  return internal::isGoodNumImpl(x, allowTiny, "bool AR::Math::isGoodNum(double, bool)", __LINE__);
}

/// isGoodNum on each element in order; at the first bad one also logs
/// "(element <index> in vector)" and returns false.
template <typename T, int N>
bool isGoodVector(const Vector<T, N>& v, bool allowTiny) {
  for (int i = 0; i < N; ++i) {
    if (isGoodNum(v(i), allowTiny)) continue;
    auto& logger = AR::Common::Logger::getInstance();
    if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      logger.logEx2(AR::Common::Logger::LEVEL_ERROR, "Math/include/AR/Math/MathDebugging",
                    "bool AR::Math::isGoodVector(const Vector<T, N>&, bool)", __LINE__,
                    "(element %zu in vector)", static_cast<size_t>(i));
    return false;
  }
  return true;
}

}  // namespace Math
}  // namespace AR
