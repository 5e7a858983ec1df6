// CreateRectifyMap: stereo rectification maps of a two-camera device.

#include <cmath>
#include <cstdint>

#include "AR/CV/Stereo/Rectify.h"
#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"
#include "DeviceCalibration.h"
#include "EntryPointRules.h"
#include "RectifyMap.h"
#include "RectifyTarget.h"
#include "StereoRectifyWrapper.h"

namespace {

constexpr const char* kSource = "VIO/src/StereoRectifyWrapper";
constexpr const char* kFunction =
    "bool CreateRectifyMap(const DeviceCalibrationMRV *, uint32_t, float *, uint32_t, float *, uint32_t, "
    "float *, uint32_t, float *, uint32_t, float *, CameraCalibrationMRV *)";

// The target: 64 disparities, no depth fitting (minDepth 0, so fx = fy and
// offsetX = 0; maxDepth 10 is then unused), the left camera's own width and
// no leaning towards a desired direction.
constexpr uint32_t kNumDisparities = 64;
constexpr float kMinDepth = 0.0f;
constexpr float kMaxDepth = 10.0f;
constexpr uint32_t kTargetImageWidth = 0;

/// Unit quaternion (x, y, z, w) of a rotation matrix by the trace method:
/// from the trace when it is positive, otherwise from the largest diagonal
/// element, so that the square root is always taken of a value of at least 1.
void rotationToQuaternion(const AR::Math::Matrix33F& R, XrQuaterniondMRV_t& q) {
  const float trace = R(0, 0) + R(1, 1) + R(2, 2);
  float x, y, z, w;
  if (trace > 0.0f) {
    const float s = 2.0f * std::sqrt(trace + 1.0f);
    w = s / 4.0f;
    x = (R(2, 1) - R(1, 2)) / s;
    y = (R(0, 2) - R(2, 0)) / s;
    z = (R(1, 0) - R(0, 1)) / s;
  } else if (R(0, 0) > R(1, 1) && R(0, 0) > R(2, 2)) {
    const float s = 2.0f * std::sqrt(1.0f + R(0, 0) - R(1, 1) - R(2, 2));
    w = (R(2, 1) - R(1, 2)) / s;
    x = s / 4.0f;
    y = (R(0, 1) + R(1, 0)) / s;
    z = (R(0, 2) + R(2, 0)) / s;
  } else if (R(1, 1) > R(2, 2)) {
    const float s = 2.0f * std::sqrt(1.0f + R(1, 1) - R(0, 0) - R(2, 2));
    w = (R(0, 2) - R(2, 0)) / s;
    x = (R(0, 1) + R(1, 0)) / s;
    y = s / 4.0f;
    z = (R(1, 2) + R(2, 1)) / s;
  } else {
    const float s = 2.0f * std::sqrt(1.0f + R(2, 2) - R(0, 0) - R(1, 1));
    w = (R(1, 0) - R(0, 1)) / s;
    x = (R(0, 2) + R(2, 0)) / s;
    y = (R(1, 2) + R(2, 1)) / s;
    z = s / 4.0f;
  }
  q.x = double(x);
  q.y = double(y);
  q.z = double(z);
  q.w = double(w);
}

/// Writes the rectified left camera into the caller's record: intrinsics
/// (bytes 64..191) and pose (192..247). Bytes 0..63 and 248..311 belong to
/// the caller and are not touched.
void writeRectifiedCamera(const AR::CV::Camera<float>& camera, const DeviceFrameParams& frame,
                          const AR::Math::SO3<float>& S, CameraCalibrationMRV& out) {
  const CamModel::CameraModel<float>& model = camera.getCamModel();
  int32_t width = 0, height = 0;
  VIO::tryTruncateToInt32(model.size(0), width);
  VIO::tryTruncateToInt32(model.size(1), height);
  out.width = width;
  out.height = height;
  out.cx = double(model.principalPoint(0));
  out.cy = double(model.principalPoint(1));
  out.fx = double(model.focalLength(0));
  out.fy = double(model.focalLength(1));
  for (int i = 0; i < 6; ++i) out.k[i] = double(model.radialDistortionCoeffs(i));
  out.p[0] = double(model.tangentialDistortionCoeffs(0));
  out.p[1] = double(model.tangentialDistortionCoeffs(1));
  // The record carries the feature noise as a standard deviation; the model
  // holds it as a variance in the two fields after the distortion model.
  out.noiseX = double(std::sqrt(model.maxValidDistortionRSq));
  out.noiseY = double(std::sqrt(model.maxValidUndistortionRSq));
  out.distortionModel = int32_t(model.model);

  // Pose: camera 0's inverse pose (device from camera 0) times S is the
  // device-from-rectified transform; the record holds its inverse,
  // rectified-from-device, i.e. orientation S^T R0 and position S^T t0.
  const AR::Math::SO3<float> E =
      AR::Math::SO3<float>::exp(AR::Math::Vec3F(frame.values[21], frame.values[22], frame.values[23]));
  const AR::Math::Vec3F t(frame.values[24], frame.values[25], frame.values[26]);
  AR::Math::Matrix33F R = E.matrix() * S.matrix();
  AR::Math::enforceRotation(R);
  const AR::Math::Matrix33F Rt = R.transpose();
  const AR::Math::Vec3F position = -(Rt * t);
  rotationToQuaternion(Rt, out.pose.orientation);
  out.pose.position.x = double(position(0));
  out.pose.position.y = double(position(1));
  out.pose.position.z = double(position(2));
}

}  // namespace

namespace VIO {

bool rectifyTarget(const AR::CV::FullStereoCameraCalibration<float>& calibration,
                   AR::CV::FullStereoCameraCalibration<float>& target, AR::Math::SO3<float>& S,
                   AR::CV::DepthParams<float>& depthParams, const char** refusal) {
  AR::Math::Matrix33F identityRotation = AR::Math::Matrix33F::identity();
  AR::Math::enforceRotation(identityRotation);
  const AR::Math::SE3<float> identityPose(AR::Math::SO3<float>::fromOrthonormal(identityRotation),
                                          AR::Math::Vec3F());
  const AR::Math::Vec3F noDesiredDirection;
  if (refusal == nullptr) {
    AR::CV::makeTargetCalibration<float>(calibration, kNumDisparities, kMinDepth, kMaxDepth, kTargetImageWidth,
                                         identityPose, noDesiredDirection, target, S, depthParams);
    return true;
  }
  return AR::CV::Internal::tryMakeTargetCalibration<float>(calibration, kNumDisparities, kMinDepth, kMaxDepth,
                                                           kTargetImageWidth, identityPose, noDesiredDirection,
                                                           target, S, depthParams, *refusal);
}

}  // namespace VIO

extern "C" bool CreateRectifyMap(const DeviceCalibrationMRV* deviceCalibration, uint32_t allowOutOfImage,
                                 float* mapLeftX, uint32_t mapLeftX_size, float* mapLeftY, uint32_t mapLeftY_size,
                                 float* mapRightX, uint32_t mapRightX_size, float* mapRightY,
                                 uint32_t mapRightY_size, float* depthParamOut,
                                 CameraCalibrationMRV* rectifiedCam) {
  if (!(mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr))
    AR::Common::logError("mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr",
                         kSource, kFunction, 22);
  if (!(deviceCalibration != nullptr && rectifiedCam != nullptr))
    AR::Common::logError("deviceCalibration != nullptr && rectifiedCam != nullptr", kSource, kFunction, 23);
  if (deviceCalibration != nullptr && !(deviceCalibration->num_cameras == 2))
    AR::Common::logError("deviceCalibration->num_cameras == 2", kSource, kFunction, 24);
  // Without the device record there is nothing to compute: the checks above
  // are all this call does. Without the record to fill, everything else is
  // still computed; only that record is skipped.
  if (deviceCalibration == nullptr) return true;

  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  const bool ret = VIO::deviceToStereoCalibration(deviceCalibration, calibration, frame);
  if (!ret) AR::Common::logError("ret", kSource, kFunction, 29);

  if (depthParamOut != nullptr) *depthParamOut = -1.0f;
  AR::CV::FullStereoCameraCalibration<float> target;
  AR::Math::SO3<float> S;
  AR::CV::DepthParams<float> depthParams;
  VIO::rectifyTarget(calibration, target, S, depthParams, nullptr);
  if (depthParamOut != nullptr) *depthParamOut = depthParams.constant;

  const AR::CV::Camera<float>& targetLeft = target[0].getIntrinsics();
  if (rectifiedCam != nullptr) writeRectifiedCamera(targetLeft, frame, S, *rectifiedCam);

  const VIO::MapExtent extent = VIO::mapExtentOf(targetLeft.getSize());
  const uint32_t map_buffer_size = extent.mapBufferSize;
  if (mapRightY_size != map_buffer_size || mapLeftX_size != map_buffer_size || mapRightX_size != map_buffer_size ||
      mapLeftY_size != map_buffer_size)
    AR::Common::logError(VIO::MAP_SIZE_CONDITION, kSource, kFunction, 51);

  // Both cameras are rectified with the same S: that is what puts a scene
  // point on the same row of both target images.
  const bool allowOut = allowOutOfImage != 0;
  VIO::CallerMapPair left(extent, mapLeftX, mapLeftX_size, mapLeftY, mapLeftY_size);
  VIO::setupRectifyMap(calibration[0], allowOut, target[0], S, left.view());
  left.finish();
  VIO::CallerMapPair right(extent, mapRightX, mapRightX_size, mapRightY, mapRightY_size);
  VIO::setupRectifyMap(calibration[1], allowOut, target[1], S, right.view());
  right.finish();
  return true;
}
