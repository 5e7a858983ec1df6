#include "AR/CV/Stereo/SeeThrough.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "LogCapture.h"
#include "StereoRectifyWrapperTypes.h"

namespace {

using AR::Math::Vector;

/// Independent double-precision rotation of a quaternion (need not be unit).
struct Rot {
  double m[3][3];
  explicit Rot(const XrQuaterniondMRV_t& q) {
    const double n = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
    const double x = q.x / n, y = q.y / n, z = q.z / n, w = q.w / n;
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    std::memcpy(m, r, sizeof(m));
  }
};

CameraCalibrationMRV eyeRecord(int32_t width, int32_t height, double fx, double fy,
                               const XrQuaterniondMRV_t& q, double px, double py, double pz) {
  CameraCalibrationMRV eye;
  std::memset(&eye, 0, sizeof(eye));
  eye.width = width;
  eye.height = height;
  eye.fx = fx;
  eye.fy = fy;
  eye.cx = 0.1 * width;  // off-centre on purpose
  eye.cy = 1.3 * height;
  eye.pose.orientation = q;
  eye.pose.position = {px, py, pz};
  return eye;
}

template <typename T>
class SeeThroughCalibration : public testing::Test {
 protected:
  using SE3 = AR::Math::SE3<T>;
  using Vec3 = Vector<T, 3>;

  static SE3 transform(T wx, T wy, T wz, T tx, T ty, T tz) {
    return SE3::exp(Vector<T, 6>(tx, ty, tz, wx, wy, wz));
  }

  static CamModel::CameraModel<T> trackingModel() {
    CamModel::CameraModel<T> model;
    model.size = Vector<T, 2>(T(640), T(480));
    model.principalPoint = Vector<T, 2>(T(320), T(240));
    model.focalLength = Vector<T, 2>(T(280), T(280));
    model.model = LINEAR;
    model.maxValidDistortionRSq = T(81);
    model.maxValidUndistortionRSq = T(81);
    return model;
  }

  /// A tracking rig: camera 0 at `C0` (the origin unless a test moves it),
  /// camera 1 at C1.
  AR::CV::FullStereoCameraCalibration<T> rig(const SE3& C0 = SE3()) {
    AR::CV::FullStereoCameraCalibration<T> calibration;
    calibration.setupEmptyCalibrationWithDefaultIds(2);
    EXPECT_TRUE(calibration[0].init(trackingModel(), C0, AR::CV::CamImageId("trackingA0"), false, T(0),
                                    AR::CV::CaptureDetails(), 0.0));
    EXPECT_TRUE(calibration[1].init(trackingModel(), C1, AR::CV::CamImageId("trackingB1"), false, T(0),
                                    AR::CV::CaptureDetails(), 0.0));
    return calibration;
  }

  void run(const AR::CV::FullStereoCameraCalibration<T>& calibration, const CameraCalibrationMRV& left,
           const CameraCalibrationMRV& right) {
    AR::CV::makeSeeThroughCalibration<T>(calibration, left, right, deviceFromCam0, eyes, eyePoses);
  }

  static T tol() { return std::is_same<T, float>::value ? T(2e-6) : T(1e-12); }

  const SE3 C1 = transform(T(0.01), T(-0.08), T(0.02), T(-0.1), T(0.002), T(0.003));
  const SE3 deviceFromCam0 = transform(T(3.1), T(0.05), T(-0.02), T(-0.05), T(0.01), T(-0.005));
  const CameraCalibrationMRV left =
      eyeRecord(1280, 1024, 700.0, 710.0, {0.01, -0.02, 0.015, 0.9996}, 0.032, -0.001, -0.012);
  const CameraCalibrationMRV right =
      eyeRecord(1440, 1200, 690.0, 695.0, {-0.012, 0.018, -0.01, 0.9997}, -0.031, 0.0, -0.011);
  AR::CV::FullStereoCameraCalibration<T> eyes;
  std::array<SE3, 2> eyePoses;
};

using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(SeeThroughCalibration, Precisions);

TYPED_TEST(SeeThroughCalibration, EyeCamerasAreCentredDistortionFreeAndNamed) {
  using T = TypeParam;
  this->run(this->rig(), this->left, this->right);
  ASSERT_EQ(this->eyes.size(), 2u);
  EXPECT_EQ(this->eyes[0].getNameStr(), "lefteye");
  EXPECT_EQ(this->eyes[1].getNameStr(), "righteye");
  const CameraCalibrationMRV* records[2] = {&this->left, &this->right};
  for (size_t i = 0; i < 2; ++i) {
    ASSERT_TRUE(this->eyes[i].isInitialized()) << i;
    const AR::CV::Camera<T>& eye = this->eyes[i].getIntrinsics();
    const Vector<T, 2> size(T(records[i]->width), T(records[i]->height));
    EXPECT_EQ(eye.getSize(), size);
    // The record's principal point (off-centre, even outside) is ignored.
    EXPECT_EQ(eye.getPrincipalPoint(), size * T(0.5));
    const Vector<T, 2> focal(T(records[i]->fx), T(records[i]->fy));
    EXPECT_EQ(eye.getOriginalFocalLength(), focal);
    EXPECT_EQ(eye.getRadialDistortionModel(), LINEAR);
    EXPECT_EQ(eye.getRadialDistortionCoeffs(), (Vector<T, 6>()));
    EXPECT_EQ(eye.getTangentialDistortionCoeffs(), (Vector<T, 2>()));
    // The eye camera's pose is the record's pose.
    const Rot R(records[i]->pose.orientation);
    const auto& pose = this->eyes[i].getCamReferenceToLocal();
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(double(pose.rotation().matrix()(r, c)), R.m[r][c], 1e-6);
    }
    const Vector<T, 3> position(T(records[i]->pose.position.x), T(records[i]->pose.position.y),
                                T(records[i]->pose.position.z));
    EXPECT_EQ(pose.translation(), position);
  }
}

TYPED_TEST(SeeThroughCalibration, UnnormalisedQuaternionGivesTheSameRotation) {
  using T = TypeParam;
  const auto calibration = this->rig();
  CameraCalibrationMRV left = this->left, right = this->right;
  left.pose.orientation = {0.5, 0.5, 0.5, 0.5};
  right.pose.orientation = {0.0, 0.0, 0.6, 0.8};
  this->run(calibration, left, right);
  const auto unitEyes = this->eyes;
  const auto unitPoses = this->eyePoses;

  left.pose.orientation = {2.0, 2.0, 2.0, 2.0};
  right.pose.orientation = {0.0, 0.0, 0.06, 0.08};
  AR::CV::FullStereoCameraCalibration<T> scaledEyes;
  std::array<AR::Math::SE3<T>, 2> scaledPoses;
  AR::CV::makeSeeThroughCalibration<T>(calibration, left, right, this->deviceFromCam0, scaledEyes, scaledPoses);
  for (size_t i = 0; i < 2; ++i) {
    const auto& a = unitEyes[i].getCamReferenceToLocal().rotation().matrix();
    const auto& b = scaledEyes[i].getCamReferenceToLocal().rotation().matrix();
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(a(r, c), b(r, c), this->tol());
        EXPECT_NEAR(unitPoses[i].rotation().matrix()(r, c), scaledPoses[i].rotation().matrix()(r, c), this->tol());
      }
  }
}

// Each eye transform takes a point of the flipped eye frame (x right, y
// down, z forward) through the eye's own frame (y up, -z forward) and the
// device into its tracking camera; checked against the records' poses in
// double precision.
TYPED_TEST(SeeThroughCalibration, EyeTransformsCarryTheFlippedEyeFrameIntoTheirTrackingCameras) {
  using T = TypeParam;
  this->run(this->rig(), this->left, this->right);
  const auto& Td = this->deviceFromCam0;
  const CameraCalibrationMRV* records[2] = {&this->left, &this->right};
  const double points[][3] = {{0.0, 0.0, 1.0}, {0.3, -0.2, 2.0}, {-1.0, 0.5, 0.7}};
  for (size_t e = 0; e < 2; ++e) {
    const Rot E(records[e]->pose.orientation);
    const double tE[3] = {records[e]->pose.position.x, records[e]->pose.position.y, records[e]->pose.position.z};
    for (const auto& p : points) {
      const double pEye[3] = {p[0], -p[1], -p[2]};
      // Device point: E^T (pEye - tE).
      double pDev[3];
      for (int r = 0; r < 3; ++r) {
        pDev[r] = 0;
        for (int k = 0; k < 3; ++k) pDev[r] += E.m[k][r] * (pEye[k] - tE[k]);
      }
      // Camera 0 point: Td^-1 pDev = R^T (pDev - t).
      double pCam[3];
      for (int r = 0; r < 3; ++r) {
        pCam[r] = 0;
        for (int k = 0; k < 3; ++k)
          pCam[r] += double(Td.rotation().matrix()(k, r)) * (pDev[k] - double(Td.translation()(k)));
      }
      if (e == 1) {  // on into camera 1
        double q[3];
        for (int r = 0; r < 3; ++r) {
          q[r] = double(this->C1.translation()(r));
          for (int k = 0; k < 3; ++k) q[r] += double(this->C1.rotation().matrix()(r, k)) * pCam[k];
        }
        std::memcpy(pCam, q, sizeof(q));
      }
      const Vector<T, 3> got = this->eyePoses[e] * Vector<T, 3>(T(p[0]), T(p[1]), T(p[2]));
      // The flip is built from single-precision pi in both precisions: an
      // error of 9e-8 rad, so double agrees to about 2e-7 m at these ranges.
      const double tol = std::is_same<T, float>::value ? 1e-5 : 5e-7;
      for (int r = 0; r < 3; ++r) EXPECT_NEAR(double(got(r)), pCam[r], tol) << e;
    }
  }
}

TYPED_TEST(SeeThroughCalibration, LogsTheSizesFocalLengthAndTranslationsAtDebug) {
  AR::Test::LogCapture log;
  this->run(this->rig(), this->left, this->right);
  // The right line repeats the left eye's size.
  EXPECT_TRUE(log.has("AR DEBUG: Left targetSize(1280.000000,1024.000000)\n"));
  EXPECT_TRUE(log.has("AR DEBUG: Right targetSize(1280.000000,1024.000000)\n"));
  EXPECT_TRUE(log.has("AR DEBUG: targetLeftEye: focal length fx, fy = 700.000000, 710.000000\n"));
  EXPECT_TRUE(log.has("AR DEBUG: IMU to left eye translation(0.032000,-0.001000,-0.012000)\n"));
  const auto cam0 = this->deviceFromCam0.inverse().translation();
  EXPECT_TRUE(log.has("AR DEBUG: IMU to left camera translation" +
                      AR::Math::to_string(cam0.template cast<float>()) + "\n"));
  EXPECT_TRUE(log.has("AR DEBUG: " + AR::Math::to_string(this->eyePoses[0].translation().template cast<float>()) +
                      "\n"));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
}

TYPED_TEST(SeeThroughCalibration, RigWhoseCameraZeroIsNotAtTheOriginIsReported) {
  using T = TypeParam;
  {
    AR::Test::LogCapture log;
    this->run(this->rig(this->transform(T(0), T(0.1), T(0), T(0), T(0), T(0))), this->left, this->right);
    EXPECT_EQ(log.countContaining("AR_ASSERT Math::isIdentity(T_ol2ol.rotation().matrix()) "
                                  "CV/include/AR/CV/Stereo/Rectify("),
              1u);
    EXPECT_EQ(log.countContaining("Math::norm(T_ol2ol.translation())==0"), 0u);
  }
  {
    AR::Test::LogCapture log;
    AR::Math::SE3<T> shifted;
    shifted.translation() = Vector<T, 3>(T(0.01), T(0), T(0));
    this->run(this->rig(shifted), this->left, this->right);
    EXPECT_EQ(log.countContaining("Math::isIdentity(T_ol2ol.rotation().matrix())"), 0u);
    EXPECT_EQ(log.countContaining("AR_ASSERT Math::norm(T_ol2ol.translation())==0 "
                                  "CV/include/AR/CV/Stereo/Rectify("),
              1u);
  }
}

TYPED_TEST(SeeThroughCalibration, InvalidEyeRecordIsReportedAsFailedInitialisation) {
  CameraCalibrationMRV badRight = this->right;
  badRight.fx = 0.0;  // not a camera
  AR::Test::LogCapture log;
  this->run(this->rig(), this->left, badRight);
  EXPECT_TRUE(this->eyes[0].isInitialized());
  EXPECT_FALSE(this->eyes[1].isInitialized());
  EXPECT_EQ(log.countContaining("AR_ASSERT result Common/include/AR/Common/Macros(52) void assertSuccess(const bool)"),
            1u);
}

TYPED_TEST(SeeThroughCalibration, ZeroQuaternionIsFatal) {
  CameraCalibrationMRV zero = this->left;
  zero.pose.orientation = {0.0, 0.0, 0.0, 0.0};
  const auto calibration = this->rig();
  EXPECT_DEATH(this->run(calibration, zero, this->right), "length>0");
}

}  // namespace
