#pragma once

// Test and benchmark support: realistic device and display records per lens
// model, and projections written in closed form (double precision, no
// library splines) so that map entries can be checked independently.

#include <cmath>
#include <cstring>
#include <vector>

#include "AR/Math/Matrix.h"
#include "AR/Math/Vector.h"
#include "CameraModel/DistortionModel.h"
#include "StereoRectifyWrapperTypes.h"

namespace RecordRig {

using Vec3d = AR::Math::Vector<double, 3>;
using Mat3d = AR::Math::Matrix<double, 3, 3>;

/// Rotation of a (not necessarily unit) quaternion record.
inline Mat3d rotationOf(const XrQuaterniondMRV_t& q) {
  const double n = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
  const double x = q.x / n, y = q.y / n, z = q.z / n, w = q.w / n;
  return Mat3d(1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w),  //
               2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w),  //
               2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y));
}

inline Vec3d positionOf(const XrPosedMRV_t& pose) {
  return Vec3d(pose.position.x, pose.position.y, pose.position.z);
}

/// A pose record (target-from-source) of rotation `q` for a frame whose
/// origin sits at `centre` in the source frame: position = -R * centre.
inline XrPosedMRV_t poseAt(const XrQuaterniondMRV_t& q, const Vec3d& centre) {
  const Vec3d t = -(rotationOf(q) * centre);
  return XrPosedMRV_t{q, {t(0), t(1), t(2)}};
}

/// The lens models' radial factor d(r^2), written out in closed form.
inline double distortionFactor(int32_t model, const double* k, double rSq) {
  const double r = std::sqrt(rSq);
  switch (model) {
    case LINEAR:
      return 1.0;
    case FISHEYE_1_PARAMETER:
      return r < 1e-12 ? 2 * std::tan(k[0] / 2) / k[0] : std::atan(2 * r * std::tan(k[0] / 2)) / (k[0] * r);
    case FISHEYE_4_PARAMETERS: {
      const double th = std::atan(r), th2 = th * th;
      return r < 1e-12 ? 1.0 : th * (1 + th2 * (k[0] + th2 * (k[1] + th2 * (k[2] + th2 * k[3])))) / r;
    }
    default:  // the three rational radial models
      return (1 + rSq * (k[0] + rSq * (k[1] + rSq * k[2]))) / (1 + rSq * (k[3] + rSq * (k[4] + rSq * k[5])));
  }
}

struct LensCase {
  const char* name;
  int32_t model;
  std::vector<double> k;
  double p1, p2;
};

/// One calibrated-looking lens per model, for a 640x480 wide-angle camera.
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

/// A forward-looking 640x480 camera record. The device frame is the display
/// convention (x right, y up, looking along -z), so the camera is turned by
/// pi about x, then by `yaw` and `tilt`; it sits at `centre` in the device.
inline CameraCalibrationMRV camera(const LensCase& lens, double fx, double fy, double cx, double cy,
                                   double tilt, double yaw, const Vec3d& centre) {
  const double st = std::sin(tilt / 2), ct = std::cos(tilt / 2), sy = std::sin(yaw / 2), cy2 = std::cos(yaw / 2);
  // rot_x(tilt) * rot_y(yaw) * rot_x(pi), expanded.
  const XrQuaterniondMRV_t q{ct * cy2, st * sy, -ct * sy, -st * cy2};
  CameraCalibrationMRV cam;
  std::memset(&cam, 0, sizeof(cam));
  cam.width = 640;
  cam.height = 480;
  cam.fx = fx, cam.fy = fy, cam.cx = cx, cam.cy = cy;
  for (size_t i = 0; i < lens.k.size(); ++i) cam.k[i] = lens.k[i];
  cam.p[0] = lens.p1;
  cam.p[1] = lens.p2;
  cam.distortionModel = lens.model;
  cam.pose = poseAt(q, centre);
  return cam;
}

/// A head-mounted stereo pair 10 cm apart, slightly tilted and toed out.
inline DeviceCalibrationMRV makeDevice(const LensCase& lens) {
  DeviceCalibrationMRV device;
  std::memset(&device, 0, sizeof(device));
  device.num_cameras = 2;
  device.cameras[0] = camera(lens, 280.0, 281.0, 320.5, 240.25, 0.05, 0.04, Vec3d(-0.05, 0.01, -0.005));
  device.cameras[1] = camera(lens, 279.0, 280.5, 318.75, 241.5, 0.045, -0.05, Vec3d(0.05, 0.012, -0.004));
  return device;
}

/// A display eye at `centre` in the device, looking along -z with a small
/// roll. Its principal point is off-centre on purpose: it must be ignored.
inline CameraCalibrationMRV makeDisplay(int32_t width, int32_t height, double fx, double fy,
                                        const Vec3d& centre, double roll) {
  CameraCalibrationMRV eye;
  std::memset(&eye, 0, sizeof(eye));
  eye.width = width;
  eye.height = height;
  eye.fx = fx, eye.fy = fy, eye.cx = 0.3 * width, eye.cy = 0.6 * height;
  eye.pose = poseAt(XrQuaterniondMRV_t{0, 0, std::sin(roll / 2), std::cos(roll / 2)}, centre);
  return eye;
}

/// Pixel of the point Q (in the camera's own frame) through the camera's lens
/// in closed form, tangential terms included. `rSq` receives the squared
/// ideal radius; false when Q lies less than 0.01 in front of the camera.
inline bool projectClosedForm(const CameraCalibrationMRV& cam, const Vec3d& Q, double& sx, double& sy, double& rSq) {
  if (Q(2) < 0.01) return false;
  const double X = Q(0) / Q(2), Y = Q(1) / Q(2), p1 = cam.p[0], p2 = cam.p[1];
  rSq = X * X + Y * Y;
  const double d = distortionFactor(cam.distortionModel, cam.k, rSq);
  sx = cam.fx * (X * d + 2 * p1 * X * Y + p2 * (rSq + 2 * X * X)) + cam.cx;
  sy = cam.fy * (Y * d + p1 * (rSq + 2 * Y * Y) + 2 * p2 * X * Y) + cam.cy;
  return true;
}

/// Where display pixel (x, y) should sample camera `cam` when the scene is
/// the plane at `depth` in front of the eye: the eye ray (principal point at
/// the image centre) meets the plane, the point goes from the eye frame to
/// the device and into the camera, and is projected in closed form.
inline bool expectedSeeThrough(const CameraCalibrationMRV& eye, const CameraCalibrationMRV& cam, double depth,
                               int x, int y, double& sx, double& sy, double& rSq) {
  const Vec3d pEye((x - eye.width * 0.5) / eye.fx * depth, -(y - eye.height * 0.5) / eye.fy * depth, -depth);
  const Vec3d pDevice = rotationOf(eye.pose.orientation).transpose() * (pEye - positionOf(eye.pose));
  const Vec3d Q = rotationOf(cam.pose.orientation) * pDevice + positionOf(cam.pose);
  return projectClosedForm(cam, Q, sx, sy, rSq);
}

}  // namespace RecordRig
