#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// Loads the library's XML calibration file ("DeviceConfiguration") into the
/// device record, with the display eyes when the file has them.
bool loadXmlRig(const std::string& path, Rig& rig, std::string& error);

}  // namespace StereoMaps
