#include "XmlImport.h"

#include <cmath>

#include <AR/CV/Camera/CalibrationFile.h>

#include "InputFile.h"

namespace StereoMaps {
namespace {

Pose toPose(const AR::Math::SE3<double>& T) {
  Pose p;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) p.R[r * 3 + c] = T.rotation().matrix()(r, c);
    p.t[r] = T.translation()(r);
  }
  return p;
}

bool wholePixels(double v) { return v >= 1.0 && v <= 65535.0 && v == std::floor(v); }

bool fillCamera(const AR::CV::FullCamera<double>& camera, int index, const std::string& path,
                CameraCalibrationMRV& rec, std::string& error) {
  const AR::CV::Camera<double>& in = camera.getIntrinsics();
  const auto& size = in.getSize();
  if (!wholePixels(size(0)) || !wholePixels(size(1))) {
    error = path + ": Camera " + std::to_string(index) + ": image size must be whole pixels for a device record";
    return false;
  }
  rec.width = static_cast<int32_t>(size(0));
  rec.height = static_cast<int32_t>(size(1));
  rec.cx = in.getPrincipalPoint()(0);
  rec.cy = in.getPrincipalPoint()(1);
  rec.fx = in.getOriginalFocalLength()(0);
  rec.fy = in.getOriginalFocalLength()(1);
  for (int i = 0; i < 6; ++i) rec.k[i] = in.getRadialDistortionCoeffs()(i);
  rec.p[0] = in.getTangentialDistortionCoeffs()(0);
  rec.p[1] = in.getTangentialDistortionCoeffs()(1);
  rec.distortionModel = static_cast<int32_t>(in.getRadialDistortionModel());
  toPoseRecord(toPose(camera.getCamReferenceToLocal()), rec.pose);
  return true;
}

void fillDisplay(const AR::CV::DisplayEye& eye, CameraCalibrationMRV& rec) {
  rec.width = eye.width;
  rec.height = eye.height;
  rec.fx = eye.fx;
  rec.fy = eye.fy;
  // The library centres the eye camera in its image whatever the record says.
  rec.cx = 0.5 * eye.width;
  rec.cy = 0.5 * eye.height;
  toPoseRecord(toPose(eye.eyeFromDevice), rec.pose);
}

}  // namespace

bool loadXmlRig(const std::string& path, Rig& rig, std::string& error) {
  AR::CV::FullStereoCameraCalibration<double> calibration;
  AR::CV::DisplayEyes eyes;
  std::string text, why;
  if (!readInputFile(path, "a calibration file", kMaxCalibrationFileBytes, false, text, error)) return false;
  if (!AR::CV::loadCalibrationFromString<double>(text, calibration, &eyes, &why)) {
    error = path + ": " + why;
    return false;
  }
  if (calibration.size() < 2) {
    error = path + ": DeviceConfiguration: needs two Camera elements, found " + std::to_string(calibration.size());
    return false;
  }
  Rig loaded;
  loaded.device.num_cameras = 2;
  for (int i = 0; i < 2; ++i)
    if (!fillCamera(calibration[static_cast<size_t>(i)], i, path, loaded.device.cameras[i], error)) return false;
  if (eyes.present) {
    loaded.hasDisplays = true;
    fillDisplay(eyes.left, loaded.leftDisplay);
    fillDisplay(eyes.right, loaded.rightDisplay);
  }
  rig = loaded;
  return true;
}

}  // namespace StereoMaps
