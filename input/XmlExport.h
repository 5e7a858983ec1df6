#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// Writes `rig` as the library's XML calibration file: the two tracking
/// cameras as "trackingA0" and "trackingB1" (the ids the library gives them)
/// and the display eyes when the rig has them. Loading the file gives the
/// same device record back. On failure `error` names the file.
bool saveXmlRig(const std::string& path, const Rig& rig, std::string& error);

}  // namespace StereoMaps
