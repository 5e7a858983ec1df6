#include "DeviceCalibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "RecordRig.h"
#include "StereoRectifyWrapper.h"

namespace VIO {
namespace {

using RecordRig::Mat3d;
using RecordRig::Vec3d;

XrQuaterniondMRV_t multiply(const XrQuaterniondMRV_t& a, const XrQuaterniondMRV_t& b) {
  return {a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
          a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

// Camera 0 is turned by 2.4 rad about this unit axis, so the rotation vector
// of its inverse is known in closed form.
const double kAxis[3] = {2.0 / 7, 3.0 / 7, 6.0 / 7};

DeviceCalibrationMRV makeDevice() {
  DeviceCalibrationMRV device = RecordRig::makeDevice(RecordRig::realisticLenses()[2]);
  const double s = std::sin(1.2);
  device.cameras[0].pose =
      RecordRig::poseAt({s * kAxis[0], s * kAxis[1], s * kAxis[2], std::cos(1.2)}, Vec3d(-0.05, 0.01, -0.005));
  return device;
}

/// Converts with every frame element pre-set to `fill` (callers normally zero it).
bool convert(const DeviceCalibrationMRV& device, AR::CV::FullStereoCameraCalibration<float>& rig,
             DeviceFrameParams& frame, float fill = 0.0f) {
  for (float& v : frame.values) v = fill;
  testing::internal::CaptureStdout();  // the models print their valid ranges
  const bool ok = deviceToStereoCalibration(&device, rig, frame);
  testing::internal::GetCapturedStdout();
  return ok;
}

void expectPoseNear(const AR::Math::SE3<float>& pose, const Mat3d& R, const Vec3d& t, double tol) {
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(pose.rotation().matrix()(r, c), R(r, c), tol) << r << "," << c;
    EXPECT_NEAR(pose.translation()(r), t(r), tol) << r;
  }
}

template <typename T>
void putAt(std::vector<unsigned char>& bytes, size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

TEST(DeviceRecordLayoutTest, FieldsSitAtTheirByteOffsets) {
  std::vector<unsigned char> bytes(sizeof(DeviceCalibrationMRV), 0xAB);
  const size_t cam = 880 + 312;  // second camera slot
  // Header vectors A[0], B[2], C[0], D[2]; then cx .. noise y; then the pose.
  const size_t doubleAt[] = {200, 240, 272, 312, cam + 72, cam + 88, cam + 104, cam + 144, cam + 152, cam + 176,
                             cam + 192, cam + 216, cam + 224, cam + 240};
  for (size_t i = 0; i < 14; ++i) putAt(bytes, doubleAt[i], 100.0 + i);
  putAt(bytes, 872, uint32_t{2});
  putAt(bytes, cam + 68, int32_t{-7});
  putAt(bytes, cam + 184, int32_t{4});
  putAt(bytes, cam + 304, int64_t{-99});

  DeviceCalibrationMRV d;
  std::memcpy(&d, bytes.data(), sizeof(d));
  const CameraCalibrationMRV& c = d.cameras[1];
  const double read[] = {d.headerVectorA[0], d.headerVectorB[2], d.headerVectorC[0], d.headerVectorD[2],
                         c.cx, c.fx, c.k[0], c.k[5], c.p[0], c.noiseY, c.pose.orientation.x, c.pose.orientation.w,
                         c.pose.position.x, c.pose.position.z};
  for (size_t i = 0; i < 14; ++i) EXPECT_EQ(read[i], 100.0 + i) << "double field " << i;
  EXPECT_TRUE(d.num_cameras == 2u && c.height == -7 && c.distortionModel == 4 && c.cameraIntegerField == -99);
  EXPECT_EQ(c.reserved0[0], 0xAB);  // unread regions keep the caller's bytes
}

TEST(ToXRRDTest, UnnormalisedQuaternionGivesTheSameRotation) {
  const XrQuaterniondMRV_t q{0.2, -0.7, 0.4, 0.55};
  const auto scaled = [&q](double s) { return toXRRD({{s * q.x, s * q.y, s * q.z, s * q.w}, {0.5, -0.25, 2.0}}); };
  for (double s : {1.0, 0.3, 7.0}) expectPoseNear(scaled(s), RecordRig::rotationOf(q), Vec3d(0.5, -0.25, 2.0), 1e-6);
  // Doubling scales by a power of two, which normalisation undoes exactly.
  EXPECT_EQ(scaled(1.0).rotation().matrix(), scaled(2.0).rotation().matrix());
  EXPECT_DEATH(toXRRD({{0, 0, 0, 0}, {1, 2, 3}}), "length>0");
}

TEST(DeviceToStereoCalibrationTest, OnlyTheRelativePoseAndTheIntrinsicsCount) {
  const DeviceCalibrationMRV base = makeDevice();
  DeviceCalibrationMRV moved = base;
  // Every camera-from-device pose T becomes T * M for one motion M of the
  // device frame, and the (unread) noise fields change.
  const XrQuaterniondMRV_t qM{-0.2, 0.35, 0.1, 0.9};
  for (CameraCalibrationMRV& cam : moved.cameras) {
    const Vec3d t = RecordRig::rotationOf(cam.pose.orientation) * Vec3d(1.5, -0.3, 0.25) +
                    RecordRig::positionOf(cam.pose);
    cam.pose = {multiply(cam.pose.orientation, qM), {t(0), t(1), t(2)}};
    cam.noiseX = 100.0;
    cam.noiseY = std::numeric_limits<double>::quiet_NaN();
  }
  // Camera 0 is the reference; camera 1 sits at T1 * T0^-1.
  const Mat3d R0 = RecordRig::rotationOf(base.cameras[0].pose.orientation);
  const Mat3d R = RecordRig::rotationOf(base.cameras[1].pose.orientation) * R0.transpose();
  const Vec3d t = RecordRig::positionOf(base.cameras[1].pose) - R * RecordRig::positionOf(base.cameras[0].pose);
  AR::CV::FullStereoCameraCalibration<float> rigs[2];
  DeviceFrameParams frame;
  ASSERT_TRUE(convert(base, rigs[0], frame) && convert(moved, rigs[1], frame));
  for (const auto& rig : rigs) {
    ASSERT_EQ(rig.size(), 2u);
    EXPECT_TRUE(rig[0].getNameStr() == "trackingA0" && rig[1].getNameStr() == "trackingB1");
    expectPoseNear(rig[0].getCamReferenceToLocal(), Mat3d::identity(), Vec3d(0, 0, 0), 0.0);
    expectPoseNear(rig[1].getCamReferenceToLocal(), R, t, 3e-6);
    for (size_t i = 0; i < 2; ++i) {
      const auto& model = rig[i].getIntrinsics().getCamModel();
      EXPECT_EQ(std::memcmp(&model, &rigs[0][i].getIntrinsics().getCamModel(), sizeof(model)), 0) << i;
    }
  }
}

TEST(DeviceToStereoCalibrationTest, FrameParams) {
  DeviceCalibrationMRV device = makeDevice();
  for (int i = 0; i < 3; ++i) {
    device.headerVectorA[i] = 1.1 * (i + 1);
    device.headerVectorB[i] = -4.4 - i;
    device.headerVectorC[i] = 7.7 + 1e-9 * i;
    device.headerVectorD[i] = std::pow(0.1, i + 1);
    device.reserved1[i] = 1234.0;  // the unread vector
  }
  device.cameras[0].cameraIntegerField = 123456789012;
  device.cameras[1].cameraIntegerField = 5;
  AR::CV::FullStereoCameraCalibration<float> rig;
  DeviceFrameParams frame;
  ASSERT_TRUE(convert(device, rig, frame, 77.0f));
  const float* f = frame.values;
  const XrPosedMRV_t& T0 = device.cameras[0].pose;
  const Vec3d t0 = -(RecordRig::rotationOf(T0.orientation).transpose() * RecordRig::positionOf(T0));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(f[i] == float(device.headerVectorD[i]) && f[3 + i] == float(device.headerVectorB[i]) &&
                f[6 + i] == float(device.headerVectorC[i]) && f[9 + i] == float(device.headerVectorA[i]))
        << i;
    EXPECT_NEAR(f[21 + i], -kAxis[i] * 2.4, 2e-5);  // camera 0's inverse rotation
    EXPECT_NEAR(f[24 + i], t0(i), 1e-6);
  }
  for (int i = 12; i <= 20; ++i) EXPECT_EQ(f[i], 0.0f) << "element " << i;
  EXPECT_EQ(f[27], float(int64_t{123456789012}));
}

TEST(DeviceToStereoCalibrationTest, ARejectedCameraFailsTheConversionButNotTheOther) {
  DeviceCalibrationMRV device = makeDevice();
  device.cameras[0].fx = -5.0;
  device.num_cameras = 0;  // not looked at: both slots are read anyway
  AR::CV::FullStereoCameraCalibration<float> rig;
  DeviceFrameParams frame;
  EXPECT_FALSE(convert(device, rig, frame));
  EXPECT_TRUE(rig.size() == 2u && !rig[0].isInitialized() && rig[0].getNameStr() == "trackingA0" &&
              rig[1].isInitialized());
}

}  // namespace
}  // namespace VIO
