#include "CalibrationInput.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include <StereoRectifyWrapper.h>

#include "InputFile.h"
#include "KalibrImport.h"
#include "OpenCvImport.h"
#include "RigCheck.h"
#include "XmlImport.h"

namespace StereoMaps {
namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
  if (text.size() < suffix.size()) return false;
  for (size_t i = 0; i < suffix.size(); ++i) {
    char c = text[text.size() - suffix.size() + i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != suffix[i]) return false;
  }
  return true;
}

bool loadRecord(const std::string& path, Rig& rig, std::string& error) {
  // Only the record's own bytes are read: a record may be followed by more
  // camera slots, and a path to something endless must not fill memory.
  std::string bytes;
  if (!readInputFile(path, "a DeviceCalibrationMRV record", sizeof(DeviceCalibrationMRV), true, bytes, error))
    return false;
  rig = Rig{};
  std::memcpy(&rig.device, bytes.data(), sizeof(DeviceCalibrationMRV));
  if (rig.device.num_cameras != 2) {
    error = path + ": num_cameras is " + std::to_string(rig.device.num_cameras) + ", expected 2";
    return false;
  }
  return true;
}

/// The library stops on a fatal assertion for records that its contract
/// makes a programming error; a front end turns every such input into a
/// message instead. First the tool's own bounds and the display eyes (which
/// the library's validation does not examine), then the library's own
/// verdict on the device record, computed exactly as the entry points will
/// compute it. Every entry-point call of the tool follows a successful load.
bool validateRig(const std::string& path, const Rig& rig, std::string& error) {
  std::string why;
  if (!checkRig(rig, why)) {
    error = path + ": " + why;
    return false;
  }
  char message[512];
  if (!ValidateDeviceCalibration(&rig.device, message, sizeof message)) {
    error = path + ": " + message;
    return false;
  }
  return true;
}

}  // namespace

bool parseCalibrationFormat(const std::string& text, CalibrationFormat& format) {
  if (text == "auto") format = CalibrationFormat::Auto;
  else if (text == "xml") format = CalibrationFormat::Xml;
  else if (text == "kalibr") format = CalibrationFormat::Kalibr;
  else if (text == "record") format = CalibrationFormat::Record;
  else if (text == "opencv") format = CalibrationFormat::OpenCv;
  else return false;
  return true;
}

std::string defaultCalibrationPath() {
  // An installed tool finds the example next to it (bin/../share/...); a tool
  // run from its build tree uses the source tree's copy.
  std::error_code ec;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const std::filesystem::path installed =
        exe.parent_path().parent_path() / STEREO_MAPS_EXAMPLE_RELATIVE_TO_PREFIX;
    if (std::filesystem::is_regular_file(installed, ec)) return installed.string();
  }
  return STEREO_MAPS_SOURCE_EXAMPLE;
}

bool loadRig(const std::string& path, CalibrationFormat format, Rig& rig, std::string& error) {
  return loadRig(path, format, false, rig, error);
}

bool validateRecordRig(const std::string& source, const Rig& rig, std::string& error) {
  if (rig.device.num_cameras != 2) {
    error = source + ": num_cameras is " + std::to_string(rig.device.num_cameras) + ", expected 2";
    return false;
  }
  return validateRig(source, rig, error);
}

bool loadRig(const std::string& path, CalibrationFormat format, bool fisheye, Rig& rig, std::string& error) {
  if (format == CalibrationFormat::Auto) {
    if (endsWith(path, ".xml")) format = CalibrationFormat::Xml;
    else if (endsWith(path, ".yaml") || endsWith(path, ".yml")) format = CalibrationFormat::Kalibr;
    else format = CalibrationFormat::Record;
    // OpenCV writes .xml and .yml too; its own header tells the files apart.
    if (format != CalibrationFormat::Record && looksLikeOpenCvStorage(path)) format = CalibrationFormat::OpenCv;
  }
  bool loaded = false;
  switch (format) {
    case CalibrationFormat::Xml:
      loaded = loadXmlRig(path, rig, error);
      break;
    case CalibrationFormat::Kalibr:
      loaded = loadKalibrCamchain(path, rig, error);
      break;
    case CalibrationFormat::OpenCv:
      loaded = loadOpenCvStereo(path, fisheye, rig, error);
      break;
    default:
      loaded = loadRecord(path, rig, error);
      break;
  }
  return loaded && validateRig(path, rig, error);
}

}  // namespace StereoMaps
