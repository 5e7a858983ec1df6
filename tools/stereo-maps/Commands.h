#pragma once

#include <string>

#include "CalibrationInput.h"
#include "CustomRectify.h"

namespace StereoMaps {

/// Options every subcommand shares.
struct CommonOptions {
  std::string calib;  // empty: the bundled example rig
  CalibrationFormat format = CalibrationFormat::Auto;
  bool fisheye = false;  // an OpenCV calibration's 4 coefficients are the equidistant fisheye's
  std::string out = "maps";
  bool allowOutOfImage = false;
  std::string leftImage, rightImage;  // optional inputs instead of the synthetic scene
};

/// Exit codes: 0 success, 2 for any input or output error (reported on
/// standard error as one line naming the file).
constexpr int kExitOk = 0;
constexpr int kExitError = 2;

/// Accepted option values. The bounds lie well inside the normal float
/// range, so every accepted value is finite and positive as the float the
/// library receives, and the geometry built from it stays finite.
constexpr double kMinFovFactor = 1e-3;
constexpr double kMaxFovFactor = 1e3;
constexpr double kMinPlaneDepth = 1e-3;  // metres
constexpr double kMaxPlaneDepth = 1e6;

int runRectify(const CommonOptions& options);
/// With `custom`, the maps aim for `target` instead of CreateRectifyMap's
/// fixed target (64 disparities, no depth fitting, camera 0's width).
int runRectify(const CommonOptions& options, const RectifyTarget& target, bool custom);
int runUndistort(const CommonOptions& options, float fovFactor);
int runSeeThrough(const CommonOptions& options, float planeDepth);
int runInfo(const CommonOptions& options);

}  // namespace StereoMaps
