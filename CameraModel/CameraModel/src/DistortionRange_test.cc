#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "CameraModel/CameraModel.h"
#include "TestModels.h"

namespace {

using CamModelTest::makeModel;
using CamModelTest::realisticModels;

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

template <typename PREC>
class DistortionRangeTest : public ::testing::Test {
 protected:
  static constexpr bool kFloat = std::is_same<PREC, float>::value;

  static std::string setup(CamModel::CameraModel<PREC>& m) {
    testing::internal::CaptureStdout();
    m.setupValidDistortionRange();
    return testing::internal::GetCapturedStdout();
  }
  static std::string rootSearch(CamModel::CameraModel<PREC>& m) {
    testing::internal::CaptureStdout();
    m.findMaxDistortionLimits_6paramRadial();
    return testing::internal::GetCapturedStdout();
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(DistortionRangeTest, Precisions);

TYPED_TEST(DistortionRangeTest, LinearKeepsBothLimitsAndPrintsNothing) {
  auto m = makeModel<TypeParam>(LINEAR, {});
  EXPECT_EQ(this->setup(m), "");
  EXPECT_EQ(m.maxValidDistortionRSq, TypeParam(81));
  EXPECT_EQ(m.maxValidUndistortionRSq, TypeParam(81));
}

TYPED_TEST(DistortionRangeTest, FieldOfViewOmegaOne) {
  auto m = makeModel<TypeParam>(FISHEYE_1_PARAMETER, {1.0});
  const std::string out = this->setup(m);
  // (pi/2)^2 - 0.1; its ideal preimage, tan(1.5386)/(2 tan(0.5)) squared, is
  // about 809 and is capped at 81.
  EXPECT_NEAR(double(m.maxValidUndistortionRSq), 2.3674011, this->kFloat ? 1e-6 : 1e-7);
  EXPECT_EQ(m.maxValidDistortionRSq, TypeParam(81));
  EXPECT_EQ(out,
            "Model FISHEYE_1_PARAMETER. Distortion is valid up-to a radius of 9.0 in the ideal focal plane\n"
            "Model FISHEYE_1_PARAMETER. Undistortion is valid up-to a radius of 430.8 pixels from the principal "
            "point\n");
}

TYPED_TEST(DistortionRangeTest, FieldOfViewDistortionLimitIsThePreimageOfTheUndistortionLimit) {
  const double omega = 1.5;
  auto m = makeModel<TypeParam>(FISHEYE_1_PARAMETER, {omega});
  this->setup(m);
  const double w = double(TypeParam(omega));
  const double maxU = std::pow(M_PI / (2 * w), 2) - 0.1;
  const double rd = std::sqrt(maxU);
  const double idealRadius = std::tan(w * rd) / (2 * std::tan(w / 2));
  EXPECT_NEAR(double(m.maxValidUndistortionRSq), maxU, 1e-6);
  ASSERT_LT(idealRadius * idealRadius, 81.0);
  EXPECT_NEAR(double(m.maxValidDistortionRSq), idealRadius * idealRadius, (this->kFloat ? 1e-5 : 1e-9) * 52);
}

TYPED_TEST(DistortionRangeTest, TinyOmegaLeavesTheLimitsButStillPrints) {
  auto m = makeModel<TypeParam>(FISHEYE_1_PARAMETER, {0.005});
  EXPECT_EQ(this->setup(m),
            "Model FISHEYE_1_PARAMETER. Distortion is valid up-to a radius of 9.0 in the ideal focal plane\n"
            "Model FISHEYE_1_PARAMETER. Undistortion is valid up-to a radius of 2520.0 pixels from the principal "
            "point\n");
  EXPECT_EQ(m.maxValidDistortionRSq, TypeParam(81));
  EXPECT_EQ(m.maxValidUndistortionRSq, TypeParam(81));
}

TYPED_TEST(DistortionRangeTest, DistortionFreeRadialModelScansToTheEnd) {
  auto m = makeModel<TypeParam>(RADIAL_2_PARAMETERS, {});
  EXPECT_EQ(this->setup(m),
            "Model RADIAL_2_PARAMETERS. Distortion is valid up-to a radius of 9.0 in the ideal focal plane\n"
            "Model RADIAL_2_PARAMETERS. Undistortion is valid up-to a radius of 2520.0 pixels from the principal "
            "point\n");
  EXPECT_EQ(m.maxValidDistortionRSq, TypeParam(81));
  EXPECT_EQ(m.maxValidUndistortionRSq, TypeParam(81));
}

TYPED_TEST(DistortionRangeTest, BarrelModelStopsBeforeTheRadiusMapTurnsOver) {
  // r (1 - 0.7 r^2) peaks at r = 0.690: the step from 0.68 to 0.70 is the
  // first one that is (almost) flat.
  auto m = makeModel<TypeParam>(RADIAL_2_PARAMETERS, {-0.7});
  this->setup(m);
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
  EXPECT_NEAR(1 + 0.1 * root - 0.5 * root * root * root, 0.1, this->kFloat ? 1e-3 : 1e-6);
  ASSERT_EQ(lines(out).size(), 1u) << out;
  if (this->kFloat) {
    EXPECT_EQ(out.rfind("Radial polynomial model: root of denominator at 1.27", 0), 0u) << out;
  } else {
    EXPECT_EQ(out, "Radial polynomial model: root of denominator at 1.271210\n");
  }

  // Through the entry point: the bound comes first, the scan may only lower it.
  auto full = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, -0.5});
  const auto outLines = lines(this->setup(full));
  ASSERT_EQ(outLines.size(), 3u);
  EXPECT_EQ(outLines[0] + "\n", out);
  EXPECT_EQ(outLines[1].rfind("Model RADIAL_6_PARAMETERS. Distortion is valid up-to a radius of ", 0), 0u);
  EXPECT_LE(full.maxValidDistortionRSq, m.maxValidDistortionRSq);
}

TYPED_TEST(DistortionRangeTest, RootSearchKeepsASmallerLimit) {
  using P = TypeParam;
  auto m = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, -0.5});
  m.maxValidDistortionRSq = P(0.5);
  const std::string out = this->rootSearch(m);
  EXPECT_EQ(m.maxValidDistortionRSq, P(0.5));
  EXPECT_EQ(lines(out).size(), 1u);  // the root is reported all the same
}

TYPED_TEST(DistortionRangeTest, VanishingD0LeavesThePoleToTheScan) {
  using P = TypeParam;
  // 1 - x^3: D0 = 0 makes D1 - S exactly 0, so the cubic formula yields no
  // root and the slope test must stop the scan before the pole at x = 1.
  auto m = makeModel<P>(RADIAL_6_PARAMETERS, {0, 0, 0, 0, 0, -1});
  EXPECT_EQ(this->rootSearch(m), "");
  EXPECT_EQ(m.maxValidDistortionRSq, P(81));

  const auto outLines = lines(this->setup(m));
  ASSERT_EQ(outLines.size(), 2u);
  EXPECT_LT(double(m.maxValidDistortionRSq), 1.0);
  EXPECT_GT(double(m.maxValidDistortionRSq), 0.5);
  // The slope of r / (1 - r^6) stays within 20 up to the limit.
  const double r = std::sqrt(double(m.maxValidDistortionRSq));
  EXPECT_LE((1 + 5 * std::pow(r, 6)) / std::pow(1 - std::pow(r, 6), 2), 25.0);
}

TYPED_TEST(DistortionRangeTest, NoDenominatorCubicNoBound) {
  using P = TypeParam;
  auto m = makeModel<P>(RADIAL_6_PARAMETERS, {0.2, 0, 0, 0.3, 0.1, 0});
  EXPECT_EQ(this->rootSearch(m), "");
  EXPECT_EQ(m.maxValidDistortionRSq, P(81));
}

TYPED_TEST(DistortionRangeTest, RealisticModelsHaveConsistentLimits) {
  using P = TypeParam;
  for (const auto& c : realisticModels()) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    auto m = makeModel<P>(c.model, c.k);
    const auto outLines = lines(this->setup(m));
    const double maxD = double(m.maxValidDistortionRSq);
    const double maxU = double(m.maxValidUndistortionRSq);
    EXPECT_GT(maxD, 0.25);
    EXPECT_GT(maxU, 0.25);
    EXPECT_LE(maxD, 81.0);
    EXPECT_LE(maxU, 81.0);
    if (c.model == LINEAR) {
      EXPECT_TRUE(outLines.empty());
      continue;
    }
    // The two printed radii agree with the limits (one in ideal units, one in
    // pixels with fx = 280).
    ASSERT_GE(outLines.size(), 2u);
    const std::string name = CamModel::modelName(c.model);
    double printedD = -1, printedU = -1;
    const std::string fmtD = "Model " + name + ". Distortion is valid up-to a radius of %lf in the ideal focal plane";
    const std::string fmtU =
        "Model " + name + ". Undistortion is valid up-to a radius of %lf pixels from the principal point";
    ASSERT_EQ(std::sscanf(outLines[outLines.size() - 2].c_str(), fmtD.c_str(), &printedD), 1);
    ASSERT_EQ(std::sscanf(outLines[outLines.size() - 1].c_str(), fmtU.c_str(), &printedU), 1);
    EXPECT_NEAR(printedD, std::sqrt(maxD), 0.05 + 1e-9);
    EXPECT_NEAR(printedU, std::sqrt(maxU) * 280, 0.05 + 1e-9);

    // Inside the distortion range the radius map keeps rising.
    double rdPrev = 0;
    for (double r = 0.02; r * r < maxD; r += 0.02) {
      const double rd = r * double(m.distortionFactor(P(r * r)));
      EXPECT_GT(rd, rdPrev) << "r=" << r;
      rdPrev = rd;
    }
    // Inside the undistortion range the iterative inverse reproduces the
    // distorted radius.
    for (int i = 1; i <= 50; ++i) {
      const double rd = std::sqrt(maxU) * i / 51.0;
      const double r = rd * double(m.undistortionFactor(P(rd * rd)));
      const double rdBack = r * double(m.distortionFactor(P(r * r)));
      EXPECT_NEAR(rdBack, rd, this->kFloat ? 3e-4 : 1e-4) << "rd=" << rd;
    }
  }
}

TYPED_TEST(DistortionRangeTest, LimitsNeverExceed81) {
  using P = TypeParam;
  const CamModelTest::ModelCase hostile[] = {
      {RADIAL_2_PARAMETERS, {0.8, 0.3}},                      // strong pincushion
      {RADIAL_3_PARAMETERS, {-0.05, 0.001, 0.0001}},          // nearly linear
      {RADIAL_6_PARAMETERS, {1.2, 0.3, 0.01, 0.9, -0.2, 0.02}},
      {RADIAL_6_PARAMETERS, {-0.4, 0.1, 0, 0.2, 0.3, 0.4}},   // denominator with no positive root
      {FISHEYE_1_PARAMETER, {3.1}},
      {FISHEYE_1_PARAMETER, {0.011}},
      {FISHEYE_4_PARAMETERS, {0.3, -0.2, 0.05, -0.01}},
      {FISHEYE_4_PARAMETERS, {}},
  };
  for (const auto& c : hostile) {
    SCOPED_TRACE(CamModel::modelName(c.model));
    auto m = makeModel<P>(c.model, c.k);
    // Whatever came in (here a limit above 81 or NaN) is capped.
    m.maxValidUndistortionRSq = std::numeric_limits<P>::quiet_NaN();
    this->setup(m);
    EXPECT_LE(m.maxValidDistortionRSq, P(81));
    EXPECT_LE(m.maxValidUndistortionRSq, P(81));
    EXPECT_GE(m.maxValidDistortionRSq, P(0));
  }
}

TEST(DistortionRangeDeathTest, NaNDenominatorRootAborts) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  auto m = makeModel<double>(RADIAL_6_PARAMETERS, {0, 0, 0, 0.1, 0, 0});
  m.radialDistortionCoeffs(5) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_DEATH(m.findMaxDistortionLimits_6paramRadial(), "!std::isnan\\(root.real\\(\\)\\)");
}

}  // namespace
