#include "RigCheck.h"

#include <cmath>
#include <cstdio>

#include <AR/Math/SE3.h>

#include "CalibrationInput.h"

namespace StereoMaps {
namespace {

// Smallest magnitude that rounds to float infinity: FLT_MAX plus half an ulp.
constexpr double kFloatOverflow = 0x1.ffffffp127;

bool finiteInFloat(double v) { return std::isfinite(v) && std::fabs(v) < kFloatOverflow; }

std::string number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", v);
  return text;
}

/// Empty when `v` survives the conversion to float, else why not.
std::string checkNumber(const char* field, double v) {
  if (finiteInFloat(v)) return std::string();
  return std::string(field) + " = " + number(v) + " is not a finite single-precision number";
}

std::string checkSize(const CameraCalibrationMRV& c) {
  if (c.width >= 1 && c.height >= 1 && c.width <= kMaxImageSide && c.height <= kMaxImageSide &&
      int64_t(c.width) * c.height <= kMaxImagePixels)
    return std::string();
  return "size " + std::to_string(c.width) + " x " + std::to_string(c.height) + " is outside the accepted 1 to " +
         std::to_string(kMaxImageSide) + " pixels per side and " + std::to_string(kMaxImagePixels) +
         " pixels in all";
}

/// The quaternion as the library normalises it: converted to float, squared
/// length summed in this order, in float.
float floatSquaredLength(const XrQuaterniondMRV_t& q) {
  const float x = float(q.x), y = float(q.y), z = float(q.z), w = float(q.w);
  return (((0.0f + x * x) + y * y) + z * z) + w * w;
}

std::string checkPose(const XrPosedMRV_t& pose) {
  const XrQuaterniondMRV_t& q = pose.orientation;
  const std::pair<const char*, double> fields[] = {
      {"orientation x", q.x}, {"orientation y", q.y}, {"orientation z", q.z}, {"orientation w", q.w},
      {"position x", pose.position.x}, {"position y", pose.position.y}, {"position z", pose.position.z}};
  for (const auto& [field, value] : fields) {
    std::string why = checkNumber(field, value);
    if (!why.empty()) return "pose " + why;
  }
  // Components below about 1e-19 square to zero in float; components near the
  // float limit square to infinity and normalise to a zero quaternion.
  const float lengthSq = floatSquaredLength(q);
  if (!(lengthSq > 0.0f) || !std::isfinite(lengthSq))
    return "pose orientation is not a usable quaternion: its squared length in single precision is " +
           number(double(lengthSq));
  // The library squares positions (lengths, normalised directions); in float
  // a component near 1e19 or beyond squares to infinity.
  const float x = float(pose.position.x), y = float(pose.position.y), z = float(pose.position.z);
  if (!std::isfinite(((0.0f + x * x) + y * y) + z * z))
    return "pose position (" + number(pose.position.x) + ", " + number(pose.position.y) + ", " +
           number(pose.position.z) + ") is too far from the origin for single precision";
  return std::string();
}

std::string checkCamera(const CameraCalibrationMRV& c) {
  if (c.distortionModel < 0 || c.distortionModel > 5)
    return "unknown distortion model " + std::to_string(c.distortionModel);
  std::string why = checkSize(c);
  const std::pair<const char*, double> fields[] = {
      {"fx", c.fx},     {"fy", c.fy},     {"cx", c.cx},     {"cy", c.cy},     {"k1", c.k[0]},
      {"k2", c.k[1]},   {"k3", c.k[2]},   {"k4", c.k[3]},   {"k5", c.k[4]},   {"k6", c.k[5]},
      {"p1", c.p[0]},   {"p2", c.p[1]}};
  for (const auto& [field, value] : fields)
    if (why.empty()) why = checkNumber(field, value);
  return why.empty() ? checkPose(c.pose) : why;
}

std::string checkDisplay(const CameraCalibrationMRV& d) {
  std::string why = checkSize(d);
  for (const auto& [field, value] : {std::make_pair("fx", d.fx), std::make_pair("fy", d.fy)}) {
    if (why.empty()) why = checkNumber(field, value);
    if (why.empty() && !(float(value) > 0.0f))
      why = std::string(field) + " = " + number(value) + " is not a positive focal length in single precision";
  }
  return why.empty() ? checkPose(d.pose) : why;
}

/// Pose record to float rigid transform, as the library converts it (the
/// quaternion must have passed checkPose).
AR::Math::SE3<float> floatPose(const XrPosedMRV_t& pose) {
  AR::Math::Vector<float, 4> q(float(pose.orientation.x), float(pose.orientation.y), float(pose.orientation.z),
                               float(pose.orientation.w));
  AR::Math::normalize(q);
  const float x = q(0), y = q(1), z = q(2), w = q(3);
  const AR::Math::Matrix<float, 3, 3> R(
      1.0f - 2.0f * (y * y + z * z), 2.0f * (x * y - z * w), 2.0f * (x * z + y * w),  //
      2.0f * (x * y + z * w), 1.0f - 2.0f * (x * x + z * z), 2.0f * (y * z - x * w),  //
      2.0f * (x * z - y * w), 2.0f * (y * z + x * w), 1.0f - 2.0f * (x * x + y * y));
  return AR::Math::SE3<float>(
      AR::Math::SO3<float>(R),
      AR::Math::Vector<float, 3>(float(pose.position.x), float(pose.position.y), float(pose.position.z)));
}

}  // namespace

bool checkRig(const Rig& rig, std::string& error) {
  for (int i = 0; i < 2; ++i) {
    const std::string why = checkCamera(rig.device.cameras[i]);
    if (!why.empty()) {
      error = "camera " + std::to_string(i) + ": " + why;
      return false;
    }
  }
  if (!rig.hasDisplays) return true;
  const std::pair<const char*, const CameraCalibrationMRV*> displays[] = {{"left", &rig.leftDisplay},
                                                                          {"right", &rig.rightDisplay}};
  for (const auto& [side, display] : displays) {
    const std::string why = checkDisplay(*display);
    if (!why.empty()) {
      error = std::string(side) + " display eye: " + why;
      return false;
    }
  }
  return true;
}

float baselineInFloat(const Rig& rig) {
  // Camera 1 relative to camera 0 is T1 * T0^-1; its translation, from the
  // factors before re-orthogonalisation, is t1 - R1 (R0^T t0).
  const AR::Math::SE3<float> T0 = floatPose(rig.device.cameras[0].pose);
  const AR::Math::SE3<float> T1 = floatPose(rig.device.cameras[1].pose);
  const AR::Math::Vector<float, 3> R0tT0 = T0.rotation().matrix().transpose() * T0.translation();
  const AR::Math::Vector<float, 3> t = T1.translation() - T1.rotation().matrix() * R0tT0;
  return std::sqrt(((0.0f + t(0) * t(0)) + t(1) * t(1)) + t(2) * t(2));
}

}  // namespace StereoMaps
