#include <cmath>
#include <cstdio>
#include <string>

#include <AR/CV/Camera/Camera.h>
#include <CameraModel/DistortionModel.h>

#include "CameraFromRecord.h"
#include "Commands.h"
#include "LibraryOutput.h"

namespace StereoMaps {
namespace {

constexpr double kDegrees = 180.0 / 3.14159265358979323846;

/// Largest difference between a fitted spline and the factor it tabulates,
/// sampled densely in double precision, relative to the factor.
template <typename Factor>
double splineError(const AR::CV::HermiteSplineInterpolation<float>& spline, Factor&& factor) {
  const double lo = spline.getRange()(0), hi = spline.getRange()(1);
  double worst = 0.0;
  const int samples = 4000;
  for (int i = 0; i < samples; ++i) {
    const double x = lo + (hi - lo) * (i + 0.5) / samples;
    float y = 0.f;
    if (!spline.evaluate(static_cast<float>(x), y)) continue;
    const double exact = factor(x);
    if (exact != 0.0 && std::isfinite(exact)) worst = std::fmax(worst, std::fabs(y - exact) / std::fabs(exact));
  }
  return worst;
}

void printCamera(int index, const CameraCalibrationMRV& rec) {
  AR::CV::Camera<float> camera;
  std::printf("camera %d (%s): %d x %d pixels\n", index, index == 0 ? "trackingA0, left" : "trackingB1, right",
              rec.width, rec.height);
  bool ok = false;
  {
    QuietLibrary quiet;
    ok = cameraFromRecord(rec, camera);
  }
  const bool knownModel = rec.distortionModel >= 0 && rec.distortionModel <= 5;
  std::printf("  lens model: %s\n",
              knownModel ? CamModel::modelName(static_cast<DistortionModel>(rec.distortionModel)).c_str()
                         : "unknown");
  std::printf("  focal length: %.4f %.4f px, principal point: %.4f %.4f px\n", rec.fx, rec.fy, rec.cx, rec.cy);
  std::printf("  radial coefficients: %.8g %.8g %.8g %.8g %.8g %.8g\n", rec.k[0], rec.k[1], rec.k[2], rec.k[3],
              rec.k[4], rec.k[5]);
  std::printf("  tangential coefficients: %.8g %.8g\n", rec.p[0], rec.p[1]);
  if (!ok) {
    std::printf("  the library cannot initialise this camera (see the messages above)\n");
    return;
  }
  const auto& model = camera.getCamModel();
  const double focal = 0.5 * (rec.fx + rec.fy);
  const double rDist = std::sqrt(double(model.maxValidDistortionRSq));
  const double rUndist = std::sqrt(double(model.maxValidUndistortionRSq));
  std::printf("  valid distortion radius: %.6f (ideal plane), %.1f px\n", rDist, rDist * focal);
  std::printf("  valid undistortion radius: %.6f (ideal plane), %.1f px\n", rUndist, double(camera.getFOVPixels()));
  const double diagonal = std::hypot(double(rec.width), double(rec.height));
  std::printf("  field of view: horizontal %.2f deg, vertical %.2f deg, diagonal %.2f deg\n",
              camera.getFOV(float(rec.width)) * kDegrees, camera.getFOV(float(rec.height)) * kDegrees,
              camera.getFOV(float(diagonal)) * kDegrees);
  const auto& ds = camera.getDistortionSpline();
  const auto& us = camera.getUndistortionSpline();
  std::printf("  distortion spline: %zu bins, largest relative error %.3g\n", ds.getSegments().size(),
              splineError(ds, [&](double x) { return model.template distortionFactor<double>(x); }));
  std::printf("  undistortion spline: %zu bins, largest relative error %.3g\n", us.getSegments().size(),
              splineError(us, [&](double x) { return model.template undistortionFactor<double>(x); }));
}

}  // namespace

int runInfo(const CommonOptions& options) {
  Rig rig;
  std::string error;
  const std::string path = options.calib.empty() ? defaultCalibrationPath() : options.calib;
  bool loaded = false;
  {
    QuietLibrary quiet(true);
    loaded = loadRig(path, options.format, rig, error);
  }
  if (!loaded) {
    std::fprintf(stderr, "stereo-maps: error: %s\n", error.c_str());
    return kExitError;
  }
  std::printf("calibration: %s\n", path.c_str());
  for (int i = 0; i < 2; ++i) printCamera(i, rig.device.cameras[i]);

  // Camera 1 relative to camera 0: T_c1_c0 = T_c1_dev * T_c0_dev^-1; camera
  // 1's centre in camera 0's frame is the translation of its inverse.
  const Pose rel = compose(fromPoseRecord(rig.device.cameras[1].pose),
                           inverse(fromPoseRecord(rig.device.cameras[0].pose)));
  const Pose leftFromRight = inverse(rel);
  const double* centre = leftFromRight.t;
  const double baseline = std::sqrt(centre[0] * centre[0] + centre[1] * centre[1] + centre[2] * centre[2]);
  const double cosAngle = std::fmax(-1.0, std::fmin(1.0, 0.5 * (rel.R[0] + rel.R[4] + rel.R[8] - 1.0)));
  std::printf("rig: baseline %.6f m (right camera centre in the left frame: %.6f %.6f %.6f m)\n", baseline,
              centre[0], centre[1], centre[2]);
  std::printf("rig: relative rotation %.4f deg\n", std::acos(cosAngle) * kDegrees);
  if (rig.hasDisplays)
    std::printf("display eyes: left %d x %d, right %d x %d\n", rig.leftDisplay.width, rig.leftDisplay.height,
                rig.rightDisplay.width, rig.rightDisplay.height);
  return kExitOk;
}

}  // namespace StereoMaps
