// CreateFixedPlaneVSTMaps: fixed-plane video-see-through maps of the two
// display eyes of a device.

#include <array>

#include "AR/CV/Stereo/Rectify.h"
#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"
#include "DeviceCalibration.h"
#include "EntryPointRules.h"
#include "StereoRectifyWrapper.h"
#include "VSTMap.h"
#include "VSTRig.h"

namespace {

constexpr char kSource[] = "VIO/src/StereoRectifyWrapper";
constexpr char kFunction[] =
    "bool CreateFixedPlaneVSTMaps(const DeviceCalibrationMRV *, const CameraCalibrationMRV *, "
    "const CameraCalibrationMRV *, float, uint32_t, float *, uint32_t, float *, uint32_t, float *, "
    "uint32_t, float *, uint32_t)";

/// Camera 0's inverse pose as the conversion recorded it: device from
/// tracking camera 0.
AR::Math::SE3<float> devicePoseOf(const DeviceFrameParams& frame) {
  const AR::Math::SO3<float> R =
      AR::Math::SO3<float>::exp(AR::Math::Vec3F(frame.values[21], frame.values[22], frame.values[23]));
  return AR::Math::SE3<float>(R, AR::Math::Vec3F(frame.values[24], frame.values[25], frame.values[26]));
}

AR::Math::SE3<float> identityPose() {
  AR::Math::Matrix33F R = AR::Math::Matrix33F::identity();
  AR::Math::enforceRotation(R);
  return AR::Math::SE3<float>(AR::Math::SO3<float>::fromOrthonormal(R), AR::Math::Vec3F());
}

/// Builds one eye's maps into the caller's buffers (or as much of them as
/// their sizes allow). An eye or tracking camera without intrinsics leaves
/// the buffers alone.
void buildEyeMaps(const AR::CV::FullCamera<float>& camera, const AR::CV::FullCamera<float>& eye,
                  const AR::Math::SE3<float>& eyeTransform, const VIO::MapExtent& extent,
                  bool allowOutOfImage, float planeDepth, float* mapX, uint32_t mapX_size,
                  float* mapY, uint32_t mapY_size) {
  if (!camera.hasIntrinsics() || !eye.hasIntrinsics()) return;
  VIO::CallerMapPair maps(extent, mapX, mapX_size, mapY, mapY_size);
  // The plane points are not needed here: no full-size scratch for them.
  VIO::setupVSTMap(camera.getIntrinsics(), eye.getIntrinsics(), allowOutOfImage, eyeTransform,
                   maps.view(), planeDepth);
  maps.finish();
}

}  // namespace

extern "C" bool CreateFixedPlaneVSTMaps(const DeviceCalibrationMRV* deviceCalibration,
                                        const CameraCalibrationMRV* leftDisplay,
                                        const CameraCalibrationMRV* rightDisplay, float planeDepth,
                                        uint32_t allowOutOfImage, float* mapLeftX,
                                        uint32_t mapLeftX_size, float* mapLeftY,
                                        uint32_t mapLeftY_size, float* mapRightX,
                                        uint32_t mapRightX_size, float* mapRightY,
                                        uint32_t mapRightY_size) {
  if (!(mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr))
    AR::Common::logError(
        "mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr",
        kSource, kFunction, 181);
  if (!(deviceCalibration != nullptr && leftDisplay != nullptr && rightDisplay != nullptr))
    AR::Common::logError(
        "deviceCalibration != nullptr && leftDisplay != nullptr && rightDisplay != nullptr", kSource,
        kFunction, 182);
  // Without a record there is no count to check.
  if (deviceCalibration != nullptr && !(deviceCalibration->num_cameras == 2))
    AR::Common::logError("deviceCalibration->num_cameras == 2", kSource, kFunction, 183);
  // Without the device or either display there is nothing safe to compute:
  // the checks above are all this call does.
  if (deviceCalibration == nullptr || leftDisplay == nullptr || rightDisplay == nullptr) return true;

  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  const bool ret = VIO::deviceToStereoCalibration(deviceCalibration, calibration, frame);
  if (!ret) AR::Common::logError("ret", kSource, kFunction, 187);
  if (calibration.size() < 2) return true;

  AR::Math::SE3<float> devicePose = devicePoseOf(frame);
  const bool result = VIO::moveLeftCameraToOrigin(calibration, devicePose);
  if (!result)
    AR::Common::logError("result", "Common/include/AR/Common/Macros", "void assertSuccess(const bool)",
                         52);

  std::array<AR::Math::SE3<float>, 2> eyeTransforms = {identityPose(), identityPose()};
  AR::CV::FullStereoCameraCalibration<float> eyes;
  AR::CV::makeSeeThroughCalibration<float>(calibration, *leftDisplay, *rightDisplay, devicePose, eyes,
                                           eyeTransforms);

  // All four maps take the left display's size.
  const VIO::MapExtent extent = eyes.size() > 0 && eyes[0].hasIntrinsics()
                                    ? VIO::mapExtentOf(eyes[0].getIntrinsics().getSize())
                                    : VIO::MapExtent();
  const uint32_t map_buffer_size = extent.mapBufferSize;
  if (mapRightY_size != map_buffer_size || mapRightX_size != map_buffer_size ||
      mapLeftY_size != map_buffer_size || mapLeftX_size != map_buffer_size)
    AR::Common::logError(VIO::MAP_SIZE_CONDITION, kSource, kFunction, 203);
  if (eyes.size() < 2) return true;

  const bool allowOut = allowOutOfImage != 0;
  buildEyeMaps(calibration[0], eyes[0], eyeTransforms[0], extent, allowOut, planeDepth, mapLeftX,
               mapLeftX_size, mapLeftY, mapLeftY_size);
  buildEyeMaps(calibration[1], eyes[1], eyeTransforms[1], extent, allowOut, planeDepth, mapRightX,
               mapRightX_size, mapRightY, mapRightY_size);
  return true;
}
