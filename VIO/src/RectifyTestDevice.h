#pragma once

// Device records and a closed-form camera projection for the rectification
// tests. Everything here is double precision and independent of the library:
// poses are built from quaternions, lenses are projected by their formulas.

#include <cmath>
#include <cstring>
#include <random>

#include "AR/Math/Matrix.h"
#include "AR/Math/Vector.h"
#include "CameraModel/DistortionModel.h"
#include "StereoRectifyWrapperTypes.h"

namespace AR {
namespace Test {

using Vec3d = AR::Math::Vector<double, 3>;
using Mat3d = AR::Math::Matrix<double, 3, 3>;

/// Quaternion (x, y, z, w) of a rotation by `angle` about `axis`.
struct Quat {
  double x = 0, y = 0, z = 0, w = 1;
};

inline Quat quatFromAxisAngle(Vec3d axis, double angle) {
  const double n = std::sqrt(axis(0) * axis(0) + axis(1) * axis(1) + axis(2) * axis(2));
  const double s = std::sin(angle / 2) / n;
  return Quat{axis(0) * s, axis(1) * s, axis(2) * s, std::cos(angle / 2)};
}

/// Hamilton product: the rotation of b followed by that of a.
inline Quat operator*(const Quat& a, const Quat& b) {
  return Quat{a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
              a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

inline Mat3d rotationOf(const XrQuaterniondMRV_t& q) {
  const double n = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
  const double x = q.x / n, y = q.y / n, z = q.z / n, w = q.w / n;
  return Mat3d(1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w),  //
               2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w),  //
               2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y));
}

inline Mat3d rotationOf(const Quat& q) {
  return rotationOf(XrQuaterniondMRV_t{q.x, q.y, q.z, q.w});
}

/// A camera record's lens: intrinsics, coefficients and image size.
struct Lens {
  DistortionModel model = LINEAR;
  int width = 640, height = 480;
  double fx = 400, fy = 400, cx = 320, cy = 240;
  double k[6] = {0, 0, 0, 0, 0, 0};
  double p[2] = {0, 0};
};

/// Realistic radial-tangential lens (three radial terms, small tangential ones).
inline Lens radialTangentialLens(int width, int height) {
  Lens lens;
  lens.model = RADIAL_3_PARAMETERS;
  lens.width = width;
  lens.height = height;
  lens.fx = 0.7 * width;
  lens.fy = 0.7 * width * 1.002;
  lens.cx = width / 2.0 + 3.5;
  lens.cy = height / 2.0 - 2.25;
  lens.k[0] = -0.12;
  lens.k[1] = 0.025;
  lens.k[2] = -0.002;
  lens.p[0] = 4e-4;
  lens.p[1] = -2.5e-4;
  return lens;
}

/// Realistic wide-angle fisheye lens (four odd-power terms in the angle).
inline Lens fisheyeLens(int width, int height) {
  Lens lens;
  lens.model = FISHEYE_4_PARAMETERS;
  lens.width = width;
  lens.height = height;
  lens.fx = 0.45 * width;
  lens.fy = 0.45 * width;
  lens.cx = width / 2.0 - 1.5;
  lens.cy = height / 2.0 + 2.0;
  lens.k[0] = 0.03;
  lens.k[1] = -0.008;
  lens.k[2] = 0.0015;
  lens.k[3] = -0.0002;
  return lens;
}

/// Pixel of a point given in camera coordinates, by the lens formulas.
/// False for points less than 0.01 in front of the camera.
inline bool projectClosedForm(const Lens& lens, const Vec3d& point, double& u, double& v) {
  if (point(2) < 0.01) return false;
  const double x = point(0) / point(2), y = point(1) / point(2);
  const double r2 = x * x + y * y;
  double factor = 1;
  if (lens.model == FISHEYE_4_PARAMETERS) {
    const double r = std::sqrt(r2);
    const double theta = std::atan(r), t2 = theta * theta;
    const double thetaD = theta * (1 + t2 * (lens.k[0] + t2 * (lens.k[1] + t2 * (lens.k[2] + t2 * lens.k[3]))));
    factor = r > 0 ? thetaD / r : 1;
  } else if (lens.model != LINEAR) {
    factor = (1 + lens.k[0] * r2 + lens.k[1] * r2 * r2 + lens.k[2] * r2 * r2 * r2) /
             (1 + lens.k[3] * r2 + lens.k[4] * r2 * r2 + lens.k[5] * r2 * r2 * r2);
  }
  const double xd = x * factor + 2 * lens.p[0] * x * y + lens.p[1] * (r2 + 2 * x * x);
  const double yd = y * factor + lens.p[0] * (r2 + 2 * y * y) + 2 * lens.p[1] * x * y;
  u = lens.fx * xd + lens.cx;
  v = lens.fy * yd + lens.cy;
  return true;
}

/// Camera-from-device pose.
struct Pose {
  Quat q;
  Vec3d t;
};

inline void writeCamera(const Lens& lens, const Pose& pose, CameraCalibrationMRV& camera) {
  camera.width = lens.width;
  camera.height = lens.height;
  camera.cx = lens.cx;
  camera.cy = lens.cy;
  camera.fx = lens.fx;
  camera.fy = lens.fy;
  for (int i = 0; i < 6; ++i) camera.k[i] = lens.k[i];
  camera.p[0] = lens.p[0];
  camera.p[1] = lens.p[1];
  camera.distortionModel = int32_t(lens.model);
  camera.pose.orientation = XrQuaterniondMRV_t{pose.q.x, pose.q.y, pose.q.z, pose.q.w};
  camera.pose.position = XrVector3dMRV_t{pose.t(0), pose.t(1), pose.t(2)};
}

/// A stereo device: lenses, camera-from-device poses and the record.
struct StereoDevice {
  Lens lens[2];
  Pose pose[2];
  DeviceCalibrationMRV record;
};

/// Camera 0 somewhere on the device; camera 1 turned by `relative` against it
/// with its centre at `rightCentre` in camera 0's frame.
inline StereoDevice makeStereoDevice(const Lens& left, const Lens& right, const Pose& leftPose,
                                     const Quat& relative, const Vec3d& rightCentre) {
  StereoDevice device;
  device.lens[0] = left;
  device.lens[1] = right;
  device.pose[0] = leftPose;
  // T1 = T_rel * T0 with T_rel = (R_rel, -R_rel * c).
  const Mat3d R_rel = rotationOf(relative);
  device.pose[1].q = relative * leftPose.q;
  device.pose[1].t = R_rel * leftPose.t - R_rel * rightCentre;
  std::memset(&device.record, 0, sizeof(device.record));
  device.record.num_cameras = 2;
  writeCamera(left, device.pose[0], device.record.cameras[0]);
  writeCamera(right, device.pose[1], device.record.cameras[1]);
  return device;
}

/// A realistic rig: relative rotation up to `maxRotation` radians about a
/// random axis, a baseline of 10 cm +- 5 mm along x whose other components
/// stay below `maxOffAxis` metres, camera 0 turned and moved on the device.
inline StereoDevice randomStereoDevice(std::mt19937& rng, const Lens& lens, double maxRotation = 2.0 * M_PI / 180,
                                       double maxOffAxis = 0.003) {
  std::uniform_real_distribution<double> unit(-1, 1);
  const Vec3d axis0(unit(rng), unit(rng), unit(rng));
  const Pose leftPose{quatFromAxisAngle(axis0, 0.3 * unit(rng)), Vec3d(0.05 * unit(rng), 0.05 * unit(rng), 0.02 * unit(rng))};
  const Vec3d axis(unit(rng), unit(rng), unit(rng));
  const Quat relative = quatFromAxisAngle(axis, maxRotation * (0.5 + 0.5 * std::fabs(unit(rng))));
  const Vec3d centre(0.1 + 0.005 * unit(rng), maxOffAxis * unit(rng), maxOffAxis * unit(rng));
  return makeStereoDevice(lens, lens, leftPose, relative, centre);
}

}  // namespace Test
}  // namespace AR
