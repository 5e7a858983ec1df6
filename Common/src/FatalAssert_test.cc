#include "AR/Common/FatalAssert.h"

#include <gtest/gtest.h>

namespace {

TEST(FatalAssertDeathTest, HoldsQuietlyOrPrintsConditionSourceAndFunctionThenAborts) {
  int evaluations = 0;
  AR_FATAL_ASSERT(++evaluations == 1, "length>0", "F", "void f()");
  EXPECT_EQ(evaluations, 1);  // evaluated once, and execution goes on
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const float length = 0.0f;
  EXPECT_DEATH(
      AR_FATAL_ASSERT(length > 0, "length>0", "Math/include/AR/Math/internal/VectorFunctions",
                      "AR::Math::Vector<T, N> AR::Math::normalize(const Vector<T, N>&)"),
      "Assertion failed: length>0, file Math/include/AR/Math/internal/VectorFunctions, "
      "function AR::Math::Vector<T, N> AR::Math::normalize\\(const Vector<T, N>&\\)");
}

}  // namespace
