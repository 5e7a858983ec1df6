#include "CustomRectify.h"

#include <cmath>
#include <string>

#include <AR/CV/Image/Image.h>
#include <AR/CV/Stereo/Rectify.h>
#include <AR/Common/ArrayView.h>
#include <AR/Math/SE3.h>

#include "DeviceCalibration.h"
#include "RectifiedCameraRecord.h"
#include "RectifyMap.h"

namespace StereoMaps {
namespace {

constexpr uint32_t kMaxMapSide = 16384;

void buildOne(const AR::CV::FullCamera<float>& source, const AR::CV::FullCamera<float>& target, bool allowOut,
              const AR::Math::SO3<float>& S, int width, int height, float* mapX, float* mapY) {
  const AR::Math::Vec2I size(width, height);
  const uint32_t stride = uint32_t(width) * uint32_t(sizeof(float));
  AR::CV::Image<float> images[2] = {
      AR::CV::Image<float>(mapX, size, stride, AR::Common::OS::getAlignment(mapX)),
      AR::CV::Image<float>(mapY, size, stride, AR::Common::OS::getAlignment(mapY))};
  AR::Common::ArrayView<AR::CV::Image<float>> view(images);
  VIO::setupRectifyMap(source, allowOut, target, S, view);
}

}  // namespace

void rectifyMapSize(const DeviceCalibrationMRV& device, const RectifyTarget& target, int& width, int& height) {
  width = target.width != 0 ? int(target.width) : device.cameras[0].width;
  height = device.cameras[0].height;
}

bool checkRectifyTarget(const DeviceCalibrationMRV& device, const RectifyTarget& target, bool optionNames,
                        std::string& error) {
  const char* disparities = optionNames ? "--disparities" : "num_disparities";
  const char* minDepth = optionNames ? "--min-depth" : "min_depth";
  const char* maxDepth = optionNames ? "--max-depth" : "max_depth";
  const char* width = optionNames ? "--width" : "target_width";
  const int32_t cameraWidth = device.cameras[0].width;
  if (target.numDisparities < 1 || target.numDisparities > kMaxMapSide)
    error = std::string(disparities) + ": must be between 1 and " + std::to_string(kMaxMapSide);
  else if (!std::isfinite(target.minDepth) || target.minDepth < 0.0f)
    error = std::string(minDepth) + ": must be a finite number of metres, 0 or more";
  else if (!std::isfinite(target.maxDepth) || !(target.maxDepth > 0.0f))
    error = std::string(maxDepth) + ": must be a finite number of metres above 0";
  else if (target.minDepth > 0.0f && !(target.minDepth < target.maxDepth))
    error = std::string(minDepth) + ": must be below " + maxDepth + " when depth fitting is on";
  else if (target.width != 0 && (cameraWidth < 1 || target.width > uint32_t(cameraWidth)))
    error = std::string(width) + ": must be between 1 and camera 0's width " + std::to_string(cameraWidth);
  else
    return true;
  return false;
}

bool buildRectifyMaps(const DeviceCalibrationMRV& device, const RectifyTarget& target, bool allowOutOfImage,
                      float* leftX, float* leftY, float* rightX, float* rightY, RectifyResult& result,
                      std::string& error) {
  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  VIO::deviceToStereoCalibration(&device, calibration, frame);

  AR::Math::Matrix33F identityRotation = AR::Math::Matrix33F::identity();
  AR::Math::enforceRotation(identityRotation);
  const AR::Math::SE3<float> identityPose(AR::Math::SO3<float>::fromOrthonormal(identityRotation),
                                          AR::Math::Vec3F());
  AR::CV::FullStereoCameraCalibration<float> rectified;
  AR::Math::SO3<float> S;
  AR::CV::DepthParams<float> depth;
  const char* refusal = nullptr;
  if (!AR::CV::Internal::tryMakeTargetCalibration<float>(calibration, target.numDisparities, target.minDepth,
                                                         target.maxDepth, target.width, identityPose,
                                                         AR::Math::Vec3F(), rectified, S, depth, refusal)) {
    error = refusal != nullptr ? refusal : "the rectified pair cannot be computed";
    return false;
  }
  // An extreme depth range can leave a target camera without a usable focal
  // length; the map builder needs both cameras.
  if (!rectified[0].isInitialized() || !rectified[1].isInitialized()) {
    error = "the rectified cameras cannot be built for this depth range";
    return false;
  }
  result.depthConstant = depth.constant;
  result.depthOffset = depth.offsetX;
  VIO::writeRectifiedCamera(rectified[0].getIntrinsics(), frame, S, result.rectified);

  int width = 0, height = 0;
  rectifyMapSize(device, target, width, height);
  buildOne(calibration[0], rectified[0], allowOutOfImage, S, width, height, leftX, leftY);
  buildOne(calibration[1], rectified[1], allowOutOfImage, S, width, height, rightX, rightY);
  return true;
}

}  // namespace StereoMaps
