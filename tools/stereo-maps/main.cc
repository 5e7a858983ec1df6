// stereo-maps: remap tables, previews and facts from a stereo rig calibration.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "LibraryOutput.h"

namespace {

std::string shortNumber(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", v);
  return text;
}

/// A number in [lo, hi]. The bounds lie well inside the normal float range,
/// so a value that passes stays finite and positive when the library takes
/// it as a float (1e39 passes a finite-double check and becomes infinite).
/// CLI11's own range check prints the largest double in full, which helps
/// nobody.
CLI::Validator numberInRange(double lo, double hi) {
  return CLI::Validator(
      [lo, hi](std::string& text) -> std::string {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (end == text.c_str() || *end != '\0' || !(value >= lo && value <= hi))
          return "'" + text + "' is not a number from " + shortNumber(lo) + " to " + shortNumber(hi);
        return std::string();
      },
      "NUMBER");
}

/// An empty --calib would otherwise read as "no file given" and silently
/// load the example rig.
const CLI::Validator kNonEmptyPath(
    [](std::string& text) -> std::string {
      return text.empty() ? std::string("an empty path names no calibration file") : std::string();
    },
    "FILE");

void addCalibrationOptions(CLI::App* command, StereoMaps::CommonOptions& options, std::string& format) {
  command->add_option("--calib", options.calib,
                      "Calibration: XML calibration file (.xml), Kalibr camchain (.yaml/.yml), OpenCV stereo "
                      "calibration (.yml/.yaml/.xml written by cv::FileStorage) or raw DeviceCalibrationMRV "
                      "record (other extensions). Default: the bundled example rig")
      ->check(kNonEmptyPath);
  command->add_option("--format", format, "Force the calibration format: auto, xml, kalibr, record or opencv")
      ->check(CLI::IsMember({"auto", "xml", "kalibr", "record", "opencv"}));
  command->add_flag("--fisheye", options.fisheye,
                    "Read an OpenCV calibration's 4 distortion coefficients as the equidistant fisheye model");
}

void addOutputOptions(CLI::App* command, StereoMaps::CommonOptions& options) {
  command->add_option("--out", options.out, "Output directory for the .npy maps and preview.png")
      ->capture_default_str();
  command->add_flag("--allow-out-of-image", options.allowOutOfImage,
                    "Keep map entries whose source lies outside the camera image");
}

void addImageOptions(CLI::App* command, StereoMaps::CommonOptions& options) {
  command->add_option_function<std::vector<std::string>>(
             "--images",
             [&options](const std::vector<std::string>& files) {
               options.leftImage = files.at(0);
               options.rightImage = files.at(1);
             },
             "Left and right camera images (instead of the synthetic scene) for preview.png")
      ->expected(2)
      ->check(CLI::ExistingFile);
}

int run(int argc, char** argv) {
  CLI::App app{"stereo-maps: stereo rectification, undistortion and see-through remap tables from a stereo "
               "camera calibration.\nMaps are float32 .npy files (shape height x width) usable directly as "
               "OpenCV remap maps; -1 marks pixels without a source."};
  app.require_subcommand(1);
  app.fallthrough();
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose, "Show the library's own messages (lens ranges, debug log)");
  app.footer("Example: stereo-maps rectify --calib examples/example_rig.xml --out maps");

  StereoMaps::CommonOptions options;
  std::string format = "auto";
  float fovFactor = 1.0f;
  float planeDepth = 2.0f;

  CLI::App* rectify = app.add_subcommand("rectify", "Stereo rectification maps, rectified camera and depth constant");
  rectify->footer("Example: stereo-maps rectify --calib rig.xml --out maps --images left.png right.png");
  addCalibrationOptions(rectify, options, format);
  addOutputOptions(rectify, options);
  addImageOptions(rectify, options);
  StereoMaps::RectifyTarget target;
  CLI::Option* disparities =
      rectify->add_option("--disparities", target.numDisparities, "Disparity search range in pixels (with --min-depth)")
          ->capture_default_str();
  CLI::Option* minDepth =
      rectify->add_option("--min-depth", target.minDepth,
                          "Nearest depth in metres reachable within --disparities; 0 keeps fx = fy (no fitting)")
          ->capture_default_str();
  CLI::Option* maxDepth =
      rectify->add_option("--max-depth", target.maxDepth, "Depth in metres of disparity 0 when fitting")
          ->capture_default_str();
  CLI::Option* width =
      rectify->add_option("--width", target.width, "Width of the rectified images; 0 keeps camera 0's width")
          ->capture_default_str();

  CLI::App* undistort = app.add_subcommand("undistort", "Undistortion maps for both cameras");
  undistort->footer("Example: stereo-maps undistort --calib camchain.yaml --fov 0.8 --out maps");
  addCalibrationOptions(undistort, options, format);
  undistort->add_option("--fov", fovFactor,
                        "Field-of-view factor: the undistorted camera's focal length is this times the real "
                        "one (below 1 widens the view)")
      ->capture_default_str()
      ->check(numberInRange(StereoMaps::kMinFovFactor, StereoMaps::kMaxFovFactor));
  addOutputOptions(undistort, options);
  addImageOptions(undistort, options);

  CLI::App* vst = app.add_subcommand("vst", "Fixed-plane video see-through maps for the two display eyes");
  vst->footer("Example: stereo-maps vst --calib rig.xml --plane-depth 1.5 --out maps");
  addCalibrationOptions(vst, options, format);
  vst->add_option("--plane-depth", planeDepth, "Depth of the scene plane in metres")
      ->capture_default_str()
      ->check(numberInRange(StereoMaps::kMinPlaneDepth, StereoMaps::kMaxPlaneDepth));
  addOutputOptions(vst, options);

  CLI::App* info = app.add_subcommand("info", "Lens models, valid ranges, fields of view, baseline");
  info->footer("Example: stereo-maps info --calib rig.xml");
  addCalibrationOptions(info, options, format);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    // One line, in the same form as every other error of the tool.
    std::fprintf(stderr, "stereo-maps: error: %s\n", e.what());
    return StereoMaps::kExitError;
  }
  if (!StereoMaps::parseCalibrationFormat(format, options.format)) {
    std::fprintf(stderr, "stereo-maps: error: --format: unknown format '%s'\n", format.c_str());
    return StereoMaps::kExitError;
  }

  StereoMaps::setVerbose(verbose);
  if (*rectify) {
    const bool custom = disparities->count() + minDepth->count() + maxDepth->count() + width->count() > 0;
    return StereoMaps::runRectify(options, target, custom);
  }
  if (*undistort) return StereoMaps::runUndistort(options, fovFactor);
  if (*vst) return StereoMaps::runSeeThrough(options, planeDepth);
  return StereoMaps::runInfo(options);
}

}  // namespace

int main(int argc, char** argv) {
  // Last resort: every input error is meant to be reported where it is
  // found, but an exception from a dependency must still end as exit 2.
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "stereo-maps: error: %s\n", e.what());
  }
  return StereoMaps::kExitError;
}
