#include "AR/Math/AutoDiff.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using AD = AR::Math::ad<double, 1>;

// f(x) built from every supported operation, its derivative written out by
// hand: f = (x*x + 3) / (x - 0.5) - sqrt(x) * atan(x) + tan(x) / 2.
double f(double x) { return (x * x + 3) / (x - 0.5) - std::sqrt(x) * std::atan(x) + std::tan(x) / 2; }
double df(double x) {
  const double q = ((2 * x) * (x - 0.5) - (x * x + 3)) / ((x - 0.5) * (x - 0.5));
  const double p = std::atan(x) / (2 * std::sqrt(x)) + std::sqrt(x) / (1 + x * x);
  return q - p + 1 / (2 * std::cos(x) * std::cos(x));
}

TEST(AutoDiffTest, ChainOfAllOperationsMatchesTheHandDerivative) {
  for (double x : {0.1, 0.9, 1.3, 2.2}) {
    const AD v(x, 0.25);  // the seed scales every derivative
    const AD y = (v * v + 3.0) / (v - 0.5) - sqrt(v) * atan(v) + tan(v) / 2.0;
    EXPECT_NEAR(y.value(), f(x), 1e-12 * std::fabs(f(x))) << "x=" << x;
    EXPECT_NEAR(y.derivative(), 0.25 * df(x), 1e-11 * std::fabs(df(x)) + 1e-12) << "x=" << x;
  }
  // Constants on the left enter with gradient 0.
  const AD v(4.0, 1.0);
  EXPECT_DOUBLE_EQ((2.0 - v).derivative(), -1.0);
  EXPECT_DOUBLE_EQ((2.0 / v).derivative(), -2.0 / 16.0);
}

TEST(AutoDiffTest, SqrtAtZeroHasZeroDerivative) {
  const AD y = sqrt(AD(0.0, 1.0));
  EXPECT_EQ(y.value(), 0.0);
  EXPECT_EQ(y.derivative(), 0.0);
}

TEST(AutoDiffTest, ComparisonsLookAtTheValueOnly) {
  const AD a(1.0, 5.0), b(1.0, -5.0), c(2.0, 0.0);
  EXPECT_TRUE(a == b && a <= b && a >= b);
  EXPECT_FALSE(a != b || a < b || a > b);
  EXPECT_TRUE(a < c && c > a && a < 1.5);
}

}  // namespace
