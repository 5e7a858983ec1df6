#include "XmlExport.h"

#include <AR/CV/Camera/CalibrationFile.h>

namespace StereoMaps {
namespace {

AR::Math::SE3<double> toSE3(const XrPosedMRV_t& record) {
  const Pose pose = fromPoseRecord(record);
  AR::Math::Matrix<double, 3, 3> R;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) R(r, c) = pose.R[3 * r + c];
  // SO3's own constructor re-orthogonalises what the quaternion left rounded.
  return AR::Math::SE3<double>(AR::Math::SO3<double>(R),
                               AR::Math::Vector<double, 3>(pose.t[0], pose.t[1], pose.t[2]));
}

CamModel::CameraModel<double> toModel(const CameraCalibrationMRV& rec) {
  CamModel::CameraModel<double> model;
  model.size = AR::Math::Vector<double, 2>(rec.width, rec.height);
  model.principalPoint = AR::Math::Vector<double, 2>(rec.cx, rec.cy);
  model.focalLength = AR::Math::Vector<double, 2>(rec.fx, rec.fy);
  for (int i = 0; i < 6; ++i) model.radialDistortionCoeffs(i) = rec.k[i];
  model.tangentialDistortionCoeffs = AR::Math::Vector<double, 2>(rec.p[0], rec.p[1]);
  model.model = static_cast<DistortionModel>(rec.distortionModel);
  // The validity limits start wide open; the range analysis narrows them.
  model.maxValidDistortionRSq = 81.0;
  model.maxValidUndistortionRSq = 81.0;
  model.setupValidDistortionRange();
  return model;
}

AR::CV::DisplayEye toEye(const CameraCalibrationMRV& rec) {
  AR::CV::DisplayEye eye;
  eye.width = rec.width;
  eye.height = rec.height;
  eye.fx = rec.fx;
  eye.fy = rec.fy;
  eye.eyeFromDevice = toSE3(rec.pose);
  return eye;
}

}  // namespace

bool saveXmlRig(const std::string& path, const Rig& rig, std::string& error) {
  AR::CV::FullStereoCameraCalibration<double> calibration;
  calibration.setupEmptyCalibrationWithDefaultIds(2);
  const char* ids[2] = {"trackingA0", "trackingB1"};
  for (size_t i = 0; i < 2; ++i) {
    const CameraCalibrationMRV& rec = rig.device.cameras[i];
    if (!calibration[i].init(toModel(rec), toSE3(rec.pose), AR::CV::CamImageId(ids[i]), false, 0.0,
                             AR::CV::CaptureDetails(), 0.0)) {
      error = path + ": camera " + std::to_string(i) + " cannot be built";
      return false;
    }
  }
  AR::CV::DisplayEyes eyes;
  eyes.present = rig.hasDisplays;
  if (rig.hasDisplays) {
    eyes.left = toEye(rig.leftDisplay);
    eyes.right = toEye(rig.rightDisplay);
  }
  if (!AR::CV::saveCalibration<double>(path, calibration, &eyes, nullptr)) {
    error = path + ": cannot be written";
    return false;
  }
  return true;
}

}  // namespace StereoMaps
