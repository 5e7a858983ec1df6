#include "AR/CV/Stereo/SeeThrough.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "LogCapture.h"
#include "StereoRectifyWrapperTypes.h"

namespace {

using AR::Math::Vector;
using Mat3d = AR::Math::Matrix<double, 3, 3>;
using Vec3d = Vector<double, 3>;

/// Rotation of a (not necessarily unit) quaternion, in double.
Mat3d rotationOf(const XrQuaterniondMRV_t& q) {
  const double n = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
  const double x = q.x / n, y = q.y / n, z = q.z / n, w = q.w / n;
  return Mat3d(1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w),  //
               2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w),  //
               2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y));
}

/// An eye record whose principal point is off-centre (even outside) on purpose.
CameraCalibrationMRV eyeRecord(int32_t width, int32_t height, double fx, double fy, const XrQuaterniondMRV_t& q,
                               double px, double py, double pz) {
  CameraCalibrationMRV eye;
  std::memset(&eye, 0, sizeof(eye));
  eye.width = width, eye.height = height, eye.fx = fx, eye.fy = fy;
  eye.cx = 0.1 * width, eye.cy = 1.3 * height;
  eye.pose = XrPosedMRV_t{q, {px, py, pz}};
  return eye;
}

template <typename T>
class SeeThroughCalibration : public testing::Test {
 protected:
  using SE3 = AR::Math::SE3<T>;

  static SE3 transform(double wx, double wy, double wz, double tx, double ty, double tz) {
    return SE3::exp(Vector<T, 6>(T(tx), T(ty), T(tz), T(wx), T(wy), T(wz)));
  }

  /// A distortion-free tracking rig: camera 0 at `C0`, camera 1 at C1.
  AR::CV::FullStereoCameraCalibration<T> rig(const SE3& C0 = SE3()) const {
    CamModel::CameraModel<T> model;
    model.size = Vector<T, 2>(T(640), T(480));
    model.principalPoint = Vector<T, 2>(T(320), T(240));
    model.focalLength = Vector<T, 2>(T(280), T(280));
    model.model = LINEAR;
    model.maxValidDistortionRSq = model.maxValidUndistortionRSq = T(81);
    AR::CV::FullStereoCameraCalibration<T> calibration;
    calibration.setupEmptyCalibrationWithDefaultIds(2);
    const char* ids[2] = {"trackingA0", "trackingB1"};
    for (size_t i = 0; i < 2; ++i)
      EXPECT_TRUE(calibration[i].init(model, i == 0 ? C0 : C1, AR::CV::CamImageId(ids[i]), false, T(0),
                                      AR::CV::CaptureDetails(), 0.0));
    return calibration;
  }

  void run(const AR::CV::FullStereoCameraCalibration<T>& calibration, const CameraCalibrationMRV& leftEye,
           const CameraCalibrationMRV& rightEye) {
    AR::CV::makeSeeThroughCalibration<T>(calibration, leftEye, rightEye, deviceFromCam0, eyes, eyePoses);
  }

  const SE3 C1 = transform(0.01, -0.08, 0.02, -0.1, 0.002, 0.003);
  const SE3 deviceFromCam0 = transform(3.1, 0.05, -0.02, -0.05, 0.01, -0.005);
  CameraCalibrationMRV left = eyeRecord(1280, 1024, 700, 710, {0.01, -0.02, 0.015, 0.9996}, 0.032, -0.001, -0.012);
  CameraCalibrationMRV right = eyeRecord(1440, 1200, 690, 695, {-0.012, 0.018, -0.01, 0.9997}, -0.031, 0.0, -0.011);
  AR::CV::FullStereoCameraCalibration<T> eyes;
  std::array<SE3, 2> eyePoses;
};

using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(SeeThroughCalibration, Precisions);

// Centred, distortion-free eye cameras with the records' sizes, focal
// lengths and poses; an unnormalised quaternion gives the unit one's rotation.
TYPED_TEST(SeeThroughCalibration, EyeCamerasAreCentredDistortionFreeAndPosedByTheRecords) {
  using T = TypeParam;
  this->left.pose.orientation = {2.0, 2.0, 2.0, 2.0};
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
    EXPECT_EQ(eye.getPrincipalPoint(), size * T(0.5));
    EXPECT_EQ(eye.getOriginalFocalLength(), (Vector<T, 2>(T(records[i]->fx), T(records[i]->fy))));
    EXPECT_EQ(eye.getRadialDistortionCoeffs(), (Vector<T, 6>()));
    EXPECT_EQ(eye.getTangentialDistortionCoeffs(), (Vector<T, 2>()));
    const Mat3d R = rotationOf(records[i]->pose.orientation);
    const auto& pose = this->eyes[i].getCamReferenceToLocal();
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(double(pose.rotation().matrix()(r, c)), R(r, c), 1e-6) << i;
    const auto& p = records[i]->pose.position;
    EXPECT_EQ(pose.translation(), (Vector<T, 3>(T(p.x), T(p.y), T(p.z))));
  }
}

// Each eye transform takes a point of the flipped eye frame (x right, y
// down, z forward) through the eye's own frame (y up, -z forward) and the
// device into its tracking camera: checked against the records in double.
TYPED_TEST(SeeThroughCalibration, EyeTransformsCarryTheFlippedEyeFrameIntoTheirTrackingCameras) {
  using T = TypeParam;
  this->run(this->rig(), this->left, this->right);
  const Mat3d RT = this->deviceFromCam0.rotation().matrix().template cast<double>();
  const Vec3d tT = this->deviceFromCam0.translation().template cast<double>();
  const CameraCalibrationMRV* records[2] = {&this->left, &this->right};
  for (size_t e = 0; e < 2; ++e) {
    const auto& pos = records[e]->pose.position;
    for (const Vec3d& p : {Vec3d(0.0, 0.0, 1.0), Vec3d(0.3, -0.2, 2.0), Vec3d(-1.0, 0.5, 0.7)}) {
      const Vec3d pDevice = rotationOf(records[e]->pose.orientation).transpose() *
                            (Vec3d(p(0), -p(1), -p(2)) - Vec3d(pos.x, pos.y, pos.z));
      Vec3d expected = RT.transpose() * (pDevice - tT);
      if (e == 1)
        expected = this->C1.rotation().matrix().template cast<double>() * expected +
                   this->C1.translation().template cast<double>();
      const Vector<T, 3> got = this->eyePoses[e] * Vector<T, 3>(T(p(0)), T(p(1)), T(p(2)));
      // The flip is built from single-precision pi: 9e-8 rad off in double.
      const double tol = std::is_same<T, float>::value ? 1e-5 : 5e-7;
      for (int r = 0; r < 3; ++r) EXPECT_NEAR(double(got(r)), expected(r), tol) << e;
    }
  }
}

TYPED_TEST(SeeThroughCalibration, LogsTheSizesFocalLengthAndTranslationsAtDebug) {
  const auto calibration = this->rig();
  AR::Test::LogCapture log;
  this->run(calibration, this->left, this->right);
  const auto text = [](const auto& v) { return AR::Math::to_string(v.template cast<float>()); };
  for (const std::string& line : std::vector<std::string>{
      "AR DEBUG: Left targetSize(1280.000000,1024.000000)\n",
      "AR DEBUG: Right targetSize(1280.000000,1024.000000)\n",  // the left size, on purpose
      "AR DEBUG: targetLeftEye: focal length fx, fy = 700.000000, 710.000000\n",
      "AR DEBUG: IMU to left eye translation(0.032000,-0.001000,-0.012000)\n",
      "AR DEBUG: IMU to left camera translation" + text(this->deviceFromCam0.inverse().translation()) + "\n",
      "AR DEBUG: " + text(this->eyePoses[0].translation()) + "\n"})
    EXPECT_TRUE(log.has(line)) << line;
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
}

TYPED_TEST(SeeThroughCalibration, FailedChecksAreReportedAndZeroQuaternionIsFatal) {
  {
    AR::Test::LogCapture log;
    this->run(this->rig(this->transform(0, 0.1, 0, 0.01, 0, 0)), this->left, this->right);
    const std::string where = " CV/include/AR/CV/Stereo/Rectify(";
    EXPECT_EQ(log.countContaining("AR_ASSERT Math::isIdentity(T_ol2ol.rotation().matrix())" + where), 1u);
    EXPECT_EQ(log.countContaining("AR_ASSERT Math::norm(T_ol2ol.translation())==0" + where), 1u);
  }
  {
    CameraCalibrationMRV badRight = this->right;
    badRight.fx = 0.0;  // not a camera
    AR::Test::LogCapture log;
    this->run(this->rig(), this->left, badRight);
    EXPECT_TRUE(this->eyes[0].isInitialized());
    EXPECT_FALSE(this->eyes[1].isInitialized());
    EXPECT_EQ(log.countContaining("AR_ASSERT result Common/include/AR/Common/Macros(52) "
                                  "void assertSuccess(const bool)"),
              1u);
  }
  const auto calibration = this->rig();
  this->left.pose.orientation = {0.0, 0.0, 0.0, 0.0};
  EXPECT_DEATH(this->run(calibration, this->left, this->right), "length>0");
}

}  // namespace
