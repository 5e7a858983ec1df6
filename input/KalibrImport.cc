#include "KalibrImport.h"

#include <cmath>
#include <exception>
#include <vector>

#include <yaml-cpp/yaml.h>

#include "InputFile.h"

namespace StereoMaps {
namespace {

// Values of the library's DistortionModel enumeration.
constexpr int32_t kLinear = 0;
constexpr int32_t kRadial2 = 1;
constexpr int32_t kFisheye1 = 4;
constexpr int32_t kFisheye4 = 5;

class Reader {
 public:
  Reader(const std::string& path, std::string& error) : path_(path), error_(error) {}

  bool fail(const std::string& key, const std::string& why) {
    error_ = path_ + ": " + key + ": " + why;
    return false;
  }

  bool numbers(const YAML::Node& node, const std::string& key, size_t count, std::vector<double>& out) {
    if (!node || !node.IsSequence()) return fail(key, "missing or not a list");
    if (node.size() != count)
      return fail(key, "expected " + std::to_string(count) + " values, found " + std::to_string(node.size()));
    out.clear();
    for (const auto& item : node) {
      double v = 0.0;
      if (!item.IsScalar() || !YAML::convert<double>::decode(item, v) || !std::isfinite(v))
        return fail(key, "'" + (item.IsScalar() ? item.Scalar() : std::string("?")) + "' is not a finite number");
      out.push_back(v);
    }
    return true;
  }

  bool transform(const YAML::Node& node, const std::string& key, Pose& pose) {
    if (!node || !node.IsSequence() || node.size() != 4) return fail(key, "expected a 4x4 matrix");
    std::vector<double> row;
    for (int r = 0; r < 4; ++r) {
      if (!numbers(node[r], key + "[" + std::to_string(r) + "]", 4, row)) return false;
      if (r < 3) {
        for (int c = 0; c < 3; ++c) pose.R[r * 3 + c] = row[c];
        pose.t[r] = row[3];
      } else if (row[0] != 0.0 || row[1] != 0.0 || row[2] != 0.0 || row[3] != 1.0) {
        return fail(key, "last row must be 0 0 0 1");
      }
    }
    // A rotation's rows are orthonormal; anything far off is a broken file,
    // not rounding.
    for (int a = 0; a < 3; ++a)
      for (int b = 0; b < 3; ++b) {
        double d = 0.0;
        for (int k = 0; k < 3; ++k) d += pose.R[a * 3 + k] * pose.R[b * 3 + k];
        if (std::fabs(d - (a == b ? 1.0 : 0.0)) > 1e-3) return fail(key, "rotation part is not orthonormal");
      }
    return true;
  }

  bool camera(const YAML::Node& root, const std::string& name, CameraCalibrationMRV& cam) {
    const YAML::Node node = root[name];
    if (!node || !node.IsMap()) return fail(name, "camera missing");
    const std::string model = scalar(node["camera_model"]);
    if (model != "pinhole")
      return fail(name + ".camera_model", "'" + model + "' is not supported (only pinhole; omni, ds and eucm cameras cannot be converted)");
    std::vector<double> intrinsics, resolution, coeffs;
    if (!numbers(node["intrinsics"], name + ".intrinsics", 4, intrinsics)) return false;
    if (!numbers(node["resolution"], name + ".resolution", 2, resolution)) return false;
    for (double v : resolution)
      if (v < 1.0 || v > 65535.0 || v != std::floor(v)) return fail(name + ".resolution", "must be positive whole pixel counts");
    cam.width = static_cast<int32_t>(resolution[0]);
    cam.height = static_cast<int32_t>(resolution[1]);
    cam.fx = intrinsics[0];
    cam.fy = intrinsics[1];
    cam.cx = intrinsics[2];
    cam.cy = intrinsics[3];
    const std::string distortion = node["distortion_model"] ? scalar(node["distortion_model"]) : "none";
    const std::string coeffKey = name + ".distortion_coeffs";
    if (distortion == "radtan") {
      if (!numbers(node["distortion_coeffs"], coeffKey, 4, coeffs)) return false;
      cam.distortionModel = kRadial2;
      cam.k[0] = coeffs[0];
      cam.k[1] = coeffs[1];
      cam.p[0] = coeffs[2];
      cam.p[1] = coeffs[3];
    } else if (distortion == "equidistant") {
      if (!numbers(node["distortion_coeffs"], coeffKey, 4, coeffs)) return false;
      cam.distortionModel = kFisheye4;
      for (int i = 0; i < 4; ++i) cam.k[i] = coeffs[static_cast<size_t>(i)];
    } else if (distortion == "fov") {
      if (!numbers(node["distortion_coeffs"], coeffKey, 1, coeffs)) return false;
      cam.distortionModel = kFisheye1;
      cam.k[0] = coeffs[0];
    } else if (distortion == "none") {
      cam.distortionModel = kLinear;
    } else {
      return fail(name + ".distortion_model", "'" + distortion + "' is not supported (radtan, equidistant, fov or none)");
    }
    return true;
  }

  static std::string scalar(const YAML::Node& node) { return node && node.IsScalar() ? node.Scalar() : std::string(); }

 private:
  std::string path_;
  std::string& error_;
};

}  // namespace

bool loadKalibrCamchain(const std::string& path, Rig& rig, std::string& error) {
  Reader reader(path, error);
  std::string text;
  if (!readInputFile(path, "a calibration file", kMaxCalibrationFileBytes, false, text, error)) return false;
  YAML::Node root;
  try {
    root = YAML::Load(text);
  } catch (const YAML::Exception& e) {
    return reader.fail("YAML", e.what());
  }
  try {
    if (!root.IsMap()) return reader.fail("top level", "expected cam0 and cam1");
    rig = Rig{};
    rig.device.num_cameras = 2;
    CameraCalibrationMRV& cam0 = rig.device.cameras[0];
    CameraCalibrationMRV& cam1 = rig.device.cameras[1];
    if (!reader.camera(root, "cam0", cam0) || !reader.camera(root, "cam1", cam1)) return false;

    Pose cam0FromDevice;
    if (root["cam0"]["T_cam_imu"] && !reader.transform(root["cam0"]["T_cam_imu"], "cam0.T_cam_imu", cam0FromDevice))
      return false;
    Pose cam1FromDevice;
    if (root["cam1"]["T_cn_cnm1"]) {
      Pose cam1FromCam0;
      if (!reader.transform(root["cam1"]["T_cn_cnm1"], "cam1.T_cn_cnm1", cam1FromCam0)) return false;
      cam1FromDevice = compose(cam1FromCam0, cam0FromDevice);
    } else if (root["cam1"]["T_cam_imu"]) {
      if (!reader.transform(root["cam1"]["T_cam_imu"], "cam1.T_cam_imu", cam1FromDevice)) return false;
    } else {
      return reader.fail("cam1.T_cn_cnm1", "missing (needed for the pose of cam1 relative to cam0)");
    }
    toPoseRecord(cam0FromDevice, cam0.pose);
    toPoseRecord(cam1FromDevice, cam1.pose);
  } catch (const YAML::Exception& e) {
    return reader.fail("YAML", e.what());
  }
  return true;
}

}  // namespace StereoMaps
