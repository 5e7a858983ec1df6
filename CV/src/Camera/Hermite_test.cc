#include "AR/CV/Camera/Hermite.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "LogCapture.h"

namespace {

using AR::Common::Logger;
using AR::CV::HermiteAD;

/// Sets the logger level for one test and restores it afterwards.
class LevelGuard {
 public:
  explicit LevelGuard(Logger::LEVEL level) : saved_(Logger::getInstance().getLevel()) {
    Logger::getInstance().setLevel(level);
  }
  ~LevelGuard() { Logger::getInstance().setLevel(saved_); }

 private:
  Logger::LEVEL saved_;
};

/// f(x) = 1 + 2x - 0.5x^2 + 0.25x^3 in the plain and the differentiable
/// scalar; counts the differentiable calls (one per bin edge and fit).
struct Cubic {
  template <typename T>
  T operator()(T x) const {
    return T(1.0) + T(2.0) * x - T(0.5) * x * x + T(0.25) * x * x * x;
  }
  HermiteAD operator()(const HermiteAD& x) const {
    ++adCalls;
    return HermiteAD(1.0) + HermiteAD(2.0) * x - HermiteAD(0.5) * x * x + HermiteAD(0.25) * x * x * x;
  }
  mutable int adCalls = 0;
};

/// 1/(1 + x): smooth but not a polynomial, so no bin count fits it exactly.
/// Counts its calls in either scalar.
struct Rational {
  template <typename T>
  T operator()(T x) const {
    ++calls;
    return T(1.0) / (T(1.0) + x);
  }
  mutable int calls = 0;
};

template <typename PREC>
class HermiteTest : public ::testing::Test {
 protected:
  using Spline = AR::CV::HermiteSplineInterpolation<PREC>;
  using Vec2 = typename Spline::Vec2;
  static std::string withPrec(const std::string& signature) {
    return signature + " [with PREC = " + (std::is_same<PREC, float>::value ? "float" : "double") + "]";
  }
  /// Value of a segment's cubic at x.
  static PREC horner(const typename Spline::Coeffs& s, PREC x) {
    const PREC t = x - s.t0;
    return s.coef(0) + t * (s.coef(1) + t * (s.coef(2) + t * s.coef(3)));
  }
  /// Number of contract-breach lines for `condition` raised in the spline header.
  static size_t asserts(const AR::Test::LogCapture& capture, const std::string& condition) {
    return capture.countContaining("AR ERROR: AR_ASSERT " + condition + " CV/include/AR/CV/Camera/Hermite(");
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(HermiteTest, Precisions);

TYPED_TEST(HermiteTest, CubicIsFittedExactlyByOneBinAndReported) {
  using PREC = TypeParam;
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  Cubic fn;
  const PREC err = spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0.5), PREC(2.5)), 1024, PREC(1e-4));
  EXPECT_EQ(spline.getSegments().size(), 1u);
  EXPECT_EQ(fn.adCalls, 2);  // both ends of the single bin, once each
  EXPECT_LT(err, PREC(32) * std::numeric_limits<PREC>::epsilon());
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"AR DEBUG: Fitted Hermite spline with 1 bins, maximum approximation error 0.000000\n"});
  for (double x = 0.5; x < 2.5; x += 0.0625) {
    PREC y;
    ASSERT_TRUE(spline.evaluate(PREC(x), y));
    EXPECT_NEAR(double(y), fn(x), 1e-5) << x;
  }
}

TYPED_TEST(HermiteTest, UnreachableEpsRunsElevenFitsAndKeepsTheLargestBudget) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  Rational fn;
  const PREC err = spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(3)), 1024,
                                             std::numeric_limits<PREC>::min());
  EXPECT_EQ(spline.getSegments().size(), 1024u);
  // Fits with 1, 2, 4, ..., 1024 bins: nBins + 1 edges each, plus one
  // midpoint per bin for the error.
  EXPECT_EQ(fn.calls, 2 * 2047 + 11);
  EXPECT_GT(err, PREC(0));
  EXPECT_LT(err, PREC(1e-6));
  EXPECT_FLOAT_EQ(float(spline.getScale()), float(1024.0 / 3.0));

  // A budget that is not a power of two ends at the power below it.
  typename TestFixture::Spline odd;
  odd.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(3)), 1000, PREC(1e-30f));
  EXPECT_EQ(odd.getSegments().size(), 512u);
}

TYPED_TEST(HermiteTest, LinearModelFactorNeedsOneExactBin) {
  using PREC = TypeParam;
  CamModel::CameraModel<PREC> model;
  model.model = LINEAR;
  typename TestFixture::Spline spline;
  EXPECT_EQ(spline.setupHermiteCoeffs(AR::CV::DistortFn<CamModel::CameraModel<PREC>>(model),
                                      typename TestFixture::Vec2(PREC(0), PREC(81)), 1024, PREC(1e-5)),
            PREC(0));
  ASSERT_EQ(spline.getSegments().size(), 1u);
  EXPECT_EQ(spline.getSegments()[0].coef, (AR::Math::Vector<PREC, 4>(PREC(1), PREC(0), PREC(0), PREC(0))));
}

TYPED_TEST(HermiteTest, EvaluateAtTheRangeEnds) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  spline.setupHermiteCoeffs(Rational(), typename TestFixture::Vec2(PREC(0.25), PREC(2)), 1024, PREC(1e-4));
  const auto& segs = spline.getSegments();
  ASSERT_GT(segs.size(), 1u);

  // Outside, at the excluded upper end and for NaN: false, output untouched.
  PREC y = PREC(-7);
  for (PREC x : {PREC(2), std::nextafter(PREC(0.25), PREC(0)), std::numeric_limits<PREC>::quiet_NaN(),
                 std::numeric_limits<PREC>::infinity(), -std::numeric_limits<PREC>::infinity()})
    EXPECT_FALSE(spline.evaluate(x, y)) << x;
  EXPECT_EQ(y, PREC(-7));

  ASSERT_TRUE(spline.evaluate(PREC(0.25), y));
  EXPECT_EQ(y, segs.front().coef(0));
  const PREC xTop = std::nextafter(PREC(2), PREC(0));
  ASSERT_TRUE(spline.evaluate(xTop, y));
  EXPECT_EQ(y, TestFixture::horner(segs.back(), xTop));
  EXPECT_NEAR(double(y), 1.0 / 3.0, 1e-4);
}

TYPED_TEST(HermiteTest, PositionRoundingUpToTheBinCountUsesTheLastBin) {
  using PREC = TypeParam;
  // Find a range where (x - range(0)) * scale rounds up to the number of bins
  // for the largest x below range(1); such ranges are common.
  bool found = false;
  for (int k = 1; k < 4000 && !found; ++k) {
    typename TestFixture::Spline spline;
    const PREC lo = PREC(0.001) * PREC(k);
    const PREC hi = lo + PREC(0.7) + PREC(0.013) * PREC(k % 97);
    spline.setupHermiteCoeffs(Rational(), typename TestFixture::Vec2(lo, hi), 4, PREC(1e-30f));
    const PREC x = std::nextafter(hi, lo);
    if (!((x - lo) * spline.getScale() >= PREC(spline.getSegments().size()))) continue;
    found = true;
    PREC y;
    ASSERT_TRUE(spline.evaluate(x, y));
    EXPECT_EQ(y, TestFixture::horner(spline.getSegments().back(), x));
  }
  EXPECT_TRUE(found);
}

TYPED_TEST(HermiteTest, UnfittedSplineRefusesAndLogs) {
  using PREC = TypeParam;
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  EXPECT_FALSE(spline.isInit());
  PREC y = PREC(3);
  EXPECT_FALSE(spline.evaluate(PREC(0), y));
  EXPECT_EQ(y, PREC(3));
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(capture.messages()[1], "AR ERROR: HermiteSplineInterpolation::Evaluate() - not initialized\n");
  const std::string function =
      TestFixture::withPrec("bool AR::CV::HermiteSplineInterpolation<PREC>::evaluate(PREC, PREC&) const") + "\n";
  EXPECT_EQ(TestFixture::asserts(capture, "isInit()"), 1u);
  EXPECT_EQ(capture.messages()[0].substr(capture.messages()[0].size() - function.size()), function);
}

TYPED_TEST(HermiteTest, PreconditionsAreReportedAndFittingGoesOn) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  AR::Test::LogCapture capture;
  Cubic fn;
  typename TestFixture::Spline noBins;
  EXPECT_EQ(noBins.setupHermiteCoeffs(fn, Vec2(PREC(0), PREC(1)), 0, PREC(0)), std::numeric_limits<PREC>::infinity());
  EXPECT_FALSE(noBins.isInit());
  EXPECT_EQ(TestFixture::asserts(capture, "MAX_BINS >= INIT_BINS"), 1u);
  EXPECT_EQ(TestFixture::asserts(capture, "eps > 0"), 1u);

  capture.clear();
  typename TestFixture::Spline spline;
  spline.setupHermiteCoeffs(fn, Vec2(PREC(0), PREC(1)), 8, PREC(1e-3));
  EXPECT_EQ(TestFixture::asserts(capture, "!isInit()"), 0u);
  spline.setupHermiteCoeffs(fn, Vec2(PREC(0), PREC(2)), 8, PREC(1e-3));
  EXPECT_EQ(TestFixture::asserts(capture, "!isInit()"), 1u);
  EXPECT_EQ(spline.getRange()(1), PREC(2)) << "the refit goes ahead";

  capture.clear();
  typename TestFixture::Spline reversed;
  EXPECT_EQ(reversed.setupHermiteCoeffs(fn, Vec2(PREC(1), PREC(0)), 8, PREC(1e-3)),
            std::numeric_limits<PREC>::infinity())
      << "a failed fit never looks accurate";
  EXPECT_EQ(TestFixture::asserts(capture, "rangeForApprox(1) > rangeForApprox(0)"), 1u);
  // Each of the four fits (1, 2, 4, 8 bins) ends unfitted.
  EXPECT_EQ(TestFixture::asserts(capture, "isInit()"), 4u);

  // A function that turns NaN never passes a fit.
  struct Broken {
    PREC operator()(PREC x) const { return x >= PREC(0.5) ? std::numeric_limits<PREC>::quiet_NaN() : x; }
    HermiteAD operator()(const HermiteAD& x) const { return x; }
  };
  typename TestFixture::Spline broken;
  EXPECT_EQ(broken.setupHermiteCoeffs(Broken(), Vec2(PREC(0), PREC(1)), 4, PREC(1)), std::numeric_limits<PREC>::infinity());
}

TYPED_TEST(HermiteTest, VerboseLevelLogsEveryEdgeAndBinAndBelowDebugNothing) {
  using PREC = TypeParam;
  struct Cube {
    PREC operator()(PREC x) const { return x * x * x; }
    HermiteAD operator()(const HermiteAD& x) const { return x * x * x; }
  };
  {
    LevelGuard level(Logger::LEVEL_VERBOSE);
    AR::Test::LogCapture capture;
    typename TestFixture::Spline spline;
    spline.setupHermiteCoeffs(Cube(), typename TestFixture::Vec2(PREC(0), PREC(1)), 4, PREC(1e-3));
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{
                  "AR VERBOSE: Hermite approximation v0:0.000000e+00 v0.d:0.000000e+00 v1:1.000000e+00 "
                  "v1.d:3.000000e+00\n",
                  "AR VERBOSE: Hermite approximation coef(0):0.000000e+00 coef(1):0.000000e+00 "
                  "coef(2):0.000000e+00 coef(3):1.000000e+00 t0:0.000000e+00\n",
                  "AR DEBUG: Fitted Hermite spline with 1 bins, maximum approximation error 0.000000\n"}));
  }
  LevelGuard level(Logger::LEVEL_WARNING);
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  spline.setupHermiteCoeffs(Cube(), typename TestFixture::Vec2(PREC(0), PREC(1)), 4, PREC(1e-3));
  EXPECT_TRUE(capture.messages().empty());
}

}  // namespace
