#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// How a calibration file is read: chosen from the extension unless given.
enum class CalibrationFormat { Auto, Xml, Kalibr, Record, OpenCv };

/// Parses "auto", "xml", "kalibr", "record" or "opencv".
bool parseCalibrationFormat(const std::string& text, CalibrationFormat& format);

/// The example rig that ships with the tool (used when no file is given).
std::string defaultCalibrationPath();

/// Loads `path` as the calibration XML file (".xml", with display eyes when
/// present), a Kalibr camchain (".yaml", ".yml") or a raw DeviceCalibrationMRV
/// record (any other extension; at least 1504 bytes). On failure `error`
/// names the file and, where there is one, the element or key.
bool loadRig(const std::string& path, CalibrationFormat format, Rig& rig, std::string& error);

/// As above; an OpenCV stereo calibration (chosen by `format`, or found by
/// its "%YAML:1.0" header or "opencv_storage" root where the extension would
/// pick another reader) is read as fisheye when `fisheye` is set.
bool loadRig(const std::string& path, CalibrationFormat format, bool fisheye, Rig& rig, std::string& error);

/// The checks every loaded rig passes: two cameras, known lens models, usable
/// pose quaternions and intrinsics the library can build. `source` names the
/// input in the message.
bool checkRig(const std::string& source, const Rig& rig, std::string& error);

}  // namespace StereoMaps
