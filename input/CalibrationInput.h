#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// How a calibration file is read: chosen from the extension unless given.
enum class CalibrationFormat { Auto, Xml, Kalibr, Record };

/// Parses "auto", "xml", "kalibr" or "record".
bool parseCalibrationFormat(const std::string& text, CalibrationFormat& format);

/// The example rig that ships with the tool (used when no file is given).
std::string defaultCalibrationPath();

/// Loads `path` as the calibration XML file (".xml", with display eyes when
/// present), a Kalibr camchain (".yaml", ".yml") or a raw DeviceCalibrationMRV
/// record (any other extension; at least 1504 bytes). On failure `error`
/// names the file and, where there is one, the element or key.
bool loadRig(const std::string& path, CalibrationFormat format, Rig& rig, std::string& error);

}  // namespace StereoMaps
