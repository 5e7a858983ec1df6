#include "AR/CV/Camera/Hermite.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <regex>
#include <string>

#include "LogCapture.h"

namespace {

using AR::Common::Logger;
using AR::CV::HermiteAD;

/// Restores the logger level when a test changes it.
class LevelGuard {
 public:
  explicit LevelGuard(Logger::LEVEL level) : saved_(Logger::getInstance().getLevel()) {
    Logger::getInstance().setLevel(level);
  }
  ~LevelGuard() { Logger::getInstance().setLevel(saved_); }

 private:
  Logger::LEVEL saved_;
};

/// f(x) = 1 + 2x - 0.5x^2 + 0.25x^3, generic over the plain and the
/// differentiable scalar; counts how often each form is called.
struct Cubic {
  template <typename T>
  T operator()(T x) const {
    ++plainCalls;
    return eval(x);
  }
  HermiteAD operator()(const HermiteAD& x) const {
    ++adCalls;
    return eval(x);
  }
  template <typename T>
  static T eval(const T& x) {
    return T(1.0) + T(2.0) * x - T(0.5) * x * x + T(0.25) * x * x * x;
  }
  mutable int plainCalls = 0;
  mutable int adCalls = 0;
};

/// 1/(1 + x): smooth but not a polynomial, so no bin count fits it exactly.
struct Rational {
  template <typename T>
  T operator()(T x) const {
    return T(1) / (T(1) + x);
  }
  HermiteAD operator()(const HermiteAD& x) const {
    ++adCalls;
    return HermiteAD(1.0) / (HermiteAD(1.0) + x);
  }
  mutable int adCalls = 0;
};

/// True if `capture` holds a contract-breach line for `condition` raised in
/// the spline header by a function whose text begins with `function`.
bool hasAssert(const AR::Test::LogCapture& capture, const std::string& condition,
               const std::string& function) {
  const std::string head =
      "AR ERROR: AR_ASSERT " + condition + " CV/include/AR/CV/Camera/Hermite(";
  for (const auto& m : capture.messages()) {
    if (m.compare(0, head.size(), head) != 0) continue;
    const size_t close = m.find(") ", head.size());
    if (close == std::string::npos) continue;
    const std::string line = m.substr(head.size(), close - head.size());
    if (line.empty() || line.find_first_not_of("0123456789") != std::string::npos) continue;
    if (m.compare(close + 2, function.size(), function) == 0) return true;
  }
  return false;
}

template <typename PREC>
class HermiteTest : public ::testing::Test {
 protected:
  using Spline = AR::CV::HermiteSplineInterpolation<PREC>;
  using Vec2 = typename Spline::Vec2;
  static const char* precName() { return std::is_same<PREC, float>::value ? "float" : "double"; }
};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(HermiteTest, Precisions);

TYPED_TEST(HermiteTest, CubicIsFittedExactlyByOneBinAndReported) {
  using PREC = TypeParam;
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  Cubic fn;
  const PREC err = spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0.5), PREC(2.5)),
                                             1024, PREC(1e-4));
  EXPECT_EQ(spline.getSegments().size(), 1u);
  EXPECT_EQ(fn.adCalls, 2);  // both ends of the single bin, once each
  EXPECT_LT(err, PREC(4) * std::numeric_limits<PREC>::epsilon() * PREC(8));
  EXPECT_TRUE(capture.has(
      "AR DEBUG: Fitted Hermite spline with 1 bins, maximum approximation error 0.000000\n"));
  for (double x = 0.5; x < 2.5; x += 0.0625) {
    PREC y;
    ASSERT_TRUE(spline.evaluate(PREC(x), y));
    EXPECT_NEAR(double(y), Cubic::eval(x), 1e-5) << x;
  }
}

TYPED_TEST(HermiteTest, UnreachableEpsRunsElevenFitsAndKeeps1024Bins) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  Rational fn;
  const PREC err = spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(3)),
                                             1024, std::numeric_limits<PREC>::min());
  EXPECT_EQ(spline.getSegments().size(), 1024u);
  // Fits with 1, 2, 4, ..., 1024 bins each sample nBins + 1 edges.
  EXPECT_EQ(fn.adCalls, 2047 + 11);
  EXPECT_GT(err, PREC(0));
  EXPECT_LT(err, PREC(1e-6));
  EXPECT_FLOAT_EQ(float(spline.getScale()), float(1024.0 / 3.0));
}

TYPED_TEST(HermiteTest, BinCountStaysWithinAnOddBudget) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  Rational fn;
  spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(3)), 1000, PREC(1e-30f));
  EXPECT_EQ(spline.getSegments().size(), 512u);
}

TYPED_TEST(HermiteTest, LinearModelFactorNeedsOneExactBin) {
  using PREC = TypeParam;
  CamModel::CameraModel<PREC> model;
  model.model = LINEAR;
  typename TestFixture::Spline spline;
  const PREC err = spline.setupHermiteCoeffs(AR::CV::DistortFn<CamModel::CameraModel<PREC>>(model),
                                             typename TestFixture::Vec2(PREC(0), PREC(81)), 1024,
                                             PREC(1e-5));
  EXPECT_EQ(err, PREC(0));
  ASSERT_EQ(spline.getSegments().size(), 1u);
  const auto& c = spline.getSegments()[0].coef;
  EXPECT_EQ(c(0), PREC(1));
  EXPECT_EQ(c(1), PREC(0));
  EXPECT_EQ(c(2), PREC(0));
  EXPECT_EQ(c(3), PREC(0));
}

TYPED_TEST(HermiteTest, EvaluateAtTheRangeEnds) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  Rational fn;
  spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0.25), PREC(2)), 1024, PREC(1e-4));
  const auto& segs = spline.getSegments();
  ASSERT_GT(segs.size(), 1u);

  PREC y = PREC(-7);
  EXPECT_FALSE(spline.evaluate(PREC(2), y));
  EXPECT_EQ(y, PREC(-7)) << "a failed lookup leaves the output alone";
  EXPECT_FALSE(spline.evaluate(std::nextafter(PREC(0.25), PREC(0)), y));
  EXPECT_FALSE(spline.evaluate(std::numeric_limits<PREC>::quiet_NaN(), y));
  EXPECT_FALSE(spline.evaluate(std::numeric_limits<PREC>::infinity(), y));
  EXPECT_FALSE(spline.evaluate(-std::numeric_limits<PREC>::infinity(), y));
  EXPECT_EQ(y, PREC(-7));

  ASSERT_TRUE(spline.evaluate(PREC(0.25), y));
  EXPECT_EQ(y, segs.front().coef(0));

  // Just below the upper end: the last bin, evaluated at its own offset.
  const PREC xTop = std::nextafter(PREC(2), PREC(0));
  ASSERT_TRUE(spline.evaluate(xTop, y));
  const auto& last = segs.back();
  const PREC t = xTop - last.t0;
  EXPECT_EQ(y, last.coef(0) + t * (last.coef(1) + t * (last.coef(2) + t * last.coef(3))));
  EXPECT_NEAR(double(y), 1.0 / 3.0, 1e-4);
}

TYPED_TEST(HermiteTest, PositionRoundingUpToTheBinCountUsesTheLastBin) {
  using PREC = TypeParam;
  // Look for a range where (x - range(0)) * scale rounds up to the number of
  // bins for the largest x below range(1); such ranges are common.
  Rational fn;
  bool found = false;
  for (int k = 1; k < 4000 && !found; ++k) {
    typename TestFixture::Spline spline;
    const PREC lo = PREC(0.001) * PREC(k);
    const PREC hi = lo + PREC(0.7) + PREC(0.013) * PREC(k % 97);
    spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(lo, hi), 4, PREC(1e-30f));
    const size_t n = spline.getSegments().size();
    const PREC x = std::nextafter(hi, lo);
    if (!((x - lo) * spline.getScale() >= PREC(n))) continue;
    found = true;
    PREC y;
    ASSERT_TRUE(spline.evaluate(x, y));
    const auto& last = spline.getSegments().back();
    const PREC t = x - last.t0;
    EXPECT_EQ(y, last.coef(0) + t * (last.coef(1) + t * (last.coef(2) + t * last.coef(3))));
  }
  EXPECT_TRUE(found) << "no range with a rounded-up position in " << TestFixture::precName();
}

TYPED_TEST(HermiteTest, ValueAndSlopeAreContinuousAtBinEdges) {
  using PREC = TypeParam;
  typename TestFixture::Spline spline;
  Rational fn;
  spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(4)), 64, PREC(1e-30f));
  const auto& segs = spline.getSegments();
  ASSERT_EQ(segs.size(), 64u);
  const double tol = std::is_same<PREC, float>::value ? 2e-6 : 1e-13;
  for (size_t i = 0; i + 1 < segs.size(); ++i) {
    const auto& a = segs[i];
    const auto& b = segs[i + 1];
    const double t = double(b.t0) - double(a.t0);
    const double value = a.coef(0) + t * (a.coef(1) + t * (a.coef(2) + t * a.coef(3)));
    const double slope = a.coef(1) + t * (2 * a.coef(2) + 3 * t * a.coef(3));
    EXPECT_NEAR(value, double(b.coef(0)), tol) << "edge " << i + 1;
    EXPECT_NEAR(slope, double(b.coef(1)), tol * 16) << "edge " << i + 1;
    // And both match the function itself.
    EXPECT_NEAR(double(b.coef(0)), 1.0 / (1.0 + double(b.t0)), tol);
  }
}

TYPED_TEST(HermiteTest, UnfittedSplineRefusesAndLogs) {
  using PREC = TypeParam;
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  EXPECT_FALSE(spline.isInit());
  PREC y = PREC(3);
  EXPECT_FALSE(spline.evaluate(PREC(0), y));
  EXPECT_EQ(y, PREC(3));
  EXPECT_TRUE(capture.has("AR ERROR: HermiteSplineInterpolation::Evaluate() - not initialized\n"));
  EXPECT_TRUE(hasAssert(capture, "isInit()",
                        std::string("bool AR::CV::HermiteSplineInterpolation<PREC>::evaluate(PREC, "
                                    "PREC&) const [with PREC = ") +
                            TestFixture::precName() + "]\n"));
}

TYPED_TEST(HermiteTest, PreconditionsAreReportedAndFittingGoesOn) {
  using PREC = TypeParam;
  AR::Test::LogCapture capture;
  Cubic fn;
  const std::string fit = "PREC AR::CV::HermiteSplineInterpolation<PREC>::setupHermiteCoeffs(";

  typename TestFixture::Spline noBins;
  EXPECT_EQ(noBins.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(1)), 0, PREC(0)),
            std::numeric_limits<PREC>::infinity());
  EXPECT_TRUE(hasAssert(capture, "MAX_BINS >= INIT_BINS", fit));
  EXPECT_TRUE(hasAssert(capture, "eps > 0", fit));
  EXPECT_FALSE(noBins.isInit());

  capture.clear();
  typename TestFixture::Spline spline;
  spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(1)), 8, PREC(1e-3));
  EXPECT_FALSE(hasAssert(capture, "!isInit()", fit));
  spline.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(0), PREC(2)), 8, PREC(1e-3));
  EXPECT_TRUE(hasAssert(capture, "!isInit()", fit));
  EXPECT_EQ(spline.getRange()(1), PREC(2)) << "the refit goes ahead";

  capture.clear();
  typename TestFixture::Spline reversed;
  const PREC err =
      reversed.setupHermiteCoeffs(fn, typename TestFixture::Vec2(PREC(1), PREC(0)), 8, PREC(1e-3));
  EXPECT_TRUE(hasAssert(capture, "rangeForApprox(1) > rangeForApprox(0)", fit));
  EXPECT_TRUE(hasAssert(capture, "isInit()",
                        "void AR::CV::HermiteSplineInterpolation<PREC>::setupHermiteCoeffsInt("));
  EXPECT_EQ(err, std::numeric_limits<PREC>::infinity()) << "a failed fit never looks accurate";
}

TYPED_TEST(HermiteTest, VerboseLevelLogsEveryEdgeAndBin) {
  using PREC = TypeParam;
  LevelGuard level(Logger::LEVEL_VERBOSE);
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  struct Cube {
    PREC operator()(PREC x) const { return x * x * x; }
    HermiteAD operator()(const HermiteAD& x) const { return x * x * x; }
  };
  spline.setupHermiteCoeffs(Cube(), typename TestFixture::Vec2(PREC(0), PREC(1)), 4, PREC(1e-3));
  ASSERT_EQ(capture.messages().size(), 3u);
  EXPECT_EQ(capture.messages()[0],
            "AR VERBOSE: Hermite approximation v0:0.000000e+00 v0.d:0.000000e+00 "
            "v1:1.000000e+00 v1.d:3.000000e+00\n");
  EXPECT_EQ(capture.messages()[1],
            "AR VERBOSE: Hermite approximation coef(0):0.000000e+00 coef(1):0.000000e+00 "
            "coef(2):0.000000e+00 coef(3):1.000000e+00 t0:0.000000e+00\n");
  EXPECT_EQ(capture.messages()[2],
            "AR DEBUG: Fitted Hermite spline with 1 bins, maximum approximation error 0.000000\n");
}

TYPED_TEST(HermiteTest, DebugLineIsSilentBelowLevelThree) {
  using PREC = TypeParam;
  LevelGuard level(Logger::LEVEL_WARNING);
  AR::Test::LogCapture capture;
  typename TestFixture::Spline spline;
  spline.setupHermiteCoeffs(Cubic(), typename TestFixture::Vec2(PREC(0), PREC(1)), 4, PREC(1e-3));
  EXPECT_TRUE(capture.messages().empty());
}

TYPED_TEST(HermiteTest, NaNFunctionNeverPassesAFit) {
  using PREC = TypeParam;
  struct Broken {
    PREC operator()(PREC x) const { return x >= PREC(0.5) ? std::numeric_limits<PREC>::quiet_NaN() : x; }
    HermiteAD operator()(const HermiteAD& x) const { return x; }
  };
  typename TestFixture::Spline spline;
  const PREC err =
      spline.setupHermiteCoeffs(Broken(), typename TestFixture::Vec2(PREC(0), PREC(1)), 4, PREC(1));
  EXPECT_EQ(err, std::numeric_limits<PREC>::infinity());
  EXPECT_EQ(spline.getSegments().size(), 4u);
}

}  // namespace
