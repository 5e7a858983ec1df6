#pragma once

#include <string>

#include <StereoRectifyWrapper.h>

namespace StereoMaps {

/// Everything the tool hands to the library: the device record with its two
/// tracking cameras and, when the input carries them, the two display eyes.
struct Rig {
  DeviceCalibrationMRV device{};
  bool hasDisplays = false;
  CameraCalibrationMRV leftDisplay{};
  CameraCalibrationMRV rightDisplay{};
};

/// Rotation (row-major 3x3) and translation of a rigid transform in double.
struct Pose {
  double R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  double t[3] = {0, 0, 0};
};

/// a * b: first b, then a.
Pose compose(const Pose& a, const Pose& b);

/// The inverse transform: rotation R^T, translation -R^T t.
Pose inverse(const Pose& pose);

/// Writes `pose` into a pose record (unit quaternion, scalar part non-negative).
void toPoseRecord(const Pose& pose, XrPosedMRV_t& record);

/// Reads a pose record (the quaternion is normalised first).
Pose fromPoseRecord(const XrPosedMRV_t& record);

/// Distance in metres between the centres of tracking cameras 0 and 1.
double baselineMetres(const Rig& rig);

}  // namespace StereoMaps
