#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "CameraModel/CameraModel.h"
#include "TestModels.h"

namespace {

using CamModelTest::makeModel;

template <typename PREC>
class DistortionRangeTest : public ::testing::Test {
 protected:
  static constexpr bool kFloat = std::is_same<PREC, float>::value;
  using Model = CamModel::CameraModel<PREC>;

  /// Standard output of `(m.*member)()`.
  static std::string run(Model& m, void (Model::*member)() = &Model::setupValidDistortionRange) {
    testing::internal::CaptureStdout();
    (m.*member)();
    return testing::internal::GetCapturedStdout();
  }
  static std::string rootSearch(Model& m) { return run(m, &Model::findMaxDistortionLimits_6paramRadial); }

  /// The two validity lines for fx = 280.
  static std::string validity(const char* model, const char* distortion, const char* pixels) {
    return std::string("Model ") + model + ". Distortion is valid up-to a radius of " + distortion +
           " in the ideal focal plane\nModel " + model + ". Undistortion is valid up-to a radius of " + pixels +
           " pixels from the principal point\n";
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(DistortionRangeTest, Precisions);

TYPED_TEST(DistortionRangeTest, UnboundedModelsKeep81) {
  auto linear = makeModel<TypeParam>(LINEAR, {});
  EXPECT_EQ(this->run(linear), "");  // nothing is printed for LINEAR
  // Omega <= 0.01 leaves the limits alone but still prints them; a radial
  // model without coefficients scans to r = 9 without failure.
  auto tinyOmega = makeModel<TypeParam>(FISHEYE_1_PARAMETER, {0.005});
  EXPECT_EQ(this->run(tinyOmega), this->validity("FISHEYE_1_PARAMETER", "9.0", "2520.0"));
  auto radial = makeModel<TypeParam>(RADIAL_2_PARAMETERS, {});
  EXPECT_EQ(this->run(radial), this->validity("RADIAL_2_PARAMETERS", "9.0", "2520.0"));
  for (const auto* m : {&linear, &tinyOmega, &radial}) {
    EXPECT_EQ(m->maxValidDistortionRSq, TypeParam(81));
    EXPECT_EQ(m->maxValidUndistortionRSq, TypeParam(81));
  }
}

TYPED_TEST(DistortionRangeTest, FieldOfViewLimitsFollowTheAsymptote) {
  // Omega = 1: (pi/2)^2 - 0.1; its ideal preimage, (tan(1.5386)/(2 tan(0.5)))^2
  // is about 809 and is capped at 81.
  auto m = makeModel<TypeParam>(FISHEYE_1_PARAMETER, {1.0});
  EXPECT_EQ(this->run(m), this->validity("FISHEYE_1_PARAMETER", "9.0", "430.8"));
  EXPECT_NEAR(double(m.maxValidUndistortionRSq), 2.3674011, this->kFloat ? 1e-6 : 1e-7);
  EXPECT_EQ(m.maxValidDistortionRSq, TypeParam(81));

  // Omega = 1.5: the preimage lies below 81 and is kept.
  m = makeModel<TypeParam>(FISHEYE_1_PARAMETER, {1.5});
  this->run(m);
  const double w = double(TypeParam(1.5));
  const double maxU = std::pow(M_PI / (2 * w), 2) - 0.1;
  const double ru = std::tan(w * std::sqrt(maxU)) / (2 * std::tan(w / 2));
  ASSERT_LT(ru * ru, 81.0);
  EXPECT_NEAR(double(m.maxValidUndistortionRSq), maxU, 1e-6);
  EXPECT_NEAR(double(m.maxValidDistortionRSq), ru * ru, this->kFloat ? 5e-4 : 1e-7);
}

TYPED_TEST(DistortionRangeTest, BarrelModelStopsBeforeTheRadiusMapTurnsOver) {
  // r (1 - 0.7 r^2) peaks at r = 0.690: the step from 0.68 to 0.70 is the
  // first one that is (almost) flat.
  auto m = makeModel<TypeParam>(RADIAL_2_PARAMETERS, {-0.7});
  this->run(m);
  EXPECT_NEAR(double(m.maxValidDistortionRSq), 0.68 * 0.68, 1e-5);
  // Undistortion cannot reach beyond the peak of the radius map.
  const double peak = 0.690 * (1 - 0.7 * 0.690 * 0.690);
  EXPECT_GT(double(m.maxValidUndistortionRSq), 0.0);
  EXPECT_LE(double(m.maxValidUndistortionRSq), peak * peak);
}

TYPED_TEST(DistortionRangeTest, DenominatorRootBoundsTheRationalModel) {
  using P = TypeParam;
  // 1 + 0.1 x - 0.5 x^3 falls to 0.1 at x = 1.2712097; only the third
  // candidate of the cubic formula is real and positive.
  auto m = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, -0.5});
  const std::string out = this->rootSearch(m);
  const double root = double(m.maxValidDistortionRSq) + 0.1;
  // The float cubic formula loses digits to cancellation in D1 - S.
  EXPECT_NEAR(root, 1.2712097, this->kFloat ? 2e-4 : 1e-6);
  if (this->kFloat)
    EXPECT_EQ(out.rfind("Radial polynomial model: root of denominator at 1.27", 0), 0u) << out;
  else
    EXPECT_EQ(out, "Radial polynomial model: root of denominator at 1.271210\n");
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);

  // Through the entry point the root line comes first and the scan may only
  // lower the bound.
  auto full = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, -0.5});
  const std::string fullOut = this->run(full);
  EXPECT_EQ(fullOut.substr(0, out.size()), out);
  EXPECT_EQ(fullOut.find("Model RADIAL_6_PARAMETERS. Distortion is valid up-to a radius of "), out.size());
  EXPECT_LE(full.maxValidDistortionRSq, m.maxValidDistortionRSq);

  // A smaller limit is kept; the root is reported all the same.
  m.maxValidDistortionRSq = P(0.5);
  EXPECT_EQ(this->rootSearch(m), out);
  EXPECT_EQ(m.maxValidDistortionRSq, P(0.5));
}

TYPED_TEST(DistortionRangeTest, WithoutACubicRootTheScanCatchesThePole) {
  using P = TypeParam;
  // k5 = 0: no cubic, no bound.
  auto noCubic = makeModel<P>(RADIAL_6_PARAMETERS, {0.2, 0, 0, 0.3, 0.1, 0});
  EXPECT_EQ(this->rootSearch(noCubic), "");
  EXPECT_EQ(noCubic.maxValidDistortionRSq, P(81));
  // 1 - x^3: D0 = 0 makes D1 - S exactly 0, so the formula yields no root and
  // the slope test must stop the scan before the pole at x = 1.
  auto m = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0, 0, -1});
  EXPECT_EQ(this->rootSearch(m), "");
  EXPECT_EQ(m.maxValidDistortionRSq, P(81));
  this->run(m);
  EXPECT_LT(double(m.maxValidDistortionRSq), 1.0);
  EXPECT_GT(double(m.maxValidDistortionRSq), 0.5);
  // The slope of r / (1 - r^6) stays within 20 (plus one step) up to the limit.
  const double r6 = std::pow(double(m.maxValidDistortionRSq), 3);
  EXPECT_LE((1 + 5 * r6) / std::pow(1 - r6, 2), 25.0);
}

TYPED_TEST(DistortionRangeTest, LimitsAreConsistentAndNeverAbove81) {
  using P = TypeParam;
  auto models = CamModelTest::realisticModels();
  const CamModelTest::ModelCase hostile[] = {
      {RADIAL_2_PARAMETERS, {0.8, 0.3}},  // strong pincushion
      {RADIAL_3_PARAMETERS, {-0.05, 0.001, 0.0001}},
      {RADIAL_6_PARAMETERS, {1.2, 0.3, 0.01, 0.9, -0.2, 0.02}},
      {RADIAL_6_PARAMETERS, {-0.4, 0.1, 0, 0.2, 0.3, 0.4}},  // denominator without a positive root
      {FISHEYE_1_PARAMETER, {3.1}},
      {FISHEYE_1_PARAMETER, {0.011}},
      {FISHEYE_4_PARAMETERS, {0.3, -0.2, 0.05, -0.01}},
  };
  models.insert(models.end(), std::begin(hostile), std::end(hostile));
  for (const auto& c : models) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    auto m = makeModel<P>(c.model, c.k);
    // Whatever came in is capped (LINEAR alone is left untouched).
    if (c.model != LINEAR) m.maxValidUndistortionRSq = std::numeric_limits<P>::quiet_NaN();
    this->run(m);
    const double maxD = double(m.maxValidDistortionRSq), maxU = double(m.maxValidUndistortionRSq);
    EXPECT_GT(maxD, 0.0);
    EXPECT_LE(maxD, 81.0);
    EXPECT_GE(maxU, 0.0);
    EXPECT_LE(maxU, 81.0);
    if (c.model == LINEAR) continue;
    // Inside the distortion range the radius map keeps rising ...
    double rdPrev = 0;
    for (double r = 0.02; r * r < maxD; r += 0.02) {
      const double rd = r * double(m.distortionFactor(P(r * r)));
      ASSERT_GT(rd, rdPrev) << "r=" << r;
      rdPrev = rd;
    }
    // ... and inside the undistortion range the iterative inverse holds.
    for (int i = 1; i <= 50; ++i) {
      const double rd = std::sqrt(maxU) * i / 51.0;
      const double r = rd * double(m.undistortionFactor(P(rd * rd)));
      ASSERT_NEAR(r * double(m.distortionFactor(P(r * r))), rd, this->kFloat ? 3e-4 : 1e-4) << "rd=" << rd;
    }
  }
}

TEST(DistortionRangeDeathTest, NaNDenominatorRootAborts) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto m = makeModel<double>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, 0});
  m.radialDistortionCoeffs(5) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_DEATH(m.findMaxDistortionLimits_6paramRadial(), "!std::isnan\\(root.real\\(\\)\\)");
}

}  // namespace
