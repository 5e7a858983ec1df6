// CreateUndistortMap: undistortion maps for both tracking cameras of a device.

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Logger.h"
#include "DeviceCalibration.h"
#include "EntryPointRules.h"
#include "StereoRectifyWrapper.h"
#include "UndistortMap.h"

namespace {

constexpr char kSource[] = "VIO/src/StereoRectifyWrapper";
constexpr char kFunction[] =
    "bool CreateUndistortMap(const DeviceCalibrationMRV *, uint32_t, float, float *, uint32_t, "
    "float *, uint32_t, float *, uint32_t, float *, uint32_t)";

/// The intrinsic camera of a rig camera, or null when it has none (a
/// conversion that failed before creating it).
const AR::CV::Camera<float>* intrinsicsOf(const AR::CV::FullCamera<float>& camera) {
  return camera.hasIntrinsics() ? &camera.getIntrinsics() : nullptr;
}

/// Builds one camera's maps into the caller's buffers (or as much of them as
/// their sizes allow). A camera without intrinsics leaves its buffers alone.
void buildCameraMaps(const AR::CV::Camera<float>* camera, const VIO::MapExtent& extent,
                     bool allowOutOfImage, float fovFactor, float* mapX, uint32_t mapX_size,
                     float* mapY, uint32_t mapY_size) {
  if (camera == nullptr) return;
  VIO::CallerMapPair maps(extent, mapX, mapX_size, mapY, mapY_size);
  VIO::setupUndistortMap(*camera, allowOutOfImage, fovFactor, maps.view());
  maps.finish();
}

}  // namespace

bool CreateUndistortMap(const DeviceCalibrationMRV* deviceCalibration, uint32_t allowOutOfImage,
                        float fovFactor, float* mapLeftX, uint32_t mapLeftX_size, float* mapLeftY,
                        uint32_t mapLeftY_size, float* mapRightX, uint32_t mapRightX_size,
                        float* mapRightY, uint32_t mapRightY_size) {
  if (!(deviceCalibration != nullptr && mapLeftX != nullptr && mapLeftY != nullptr &&
        mapRightX != nullptr && mapRightY != nullptr))
    AR::Common::logError(
        "deviceCalibration != nullptr && mapLeftX != nullptr && mapLeftY != nullptr && "
        "mapRightX != nullptr && mapRightY != nullptr",
        kSource, kFunction, 73);
  // Without a record there is no count to check and nothing to convert.
  if (deviceCalibration != nullptr && !(deviceCalibration->num_cameras == 2))
    AR::Common::logError("deviceCalibration->num_cameras == 2", kSource, kFunction, 74);

  // Only an ordered comparison refuses the factor: NaN goes on (and yields
  // maps without valid entries). There is no upper bound.
  if (fovFactor <= 0.0f) {
    auto& logger = AR::Common::Logger::getInstance();
    if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      logger.logEx2(AR::Common::Logger::LEVEL_ERROR, kSource, kFunction, 77,
                    "Invalid undistortion field of view factor %f", double(fovFactor));
    return false;
  }
  if (deviceCalibration == nullptr) return true;

  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  const bool ret = VIO::deviceToStereoCalibration(deviceCalibration, calibration, frame);
  if (!ret) AR::Common::logError("ret", kSource, kFunction, 84);
  if (calibration.size() < 2) return true;

  // Both cameras' maps take camera 0's image size.
  const AR::CV::Camera<float>* left = intrinsicsOf(calibration[0]);
  const AR::CV::Camera<float>* right = intrinsicsOf(calibration[1]);
  const VIO::MapExtent extent = left != nullptr ? VIO::mapExtentOf(left->getSize()) : VIO::MapExtent();
  const uint32_t map_buffer_size = extent.mapBufferSize;
  if (!(mapLeftX_size == map_buffer_size && mapLeftY_size == map_buffer_size &&
        mapRightX_size == map_buffer_size && mapRightY_size == map_buffer_size))
    AR::Common::logError(VIO::MAP_SIZE_CONDITION, kSource, kFunction, 90);

  const bool allowOut = allowOutOfImage != 0;
  buildCameraMaps(left, extent, allowOut, fovFactor, mapLeftX, mapLeftX_size, mapLeftY,
                  mapLeftY_size);
  buildCameraMaps(right, extent, allowOut, fovFactor, mapRightX, mapRightX_size, mapRightY,
                  mapRightY_size);
  return true;
}
