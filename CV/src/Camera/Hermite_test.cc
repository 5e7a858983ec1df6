#include "AR/CV/Camera/Hermite.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "LogCapture.h"

namespace {

using AR::Common::Logger;

/// 1 + 2x - 0.5x^2 + 0.25x^3, or 1/(1 + x) (smooth, but no bin count fits it
/// exactly) when `rational`; counts its calls in either scalar.
struct Fn {
  bool rational;
  mutable int calls = 0;
  template <typename T>
  T operator()(T x) const {
    ++calls;
    return rational ? T(1.0) / (T(1.0) + x) : T(1.0) + T(2.0) * x - T(0.5) * x * x + T(0.25) * x * x * x;
  }
};

/// x, but NaN above 0.5.
struct NaNAbove {
  template <typename T>
  T operator()(T x) const {
    return x > T(0.5) ? T(std::numeric_limits<double>::quiet_NaN()) : x;
  }
};

template <typename PREC>
class HermiteTest : public ::testing::Test {
 protected:
  using Spline = AR::CV::HermiteSplineInterpolation<PREC>;
  using Vec2 = typename Spline::Vec2;
  static constexpr PREC kNaN = std::numeric_limits<PREC>::quiet_NaN();
  static constexpr PREC kInf = std::numeric_limits<PREC>::infinity();
  /// Value of the last segment's cubic at x.
  static PREC lastCubic(const Spline& spline, PREC x) {
    const auto& s = spline.getSegments().back();
    const PREC t = x - s.t0;
    return s.coef(0) + t * (s.coef(1) + t * (s.coef(2) + t * s.coef(3)));
  }
  /// Number of contract-breach lines for `condition`.
  static size_t asserts(const AR::Test::LogCapture& capture, const std::string& condition) {
    return capture.countContaining("AR ERROR: AR_ASSERT " + condition + " CV/include/AR/CV/Camera/Hermite(");
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(HermiteTest, Precisions);

TYPED_TEST(HermiteTest, CubicIsFittedExactlyByOneBin) {
  using PREC = TypeParam;
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  Fn fn{false};
  const PREC err = spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0.5), PREC(2.5)), 1024, PREC(1e-4));
  EXPECT_LT(err, PREC(32) * std::numeric_limits<PREC>::epsilon());
  EXPECT_EQ(spline.getSegments().size(), 1u);
  EXPECT_EQ(fn.calls, 3);  // both ends of the bin and its midpoint
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"AR DEBUG: Fitted Hermite spline with 1 bins, maximum approximation error 0.000000\n"});
  for (double x = 0.5; x < 2.5; x += 0.0625) {
    PREC y;
    ASSERT_TRUE(spline.evaluate(PREC(x), y));
    EXPECT_NEAR(double(y), fn(x), 1e-5) << x;
  }
}

TYPED_TEST(HermiteTest, UnreachableEpsRunsElevenFits) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  Fn fn{true};
  const PREC err = spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(3)), 1024,
                                             std::numeric_limits<PREC>::min());
  EXPECT_EQ(spline.getSegments().size(), 1024u);
  // Fits with 1, 2, 4, ..., 1024 bins: nBins + 1 edges each, plus one midpoint per bin for the error.
  EXPECT_EQ(fn.calls, 2 * 2047 + 11);
  EXPECT_TRUE(err > PREC(0) && err < PREC(1e-6)) << err;
  EXPECT_FLOAT_EQ(float(spline.getScale()), float(1024.0 / 3.0));
}

TYPED_TEST(HermiteTest, EvaluateAtTheRangeEndsAndInTheLastBin) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  spline.setupHermiteCoeffs(Fn{true}, typename TestFixture::Vec2(PREC(0.25), PREC(2)), 1024, PREC(1e-4));
  PREC y = PREC(-7);
  // Outside, at the excluded upper end and for NaN: false, output untouched.
  for (PREC x : {PREC(2), std::nextafter(PREC(0.25), PREC(0)), TestFixture::kNaN, TestFixture::kInf, -TestFixture::kInf})
    EXPECT_FALSE(spline.evaluate(x, y)) << x;
  EXPECT_EQ(y, PREC(-7));
  ASSERT_TRUE(spline.evaluate(PREC(0.25), y));
  EXPECT_EQ(y, spline.getSegments().front().coef(0));
  ASSERT_TRUE(spline.evaluate(std::nextafter(PREC(2), PREC(0)), y));
  EXPECT_NEAR(double(y), 1.0 / 3.0, 1e-4);

  // Where (x - range(0)) * scale rounds up to the bin count for the largest x
  // below range(1), the last bin is used; such ranges are common.
  int found = 0;
  for (int k = 1; k < 4000 && found < 3; ++k) {
    const PREC lo = PREC(0.001) * PREC(k), hi = lo + PREC(0.7) + PREC(0.013) * PREC(k % 97), x = std::nextafter(hi, lo);
    spline = typename TestFixture::Spline();
    spline.setupHermiteCoeffs(Fn{true}, typename TestFixture::Vec2(lo, hi), 4, PREC(1e-30f));
    if (!((x - lo) * spline.getScale() >= PREC(spline.getSegments().size()))) continue;
    ++found;
    ASSERT_TRUE(spline.evaluate(x, y));
    EXPECT_EQ(y, TestFixture::lastCubic(spline, x));
  }
  EXPECT_EQ(found, 3);
}

TYPED_TEST(HermiteTest, ContractBreachesAreReportedAndUntestedFitsHaveNoError) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  AR::Test::LogCapture capture;
  typename TestFixture::Spline unfitted, noBins, reversed;
  PREC y = PREC(3);
  EXPECT_FALSE(unfitted.evaluate(PREC(0), y));
  EXPECT_EQ(y, PREC(3));
  EXPECT_EQ(TestFixture::asserts(capture, "isInit()"), 1u);
  EXPECT_EQ(capture.messages().back(), "AR ERROR: HermiteSplineInterpolation::Evaluate() - not initialized\n");

  capture.clear();
  EXPECT_EQ(noBins.setupHermiteCoeffs(Fn{false}, Vec2(PREC(0), PREC(1)), 0, PREC(0)), TestFixture::kInf);
  EXPECT_EQ(TestFixture::asserts(capture, "MAX_BINS >= INIT_BINS"), 1u);
  EXPECT_EQ(TestFixture::asserts(capture, "eps > 0"), 1u);
  // A reversed range has no midpoint inside it: nothing is tested, the error
  // is 0 and the first fit is kept, though it is not a usable spline.
  EXPECT_EQ(reversed.setupHermiteCoeffs(Fn{false}, Vec2(PREC(1), PREC(0)), 8, PREC(1e-3)), PREC(0));
  EXPECT_EQ(TestFixture::asserts(capture, "rangeForApprox(1) > rangeForApprox(0)"), 1u);
  EXPECT_EQ(TestFixture::asserts(capture, "isInit()"), 1u);
  EXPECT_EQ(reversed.getSegments().size(), 1u);
  EXPECT_FALSE(reversed.isInit());
  EXPECT_EQ(unfitted.testAccuracy(Fn{false}), PREC(0));

  // A function that is NaN somewhere inside is never accurate.
  typename TestFixture::Spline poisoned;
  EXPECT_EQ(poisoned.setupHermiteCoeffs(NaNAbove{}, Vec2(PREC(0), PREC(1)), 4, PREC(1e-3)), TestFixture::kInf);
}

TYPED_TEST(HermiteTest, VerboseLevelLogsEveryEdgeAndBinAndBelowDebugNothing) {
  using PREC = TypeParam;
  Logger& logger = Logger::getInstance();
  const Logger::LEVEL saved = logger.getLevel();
  std::vector<std::string> logged[2];
  const Logger::LEVEL levels[2] = {Logger::LEVEL_VERBOSE, Logger::LEVEL_WARNING};
  for (int i = 0; i < 2; ++i) {
    logger.setLevel(levels[i]);
    AR::Test::LogCapture capture;
    typename TestFixture::Spline().setupHermiteCoeffs([](auto x) { return x * x * x; },
                                                      typename TestFixture::Vec2(PREC(0), PREC(1)), 4, PREC(1e-3));
    logged[i] = capture.messages();
  }
  logger.setLevel(saved);
  EXPECT_EQ(logged[0], (std::vector<std::string>{
                           "AR VERBOSE: Hermite approximation v0:0.000000e+00 v0.d:0.000000e+00 v1:1.000000e+00 "
                           "v1.d:3.000000e+00\n",
                           "AR VERBOSE: Hermite approximation coef(0):0.000000e+00 coef(1):0.000000e+00 "
                           "coef(2):0.000000e+00 coef(3):1.000000e+00 t0:0.000000e+00\n",
                           "AR DEBUG: Fitted Hermite spline with 1 bins, maximum approximation error 0.000000\n"}));
  EXPECT_TRUE(logged[1].empty());
}

}  // namespace
