#include "AR/CV/Camera/Camera.h"

#include <gtest/gtest.h>
#include <tinyxml2.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using AR::CV::Camera;

/// A realistic lens for each model (plus tangential variants), in double;
/// each test converts it to the precision under test.
struct Lens {
  const char* label;
  DistortionModel model;
  double k[6];
  double p[2];
  double f[2];
};

// Barrel and pincushion rational lenses as calibrated on 640x480 tracking
// cameras, a field-of-view fisheye and an equidistant fisheye.
const Lens kLenses[] = {
    {"LINEAR", LINEAR, {0, 0, 0, 0, 0, 0}, {0, 0}, {450, 452}},
    {"RADIAL_2", RADIAL_2_PARAMETERS, {-0.28, 0.07, 0, 0, 0, 0}, {0, 0}, {450, 451}},
    {"RADIAL_3", RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015, 0, 0, 0}, {0, 0}, {455, 455}},
    {"RADIAL_6", RADIAL_6_PARAMETERS, {0.6, 0.1, 0.002, 0.9, 0.25, 0.01}, {0, 0}, {450, 449}},
    {"FISHEYE_1", FISHEYE_1_PARAMETER, {0.92, 0, 0, 0, 0, 0}, {0, 0}, {280, 281}},
    {"FISHEYE_4", FISHEYE_4_PARAMETERS, {-0.01, 0.005, -0.002, 0.0003, 0, 0}, {0, 0}, {280, 280}},
    {"RADIAL_3+tangential", RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015, 0, 0, 0}, {1e-3, -5e-4},
     {455, 455}},
    {"RADIAL_6+tangential", RADIAL_6_PARAMETERS, {0.6, 0.1, 0.002, 0.9, 0.25, 0.01}, {-8e-4, 6e-4},
     {450, 449}},
};

constexpr double kWidth = 640, kHeight = 480, kCx = 320.5, kCy = 240.5;

/// Distortion factor of the lens in closed form, written out here from the
/// model definitions and independent of the library.
double closedFormDistortion(const Lens& lens, double r2) {
  const double* k = lens.k;
  switch (lens.model) {
    case LINEAR:
      return 1;
    case RADIAL_2_PARAMETERS:
    case RADIAL_3_PARAMETERS:
    case RADIAL_6_PARAMETERS:
      return (1 + k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2) /
             (1 + k[3] * r2 + k[4] * r2 * r2 + k[5] * r2 * r2 * r2);
    case FISHEYE_1_PARAMETER: {
      // Field of view model: rd = atan(2 r tan(w/2)) / w.
      const double r = std::sqrt(r2), w = k[0];
      return r2 == 0 ? 2 * std::tan(w / 2) / w : std::atan(2 * r * std::tan(w / 2)) / w / r;
    }
    case FISHEYE_4_PARAMETERS: {
      // Equidistant model: rd = theta + k0 theta^3 + k1 theta^5 + k2 theta^7 + k3 theta^9.
      const double r = std::sqrt(r2);
      if (r2 == 0) return 1;
      const double t = std::atan(r), t2 = t * t;
      const double td = t + k[0] * t * t2 + k[1] * t * t2 * t2 + k[2] * t * t2 * t2 * t2 +
                        k[3] * t * t2 * t2 * t2 * t2;
      return td / r;
    }
  }
  return std::nan("");
}

/// Closed-form pixel of an ideal point, tangential terms included.
void closedFormPixel(const Lens& lens, double x0, double x1, double& u, double& v) {
  const double r2 = x0 * x0 + x1 * x1;
  const double d = closedFormDistortion(lens, r2);
  const double p1 = lens.p[0], p2 = lens.p[1];
  const double q0 = d * x0 + 2 * p1 * x0 * x1 + p2 * (r2 + 2 * x0 * x0);
  const double q1 = d * x1 + p1 * (r2 + 2 * x1 * x1) + 2 * p2 * x0 * x1;
  u = q0 * lens.f[0] + kCx;
  v = q1 * lens.f[1] + kCy;
}

template <typename PREC>
class CameraTest : public ::testing::Test {
 protected:
  using Cam = Camera<PREC>;
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  using Vec6 = AR::Math::Vector<PREC, 6>;
  using Mat2 = AR::Math::Matrix<PREC, 2, 2>;
  using Model = CamModel::CameraModel<PREC>;

  static constexpr bool isFloat = std::is_same<PREC, float>::value;
  static const char* precName() { return isFloat ? "float" : "double"; }

  /// Initialises `cam` from the lens through the parameter-wise init; the
  /// validity lines it prints are swallowed here.
  static bool make(const Lens& lens, Cam& cam) {
    Vec6 k;
    for (int i = 0; i < 6; ++i) k(i) = PREC(lens.k[i]);
    ::testing::internal::CaptureStdout();
    const bool ok = cam.init(Vec2(PREC(kWidth), PREC(kHeight)), Vec2(PREC(lens.f[0]), PREC(lens.f[1])),
                             Vec2(PREC(kCx), PREC(kCy)), k, Vec2(PREC(lens.p[0]), PREC(lens.p[1])),
                             lens.model);
    std::fflush(stdout);
    ::testing::internal::GetCapturedStdout();
    return ok;
  }

  static Model rawModel(const Lens& lens) {
    Model m;
    m.size = Vec2(PREC(kWidth), PREC(kHeight));
    m.principalPoint = Vec2(PREC(kCx), PREC(kCy));
    m.focalLength = Vec2(PREC(lens.f[0]), PREC(lens.f[1]));
    for (int i = 0; i < 6; ++i) m.radialDistortionCoeffs(i) = PREC(lens.k[i]);
    m.tangentialDistortionCoeffs = Vec2(PREC(lens.p[0]), PREC(lens.p[1]));
    m.model = lens.model;
    m.maxValidDistortionRSq = PREC(81);
    m.maxValidUndistortionRSq = PREC(81);
    return m;
  }

  /// Largest error of each spline at its bin midpoints, as the fit reported it.
  static void splineErrors(const Cam& cam, double& errD, double& errU) {
    errD = double(cam.getDistortionSpline().testAccuracy(
        AR::CV::DistortFn<Model>(cam.getCamModel())));
    errU = double(cam.getUndistortionSpline().testAccuracy(
        AR::CV::UndistortFn<Model>(cam.getCamModel())));
  }

  /// Rounding allowance in pixels for conversions computed in PREC.
  static double pixelRounding() { return isFloat ? 2e-3 : 1e-8; }
};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CameraTest, Precisions);

TYPED_TEST(CameraTest, EveryLensInitialisesWithinItsThreshold) {
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    EXPECT_TRUE(cam.isInitialized());
    double errD, errU;
    TestFixture::splineErrors(cam, errD, errU);
    const double threshold = lens.model == RADIAL_6_PARAMETERS ? 0.01 : 0.002;
    EXPECT_LE(errD, threshold);
    EXPECT_LE(errU, threshold);
    EXPECT_LE(cam.getCamModel().maxValidDistortionRSq, 81);
    EXPECT_LE(cam.getCamModel().maxValidUndistortionRSq, 81);
    EXPECT_EQ(cam.getRadialDistortionModel(), lens.model);
  }
}

// The central property: over the whole valid image, undistorting a pixel and
// distorting it back lands on the same pixel, within what the two spline
// errors allow.
TYPED_TEST(CameraTest, PixelToIdealAndBackRoundTripsOverTheValidImage) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    double errD, errU;
    TestFixture::splineErrors(cam, errD, errU);
    const double limitU = double(cam.getUndistortionSpline().getRange()(1));
    const double limitD = double(cam.getDistortionSpline().getRange()(1));
    const double f = std::max(lens.f[0], lens.f[1]);
    int tested = 0;
    double worst = 0;
    for (int py = 0; py < int(kHeight); py += 2) {
      for (int px = 0; px < int(kWidth); px += 2) {
        const Vec2 pixel{PREC(px), PREC(py)};
        const Vec2 q = cam.pixelToDistorted(pixel);
        const double q2 = double(q(0)) * q(0) + double(q(1)) * q(1);
        Vec2 ideal;
        const bool inverted = cam.tryPixel2ideal(pixel, ideal);
        // Well inside the valid circle every pixel must convert.
        if (q2 < limitU * 0.98) {
          ASSERT_TRUE(inverted) << px << "," << py;
        }
        if (!inverted) continue;
        const double x2 = double(ideal(0)) * ideal(0) + double(ideal(1)) * ideal(1);
        Vec2 back;
        const bool distorted = cam.tryIdeal2pixel(ideal, back);
        if (x2 < limitD * 0.98) {
          ASSERT_TRUE(distorted) << px << "," << py;
        }
        if (!distorted) continue;
        ++tested;
        // Undistortion error moves the ideal point by errU*|q|; the radius
        // map magnifies that by its slope (at most about 2 for these
        // lenses); distortion adds errD*|x|. Doubled for errors between the
        // midpoints where the fit measured them.
        const double tol =
            2 * f * (2 * errU * std::sqrt(q2) + errD * std::sqrt(x2)) + TestFixture::pixelRounding();
        const double err = std::hypot(double(back(0)) - px, double(back(1)) - py);
        worst = std::max(worst, err / tol);
        ASSERT_LE(err, tol) << px << "," << py;
      }
    }
    EXPECT_GT(tested, 10000);
    ::testing::Test::RecordProperty(std::string(lens.label) + "_" + TestFixture::precName(), std::to_string(worst));
  }
}

TYPED_TEST(CameraTest, ProjectionMatchesTheClosedFormModel) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    double errD, errU;
    TestFixture::splineErrors(cam, errD, errU);
    const double rMax = std::sqrt(double(cam.getDistortionSpline().getRange()(1))) * 0.999;
    // Model arithmetic in float differs from the double closed form by a
    // few ulps of the factor.
    const double modelRounding = TestFixture::isFloat ? 2e-6 : 1e-13;
    for (int i = 0; i <= 40; ++i) {
      for (int a = 0; a < 8; ++a) {
        const double r = rMax * i / 40, angle = 0.3 + a * 0.785;
        const double x0 = r * std::cos(angle), x1 = r * std::sin(angle);
        Vec2 pixel;
        ASSERT_TRUE(cam.tryIdeal2pixel(Vec2(PREC(x0), PREC(x1)), pixel)) << r;
        double u, v;
        closedFormPixel(lens, x0, x1, u, v);
        const double tol = lens.f[0] * r * (2 * errD + modelRounding) + TestFixture::pixelRounding() +
                           (TestFixture::isFloat ? lens.f[0] * r * 1e-6 : 0);
        EXPECT_NEAR(double(pixel(0)), u, tol) << r;
        EXPECT_NEAR(double(pixel(1)), v, tol) << r;
      }
    }
  }
}

TYPED_TEST(CameraTest, UndistortionSatisfiesTheClosedFormModel) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    double errD, errU;
    TestFixture::splineErrors(cam, errD, errU);
    const double rdMax = std::sqrt(double(cam.getUndistortionSpline().getRange()(1))) * 0.995;
    for (int i = 1; i <= 40; ++i) {
      const double rd = rdMax * i / 40;
      const double angle = 0.1 * i;
      const double q0 = rd * std::cos(angle), q1 = rd * std::sin(angle);
      const Vec2 pixel(PREC(q0 * lens.f[0] + kCx), PREC(q1 * lens.f[1] + kCy));
      Vec2 ideal;
      ASSERT_TRUE(cam.tryPixel2ideal(pixel, ideal)) << rd;
      // The closed-form forward model must carry the ideal point back.
      double u, v;
      closedFormPixel(lens, double(ideal(0)), double(ideal(1)), u, v);
      const double tol = 2 * std::max(lens.f[0], lens.f[1]) * (2 * errU * rd + 1e-6) +
                         TestFixture::pixelRounding() * 4;
      EXPECT_NEAR(u, double(pixel(0)), tol) << rd;
      EXPECT_NEAR(v, double(pixel(1)), tol) << rd;
      if (lens.model == FISHEYE_1_PARAMETER) {
        // Field of view model inverse: ru = tan(w rd) / (2 tan(w/2)).
        const double w = lens.k[0];
        const double rq = std::hypot(double(pixel(0)) - kCx, (double(pixel(1)) - kCy) * lens.f[0] /
                                                                  lens.f[1]) / lens.f[0];
        const double ru = std::tan(w * rq) / (2 * std::tan(w / 2));
        EXPECT_NEAR(std::hypot(double(ideal(0)), double(ideal(1))), ru,
                    4 * errU * rq + (TestFixture::isFloat ? 1e-5 : 1e-9));
      }
    }
  }
}

TYPED_TEST(CameraTest, FisheyeRayAnglesMapToTheirImageRadius) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Vec3 = typename TestFixture::Vec3;
  for (const Lens& lens : {kLenses[4], kLenses[5]}) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    for (double theta = 0.05; theta < 1.4; theta += 0.05) {
      Vec2 pixel;
      ASSERT_TRUE(cam.tryProjectToPix(Vec3(PREC(std::sin(theta)), PREC(0), PREC(std::cos(theta))), pixel));
      double rd;
      if (lens.model == FISHEYE_4_PARAMETERS) {
        const double t2 = theta * theta;
        rd = theta * (1 + lens.k[0] * t2 + lens.k[1] * t2 * t2 + lens.k[2] * t2 * t2 * t2 +
                      lens.k[3] * t2 * t2 * t2 * t2);
      } else {
        const double w = lens.k[0];
        rd = std::atan(2 * std::tan(theta) * std::tan(w / 2)) / w;
      }
      EXPECT_NEAR(double(pixel(0)), kCx + lens.f[0] * rd, TestFixture::isFloat ? 5e-3 : 1e-3) << theta;
      EXPECT_NEAR(double(pixel(1)), kCy, 1e-3);
    }
  }
}

TYPED_TEST(CameraTest, SplinesAreContinuousInValueAndSlopeAtBinEdges) {
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    for (const auto* spline : {&cam.getDistortionSpline(), &cam.getUndistortionSpline()}) {
      const auto& segs = spline->getSegments();
      double maxCoef = 0;
      for (const auto& s : segs) maxCoef = std::max(maxCoef, std::fabs(double(s.coef(1))));
      const double eps = TestFixture::isFloat ? 1e-6 : 1e-14;
      for (size_t i = 0; i + 1 < segs.size(); ++i) {
        const auto& a = segs[i];
        const auto& b = segs[i + 1];
        const double t = double(b.t0) - double(a.t0);
        const double value = a.coef(0) + t * (a.coef(1) + t * (a.coef(2) + t * a.coef(3)));
        const double slope = a.coef(1) + t * (2 * a.coef(2) + 3 * t * a.coef(3));
        ASSERT_NEAR(value, double(b.coef(0)), 8 * eps * std::fabs(double(b.coef(0))) + 1e-12) << i;
        ASSERT_NEAR(slope, double(b.coef(1)), 64 * eps * (maxCoef + 1)) << i;
      }
    }
  }
}

TYPED_TEST(CameraTest, PointsBehindOrNearerThanOneCentimetreDoNotProject) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Vec3 = typename TestFixture::Vec3;
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    Vec2 pixel(PREC(-5), PREC(-5));
    EXPECT_FALSE(cam.tryProjectToPix(Vec3(PREC(0), PREC(0), PREC(0.009)), pixel));
    EXPECT_FALSE(cam.tryProjectToPix(Vec3(PREC(0), PREC(0), PREC(0)), pixel));
    EXPECT_FALSE(cam.tryProjectToPix(Vec3(PREC(0.1), PREC(0), PREC(-1)), pixel));
    EXPECT_FALSE(cam.tryProjectToPix(Vec3(PREC(0), PREC(0), std::numeric_limits<PREC>::quiet_NaN()), pixel));
    // The bound is the single-precision 0.01 in both precisions.
    EXPECT_FALSE(cam.tryProjectToPix(
        Vec3(PREC(0), PREC(0), std::nextafter(PREC(0.01f), PREC(0))), pixel));
    ASSERT_TRUE(cam.tryProjectToPix(Vec3(PREC(0), PREC(0), PREC(0.01f)), pixel));
    EXPECT_NEAR(double(pixel(0)), kCx, 1e-4);
    EXPECT_NEAR(double(pixel(1)), kCy, 1e-4);
    ASSERT_TRUE(cam.tryProjectToPix(Vec3(PREC(0.001), PREC(-0.002), PREC(0.01f)), pixel));
  }
}

TYPED_TEST(CameraTest, UnprojectionLandsOnTheRayAtTheGivenDepth) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Vec3 = typename TestFixture::Vec3;
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    const Vec2 pixel(PREC(400.25), PREC(100.75));
    Vec3 point;
    ASSERT_TRUE(cam.tryUnprojectFromPix(pixel, point, PREC(2.5)));
    EXPECT_EQ(point(2), PREC(2.5));
    Vec2 ideal;
    ASSERT_TRUE(cam.tryPixel2ideal(pixel, ideal));
    EXPECT_EQ(point(0), ideal(0) * PREC(2.5));
    EXPECT_EQ(point(1), ideal(1) * PREC(2.5));
    Vec2 back;
    ASSERT_TRUE(cam.tryProjectToPix(point, back));
    EXPECT_NEAR(double(back(0)), 400.25, 0.05);
    EXPECT_NEAR(double(back(1)), 100.75, 0.05);
  }
}

TYPED_TEST(CameraTest, NonPositiveDepthIsReportedAndUsed) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[1], cam));
  AR::Test::LogCapture capture;
  typename TestFixture::Vec3 point;
  ASSERT_TRUE(cam.tryUnprojectFromPix(typename TestFixture::Vec2(PREC(100), PREC(100)), point, PREC(0)));
  EXPECT_EQ(point(2), PREC(0));
  ASSERT_EQ(capture.messages().size(), 1u);
  const std::string& m = capture.messages()[0];
  EXPECT_EQ(m.rfind("AR ERROR: AR_ASSERT depth>0 CV/src/Camera/Camera(", 0), 0u) << m;
  // The function text is cut to 100 characters.
  const std::string function =
      ") bool AR::CV::Camera<PREC>::tryUnprojectFromPix(const AR::Math::Vector<PREC, 2>&, "
      "AR::Math::Vector<PR\n";
  EXPECT_EQ(m.substr(m.size() - function.size()), function) << m;
}

TYPED_TEST(CameraTest, PixelToIdealIsTheSymmetricLookupWithoutTangentialTerms) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[3], cam));
  for (int i = 0; i < 50; ++i) {
    const Vec2 pixel(PREC(13 * i), PREC(9 * i));
    Vec2 a, b;
    const bool okA = cam.tryPixel2ideal(pixel, a);
    const bool okB = cam.tryUndistortSymmetric(cam.pixelToDistorted(pixel), b);
    ASSERT_EQ(okA, okB);
    if (!okA) continue;
    // One lookup: u(|q|^2) * q, bit for bit.
    PREC u;
    const Vec2 q = cam.pixelToDistorted(pixel);
    ASSERT_TRUE(cam.getUndistortionSpline().evaluate(q(0) * q(0) + q(1) * q(1), u));
    EXPECT_EQ(a(0), u * q(0));
    EXPECT_EQ(a(1), u * q(1));
    EXPECT_EQ(a, b);
  }
}

TYPED_TEST(CameraTest, TangentialInverseGivesUpAfterTenLookups) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  // Strong tangential terms make the fixed-point iteration contract slowly:
  // a point far out needs more than ten lookups and is refused, while the
  // same lens converges quickly near the centre.
  Lens strong = kLenses[0];
  strong.model = RADIAL_2_PARAMETERS;
  strong.k[0] = -0.1;
  strong.p[0] = 0.12;
  strong.p[1] = 0.1;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(strong, cam));
  Vec2 x;
  EXPECT_TRUE(cam.tryUndistortTangential(Vec2(PREC(0.02), PREC(-0.01)), x));
  EXPECT_FALSE(cam.tryUndistortTangential(Vec2(PREC(1.0), PREC(0.9)), x));

  // Where it converges, distorting the result gives back the input.
  Vec2 q;
  ASSERT_TRUE(cam.tryUndistortTangential(Vec2(PREC(0.2), PREC(-0.1)), x));
  ASSERT_TRUE(cam.tryDistort(x, q));
  EXPECT_NEAR(double(q(0)), 0.2, 1e-4);
  EXPECT_NEAR(double(q(1)), -0.1, 1e-4);
}

TYPED_TEST(CameraTest, LinearCameraIsExactAndRefusesNineFocalLengths) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[0], cam));
  double errD, errU;
  TestFixture::splineErrors(cam, errD, errU);
  EXPECT_EQ(errD, 0);
  EXPECT_EQ(errU, 0);
  EXPECT_EQ(cam.getCorrectedFocalLengthVec(), cam.getOriginalFocalLength());
  EXPECT_EQ(cam.getCorrectedFocalLength(), PREC(451));
  EXPECT_EQ(cam.getInvFocalLengthVec()(0), PREC(1) / PREC(450));
  EXPECT_EQ(cam.getInvFocalLength(), (PREC(1) / PREC(450) + PREC(1) / PREC(452)) / PREC(2));

  Vec2 ideal;
  EXPECT_FALSE(cam.tryPixel2ideal(Vec2(PREC(kCx + 9 * 450), PREC(kCy)), ideal));
  EXPECT_FALSE(cam.tryPixel2ideal(Vec2(PREC(kCx), PREC(kCy - 9 * 452)), ideal));
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2(PREC(kCx + 8.99 * 450), PREC(kCy)), ideal));
  EXPECT_NEAR(double(ideal(0)), 8.99, 1e-5);
  EXPECT_EQ(ideal(1), PREC(0));

  // The distortion range's upper end is excluded.
  Vec2 q;
  EXPECT_FALSE(cam.tryDistort(Vec2(PREC(9), PREC(0)), q));
  EXPECT_FALSE(cam.tryDistort(Vec2(PREC(0), PREC(-9)), q));
  EXPECT_TRUE(cam.tryDistort(Vec2(std::nextafter(PREC(9), PREC(0)), PREC(0)), q));
}

TYPED_TEST(CameraTest, DistortionLimitItselfIsOutsideTheRange) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[2], cam));
  const PREC top = cam.getDistortionSpline().getRange()(1);
  EXPECT_EQ(top, cam.getCamModel().maxValidDistortionRSq);
  // The smallest radius whose square reaches the limit fails, the one below works.
  PREC r = std::sqrt(top);
  while (r * r < top) r = std::nextafter(r, PREC(10));
  while (std::nextafter(r, PREC(0)) * std::nextafter(r, PREC(0)) >= top) r = std::nextafter(r, PREC(0));
  Vec2 q;
  EXPECT_FALSE(cam.tryDistort(Vec2(r, PREC(0)), q));
  EXPECT_TRUE(cam.tryDistort(Vec2(std::nextafter(r, PREC(0)), PREC(0)), q));
}

TYPED_TEST(CameraTest, FieldOfViewFisheyeCorrectsItsFocalLength) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  const Lens& lens = kLenses[4];
  ASSERT_TRUE(TestFixture::make(lens, cam));
  // Near the axis the FOV model scales radii by 2 tan(w/2) / w.
  const double w = lens.k[0];
  const double d0 = 2 * std::tan(w / 2) / w;
  const double tol = TestFixture::isFloat ? 1e-4 : 1e-6;
  EXPECT_NEAR(double(cam.getCorrectedFocalLengthVec()(0)), lens.f[0] * d0, tol * lens.f[0]);
  EXPECT_NEAR(double(cam.getCorrectedFocalLengthVec()(1)), lens.f[1] * d0, tol * lens.f[1]);
  EXPECT_NEAR(double(cam.getInvFocalLengthVec()(0)), 1 / (lens.f[0] * d0), tol / lens.f[0]);
  EXPECT_EQ(cam.getInvModelFocalLengthVec()(1), PREC(1) / PREC(lens.f[1]));
}

TYPED_TEST(CameraTest, FieldOfViewFollowsTheLensAndStopsAtTheValidCircle) {
  using PREC = TypeParam;
  const double tol = TestFixture::isFloat ? 2e-5 : 1e-9;
  {
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(kLenses[0], cam));
    // Pinhole: an extent of 2 f tan(30 deg) spans 60 degrees.
    EXPECT_NEAR(double(cam.getFOV(PREC(2 * 450 * std::tan(M_PI / 6)))), M_PI / 3, tol);
    EXPECT_NEAR(double(cam.getFOV(PREC(1e6))), 2 * std::atan(9.0), tol);
    EXPECT_EQ(cam.getFOVPixels(), PREC(451 * 9));
  }
  {
    typename TestFixture::Cam cam;
    const Lens& lens = kLenses[4];
    ASSERT_TRUE(TestFixture::make(lens, cam));
    double errD, errU;
    TestFixture::splineErrors(cam, errD, errU);
    const double w = lens.k[0];
    for (double extent : {100.0, 300.0, 600.0}) {
      const double rd = extent / 2 / lens.f[0];
      const double ru = std::tan(w * rd) / (2 * std::tan(w / 2));
      EXPECT_NEAR(double(cam.getFOV(PREC(extent))), 2 * std::atan(ru), tol + 2 * errU * rd) << extent;
    }
    const double rdMax = std::sqrt(double(cam.getCamModel().maxValidUndistortionRSq));
    const double ruMax = std::tan(w * rdMax) / (2 * std::tan(w / 2));
    EXPECT_NEAR(double(cam.getFOV(PREC(1e5))), 2 * std::atan(ruMax), 1e-3);
    EXPECT_NEAR(double(cam.getFOVPixels()), (lens.f[0] + lens.f[1]) / 2 * rdMax, 1e-3);
  }
}

TYPED_TEST(CameraTest, CovarianceOfAPinholeIsScaledByTheFocalLengths) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Mat2 = typename TestFixture::Mat2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[0], cam));
  Vec2 ideal;
  Mat2 cov;
  ASSERT_TRUE(cam.tryUndistortFeatMeasCov(Vec2(PREC(100), PREC(400)), PREC(0.25), ideal, cov));
  const double tol = TestFixture::isFloat ? 1e-4 : 1e-9;
  EXPECT_NEAR(double(cov(0, 0)) * 450 * 450, 0.25, tol);
  EXPECT_NEAR(double(cov(1, 1)) * 452 * 452, 0.25, tol);
  EXPECT_NEAR(double(cov(0, 1)) * 450 * 452, 0.0, tol);

  // A full covariance goes through J C J^T with J = diag(1/fx, 1/fy).
  ASSERT_TRUE(cam.tryUndistortFeatMeasCov(Vec2(PREC(100), PREC(400)),
                                          Mat2(PREC(2), PREC(0.5), PREC(0.5), PREC(1)), ideal, cov));
  EXPECT_NEAR(double(cov(0, 1)) * 450 * 452, 0.5, tol * 4);
  EXPECT_NEAR(double(cov(1, 0)) * 450 * 452, 0.5, tol * 4);
  EXPECT_NEAR(double(cov(0, 0)) * 450 * 450, 2.0, tol * 8);
}

TYPED_TEST(CameraTest, CovarianceFollowsTheLensJacobian) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Mat2 = typename TestFixture::Mat2;
  for (const Lens& lens : kLenses) {
    SCOPED_TRACE(lens.label);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    Vec2 ideal, shifted;
    Mat2 cov;
    const Vec2 pixel(PREC(500), PREC(380));
    ASSERT_TRUE(cam.tryUndistortFeatMeasCov(pixel, PREC(1), ideal, cov));
    // Compare with a central difference of a whole pixel: the covariance
    // is J J^T; check its trace against the squared column norms.
    double trace = 0;
    for (int c = 0; c < 2; ++c) {
      Vec2 a = pixel, b = pixel, ia, ib;
      a(c) += PREC(0.5);
      b(c) -= PREC(0.5);
      ASSERT_TRUE(cam.tryPixel2ideal(a, ia));
      ASSERT_TRUE(cam.tryPixel2ideal(b, ib));
      trace += std::pow(double(ia(0)) - ib(0), 2) + std::pow(double(ia(1)) - ib(1), 2);
    }
    EXPECT_NEAR(double(cov(0, 0) + cov(1, 1)), trace, trace * (TestFixture::isFloat ? 0.05 : 0.01));
    EXPECT_NEAR(double(cov(0, 1)), double(cov(1, 0)), 1e-3 * trace);
    ASSERT_TRUE(cam.tryPixel2ideal(pixel, shifted));
    EXPECT_EQ(ideal, shifted);
  }
}

TYPED_TEST(CameraTest, InvalidIntrinsicsAreRefusedWithTheirMessages) {
  using PREC = TypeParam;
  typename TestFixture::Model model = TestFixture::rawModel(kLenses[1]);
  model.focalLength(1) = PREC(-1);
  AR::Test::LogCapture capture;
  typename TestFixture::Cam cam;
  ::testing::internal::CaptureStdout();
  EXPECT_FALSE(cam.init(model));
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Error: Focal length should be positive\n");
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"AR ERROR: Cannot initialize camera from invalid intrinsics\n"});
  EXPECT_FALSE(cam.isInitialized());
}

TYPED_TEST(CameraTest, ParameterInitPrintsTheValidityLines) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Vec6 = typename TestFixture::Vec6;
  typename TestFixture::Cam cam;
  AR::Test::LogCapture capture;
  ::testing::internal::CaptureStdout();
  ASSERT_TRUE(cam.init(Vec2(PREC(640), PREC(480)), Vec2(PREC(400), PREC(400)), Vec2(PREC(320), PREC(240)),
                       Vec6(PREC(1), PREC(0), PREC(0), PREC(0), PREC(0), PREC(0)), Vec2(),
                       FISHEYE_1_PARAMETER));
  std::fflush(stdout);
  // Omega = 1: undistortion up to (pi/2)^2 - 0.1, distortion up to the
  // ideal radius that maps there, capped at 9.
  const double rd = std::sqrt(M_PI * M_PI / 4 - 0.1);
  const double ru = std::tan(rd) / (2 * std::tan(0.5));
  char expected[256];
  std::snprintf(expected, sizeof(expected),
                "Model FISHEYE_1_PARAMETER. Distortion is valid up-to a radius of %.1f in the ideal "
                "focal plane\nModel FISHEYE_1_PARAMETER. Undistortion is valid up-to a radius of %.1f "
                "pixels from the principal point\n",
                std::min(ru, 9.0), rd * 400);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), expected);
  EXPECT_NEAR(double(cam.getCamModel().maxValidUndistortionRSq), 2.3674011, 1e-6);
  // Two fits, one line each at debug level, and nothing else.
  ASSERT_EQ(capture.messages().size(), 2u);
  for (const auto& m : capture.messages())
    EXPECT_EQ(m.rfind("AR DEBUG: Fitted Hermite spline with ", 0), 0u) << m;

  typename TestFixture::Cam linear;
  ::testing::internal::CaptureStdout();
  ASSERT_TRUE(linear.init(Vec2(PREC(640), PREC(480)), Vec2(PREC(400), PREC(400)),
                          Vec2(PREC(320), PREC(240)), Vec6(), Vec2(), LINEAR));
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(linear.getCamModel().maxValidDistortionRSq, PREC(81));
}

TYPED_TEST(CameraTest, PoorFitsAreRefusedWithTheirError) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Model = typename TestFixture::Model;
  // A barrel lens used without narrowing its range: the rational map blows
  // up and no spline can follow it.
  Model model = TestFixture::rawModel(kLenses[3]);
  model.radialDistortionCoeffs = typename TestFixture::Vec6(PREC(0), PREC(0), PREC(0), PREC(0),
                                                            PREC(0), PREC(-0.02));
  {
    AR::Test::LogCapture capture;
    typename TestFixture::Cam cam;
    EXPECT_FALSE(cam.init(model));
    EXPECT_FALSE(cam.isInitialized());
    AR::CV::HermiteSplineInterpolation<PREC> reference;
    const PREC rD = std::sqrt(model.maxValidDistortionRSq);
    const PREC err = reference.setupHermiteCoeffs(AR::CV::DistortFn<Model>(model),
                                                  Vec2(PREC(0), rD * rD), 1024, PREC(1e-5));
    char expected[128];
    std::snprintf(expected, sizeof(expected),
                  "AR ERROR: Relative approximation error in distortion too high (%f)\n", double(err));
    EXPECT_TRUE(capture.has(expected)) << expected;
  }
  // A field-of-view fisheye whose undistortion range was left at 81: the
  // closed-form inverse has poles there.
  model = TestFixture::rawModel(kLenses[4]);
  model.maxValidDistortionRSq = PREC(4);
  {
    AR::Test::LogCapture capture;
    typename TestFixture::Cam cam;
    EXPECT_FALSE(cam.init(model));
    EXPECT_FALSE(cam.isInitialized());
    EXPECT_EQ(capture.countContaining("AR ERROR: Relative approximation error in undistortion too high ("),
              1u);
    EXPECT_EQ(capture.countContaining("in distortion too high"), 0u);
  }
}

TYPED_TEST(CameraTest, ThresholdIsLooserForTheSixParameterModel) {
  using PREC = TypeParam;
  using Model = typename TestFixture::Model;
  // One rational factor, written once as RADIAL_3 and once as RADIAL_6 (with
  // a zero denominator). Near the fold of the radius map the inverse has a
  // square-root singularity; ending the undistortion range just before the
  // fold costs the spline a few thousandths: too much for RADIAL_3, enough
  // for RADIAL_6.
  const Lens& lens = kLenses[2];
  const double k0 = lens.k[0], k1 = lens.k[1], k2 = lens.k[2];
  double fold = 0;  // first radius where d/dr (r d(r^2)) reaches 0
  for (double r = 0.01; r < 3 && fold == 0; r += 1e-5)
    if (1 + 3 * k0 * r * r + 5 * k1 * std::pow(r, 4) + 7 * k2 * std::pow(r, 6) <= 0) fold = r;
  ASSERT_GT(fold, 0);
  Model model = TestFixture::rawModel(lens);
  model.maxValidDistortionRSq = PREC(fold * fold);
  bool found = false;
  for (double frac = 0.995; frac <= 1.0 && !found; frac += 0.0002) {
    const double r = fold * frac;
    const double rd = r * (1 + k0 * r * r + k1 * std::pow(r, 4) + k2 * std::pow(r, 6));
    model.maxValidUndistortionRSq = PREC(rd * rd);
    AR::CV::HermiteSplineInterpolation<PREC> spline;
    const PREC top = std::sqrt(model.maxValidUndistortionRSq);
    const double err = double(spline.setupHermiteCoeffs(AR::CV::UndistortFn<Model>(model),
                                                        typename TestFixture::Vec2(PREC(0), top * top),
                                                        1024, PREC(1e-5)));
    found = err > 0.003 && err < 0.008;
  }
  ASSERT_TRUE(found);
  AR::Test::LogCapture capture;
  typename TestFixture::Cam radial3, radial6;
  EXPECT_FALSE(radial3.init(model));
  EXPECT_EQ(capture.countContaining("AR ERROR: Relative approximation error in undistortion too high (0.00"), 1u);
  model.model = RADIAL_6_PARAMETERS;
  EXPECT_TRUE(radial6.init(model));
  EXPECT_TRUE(radial6.isInitialized());
}

TYPED_TEST(CameraTest, ZeroDistortionRangeIsReportedAndRejectsEverything) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Model model = TestFixture::rawModel(kLenses[1]);
  model.maxValidDistortionRSq = PREC(0);
  model.maxValidUndistortionRSq = PREC(0);
  AR::Test::LogCapture capture;
  typename TestFixture::Cam cam;
  EXPECT_TRUE(cam.init(model));
  EXPECT_EQ(capture.countContaining("AR_ASSERT hasDistortionAt0 && distortionAt0>0 CV/src/Camera/Camera("),
            1u);
  Vec2 out;
  EXPECT_FALSE(cam.tryDistort(Vec2(), out));
  EXPECT_FALSE(cam.tryPixel2ideal(Vec2(PREC(kCx), PREC(kCy)), out));
}

TYPED_TEST(CameraTest, ReinitialisingReplacesTheCamera) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam, fresh;
  ASSERT_TRUE(TestFixture::make(kLenses[2], cam));
  AR::Test::LogCapture capture;
  ASSERT_TRUE(TestFixture::make(kLenses[5], cam));
  ASSERT_TRUE(TestFixture::make(kLenses[5], fresh));
  EXPECT_EQ(capture.countContaining("AR_ASSERT"), 0u);
  EXPECT_EQ(cam.getRadialDistortionModel(), FISHEYE_4_PARAMETERS);
  Vec2 a, b;
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2(PREC(10), PREC(20)), a));
  ASSERT_TRUE(fresh.tryPixel2ideal(Vec2(PREC(10), PREC(20)), b));
  EXPECT_EQ(a, b);
  // Initialising from its own model works too.
  ASSERT_TRUE(cam.init(cam.getCamModel()));
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2(PREC(10), PREC(20)), b));
  EXPECT_EQ(a, b);
}

TYPED_TEST(CameraTest, IdlRecordHasTheFixedLayout) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[7], cam));
  const AR::CV::CameraIntrinsicsIDL idl = cam.toIDL();
  unsigned char bytes[128];
  static_assert(sizeof(idl) == 128, "record size");
  std::memcpy(bytes, &idl, sizeof(bytes));
  auto i32 = [&](size_t at) { int32_t v; std::memcpy(&v, bytes + at, 4); return v; };
  auto u32 = [&](size_t at) { uint32_t v; std::memcpy(&v, bytes + at, 4); return v; };
  auto f64 = [&](size_t at) { double v; std::memcpy(&v, bytes + at, 8); return v; };
  EXPECT_EQ(i32(0), 640);
  EXPECT_EQ(i32(4), 480);
  EXPECT_EQ(f64(8), double(PREC(kCx)));
  EXPECT_EQ(f64(16), double(PREC(kCy)));
  EXPECT_EQ(f64(24), double(PREC(450)));
  EXPECT_EQ(f64(32), double(PREC(449)));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(f64(40 + 8 * i), double(PREC(kLenses[7].k[i])));
  EXPECT_EQ(f64(88), double(PREC(-8e-4)));
  EXPECT_EQ(f64(96), double(PREC(6e-4)));
  EXPECT_EQ(f64(104), double(std::sqrt(cam.getCamModel().maxValidDistortionRSq)));
  EXPECT_EQ(f64(112), double(std::sqrt(cam.getCamModel().maxValidUndistortionRSq)));
  EXPECT_EQ(u32(120), 3u);
  EXPECT_EQ(u32(124), 0u);
}

TYPED_TEST(CameraTest, IdlSizeIsTruncatedTowardZeroAndNeverUndefined) {
  using PREC = TypeParam;
  typename TestFixture::Model model = TestFixture::rawModel(kLenses[0]);
  model.size = typename TestFixture::Vec2(PREC(640.9), PREC(480.5));
  typename TestFixture::Cam cam;
  ASSERT_TRUE(cam.init(model));
  EXPECT_EQ(cam.toIDL().width, 640);
  EXPECT_EQ(cam.toIDL().height, 480);
  // A width that no int holds saturates instead of being undefined.
  model.size(0) = PREC(1e12);
  ASSERT_TRUE(cam.init(model));
  EXPECT_EQ(cam.toIDL().width, std::numeric_limits<int32_t>::max());
  EXPECT_EQ(cam.toIDL().height, 480);
}

TYPED_TEST(CameraTest, OldDistortionVectorPerModel) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Vec6 = typename TestFixture::Vec6;
  using Vec8 = AR::Math::Vector<PREC, 8>;
  const PREC e = PREC(1e-8);
  const Vec6 k(PREC(0.1), PREC(0), PREC(0.3), PREC(0.4), PREC(0), PREC(0.6));
  const Vec2 none, tang(PREC(0.01), PREC(-0.02));
  Vec8 out;
  AR::CV::OLD_DISTORTION_MODE mode;

  AR::CV::getOldDistortionVec(LINEAR, tang, Vec6(), out, mode);
  EXPECT_EQ(mode, 0);
  EXPECT_EQ(out, Vec8(PREC(0), PREC(0), PREC(0.01), PREC(-0.02), PREC(0), PREC(0), PREC(0), PREC(0)));

  const Vec6 k2(PREC(0.1), PREC(0), PREC(0), PREC(0), PREC(0), PREC(0));
  AR::CV::getOldDistortionVec(RADIAL_2_PARAMETERS, none, k2, out, mode);
  EXPECT_EQ(mode, 2);
  EXPECT_EQ(out, Vec8(PREC(0.1), e, PREC(0), PREC(0), PREC(0), PREC(0), PREC(0), PREC(0)));
  AR::CV::getOldDistortionVec(RADIAL_2_PARAMETERS, tang, k2, out, mode);
  EXPECT_EQ(mode, 3);

  const Vec6 k3(PREC(0), PREC(0.2), PREC(0), PREC(0), PREC(0), PREC(0));
  AR::CV::getOldDistortionVec(RADIAL_3_PARAMETERS, none, k3, out, mode);
  EXPECT_EQ(mode, 4);
  EXPECT_EQ(out, Vec8(e, PREC(0.2), PREC(0), PREC(0), e, PREC(0), PREC(0), PREC(0)));
  AR::CV::getOldDistortionVec(RADIAL_3_PARAMETERS, tang, k3, out, mode);
  EXPECT_EQ(mode, 5);

  AR::CV::getOldDistortionVec(RADIAL_6_PARAMETERS, tang, k, out, mode);
  EXPECT_EQ(mode, 7);
  EXPECT_EQ(out, Vec8(PREC(0.1), e, PREC(0.01), PREC(-0.02), PREC(0.3), PREC(0.4), e, PREC(0.6)));
  AR::CV::getOldDistortionVec(RADIAL_6_PARAMETERS, none, k, out, mode);
  EXPECT_EQ(mode, 6);

  AR::CV::getOldDistortionVec(FISHEYE_1_PARAMETER, tang, Vec6(PREC(0.9), PREC(0), PREC(0), PREC(0), PREC(0), PREC(0)), out, mode);
  EXPECT_EQ(mode, 1);
  EXPECT_EQ(out, Vec8(PREC(0.9), PREC(0), PREC(0.01), PREC(-0.02), PREC(0), PREC(0), PREC(0), PREC(0)));

  AR::CV::getOldDistortionVec(FISHEYE_4_PARAMETERS, tang, Vec6(PREC(0.1), PREC(0), PREC(0.3), PREC(0.4), PREC(0), PREC(0)), out, mode);
  EXPECT_EQ(mode, 8);
  EXPECT_EQ(out, Vec8(PREC(0.1), e, PREC(0.3), PREC(0.4), PREC(0), PREC(0), PREC(0), PREC(0)));

  AR::Test::LogCapture capture;
  AR::CV::getOldDistortionVec(static_cast<DistortionModel>(6), tang, k, out, mode);
  EXPECT_EQ(mode, 0);
  EXPECT_EQ(capture.countContaining("AR_ASSERT 0 && \"Unhandled enum option\" CV/src/Camera/Camera("), 1u);
}

/// Attribute text or "<absent>".
std::string attr(const tinyxml2::XMLElement* e, const char* name) {
  const char* v = e->Attribute(name);
  return v ? v : "<absent>";
}

TYPED_TEST(CameraTest, XmlElementInEachFormat) {
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[6], cam));
  using Cam = typename TestFixture::Cam;
  tinyxml2::XMLDocument doc;

  tinyxml2::XMLElement* current = cam.toXMLNode(doc, Cam::XML_FORMAT_CURRENT);
  ASSERT_NE(current, nullptr);
  EXPECT_STREQ(current->Name(), "Calibration");
  EXPECT_EQ(attr(current, "size"), "640 480 ");
  EXPECT_EQ(attr(current, "principal_point"), "320.5 240.5 ");
  EXPECT_EQ(attr(current, "focal_length"), "455 455 ");
  EXPECT_EQ(attr(current, "model"), "RADIAL_3_PARAMETERS");
  // "%.8g" shows the float rounding of the coefficients.
  const bool f = TestFixture::isFloat;
  EXPECT_EQ(attr(current, "radial_distortion"),
            f ? "-0.30000001 0.1 -0.015 0 0 0 " : "-0.3 0.1 -0.015 0 0 0 ");
  EXPECT_EQ(attr(current, "tangential_distortion"), f ? "0.001 -0.00050000002 " : "0.001 -0.0005 ");
  EXPECT_EQ(current->DoubleAttribute("distortion_limit"),
            double(std::sqrt(cam.getCamModel().maxValidDistortionRSq)));
  EXPECT_EQ(current->DoubleAttribute("undistortion_limit"),
            double(std::sqrt(cam.getCamModel().maxValidUndistortionRSq)));
  EXPECT_EQ(attr(current, "radial_distortion_8"), "<absent>");
  EXPECT_EQ(attr(current, "fish_eye"), "<absent>");

  tinyxml2::XMLElement* old = cam.toXMLNode(doc, Cam::XML_FORMAT_OLD);
  EXPECT_EQ(attr(old, "radial_distortion_8"), f ? "-0.30000001 0.1 0.001 -0.00050000002 -0.015 0 0 0 "
                                                : "-0.3 0.1 0.001 -0.0005 -0.015 0 0 0 ");
  EXPECT_EQ(attr(old, "model"), "<absent>");
  EXPECT_EQ(attr(old, "fish_eye"), "<absent>");

  tinyxml2::XMLElement* both = cam.toXMLNode(doc, Cam::XML_FORMAT_BOTH);
  EXPECT_EQ(attr(both, "radial_distortion_8"), attr(old, "radial_distortion_8"));
  EXPECT_EQ(attr(both, "model"), "RADIAL_3_PARAMETERS");
  doc.InsertEndChild(both);
  tinyxml2::XMLPrinter printer(nullptr, true);
  doc.Print(&printer);
  const std::string text = printer.CStr();
  EXPECT_EQ(text.rfind("<Calibration size=\"640 480 \" principal_point=\"320.5 240.5 \" "
                       "focal_length=\"455 455 \" radial_distortion_8=\"",
                       0),
            0u)
      << text;
  // The elements were made by `doc`, which frees them; the two not inserted
  // are released with it as well.
}

TYPED_TEST(CameraTest, XmlMarksTheFourParameterFisheyeAndSkipsZeroTangentials) {
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[5], cam));
  using Cam = typename TestFixture::Cam;
  tinyxml2::XMLDocument doc;
  tinyxml2::XMLElement* both = cam.toXMLNode(doc, Cam::XML_FORMAT_BOTH);
  EXPECT_EQ(attr(both, "fish_eye"), "true");
  EXPECT_EQ(attr(both, "model"), "FISHEYE_4_PARAMETERS");
  EXPECT_EQ(attr(both, "tangential_distortion"), "<absent>");
  EXPECT_EQ(attr(both, "radial_distortion_8"),
            TestFixture::isFloat
                ? "-0.0099999998 0.0049999999 -0.0020000001 0.00030000001 0 0 0 0 "
                : "-0.01 0.005 -0.002 0.0003 0 0 0 0 ");
}

}  // namespace
