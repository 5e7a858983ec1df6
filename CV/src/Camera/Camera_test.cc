#include "AR/CV/Camera/Camera.h"

#include <gtest/gtest.h>
#include <tinyxml2.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "LogCapture.h"
#include "RecordRig.h"

namespace {

using RecordRig::LensCase;

template <typename PREC>
class CameraTest : public ::testing::Test {
 public:
  using Cam = AR::CV::Camera<PREC>;
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  using Model = CamModel::CameraModel<PREC>;
  static constexpr bool kFloat = std::is_same<PREC, float>::value;
  /// Rounding allowance in pixels for conversions computed in PREC.
  static constexpr double kPixelRounding = kFloat ? 2e-3 : 1e-8;

  /// `lens` on a 640x480 camera with focal lengths (280, 281); both limits at 81.
  static Model modelOf(const LensCase& lens) {
    Model m;
    m.size = Vec2(640, 480);
    m.principalPoint = Vec2(320.5, 240.25);
    m.focalLength = Vec2(280, 281);
    for (size_t i = 0; i < lens.k.size(); ++i) m.radialDistortionCoeffs(int(i)) = PREC(lens.k[i]);
    m.tangentialDistortionCoeffs = Vec2(lens.p1, lens.p2);
    m.model = DistortionModel(lens.model);
    return m;
  }
  /// Initialises `cam` through the parameter-wise init, dropping the validity lines it prints.
  static bool make(const LensCase& lens, Cam& cam) {
    const Model m = modelOf(lens);
    ::testing::internal::CaptureStdout();
    const bool ok = cam.init(m.size, m.focalLength, m.principalPoint, m.radialDistortionCoeffs,
                             m.tangentialDistortionCoeffs, m.model);
    ::testing::internal::GetCapturedStdout();
    return ok;
  }
  /// Largest error of the distortion and the undistortion spline at their bin midpoints.
  static std::pair<double, double> splineErrors(const Cam& cam) {
    return {double(cam.getDistortionSpline().testAccuracy(AR::CV::DistortFn<Model>(cam.getCamModel()))),
            double(cam.getUndistortionSpline().testAccuracy(AR::CV::UndistortFn<Model>(cam.getCamModel())))};
  }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CameraTest, Precisions);

// Over the whole valid image of every lens: undistorting a pixel and
// distorting it back lands on the same pixel, and on the closed-form
// projection of the ideal point, within what the spline errors allow;
// nothing nearer than 1 cm projects.
TYPED_TEST(CameraTest, PixelToIdealAndBackOverTheValidImage) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  for (const LensCase& lens : RecordRig::realisticLenses()) {
    SCOPED_TRACE(lens.name);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    const auto [errD, errU] = TestFixture::splineErrors(cam);
    EXPECT_LE(std::max(errD, errU), lens.model == RADIAL_6_PARAMETERS ? 0.01 : 0.002);
    const double limitD = double(cam.getDistortionSpline().getRange()(1));
    const double limitU = double(cam.getUndistortionSpline().getRange()(1));
    EXPECT_LE(std::max(limitD, limitU), 81);
    // Points nearer than the single-precision 0.01 (in both precisions) or behind do not project.
    typename TestFixture::Vec2 pixel;
    for (PREC z : {std::nextafter(PREC(0.01f), PREC(0)), PREC(-1), std::numeric_limits<PREC>::quiet_NaN()})
      EXPECT_FALSE(cam.tryProjectToPix(typename TestFixture::Vec3(PREC(0), PREC(0), z), pixel)) << z;
    EXPECT_TRUE(cam.tryProjectToPix(typename TestFixture::Vec3(PREC(0), PREC(0), PREC(0.01f)), pixel));
    const CameraCalibrationMRV record = RecordRig::camera(lens, 280, 281, 320.5, 240.25, 0, 0, RecordRig::Vec3d());
    // Model arithmetic in float differs from the closed form by a few ulps of the factor.
    const double modelRounding = TestFixture::kFloat ? 3e-6 : 1e-13;
    int tested = 0;
    for (int py = 0; py < 480; py += 2) {
      for (int px = 0; px < 640; px += 2) {
        const Vec2 q = cam.pixelToDistorted(Vec2(px, py));
        const double q2 = double(q(0)) * q(0) + double(q(1)) * q(1);
        Vec2 ideal, back;
        // Well inside the valid circles every pixel converts.
        if (!cam.tryPixel2ideal(Vec2(px, py), ideal)) {
          ASSERT_GE(q2, limitU * 0.98) << px << "," << py;
          continue;
        }
        const double x2 = double(ideal(0)) * ideal(0) + double(ideal(1)) * ideal(1);
        if (!cam.tryIdeal2pixel(ideal, back)) {
          ASSERT_GE(x2, limitD * 0.98) << px << "," << py;
          continue;
        }
        ++tested;
        // Undistortion error moves the ideal point by errU*|q|, magnified by
        // the slope of the radius map (at most about 2 here); distortion adds
        // errD*|x|. Doubled for errors between the midpoints where they were measured.
        const double tol = 2 * 281 * (2 * errU * std::sqrt(q2) + errD * std::sqrt(x2)) + TestFixture::kPixelRounding;
        ASSERT_LE(std::hypot(double(back(0)) - px, double(back(1)) - py), tol) << px << "," << py;
        double u, v, rSq;
        RecordRig::projectClosedForm(record, RecordRig::Vec3d(ideal(0), ideal(1), 1), u, v, rSq);
        const double closedTol = 281 * std::sqrt(x2) * (2 * errD + modelRounding) + TestFixture::kPixelRounding;
        ASSERT_LE(std::hypot(double(back(0)) - u, double(back(1)) - v), closedTol) << px << "," << py;
      }
    }
    EXPECT_GT(tested, 40000);  // the rational lenses' valid circles end inside the image
  }
}

TYPED_TEST(CameraTest, SplinesAreContinuousInValueAndSlopeAtBinEdges) {
  const double eps = TestFixture::kFloat ? 1e-6 : 1e-14;
  for (const LensCase& lens : RecordRig::realisticLenses()) {
    SCOPED_TRACE(lens.name);
    typename TestFixture::Cam cam;
    ASSERT_TRUE(TestFixture::make(lens, cam));
    for (const auto* spline : {&cam.getDistortionSpline(), &cam.getUndistortionSpline()}) {
      const auto& segs = spline->getSegments();
      double maxSlope = 0;
      for (const auto& s : segs) maxSlope = std::max(maxSlope, std::fabs(double(s.coef(1))));
      for (size_t i = 0; i + 1 < segs.size(); ++i) {
        const auto &a = segs[i], &b = segs[i + 1];
        const double t = double(b.t0) - double(a.t0);
        const double value = a.coef(0) + t * (a.coef(1) + t * (a.coef(2) + t * a.coef(3)));
        const double slope = a.coef(1) + t * (2 * a.coef(2) + 3 * t * a.coef(3));
        ASSERT_NEAR(value, double(b.coef(0)), 8 * eps * std::fabs(double(b.coef(0))) + 1e-12) << i;
        ASSERT_NEAR(slope, double(b.coef(1)), 64 * eps * (maxSlope + 1)) << i;
      }
    }
  }
}

TYPED_TEST(CameraTest, UnprojectsOntoTheRayAndReportsADepthThatIsNotPositive) {
  using PREC = TypeParam;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(RecordRig::realisticLenses()[2], cam));
  typename TestFixture::Vec3 point;
  typename TestFixture::Vec2 pixel;
  ASSERT_TRUE(cam.tryUnprojectFromPix(typename TestFixture::Vec2(400.25, 100.75), point, PREC(2.5)));
  ASSERT_TRUE(cam.tryProjectToPix(point, pixel));
  EXPECT_EQ(point(2), PREC(2.5));
  EXPECT_NEAR(std::hypot(double(pixel(0)) - 400.25, double(pixel(1)) - 100.75), 0, 0.05);
  AR::Test::LogCapture capture;
  ASSERT_TRUE(cam.tryUnprojectFromPix(typename TestFixture::Vec2(100, 100), point, PREC(0)));
  EXPECT_EQ(point(2), PREC(0));
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].rfind("AR ERROR: AR_ASSERT depth>0 CV/src/Camera/Camera(", 0), 0u);
}

TYPED_TEST(CameraTest, InitRefusesInvalidIntrinsicsAndPoorFits) {
  using PREC = TypeParam;
  using Model = typename TestFixture::Model;
  const auto lenses = RecordRig::realisticLenses();
  typename TestFixture::Cam cam;
  AR::Test::LogCapture capture;
  Model model = TestFixture::modelOf(lenses[1]);
  model.focalLength(1) = PREC(-1);
  ::testing::internal::CaptureStdout();
  EXPECT_FALSE(cam.init(model));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Error: Focal length should be positive\n");
  EXPECT_EQ(capture.messages(), std::vector<std::string>{"AR ERROR: Cannot initialize camera from invalid intrinsics\n"});

  // A rational lens used without narrowing its range: the map has a pole near
  // r = 3.7 that no spline can follow.
  model = TestFixture::modelOf({"pole", RADIAL_6_PARAMETERS, {0, 0, 0, 0, 0, -0.02}, 0, 0});
  EXPECT_FALSE(cam.init(model));
  AR::CV::HermiteSplineInterpolation<PREC> reference;
  const PREC err = reference.setupHermiteCoeffs(AR::CV::DistortFn<Model>(model), typename TestFixture::Vec2(0, 81),
                                                1024, PREC(1e-5));
  char expected[128];
  std::snprintf(expected, sizeof(expected), "AR ERROR: Relative approximation error in distortion too high (%f)\n",
                double(err));
  EXPECT_TRUE(capture.has(expected)) << expected;

  // Near the fold of the radius map the inverse has a square-root
  // singularity: ending the undistortion range just before it costs the
  // spline a few thousandths, too much for RADIAL_3 and enough for RADIAL_6.
  const double* k = lenses[2].k.data();
  double fold = 0;  // first radius where d/dr (r d(r^2)) reaches 0
  for (double r = 0.01; r < 3 && fold == 0; r += 1e-5)
    if (1 + 3 * k[0] * r * r + 5 * k[1] * std::pow(r, 4) + 7 * k[2] * std::pow(r, 6) <= 0) fold = r;
  model = TestFixture::modelOf({"fold", RADIAL_3_PARAMETERS, lenses[2].k, 0, 0});
  model.maxValidDistortionRSq = PREC(fold * fold);
  double fitErr = 0;
  for (double frac = 0.995; frac <= 1.0 && !(fitErr > 0.003 && fitErr < 0.008); frac += 0.0002) {
    const double r = fold * frac, rd = r * (1 + k[0] * r * r + k[1] * std::pow(r, 4) + k[2] * std::pow(r, 6));
    model.maxValidUndistortionRSq = PREC(rd * rd);
    const PREC top = std::sqrt(model.maxValidUndistortionRSq);
    fitErr = double(AR::CV::HermiteSplineInterpolation<PREC>().setupHermiteCoeffs(
        AR::CV::UndistortFn<Model>(model), typename TestFixture::Vec2(PREC(0), top * top), 1024, PREC(1e-5)));
  }
  ASSERT_TRUE(fitErr > 0.003 && fitErr < 0.008) << fitErr;
  capture.clear();
  EXPECT_FALSE(cam.init(model));
  EXPECT_EQ(capture.countContaining("AR ERROR: Relative approximation error in undistortion too high (0.00"), 1u);
  model.model = RADIAL_6_PARAMETERS;
  EXPECT_TRUE(cam.init(model) && cam.isInitialized());

  // Empty valid ranges fit trivially but have no factor at 0, which is reported.
  model = TestFixture::modelOf(lenses[1]);
  model.maxValidDistortionRSq = model.maxValidUndistortionRSq = PREC(0);
  EXPECT_TRUE(cam.init(model));
  EXPECT_EQ(capture.countContaining("AR_ASSERT hasDistortionAt0 && distortionAt0>0 CV/src/Camera/Camera("), 1u);

  // A negative limit (a denominator root below 0.1 gives one) leaves no range
  // to fit: no point is tested, so the fit error is 0 and init succeeds, but
  // the camera is not initialised and says so.
  capture.clear();
  model.maxValidDistortionRSq = PREC(-0.05);
  EXPECT_TRUE(cam.init(model));
  EXPECT_FALSE(cam.isInitialized());
  EXPECT_EQ(capture.countContaining("AR_ASSERT isInitialized() CV/src/Camera/Camera("), 1u);
}

TYPED_TEST(CameraTest, LinearCameraIsExactUpToNineFocalLengths) {
  using PREC = TypeParam;
  using Vec2 = typename TestFixture::Vec2;
  typename TestFixture::Cam cam;
  ASSERT_TRUE(TestFixture::make(RecordRig::realisticLenses()[0], cam));
  EXPECT_EQ(TestFixture::splineErrors(cam), std::make_pair(0.0, 0.0));
  EXPECT_EQ(cam.getCorrectedFocalLength(), PREC(280.5));
  EXPECT_EQ(cam.getInvFocalLength(), (PREC(1) / PREC(280) + PREC(1) / PREC(281)) / PREC(2));
  Vec2 ideal, q;
  EXPECT_FALSE(cam.tryPixel2ideal(Vec2(320.5 + 9 * 280, 240.25), ideal));
  ASSERT_TRUE(cam.tryPixel2ideal(Vec2(320.5 + 8.99 * 280, 240.25), ideal));
  EXPECT_NEAR(double(ideal(0)), 8.99, 1e-5);
  // The upper end of the distortion range (a squared radius of 81) is excluded.
  EXPECT_FALSE(cam.tryDistort(Vec2(0, -9), q));
  EXPECT_TRUE(cam.tryDistort(Vec2(std::nextafter(PREC(9), PREC(0)), PREC(0)), q));
  // Pinhole field of view: an extent of 2 f tan(30 deg) spans 60 degrees; the valid circle caps it at 2 atan(9).
  EXPECT_NEAR(double(cam.getFOV(PREC(2 * 280 * std::tan(M_PI / 6)))), M_PI / 3, 2e-5);
  EXPECT_NEAR(double(cam.getFOV(PREC(1e6))), 2 * std::atan(9.0), 2e-5);
  EXPECT_EQ(cam.getFOVPixels(), PREC(280.5 * 9));
}

/// Attribute text or "<absent>".
std::string attr(const tinyxml2::XMLElement* e, const char* name) {
  const char* v = e->Attribute(name);
  return v ? v : "<absent>";
}

TEST(CameraXmlTest, ElementInEachFormat) {
  using Cam = AR::CV::Camera<double>;
  Cam cam;
  ASSERT_TRUE(CameraTest<double>::make(RecordRig::realisticLenses()[2], cam));
  tinyxml2::XMLDocument doc;  // owns every element made below
  const tinyxml2::XMLElement* formats[3] = {cam.toXMLNode(doc, Cam::XML_FORMAT_CURRENT),
                                            cam.toXMLNode(doc, Cam::XML_FORMAT_OLD), cam.toXMLNode(doc, Cam::XML_FORMAT_BOTH)};
  for (int f = 0; f < 3; ++f) {
    const tinyxml2::XMLElement* e = formats[f];
    const bool current = f != 1, old = f != 0;
    EXPECT_STREQ(e->Name(), "Calibration");
    EXPECT_EQ(attr(e, "size"), "640 480 ");
    EXPECT_EQ(attr(e, "principal_point"), "320.5 240.25 ");
    EXPECT_EQ(attr(e, "focal_length"), "280 281 ");
    EXPECT_EQ(attr(e, "fish_eye"), "<absent>");
    EXPECT_EQ(attr(e, "model"), current ? "RADIAL_3_PARAMETERS" : "<absent>");
    EXPECT_EQ(attr(e, "radial_distortion"), current ? "-0.3 0.1 -0.015 0 0 0 " : "<absent>");
    EXPECT_EQ(attr(e, "tangential_distortion"), current ? "0.0004 -0.0003 " : "<absent>");
    EXPECT_EQ(e->DoubleAttribute("undistortion_limit", -1), current ? std::sqrt(cam.getCamModel().maxValidUndistortionRSq) : -1);
    EXPECT_EQ(attr(e, "radial_distortion_8"), old ? "-0.3 0.1 0.0004 -0.0003 -0.015 0 0 0 " : "<absent>");
  }
  // The 4-parameter fisheye is marked in the old form; zero tangential terms are skipped.
  ASSERT_TRUE(CameraTest<double>::make(RecordRig::realisticLenses()[5], cam));
  const tinyxml2::XMLElement* fisheye = cam.toXMLNode(doc, Cam::XML_FORMAT_BOTH);
  EXPECT_EQ(attr(fisheye, "fish_eye"), "true");
  EXPECT_EQ(attr(fisheye, "tangential_distortion"), "<absent>");
}

}  // namespace
