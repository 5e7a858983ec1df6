#include "CameraModel/CameraModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "RecordRig.h"

namespace {

using AD = AR::Math::ad<double, 1>;  // the differentiable instance the spline fits use

/// A 640x480 camera with focal lengths (280, 281) and the given lens; both limits at 81.
template <typename PREC>
CamModel::CameraModel<PREC> makeModel(int32_t model, const std::vector<double>& k) {
  CamModel::CameraModel<PREC> m;
  m.size = AR::Math::Vector<PREC, 2>(640, 480);
  m.principalPoint = AR::Math::Vector<PREC, 2>(320.5, 240.25);
  m.focalLength = AR::Math::Vector<PREC, 2>(280, 281);
  for (size_t i = 0; i < k.size(); ++i) m.radialDistortionCoeffs(int(i)) = PREC(k[i]);
  m.model = DistortionModel(model);
  return m;
}

/// Standard output of `fn()`.
std::string stdoutOf(const std::function<void()>& fn) {
  testing::internal::CaptureStdout();
  fn();
  return testing::internal::GetCapturedStdout();
}

template <typename PREC>
class CameraModelTest : public ::testing::Test {
 protected:
  static constexpr bool kFloat = std::is_same<PREC, float>::value;
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CameraModelTest, Precisions);

TEST(AutoDiffTest, EveryOperationMatchesTheHandDerivative) {
  // f = (x*x + 3) / (x - 0.5) - sqrt(x) * atan(x) + tan(x) - 2 / x, with f' written out by hand.
  const double x = 0.9;
  const AD v(x, 0.25), y = (v * v + 3.0) / (v - 0.5) - sqrt(v) * atan(v) + tan(v) - 2.0 / v;
  const double df = (x * x - x - 3) / ((x - 0.5) * (x - 0.5)) - std::atan(x) / (2 * std::sqrt(x)) -
                    std::sqrt(x) / (1 + x * x) + 1 / (std::cos(x) * std::cos(x)) + 2 / (x * x);
  EXPECT_NEAR(y.derivative(), 0.25 * df, 1e-12);  // the seed scales the derivative
  EXPECT_EQ(sqrt(AD(0.0, 1.0)).derivative(), 0.0);
}

TEST(DistortionModelTest, NamesAndCoefficientCounts) {
  const char* names[] = {"LINEAR", "RADIAL_2_PARAMETERS", "RADIAL_3_PARAMETERS", "RADIAL_6_PARAMETERS",
                         "FISHEYE_1_PARAMETER", "FISHEYE_4_PARAMETERS"};
  const int counts[] = {0, 2, 3, 6, 1, 4};
  for (uint32_t v = 0; v < 6; ++v) {
    EXPECT_EQ(CamModel::modelName(DistortionModel(v)), names[v]);
    EXPECT_EQ(CamModel::maxNumRadialDistortionCoeffs(DistortionModel(v)), counts[v]);
  }
}

TEST(DistortionModelDeathTest, UnknownModelAndNaNDenominatorRootAbort) {
  EXPECT_DEATH(CamModel::modelName(DistortionModel(6)), "0 && \"Unhandled distortion model\"");
  EXPECT_DEATH(CamModel::maxNumRadialDistortionCoeffs(DistortionModel(6)), "Unhandled distortion model");
  auto m = makeModel<double>(6, {});
  EXPECT_DEATH(m.distortionFactor(0.5), "0 && \"Distortion model not implemented\"");
  EXPECT_DEATH(m.undistortionFactor(0.5), "0 && \"Undistortion model not implemented\"");
  m = makeModel<double>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, std::numeric_limits<double>::quiet_NaN()});
  EXPECT_DEATH(m.findMaxDistortionLimits_6paramRadial(), "!std::isnan\\(root.real\\(\\)\\)");
}

TYPED_TEST(CameraModelTest, ValidationPrintsTheFirstFailure) {
  using P = TypeParam;
  using M = CamModel::CameraModel<P>;
  const std::string focal = "Error: Focal length should be positive\n";
  const std::string pp = "Error: Principal point should be inside the image\n";
  const std::string omega = "Omega parameter of 1-param fisheye model (3.141593) must be in the range (0, Pi)\n";
  struct Case {
    DistortionModel model;
    std::vector<double> k;
    std::function<void(M&)> change;
    std::string out;
  };
  const Case cases[] = {
      {RADIAL_2_PARAMETERS, {}, [](M& m) { m.focalLength(1) = 0; }, focal},
      {RADIAL_2_PARAMETERS, {}, [](M& m) { m.focalLength(0) = -1; m.size(0) = 0; }, focal},  // focal first
      {RADIAL_2_PARAMETERS, {}, [](M& m) { m.focalLength(0) = std::numeric_limits<P>::quiet_NaN(); }, focal},
      {RADIAL_2_PARAMETERS, {}, [](M& m) { m.size(1) = -1; }, "Error: Size must be the image size in pixels\n"},
      {RADIAL_2_PARAMETERS, {}, [](M& m) { m.principalPoint(0) = m.size(0); }, pp},
      {RADIAL_2_PARAMETERS, {}, [](M& m) { m.principalPoint(1) = 0; }, pp},
      {RADIAL_2_PARAMETERS, {-0.2, 0.05, 0.1}, nullptr,
       "Radial distortion vector for model RADIAL_2_PARAMETERS must have at most 2 nonzero coefficients\n"},
      {LINEAR, {0, 0, 0, 0, 0, -1e-6}, nullptr,
       "Radial distortion vector for model LINEAR must have at most 0 nonzero coefficients\n"},
      {RADIAL_6_PARAMETERS, {-5, 3, 1, -2, 7, -9}, nullptr, ""},  // any six values
      {FISHEYE_1_PARAMETER, {double(float(M_PI))}, nullptr, omega},  // the float pi lies above pi
      {FISHEYE_1_PARAMETER, {3.1}, nullptr, ""},
  };
  for (const Case& c : cases) {
    auto m = makeModel<P>(c.model, c.k);
    if (c.change) c.change(m);
    bool ok = false;
    EXPECT_EQ(stdoutOf([&] { ok = m.validateCoeffs(); }), c.out);
    EXPECT_EQ(ok, c.out.empty()) << c.out;
  }
  for (const auto& lens : RecordRig::realisticLenses()) EXPECT_TRUE(makeModel<P>(lens.model, lens.k).validateCoeffs());
}

// Checked against the closed forms of the test support, in every instance of
// the factor; the undistortion iteration must invert it.
TYPED_TEST(CameraModelTest, FactorsMatchTheClosedForms) {
  using P = TypeParam;
  for (const auto& lens : RecordRig::realisticLenses()) {
    SCOPED_TRACE(lens.name);
    const auto m = makeModel<P>(lens.model, lens.k);
    double k[6] = {};  // the coefficients as the model holds them
    for (size_t i = 0; i < lens.k.size(); ++i) k[i] = double(P(lens.k[i]));
    for (double x : {1e-6, 0.01, 0.3, 0.7, 1.8}) {
      const double xp = double(P(x)), h = 1e-4 * xp;
      const double expected = RecordRig::distortionFactor(lens.model, k, xp);
      EXPECT_NEAR(double(m.distortionFactor(P(x))), expected, (this->kFloat ? 8e-6 : 4e-13) * expected) << x;
      EXPECT_NEAR(m.distortionFactor(xp), expected, 1e-13 * expected) << x;
      const AD ad = m.distortionFactor(AD(xp, 0.37));
      const double slope = (RecordRig::distortionFactor(lens.model, k, xp + h) -
                            RecordRig::distortionFactor(lens.model, k, xp - h)) / (2 * h);
      EXPECT_NEAR(ad.value(), expected, 1e-13 * expected) << x;
      EXPECT_NEAR(ad.derivative(), 0.37 * slope, 1e-6 * (std::fabs(slope) + 1)) << x;
      // The iteration stops on a relative change of the factor below 1e-6.
      const P d = m.distortionFactor(P(x));
      EXPECT_NEAR(double(m.undistortionFactor(d * d * P(x)) * d), 1.0, this->kFloat ? 1e-5 : 2e-6) << x;
    }
    // At 0 the radial models give exactly 1; the fisheyes lift x by the constant 1e-8.
    const bool fisheye = lens.model == FISHEYE_1_PARAMETER || lens.model == FISHEYE_4_PARAMETERS;
    const double d0 = RecordRig::distortionFactor(lens.model, k, 0);
    EXPECT_NEAR(double(m.distortionFactor(P(0))), d0, fisheye ? 1e-6 : 0.0);
    EXPECT_NEAR(double(m.undistortionFactor(P(0))), 1 / d0, fisheye ? 1e-6 : 0.0);
    if (fisheye) {
      EXPECT_EQ(m.distortionFactor(AD(0.0, 1.0)).derivative(), m.distortionFactor(AD(1e-8, 1.0)).derivative());
    }
  }
}

/// The two validity lines for fx = 280.
std::string validity(const char* model, const char* distortion, const char* pixels) {
  return std::string("Model ") + model + ". Distortion is valid up-to a radius of " + distortion +
         " in the ideal focal plane\nModel " + model + ". Undistortion is valid up-to a radius of " + pixels +
         " pixels from the principal point\n";
}

TYPED_TEST(CameraModelTest, UnboundedModelsAndTheFieldOfViewAsymptote) {
  struct Case {
    DistortionModel model;
    std::vector<double> k;
    std::string out;
    double maxU;
  } cases[] = {
      {LINEAR, {}, "", 81},
      {FISHEYE_1_PARAMETER, {0.005}, validity("FISHEYE_1_PARAMETER", "9.0", "2520.0"), 81},  // omega <= 0.01
      {RADIAL_2_PARAMETERS, {}, validity("RADIAL_2_PARAMETERS", "9.0", "2520.0"), 81},
      // (pi/2)^2 - 0.1; its ideal preimage (about 809) is capped at 81.
      {FISHEYE_1_PARAMETER, {1.0}, validity("FISHEYE_1_PARAMETER", "9.0", "430.8"), 2.3674011},
  };
  for (const Case& c : cases) {
    auto m = makeModel<TypeParam>(c.model, c.k);
    EXPECT_EQ(stdoutOf([&] { m.setupValidDistortionRange(); }), c.out);
    EXPECT_EQ(m.maxValidDistortionRSq, TypeParam(81));
    EXPECT_NEAR(double(m.maxValidUndistortionRSq), c.maxU, 1e-6);
  }
}

TYPED_TEST(CameraModelTest, BarrelModelStopsBeforeTheRadiusMapTurnsOver) {
  // r (1 - 0.7 r^2) peaks at r = 0.690: the step from 0.68 to 0.70 is the first that is (almost) flat.
  auto m = makeModel<TypeParam>(RADIAL_2_PARAMETERS, {-0.7});
  stdoutOf([&] { m.setupValidDistortionRange(); });
  EXPECT_NEAR(double(m.maxValidDistortionRSq), 0.68 * 0.68, 1e-5);
  EXPECT_GT(double(m.maxValidUndistortionRSq), 0.0);
  EXPECT_LE(double(m.maxValidUndistortionRSq), std::pow(0.690 * (1 - 0.7 * 0.690 * 0.690), 2));
}

TYPED_TEST(CameraModelTest, DenominatorRootBoundsTheRationalModel) {
  using P = TypeParam;
  // 1 + 0.1 x - 0.5 x^3 falls to 0.1 at x = 1.2712097 (the third candidate of the cubic formula).
  auto m = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, -0.5});
  const std::string out = stdoutOf([&] { m.findMaxDistortionLimits_6paramRadial(); });
  // The float cubic formula loses digits to cancellation.
  EXPECT_NEAR(double(m.maxValidDistortionRSq) + 0.1, 1.2712097, this->kFloat ? 2e-4 : 1e-6);
  EXPECT_EQ(out.substr(0, 52), "Radial polynomial model: root of denominator at 1.27");
  if (!this->kFloat) {
    EXPECT_EQ(out, "Radial polynomial model: root of denominator at 1.271210\n");
  }
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
  // Through the entry point the root line comes first and the scan may only lower the bound.
  auto full = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, -0.5});
  const std::string fullOut = stdoutOf([&] { full.setupValidDistortionRange(); });
  EXPECT_EQ(fullOut.find(out + "Model RADIAL_6_PARAMETERS. Distortion is valid up-to a radius of "), 0u);
  EXPECT_LE(full.maxValidDistortionRSq, m.maxValidDistortionRSq);

  // 1 - x^3: D0 = 0 leaves the formula without a root, so the slope test must stop the scan before the pole.
  m = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0, 0, -1});
  EXPECT_EQ(stdoutOf([&] { m.findMaxDistortionLimits_6paramRadial(); }), "");
  stdoutOf([&] { m.setupValidDistortionRange(); });
  EXPECT_GT(double(m.maxValidDistortionRSq), 0.5);
  EXPECT_LT(double(m.maxValidDistortionRSq), 1.0);
}

TYPED_TEST(CameraModelTest, LimitsAreConsistentAndNeverAbove81) {
  using P = TypeParam;
  auto lenses = RecordRig::realisticLenses();
  lenses.insert(lenses.end(), {{"pincushion", RADIAL_2_PARAMETERS, {0.8, 0.3}, 0, 0},
                               {"no root", RADIAL_6_PARAMETERS, {-0.4, 0.1, 0, 0.2, 0.3, 0.4}, 0, 0},
                               {"narrow", FISHEYE_1_PARAMETER, {1.5}, 0, 0},
                               {"strong", FISHEYE_4_PARAMETERS, {0.3, -0.2, 0.05, -0.01}, 0, 0}});
  for (const auto& lens : lenses) {
    SCOPED_TRACE(lens.name);
    auto m = makeModel<P>(lens.model, lens.k);
    if (lens.model != LINEAR) m.maxValidUndistortionRSq = std::numeric_limits<P>::quiet_NaN();  // gets capped
    stdoutOf([&] { m.setupValidDistortionRange(); });
    const double maxD = double(m.maxValidDistortionRSq), maxU = double(m.maxValidUndistortionRSq);
    EXPECT_TRUE(maxD > 0 && maxD <= 81 && maxU >= 0 && maxU <= 81) << maxD << " " << maxU;
    // Inside the distortion range the radius map keeps rising ...
    double rdPrev = 0;
    for (double r = 0.02; r * r < maxD; r += 0.02) {
      const double rd = r * double(m.distortionFactor(P(r * r)));
      ASSERT_GT(rd, rdPrev) << "r=" << r;
      rdPrev = rd;
    }
    // ... and inside the undistortion range the iterative inverse holds.
    for (int i = 1; i <= 50; ++i) {
      const double rd = std::sqrt(maxU) * i / 51.0, r = rd * double(m.undistortionFactor(P(rd * rd)));
      ASSERT_NEAR(r * double(m.distortionFactor(P(r * r))), rd, this->kFloat ? 3e-4 : 1e-4) << "rd=" << rd;
    }
  }
}

}  // namespace
