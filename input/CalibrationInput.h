#pragma once

#include <cstdint>
#include <string>

#include "Rig.h"

namespace StereoMaps {

/// Largest width or height of a camera or display eye the tool accepts, and
/// largest pixel count (4096 x 4096). Every map, rendered preview camera and
/// preview image is at most this large, so no input can make the tool
/// allocate without limit.
constexpr int32_t kMaxImageSide = 8192;
constexpr int64_t kMaxImagePixels = int64_t(4096) * 4096;

/// How a calibration file is read: chosen from the extension unless given.
enum class CalibrationFormat { Auto, Xml, Kalibr, Record, OpenCv };

/// Parses "auto", "xml", "kalibr", "record" or "opencv".
bool parseCalibrationFormat(const std::string& text, CalibrationFormat& format);

/// The example rig that ships with the tool (used when no file is given).
std::string defaultCalibrationPath();

/// Loads `path` as the calibration XML file (".xml", with display eyes when
/// present), a Kalibr camchain (".yaml", ".yml") or a raw DeviceCalibrationMRV
/// record (any other extension; its first 1504 bytes are read). Only regular
/// files are read. The loaded rig is checked so that the library can take
/// it: sizes within the bounds above, every number finite once rounded to
/// the float the library computes in, normalisable quaternions. On failure
/// `error` is one sentence naming the file and, where there is one, the
/// camera, element or key.
bool loadRig(const std::string& path, CalibrationFormat format, Rig& rig, std::string& error);

/// As above; an OpenCV stereo calibration (chosen by `format`, or found by
/// its "%YAML:1.0" header or "opencv_storage" root where the extension would
/// pick another reader) is read as fisheye when `fisheye` is set.
bool loadRig(const std::string& path, CalibrationFormat format, bool fisheye, Rig& rig, std::string& error);

/// The checks every loaded rig passes (two cameras, checkRig, intrinsics the
/// library can build), for a rig that comes from elsewhere. `source` names
/// the input in the message.
bool validateRecordRig(const std::string& source, const Rig& rig, std::string& error);

}  // namespace StereoMaps
