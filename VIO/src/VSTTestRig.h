#pragma once

// Test support for the see-through tests: realistic device and display
// records, and a closed-form lens model in double precision that does not go
// through the library's splines, so that map entries can be checked against
// an independent computation.

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "CameraModel/DistortionModel.h"
#include "StereoRectifyWrapperTypes.h"

namespace VSTTest {

struct V3 {
  double x = 0, y = 0, z = 0;
};

struct M3 {
  double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  V3 operator*(const V3& v) const {
    return {m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
            m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z};
  }
  M3 operator*(const M3& o) const {
    M3 r;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        r.m[i][j] = 0;
        for (int k = 0; k < 3; ++k) r.m[i][j] += m[i][k] * o.m[k][j];
      }
    return r;
  }
  M3 transpose() const {
    M3 r;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) r.m[i][j] = m[j][i];
    return r;
  }
};

inline V3 operator+(const V3& a, const V3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline V3 operator-(const V3& a, const V3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

/// Rotation of a (not necessarily unit) quaternion, in double.
inline M3 quaternionToMatrix(const XrQuaterniondMRV_t& q) {
  const double n = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
  const double x = q.x / n, y = q.y / n, z = q.z / n, w = q.w / n;
  M3 R;
  R.m[0][0] = 1 - 2 * (y * y + z * z);
  R.m[0][1] = 2 * (x * y - z * w);
  R.m[0][2] = 2 * (x * z + y * w);
  R.m[1][0] = 2 * (x * y + z * w);
  R.m[1][1] = 1 - 2 * (x * x + z * z);
  R.m[1][2] = 2 * (y * z - x * w);
  R.m[2][0] = 2 * (x * z - y * w);
  R.m[2][1] = 2 * (y * z + x * w);
  R.m[2][2] = 1 - 2 * (x * x + y * y);
  return R;
}

/// Unit quaternion of the rotation by `angle` about the unit axis (ax, ay, az).
inline XrQuaterniondMRV_t axisAngleQuaternion(double ax, double ay, double az, double angle) {
  const double s = std::sin(angle / 2);
  return {ax * s, ay * s, az * s, std::cos(angle / 2)};
}

/// Hamilton product a * b (rotation b first, then a).
inline XrQuaterniondMRV_t multiply(const XrQuaterniondMRV_t& a, const XrQuaterniondMRV_t& b) {
  return {a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
          a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

/// Applies a pose record (target-from-source) to a point.
inline V3 applyPose(const XrPosedMRV_t& pose, const V3& p) {
  return quaternionToMatrix(pose.orientation) * p + V3{pose.position.x, pose.position.y, pose.position.z};
}

/// Applies the inverse of a pose record.
inline V3 applyInversePose(const XrPosedMRV_t& pose, const V3& p) {
  return quaternionToMatrix(pose.orientation).transpose() *
         (p - V3{pose.position.x, pose.position.y, pose.position.z});
}

/// The lens models' radial factor d(r^2), written out in closed form.
inline double distortionFactor(int32_t model, const double* k, double rSq) {
  switch (model) {
    case LINEAR:
      return 1.0;
    case RADIAL_2_PARAMETERS:
    case RADIAL_3_PARAMETERS:
    case RADIAL_6_PARAMETERS:
      return (1 + k[0] * rSq + k[1] * rSq * rSq + k[2] * rSq * rSq * rSq) /
             (1 + k[3] * rSq + k[4] * rSq * rSq + k[5] * rSq * rSq * rSq);
    case FISHEYE_1_PARAMETER: {
      const double r = std::sqrt(rSq);
      if (r < 1e-12) return 2 * std::tan(k[0] / 2) / k[0];
      return std::atan(2 * r * std::tan(k[0] / 2)) / (k[0] * r);
    }
    case FISHEYE_4_PARAMETERS: {
      const double r = std::sqrt(rSq);
      if (r < 1e-12) return 1.0;
      const double th = std::atan(r), th2 = th * th;
      return th * (1 + th2 * (k[0] + th2 * (k[1] + th2 * (k[2] + th2 * k[3])))) / r;
    }
    default:
      return NAN;
  }
}

/// Projection of a camera-frame point into the distorted pixel image of a
/// camera record. `rSq` receives the squared ideal radius. False for points
/// less than 0.01 in front of the camera.
inline bool projectClosedForm(const CameraCalibrationMRV& cam, const V3& Q, double& sx, double& sy,
                              double& rSq) {
  if (Q.z < 0.01) return false;
  const double X = Q.x / Q.z, Y = Q.y / Q.z;
  rSq = X * X + Y * Y;
  const double d = distortionFactor(cam.distortionModel, cam.k, rSq);
  const double p1 = cam.p[0], p2 = cam.p[1];
  const double xd = X * d + 2 * p1 * X * Y + p2 * (rSq + 2 * X * X);
  const double yd = Y * d + p1 * (rSq + 2 * Y * Y) + 2 * p2 * X * Y;
  sx = cam.fx * xd + cam.cx;
  sy = cam.fy * yd + cam.cy;
  return true;
}

/// One calibrated-looking lens per model, for a 640x480 wide-angle tracking
/// camera.
struct LensCase {
  const char* name;
  int32_t model;
  std::vector<double> k;
  double p1, p2;
};

inline std::vector<LensCase> realisticLenses() {
  return {
      {"Linear", LINEAR, {}, 0.0, 0.0},
      {"Radial2", RADIAL_2_PARAMETERS, {-0.28, 0.07}, 0.0, 0.0},
      {"Radial3Tangential", RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015}, 4e-4, -3e-4},
      {"Radial6", RADIAL_6_PARAMETERS, {0.35, -0.04, 0.002, 0.7, 0.03, -0.001}, 0.0, 0.0},
      {"Fisheye1", FISHEYE_1_PARAMETER, {0.92}, 0.0, 0.0},
      {"Fisheye4", FISHEYE_4_PARAMETERS, {-0.012, 0.004, -0.0012, 0.0002}, 0.0, 0.0},
  };
}

/// The device frame follows the display convention (x right, y up, looking
/// along -z); a forward camera (x right, y down, looking along +z) is rotated
/// by pi about x from it. Poses are camera-from-device.
inline XrPosedMRV_t forwardCameraPose(double tiltX, double yaw, const V3& positionInDevice) {
  const XrQuaterniondMRV_t flip = {1, 0, 0, 0};
  const XrQuaterniondMRV_t q =
      multiply(axisAngleQuaternion(1, 0, 0, tiltX), multiply(axisAngleQuaternion(0, 1, 0, yaw), flip));
  XrPosedMRV_t pose;
  pose.orientation = q;
  // position = -R * c for the camera centre c in the device frame.
  const V3 t = quaternionToMatrix(q) * positionInDevice;
  pose.position = {-t.x, -t.y, -t.z};
  return pose;
}

inline void fillCamera(CameraCalibrationMRV& cam, const LensCase& lens, double fx, double fy, double cx,
                       double cy, const XrPosedMRV_t& pose) {
  cam.width = 640;
  cam.height = 480;
  cam.cx = cx;
  cam.cy = cy;
  cam.fx = fx;
  cam.fy = fy;
  for (size_t i = 0; i < 6; ++i) cam.k[i] = i < lens.k.size() ? lens.k[i] : 0.0;
  cam.p[0] = lens.p1;
  cam.p[1] = lens.p2;
  cam.distortionModel = lens.model;
  cam.pose = pose;
}

/// A head-mounted stereo pair 10 cm apart, slightly tilted and toed out, with
/// `lens` in both cameras (slightly different intrinsics per camera).
inline DeviceCalibrationMRV makeDevice(const LensCase& lens) {
  DeviceCalibrationMRV device;
  std::memset(&device, 0, sizeof(device));
  device.num_cameras = 2;
  fillCamera(device.cameras[0], lens, 280.0, 281.0, 320.5, 240.25,
             forwardCameraPose(0.05, 0.04, {-0.05, 0.01, -0.005}));
  fillCamera(device.cameras[1], lens, 279.0, 280.5, 318.75, 241.5,
             forwardCameraPose(0.045, -0.05, {0.05, 0.012, -0.004}));
  return device;
}

/// A display eye: its image size, focal lengths and eye-from-device pose for
/// an eye sitting at `eyeCentre` (device frame), looking along -z with a small
/// roll. The principal point is deliberately off-centre: it must be ignored.
inline CameraCalibrationMRV makeDisplay(int32_t width, int32_t height, double fx, double fy,
                                        const V3& eyeCentre, double roll) {
  CameraCalibrationMRV eye;
  std::memset(&eye, 0, sizeof(eye));
  eye.width = width;
  eye.height = height;
  eye.fx = fx;
  eye.fy = fy;
  eye.cx = 0.3 * width;
  eye.cy = 0.6 * height;
  eye.pose.orientation = axisAngleQuaternion(0, 0, 1, roll);
  const V3 t = quaternionToMatrix(eye.pose.orientation) * eyeCentre;
  eye.pose.position = {-t.x, -t.y, -t.z};
  return eye;
}

/// Where display pixel (x, y) of `eye` should sample tracking camera `cam`
/// when the scene is the plane at `depth` in front of the eye: the eye ray
/// (principal point at the image centre) meets the plane, the point goes from
/// the eye frame (y up, -z forward) to the device and into the camera, and is
/// projected in closed form.
inline bool expectedSeeThrough(const CameraCalibrationMRV& eye, const CameraCalibrationMRV& cam, double depth,
                               int x, int y, double& sx, double& sy, double& rSq) {
  const double cx = eye.width * 0.5, cy = eye.height * 0.5;
  // In the eye's own frame: right, up, backwards.
  const V3 pEye = {(x - cx) / eye.fx * depth, -(y - cy) / eye.fy * depth, -depth};
  const V3 pDevice = applyInversePose(eye.pose, pEye);
  const V3 pCam = applyPose(cam.pose, pDevice);
  return projectClosedForm(cam, pCam, sx, sy, rSq);
}

}  // namespace VSTTest
