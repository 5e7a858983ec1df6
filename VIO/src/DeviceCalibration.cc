#include "DeviceCalibration.h"

#include <cmath>
#include <cstring>
#include <limits>

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

/// Double to float, rounding to nearest. Values beyond the float range become
/// infinities, as the hardware conversion gives them, without relying on a
/// conversion that the language leaves undefined.
float toFloat(double value) {
  // Smallest magnitude that rounds to infinity: FLT_MAX plus half an ulp.
  constexpr double kFloatOverflow = 0x1.ffffffp127;
  if (value >= kFloatOverflow) return std::numeric_limits<float>::infinity();
  if (value <= -kFloatOverflow) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

void storeVector(DeviceFrameParams& frame, int first, const Vector<float, 3>& v) {
  for (int i = 0; i < 3; ++i) frame.values[first + i] = v(i);
}

void storeHeaderVector(DeviceFrameParams& frame, int first, const double (&v)[3]) {
  for (int i = 0; i < 3; ++i) frame.values[first + i] = toFloat(v[i]);
}

/// The internal camera model of one camera record: float parameters in the
/// model's order (principal point before focal length, as in the record) with
/// the valid distortion range narrowed. The record's noise fields are not
/// read: every device camera has the variance kDeviceCameraNoiseVariance.
CamModel::CameraModel<float> cameraModelFromRecord(const CameraCalibrationMRV& cam) {
  CamModel::CameraModel<float> model;
  model.size = Vector<float, 2>(static_cast<float>(cam.width), static_cast<float>(cam.height));
  model.principalPoint = Vector<float, 2>(toFloat(cam.cx), toFloat(cam.cy));
  model.focalLength = Vector<float, 2>(toFloat(cam.fx), toFloat(cam.fy));
  for (int i = 0; i < 6; ++i) model.radialDistortionCoeffs(i) = toFloat(cam.k[i]);
  for (int i = 0; i < 2; ++i) model.tangentialDistortionCoeffs(i) = toFloat(cam.p[i]);
  model.model = static_cast<DistortionModel>(static_cast<uint32_t>(cam.distortionModel));
  model.maxValidDistortionRSq = 81.0f;
  model.maxValidUndistortionRSq = 81.0f;
  model.setupValidDistortionRange();
  return model;
}

}  // namespace

AR::Math::SE3<float> toXRRD(const XrPosedMRV_t& pose) {
  Vector<float, 4> q(toFloat(pose.orientation.x), toFloat(pose.orientation.y),
                     toFloat(pose.orientation.z), toFloat(pose.orientation.w));
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

bool deviceToStereoCalibration(const DeviceCalibrationMRV* device,
                               AR::CV::FullStereoCameraCalibration<float>& calibration,
                               DeviceFrameParams& frame) {
  const CameraCalibrationMRV& cam0 = device->cameras[0];
  const CameraCalibrationMRV& cam1 = device->cameras[1];

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
  const AR::Math::SE3<float> T1 = toXRRD(cam1.pose);
  const Matrix<float, 3, 3> R1 = T1.rotation().matrix();
  const Vector<float, 3> t10 = T1.translation() - R1 * R0tT0;
  const AR::Math::SE3<float> pose1(AR::Math::SO3<float>(R1 * R0t), t10);

  // 7. Intrinsic models, camera 0 first.
  const CamModel::CameraModel<float> model0 = cameraModelFromRecord(cam0);
  const CamModel::CameraModel<float> model1 = cameraModelFromRecord(cam1);

  // 8., 9. Both cameras are always attempted.
  const AR::CV::CaptureDetails noCapture;
  const bool ok0 = calibration[0].init(model0, pose0, AR::CV::CamImageId("trackingA0"), false, 0.0f,
                                       noCapture, 0.0);
  const bool ok1 = calibration[1].init(model1, pose1, AR::CV::CamImageId("trackingB1"), false, 0.0f,
                                       noCapture, 0.0);
  return ok0 && ok1;
}

template <typename PREC>
XrPosedMRV_t toPoseRecord(const AR::Math::SE3<PREC>& pose) {
  const Matrix<PREC, 3, 3>& Rp = pose.rotation().matrix();
  double R[3][3];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) R[r][c] = static_cast<double>(Rp(r, c));

  // Branch on the largest of w, x, y, z so that the square root never sees a
  // small, cancellation-prone argument.
  double x, y, z, w;
  const double trace = R[0][0] + R[1][1] + R[2][2];
  if (trace > 0.0) {
    const double s = std::sqrt(trace + 1.0) * 2.0;
    w = 0.25 * s;
    x = (R[2][1] - R[1][2]) / s;
    y = (R[0][2] - R[2][0]) / s;
    z = (R[1][0] - R[0][1]) / s;
  } else if (R[0][0] > R[1][1] && R[0][0] > R[2][2]) {
    const double s = std::sqrt(1.0 + R[0][0] - R[1][1] - R[2][2]) * 2.0;
    w = (R[2][1] - R[1][2]) / s;
    x = 0.25 * s;
    y = (R[0][1] + R[1][0]) / s;
    z = (R[0][2] + R[2][0]) / s;
  } else if (R[1][1] > R[2][2]) {
    const double s = std::sqrt(1.0 + R[1][1] - R[0][0] - R[2][2]) * 2.0;
    w = (R[0][2] - R[2][0]) / s;
    x = (R[0][1] + R[1][0]) / s;
    y = 0.25 * s;
    z = (R[1][2] + R[2][1]) / s;
  } else {
    const double s = std::sqrt(1.0 + R[2][2] - R[0][0] - R[1][1]) * 2.0;
    w = (R[1][0] - R[0][1]) / s;
    x = (R[0][2] + R[2][0]) / s;
    y = (R[1][2] + R[2][1]) / s;
    z = 0.25 * s;
  }
  if (w < 0.0) {
    x = -x;
    y = -y;
    z = -z;
    w = -w;
  }

  XrPosedMRV_t record;
  record.orientation.x = x;
  record.orientation.y = y;
  record.orientation.z = z;
  record.orientation.w = w;
  record.position.x = static_cast<double>(pose.translation()(0));
  record.position.y = static_cast<double>(pose.translation()(1));
  record.position.z = static_cast<double>(pose.translation()(2));
  return record;
}

namespace {

void setError(std::string* error, const std::string& text) {
  if (error != nullptr) *error = text;
}

/// An image extent that converts to int32 without overflow.
bool fitsRecordSize(double extent) {
  return extent >= 1.0 && extent <= static_cast<double>(std::numeric_limits<int32_t>::max());
}

}  // namespace

template <typename PREC>
bool makeDeviceCalibration(const AR::CV::FullStereoCameraCalibration<PREC>& calibration,
                           DeviceCalibrationMRV& device, std::string* error) {
  if (calibration.size() != 2) {
    setError(error, "a device record holds exactly 2 cameras, the calibration has " +
                        std::to_string(calibration.size()));
    return false;
  }
  DeviceCalibrationMRV out;
  std::memset(&out, 0, sizeof(out));
  out.num_cameras = 2;
  for (size_t i = 0; i < 2; ++i) {
    const AR::CV::FullCamera<PREC>& camera = calibration.at(i);
    const std::string name(camera.getCamId().getCamName().rawName());
    if (!camera.isInitialized()) {
      setError(error, "camera " + std::to_string(i) + " ('" + name + "') is not initialised");
      return false;
    }
    const CamModel::CameraModel<PREC>& model = camera.getIntrinsicsPtr()->getCamModel();
    const double width = static_cast<double>(model.size(0));
    const double height = static_cast<double>(model.size(1));
    if (!fitsRecordSize(width) || !fitsRecordSize(height)) {
      setError(error, "camera " + std::to_string(i) + " ('" + name +
                          "') has an image size that does not fit the record");
      return false;
    }
    CameraCalibrationMRV& record = out.cameras[i];
    record.width = static_cast<int32_t>(width);
    record.height = static_cast<int32_t>(height);
    record.cx = static_cast<double>(model.principalPoint(0));
    record.cy = static_cast<double>(model.principalPoint(1));
    record.fx = static_cast<double>(model.focalLength(0));
    record.fy = static_cast<double>(model.focalLength(1));
    for (int k = 0; k < 6; ++k) record.k[k] = static_cast<double>(model.radialDistortionCoeffs(k));
    for (int k = 0; k < 2; ++k)
      record.p[k] = static_cast<double>(model.tangentialDistortionCoeffs(k));
    record.noiseX = std::sqrt(static_cast<double>(kDeviceCameraNoiseVariance));
    record.noiseY = record.noiseX;
    record.distortionModel = static_cast<int32_t>(model.model);
    record.pose = toPoseRecord(camera.getCamReferenceToLocal());
  }
  device = out;
  return true;
}

void makeDisplayRecord(const AR::CV::DisplayEye& eye, CameraCalibrationMRV& record) {
  std::memset(&record, 0, sizeof(record));
  record.width = eye.width;
  record.height = eye.height;
  record.cx = 0.5 * static_cast<double>(eye.width);
  record.cy = 0.5 * static_cast<double>(eye.height);
  record.fx = eye.fx;
  record.fy = eye.fy;
  record.distortionModel = static_cast<int32_t>(LINEAR);
  record.pose = toPoseRecord(eye.eyeFromDevice);
}

template XrPosedMRV_t toPoseRecord<float>(const AR::Math::SE3<float>&);
template XrPosedMRV_t toPoseRecord<double>(const AR::Math::SE3<double>&);
template bool makeDeviceCalibration<float>(const AR::CV::FullStereoCameraCalibration<float>&,
                                           DeviceCalibrationMRV&, std::string*);
template bool makeDeviceCalibration<double>(const AR::CV::FullStereoCameraCalibration<double>&,
                                            DeviceCalibrationMRV&, std::string*);

}  // namespace VIO
