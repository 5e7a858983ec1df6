#include "Commands.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <tinyxml2.h>

#include "InputFile.h"
#include "LibraryOutput.h"
#include "Npy.h"
#include "OutputDirectory.h"
#include "Preview.h"
#include "RigCheck.h"
#include "SyntheticScene.h"

namespace StereoMaps {
namespace {

int fail(const std::string& message) {
  std::fprintf(stderr, "stereo-maps: error: %s\n", message.c_str());
  return kExitError;
}

/// The four maps of one library call, each rows x cols floats.
struct MapSet {
  int rows = 0, cols = 0;
  std::vector<float> leftX, leftY, rightX, rightY;

  bool allocate(long width, long height, const std::string& what, std::string& error) {
    // The rig checks already bound every size; this keeps the map buffers
    // within the same bounds whoever fills the rig.
    if (width <= 0 || height <= 0 || width > kMaxImageSide || height > kMaxImageSide ||
        width * height > kMaxImagePixels) {
      error = what + " has an unusable size " + std::to_string(width) + " x " + std::to_string(height);
      return false;
    }
    rows = static_cast<int>(height);
    cols = static_cast<int>(width);
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    for (auto* map : {&leftX, &leftY, &rightX, &rightY}) map->assign(n, -1.0f);
    return true;
  }
  uint32_t size() const { return static_cast<uint32_t>(leftX.size()); }
};

double validFraction(const std::vector<float>& x, const std::vector<float>& y) {
  if (x.empty()) return 0.0;
  size_t valid = 0;
  for (size_t i = 0; i < x.size(); ++i)
    if (x[i] != -1.0f && y[i] != -1.0f) ++valid;
  return static_cast<double>(valid) / static_cast<double>(x.size());
}

cv::Mat asMat(std::vector<float>& map, int rows, int cols) { return cv::Mat(rows, cols, CV_32FC1, map.data()); }

bool loadInput(const CommonOptions& options, Rig& rig, std::string& error) {
  QuietLibrary quiet(true);
  const std::string path = options.calib.empty() ? defaultCalibrationPath() : options.calib;
  return loadRig(path, options.format, options.fisheye, rig, error);
}

/// A grey image from a regular file of bounded size. The decoded size is
/// bounded by OpenCV's own pixel limit (2^30 unless OPENCV_IO_MAX_IMAGE_PIXELS
/// says otherwise), read once when OpenCV loads, so the tool cannot lower it.
bool readImage(const std::string& path, cv::Mat& image, std::string& error) {
  std::string bytes;
  if (!readInputFile(path, "an image", kMaxImageFileBytes, false, bytes, error)) return false;
  try {
    const cv::Mat encoded(1, static_cast<int>(bytes.size()), CV_8UC1, bytes.data());
    image = cv::imdecode(encoded, cv::IMREAD_GRAYSCALE);
  } catch (const cv::Exception&) {
    image = cv::Mat();
  }
  if (image.empty()) error = path + ": cannot be read as an image";
  return !image.empty();
}

/// The two camera images to preview: the user's, checked against the camera
/// sizes, or the synthetic scene seen through the real lenses.
bool cameraImages(const CommonOptions& options, const Rig& rig, cv::Mat images[2], std::string& error) {
  const std::string files[2] = {options.leftImage, options.rightImage};
  for (int i = 0; i < 2; ++i) {
    const CameraCalibrationMRV& cam = rig.device.cameras[i];
    if (files[i].empty()) {
      QuietLibrary quiet;
      images[i] = renderTrackingCamera(rig, i, error);
      if (images[i].empty()) return false;
      continue;
    }
    if (!readImage(files[i], images[i], error)) return false;
    if (images[i].cols != cam.width || images[i].rows != cam.height) {
      error = files[i] + ": image is " + std::to_string(images[i].cols) + " x " + std::to_string(images[i].rows) +
              ", camera " + std::to_string(i) + " is " + std::to_string(cam.width) + " x " +
              std::to_string(cam.height);
      return false;
    }
  }
  return true;
}

bool writeMaps(OutputDirectory& out, MapSet& maps, std::string& error) {
  const auto rows = static_cast<uint32_t>(maps.rows), cols = static_cast<uint32_t>(maps.cols);
  return writeNpy(out.stage("left_x.npy"), maps.leftX.data(), rows, cols, &error) &&
         writeNpy(out.stage("left_y.npy"), maps.leftY.data(), rows, cols, &error) &&
         writeNpy(out.stage("right_x.npy"), maps.rightX.data(), rows, cols, &error) &&
         writeNpy(out.stage("right_y.npy"), maps.rightY.data(), rows, cols, &error);
}

bool writePng(OutputDirectory& out, const cv::Mat& image, std::string& error) {
  const std::string path = out.stage("preview.png");
  bool ok = false;
  try {
    ok = cv::imwrite(path, image);
  } catch (const cv::Exception&) {
    ok = false;
  }
  if (!ok) error = out.finalPath("preview.png") + ": cannot be written";
  return ok;
}

void printSummary(const char* what, const MapSet& maps, double milliseconds) {
  std::printf("%s maps: %d x %d (width x height), float32, -1 = no source\n", what, maps.cols, maps.rows);
  std::printf("  valid pixels: left %.1f %%, right %.1f %%\n", 100.0 * validFraction(maps.leftX, maps.leftY),
              100.0 * validFraction(maps.rightX, maps.rightY));
  std::printf("  library call: %.2f ms\n", milliseconds);
}

void printWritten(const OutputDirectory& out, bool rectified) {
  std::printf("  wrote %s, %s, %s, %s%s%s\n  preview: %s\n", out.finalPath("left_x.npy").c_str(),
              out.finalPath("left_y.npy").c_str(), out.finalPath("right_x.npy").c_str(),
              out.finalPath("right_y.npy").c_str(), rectified ? ", " : "",
              rectified ? out.finalPath("rectified.xml").c_str() : "", out.finalPath("preview.png").c_str());
}

template <typename Fn>
double timeMs(Fn&& fn) {
  QuietLibrary quiet;
  const auto start = std::chrono::steady_clock::now();
  fn();
  const auto stop = std::chrono::steady_clock::now();
  return std::chrono::duration<double, std::milli>(stop - start).count();
}

void addNumber(tinyxml2::XMLElement* parent, const char* name, double value) {
  parent->InsertNewChildElement(name)->SetText(value);
}

bool writeRectifiedXml(const std::string& path, const CameraCalibrationMRV& cam, float depthConstant,
                       float depthOffset, std::string& error) {
  tinyxml2::XMLDocument doc;
  doc.InsertEndChild(doc.NewDeclaration());
  tinyxml2::XMLElement* root = doc.NewElement("RectifiedCamera");
  doc.InsertEndChild(root);
  root->SetAttribute("width", cam.width);
  root->SetAttribute("height", cam.height);
  root->SetAttribute("distortionModel", cam.distortionModel);
  addNumber(root, "fx", cam.fx);
  addNumber(root, "fy", cam.fy);
  addNumber(root, "cx", cam.cx);
  addNumber(root, "cy", cam.cy);
  tinyxml2::XMLElement* pose = root->InsertNewChildElement("Pose");
  pose->SetAttribute("qx", cam.pose.orientation.x);
  pose->SetAttribute("qy", cam.pose.orientation.y);
  pose->SetAttribute("qz", cam.pose.orientation.z);
  pose->SetAttribute("qw", cam.pose.orientation.w);
  pose->SetAttribute("x", cam.pose.position.x);
  pose->SetAttribute("y", cam.pose.position.y);
  pose->SetAttribute("z", cam.pose.position.z);
  tinyxml2::XMLElement* depth = root->InsertNewChildElement("DepthConstant");
  depth->SetText(static_cast<double>(depthConstant));
  root->InsertNewChildElement("DepthOffset")->SetText(static_cast<double>(depthOffset));
  root->InsertEndChild(doc.NewComment(" depth = DepthConstant / (disparity + DepthOffset) "));
  if (doc.SaveFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
    error = path + ": cannot be written";
    return false;
  }
  return true;
}

}  // namespace

int runRectify(const CommonOptions& options) { return runRectify(options, RectifyTarget{}, false); }

int runRectify(const CommonOptions& options, const RectifyTarget& target, bool custom) {
  std::string error;
  Rig rig;
  if (!loadInput(options, rig, error)) return fail(error);
  // In float, as the library rectifies: positions far from the origin can
  // differ in double and coincide in float.
  const float baseline = baselineInFloat(rig);
  if (!(baseline >= 1e-6f) || !std::isfinite(baseline))
    return fail((options.calib.empty() ? defaultCalibrationPath() : options.calib) +
                ": the two cameras are at the same position; rectification needs a baseline");
  if (custom && !checkRectifyTarget(rig.device, target, true, error)) return fail(error);
  MapSet maps;
  int width = 0, height = 0;
  rectifyMapSize(rig.device, target, width, height);
  if (!maps.allocate(width, height, "the rectified image", error)) return fail(error);
  cv::Mat images[2];
  if (!cameraImages(options, rig, images, error)) return fail(error);

  float depthConstant = -1.0f;
  float depthOffset = 0.0f;
  CameraCalibrationMRV rectified{};
  const uint32_t n = maps.size();
  bool built = true;
  const double ms = timeMs([&] {
    if (custom) {
      // The same target calibration and map builder, aimed at the user's target.
      RectifyResult result;
      built = buildRectifyMaps(rig.device, target, options.allowOutOfImage, maps.leftX.data(), maps.leftY.data(),
                               maps.rightX.data(), maps.rightY.data(), result, error);
      depthConstant = result.depthConstant;
      depthOffset = result.depthOffset;
      rectified = result.rectified;
    } else {
      CreateRectifyMap(&rig.device, options.allowOutOfImage ? 1u : 0u, maps.leftX.data(), n, maps.leftY.data(), n,
                       maps.rightX.data(), n, maps.rightY.data(), n, &depthConstant, &rectified);
    }
  });
  if (!built)
    return fail((options.calib.empty() ? defaultCalibrationPath() : options.calib) + ": " + error);

  const cv::Mat top = sideBySide(images[0], images[1]);
  cv::Mat bottom = sideBySide(remapWithInvalid(images[0], asMat(maps.leftX, maps.rows, maps.cols),
                                               asMat(maps.leftY, maps.rows, maps.cols)),
                              remapWithInvalid(images[1], asMat(maps.rightX, maps.rows, maps.cols),
                                               asMat(maps.rightY, maps.rows, maps.cols)));
  cv::Mat preview = stack(top, bottom);
  drawRowLines(preview, top.rows, bottom.rows, 32);

  OutputDirectory out;
  if (!out.open(options.out, error) || !writeMaps(out, maps, error) ||
      !writeRectifiedXml(out.stage("rectified.xml"), rectified, depthConstant, depthOffset, error) ||
      !writePng(out, preview, error) || !out.commit(error))
    return fail(error);
  printSummary("rectify", maps, ms);
  std::printf("  rectified camera: fx %.4f fy %.4f cx %.4f cy %.4f\n", rectified.fx, rectified.fy, rectified.cx,
              rectified.cy);
  std::printf("  depth constant: %.6g, offset: %.6g (depth = constant / (disparity + offset))\n", depthConstant,
              depthOffset);
  printWritten(out, true);
  return kExitOk;
}

int runUndistort(const CommonOptions& options, float fovFactor) {
  std::string error;
  Rig rig;
  if (!loadInput(options, rig, error)) return fail(error);
  MapSet maps;
  const CameraCalibrationMRV& left = rig.device.cameras[0];
  if (!maps.allocate(left.width, left.height, "camera 0", error)) return fail(error);
  cv::Mat images[2];
  if (!cameraImages(options, rig, images, error)) return fail(error);

  bool accepted = false;
  const uint32_t n = maps.size();
  const double ms = timeMs([&] {
    accepted = CreateUndistortMap(&rig.device, options.allowOutOfImage ? 1u : 0u, fovFactor, maps.leftX.data(), n,
                                  maps.leftY.data(), n, maps.rightX.data(), n, maps.rightY.data(), n);
  });
  if (!accepted) return fail("--fov: the library refused the field-of-view factor " + std::to_string(fovFactor));

  const cv::Mat top = sideBySide(images[0], images[1]);
  const cv::Mat bottom = sideBySide(remapWithInvalid(images[0], asMat(maps.leftX, maps.rows, maps.cols),
                                                     asMat(maps.leftY, maps.rows, maps.cols)),
                                    remapWithInvalid(images[1], asMat(maps.rightX, maps.rows, maps.cols),
                                                     asMat(maps.rightY, maps.rows, maps.cols)));
  OutputDirectory out;
  if (!out.open(options.out, error) || !writeMaps(out, maps, error) ||
      !writePng(out, stack(top, bottom), error) || !out.commit(error))
    return fail(error);
  printSummary("undistort", maps, ms);
  std::printf("  field-of-view factor: %g\n", static_cast<double>(fovFactor));
  printWritten(out, false);
  return kExitOk;
}

int runSeeThrough(const CommonOptions& options, float planeDepth) {
  std::string error;
  Rig rig;
  if (!loadInput(options, rig, error)) return fail(error);
  if (!rig.hasDisplays)
    return fail((options.calib.empty() ? defaultCalibrationPath() : options.calib) +
                ": no display eyes (only the XML calibration file carries them)");
  MapSet maps;
  if (!maps.allocate(rig.leftDisplay.width, rig.leftDisplay.height, "the left display", error)) return fail(error);
  cv::Mat images[2];
  if (!cameraImages(options, rig, images, error)) return fail(error);

  const uint32_t n = maps.size();
  const double ms = timeMs([&] {
    CreateFixedPlaneVSTMaps(&rig.device, &rig.leftDisplay, &rig.rightDisplay, planeDepth,
                            options.allowOutOfImage ? 1u : 0u, maps.leftX.data(), n, maps.leftY.data(), n,
                            maps.rightX.data(), n, maps.rightY.data(), n);
  });
  const cv::Mat eyes = sideBySide(remapWithInvalid(images[0], asMat(maps.leftX, maps.rows, maps.cols),
                                                   asMat(maps.leftY, maps.rows, maps.cols)),
                                  remapWithInvalid(images[1], asMat(maps.rightX, maps.rows, maps.cols),
                                                   asMat(maps.rightY, maps.rows, maps.cols)));
  OutputDirectory out;
  if (!out.open(options.out, error) || !writeMaps(out, maps, error) || !writePng(out, eyes, error) ||
      !out.commit(error))
    return fail(error);
  printSummary("vst", maps, ms);
  std::printf("  plane depth: %g m\n", static_cast<double>(planeDepth));
  printWritten(out, false);
  return kExitOk;
}

}  // namespace StereoMaps
