#include "DeviceCalibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "LogCapture.h"
#include "StereoRectifyWrapper.h"

extern "C" {
size_t srwTestCSizeOfPose(void);
size_t srwTestCSizeOfCamera(void);
size_t srwTestCSizeOfDevice(void);
size_t srwTestCSizeOfFrameParams(void);
size_t srwTestCOffsetOfCameraPose(void);
size_t srwTestCOffsetOfCameraIntegerField(void);
size_t srwTestCOffsetOfNumCameras(void);
size_t srwTestCOffsetOfSecondCamera(void);
void srwTestCFillCamera(CameraCalibrationMRV* camera);
}

namespace VIO {
namespace {

using AR::Math::Matrix;
using AR::Math::Vector;

// ---------------------------------------------------------------------------
// Helpers: quaternions in double, independent of the code under test.

struct Quat {
  double x, y, z, w;
};

Quat multiply(const Quat& a, const Quat& b) {
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

Quat axisAngle(double ax, double ay, double az, double angle) {
  const double n = std::sqrt(ax * ax + ay * ay + az * az);
  const double s = std::sin(angle / 2) / n;
  return {ax * s, ay * s, az * s, std::cos(angle / 2)};
}

/// Rotates v by the unit quaternion q.
void rotate(const Quat& q, const double v[3], double out[3]) {
  const Quat p{v[0], v[1], v[2], 0.0};
  const Quat conj{-q.x, -q.y, -q.z, q.w};
  const Quat r = multiply(multiply(q, p), conj);
  out[0] = r.x;
  out[1] = r.y;
  out[2] = r.z;
}

XrPosedMRV_t makePose(const Quat& q, double tx, double ty, double tz) {
  XrPosedMRV_t pose;
  pose.orientation.x = q.x;
  pose.orientation.y = q.y;
  pose.orientation.z = q.z;
  pose.orientation.w = q.w;
  pose.position.x = tx;
  pose.position.y = ty;
  pose.position.z = tz;
  return pose;
}

/// pose_a * pose_b for pose records (unit quaternions): rotation qa*qb,
/// translation Ra*tb + ta.
XrPosedMRV_t compose(const XrPosedMRV_t& a, const XrPosedMRV_t& b) {
  const Quat qa{a.orientation.x, a.orientation.y, a.orientation.z, a.orientation.w};
  const Quat qb{b.orientation.x, b.orientation.y, b.orientation.z, b.orientation.w};
  const double tb[3] = {b.position.x, b.position.y, b.position.z};
  double rtb[3];
  rotate(qa, tb, rtb);
  return makePose(multiply(qa, qb), rtb[0] + a.position.x, rtb[1] + a.position.y,
                  rtb[2] + a.position.z);
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
  if (model == FISHEYE_4_PARAMETERS) {
    camera.k[0] = -0.0066;
    camera.k[1] = 0.0412;
    camera.k[2] = -0.0386;
    camera.k[3] = 0.0064;
  } else if (model == RADIAL_3_PARAMETERS) {
    camera.k[0] = -0.28;
    camera.k[1] = 0.08;
    camera.k[2] = -0.01;
    camera.p[0] = 0.0004;
    camera.p[1] = -0.0002;
  }
  camera.noiseX = 1.5;
  camera.noiseY = 2.5;
  camera.pose = pose;
  return camera;
}

/// A two-camera device: left camera at `left`, right camera 10 cm to the
/// side and turned by a few degrees.
DeviceCalibrationMRV makeDevice(const XrPosedMRV_t& left) {
  DeviceCalibrationMRV device;
  std::memset(&device, 0, sizeof(device));
  device.num_cameras = 2;
  const XrPosedMRV_t relative = makePose(axisAngle(0.1, 1.0, 0.05, 0.06), -0.1004, 0.0012, 0.0021);
  device.cameras[0] = makeCamera(FISHEYE_4_PARAMETERS, 280.5, left);
  device.cameras[1] = makeCamera(RADIAL_3_PARAMETERS, 279.0, compose(relative, left));
  return device;
}

XrPosedMRV_t tiltedLeftPose() {
  return makePose(axisAngle(0.3, -0.2, 0.9, 2.4), 0.031, -0.012, 0.08);
}

struct Converted {
  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame;
  bool ok = false;
};

Converted convert(const DeviceCalibrationMRV& device) {
  Converted out;
  std::memset(&out.frame, 0, sizeof(out.frame));
  testing::internal::CaptureStdout();  // the models print their valid ranges
  out.ok = deviceToStereoCalibration(&device, out.calibration, out.frame);
  testing::internal::GetCapturedStdout();
  return out;
}

void expectNearMatrix(const Matrix<float, 3, 3>& a, const Matrix<float, 3, 3>& b, float tol) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(a(r, c), b(r, c), tol) << "(" << r << "," << c << ")";
}

// ---------------------------------------------------------------------------
// Record layouts

template <typename T>
void putAt(std::vector<unsigned char>& bytes, size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

TEST(DeviceRecordLayoutTest, FieldsSitAtTheirByteOffsets) {
  std::vector<unsigned char> bytes(sizeof(DeviceCalibrationMRV), 0xAB);
  putAt(bytes, 200, 1.25);  // header vector A[0]
  putAt(bytes, 240, -2.5);  // header vector B[2]
  putAt(bytes, 272, 3.75);  // header vector C[0]
  putAt(bytes, 312, -4.0);  // header vector D[2]
  putAt(bytes, 872, uint32_t{2});
  const size_t cam1 = 880 + 312;
  putAt(bytes, cam1 + 64, int32_t{1280});
  putAt(bytes, cam1 + 68, int32_t{-7});
  putAt(bytes, cam1 + 72, 11.0);   // cx
  putAt(bytes, cam1 + 80, 12.0);   // cy
  putAt(bytes, cam1 + 88, 13.0);   // fx
  putAt(bytes, cam1 + 96, 14.0);   // fy
  putAt(bytes, cam1 + 104, 0.5);   // k1
  putAt(bytes, cam1 + 144, 0.75);  // k6
  putAt(bytes, cam1 + 152, 0.01);  // p1
  putAt(bytes, cam1 + 160, 0.02);  // p2
  putAt(bytes, cam1 + 168, 3.0);   // noise x
  putAt(bytes, cam1 + 176, 4.0);   // noise y
  putAt(bytes, cam1 + 184, int32_t{4});
  putAt(bytes, cam1 + 192, 0.1);   // orientation x
  putAt(bytes, cam1 + 216, 0.9);   // orientation w
  putAt(bytes, cam1 + 224, -0.3);  // position x
  putAt(bytes, cam1 + 240, 0.7);   // position z
  putAt(bytes, cam1 + 304, int64_t{-99});

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
  EXPECT_EQ(c.cx, 11.0);
  EXPECT_EQ(c.cy, 12.0);
  EXPECT_EQ(c.fx, 13.0);
  EXPECT_EQ(c.fy, 14.0);
  EXPECT_EQ(c.k[0], 0.5);
  EXPECT_EQ(c.k[5], 0.75);
  EXPECT_EQ(c.p[0], 0.01);
  EXPECT_EQ(c.p[1], 0.02);
  EXPECT_EQ(c.noiseX, 3.0);
  EXPECT_EQ(c.noiseY, 4.0);
  EXPECT_EQ(c.distortionModel, 4);
  EXPECT_EQ(c.pose.orientation.x, 0.1);
  EXPECT_EQ(c.pose.orientation.w, 0.9);
  EXPECT_EQ(c.pose.position.x, -0.3);
  EXPECT_EQ(c.pose.position.z, 0.7);
  EXPECT_EQ(c.cameraIntegerField, -99);
  // The unread regions keep the caller's bytes.
  EXPECT_EQ(c.reserved0[0], 0xAB);
  EXPECT_EQ(c.padding0[3], 0xAB);
  EXPECT_EQ(device.reserved0[199], 0xAB);
  EXPECT_EQ(device.reserved2[551], 0xAB);
}

TEST(DeviceRecordLayoutTest, CAndCppAgree) {
  EXPECT_EQ(srwTestCSizeOfPose(), sizeof(XrPosedMRV_t));
  EXPECT_EQ(srwTestCSizeOfCamera(), 312u);
  EXPECT_EQ(srwTestCSizeOfDevice(), 1504u);
  EXPECT_EQ(srwTestCSizeOfFrameParams(), 112u);
  EXPECT_EQ(srwTestCOffsetOfCameraPose(), 192u);
  EXPECT_EQ(srwTestCOffsetOfCameraIntegerField(), 304u);
  EXPECT_EQ(srwTestCOffsetOfNumCameras(), 872u);
  EXPECT_EQ(srwTestCOffsetOfSecondCamera(), 1192u);

  CameraCalibrationMRV camera;
  std::memset(&camera, 0, sizeof(camera));
  srwTestCFillCamera(&camera);
  unsigned char raw[sizeof(camera)];
  std::memcpy(raw, &camera, sizeof(camera));
  int32_t width;
  double fx, k6, p2, w, z;
  int64_t integer;
  std::memcpy(&width, raw + 64, 4);
  std::memcpy(&fx, raw + 88, 8);
  std::memcpy(&k6, raw + 144, 8);
  std::memcpy(&p2, raw + 160, 8);
  std::memcpy(&w, raw + 216, 8);
  std::memcpy(&z, raw + 240, 8);
  std::memcpy(&integer, raw + 304, 8);
  EXPECT_EQ(width, 640);
  EXPECT_EQ(fx, 250.5);
  EXPECT_EQ(k6, -0.25);
  EXPECT_EQ(p2, 0.125);
  EXPECT_EQ(w, 1.0);
  EXPECT_EQ(z, -0.5);
  EXPECT_EQ(integer, -1234567890123);
}

// ---------------------------------------------------------------------------
// toXRRD

TEST(ToXRRDTest, UnnormalisedQuaternionGivesTheSameRotation) {
  const Quat q = axisAngle(0.2, -0.7, 0.4, 1.1);
  const XrPosedMRV_t unit = makePose(q, 0.5, -0.25, 2.0);
  const XrPosedMRV_t doubled = makePose({2 * q.x, 2 * q.y, 2 * q.z, 2 * q.w}, 0.5, -0.25, 2.0);
  const XrPosedMRV_t scaled =
      makePose({0.3 * q.x, 0.3 * q.y, 0.3 * q.z, 0.3 * q.w}, 0.5, -0.25, 2.0);
  const auto a = toXRRD(unit);
  const auto b = toXRRD(doubled);
  // Doubling scales by a power of two, which normalisation undoes exactly.
  EXPECT_EQ(a.rotation().matrix(), b.rotation().matrix());
  expectNearMatrix(a.rotation().matrix(), toXRRD(scaled).rotation().matrix(), 1e-6f);
  EXPECT_EQ(a.translation(), AR::Math::Vec3F(0.5f, -0.25f, 2.0f));
}

TEST(ToXRRDTest, QuaternionConvention) {
  // 90 degrees about z (scalar part last) turns x into y.
  const auto T = toXRRD(makePose(axisAngle(0, 0, 1, M_PI / 2), 0, 0, 0));
  const Vector<float, 3> y = T.rotation().matrix() * Vector<float, 3>(1.0f, 0.0f, 0.0f);
  EXPECT_NEAR(y(0), 0.0f, 1e-6f);
  EXPECT_NEAR(y(1), 1.0f, 1e-6f);
  EXPECT_NEAR(y(2), 0.0f, 1e-6f);
  // The result is a rotation to float precision.
  const auto R = toXRRD(tiltedLeftPose()).rotation().matrix();
  EXPECT_LT(AR::Math::orthogonalityError(R), 1e-6f);
  EXPECT_NEAR(AR::Math::determinant(R), 1.0f, 1e-6f);
}

TEST(ToXRRDDeathTest, ZeroQuaternionIsFatal) {
  const XrPosedMRV_t zero = makePose({0, 0, 0, 0}, 1, 2, 3);
  EXPECT_DEATH(toXRRD(zero), "length>0");
}

TEST(ToXRRDTest, PoseRecordRoundTrip) {
  // Including rotations near pi, where the quaternion's scalar part vanishes.
  const Quat rotations[] = {axisAngle(1, 0, 0, 0.0),         axisAngle(0.3, -0.2, 0.9, 2.4),
                            axisAngle(1, 0, 0, M_PI),        axisAngle(0, 1, 0, M_PI - 1e-3),
                            axisAngle(0.2, 0.2, -1, 3.1415), axisAngle(-0.5, 0.1, 0.3, 0.01)};
  for (const Quat& q : rotations) {
    const XrPosedMRV_t record = makePose(q, -0.1, 0.2, 0.3);
    const auto T = toXRRD(record);
    const XrPosedMRV_t back = toPoseRecord(T);
    expectNearMatrix(toXRRD(back).rotation().matrix(), T.rotation().matrix(), 2e-6f);
    EXPECT_GE(back.orientation.w, 0.0);
    EXPECT_NEAR(back.position.y, 0.2, 1e-7);
  }
}

// ---------------------------------------------------------------------------
// deviceToStereoCalibration

TEST(DeviceToStereoCalibrationTest, BuildsTheTwoTrackingCameras) {
  const DeviceCalibrationMRV device = makeDevice(tiltedLeftPose());
  const Converted c = convert(device);
  ASSERT_TRUE(c.ok);
  ASSERT_EQ(c.calibration.size(), 2u);
  EXPECT_EQ(c.calibration[0].getNameStr(), "trackingA0");
  EXPECT_EQ(c.calibration[1].getNameStr(), "trackingB1");
  EXPECT_TRUE(c.calibration.isInitialized());

  const auto& pose0 = c.calibration[0].getCamReferenceToLocal();
  EXPECT_EQ(pose0.rotation().matrix(), (Matrix<float, 3, 3>::identity()));
  EXPECT_TRUE(AR::Math::isZero(pose0.translation()));

  const auto& model = c.calibration[1].getIntrinsics().getCamModel();
  const CameraCalibrationMRV& rec = device.cameras[1];
  EXPECT_EQ(model.size, AR::Math::Vec2F(640.0f, 480.0f));
  EXPECT_EQ(model.principalPoint, AR::Math::Vec2F(float(rec.cx), float(rec.cy)));
  EXPECT_EQ(model.focalLength, AR::Math::Vec2F(float(rec.fx), float(rec.fy)));
  EXPECT_EQ(model.radialDistortionCoeffs(2), float(rec.k[2]));
  EXPECT_EQ(model.tangentialDistortionCoeffs, AR::Math::Vec2F(float(rec.p[0]), float(rec.p[1])));
  EXPECT_EQ(model.model, RADIAL_3_PARAMETERS);
  EXPECT_EQ(c.calibration[0].getIntrinsics().getRadialDistortionModel(), FISHEYE_4_PARAMETERS);
  EXPECT_LT(model.maxValidDistortionRSq, 81.0f);  // narrowed

  // Camera 1 relative to camera 0 is T1 * T0^-1, here the relative pose the
  // device was built from.
  const auto relative = toXRRD(makePose(axisAngle(0.1, 1.0, 0.05, 0.06), -0.1004, 0.0012, 0.0021));
  const auto& pose1 = c.calibration[1].getCamReferenceToLocal();
  expectNearMatrix(pose1.rotation().matrix(), relative.rotation().matrix(), 2e-6f);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(pose1.translation()(i), relative.translation()(i), 2e-6f);
}

TEST(DeviceToStereoCalibrationTest, RigidMotionOnTheDeviceSideChangesNothing) {
  const DeviceCalibrationMRV base = makeDevice(tiltedLeftPose());
  DeviceCalibrationMRV moved = base;
  // Camera-from-device poses composed with one motion M on the device side.
  const XrPosedMRV_t M = makePose(axisAngle(-0.4, 0.8, 0.2, 0.7), 1.5, -0.3, 0.25);
  moved.cameras[0].pose = compose(base.cameras[0].pose, M);
  moved.cameras[1].pose = compose(base.cameras[1].pose, M);

  const Converted a = convert(base);
  const Converted b = convert(moved);
  ASSERT_TRUE(a.ok && b.ok);
  EXPECT_EQ(b.calibration[0].getCamReferenceToLocal().rotation().matrix(),
            (Matrix<float, 3, 3>::identity()));
  EXPECT_TRUE(AR::Math::isZero(b.calibration[0].getCamReferenceToLocal().translation()));
  const auto& pa = a.calibration[1].getCamReferenceToLocal();
  const auto& pb = b.calibration[1].getCamReferenceToLocal();
  expectNearMatrix(pa.rotation().matrix(), pb.rotation().matrix(), 3e-6f);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(pa.translation()(i), pb.translation()(i), 3e-6f);
}

TEST(DeviceToStereoCalibrationTest, InputNoiseFieldsAreIgnored) {
  DeviceCalibrationMRV a = makeDevice(tiltedLeftPose());
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
    EXPECT_EQ(std::memcmp(&ma, &mb, sizeof(ma)), 0);
  }
  EXPECT_EQ(kDeviceCameraNoiseVariance, 81.0f);
}

TEST(DeviceToStereoCalibrationTest, FrameParams) {
  DeviceCalibrationMRV device = makeDevice(tiltedLeftPose());
  const double A[3] = {1.1, 2.2, 3.3}, B[3] = {-4.4, 5.5, -6.6}, C[3] = {7.7, 8.8, 9.9},
               D[3] = {0.1, 1e-3, -1e5};
  std::memcpy(device.headerVectorA, A, sizeof(A));
  std::memcpy(device.headerVectorB, B, sizeof(B));
  std::memcpy(device.headerVectorC, C, sizeof(C));
  std::memcpy(device.headerVectorD, D, sizeof(D));
  for (double& v : device.reserved1) v = 1234.0;  // the unread vector
  device.cameras[0].cameraIntegerField = 123456789012;
  device.cameras[1].cameraIntegerField = 5;

  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame;
  // Garbage in the elements the conversion sets to zero.
  for (float& v : frame.values) v = 77.0f;
  testing::internal::CaptureStdout();
  ASSERT_TRUE(deviceToStereoCalibration(&device, calibration, frame));
  testing::internal::GetCapturedStdout();

  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(frame.values[0 + i], float(D[i]));
    EXPECT_EQ(frame.values[3 + i], float(B[i]));
    EXPECT_EQ(frame.values[6 + i], float(C[i]));
    EXPECT_EQ(frame.values[9 + i], float(A[i]));
  }
  for (int i = 12; i <= 20; ++i) EXPECT_EQ(frame.values[i], 0.0f) << "element " << i;
  EXPECT_EQ(frame.values[27], float(int64_t{123456789012}));

  // 21..26: camera 0's inverse pose, axis-angle and -R0^T t0.
  const XrPosedMRV_t left = tiltedLeftPose();
  const Quat inverse{-left.orientation.x, -left.orientation.y, -left.orientation.z,
                     left.orientation.w};
  const double angle = 2.4;
  const double axis[3] = {0.3, -0.2, 0.9};
  const double n = std::sqrt(0.3 * 0.3 + 0.2 * 0.2 + 0.9 * 0.9);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(frame.values[21 + i], -axis[i] / n * angle, 2e-5);
  const double t0[3] = {left.position.x, left.position.y, left.position.z};
  double rt[3];
  rotate(inverse, t0, rt);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(frame.values[24 + i], -rt[i], 1e-6);
}

TEST(DeviceToStereoCalibrationTest, ARejectedCameraFailsTheConversionButNotTheOther) {
  DeviceCalibrationMRV device = makeDevice(tiltedLeftPose());
  device.cameras[0].fx = -5.0;
  device.num_cameras = 0;  // not looked at: both slots are read anyway
  const Converted c = convert(device);
  EXPECT_FALSE(c.ok);
  ASSERT_EQ(c.calibration.size(), 2u);
  EXPECT_FALSE(c.calibration[0].isInitialized());
  EXPECT_EQ(c.calibration[0].getNameStr(), "trackingA0");
  EXPECT_TRUE(c.calibration[1].isInitialized());
}

TEST(DeviceToStereoCalibrationTest, LeftCameraAtIdentityKeepsTheRightPose) {
  const XrPosedMRV_t identity = makePose({0, 0, 0, 1}, 0, 0, 0);
  const DeviceCalibrationMRV device = makeDevice(identity);
  const Converted c = convert(device);
  ASSERT_TRUE(c.ok);
  for (int i = 21; i <= 26; ++i) EXPECT_EQ(c.frame.values[i], 0.0f);
  const auto direct = toXRRD(device.cameras[1].pose);
  const auto& pose1 = c.calibration[1].getCamReferenceToLocal();
  expectNearMatrix(pose1.rotation().matrix(), direct.rotation().matrix(), 1e-6f);
  EXPECT_EQ(pose1.translation(), direct.translation());
}

// ---------------------------------------------------------------------------
// Records built from a rig

TEST(MakeDeviceCalibrationTest, RecordConvertsBackToTheRig) {
  const Converted original = convert(makeDevice(tiltedLeftPose()));
  ASSERT_TRUE(original.ok);

  DeviceCalibrationMRV device;
  std::string error;
  ASSERT_TRUE(makeDeviceCalibration(original.calibration, device, &error)) << error;
  EXPECT_EQ(device.num_cameras, 2u);
  EXPECT_EQ(device.cameras[0].width, 640);
  EXPECT_EQ(device.cameras[0].distortionModel, int32_t(FISHEYE_4_PARAMETERS));
  EXPECT_EQ(device.cameras[1].p[0], double(float(0.0004)));
  EXPECT_EQ(device.cameras[1].noiseX, 9.0);
  EXPECT_EQ(device.cameras[0].pose.orientation.w, 1.0);

  const Converted back = convert(device);
  ASSERT_TRUE(back.ok);
  for (size_t i = 0; i < 2; ++i) {
    const auto& ma = original.calibration[i].getIntrinsics().getCamModel();
    const auto& mb = back.calibration[i].getIntrinsics().getCamModel();
    EXPECT_EQ(std::memcmp(&ma, &mb, sizeof(ma)), 0) << "camera " << i;
    expectNearMatrix(original.calibration[i].getCamReferenceToLocal().rotation().matrix(),
                     back.calibration[i].getCamReferenceToLocal().rotation().matrix(), 1e-6f);
  }
}

TEST(MakeDeviceCalibrationTest, RefusesRigsThatDoNotFit) {
  const Converted original = convert(makeDevice(tiltedLeftPose()));
  DeviceCalibrationMRV device;
  std::memset(&device, 0x5A, sizeof(device));
  const DeviceCalibrationMRV before = device;
  std::string error;

  auto three = original.calibration;
  three.setupEmptyCalibrationWithDefaultIds(3);
  EXPECT_FALSE(makeDeviceCalibration(three, device, &error));
  EXPECT_EQ(error, "a device record holds exactly 2 cameras, the calibration has 3");

  AR::CV::FullStereoCameraCalibration<float> placeholders;
  placeholders.setupEmptyCalibrationWithDefaultIds(2);
  EXPECT_FALSE(makeDeviceCalibration(placeholders, device, &error));
  EXPECT_EQ(error, "camera 0 ('default_cam_0') is not initialised");
  EXPECT_EQ(std::memcmp(&device, &before, sizeof(device)), 0);
}

TEST(MakeDeviceCalibrationTest, ExampleRigThroughTheDeviceRecord) {
  AR::CV::FullStereoCameraCalibration<double> rig;
  AR::CV::DisplayEyes eyes;
  std::string error;
  testing::internal::CaptureStdout();
  const bool loaded = AR::CV::loadCameraCalibFromDeviceConfig(AR_EXAMPLE_RIG, rig, &eyes, &error);
  testing::internal::GetCapturedStdout();
  ASSERT_TRUE(loaded) << error;

  DeviceCalibrationMRV device;
  ASSERT_TRUE(makeDeviceCalibration(rig, device, &error)) << error;
  const Converted c = convert(device);
  ASSERT_TRUE(c.ok);

  // The device record carries the file's intrinsics, rounded to float.
  for (size_t i = 0; i < 2; ++i) {
    const auto& file = rig[i].getIntrinsics().getCamModel();
    const auto& converted = c.calibration[i].getIntrinsics().getCamModel();
    EXPECT_EQ(converted.focalLength, file.focalLength.cast<float>());
    EXPECT_EQ(converted.radialDistortionCoeffs, file.radialDistortionCoeffs.cast<float>());
  }
  // "trackingB1" sits where the file puts the right camera relative to the left.
  const auto relative = rig[1].getCamReferenceToLocal() * rig[0].getLocalToCamReference();
  const auto& pose1 = c.calibration[1].getCamReferenceToLocal();
  expectNearMatrix(pose1.rotation().matrix(), relative.rotation().matrix().cast<float>(), 2e-6f);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(pose1.translation()(i), relative.translation()(i), 2e-6);

  ASSERT_TRUE(eyes.present);
  CameraCalibrationMRV left;
  makeDisplayRecord(eyes.left, left);
  EXPECT_EQ(left.width, 1280);
  EXPECT_EQ(left.fx, 612.0);
  EXPECT_EQ(left.pose.orientation.w, 1.0);
  EXPECT_EQ(left.pose.position.z, -0.062);
}

TEST(MakeDisplayRecordTest, CentredDistortionFreeEye) {
  AR::CV::DisplayEye eye;
  eye.width = 1280;
  eye.height = 1440;
  eye.fx = 640.5;
  eye.fy = 641.5;
  eye.eyeFromDevice =
      AR::Math::SE3<double>::exp(AR::Math::Vector<double, 6>(0.03, -0.01, 0.02, 0.0, 0.05, 0.0));
  CameraCalibrationMRV record;
  std::memset(&record, 0xFF, sizeof(record));
  makeDisplayRecord(eye, record);
  EXPECT_EQ(record.width, 1280);
  EXPECT_EQ(record.height, 1440);
  EXPECT_EQ(record.cx, 640.0);
  EXPECT_EQ(record.cy, 720.0);
  EXPECT_EQ(record.fx, 640.5);
  EXPECT_EQ(record.fy, 641.5);
  EXPECT_EQ(record.distortionModel, int32_t(LINEAR));
  for (double k : record.k) EXPECT_EQ(k, 0.0);
  EXPECT_NEAR(record.pose.orientation.y, std::sin(0.025), 1e-12);
  EXPECT_NEAR(record.pose.orientation.w, std::cos(0.025), 1e-12);
  EXPECT_EQ(record.pose.position.x, eye.eyeFromDevice.translation()(0));
}

}  // namespace
}  // namespace VIO
