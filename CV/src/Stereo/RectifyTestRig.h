#pragma once

// Rigs for the rectification tests: camera models from raw parameters and
// two-camera calibrations with the left camera at the origin.

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace Test {

template <typename T>
CamModel::CameraModel<T> makeCameraModel(DistortionModel distortion, T width, T height, T fx, T fy, T cx, T cy,
                                         const AR::Math::Vector<T, 6>& radial = AR::Math::Vector<T, 6>(),
                                         const AR::Math::Vector<T, 2>& tangential = AR::Math::Vector<T, 2>()) {
  CamModel::CameraModel<T> model;
  model.size = AR::Math::Vector<T, 2>(width, height);
  model.focalLength = AR::Math::Vector<T, 2>(fx, fy);
  model.principalPoint = AR::Math::Vector<T, 2>(cx, cy);
  model.radialDistortionCoeffs = radial;
  model.tangentialDistortionCoeffs = tangential;
  model.model = distortion;
  model.maxValidDistortionRSq = T(81);
  model.maxValidUndistortionRSq = T(81);
  model.setupValidDistortionRange();
  return model;
}

/// A distortion-free 640 x 480 camera with focal length 400.
template <typename T>
CamModel::CameraModel<T> pinhole640() {
  return makeCameraModel<T>(LINEAR, T(640), T(480), T(400), T(400), T(320), T(240));
}

/// Rig of two cameras: camera 0 at `T_ref2left` (the identity for a proper
/// rig), camera 1 at `T_ref2right`.
template <typename T>
AR::CV::FullStereoCameraCalibration<T> makeRig(const CamModel::CameraModel<T>& left,
                                               const CamModel::CameraModel<T>& right,
                                               const AR::Math::SE3<T>& T_ref2right,
                                               const AR::Math::SE3<T>& T_ref2left = AR::Math::SE3<T>()) {
  AR::CV::FullStereoCameraCalibration<T> rig;
  rig.setupEmptyCalibrationWithDefaultIds(2);
  const AR::CV::CaptureDetails details;
  rig[0].init(left, T_ref2left, AR::CV::CamImageId("trackingA0"), false, T(0), details, 0.0);
  rig[1].init(right, T_ref2right, AR::CV::CamImageId("trackingB1"), false, T(0), details, 0.0);
  return rig;
}

/// Rotation by `angle` radians about `axis` (need not be unit length).
template <typename T>
AR::Math::SO3<T> rotationAbout(AR::Math::Vector<T, 3> axis, T angle) {
  return AR::Math::SO3<T>::exp(AR::Math::unit(axis) * angle);
}

/// Sets the logger level for the lifetime of the object.
class ScopedLogLevel {
 public:
  explicit ScopedLogLevel(AR::Common::Logger::LEVEL level)
      : previous_(AR::Common::Logger::getInstance().getLevel()) {
    AR::Common::Logger::getInstance().setLevel(level);
  }
  ~ScopedLogLevel() { AR::Common::Logger::getInstance().setLevel(previous_); }
  ScopedLogLevel(const ScopedLogLevel&) = delete;
  ScopedLogLevel& operator=(const ScopedLogLevel&) = delete;

 private:
  AR::Common::Logger::LEVEL previous_;
};

}  // namespace Test
}  // namespace AR
