#include "CalibrationInput.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <fstream>
#include <iterator>
#include <vector>


#include "CameraFromRecord.h"
#include "KalibrImport.h"
#include "OpenCvImport.h"
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
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = path + ": cannot be read";
    return false;
  }
  std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < sizeof(DeviceCalibrationMRV)) {
    error = path + ": a DeviceCalibrationMRV record needs at least " + std::to_string(sizeof(DeviceCalibrationMRV)) +
            " bytes, the file has " + std::to_string(bytes.size());
    return false;
  }
  rig = Rig{};
  std::memcpy(&rig.device, bytes.data(), sizeof(DeviceCalibrationMRV));
  if (rig.device.num_cameras != 2) {
    error = path + ": num_cameras is " + std::to_string(rig.device.num_cameras) + ", expected 2";
    return false;
  }
  return true;
}

/// The library aborts on cameras it cannot build only where its contract
/// makes that a programming error; the tool turns every such input into a
/// clear message instead, using the same float camera the library builds.
bool validateCameras(const std::string& path, const Rig& rig, std::string& error) {
  for (int i = 0; i < 2; ++i) {
    const CameraCalibrationMRV& c = rig.device.cameras[i];
    if (c.distortionModel < 0 || c.distortionModel > 5) {
      error = path + ": camera " + std::to_string(i) + ": unknown distortion model " + std::to_string(c.distortionModel);
      return false;
    }
    const double q = c.pose.orientation.x * c.pose.orientation.x + c.pose.orientation.y * c.pose.orientation.y +
                     c.pose.orientation.z * c.pose.orientation.z + c.pose.orientation.w * c.pose.orientation.w;
    if (!(q > 1e-12) || !std::isfinite(q)) {
      error = path + ": camera " + std::to_string(i) + ": pose orientation is not a usable quaternion";
      return false;
    }
    AR::CV::Camera<float> camera;
    const bool ok = cameraFromRecord(c, camera);
    if (!ok) {
      error = path + ": camera " + std::to_string(i) + ": the library cannot build this camera (see its messages above)";
      return false;
    }
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

bool checkRig(const std::string& source, const Rig& rig, std::string& error) {
  if (rig.device.num_cameras != 2) {
    error = source + ": num_cameras is " + std::to_string(rig.device.num_cameras) + ", expected 2";
    return false;
  }
  return validateCameras(source, rig, error);
}

bool loadRig(const std::string& path, CalibrationFormat format, bool fisheye, Rig& rig, std::string& error) {
  if (format == CalibrationFormat::Auto) {
    if (endsWith(path, ".xml")) format = CalibrationFormat::Xml;
    else if (endsWith(path, ".yaml") || endsWith(path, ".yml")) format = CalibrationFormat::Kalibr;
    else format = CalibrationFormat::Record;
    // OpenCV writes .xml and .yml too; its own header tells the files apart.
    if (format != CalibrationFormat::Record && looksLikeOpenCvStorage(path)) format = CalibrationFormat::OpenCv;
  }
  {
    std::ifstream probe(path, std::ios::binary);
    if (!probe) {
      error = path + ": cannot be opened";
      return false;
    }
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
  return loaded && validateCameras(path, rig, error);
}

}  // namespace StereoMaps
