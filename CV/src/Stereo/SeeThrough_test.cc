#include "AR/CV/Stereo/SeeThrough.h"

#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "RecordRig.h"

// How the eye transforms carry a display pixel into its tracking camera is
// checked end to end, against closed-form projections, by the see-through
// map tests; these cover the eye cameras, the log lines and the checks.
namespace {

using AR::Math::Vector;

template <typename T>
class SeeThroughCalibration : public testing::Test {
 protected:
  using SE3 = AR::Math::SE3<T>;

  /// A distortion-free tracking rig with camera 0 at `C0` and camera 1 at the origin.
  static AR::CV::FullStereoCameraCalibration<T> rig(const SE3& C0 = SE3()) {
    CamModel::CameraModel<T> model;
    model.size = model.focalLength = Vector<T, 2>(T(640), T(480));
    model.principalPoint = model.size * T(0.5);
    model.model = LINEAR;
    model.maxValidDistortionRSq = model.maxValidUndistortionRSq = T(81);
    AR::CV::FullStereoCameraCalibration<T> rig;
    rig.setupEmptyCalibrationWithDefaultIds(2);
    for (size_t i = 0; i < 2; ++i)
      EXPECT_TRUE(rig[i].init(model, i ? SE3() : C0, AR::CV::CamImageId("tracking"), false, T(0), {}, 0.0));
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
// and poses; an unnormalised quaternion gives the unit one's rotation.
TYPED_TEST(SeeThroughCalibration, EyeCamerasAreCentredDistortionFreeAndPosedByTheRecords) {
  using T = TypeParam;
  this->left.pose.orientation = {2.0, 2.0, 2.0, 2.0};
  this->right.k[0] = 0.3;  // a display record's lens terms are not read
  this->run();
  ASSERT_EQ(this->eyes.size(), 2u);
  EXPECT_EQ(this->eyes[0].getNameStr(), "lefteye");
  EXPECT_EQ(this->eyes[1].getNameStr(), "righteye");
  for (size_t i = 0; i < 2; ++i) {
    const CameraCalibrationMRV& record = i ? this->right : this->left;
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
}

TYPED_TEST(SeeThroughCalibration, LogsTheSizesFocalLengthAndTranslationsAtDebug) {
  AR::Test::LogCapture log;
  this->run();
  const auto text = [](const auto& v) { return AR::Math::to_string(v.template cast<float>()); };
  for (const std::string& line : std::vector<std::string>{
           "AR DEBUG: Left targetSize(1280.000000,1024.000000)\n",
           "AR DEBUG: Right targetSize(1280.000000,1024.000000)\n",  // the left size, on purpose
           "AR DEBUG: targetLeftEye: focal length fx, fy = 700.000000, 710.000000\n",
           "AR DEBUG: IMU to left eye translation" + text(RecordRig::positionOf(this->left.pose)) + "\n",
           "AR DEBUG: IMU to left camera translation" + text(this->deviceFromCam0.inverse().translation()) + "\n",
           "AR DEBUG: " + text(this->eyePoses[0].translation()) + "\n"})
    EXPECT_TRUE(log.has(line)) << line;
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
}

// A tracking camera 0 away from the origin and an eye that is not a camera
// are reported and the computation goes on; a zero quaternion is fatal.
TYPED_TEST(SeeThroughCalibration, FailedChecksAreReportedAndZeroQuaternionIsFatal) {
  using T = TypeParam;
  const auto moved = this->rig(TestFixture::SE3::exp(Vector<T, 6>(T(0.01), T(0), T(0), T(0), T(0.1), T(0))));
  AR::Test::LogCapture log;
  this->right.fx = 0.0;
  this->run(moved);
  const std::string where = " CV/include/AR/CV/Stereo/Rectify(";
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::isIdentity(T_ol2ol.rotation().matrix())" + where), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT Math::norm(T_ol2ol.translation())==0" + where), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT result Common/include/AR/Common/Macros(52) void assertSuccess(const bool)"),
            1u);
  EXPECT_TRUE(this->eyes[0].isInitialized());
  EXPECT_FALSE(this->eyes[1].isInitialized());

  this->left.pose.orientation = {0.0, 0.0, 0.0, 0.0};
  EXPECT_DEATH(this->run(), "length>0");
}

}  // namespace
