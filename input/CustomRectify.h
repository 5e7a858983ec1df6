#pragma once

#include <cstdint>
#include <string>

#include <StereoRectifyWrapper.h>

namespace StereoMaps {

/// The rectified pair to aim for. The defaults are the ones CreateRectifyMap
/// fixes, so that maps built with them equal the entry point's bit for bit.
struct RectifyTarget {
  /// Width of the disparity search range in pixels.
  uint32_t numDisparities = 64;
  /// Nearest depth (metres) that must be reachable within numDisparities;
  /// 0 leaves the focal length alone (no depth fitting).
  float minDepth = 0.0f;
  /// Depth (metres) that disparity 0 stands for when minDepth > 0.
  float maxDepth = 10.0f;
  /// Width of the rectified images; 0 keeps camera 0's width.
  uint32_t width = 0;
};

/// What a rectification gives besides the maps.
struct RectifyResult {
  /// The rectified left camera, as CreateRectifyMap writes it.
  CameraCalibrationMRV rectified{};
  /// depth = depthConstant / (disparity + depthOffset).
  float depthConstant = -1.0f;
  float depthOffset = 0.0f;
};

/// Size (width, height) of the maps of `target` for `device`.
void rectifyMapSize(const DeviceCalibrationMRV& device, const RectifyTarget& target, int& width, int& height);

/// Refuses targets the library would compute nonsense for (a depth range that
/// divides by zero, a target wider than camera 0, sizes beyond 16384).
/// `names` chooses how the message names the settings: true for the
/// tool's options (--disparities ...), false for argument names.
bool checkRectifyTarget(const DeviceCalibrationMRV& device, const RectifyTarget& target, bool optionNames,
                        std::string& error);

/// Builds the four rectification maps of a checked rig and target into
/// buffers of width × height floats each (rectifyMapSize), through the same
/// target calibration and map builder as CreateRectifyMap. False, with the
/// reason in `error` and the buffers untouched, when the target calibration
/// would abort or its cameras cannot be built.
bool buildRectifyMaps(const DeviceCalibrationMRV& device, const RectifyTarget& target, bool allowOutOfImage,
                      float* leftX, float* leftY, float* rightX, float* rightY, RectifyResult& result,
                      std::string& error);

}  // namespace StereoMaps
