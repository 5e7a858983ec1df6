// ValidateDeviceCalibration: whether the three entry points can run on a
// device record without a fatal assertion and without non-finite cameras.
//
// It does not re-derive the entry points' arithmetic: it runs the same
// conversion and the same rectification target computation, in float, in
// their checked variants, which test each fatal condition on the very value
// the entry point would test and stop there instead of aborting. The checks
// of the raw fields before that only give clearer sentences for the common
// mistakes; the checked computation is what guarantees agreement.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "AR/Math/CheckedConversion.h"
#include "AR/Math/SE3.h"
#include "CameraModel/CameraModel.h"
#include "DeviceCalibration.h"
#include "RectifyTarget.h"
#include "StereoRectifyWrapper.h"

namespace {

using AR::Math::roundToPrecision;

const char* const kCameraIds[2] = {"trackingA0", "trackingB1"};

std::string cameraName(int camera) {
  return "camera " + std::to_string(camera) + " (" + kCameraIds[camera] + ")";
}

/// The refusal sentence: the camera, then the field, then why.
std::string sentence(int camera, const std::string& field, const std::string& reason) {
  return cameraName(camera) + " " + field + ": " + reason + ".";
}

/// Copies `text` into the caller's buffer, cut to fit, always NUL-terminated.
void writeMessage(const std::string& text, char* message, uint32_t messageSize) {
  if (message == nullptr || messageSize == 0) return;
  const size_t n = std::min<size_t>(text.size(), size_t(messageSize) - 1);
  std::memcpy(message, text.data(), n);
  message[n] = '\0';
}

bool allFinite(const float* values, size_t count) {
  for (size_t i = 0; i < count; ++i)
    if (!std::isfinite(values[i])) return false;
  return true;
}

template <int N>
bool allFinite(const AR::Math::Vector<float, N>& v) {
  for (int i = 0; i < N; ++i)
    if (!std::isfinite(v(i))) return false;
  return true;
}

bool allFinite(const AR::Math::SE3<float>& pose) {
  const AR::Math::Matrix33F& R = pose.rotation().matrix();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      if (!std::isfinite(R(r, c))) return false;
  return allFinite(pose.translation());
}

/// The first double field of a camera record that is not a finite float
/// once converted as the entry points convert it.
bool findNonFiniteField(const CameraCalibrationMRV& cam, std::string& field, std::string& reason) {
  struct Named {
    const char* name;
    double value;
  };
  const Named fields[] = {
      {"fx", cam.fx},
      {"fy", cam.fy},
      {"cx", cam.cx},
      {"cy", cam.cy},
      {"k1", cam.k[0]},
      {"k2", cam.k[1]},
      {"k3", cam.k[2]},
      {"k4", cam.k[3]},
      {"k5", cam.k[4]},
      {"k6", cam.k[5]},
      {"p1", cam.p[0]},
      {"p2", cam.p[1]},
      {"pose orientation x", cam.pose.orientation.x},
      {"pose orientation y", cam.pose.orientation.y},
      {"pose orientation z", cam.pose.orientation.z},
      {"pose orientation w", cam.pose.orientation.w},
      {"pose position x", cam.pose.position.x},
      {"pose position y", cam.pose.position.y},
      {"pose position z", cam.pose.position.z},
  };
  for (const Named& f : fields) {
    if (std::isfinite(roundToPrecision<float>(f.value))) continue;
    field = f.name;
    if (std::isnan(f.value))
      reason = "is not a number";
    else if (std::isinf(f.value))
      reason = "is infinite";
    else
      reason = "lies beyond the single-precision range";
    return true;
  }
  return false;
}

/// The parameter checks a camera must pass to be built, in the order the
/// camera applies them, named by record field.
bool findBadIntrinsic(const CamModel::CameraModel<float>& model, std::string& field, std::string& reason) {
  const char* const focalNames[2] = {"fx", "fy"};
  const char* const sizeNames[2] = {"width", "height"};
  const char* const centreNames[2] = {"cx", "cy"};
  for (int i = 0; i < 2; ++i) {
    if (model.focalLength(i) > 0.0f) continue;
    field = focalNames[i];
    reason = "the focal length must be positive";
    return true;
  }
  for (int i = 0; i < 2; ++i) {
    if (model.size(i) > 0.0f) continue;
    field = sizeNames[i];
    reason = "the image size must be positive";
    return true;
  }
  for (int i = 0; i < 2; ++i) {
    if (model.principalPoint(i) > 0.0f && model.principalPoint(i) < model.size(i)) continue;
    field = centreNames[i];
    reason = "the principal point must lie strictly inside the image";
    return true;
  }
  const int n = CamModel::maxNumRadialDistortionCoeffs(model.model);
  for (int i = n; i < 6; ++i) {
    if (model.radialDistortionCoeffs(i) == 0.0f) continue;
    field = "k" + std::to_string(i + 1);
    reason = "must be 0 for " + CamModel::modelName(model.model) + ", which has " + std::to_string(n) +
             " radial coefficients";
    return true;
  }
  if (model.model == FISHEYE_1_PARAMETER) {
    const double omega = double(model.radialDistortionCoeffs(0));
    if (!(omega > 0.0 && omega < 3.141592653589793)) {
      field = "k1";
      reason = "the field-of-view parameter of FISHEYE_1_PARAMETER must lie in (0, pi)";
      return true;
    }
  }
  return false;
}

/// The record-level refusal of one camera, before anything is computed.
bool refuseCameraFields(const CameraCalibrationMRV& cam, int camera, std::string& text) {
  if (cam.distortionModel < int32_t(LINEAR) || cam.distortionModel > int32_t(FISHEYE_4_PARAMETERS)) {
    text = sentence(camera, "distortion model",
                    std::to_string(cam.distortionModel) + " is not one of the six lens models (0 to 5)");
    return true;
  }
  std::string field, reason;
  if (findNonFiniteField(cam, field, reason)) {
    text = sentence(camera, field, reason);
    return true;
  }
  if (!(AR::Math::squaredNorm(VIO::poseQuaternion(cam.pose)) > 0.0f)) {
    text = sentence(camera, "pose orientation",
                    "the quaternion is zero, or so small that its squared length is zero in single precision");
    return true;
  }
  if (findBadIntrinsic(VIO::cameraModelFields(cam), field, reason)) {
    text = sentence(camera, field, reason);
    return true;
  }
  return false;
}

/// Why the entry points cannot run on `device`, or an empty text.
std::string refusalOf(const DeviceCalibrationMRV* device) {
  if (device == nullptr) return "No device record was given.";
  if (device->num_cameras != 2)
    return "The device record holds " + std::to_string(device->num_cameras) +
           " cameras in num_cameras; exactly 2 are required.";
  std::string text;
  for (int camera = 0; camera < 2; ++camera)
    if (refuseCameraFields(device->cameras[camera], camera, text)) return text;

  // The entry points' own conversion, refusing where it would abort.
  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  std::string refusal;
  const bool converted = VIO::tryDeviceToStereoCalibration(device, calibration, frame, refusal);
  if (!refusal.empty()) return refusal + ".";
  // A camera whose lens has no range to tabulate can come out of a
  // successful init without being initialised: each camera's state counts.
  const char* const kNotTabulated =
      "the lens cannot be tabulated over its valid range, so the camera cannot be built";
  for (int camera = 0; camera < 2; ++camera)
    if (!calibration[camera].isInitialized()) return sentence(camera, "distortion coefficients", kNotTabulated);
  if (!converted) return "The device record's cameras cannot be built.";
  if (!allFinite(frame.values + 21, 6))
    return sentence(0, "pose", "its inverse is not finite in single precision");
  if (!allFinite(calibration[1].getCamReferenceToLocal()))
    return sentence(1, "pose", "its pose relative to camera 0 is not finite in single precision");
  // The baseline length is a float norm: squares of far-apart positions
  // overflow although each position is finite.
  if (!std::isfinite(AR::Math::norm(calibration[1].getCamReferenceToLocal().translation())))
    return sentence(1, "pose position", "the distance between the two cameras overflows single precision");
  for (int camera = 0; camera < 2; ++camera)
    if (!allFinite(calibration[camera].getIntrinsics().getCorrectedFocalLengthVec()))
      return sentence(camera, "intrinsics", "the corrected focal length is not finite in single precision");

  // The rectification target, refusing where it would abort.
  AR::CV::FullStereoCameraCalibration<float> target;
  AR::Math::SO3<float> S;
  AR::CV::DepthParams<float> depthParams;
  const char* targetRefusal = nullptr;
  if (!VIO::rectifyTarget(calibration, target, S, depthParams, &targetRefusal))
    return sentence(1, "pose position", targetRefusal);
  const AR::CV::Camera<float>& rectified = target[0].getIntrinsics();
  if (!target[0].isInitialized() || !allFinite(rectified.getOriginalFocalLength()) ||
      !allFinite(rectified.getPrincipalPoint()))
    return sentence(0, "intrinsics", "the rectified camera has no finite focal length in single precision");
  if (!allFinite(AR::Math::SE3<float>(S, AR::Math::Vec3F())))
    return sentence(1, "pose", "the rectifying rotation is not finite in single precision");
  if (!std::isfinite(depthParams.constant))
    return sentence(1, "pose position",
                    "the depth constant (baseline times rectified focal length) is not finite in single precision");
  return std::string();
}

}  // namespace

extern "C" bool ValidateDeviceCalibration(const DeviceCalibrationMRV* device, char* message, uint32_t messageSize) {
  const std::string refusal = refusalOf(device);
  writeMessage(refusal, message, messageSize);
  return refusal.empty();
}
