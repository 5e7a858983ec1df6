#include "DeviceCalibration.h"

#include <string>

#include "AR/Math/CheckedConversion.h"
#include "AR/Math/SE3.h"
#include "CameraModel/CameraModel.h"

namespace VIO {

namespace {

using AR::Math::Matrix;
using AR::Math::Vector;

/// Rotation vector (unit axis times angle) of a rotation matrix.
Vector<float, 3> rotationVector(const Matrix<float, 3, 3>& R) {
  Vector<float, 3> axis;
  float angle = 0.0f;
  AR::Math::matrix2AxisAngle(R, axis, angle);
  return axis * angle;
}

/// Double to float, rounding to nearest, defined beyond the float range.
float toFloat(double value) { return AR::Math::roundToPrecision<float>(value); }

void storeVector(DeviceFrameParams& frame, int first, const Vector<float, 3>& v) {
  for (int i = 0; i < 3; ++i) frame.values[first + i] = v(i);
}

void storeHeaderVector(DeviceFrameParams& frame, int first, const double (&v)[3]) {
  for (int i = 0; i < 3; ++i) frame.values[first + i] = toFloat(v[i]);
}

/// Why setting up the valid range of `model` would abort, or null when it
/// will not: an enumeration value outside the six models, or a RADIAL_6
/// denominator root that is not a number.
const char* rangeSetupRefusal(const CamModel::CameraModel<float>& model) {
  if (uint32_t(model.model) > uint32_t(FISHEYE_4_PARAMETERS))
    return "distortion model is not one of the six lens models (0 to 5)";
  if (model.denominatorRootIsNaN())
    return "radial coefficients k4..k6 give a denominator root that is not a number in single precision";
  return nullptr;
}

const char* const kCameraIds[2] = {"trackingA0", "trackingB1"};

/// "camera <index> (<id>) <field>: <reason>" into `refusal`; returns false.
bool refuse(std::string* refusal, int camera, const char* field, const char* reason) {
  *refusal = std::string("camera ") + std::to_string(camera) + " (" + kCameraIds[camera] + ") " + field + ": " +
             reason;
  return false;
}

}  // namespace

/// The internal camera model of one camera record: float parameters in the
/// model's order (principal point before focal length, as in the record),
/// both validity limits at their starting value. The record's noise fields
/// are not read: every device camera has the variance
/// kDeviceCameraNoiseVariance.
CamModel::CameraModel<float> cameraModelFields(const CameraCalibrationMRV& cam) {
  CamModel::CameraModel<float> model;
  model.size = Vector<float, 2>(static_cast<float>(cam.width), static_cast<float>(cam.height));
  model.principalPoint = Vector<float, 2>(toFloat(cam.cx), toFloat(cam.cy));
  model.focalLength = Vector<float, 2>(toFloat(cam.fx), toFloat(cam.fy));
  for (int i = 0; i < 6; ++i) model.radialDistortionCoeffs(i) = toFloat(cam.k[i]);
  for (int i = 0; i < 2; ++i) model.tangentialDistortionCoeffs(i) = toFloat(cam.p[i]);
  model.model = static_cast<DistortionModel>(static_cast<uint32_t>(cam.distortionModel));
  model.maxValidDistortionRSq = kDeviceCameraNoiseVariance;
  model.maxValidUndistortionRSq = kDeviceCameraNoiseVariance;
  return model;
}

Vector<float, 4> poseQuaternion(const XrPosedMRV_t& pose) {
  return Vector<float, 4>(toFloat(pose.orientation.x), toFloat(pose.orientation.y), toFloat(pose.orientation.z),
                          toFloat(pose.orientation.w));
}

static bool poseQuaternionHasDirection(const XrPosedMRV_t& pose) {
  // Exactly the test that normalize() applies before it divides.
  return AR::Math::squaredNorm(poseQuaternion(pose)) > 0.0f;
}

AR::Math::SE3<float> toXRRD(const XrPosedMRV_t& pose) {
  Vector<float, 4> q = poseQuaternion(pose);
  AR::Math::normalize(q);
  const float x = q(0);
  const float y = q(1);
  const float z = q(2);
  const float w = q(3);

  const Matrix<float, 3, 3> R(
      1.0f - 2.0f * (y * y + z * z), 2.0f * (x * y - z * w), 2.0f * (x * z + y * w),
      2.0f * (x * y + z * w), 1.0f - 2.0f * (x * x + z * z), 2.0f * (y * z - x * w),
      2.0f * (x * z - y * w), 2.0f * (y * z + x * w), 1.0f - 2.0f * (x * x + y * y));

  const Vector<float, 3> t(toFloat(pose.position.x), toFloat(pose.position.y),
                           toFloat(pose.position.z));
  // Making the SO3 from a matrix re-orthogonalises it (one enforceRotation step).
  return AR::Math::SE3<float>(AR::Math::SO3<float>(R), t);
}

namespace {

/// The conversion. With a non-null `refusal` every step that would reach a
/// fatal assertion is tested first, on the very values that step would use,
/// and the conversion stops there with the reason instead; with a null one
/// the assertions fire as they always do.
bool convert(const DeviceCalibrationMRV* device, AR::CV::FullStereoCameraCalibration<float>& calibration,
             DeviceFrameParams& frame, std::string* refusal) {
  const CameraCalibrationMRV& cam0 = device->cameras[0];
  const CameraCalibrationMRV& cam1 = device->cameras[1];
  const char* const kZeroQuaternion =
      "the quaternion is zero, or so small that its squared length is zero in single precision";

  // 1. Header vectors and camera 0's integer field.
  for (int i = 12; i < 18; ++i) frame.values[i] = 0.0f;
  storeHeaderVector(frame, 0, device->headerVectorD);
  storeHeaderVector(frame, 3, device->headerVectorB);
  storeHeaderVector(frame, 6, device->headerVectorC);
  storeHeaderVector(frame, 9, device->headerVectorA);
  frame.values[27] = static_cast<float>(cam0.cameraIntegerField);

  // 2. The reference rotation (identity).
  storeVector(frame, 18, rotationVector(Matrix<float, 3, 3>::identity()));

  // 3. Camera 0's inverse pose: device-from-camera 0.
  if (refusal != nullptr && !poseQuaternionHasDirection(cam0.pose))
    return refuse(refusal, 0, "pose orientation", kZeroQuaternion);
  const AR::Math::SE3<float> T0 = toXRRD(cam0.pose);
  const Matrix<float, 3, 3> R0 = T0.rotation().matrix();
  const Matrix<float, 3, 3> R0t = R0.transpose();
  const Vector<float, 3> R0tT0 = R0t * T0.translation();
  storeVector(frame, 21, rotationVector(R0t));
  storeVector(frame, 24, -R0tT0);

  // 4. Two placeholder cameras.
  calibration.setupEmptyCalibrationWithDefaultIds(2);

  // 5. Camera 0 defines the rig's reference frame.
  const Matrix<float, 3, 3> identity = Matrix<float, 3, 3>::identity();
  const AR::Math::SE3<float> pose0{AR::Math::SO3<float>(identity), Vector<float, 3>()};

  // 6. Camera 1 relative to camera 0: T1 * T0^-1. The translation uses the
  // factors before re-orthogonalisation.
  if (refusal != nullptr && !poseQuaternionHasDirection(cam1.pose))
    return refuse(refusal, 1, "pose orientation", kZeroQuaternion);
  const AR::Math::SE3<float> T1 = toXRRD(cam1.pose);
  const Matrix<float, 3, 3> R1 = T1.rotation().matrix();
  const Vector<float, 3> t10 = T1.translation() - R1 * R0tT0;
  const AR::Math::SE3<float> pose1(AR::Math::SO3<float>(R1 * R0t), t10);

  // 7. Intrinsic models, camera 0 first.
  CamModel::CameraModel<float> models[2] = {cameraModelFields(cam0), cameraModelFields(cam1)};
  for (int i = 0; i < 2; ++i) {
    if (refusal != nullptr) {
      if (const char* reason = rangeSetupRefusal(models[i])) return refuse(refusal, i, "distortion model", reason);
    }
    models[i].setupValidDistortionRange();
  }

  // 8., 9. Both cameras are always attempted.
  const AR::CV::CaptureDetails noCapture;
  const bool ok0 = calibration[0].init(models[0], pose0, AR::CV::CamImageId(kCameraIds[0]), false, 0.0f,
                                       noCapture, 0.0);
  const bool ok1 = calibration[1].init(models[1], pose1, AR::CV::CamImageId(kCameraIds[1]), false, 0.0f,
                                       noCapture, 0.0);
  return ok0 && ok1;
}

}  // namespace

bool deviceToStereoCalibration(const DeviceCalibrationMRV* device,
                               AR::CV::FullStereoCameraCalibration<float>& calibration,
                               DeviceFrameParams& frame) {
  return convert(device, calibration, frame, nullptr);
}

bool tryDeviceToStereoCalibration(const DeviceCalibrationMRV* device,
                                  AR::CV::FullStereoCameraCalibration<float>& calibration,
                                  DeviceFrameParams& frame, std::string& refusal) {
  refusal.clear();
  return convert(device, calibration, frame, &refusal);
}

}  // namespace VIO
