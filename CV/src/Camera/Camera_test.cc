#include "AR/CV/Camera/Camera.h"

#include <gtest/gtest.h>
#include <tinyxml2.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

/// A calibrated-looking 640x480 lens, in double; tests convert it to the
/// precision under test.
struct Lens {
  const char* label;
  DistortionModel model;
  double k[6];
  double p[2];
  double f[2];
};

const Lens kLenses[] = {
    {"LINEAR", LINEAR, {}, {}, {450, 452}},
    {"RADIAL_2", RADIAL_2_PARAMETERS, {-0.28, 0.07}, {}, {450, 451}},
    {"RADIAL_3", RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015}, {}, {455, 455}},
    {"RADIAL_6", RADIAL_6_PARAMETERS, {0.6, 0.1, 0.002, 0.9, 0.25, 0.01}, {}, {450, 449}},
    {"FISHEYE_1", FISHEYE_1_PARAMETER, {0.92}, {}, {280, 281}},
    {"FISHEYE_4", FISHEYE_4_PARAMETERS, {-0.01, 0.005, -0.002, 0.0003}, {}, {280, 280}},
    {"RADIAL_3+tangential", RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015}, {1e-3, -5e-4}, {455, 455}},
    {"RADIAL_6+tangential", RADIAL_6_PARAMETERS, {0.6, 0.1, 0.002, 0.9, 0.25, 0.01}, {-8e-4, 6e-4}, {450, 449}},
};
constexpr double kWidth = 640, kHeight = 480, kCx = 320.5, kCy = 240.5;

/// Closed-form pixel of an ideal point, written out from the lens models
/// independently of the library.
void closedFormPixel(const Lens& lens, double x0, double x1, double& u, double& v) {
  const double* k = lens.k;
  const double r2 = x0 * x0 + x1 * x1, r = std::sqrt(r2);
  double d = 1;
  if (lens.model == FISHEYE_1_PARAMETER) {  // rd = atan(2 r tan(w/2)) / w
    d = r2 == 0 ? 2 * std::tan(k[0] / 2) / k[0] : std::atan(2 * r * std::tan(k[0] / 2)) / k[0] / r;
  } else if (lens.model == FISHEYE_4_PARAMETERS && r2 > 0) {  // rd = theta + k0 theta^3 + ...
    const double t = std::atan(r), t2 = t * t;
    d = t * (1 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3])))) / r;
  } else if (lens.model != LINEAR && lens.model != FISHEYE_4_PARAMETERS) {
    d = (1 + r2 * (k[0] + r2 * (k[1] + r2 * k[2]))) / (1 + r2 * (k[3] + r2 * (k[4] + r2 * k[5])));
  }
  const double p1 = lens.p[0], p2 = lens.p[1];
  u = (d * x0 + 2 * p1 * x0 * x1 + p2 * (r2 + 2 * x0 * x0)) * lens.f[0] + kCx;
  v = (d * x1 + p1 * (r2 + 2 * x1 * x1) + 2 * p2 * x0 * x1) * lens.f[1] + kCy;
}

template <typename PREC>
class CameraTest : public ::testing::Test {
 protected:
  using Cam = AR::CV::Camera<PREC>;
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  using Vec6 = AR::Math::Vector<PREC, 6>;
  using Mat2 = AR::Math::Matrix<PREC, 2, 2>;
  using Model = CamModel::CameraModel<PREC>;
  static constexpr bool kFloat = std::is_same<PREC, float>::value;
  /// Rounding allowance in pixels for conversions computed in PREC.
  static constexpr double kPixelRounding = kFloat ? 2e-3 : 1e-8;

  /// The lens's model with both limits at 81, as before narrowing.
  static Model rawModel(const Lens& lens) {
    Model m;
    m.size = Vec2(kWidth, kHeight);
    m.principalPoint = Vec2(kCx, kCy);
    m.focalLength = Vec2(lens.f[0], lens.f[1]);
    for (int i = 0; i < 6; ++i) m.radialDistortionCoeffs(i) = PREC(lens.k[i]);
    m.tangentialDistortionCoeffs = Vec2(lens.p[0], lens.p[1]);
    m.model = lens.model;
    return m;
  }

  /// Initialises `cam` through the parameter-wise init, swallowing the
  /// validity lines it prints.
  static bool make(const Lens& lens, Cam& cam) {
    const Model m = rawModel(lens);
    ::testing::internal::CaptureStdout();
    const bool ok = cam.init(m.size, m.focalLength, m.principalPoint, m.radialDistortionCoeffs,
                             m.tangentialDistortionCoeffs, m.model);
    ::testing::internal::GetCapturedStdout();
    return ok;
  }

  /// Largest error of the distortion and undistortion spline at their bin midpoints.
  static std::pair<double, double> splineErrors(const Cam& cam) {
    return {double(cam.getDistortionSpline().testAccuracy(AR::CV::DistortFn<Model>(cam.getCamModel()))),
            double(cam.getUndistortionSpline().testAccuracy(AR::CV::UndistortFn<Model>(cam.getCamModel())))};
  }

  /// Runs `body(lens, cam)` for every lens with an initialised camera.
  template <typename BODY>
  static void forEachLens(BODY body) {
    for (const Lens& lens : kLenses) {
      SCOPED_TRACE(lens.label);
      Cam cam;
      ASSERT_TRUE(make(lens, cam));
      body(lens, cam);
    }
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CameraTest, Precisions);

// The central property: over the whole valid image, undistorting a pixel and
// distorting it back lands on the same pixel, within what the spline errors allow.
TYPED_TEST(CameraTest, PixelToIdealAndBackRoundTripsOverTheValidImage) {
  using Vec2 = typename TestFixture::Vec2;
  TestFixture::forEachLens([](const Lens& lens, const typename TestFixture::Cam& cam) {
    EXPECT_TRUE(cam.isInitialized());
    const auto [errD, errU] = TestFixture::splineErrors(cam);
    EXPECT_LE(errD, lens.model == RADIAL_6_PARAMETERS ? 0.01 : 0.002);
    EXPECT_LE(errU, lens.model == RADIAL_6_PARAMETERS ? 0.01 : 0.002);
    const double limitU = double(cam.getUndistortionSpline().getRange()(1));
    const double limitD = double(cam.getDistortionSpline().getRange()(1));
    EXPECT_LE(limitU, 81);
    EXPECT_LE(limitD, 81);
    const double f = std::max(lens.f[0], lens.f[1]);
    int tested = 0;
    for (int py = 0; py < int(kHeight); py += 2) {
      for (int px = 0; px < int(kWidth); px += 2) {
        const Vec2 q = cam.pixelToDistorted(Vec2(px, py));
        const double q2 = double(q(0)) * q(0) + double(q(1)) * q(1);
        Vec2 ideal, back;
        const bool inverted = cam.tryPixel2ideal(Vec2(px, py), ideal);
        // Well inside the valid circle every pixel converts.
        ASSERT_TRUE(inverted || q2 >= limitU * 0.98) << px << "," << py;
        if (!inverted) continue;
        const double x2 = double(ideal(0)) * ideal(0) + double(ideal(1)) * ideal(1);
        const bool distorted = cam.tryIdeal2pixel(ideal, back);
        ASSERT_TRUE(distorted || x2 >= limitD * 0.98) << px << "," << py;
        if (!distorted) continue;
        ++tested;
        // Undistortion error moves the ideal point by errU*|q|, magnified by
        // the slope of the radius map (at most about 2 here); distortion adds
        // errD*|x|. Doubled for errors between the midpoints where the fit
        // measured them.
        const double tol = 2 * f * (2 * errU * std::sqrt(q2) + errD * std::sqrt(x2)) + TestFixture::kPixelRounding;
        ASSERT_LE(std::hypot(double(back(0)) - px, double(back(1)) - py), tol) << px << "," << py;
      }
    }
    EXPECT_GT(tested, 10000);
  });
}

TYPED_TEST(CameraTest, ProjectionMatchesTheClosedFormModel) {
  using Vec2 = typename TestFixture::Vec2;
  TestFixture::forEachLens([](const Lens& lens, const typename TestFixture::Cam& cam) {
    const double errD = TestFixture::splineErrors(cam).first;
    const double rMax = std::sqrt(double(cam.getDistortionSpline().getRange()(1))) * 0.999;
    // Model arithmetic in float differs from the double closed form by a few
    // ulps of the factor.
    const double modelRounding = TestFixture::kFloat ? 3e-6 : 1e-13;
    for (int i = 0; i <= 40; ++i) {
      for (int a = 0; a < 8; ++a) {
        const double r = rMax * i / 40, x0 = r * std::cos(0.3 + a * 0.785), x1 = r * std::sin(0.3 + a * 0.785);
        Vec2 pixel;
        ASSERT_TRUE(cam.tryIdeal2pixel(Vec2(x0, x1), pixel)) << r;
        double u, v;
        closedFormPixel(lens, x0, x1, u, v);
        const double tol = lens.f[0] * r * (2 * errD + modelRounding) + TestFixture::kPixelRounding;
        EXPECT_NEAR(double(pixel(0)), u, tol) << r;
        EXPECT_NEAR(double(pixel(1)), v, tol) << r;
      }
    }
  });
}

TYPED_TEST(CameraTest, SplinesAreContinuousInValueAndSlopeAtBinEdges) {
  TestFixture::forEachLens([](const Lens&, const typename TestFixture::Cam& cam) {
    for (const auto* spline : {&cam.getDistortionSpline(), &cam.getUndistortionSpline()}) {
      const auto& segs = spline->getSegments();
      double maxSlope = 0;
      for (const auto& s : segs) maxSlope = std::max(maxSlope, std::fabs(double(s.coef(1))));
      const double eps = TestFixture::kFloat ? 1e-6 : 1e-14;
      for (size_t i = 0; i + 1 < segs.size(); ++i) {
        const auto &a = segs[i], &b = segs[i + 1];
        const double t = double(b.t0) - double(a.t0);
        const double value = a.coef(0) + t * (a.coef(1) + t * (a.coef(2) + t * a.coef(3)));
        const double slope = a.coef(1) + t * (2 * a.coef(2) + 3 * t * a.coef(3));
        ASSERT_NEAR(value, double(b.coef(0)), 8 * eps * std::fabs(double(b.coef(0))) + 1e-12) << i;
        ASSERT_NEAR(slope, double(b.coef(1)), 64 * eps * (maxSlope + 1)) << i;
      }
    }
  });
}

TYPED_TEST(CameraTest, ProjectsOnlyFromOneCentimetreAndUnprojectsOntoTheRay) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Vec3 = typename TestFixture::Vec3;
  TestFixture::forEachLens([](const Lens&, const typename TestFixture::Cam& cam) {
    Vec2 pixel;
    // The bound is the single-precision 0.01 in both precisions.
    for (PREC z : {PREC(0.009), std::nextafter(PREC(0.01f), PREC(0)), PREC(0), PREC(-1),
                   std::numeric_limits<PREC>::quiet_NaN()})
      EXPECT_FALSE(cam.tryProjectToPix(Vec3(PREC(0), PREC(0), z), pixel)) << z;
    ASSERT_TRUE(cam.tryProjectToPix(Vec3(PREC(0), PREC(0), PREC(0.01f)), pixel));
    EXPECT_NEAR(double(pixel(0)), kCx, 1e-4);
    EXPECT_NEAR(double(pixel(1)), kCy, 1e-4);

    Vec3 point;
    Vec2 ideal;
    ASSERT_TRUE(cam.tryUnprojectFromPix(Vec2(400.25, 100.75), point, PREC(2.5)));
    ASSERT_TRUE(cam.tryPixel2ideal(Vec2(400.25, 100.75), ideal));
    EXPECT_EQ(point, Vec3(ideal(0) * PREC(2.5), ideal(1) * PREC(2.5), PREC(2.5)));
    ASSERT_TRUE(cam.tryProjectToPix(point, pixel));
    EXPECT_NEAR(double(pixel(0)), 400.25, 0.05);
    EXPECT_NEAR(double(pixel(1)), 100.75, 0.05);
  });
}

TYPED_TEST(CameraTest, NonPositiveDepthIsReportedAndUsed) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[1], cam));
  AR::Test::LogCapture capture;
  typename TestFixture::Vec3 point;
  ASSERT_TRUE(cam.tryUnprojectFromPix(typename TestFixture::Vec2(100, 100), point, PREC(0)));
  EXPECT_EQ(point(2), PREC(0));
  ASSERT_EQ(capture.messages().size(), 1u);
  const std::string& m = capture.messages()[0];
  EXPECT_EQ(m.rfind("AR ERROR: AR_ASSERT depth>0 CV/src/Camera/Camera(", 0), 0u) << m;
  // The function text is cut to 100 characters.
  const std::string function =
      ") bool AR::CV::Camera<PREC>::tryUnprojectFromPix(const AR::Math::Vector<PREC, 2>&, AR::Math::Vector<PR\n";
  EXPECT_EQ(m.substr(m.size() - function.size()), function) << m;
}

TYPED_TEST(CameraTest, UndistortionIsOneLookupWithoutTangentialTermsAndAtMostTenWith) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[3], cam));
  for (int i = 0; i < 50; ++i) {
    const Vec2 q = cam.pixelToDistorted(Vec2(13 * i, 9 * i));
    Vec2 a;
    PREC u;
    const bool ok = cam.getUndistortionSpline().evaluate(q(0) * q(0) + q(1) * q(1), u);
    ASSERT_EQ(cam.tryPixel2ideal(Vec2(13 * i, 9 * i), a), ok);
    if (ok) {
      EXPECT_EQ(a, Vec2(u * q(0), u * q(1)));
    }
  }

  // Strong tangential terms make the fixed-point iteration contract slowly: a
  // point far out needs more than ten lookups and is refused, while the same
  // lens converges near the centre.
  Lens strong = kLenses[0];
  strong.model = RADIAL_2_PARAMETERS;
  strong.k[0] = -0.1;
  strong.p[0] = 0.12;
  strong.p[1] = 0.1;
  ASSERT_TRUE(TestFixture::make(strong, cam));
  Vec2 x, q;
  EXPECT_FALSE(cam.tryUndistortTangential(Vec2(1.0, 0.9), x));
  ASSERT_TRUE(cam.tryUndistortTangential(Vec2(0.2, -0.1), x));
  ASSERT_TRUE(cam.tryDistort(x, q));
  EXPECT_NEAR(double(q(0)), 0.2, 1e-4);
  EXPECT_NEAR(double(q(1)), -0.1, 1e-4);
}

TYPED_TEST(CameraTest, LinearCameraIsExactAndRefusesNineFocalLengths) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[0], cam));
  EXPECT_EQ(TestFixture::splineErrors(cam), std::make_pair(0.0, 0.0));
  EXPECT_EQ(cam.getCorrectedFocalLengthVec(), cam.getOriginalFocalLength());
  EXPECT_EQ(cam.getCorrectedFocalLength(), PREC(451));
  EXPECT_EQ(cam.getInvFocalLength(), (PREC(1) / PREC(450) + PREC(1) / PREC(452)) / PREC(2));

  Vec2 ideal, q;
  EXPECT_FALSE(cam.tryPixel2ideal(Vec2(kCx + 9 * 450, kCy), ideal));
  EXPECT_FALSE(cam.tryPixel2ideal(Vec2(kCx, kCy - 9 * 452), ideal));
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2(kCx + 8.99 * 450, kCy), ideal));
  EXPECT_NEAR(double(ideal(0)), 8.99, 1e-5);
  // The distortion range's upper end (a squared radius of 81) is excluded.
  EXPECT_FALSE(cam.tryDistort(Vec2(9, 0), q));
  EXPECT_FALSE(cam.tryDistort(Vec2(0, -9), q));
  EXPECT_TRUE(cam.tryDistort(Vec2(std::nextafter(PREC(9), PREC(0)), PREC(0)), q));

  // Pinhole field of view: an extent of 2 f tan(30 deg) spans 60 degrees; the
  // valid circle caps it at 2 atan(9).
  const double tol = TestFixture::kFloat ? 2e-5 : 1e-9;
  EXPECT_NEAR(double(cam.getFOV(PREC(2 * 450 * std::tan(M_PI / 6)))), M_PI / 3, tol);
  EXPECT_NEAR(double(cam.getFOV(PREC(1e6))), 2 * std::atan(9.0), tol);
  EXPECT_EQ(cam.getFOVPixels(), PREC(451 * 9));
}

TYPED_TEST(CameraTest, FieldOfViewFisheyeCorrectsItsFocalLengthAndAngles) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  const Lens& lens = kLenses[4];
  ASSERT_TRUE(TestFixture::make(lens, cam));
  // Near the axis the model scales radii by 2 tan(w/2) / w.
  const double w = lens.k[0], d0 = 2 * std::tan(w / 2) / w;
  const double tol = TestFixture::kFloat ? 1e-4 : 1e-6;
  EXPECT_NEAR(double(cam.getCorrectedFocalLengthVec()(1)), lens.f[1] * d0, tol * lens.f[1]);
  EXPECT_NEAR(double(cam.getInvFocalLengthVec()(0)), 1 / (lens.f[0] * d0), tol / lens.f[0]);
  EXPECT_EQ(cam.getInvModelFocalLengthVec()(1), PREC(1) / PREC(lens.f[1]));

  // Angles from the closed-form inverse ru = tan(w rd) / (2 tan(w/2)), capped
  // by the valid circle.
  const double errU = TestFixture::splineErrors(cam).second;
  const double rdMax = std::sqrt(double(cam.getCamModel().maxValidUndistortionRSq));
  for (double extent : {100.0, 300.0, 600.0, 1e5}) {
    const double rd = std::min(extent / 2 / lens.f[0], rdMax);
    const double ru = std::tan(w * rd) / (2 * std::tan(w / 2));
    EXPECT_NEAR(double(cam.getFOV(PREC(extent))), 2 * std::atan(ru), 2e-5 + 2 * errU * rd) << extent;
  }
  EXPECT_NEAR(double(cam.getFOVPixels()), (lens.f[0] + lens.f[1]) / 2 * rdMax, 1e-3);
}

TYPED_TEST(CameraTest, CovarianceFollowsTheLensJacobian) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  using Mat2 = typename TestFixture::Mat2;
  TestFixture::forEachLens([](const Lens&, const typename TestFixture::Cam& cam) {
    const Vec2 pixel(500, 380);
    const Mat2 pixelCov(PREC(2), PREC(0.5), PREC(0.5), PREC(1));
    Vec2 ideal, plain, a, b;
    Mat2 cov, J, isotropic;
    ASSERT_TRUE(cam.tryUndistortFeatMeasCov(pixel, pixelCov, ideal, cov));
    ASSERT_TRUE(cam.tryPixel2ideal(pixel, plain));
    EXPECT_EQ(ideal, plain);
    // Reference: J from central differences of a whole pixel.
    for (int c = 0; c < 2; ++c) {
      const Vec2 half(c == 0 ? 0.5 : 0.0, c == 1 ? 0.5 : 0.0);
      ASSERT_TRUE(cam.tryPixel2ideal(pixel + half, a) && cam.tryPixel2ideal(pixel - half, b));
      J(0, c) = a(0) - b(0);
      J(1, c) = a(1) - b(1);
    }
    const Mat2 expected = J * pixelCov * J.transpose();
    const double tol = (TestFixture::kFloat ? 0.05 : 0.01) * double(expected(0, 0) + expected(1, 1));
    for (int r = 0; r < 2; ++r)
      for (int c = 0; c < 2; ++c) EXPECT_NEAR(double(cov(r, c)), double(expected(r, c)), tol) << r << c;
    // The scalar overload is the isotropic covariance.
    ASSERT_TRUE(cam.tryUndistortFeatMeasCov(pixel, PREC(0.25), ideal, isotropic));
    ASSERT_TRUE(cam.tryUndistortFeatMeasCov(pixel, Mat2(PREC(0.25), PREC(0), PREC(0), PREC(0.25)), ideal, cov));
    EXPECT_EQ(isotropic, cov);
  });
}

TYPED_TEST(CameraTest, InitRefusesInvalidIntrinsicsAndPoorFits) {
  using PREC = TypeParam;
  using Model = typename TestFixture::Model;
  typename TestFixture::Cam cam;
  Model model = TestFixture::rawModel(kLenses[1]);
  model.focalLength(1) = PREC(-1);
  {
    AR::Test::LogCapture capture;
    ::testing::internal::CaptureStdout();
    EXPECT_FALSE(cam.init(model));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Error: Focal length should be positive\n");
    EXPECT_EQ(capture.messages(),
              std::vector<std::string>{"AR ERROR: Cannot initialize camera from invalid intrinsics\n"});
  }
  // A rational lens used without narrowing its range: the map has a pole
  // near r = 3.7 and no spline can follow it.
  model = TestFixture::rawModel(kLenses[3]);
  model.radialDistortionCoeffs = typename TestFixture::Vec6(0, 0, 0, 0, 0, -0.02);
  {
    AR::Test::LogCapture capture;
    EXPECT_FALSE(cam.init(model));
    EXPECT_FALSE(cam.isInitialized());
    AR::CV::HermiteSplineInterpolation<PREC> reference;
    const PREC err = reference.setupHermiteCoeffs(AR::CV::DistortFn<Model>(model),
                                                  typename TestFixture::Vec2(0, 81), 1024, PREC(1e-5));
    char expected[128];
    std::snprintf(expected, sizeof(expected), "AR ERROR: Relative approximation error in distortion too high (%f)\n",
                  double(err));
    EXPECT_TRUE(capture.has(expected)) << expected;
  }
  // A field-of-view fisheye whose undistortion range was left at 81: the
  // closed-form inverse has poles there.
  model = TestFixture::rawModel(kLenses[4]);
  model.maxValidDistortionRSq = PREC(4);
  AR::Test::LogCapture capture;
  EXPECT_FALSE(cam.init(model));
  EXPECT_FALSE(cam.isInitialized());
  EXPECT_EQ(capture.countContaining("AR ERROR: Relative approximation error in undistortion too high ("), 1u);
  EXPECT_EQ(capture.countContaining("in distortion too high"), 0u);

  // Empty valid ranges initialise (the splines fit trivially) but have no
  // factor at 0, which is reported; every conversion then fails.
  model = TestFixture::rawModel(kLenses[1]);
  model.maxValidDistortionRSq = model.maxValidUndistortionRSq = PREC(0);
  capture.clear();
  EXPECT_TRUE(cam.init(model));
  EXPECT_EQ(capture.countContaining("AR_ASSERT hasDistortionAt0 && distortionAt0>0 CV/src/Camera/Camera("), 1u);
  typename TestFixture::Vec2 out;
  EXPECT_FALSE(cam.tryDistort(typename TestFixture::Vec2(), out));
  EXPECT_FALSE(cam.tryPixel2ideal(typename TestFixture::Vec2(kCx, kCy), out));
}

TYPED_TEST(CameraTest, ThresholdIsLooserForTheSixParameterModel) {
  using PREC = TypeParam;
  using Model = typename TestFixture::Model;
  // One rational factor, as RADIAL_3 and as RADIAL_6 (zero denominator). Near
  // the fold of the radius map the inverse has a square-root singularity;
  // ending the undistortion range just before the fold costs the spline a few
  // thousandths: too much for RADIAL_3, enough for RADIAL_6.
  const double* k = kLenses[2].k;
  double fold = 0;  // first radius where d/dr (r d(r^2)) reaches 0
  for (double r = 0.01; r < 3 && fold == 0; r += 1e-5)
    if (1 + 3 * k[0] * r * r + 5 * k[1] * std::pow(r, 4) + 7 * k[2] * std::pow(r, 6) <= 0) fold = r;
  ASSERT_GT(fold, 0);
  Model model = TestFixture::rawModel(kLenses[2]);
  model.maxValidDistortionRSq = PREC(fold * fold);
  bool found = false;
  for (double frac = 0.995; frac <= 1.0 && !found; frac += 0.0002) {
    const double r = fold * frac, rd = r * (1 + k[0] * r * r + k[1] * std::pow(r, 4) + k[2] * std::pow(r, 6));
    model.maxValidUndistortionRSq = PREC(rd * rd);
    AR::CV::HermiteSplineInterpolation<PREC> spline;
    const PREC top = std::sqrt(model.maxValidUndistortionRSq);
    const double err = double(spline.setupHermiteCoeffs(AR::CV::UndistortFn<Model>(model),
                                                        typename TestFixture::Vec2(PREC(0), top * top), 1024, PREC(1e-5)));
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

TYPED_TEST(CameraTest, ParameterInitPrintsTheValidityLinesAndTheFits) {
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  AR::Test::LogCapture capture;
  ::testing::internal::CaptureStdout();
  ASSERT_TRUE(cam.init(Vec2(640, 480), Vec2(400, 400), Vec2(320, 240), typename TestFixture::Vec6(1, 0, 0, 0, 0, 0),
                       Vec2(), FISHEYE_1_PARAMETER));
  // Omega = 1: undistortion up to sqrt((pi/2)^2 - 0.1) = 1.5386, 615.5 pixels;
  // distortion up to its preimage, capped at 9.
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Model FISHEYE_1_PARAMETER. Distortion is valid up-to a radius of 9.0 in the ideal focal plane\n"
            "Model FISHEYE_1_PARAMETER. Undistortion is valid up-to a radius of 615.5 pixels from the principal point\n");
  EXPECT_NEAR(double(cam.getCamModel().maxValidUndistortionRSq), 2.3674011, 1e-6);
  // Two fits, one line each at debug level, and nothing else.
  ASSERT_EQ(capture.messages().size(), 2u);
  for (const auto& m : capture.messages()) EXPECT_EQ(m.rfind("AR DEBUG: Fitted Hermite spline with ", 0), 0u) << m;
}

TYPED_TEST(CameraTest, IdlRecordWidensEveryValue) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[7], cam));
  const AR::CV::CameraIntrinsicsIDL idl = cam.toIDL();
  const auto& m = cam.getCamModel();
  EXPECT_EQ(idl.width, 640);
  EXPECT_EQ(idl.height, 480);
  EXPECT_EQ(idl.principalPoint[1], double(PREC(kCy)));
  EXPECT_EQ(idl.focalLength[1], double(PREC(449)));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(idl.radialDistortion[i], double(PREC(kLenses[7].k[i])));
  EXPECT_EQ(idl.tangentialDistortion[0], double(PREC(-8e-4)));
  EXPECT_EQ(idl.distortionLimit, double(std::sqrt(m.maxValidDistortionRSq)));
  EXPECT_EQ(idl.undistortionLimit, double(std::sqrt(m.maxValidUndistortionRSq)));
  EXPECT_EQ(idl.distortionModel, 3u);
  EXPECT_EQ(idl.padding, 0u);

  // Sizes are truncated toward zero, and one that no int holds saturates.
  auto model = m;
  model.size = typename TestFixture::Vec2(640.9, 1e12);
  ASSERT_TRUE(cam.init(model));
  EXPECT_EQ(cam.toIDL().width, 640);
  EXPECT_EQ(cam.toIDL().height, std::numeric_limits<int32_t>::max());
}

TYPED_TEST(CameraTest, OldDistortionVectorPerModel) {
  using PREC = TypeParam;
  using Vec6 = typename TestFixture::Vec6;
  using Vec8 = AR::Math::Vector<PREC, 8>;
  const PREC e = PREC(1e-8);  // a used coefficient that is exactly 0
  const typename TestFixture::Vec2 none, tang(0.01, -0.02);
  const PREC p1 = tang(0), p2 = tang(1);
  const Vec6 k(0.1, 0, 0.3, 0.4, 0, 0.6), k3(0, 0.2, 0, 0, 0, 0), omega(0.9, 0, 0, 0, 0, 0);
  struct Case {
    DistortionModel model;
    bool tangential;
    Vec6 k;
    int mode;
    Vec8 out;
  };
  const Case cases[] = {
      {LINEAR, true, Vec6(), 0, Vec8(0, 0, p1, p2, 0, 0, 0, 0)},
      {RADIAL_2_PARAMETERS, false, Vec6(0.1, 0, 0, 0, 0, 0), 2, Vec8(PREC(0.1), e, 0, 0, 0, 0, 0, 0)},
      {RADIAL_2_PARAMETERS, true, Vec6(0.1, 0, 0, 0, 0, 0), 3, Vec8(PREC(0.1), e, p1, p2, 0, 0, 0, 0)},
      {RADIAL_3_PARAMETERS, false, k3, 4, Vec8(e, PREC(0.2), 0, 0, e, 0, 0, 0)},
      {RADIAL_3_PARAMETERS, true, k3, 5, Vec8(e, PREC(0.2), p1, p2, e, 0, 0, 0)},
      {RADIAL_6_PARAMETERS, false, k, 6, Vec8(PREC(0.1), e, 0, 0, PREC(0.3), PREC(0.4), e, PREC(0.6))},
      {RADIAL_6_PARAMETERS, true, k, 7, Vec8(PREC(0.1), e, p1, p2, PREC(0.3), PREC(0.4), e, PREC(0.6))},
      {FISHEYE_1_PARAMETER, true, omega, 1, Vec8(PREC(0.9), 0, p1, p2, 0, 0, 0, 0)},
      {FISHEYE_4_PARAMETERS, true, Vec6(0.1, 0, 0.3, 0.4, 0, 0), 8, Vec8(PREC(0.1), e, PREC(0.3), PREC(0.4), 0, 0, 0, 0)},
  };
  Vec8 out;
  AR::CV::OLD_DISTORTION_MODE mode;
  for (const Case& c : cases) {
    AR::CV::getOldDistortionVec(c.model, c.tangential ? tang : none, c.k, out, mode);
    EXPECT_EQ(int(mode), c.mode);
    EXPECT_EQ(out, c.out) << "mode " << c.mode;
  }
  AR::Test::LogCapture capture;
  AR::CV::getOldDistortionVec(static_cast<DistortionModel>(6), tang, k, out, mode);
  EXPECT_EQ(int(mode), 0);
  EXPECT_EQ(capture.countContaining("AR_ASSERT 0 && \"Unhandled enum option\" CV/src/Camera/Camera("), 1u);
}

/// Attribute text or "<absent>".
std::string attr(const tinyxml2::XMLElement* e, const char* name) {
  const char* v = e->Attribute(name);
  return v ? v : "<absent>";
}

TYPED_TEST(CameraTest, XmlElementInEachFormat) {
  using Cam = typename TestFixture::Cam;
  const bool f = TestFixture::kFloat;  // "%.8g" shows the float rounding of the coefficients
  Cam cam;
  ASSERT_TRUE(TestFixture::make(kLenses[6], cam));
  tinyxml2::XMLDocument doc;  // owns every element made below
  const tinyxml2::XMLElement* current = cam.toXMLNode(doc, Cam::XML_FORMAT_CURRENT);
  const tinyxml2::XMLElement* old = cam.toXMLNode(doc, Cam::XML_FORMAT_OLD);
  const tinyxml2::XMLElement* both = cam.toXMLNode(doc, Cam::XML_FORMAT_BOTH);
  for (const auto* e : {current, old, both}) {
    EXPECT_STREQ(e->Name(), "Calibration");
    EXPECT_EQ(attr(e, "size"), "640 480 ");
    EXPECT_EQ(attr(e, "principal_point"), "320.5 240.5 ");
    EXPECT_EQ(attr(e, "focal_length"), "455 455 ");
    EXPECT_EQ(attr(e, "fish_eye"), "<absent>");
  }
  for (const auto* e : {current, both}) {
    EXPECT_EQ(attr(e, "model"), "RADIAL_3_PARAMETERS");
    EXPECT_EQ(attr(e, "radial_distortion"), f ? "-0.30000001 0.1 -0.015 0 0 0 " : "-0.3 0.1 -0.015 0 0 0 ");
    EXPECT_EQ(attr(e, "tangential_distortion"), f ? "0.001 -0.00050000002 " : "0.001 -0.0005 ");
    EXPECT_EQ(e->DoubleAttribute("distortion_limit"), double(std::sqrt(cam.getCamModel().maxValidDistortionRSq)));
    EXPECT_EQ(e->DoubleAttribute("undistortion_limit"), double(std::sqrt(cam.getCamModel().maxValidUndistortionRSq)));
  }
  for (const auto* e : {old, both})
    EXPECT_EQ(attr(e, "radial_distortion_8"),
              f ? "-0.30000001 0.1 0.001 -0.00050000002 -0.015 0 0 0 " : "-0.3 0.1 0.001 -0.0005 -0.015 0 0 0 ");
  EXPECT_EQ(attr(current, "radial_distortion_8"), "<absent>");
  EXPECT_EQ(attr(old, "model"), "<absent>");

  // The 4-parameter fisheye is marked in the old form; zero tangential terms are skipped.
  ASSERT_TRUE(TestFixture::make(kLenses[5], cam));
  const tinyxml2::XMLElement* fisheye = cam.toXMLNode(doc, Cam::XML_FORMAT_BOTH);
  EXPECT_EQ(attr(fisheye, "fish_eye"), "true");
  EXPECT_EQ(attr(fisheye, "tangential_distortion"), "<absent>");
  EXPECT_EQ(attr(fisheye, "radial_distortion_8"), f ? "-0.0099999998 0.0049999999 -0.0020000001 0.00030000001 0 0 0 0 "
                                                    : "-0.01 0.005 -0.002 0.0003 0 0 0 0 ");
}

}  // namespace
