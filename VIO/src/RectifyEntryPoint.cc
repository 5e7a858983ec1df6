// CreateRectifyMap: stereo rectification maps of a two-camera device.

#include <cmath>
#include <cstdint>

#include "AR/CV/Stereo/Rectify.h"
#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"
#include "DeviceCalibration.h"
#include "EntryPointRules.h"
#include "RectifiedCameraRecord.h"
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
  if (rectifiedCam != nullptr) VIO::writeRectifiedCamera(targetLeft, frame, S, *rectifiedCam);

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
