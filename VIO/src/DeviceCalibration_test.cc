#include "DeviceCalibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "StereoRectifyWrapper.h"

namespace VIO {
namespace {

using AR::Math::Matrix;
using AR::Math::Vector;

// Quaternions in double, independent of the code under test.
struct Quat {
  double x, y, z, w;
};

Quat multiply(const Quat& a, const Quat& b) {
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

Quat axisAngle(double ax, double ay, double az, double angle) {
  const double s = std::sin(angle / 2) / std::sqrt(ax * ax + ay * ay + az * az);
  return {ax * s, ay * s, az * s, std::cos(angle / 2)};
}

Quat rotate(const Quat& q, double x, double y, double z) {
  return multiply(multiply(q, {x, y, z, 0.0}), {-q.x, -q.y, -q.z, q.w});
}

XrPosedMRV_t makePose(const Quat& q, double tx, double ty, double tz) {
  XrPosedMRV_t pose;
  pose.orientation = {q.x, q.y, q.z, q.w};
  pose.position = {tx, ty, tz};
  return pose;
}

/// a * b for pose records with unit quaternions: rotation qa*qb, translation Ra*tb + ta.
XrPosedMRV_t compose(const XrPosedMRV_t& a, const XrPosedMRV_t& b) {
  const Quat qa{a.orientation.x, a.orientation.y, a.orientation.z, a.orientation.w};
  const Quat qb{b.orientation.x, b.orientation.y, b.orientation.z, b.orientation.w};
  const Quat t = rotate(qa, b.position.x, b.position.y, b.position.z);
  return makePose(multiply(qa, qb), t.x + a.position.x, t.y + a.position.y, t.z + a.position.z);
}

CameraCalibrationMRV makeCamera(DistortionModel model, double fx, const XrPosedMRV_t& pose) {
  CameraCalibrationMRV camera;
  std::memset(&camera, 0, sizeof(camera));
  camera.width = 640;
  camera.height = 480;
  camera.cx = 318.7;
  camera.cy = 242.1;
  camera.fx = fx;
  camera.fy = fx + 0.8;
  camera.distortionModel = static_cast<int32_t>(model);
  const double fisheye[4] = {-0.0066, 0.0412, -0.0386, 0.0064};
  const double radial[3] = {-0.28, 0.08, -0.01};
  if (model == FISHEYE_4_PARAMETERS) std::memcpy(camera.k, fisheye, sizeof(fisheye));
  if (model == RADIAL_3_PARAMETERS) {
    std::memcpy(camera.k, radial, sizeof(radial));
    camera.p[0] = 0.0004;
    camera.p[1] = -0.0002;
  }
  camera.noiseX = 1.5;
  camera.noiseY = 2.5;
  camera.pose = pose;
  return camera;
}

/// Right camera relative to the left one: 10 cm to the side, a few degrees turned.
XrPosedMRV_t relativePose() {
  return makePose(axisAngle(0.1, 1.0, 0.05, 0.06), -0.1004, 0.0012, 0.0021);
}

XrPosedMRV_t tiltedLeftPose() { return makePose(axisAngle(0.3, -0.2, 0.9, 2.4), 0.031, -0.012, 0.08); }

DeviceCalibrationMRV makeDevice(const XrPosedMRV_t& left = tiltedLeftPose()) {
  DeviceCalibrationMRV device;
  std::memset(&device, 0, sizeof(device));
  device.num_cameras = 2;
  device.cameras[0] = makeCamera(FISHEYE_4_PARAMETERS, 280.5, left);
  device.cameras[1] = makeCamera(RADIAL_3_PARAMETERS, 279.0, compose(relativePose(), left));
  return device;
}

struct Converted {
  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame;
  bool ok = false;
};

/// Converts with `frame` pre-filled with `fill` (the caller normally zeroes it).
Converted convert(const DeviceCalibrationMRV& device, float fill = 0.0f) {
  Converted out;
  for (float& v : out.frame.values) v = fill;
  testing::internal::CaptureStdout();  // the models print their valid ranges
  out.ok = deviceToStereoCalibration(&device, out.calibration, out.frame);
  testing::internal::GetCapturedStdout();
  return out;
}

void expectNearPose(const AR::Math::SE3<float>& a, const AR::Math::SE3<float>& b, float tol) {
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(a.rotation().matrix()(r, c), b.rotation().matrix()(r, c), tol) << r << "," << c;
    EXPECT_NEAR(a.translation()(r), b.translation()(r), tol) << r;
  }
}

void expectIdentityPose(const AR::Math::SE3<float>& pose) {
  EXPECT_EQ(pose.rotation().matrix(), (Matrix<float, 3, 3>::identity()));
  EXPECT_TRUE(AR::Math::isZero(pose.translation()));
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
  const double doubles[] = {11, 12, 13, 14, 0.5, 0, 0, 0, 0, 0.75, 0.01, 0.02, 3, 4};
  for (size_t i = 0; i < 14; ++i) putAt(bytes, cam + 72 + 8 * i, doubles[i]);  // cx .. noise y
  putAt(bytes, cam + 184, int32_t{4});
  putAt(bytes, cam + 192, 0.1);   // orientation x
  putAt(bytes, cam + 216, 0.9);   // orientation w
  putAt(bytes, cam + 224, -0.3);  // position x
  putAt(bytes, cam + 240, 0.7);   // position z
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
  const double read[] = {c.cx,   c.cy,   c.fx,   c.fy,   c.k[0], c.k[1], c.k[2],
                         c.k[3], c.k[4], c.k[5], c.p[0], c.p[1], c.noiseX, c.noiseY};
  for (size_t i = 0; i < 14; ++i) EXPECT_EQ(read[i], doubles[i]) << "double field " << i;
  EXPECT_EQ(c.distortionModel, 4);
  EXPECT_EQ(c.pose.orientation.x, 0.1);
  EXPECT_EQ(c.pose.orientation.w, 0.9);
  EXPECT_EQ(c.pose.position.x, -0.3);
  EXPECT_EQ(c.pose.position.z, 0.7);
  EXPECT_EQ(c.cameraIntegerField, -99);
  // The unread regions keep the caller's bytes.
  EXPECT_EQ(c.reserved0[0], 0xAB);
  EXPECT_EQ(c.padding0[3], 0xAB);
  EXPECT_EQ(device.reserved2[551], 0xAB);
}

TEST(ToXRRDTest, UnnormalisedQuaternionGivesTheSameRotation) {
  const Quat q = axisAngle(0.2, -0.7, 0.4, 1.1);
  const auto unit = toXRRD(makePose(q, 0.5, -0.25, 2.0));
  // Doubling scales by a power of two, which normalisation undoes exactly.
  const auto doubled = toXRRD(makePose({2 * q.x, 2 * q.y, 2 * q.z, 2 * q.w}, 0.5, -0.25, 2.0));
  const auto scaled = toXRRD(makePose({0.3 * q.x, 0.3 * q.y, 0.3 * q.z, 0.3 * q.w}, 0.5, -0.25, 2.0));
  EXPECT_EQ(unit.rotation().matrix(), doubled.rotation().matrix());
  expectNearPose(unit, scaled, 1e-6f);
  EXPECT_EQ(unit.translation(), AR::Math::Vec3F(0.5f, -0.25f, 2.0f));
}

TEST(ToXRRDDeathTest, ZeroQuaternionIsFatal) {
  EXPECT_DEATH(toXRRD(makePose({0, 0, 0, 0}, 1, 2, 3)), "length>0");
}

TEST(DeviceToStereoCalibrationTest, BuildsTheTwoTrackingCameras) {
  const DeviceCalibrationMRV device = makeDevice();
  const Converted c = convert(device);
  ASSERT_TRUE(c.ok);
  ASSERT_EQ(c.calibration.size(), 2u);
  EXPECT_EQ(c.calibration[0].getNameStr(), "trackingA0");
  EXPECT_EQ(c.calibration[1].getNameStr(), "trackingB1");
  EXPECT_TRUE(c.calibration.isInitialized());
  expectIdentityPose(c.calibration[0].getCamReferenceToLocal());
  // Camera 1 relative to camera 0 is T1 * T0^-1: the relative pose the device was built from.
  expectNearPose(c.calibration[1].getCamReferenceToLocal(), toXRRD(relativePose()), 2e-6f);

  const auto& model = c.calibration[1].getIntrinsics().getCamModel();
  const CameraCalibrationMRV& rec = device.cameras[1];
  EXPECT_EQ(model.size, AR::Math::Vec2F(640.0f, 480.0f));
  EXPECT_EQ(model.principalPoint, AR::Math::Vec2F(float(rec.cx), float(rec.cy)));
  EXPECT_EQ(model.focalLength, AR::Math::Vec2F(float(rec.fx), float(rec.fy)));
  EXPECT_EQ(model.radialDistortionCoeffs(2), float(rec.k[2]));
  EXPECT_EQ(model.tangentialDistortionCoeffs, AR::Math::Vec2F(float(rec.p[0]), float(rec.p[1])));
  EXPECT_EQ(model.model, RADIAL_3_PARAMETERS);
  EXPECT_EQ(c.calibration[0].getIntrinsics().getRadialDistortionModel(), FISHEYE_4_PARAMETERS);
  EXPECT_LT(model.maxValidDistortionRSq, 81.0f);  // narrowed by the range analysis
}

TEST(DeviceToStereoCalibrationTest, RigidMotionOnTheDeviceSideChangesNothing) {
  const DeviceCalibrationMRV base = makeDevice();
  DeviceCalibrationMRV moved = base;
  // Camera-from-device poses composed with one motion M on the device side.
  const XrPosedMRV_t M = makePose(axisAngle(-0.4, 0.8, 0.2, 0.7), 1.5, -0.3, 0.25);
  moved.cameras[0].pose = compose(base.cameras[0].pose, M);
  moved.cameras[1].pose = compose(base.cameras[1].pose, M);
  const Converted a = convert(base);
  const Converted b = convert(moved);
  ASSERT_TRUE(a.ok && b.ok);
  expectIdentityPose(b.calibration[0].getCamReferenceToLocal());
  expectNearPose(a.calibration[1].getCamReferenceToLocal(), b.calibration[1].getCamReferenceToLocal(),
                 3e-6f);
}

TEST(DeviceToStereoCalibrationTest, InputNoiseFieldsAreIgnored) {
  DeviceCalibrationMRV a = makeDevice();
  DeviceCalibrationMRV b = a;
  a.cameras[0].noiseX = a.cameras[0].noiseY = 0.0;
  b.cameras[0].noiseX = 100.0;
  b.cameras[1].noiseY = std::numeric_limits<double>::quiet_NaN();
  const Converted ca = convert(a);
  const Converted cb = convert(b);
  ASSERT_TRUE(ca.ok && cb.ok);
  for (size_t i = 0; i < 2; ++i) {
    const auto& ma = ca.calibration[i].getIntrinsics().getCamModel();
    const auto& mb = cb.calibration[i].getIntrinsics().getCamModel();
    EXPECT_EQ(std::memcmp(&ma, &mb, sizeof(ma)), 0) << "camera " << i;
  }
  // A distortion-free camera keeps the default 81 in the variance slots.
  DeviceCalibrationMRV linear = makeDevice();
  linear.cameras[0] = makeCamera(LINEAR, 280.5, tiltedLeftPose());
  const Converted cl = convert(linear);
  const auto& model = cl.calibration[0].getIntrinsics().getCamModel();
  EXPECT_EQ(model.maxValidDistortionRSq, 81.0f);
  EXPECT_EQ(model.maxValidUndistortionRSq, 81.0f);
}

TEST(DeviceToStereoCalibrationTest, FrameParams) {
  DeviceCalibrationMRV device = makeDevice();
  const double A[3] = {1.1, 2.2, 3.3}, B[3] = {-4.4, 5.5, -6.6}, C[3] = {7.7, 8.8, 9.9},
               D[3] = {0.1, 1e-3, -1e5};
  std::memcpy(device.headerVectorA, A, sizeof(A));
  std::memcpy(device.headerVectorB, B, sizeof(B));
  std::memcpy(device.headerVectorC, C, sizeof(C));
  std::memcpy(device.headerVectorD, D, sizeof(D));
  for (double& v : device.reserved1) v = 1234.0;  // the unread vector
  device.cameras[0].cameraIntegerField = 123456789012;
  device.cameras[1].cameraIntegerField = 5;

  const Converted c = convert(device, 77.0f);  // garbage in the elements set to zero
  ASSERT_TRUE(c.ok);
  const float* frame = c.frame.values;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(frame[0 + i], float(D[i]));
    EXPECT_EQ(frame[3 + i], float(B[i]));
    EXPECT_EQ(frame[6 + i], float(C[i]));
    EXPECT_EQ(frame[9 + i], float(A[i]));
  }
  for (int i = 12; i <= 20; ++i) EXPECT_EQ(frame[i], 0.0f) << "element " << i;
  EXPECT_EQ(frame[27], float(int64_t{123456789012}));

  // 21..26: camera 0's inverse pose, as axis times angle and -R0^T t0.
  const XrPosedMRV_t left = tiltedLeftPose();
  const double axis[3] = {0.3, -0.2, 0.9};
  const double n = std::sqrt(0.3 * 0.3 + 0.2 * 0.2 + 0.9 * 0.9);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(frame[21 + i], -axis[i] / n * 2.4, 2e-5);
  const Quat inverse{-left.orientation.x, -left.orientation.y, -left.orientation.z,
                     left.orientation.w};
  const Quat rt = rotate(inverse, left.position.x, left.position.y, left.position.z);
  EXPECT_NEAR(frame[24], -rt.x, 1e-6);
  EXPECT_NEAR(frame[25], -rt.y, 1e-6);
  EXPECT_NEAR(frame[26], -rt.z, 1e-6);
}

TEST(DeviceToStereoCalibrationTest, ARejectedCameraFailsTheConversionButNotTheOther) {
  DeviceCalibrationMRV device = makeDevice();
  device.cameras[0].fx = -5.0;
  device.num_cameras = 0;  // not looked at: both slots are read anyway
  const Converted c = convert(device);
  EXPECT_FALSE(c.ok);
  ASSERT_EQ(c.calibration.size(), 2u);
  EXPECT_FALSE(c.calibration[0].isInitialized());
  EXPECT_EQ(c.calibration[0].getNameStr(), "trackingA0");
  EXPECT_TRUE(c.calibration[1].isInitialized());
}

}  // namespace
}  // namespace VIO
