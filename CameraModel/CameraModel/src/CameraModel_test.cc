#include "CameraModel/CameraModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "TestModels.h"

namespace {

using CamModelTest::makeModel;
using CamModelTest::realisticModels;
using AD = AR::Math::ad<double, 1>;

template <typename PREC>
class CameraModelTest : public ::testing::Test {
 protected:
  static constexpr bool kFloat = std::is_same<PREC, float>::value;

  /// Standard output of validateCoeffs; `ok` receives its result.
  static std::string validate(const CamModel::CameraModel<PREC>& m, bool& ok) {
    testing::internal::CaptureStdout();
    ok = m.validateCoeffs();
    return testing::internal::GetCapturedStdout();
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CameraModelTest, Precisions);

TEST(DistortionModelTest, NamesAndCoefficientCountsFollowTheEnumeration) {
  const char* names[] = {"LINEAR", "RADIAL_2_PARAMETERS", "RADIAL_3_PARAMETERS", "RADIAL_6_PARAMETERS",
                         "FISHEYE_1_PARAMETER", "FISHEYE_4_PARAMETERS"};
  const int counts[] = {0, 2, 3, 6, 1, 4};
  for (uint32_t v = 0; v < 6; ++v) {
    EXPECT_EQ(CamModel::modelName(DistortionModel(v)), names[v]);
    EXPECT_EQ(CamModel::maxNumRadialDistortionCoeffs(DistortionModel(v)), counts[v]);
  }
  EXPECT_EQ(sizeof(DistortionModel), 4u);
}

TEST(DistortionModelDeathTest, UnknownModelAborts) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(CamModel::modelName(DistortionModel(6)), "0 && \"Unhandled distortion model\"");
  EXPECT_DEATH(CamModel::maxNumRadialDistortionCoeffs(DistortionModel(6)), "Unhandled distortion model");
  auto m = makeModel<float>(LINEAR, {});
  m.model = DistortionModel(6);
  EXPECT_DEATH(m.distortionFactor(0.5f), "0 && \"Distortion model not implemented\"");
  EXPECT_DEATH(m.undistortionFactor(0.5), "0 && \"Undistortion model not implemented\"");
}

TYPED_TEST(CameraModelTest, ValidationPrintsTheFirstFailure) {
  using P = TypeParam;
  const std::string focal = "Error: Focal length should be positive\n";
  const std::string pp = "Error: Principal point should be inside the image\n";
  const std::string surplus = "Radial distortion vector for model %s must have at most %d nonzero coefficients\n";
  const std::string omega = "Omega parameter of 1-param fisheye model (%s) must be in the range (0, Pi)\n";
  auto fill = [](std::string text, const std::string& a, const std::string& b = "") {
    text.replace(text.find('%'), 2, a);
    if (!b.empty()) text.replace(text.find('%'), 2, b);
    return text;
  };
  using M = CamModel::CameraModel<P>;
  struct Case {
    DistortionModel model;
    std::vector<double> k;
    std::function<void(M&)> change;
    std::string out;
  };
  const Case cases[] = {
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.focalLength(1) = 0; }, focal},
      // The focal length is checked before the size.
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.focalLength(0) = -280; m.size(0) = 0; }, focal},
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.focalLength(0) = std::numeric_limits<P>::quiet_NaN(); }, focal},
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.size(1) = -1; }, "Error: Size must be the image size in pixels\n"},
      // The principal point must lie strictly inside the image.
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.principalPoint(0) = 0; }, pp},
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.principalPoint(0) = m.size(0); }, pp},
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.principalPoint(1) = 0; }, pp},
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.principalPoint(1) = m.size(1); }, pp},
      {RADIAL_2_PARAMETERS, {-0.2}, [](M& m) { m.principalPoint = AR::Math::Vector<P, 2>(P(0.5), P(479.5)); }, ""},
      {RADIAL_2_PARAMETERS, {-0.2, 0.05, 0.1}, nullptr, fill(surplus, "RADIAL_2_PARAMETERS", "2")},
      {FISHEYE_4_PARAMETERS, {0.01, 0, 0, 0, 1e-3}, nullptr, fill(surplus, "FISHEYE_4_PARAMETERS", "4")},
      {LINEAR, {0, 0, 0, 0, 0, -1e-6}, nullptr, fill(surplus, "LINEAR", "0")},
      {FISHEYE_1_PARAMETER, {0.9, 0.1}, nullptr, fill(surplus, "FISHEYE_1_PARAMETER", "1")},
      // The rational model takes any six values.
      {RADIAL_6_PARAMETERS, {-5, 3, 1, -2, 7, -9}, nullptr, ""},
      {FISHEYE_1_PARAMETER, {0.0}, nullptr, fill(omega, "0.000000")},
      {FISHEYE_1_PARAMETER, {-0.5}, nullptr, fill(omega, "-0.500000")},
      // The single-precision pi lies above pi.
      {FISHEYE_1_PARAMETER, {double(float(M_PI))}, nullptr, fill(omega, "3.141593")},
      {FISHEYE_1_PARAMETER, {3.1}, nullptr, ""},
  };
  for (const Case& c : cases) {
    auto m = makeModel<P>(c.model, c.k);
    if (c.change) c.change(m);
    bool ok = false;
    EXPECT_EQ(this->validate(m, ok), c.out);
    EXPECT_EQ(ok, c.out.empty()) << c.out;
  }
  for (const auto& c : realisticModels()) {
    bool ok = false;
    EXPECT_EQ(this->validate(makeModel<P>(c.model, c.k), ok), "");
    EXPECT_TRUE(ok) << CamModel::modelName(c.model);
  }
}

// Closed forms of the three model families, written out independently here.
double closedForm(DistortionModel model, const std::vector<double>& kIn, double x) {
  std::vector<double> k(kIn);
  k.resize(6, 0.0);
  const double r = std::sqrt(x);
  switch (model) {
    case LINEAR: return 1;
    case FISHEYE_1_PARAMETER: return std::atan(2 * r * std::tan(k[0] / 2)) / (k[0] * r);
    case FISHEYE_4_PARAMETERS: {
      const double t = std::atan(r);
      return (t + k[0] * std::pow(t, 3) + k[1] * std::pow(t, 5) + k[2] * std::pow(t, 7) + k[3] * std::pow(t, 9)) / r;
    }
    default:
      return (1 + x * (k[0] + x * (k[1] + x * k[2]))) / (1 + x * (k[3] + x * (k[4] + x * k[5])));
  }
}

TYPED_TEST(CameraModelTest, DistortionFactorMatchesClosedFormsInEveryInstance) {
  using P = TypeParam;
  const double tol = this->kFloat ? 8e-6 : 4e-13;
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    std::vector<double> k;  // the coefficients as the model holds them
    for (double v : c.k) k.push_back(double(P(v)));
    for (double x : {1e-6, 0.01, 0.1, 0.3, 0.7, 1.0, 1.8, 3.0}) {
      const double xp = double(P(x));
      const double expected = closedForm(c.model, k, xp);
      EXPECT_NEAR(double(m.distortionFactor(P(x))), expected, tol * expected) << "x=" << x;
      EXPECT_NEAR(m.distortionFactor(xp), expected, 1e-13 * expected) << "x=" << x;
      // The differentiable instance: same value, slope as a central difference.
      const double h = 1e-4 * std::max(xp, 1e-3);
      const AD ad = m.distortionFactor(AD(xp, 0.37));
      const double slope = (closedForm(c.model, k, xp + h) - closedForm(c.model, k, xp - h)) / (2 * h);
      EXPECT_NEAR(ad.value(), expected, 1e-13 * expected) << "x=" << x;
      EXPECT_NEAR(ad.derivative(), 0.37 * slope, 1e-6 * (std::fabs(slope) + 1)) << "x=" << x;
    }
  }
}

TYPED_TEST(CameraModelTest, FactorsAtTheCentre) {
  using P = TypeParam;
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    const bool fisheye = c.model == FISHEYE_1_PARAMETER || c.model == FISHEYE_4_PARAMETERS;
    // The radial models give exactly 1; the fisheyes lift 0 to 1e-8 and give
    // the paraxial factor 2 tan(w/2)/w (field of view) or 1 within rounding.
    const double omega = double(P(c.k.empty() ? 0 : c.k[0]));
    const double d0 = c.model == FISHEYE_1_PARAMETER ? 2 * std::tan(omega / 2) / omega : 1.0;
    EXPECT_NEAR(double(m.distortionFactor(P(0))), d0, fisheye ? 1e-6 : 0.0);
    EXPECT_NEAR(double(m.undistortionFactor(P(0))), 1 / d0, fisheye ? 1e-6 : 0.0);
    if (!fisheye) continue;
    // The lift is a constant: the slope passes through it unchanged.
    EXPECT_EQ(m.distortionFactor(P(0)), m.distortionFactor(P(1e-8)));
    EXPECT_EQ(m.distortionFactor(P(0.5e-8)), m.distortionFactor(P(0.5e-8) + P(1e-8)));
    EXPECT_EQ(m.distortionFactor(AD(0.0, 1.0)).derivative(), m.distortionFactor(AD(1e-8, 1.0)).derivative());
  }
}

TYPED_TEST(CameraModelTest, UndistortionInvertsDistortion) {
  using P = TypeParam;
  // The iteration stops on a relative change of the factor below 1e-6.
  const double tolerance = this->kFloat ? 1e-5 : 2e-6;
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    for (int i = 0; i <= 40; ++i) {  // up to 0.8, well inside every range
      const P x = P(0.02 * i);
      const P d = m.distortionFactor(x);
      EXPECT_NEAR(double(m.undistortionFactor(d * d * x)) * double(d), 1.0, tolerance) << "x=" << x;
      const double dd = m.distortionFactor(double(x));
      EXPECT_NEAR(m.undistortionFactor(dd * dd * double(x)) * dd, 1.0, 2e-6) << "x=" << x;
    }
  }
}

TYPED_TEST(CameraModelTest, IterationNeverLeavesTheValidDistortionRange) {
  using P = TypeParam;
  auto m = makeModel<P>(RADIAL_2_PARAMETERS, {-0.28, 0.07});
  m.maxValidDistortionRSq = P(0.25);
  // Far beyond the image of the limit (about 0.22), the estimate is held at
  // the limit and the factor belongs to it.
  for (P y : {P(0.5), P(2), P(50)}) EXPECT_EQ(m.undistortionFactor(y), P(1) / m.distortionFactor(P(0.25))) << y;
}

}  // namespace
