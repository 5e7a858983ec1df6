#pragma once

// Rigs for the rectification tests: distortion-free cameras, two-camera
// calibrations and their rectified targets.

#include "AR/CV/Stereo/Rectify.h"
#include "AR/Common/Logger.h"

namespace AR {
namespace Test {

/// A distortion-free 640 x 480 camera with focal length 400.
template <typename T>
CamModel::CameraModel<T> pinhole640(T cy = T(240)) {
  CamModel::CameraModel<T> model;
  model.size = AR::Math::Vector<T, 2>(640, 480);
  model.focalLength = AR::Math::Vector<T, 2>(400, 400);
  model.principalPoint = AR::Math::Vector<T, 2>(320, cy);
  return model;
}

/// Camera 0 at `T_ref2left` (the identity for a proper rig), camera 1 at `T_ref2right`.
template <typename T>
AR::CV::FullStereoCameraCalibration<T> makeRig(const AR::Math::SE3<T>& T_ref2right,
                                               const AR::Math::SE3<T>& T_ref2left = AR::Math::SE3<T>(),
                                               const CamModel::CameraModel<T>& left = pinhole640<T>(),
                                               const CamModel::CameraModel<T>& right = pinhole640<T>()) {
  AR::CV::FullStereoCameraCalibration<T> rig;
  rig.setupEmptyCalibrationWithDefaultIds(2);
  rig[0].init(left, T_ref2left, AR::CV::CamImageId("trackingA0"), false, T(0), AR::CV::CaptureDetails(), 0.0);
  rig[1].init(right, T_ref2right, AR::CV::CamImageId("trackingB1"), false, T(0), AR::CV::CaptureDetails(), 0.0);
  return rig;
}

/// Two identical pinholes, parallel, the right one `baseline` along x.
template <typename T>
AR::CV::FullStereoCameraCalibration<T> parallelRig(T baseline = T(0.1)) {
  return makeRig<T>(AR::Math::SE3<T>(AR::Math::SO3<T>(), AR::Math::Vector<T, 3>(-baseline, 0, 0)));
}

template <typename T>
struct Target {
  AR::CV::FullStereoCameraCalibration<T> calibration;
  AR::Math::SO3<T> R_tl2ol;
  AR::CV::DepthParams<T> depth;
};

/// makeTargetCalibration with 64 disparities and maxDepth 10.
template <typename T>
Target<T> makeTarget(const AR::CV::FullStereoCameraCalibration<T>& rig, T minDepth, uint32_t width = 0,
                     const AR::Math::Vector<T, 3>& direction = AR::Math::Vector<T, 3>()) {
  Target<T> target;
  AR::CV::makeTargetCalibration<T>(rig, 64, minDepth, T(10), width, AR::Math::SE3<T>(), direction,
                                   target.calibration, target.R_tl2ol, target.depth);
  return target;
}

/// Sets the logger level for the lifetime of the object.
class ScopedLogLevel {
 public:
  explicit ScopedLogLevel(AR::Common::Logger::LEVEL level) : previous_(AR::Common::Logger::getInstance().getLevel()) {
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
