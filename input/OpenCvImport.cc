#include "OpenCvImport.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <vector>

#include <CameraModel/DistortionModel.h>
#include <opencv2/core.hpp>

#include "InputFile.h"

namespace StereoMaps {
namespace {

/// Reports one problem of the file as "<path>: key '<key>' <what>".
class Reader {
 public:
  Reader(const cv::FileStorage& fs, const std::string& path, std::string& error)
      : fs_(fs), path_(path), error_(error) {}

  bool fail(const std::string& key, const std::string& what) {
    error_ = path_ + ": key '" + key + "' " + what;
    return false;
  }

  /// All elements of a matrix node, row-major, as doubles.
  bool numbers(const std::string& key, std::vector<double>& values, int& rows, int& cols) {
    const cv::FileNode node = fs_[key];
    if (node.empty()) return fail(key, "is missing");
    cv::Mat m;
    try {
      if (node.isMap()) node >> m;
    } catch (const cv::Exception&) {
      m.release();
    }
    if (m.empty() || m.channels() != 1) return fail(key, "is not a matrix");
    cv::Mat d;
    m.convertTo(d, CV_64F);
    rows = d.rows;
    cols = d.cols;
    values.assign(d.begin<double>(), d.end<double>());
    for (double v : values)
      if (!std::isfinite(v)) return fail(key, "holds a value that is not a finite number");
    return true;
  }

  bool matrix(const std::string& key, int wantRows, int wantCols, std::vector<double>& values) {
    int rows = 0, cols = 0;
    if (!numbers(key, values, rows, cols)) return false;
    if (rows != wantRows || cols != wantCols)
      return fail(key, "is " + std::to_string(rows) + "x" + std::to_string(cols) + ", expected " +
                           std::to_string(wantRows) + "x" + std::to_string(wantCols));
    return true;
  }

  bool vector(const std::string& key, std::vector<double>& values) {
    int rows = 0, cols = 0;
    if (!numbers(key, values, rows, cols)) return false;
    if (rows != 1 && cols != 1) return fail(key, "is a matrix, expected a vector");
    return true;
  }

  /// A non-negative whole number of pixels from a scalar node.
  bool pixels(const cv::FileNode& node, const std::string& key, double& value) {
    if (!node.isReal() && !node.isInt()) return fail(key, "is not a number");
    value = node.real();
    if (!std::isfinite(value) || value < 1.0 || value > 65535.0 || value != std::floor(value))
      return fail(key, "must be a whole number of pixels between 1 and 65535");
    return true;
  }

  bool imageSize(double& width, double& height) {
    for (const char* key : {"image_size", "imageSize"}) {
      const cv::FileNode node = fs_[key];
      if (node.empty()) continue;
      if (node.isSeq()) {
        if (node.size() != 2) return fail(key, "holds " + std::to_string(node.size()) + " values, expected 2");
        return pixels(node[0], key, width) && pixels(node[1], key, height);
      }
      std::vector<double> values;
      if (!vector(key, values)) return false;
      if (values.size() != 2) return fail(key, "holds " + std::to_string(values.size()) + " values, expected 2");
      width = values[0];
      height = values[1];
      if (values[0] < 1.0 || values[0] > 65535.0 || values[0] != std::floor(values[0]) || values[1] < 1.0 ||
          values[1] > 65535.0 || values[1] != std::floor(values[1]))
        return fail(key, "must be a whole number of pixels between 1 and 65535");
      return true;
    }
    if (fs_["width"].empty() || fs_["height"].empty())
      return fail("image_size", "is missing (also looked for 'imageSize' and for 'width' with 'height')");
    return pixels(fs_["width"], "width", width) && pixels(fs_["height"], "height", height);
  }

  bool fisheyeMarked() {
    const cv::FileNode flag = fs_["fisheye"];
    if ((flag.isInt() || flag.isReal()) && flag.real() != 0.0) return true;
    if (flag.isString() && (flag.string() == "true" || flag.string() == "1")) return true;
    const cv::FileNode model = fs_["distortion_model"];
    return model.isString() && (model.string() == "fisheye" || model.string() == "equidistant");
  }

  bool metresPerUnit(double& scale) {
    scale = 1.0;
    const cv::FileNode node = fs_["units"];
    if (node.empty()) return true;
    const std::string units = node.isString() ? node.string() : std::string();
    if (units == "m") scale = 1.0;
    else if (units == "cm") scale = 0.01;
    else if (units == "mm") scale = 0.001;
    else return fail("units", "must be \"m\", \"cm\" or \"mm\"");
    return true;
  }

 private:
  const cv::FileStorage& fs_;
  const std::string& path_;
  std::string& error_;
};

bool fillIntrinsics(Reader& reader, const std::string& kKey, const std::string& dKey, bool fisheye,
                    CameraCalibrationMRV& cam) {
  std::vector<double> K, D;
  if (!reader.matrix(kKey, 3, 3, K)) return false;
  if (K[1] != 0.0) return reader.fail(kKey, "has a skew term, which no supported lens model has");
  if (K[3] != 0.0 || K[6] != 0.0 || K[7] != 0.0 || K[8] != 1.0)
    return reader.fail(kKey, "is not a camera matrix [fx 0 cx; 0 fy cy; 0 0 1]");
  cam.fx = K[0];
  cam.cx = K[2];
  cam.fy = K[4];
  cam.cy = K[5];
  if (!reader.vector(dKey, D)) return false;
  const size_t n = D.size();
  if (fisheye) {
    if (n != 4)
      return reader.fail(dKey, "holds " + std::to_string(n) + " coefficients, a fisheye calibration has 4");
    cam.distortionModel = FISHEYE_4_PARAMETERS;
    for (size_t i = 0; i < 4; ++i) cam.k[i] = D[i];
    return true;
  }
  // OpenCV's order: k1 k2 p1 p2 [k3 [k4 k5 k6 [s1 s2 s3 s4 [tauX tauY]]]].
  if (n == 12 || n == 14) {
    for (size_t i = 8; i < 12; ++i)
      if (D[i] != 0.0) return reader.fail(dKey, "has thin-prism terms (s1..s4), which no supported lens model has");
    for (size_t i = 12; i < n; ++i)
      if (D[i] != 0.0) return reader.fail(dKey, "has tilted-sensor terms (tauX, tauY), which no supported lens model has");
  } else if (n != 4 && n != 5 && n != 8) {
    return reader.fail(dKey, "holds " + std::to_string(n) + " coefficients, expected 4, 5, 8 (or 12, 14 with zero extra terms)");
  }
  cam.distortionModel = n == 4 ? RADIAL_2_PARAMETERS : n == 5 ? RADIAL_3_PARAMETERS : RADIAL_6_PARAMETERS;
  cam.k[0] = D[0];
  cam.k[1] = D[1];
  cam.p[0] = D[2];
  cam.p[1] = D[3];
  for (size_t i = 4; i < n && i < 8; ++i) cam.k[i - 2] = D[i];
  return true;
}

bool readRig(const cv::FileStorage& fs, const std::string& path, bool forceFisheye, Rig& rig,
             std::string& error) {
  Reader reader(fs, path, error);
  double width = 0, height = 0, scale = 1.0;
  if (!reader.imageSize(width, height) || !reader.metresPerUnit(scale)) return false;
  const bool fisheye = forceFisheye || reader.fisheyeMarked();
  Rig loaded;
  loaded.device.num_cameras = 2;
  CameraCalibrationMRV* cams = loaded.device.cameras;
  if (!fillIntrinsics(reader, "K1", "D1", fisheye, cams[0]) || !fillIntrinsics(reader, "K2", "D2", fisheye, cams[1]))
    return false;
  std::vector<double> R, T;
  if (!reader.matrix("R", 3, 3, R)) return false;
  if (!reader.vector("T", T)) return false;
  if (T.size() != 3) return reader.fail("T", "holds " + std::to_string(T.size()) + " values, expected 3");
  // R must be a proper rotation: orthonormal rows and determinant +1, within
  // what a double-precision calibration leaves after its own rounding.
  double worst = 0.0;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      double dot = 0.0;
      for (int k = 0; k < 3; ++k) dot += R[3 * r + k] * R[3 * c + k];
      worst = std::max(worst, std::fabs(dot - (r == c ? 1.0 : 0.0)));
    }
  const double det = R[0] * (R[4] * R[8] - R[5] * R[7]) - R[1] * (R[3] * R[8] - R[5] * R[6]) +
                     R[2] * (R[3] * R[7] - R[4] * R[6]);
  if (!(worst < 1e-6) || !(det > 0.0)) return reader.fail("R", "is not a rotation matrix");
  for (int i = 0; i < 2; ++i) {
    cams[i].width = static_cast<int32_t>(width);
    cams[i].height = static_cast<int32_t>(height);
  }
  toPoseRecord(Pose{}, cams[0].pose);
  Pose relative;
  for (int i = 0; i < 9; ++i) relative.R[i] = R[static_cast<size_t>(i)];
  for (int i = 0; i < 3; ++i) relative.t[i] = T[static_cast<size_t>(i)] * scale;
  toPoseRecord(relative, cams[1].pose);
  rig = loaded;
  return true;
}

}  // namespace

bool loadOpenCvStereo(const std::string& path, bool forceFisheye, Rig& rig, std::string& error) {
  // Read through the bounded regular-file reader, then parse from memory, so
  // that FileStorage never opens a FIFO or a device itself.
  std::string text;
  if (!readInputFile(path, "an OpenCV calibration file", kMaxCalibrationFileBytes, false, text, error)) return false;
  cv::FileStorage fs;
  try {
    if (!fs.open(text, cv::FileStorage::READ | cv::FileStorage::MEMORY) || !fs.isOpened()) {
      error = path + ": not an OpenCV FileStorage file (YAML or XML)";
      return false;
    }
    return readRig(fs, path, forceFisheye, rig, error);
  } catch (const cv::Exception&) {
    error = path + ": not an OpenCV FileStorage file (YAML or XML)";
    return false;
  }
}

bool looksLikeOpenCvStorage(const std::string& path) {
  // Only regular files are looked into: opening a FIFO would block.
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return false;
  std::ifstream file(path, std::ios::binary);
  char head[256] = {};
  file.read(head, sizeof(head) - 1);
  const std::string text(head, static_cast<size_t>(file.gcount()));
  return text.rfind("%YAML:1.0", 0) == 0 || text.find("<opencv_storage>") != std::string::npos;
}

}  // namespace StereoMaps
