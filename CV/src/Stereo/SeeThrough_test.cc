#include "AR/CV/Stereo/SeeThrough.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <type_traits>

#include "LogCapture.h"
#include "RecordRig.h"

// The eye transforms are checked end to end, against closed-form projections,
// by the see-through map tests.
namespace {

using AR::Math::Vector;

template <typename T>
class SeeThroughCalibration : public testing::Test {
 protected:
  using SE3 = AR::Math::SE3<T>;

  /// A distortion-free tracking rig, both cameras at the origin.
  static AR::CV::FullStereoCameraCalibration<T> rig() {
    CamModel::CameraModel<T> model;
    model.size = model.focalLength = Vector<T, 2>(T(640), T(480));
    model.principalPoint = model.size * T(0.5);
    model.model = LINEAR;
    model.maxValidDistortionRSq = model.maxValidUndistortionRSq = T(81);
    AR::CV::FullStereoCameraCalibration<T> rig;
    rig.setupEmptyCalibrationWithDefaultIds(2);
    for (size_t i = 0; i < 2; ++i)
      EXPECT_TRUE(rig[i].init(model, SE3(), AR::CV::CamImageId("tracking"), false, T(0), {}, 0.0));
    return rig;
  }

  void run(const AR::CV::FullStereoCameraCalibration<T>& tracking = rig()) {
    AR::CV::makeSeeThroughCalibration<T>(tracking, left, right, deviceFromCam0, eyes, eyePoses);
  }

  const SE3 deviceFromCam0 = SE3::exp(Vector<T, 6>(T(-0.05), T(0.01), T(-0.005), T(3.1), T(0.05), T(-0.02)));
  // Off-centre principal points, on purpose.
  CameraCalibrationMRV left = RecordRig::makeDisplay(1280, 1024, 700, 710, RecordRig::Vec3d(-0.032, 0, 0.01), 0.02);
  CameraCalibrationMRV right = RecordRig::makeDisplay(1440, 1200, 690, 695, RecordRig::Vec3d(0.032, 0, 0.01), -0.01);
  AR::CV::FullStereoCameraCalibration<T> eyes;
  std::array<SE3, 2> eyePoses;
};

using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(SeeThroughCalibration, Precisions);

// Centred, distortion-free eye cameras with the records' sizes, focal lengths
// and poses (an unnormalised quaternion gives the unit one's rotation), and
// the debug lines; the right size line repeats the left size, on purpose.
TYPED_TEST(SeeThroughCalibration, EyeCamerasFollowTheRecordsAndAreLogged) {
  using T = TypeParam;
  this->left.pose.orientation = {2.0, 2.0, 2.0, 2.0};
  this->right.k[0] = 0.3;  // a display record's lens terms are not read
  const auto tracking = this->rig();
  AR::Test::LogCapture log;
  this->run(tracking);
  ASSERT_EQ(this->eyes.size(), 2u);
  for (size_t i = 0; i < 2; ++i) {
    const CameraCalibrationMRV& record = i ? this->right : this->left;
    EXPECT_EQ(this->eyes[i].getNameStr(), i ? "righteye" : "lefteye");
    ASSERT_TRUE(this->eyes[i].isInitialized()) << i;
    const AR::CV::Camera<T>& eye = this->eyes[i].getIntrinsics();
    const Vector<T, 2> size(T(record.width), T(record.height));
    EXPECT_EQ(eye.getSize(), size);
    EXPECT_EQ(eye.getPrincipalPoint(), size * T(0.5));
    EXPECT_EQ(eye.getOriginalFocalLength(), (Vector<T, 2>(T(record.fx), T(record.fy))));
    EXPECT_EQ(eye.getRadialDistortionCoeffs(), (Vector<T, 6>()));
    const RecordRig::Mat3d R = RecordRig::rotationOf(record.pose.orientation);
    const auto& pose = this->eyes[i].getCamReferenceToLocal();
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(double(pose.rotation().matrix()(r, c)), R(r, c), 1e-6) << i;
    EXPECT_EQ(pose.translation(), RecordRig::positionOf(record.pose).template cast<T>());
  }
  const auto text = [](const auto& v) { return AR::Math::to_string(v.template cast<float>()); };
  for (const std::string& line : std::vector<std::string>{
           "AR DEBUG: Left targetSize(1280.000000,1024.000000)\n",
           "AR DEBUG: Right targetSize(1280.000000,1024.000000)\n",
           "AR DEBUG: targetLeftEye: focal length fx, fy = 700.000000, 710.000000\n",
           "AR DEBUG: IMU to left eye translation" + text(RecordRig::positionOf(this->left.pose)) + "\n",
           "AR DEBUG: IMU to left camera translation" + text(this->deviceFromCam0.inverse().translation()) + "\n",
           "AR DEBUG: " + text(this->eyePoses[0].translation()) + "\n"})
    EXPECT_TRUE(log.has(line)) << line;
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
}

// Record doubles beyond the float range arrive as infinities in float (a
// plain conversion would be undefined) and unchanged in double.
TYPED_TEST(SeeThroughCalibration, ValuesBeyondTheFloatRangeBecomeInfinities) {
  using T = TypeParam;
  this->left.pose.position.x = 1e39;
  this->left.pose.position.z = -1e39;
  this->run();
  const Vector<T, 3>& t = this->eyes[0].getCamReferenceToLocal().translation();
  EXPECT_EQ(t(0), T(std::is_same_v<T, float> ? HUGE_VAL : 1e39));
  EXPECT_EQ(t(2), T(std::is_same_v<T, float> ? -HUGE_VAL : -1e39));
  EXPECT_EQ(t(1), T(this->left.pose.position.y));
}

// Both eyes are attempted: one that is not a camera is reported and the other
// is still made. A zero quaternion is fatal.
TYPED_TEST(SeeThroughCalibration, FailedEyeIsReportedAndZeroQuaternionIsFatal) {
  this->right.fx = 0.0;
  AR::Test::LogCapture log;
  this->run();
  EXPECT_EQ(log.countContaining("AR_ASSERT result Common/include/AR/Common/Macros(52) void assertSuccess(const bool)"),
            1u);
  EXPECT_TRUE(this->eyes[0].isInitialized());
  EXPECT_FALSE(this->eyes[1].isInitialized());
  this->left.pose.orientation = {0.0, 0.0, 0.0, 0.0};
  EXPECT_DEATH(this->run(), "length>0");
}

}  // namespace
