#include "CalibrationInput.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "KalibrImport.h"
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

}  // namespace

bool parseCalibrationFormat(const std::string& text, CalibrationFormat& format) {
  if (text == "auto") format = CalibrationFormat::Auto;
  else if (text == "xml") format = CalibrationFormat::Xml;
  else if (text == "kalibr") format = CalibrationFormat::Kalibr;
  else if (text == "record") format = CalibrationFormat::Record;
  else return false;
  return true;
}

std::string defaultCalibrationPath() {
  // The installed copy wins; the source tree's copy serves a build that has
  // not been installed.
  for (const char* candidate : {STEREO_MAPS_INSTALLED_EXAMPLE, STEREO_MAPS_SOURCE_EXAMPLE}) {
    std::ifstream probe(candidate);
    if (probe) return candidate;
  }
  return STEREO_MAPS_SOURCE_EXAMPLE;
}

bool loadRig(const std::string& path, CalibrationFormat format, Rig& rig, std::string& error) {
  if (format == CalibrationFormat::Auto) {
    if (endsWith(path, ".xml")) format = CalibrationFormat::Xml;
    else if (endsWith(path, ".yaml") || endsWith(path, ".yml")) format = CalibrationFormat::Kalibr;
    else format = CalibrationFormat::Record;
  }
  {
    std::ifstream probe(path, std::ios::binary);
    if (!probe) {
      error = path + ": cannot be opened";
      return false;
    }
  }
  switch (format) {
    case CalibrationFormat::Xml:
      return loadXmlRig(path, rig, error);
    case CalibrationFormat::Kalibr:
      return loadKalibrCamchain(path, rig, error);
    default:
      return loadRecord(path, rig, error);
  }
}

}  // namespace StereoMaps
