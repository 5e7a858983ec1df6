#include "CameraModel/CameraModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "TestModels.h"

namespace {

using CamModelTest::makeModel;
using CamModelTest::realisticModels;

template <typename PREC>
class CameraModelTest : public ::testing::Test {
 protected:
  // Relative agreement expected between two evaluations of the same formula.
  static double tol() { return std::is_same<PREC, float>::value ? 2e-6 : 1e-13; }

  static std::string validateOutput(const CamModel::CameraModel<PREC>& m, bool& ok) {
    testing::internal::CaptureStdout();
    ok = m.validateCoeffs();
    return testing::internal::GetCapturedStdout();
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CameraModelTest, Precisions);

TEST(DistortionModelTest, NamesAndCoefficientCountsFollowTheEnumeration) {
  struct Row {
    uint32_t value;
    const char* name;
    int count;
  };
  const Row rows[] = {{0, "LINEAR", 0},
                      {1, "RADIAL_2_PARAMETERS", 2},
                      {2, "RADIAL_3_PARAMETERS", 3},
                      {3, "RADIAL_6_PARAMETERS", 6},
                      {4, "FISHEYE_1_PARAMETER", 1},
                      {5, "FISHEYE_4_PARAMETERS", 4}};
  for (const Row& row : rows) {
    EXPECT_EQ(CamModel::modelName(DistortionModel(row.value)), row.name);
    EXPECT_EQ(CamModel::maxNumRadialDistortionCoeffs(DistortionModel(row.value)), row.count);
  }
  EXPECT_EQ(sizeof(DistortionModel), 4u);
  EXPECT_EQ(uint32_t(FISHEYE_4_PARAMETERS), 5u);
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

TYPED_TEST(CameraModelTest, RealisticModelsValidateSilently) {
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    bool ok = false;
    EXPECT_EQ(this->validateOutput(makeModel<TypeParam>(c.model, c.k), ok), "");
    EXPECT_TRUE(ok);
  }
}

TYPED_TEST(CameraModelTest, ValidationMessagesInOrder) {
  using P = TypeParam;
  const auto good = makeModel<P>(RADIAL_2_PARAMETERS, {-0.2, 0.05});
  bool ok = true;

  auto m = good;
  m.focalLength(1) = 0;
  EXPECT_EQ(this->validateOutput(m, ok), "Error: Focal length should be positive\n");
  EXPECT_FALSE(ok);

  // The focal length is checked before the size.
  m = good;
  m.focalLength(0) = -280;
  m.size(0) = 0;
  EXPECT_EQ(this->validateOutput(m, ok), "Error: Focal length should be positive\n");
  EXPECT_FALSE(ok);

  m = good;
  m.size(1) = -1;
  EXPECT_EQ(this->validateOutput(m, ok), "Error: Size must be the image size in pixels\n");
  EXPECT_FALSE(ok);

  const std::string ppMessage = "Error: Principal point should be inside the image\n";
  for (int border = 0; border < 4; ++border) {
    m = good;
    if (border == 0) m.principalPoint(0) = 0;
    if (border == 1) m.principalPoint(0) = m.size(0);
    if (border == 2) m.principalPoint(1) = 0;
    if (border == 3) m.principalPoint(1) = m.size(1);
    EXPECT_EQ(this->validateOutput(m, ok), ppMessage) << "border " << border;
    EXPECT_FALSE(ok);
  }
  // Just inside is fine.
  m = good;
  m.principalPoint = AR::Math::Vector<P, 2>(P(0.5), P(479.5));
  EXPECT_EQ(this->validateOutput(m, ok), "");
  EXPECT_TRUE(ok);

  m = good;
  m.focalLength(0) = std::numeric_limits<P>::quiet_NaN();
  EXPECT_EQ(this->validateOutput(m, ok), "Error: Focal length should be positive\n");
  EXPECT_FALSE(ok);
}

TYPED_TEST(CameraModelTest, SurplusCoefficientsAreRejectedWithTheModelsCount) {
  using P = TypeParam;
  bool ok = true;
  auto m = makeModel<P>(RADIAL_2_PARAMETERS, {-0.2, 0.05, 0.1});
  EXPECT_EQ(this->validateOutput(m, ok),
            "Radial distortion vector for model RADIAL_2_PARAMETERS must have at most 2 nonzero coefficients\n");
  EXPECT_FALSE(ok);

  m = makeModel<P>(FISHEYE_4_PARAMETERS, {0.01, 0.0, 0.0, 0.0, 1e-3});
  EXPECT_EQ(this->validateOutput(m, ok),
            "Radial distortion vector for model FISHEYE_4_PARAMETERS must have at most 4 nonzero coefficients\n");
  EXPECT_FALSE(ok);

  m = makeModel<P>(LINEAR, {0, 0, 0, 0, 0, -1e-6});
  EXPECT_EQ(this->validateOutput(m, ok),
            "Radial distortion vector for model LINEAR must have at most 0 nonzero coefficients\n");
  EXPECT_FALSE(ok);

  m = makeModel<P>(FISHEYE_1_PARAMETER, {0.9, 0.1});
  EXPECT_EQ(this->validateOutput(m, ok),
            "Radial distortion vector for model FISHEYE_1_PARAMETER must have at most 1 nonzero coefficients\n");
  EXPECT_FALSE(ok);

  // The rational model takes any six values.
  m = makeModel<P>(RADIAL_6_PARAMETERS, {-5, 3, 1, -2, 7, -9});
  EXPECT_EQ(this->validateOutput(m, ok), "");
  EXPECT_TRUE(ok);
}

TYPED_TEST(CameraModelTest, FieldOfViewParameterMustLieStrictlyBetweenZeroAndPi) {
  using P = TypeParam;
  bool ok = true;
  const double piF = double(float(M_PI));  // above pi
  struct Case {
    double omega;
    const char* out;
  };
  const Case cases[] = {
      {0.0, "Omega parameter of 1-param fisheye model (0.000000) must be in the range (0, Pi)\n"},
      {-0.5, "Omega parameter of 1-param fisheye model (-0.500000) must be in the range (0, Pi)\n"},
      {piF, "Omega parameter of 1-param fisheye model (3.141593) must be in the range (0, Pi)\n"},
      {4.0, "Omega parameter of 1-param fisheye model (4.000000) must be in the range (0, Pi)\n"},
  };
  for (const Case& c : cases) {
    // Zero omega is caught by the omega check, not by the coefficient count.
    auto m = makeModel<P>(FISHEYE_1_PARAMETER, {c.omega});
    EXPECT_EQ(this->validateOutput(m, ok), c.out);
    EXPECT_FALSE(ok);
  }
  auto m = makeModel<P>(FISHEYE_1_PARAMETER, {3.1});
  EXPECT_EQ(this->validateOutput(m, ok), "");
  EXPECT_TRUE(ok);
}

// Closed forms of the three model families, written out independently here.
double rationalReference(const std::vector<double>& k, double x) {
  std::vector<double> c(6, 0.0);
  for (size_t i = 0; i < k.size(); ++i) c[i] = k[i];
  const double num = 1 + x * (c[0] + x * (c[1] + x * c[2]));
  const double den = 1 + x * (c[3] + x * (c[4] + x * c[5]));
  return num / den;
}
double equidistantReference(const std::vector<double>& k, double x) {
  const double r = std::sqrt(x);
  const double t = std::atan(r);
  const double td = t + k[0] * std::pow(t, 3) + k[1] * std::pow(t, 5) + k[2] * std::pow(t, 7) + k[3] * std::pow(t, 9);
  return td / r;
}
double fieldOfViewReference(double omega, double x) {
  const double r = std::sqrt(x);
  return std::atan(2 * r * std::tan(omega / 2)) / (omega * r);
}

TYPED_TEST(CameraModelTest, DistortionFactorMatchesClosedForms) {
  using P = TypeParam;
  const double xs[] = {1e-6, 0.01, 0.1, 0.3, 0.7, 1.0, 1.8, 3.0};
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    for (double x : xs) {
      double expected = 1.0;
      if (c.model == FISHEYE_1_PARAMETER)
        expected = fieldOfViewReference(double(P(c.k[0])), double(P(x)));
      else if (c.model == FISHEYE_4_PARAMETERS)
        expected = equidistantReference({double(P(c.k[0])), double(P(c.k[1])), double(P(c.k[2])), double(P(c.k[3]))},
                                        double(P(x)));
      else if (c.model != LINEAR) {
        std::vector<double> kp;
        for (double k : c.k) kp.push_back(double(P(k)));
        expected = rationalReference(kp, double(P(x)));
      }
      EXPECT_NEAR(double(m.distortionFactor(P(x))), expected, 4 * this->tol() * std::fabs(expected)) << "x=" << x;
      // The double instance of a float model evaluates the same formula with
      // the float coefficients in double.
      EXPECT_NEAR(m.distortionFactor(double(P(x))), expected, 1e-13 * std::fabs(expected)) << "x=" << x;
      const AR::Math::ad<double, 1> adValue = m.distortionFactor(AR::Math::ad<double, 1>(double(P(x)), 1.0));
      EXPECT_NEAR(adValue.value(), expected, 1e-13 * std::fabs(expected)) << "x=" << x;
    }
  }
}

TYPED_TEST(CameraModelTest, FactorsAtTheCentre) {
  using P = TypeParam;
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    if (c.model == FISHEYE_1_PARAMETER) {
      const double omega = double(P(c.k[0]));
      const double paraxial = 2 * std::tan(omega / 2) / omega;
      EXPECT_NEAR(double(m.distortionFactor(P(0))), paraxial, 1e-6);
      EXPECT_NEAR(double(m.undistortionFactor(P(0))), 1 / paraxial, 1e-6);
    } else if (c.model == FISHEYE_4_PARAMETERS) {
      // Lifted to 1e-8, so within rounding of 1 but computed, not special-cased.
      EXPECT_NEAR(double(m.distortionFactor(P(0))), 1.0, 1e-7);
      EXPECT_NEAR(double(m.undistortionFactor(P(0))), 1.0, 1e-7);
    } else {
      EXPECT_EQ(m.distortionFactor(P(0)), P(1));
      EXPECT_EQ(m.undistortionFactor(P(0)), P(1));
    }
  }
}

TYPED_TEST(CameraModelTest, FisheyeBranchesLiftTinySquaredRadii) {
  using P = TypeParam;
  using AD = AR::Math::ad<double, 1>;
  for (const auto& c : realisticModels()) {
    if (c.model != FISHEYE_1_PARAMETER && c.model != FISHEYE_4_PARAMETERS) continue;
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    // Below 1e-8 the argument is moved up by 1e-8; from 1e-8 on it is used as is.
    EXPECT_EQ(m.distortionFactor(P(0)), m.distortionFactor(P(1e-8)));
    EXPECT_EQ(m.distortionFactor(0.0), m.distortionFactor(1e-8));
    EXPECT_EQ(m.distortionFactor(P(0.5e-8)), m.distortionFactor(P(0.5e-8) + P(1e-8)));
    EXPECT_NE(m.distortionFactor(1e-8), m.distortionFactor(1.5e-8));
    // The lift is a constant: the derivative passes through unchanged.
    const AD lifted = m.distortionFactor(AD(0.0, 1.0));
    const AD atLift = m.distortionFactor(AD(1e-8, 1.0));
    EXPECT_EQ(lifted.value(), atLift.value());
    EXPECT_EQ(lifted.derivative(), atLift.derivative());
    // The separate branch members are what the factor dispatches to.
    const P x = P(0.3);
    EXPECT_EQ(m.distortionFactor(x), c.model == FISHEYE_1_PARAMETER ? m.distort_1paramFisheye(x)
                                                                      : m.distort_4paramFisheye(x));
  }
}

TYPED_TEST(CameraModelTest, FieldOfViewUndistortionIsTheClosedFormInverse) {
  using P = TypeParam;
  const double omega = 0.92;
  const auto m = makeModel<P>(FISHEYE_1_PARAMETER, {omega});
  const double w = double(P(omega));
  for (double y : {1e-4, 0.04, 0.25, 0.8, 1.5, 2.5}) {
    const double rd = std::sqrt(double(P(y)));
    const double expected = std::tan(w * rd) / (2 * std::tan(w / 2)) / rd;
    EXPECT_NEAR(double(m.undistortionFactor(P(y))), expected, 4 * this->tol() * expected) << "y=" << y;
  }
}

TYPED_TEST(CameraModelTest, UndistortionInvertsDistortion) {
  using P = TypeParam;
  // Float rounding of the factor itself is ~1e-7; the iteration stops on a
  // relative change below 1e-6.
  const double tolerance = std::is_same<P, float>::value ? 1e-5 : 2e-6;
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    // Well inside the range of every realistic model (0.8 is ~42 degrees).
    for (int i = 0; i <= 40; ++i) {
      const P x = P(0.02 * i);
      const P d = m.distortionFactor(x);
      const P u = m.undistortionFactor(d * d * x);
      EXPECT_NEAR(double(u) * double(d), 1.0, tolerance) << "x=" << x;
      if (std::is_same<P, float>::value) {
        const double ud = m.undistortionFactor(double(d) * double(d) * double(x));
        EXPECT_NEAR(ud * m.distortionFactor(double(x)), 1.0, 2e-6) << "x=" << x;
      }
    }
  }
}

TYPED_TEST(CameraModelTest, IterationNeverLeavesTheValidDistortionRange) {
  using P = TypeParam;
  auto m = makeModel<P>(RADIAL_2_PARAMETERS, {-0.28, 0.07});
  m.maxValidDistortionRSq = P(0.25);
  const P d025 = m.distortionFactor(P(0.25));
  // Far beyond the image of the limit (0.25 * d025^2 ~ 0.22).
  for (P y : {P(0.5), P(2), P(50)}) {
    EXPECT_EQ(m.undistortionFactor(y), P(1) / d025) << "y=" << y;
  }
  if (std::is_same<P, float>::value) {
    EXPECT_EQ(m.undistortionFactor(2.0), 1.0 / m.distortionFactor(double(P(0.25))));
  }
}

TYPED_TEST(CameraModelTest, AutodiffDerivativeMatchesAnalyticSlopes) {
  using P = TypeParam;
  using AD = AR::Math::ad<double, 1>;
  const double seed = 0.37;  // derivatives scale with the seed
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    const auto m = makeModel<P>(c.model, c.k);
    std::vector<double> k(6, 0.0);
    for (size_t i = 0; i < c.k.size(); ++i) k[i] = double(P(c.k[i]));
    for (double x : {0.05, 0.4, 1.1, 2.0}) {
      double expected = 0;
      if (c.model == FISHEYE_1_PARAMETER) {
        // d/dx of atan(a r)/(w r) with r = sqrt(x), a = 2 tan(w/2).
        const double w = k[0], a = 2 * std::tan(w / 2), r = std::sqrt(x);
        const double dr = a / (1 + a * a * r * r) / (w * r) - std::atan(a * r) / (w * r * r);
        expected = dr / (2 * r);
      } else if (c.model == FISHEYE_4_PARAMETERS) {
        const double r = std::sqrt(x), t = std::atan(r);
        const double td = t + k[0] * std::pow(t, 3) + k[1] * std::pow(t, 5) + k[2] * std::pow(t, 7) + k[3] * std::pow(t, 9);
        const double dtd = (1 + 3 * k[0] * t * t + 5 * k[1] * std::pow(t, 4) + 7 * k[2] * std::pow(t, 6) +
                            9 * k[3] * std::pow(t, 8)) / (1 + r * r);
        expected = (dtd / r - td / (r * r)) / (2 * r);
      } else if (c.model != LINEAR) {
        const double n = 1 + k[0] * x + k[1] * x * x + k[2] * x * x * x;
        const double dn = k[0] + 2 * k[1] * x + 3 * k[2] * x * x;
        const double dd = 1 + k[3] * x + k[4] * x * x + k[5] * x * x * x;
        const double ddd = k[3] + 2 * k[4] * x + 3 * k[5] * x * x;
        expected = (dn * dd - n * ddd) / (dd * dd);
      }
      const AD d = m.distortionFactor(AD(x, seed));
      EXPECT_NEAR(d.derivative(), seed * expected, 1e-12) << "x=" << x;
    }
  }
}

}  // namespace
