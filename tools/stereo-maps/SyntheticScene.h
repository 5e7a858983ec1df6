#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "Rig.h"

namespace StereoMaps {

/// Renders what tracking camera `index` (0 or 1) of `rig` sees of a fixed test
/// scene: textured planes between 1 m and 5 m in front of camera 0, with
/// checkerboards and stripes whose edges are straight in space, so that any
/// correct undistortion or rectification shows them straight. Each pixel is
/// traced through the real distorted lens (2 x 2 samples); pixels without a
/// valid ray stay black. Returns an 8-bit grey image of the camera's size, or
/// an empty image with `error` set when the camera cannot be initialised.
cv::Mat renderTrackingCamera(const Rig& rig, int index, std::string& error);

}  // namespace StereoMaps
