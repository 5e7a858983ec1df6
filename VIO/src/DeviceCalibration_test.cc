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
using RecordRig::positionOf;
using RecordRig::rotationOf;
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

struct Converted {
  AR::CV::FullStereoCameraCalibration<float> rig;
  DeviceFrameParams frame;
  bool ok = false;
};

/// Converts with every frame element pre-set to `fill` (callers normally zero it).
Converted convert(const DeviceCalibrationMRV& device, float fill = 0.0f) {
  Converted out;
  for (float& v : out.frame.values) v = fill;
  testing::internal::CaptureStdout();  // the models print their valid ranges
  out.ok = deviceToStereoCalibration(&device, out.rig, out.frame);
  testing::internal::GetCapturedStdout();
  return out;
}

void expectPoseNear(const AR::Math::SE3<float>& pose, const Mat3d& R, const Vec3d& t, double tol) {
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(pose.rotation().matrix()(r, c), R(r, c), tol) << r << "," << c;
    EXPECT_NEAR(pose.translation()(r), t(r), tol) << r;
  }
}

/// Camera 0 is the reference; camera 1 sits at T1 * T0^-1 of the records in `device`.
void expectRigPoses(const Converted& c, const DeviceCalibrationMRV& device, double tol) {
  expectPoseNear(c.rig[0].getCamReferenceToLocal(), Mat3d::identity(), Vec3d(0, 0, 0), 0.0);
  const Mat3d R = rotationOf(device.cameras[1].pose.orientation) *
                  rotationOf(device.cameras[0].pose.orientation).transpose();
  const Vec3d t = positionOf(device.cameras[1].pose) - R * positionOf(device.cameras[0].pose);
  expectPoseNear(c.rig[1].getCamReferenceToLocal(), R, t, tol);
}

template <typename T>
void putAt(std::vector<unsigned char>& bytes, size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

TEST(DeviceRecordLayoutTest, FieldsSitAtTheirByteOffsets) {
  std::vector<unsigned char> bytes(sizeof(DeviceCalibrationMRV), 0xAB);
  const size_t cam = 880 + 312;  // second camera slot
  putAt(bytes, 200, 1.25);       // header vector A[0]
  putAt(bytes, 240, -2.5);       // header vector B[2]
  putAt(bytes, 272, 3.75);       // header vector C[0]
  putAt(bytes, 312, -4.0);       // header vector D[2]
  putAt(bytes, 872, uint32_t{2});
  putAt(bytes, cam + 64, int32_t{1280});
  putAt(bytes, cam + 68, int32_t{-7});
  for (size_t i = 0; i < 14; ++i) putAt(bytes, cam + 72 + 8 * i, 100.0 + i);  // cx .. noise y
  putAt(bytes, cam + 184, int32_t{4});
  for (size_t i = 0; i < 7; ++i) putAt(bytes, cam + 192 + 8 * i, 114.0 + i);  // the pose
  putAt(bytes, cam + 304, int64_t{-99});

  DeviceCalibrationMRV device;
  std::memcpy(&device, bytes.data(), sizeof(device));
  EXPECT_EQ(device.headerVectorA[0], 1.25);
  EXPECT_EQ(device.headerVectorB[2], -2.5);
  EXPECT_EQ(device.headerVectorC[0], 3.75);
  EXPECT_EQ(device.headerVectorD[2], -4.0);
  EXPECT_EQ(device.num_cameras, 2u);
  const CameraCalibrationMRV& c = device.cameras[1];
  EXPECT_EQ(c.width, 1280);
  EXPECT_EQ(c.height, -7);
  const XrQuaterniondMRV_t& q = c.pose.orientation;
  const double read[] = {c.cx,     c.cy,     c.fx,   c.fy,   c.k[0], c.k[1], c.k[2],
                         c.k[3],   c.k[4],   c.k[5], c.p[0], c.p[1], c.noiseX, c.noiseY,
                         q.x, q.y, q.z, q.w, c.pose.position.x, c.pose.position.y, c.pose.position.z};
  for (size_t i = 0; i < 21; ++i) EXPECT_EQ(read[i], 100.0 + i) << "double field " << i;
  EXPECT_EQ(c.distortionModel, 4);
  EXPECT_EQ(c.cameraIntegerField, -99);
  EXPECT_EQ(c.reserved0[0], 0xAB);  // unread regions keep the caller's bytes
}

TEST(ToXRRDTest, UnnormalisedQuaternionGivesTheSameRotation) {
  const XrQuaterniondMRV_t q{0.2, -0.7, 0.4, 0.55};
  const auto scaled = [&q](double s) { return toXRRD({{s * q.x, s * q.y, s * q.z, s * q.w}, {0.5, -0.25, 2.0}}); };
  for (double s : {1.0, 0.3, 7.0}) expectPoseNear(scaled(s), rotationOf(q), Vec3d(0.5, -0.25, 2.0), 1e-6);
  // Doubling scales by a power of two, which normalisation undoes exactly.
  EXPECT_EQ(scaled(1.0).rotation().matrix(), scaled(2.0).rotation().matrix());
}

TEST(ToXRRDDeathTest, ZeroQuaternionIsFatal) {
  EXPECT_DEATH(toXRRD({{0, 0, 0, 0}, {1, 2, 3}}), "length>0");
}

TEST(DeviceToStereoCalibrationTest, BuildsTheTwoTrackingCameras) {
  const DeviceCalibrationMRV device = makeDevice();
  const Converted c = convert(device);
  ASSERT_TRUE(c.ok);
  ASSERT_EQ(c.rig.size(), 2u);
  EXPECT_EQ(c.rig[0].getNameStr(), "trackingA0");
  EXPECT_EQ(c.rig[1].getNameStr(), "trackingB1");
  expectRigPoses(c, device, 2e-6);
  for (size_t i = 0; i < 2; ++i) {
    const auto& model = c.rig[i].getIntrinsics().getCamModel();
    const CameraCalibrationMRV& rec = device.cameras[i];
    EXPECT_EQ(model.size, AR::Math::Vec2F(640.0f, 480.0f));
    EXPECT_EQ(model.principalPoint, AR::Math::Vec2F(float(rec.cx), float(rec.cy)));
    EXPECT_EQ(model.focalLength, AR::Math::Vec2F(float(rec.fx), float(rec.fy)));
    for (int j = 0; j < 6; ++j) EXPECT_EQ(model.radialDistortionCoeffs(j), float(rec.k[j]));
    EXPECT_EQ(model.tangentialDistortionCoeffs, AR::Math::Vec2F(float(rec.p[0]), float(rec.p[1])));
    EXPECT_EQ(model.model, RADIAL_3_PARAMETERS);
  }
}

TEST(DeviceToStereoCalibrationTest, RigidMotionOnTheDeviceSideChangesNothing) {
  const DeviceCalibrationMRV base = makeDevice();
  DeviceCalibrationMRV moved = base;
  // Every camera-from-device pose T becomes T * M for one motion M of the device frame.
  const XrQuaterniondMRV_t qM{-0.2, 0.35, 0.1, 0.9};
  const Vec3d tM(1.5, -0.3, 0.25);
  for (CameraCalibrationMRV& cam : moved.cameras) {
    const Vec3d t = rotationOf(cam.pose.orientation) * tM + positionOf(cam.pose);
    cam.pose = {multiply(cam.pose.orientation, qM), {t(0), t(1), t(2)}};
  }
  const Converted c = convert(moved);
  ASSERT_TRUE(c.ok);
  expectRigPoses(c, base, 3e-6);
}

TEST(DeviceToStereoCalibrationTest, InputNoiseFieldsAreIgnored) {
  // Without distortion the default variance 81 is not narrowed by the range analysis.
  DeviceCalibrationMRV device = RecordRig::makeDevice(RecordRig::realisticLenses()[0]);
  const Converted plain = convert(device);
  device.cameras[0].noiseX = 100.0;
  device.cameras[1].noiseY = std::numeric_limits<double>::quiet_NaN();
  const Converted noisy = convert(device);
  ASSERT_TRUE(plain.ok && noisy.ok);
  for (size_t i = 0; i < 2; ++i) {
    const auto& model = noisy.rig[i].getIntrinsics().getCamModel();
    EXPECT_EQ(std::memcmp(&model, &plain.rig[i].getIntrinsics().getCamModel(), sizeof(model)), 0) << i;
    EXPECT_EQ(model.maxValidDistortionRSq, 81.0f);
    EXPECT_EQ(model.maxValidUndistortionRSq, 81.0f);
  }
}

TEST(DeviceToStereoCalibrationTest, FrameParams) {
  DeviceCalibrationMRV device = makeDevice();
  const double A[3] = {1.1, 2.2, 3.3}, B[3] = {-4.4, 5.5, -6.6}, C[3] = {7.7, 8.8, 9.9}, D[3] = {0.1, 1e-3, -1e5};
  std::memcpy(device.headerVectorA, A, sizeof(A));
  std::memcpy(device.headerVectorB, B, sizeof(B));
  std::memcpy(device.headerVectorC, C, sizeof(C));
  std::memcpy(device.headerVectorD, D, sizeof(D));
  for (double& v : device.reserved1) v = 1234.0;  // the unread vector
  device.cameras[0].cameraIntegerField = 123456789012;
  device.cameras[1].cameraIntegerField = 5;

  const Converted c = convert(device, 77.0f);
  ASSERT_TRUE(c.ok);
  const float* frame = c.frame.values;
  const Vec3d t0 = -(rotationOf(device.cameras[0].pose.orientation).transpose() * positionOf(device.cameras[0].pose));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(frame[0 + i], float(D[i]));
    EXPECT_EQ(frame[3 + i], float(B[i]));
    EXPECT_EQ(frame[6 + i], float(C[i]));
    EXPECT_EQ(frame[9 + i], float(A[i]));
    EXPECT_NEAR(frame[21 + i], -kAxis[i] * 2.4, 2e-5);  // camera 0's inverse rotation
    EXPECT_NEAR(frame[24 + i], t0(i), 1e-6);
  }
  for (int i = 12; i <= 20; ++i) EXPECT_EQ(frame[i], 0.0f) << "element " << i;
  EXPECT_EQ(frame[27], float(int64_t{123456789012}));
}

TEST(DeviceToStereoCalibrationTest, ARejectedCameraFailsTheConversionButNotTheOther) {
  DeviceCalibrationMRV device = makeDevice();
  device.cameras[0].fx = -5.0;
  device.num_cameras = 0;  // not looked at: both slots are read anyway
  const Converted c = convert(device);
  EXPECT_FALSE(c.ok);
  ASSERT_EQ(c.rig.size(), 2u);
  EXPECT_FALSE(c.rig[0].isInitialized());
  EXPECT_EQ(c.rig[0].getNameStr(), "trackingA0");
  EXPECT_TRUE(c.rig[1].isInitialized());
}

}  // namespace
}  // namespace VIO
