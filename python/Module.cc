// The stereo_rectify Python module: calibrations in, NumPy remap tables out.
#include <cmath>
#include <cstring>
#include <optional>
#include <string>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <CameraModel/DistortionModel.h>
#include <StereoRectifyWrapper.h>

#include "CalibrationInput.h"
#include "LogBridge.h"
#include "CustomRectify.h"
#include "Rig.h"
#include "XmlExport.h"

namespace py = pybind11;
using StereoMaps::Rig;
using StereoRectifyPython::CaptureStdout;
using StereoRectifyPython::flushLog;

namespace {

using FloatMap = py::array_t<float, py::array::c_style>;

/// Map sides the module accepts: large enough for any real sensor or display,
/// small enough that element counts stay far inside the library's 32-bit sizes.
constexpr int kMaxMapSide = 16384;

/// One camera or display-eye record, read-only from Python.
struct Camera {
  CameraCalibrationMRV record{};
  bool display = false;
};

struct Calibration {
  Rig rig;
  /// Names the input in error messages: the file's path or "record".
  std::string source;
};

struct Maps {
  FloatMap leftX, leftY, rightX, rightY;
};

struct RectifyMaps : Maps {
  Camera rectifiedCamera;
  float depthConstant = -1.0f;
  float depthOffset = 0.0f;
};

py::array_t<double> poseMatrix(const XrPosedMRV_t& record) {
  const StereoMaps::Pose pose = StereoMaps::fromPoseRecord(record);
  py::array_t<double> m({4, 4});
  auto v = m.mutable_unchecked<2>();
  for (py::ssize_t r = 0; r < 4; ++r)
    for (py::ssize_t c = 0; c < 4; ++c) v(r, c) = (r == 3) ? (c == 3 ? 1.0 : 0.0) : (c == 3 ? pose.t[r] : pose.R[3 * r + c]);
  m.attr("flags").attr("writeable") = false;
  return m;
}

/// A rigid transform from a 4x4 (or 3x4) array: the rotation must be proper
/// and orthonormal, since the record keeps it as a quaternion.
StereoMaps::Pose poseFromMatrix(const py::array_t<double, py::array::c_style | py::array::forcecast>& m,
                                const std::string& what) {
  if (m.ndim() != 2 || (m.shape(0) != 4 && m.shape(0) != 3) || m.shape(1) != 4)
    throw py::value_error(what + ": expected a 4x4 rigid transform");
  auto v = m.unchecked<2>();
  StereoMaps::Pose pose;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) pose.R[3 * r + c] = v(r, c);
    pose.t[r] = v(r, 3);
  }
  double worst = 0.0;
  for (int r = 0; r < 3; ++r) {
    if (!std::isfinite(pose.t[r])) throw py::value_error(what + ": the translation is not finite");
    for (int c = 0; c < 3; ++c) {
      double dot = 0.0;
      for (int k = 0; k < 3; ++k) dot += pose.R[3 * r + k] * pose.R[3 * c + k];
      const double off = std::fabs(dot - (r == c ? 1.0 : 0.0));
      worst = std::isfinite(dot) ? std::max(worst, off) : 1.0;
    }
  }
  const double* R = pose.R;
  const double det = R[0] * (R[4] * R[8] - R[5] * R[7]) - R[1] * (R[3] * R[8] - R[5] * R[6]) +
                     R[2] * (R[3] * R[7] - R[4] * R[6]);
  if (!(worst < 1e-6) || !(det > 0.0)) throw py::value_error(what + ": the rotation part is not a rotation matrix");
  return pose;
}

void checkDisplay(const CameraCalibrationMRV& d, const std::string& what) {
  if (d.width < 1 || d.height < 1 || d.width > kMaxMapSide || d.height > kMaxMapSide)
    throw py::value_error(what + ": size must be between 1 and " + std::to_string(kMaxMapSide) + " pixels");
  if (!std::isfinite(d.fx) || !std::isfinite(d.fy) || !(d.fx > 0.0) || !(d.fy > 0.0))
    throw py::value_error(what + ": focal lengths must be finite and above 0");
  const XrQuaterniondMRV_t& q = d.pose.orientation;
  const double n = q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w;
  if (!(n > 1e-12) || !std::isfinite(n)) throw py::value_error(what + ": pose orientation is not a usable quaternion");
}

/// The library's own verdict on a record, asked before every entry point so
/// that nothing it would abort on reaches it. Runs without the GIL.
bool libraryAccepts(const Calibration& calib, std::string& error) {
  char message[512] = {};
  if (ValidateDeviceCalibration(&calib.rig.device, message, sizeof(message))) return true;
  error = calib.source + ": " + message;
  return false;
}

FloatMap newMap(int width, int height) { return FloatMap({py::ssize_t(height), py::ssize_t(width)}); }

void allocate(Maps& maps, int width, int height, const std::string& what) {
  if (width < 1 || height < 1 || width > kMaxMapSide || height > kMaxMapSide)
    throw py::value_error(what + " has an unusable size " + std::to_string(width) + " x " + std::to_string(height));
  maps.leftX = newMap(width, height);
  maps.leftY = newMap(width, height);
  maps.rightX = newMap(width, height);
  maps.rightY = newMap(width, height);
}

/// Runs `build(leftX, leftY, rightX, rightY, count, error)` on the four map
/// buffers with the GIL released and standard output captured, once the
/// library has accepted the record; raises ValueError with the refusal
/// otherwise, or with `error` when `build` itself returns false.
template <typename Build>
void fillMaps(const Calibration& calib, Maps& maps, Build build) {
  const uint32_t n = uint32_t(maps.leftX.size());
  float* lx = maps.leftX.mutable_data();
  float* ly = maps.leftY.mutable_data();
  float* rx = maps.rightX.mutable_data();
  float* ry = maps.rightY.mutable_data();
  std::string error;
  bool accepted = false;
  {
    py::gil_scoped_release release;
    CaptureStdout capture;
    accepted = libraryAccepts(calib, error) && build(lx, ly, rx, ry, n, error);
  }
  flushLog();
  if (!accepted) throw py::value_error(error);
}

Calibration load(const std::string& path, const std::optional<std::string>& format, bool fisheye) {
  StereoMaps::CalibrationFormat parsed = StereoMaps::CalibrationFormat::Auto;
  if (format && !StereoMaps::parseCalibrationFormat(*format, parsed))
    throw py::value_error("format: unknown format '" + *format + "', expected xml, kalibr, record or opencv");
  Calibration calibration;
  calibration.source = path;
  std::string error;
  bool ok = false;
  {
    py::gil_scoped_release release;
    CaptureStdout capture;
    ok = StereoMaps::loadRig(path, parsed, fisheye, calibration.rig, error);
  }
  flushLog();
  if (!ok) throw py::value_error(error);
  return calibration;
}

Calibration fromRecord(const py::bytes& data) {
  const std::string bytes = data;
  if (bytes.size() < sizeof(DeviceCalibrationMRV))
    throw py::value_error("record: a DeviceCalibrationMRV record needs at least " +
                          std::to_string(sizeof(DeviceCalibrationMRV)) + " bytes, got " +
                          std::to_string(bytes.size()));
  Calibration calibration;
  calibration.source = "record";
  std::memcpy(&calibration.rig.device, bytes.data(), sizeof(DeviceCalibrationMRV));
  std::string error;
  bool ok = false;
  {
    py::gil_scoped_release release;
    CaptureStdout capture;
    ok = StereoMaps::validateRecordRig(calibration.source, calibration.rig, error);
  }
  flushLog();
  if (!ok) throw py::value_error(error);
  return calibration;
}

RectifyMaps rectify(const Calibration& calib, bool allowOutOfImage, uint32_t numDisparities, float minDepth,
                    float maxDepth, uint32_t targetWidth) {
  if (StereoMaps::baselineMetres(calib.rig) < 1e-6)
    throw py::value_error(calib.source + ": the two cameras are at the same position; rectification needs a baseline");
  const StereoMaps::RectifyTarget target{numDisparities, minDepth, maxDepth, targetWidth};
  std::string error;
  if (!StereoMaps::checkRectifyTarget(calib.rig.device, target, false, error)) throw py::value_error(error);
  int width = 0, height = 0;
  StereoMaps::rectifyMapSize(calib.rig.device, target, width, height);
  RectifyMaps maps;
  allocate(maps, width, height, "the rectified image");
  StereoMaps::RectifyResult result;
  fillMaps(calib, maps, [&](float* lx, float* ly, float* rx, float* ry, uint32_t, std::string& err) {
    if (StereoMaps::buildRectifyMaps(calib.rig.device, target, allowOutOfImage, lx, ly, rx, ry, result, err))
      return true;
    err = calib.source + ": " + err;
    return false;
  });
  maps.rectifiedCamera.record = result.rectified;
  maps.depthConstant = result.depthConstant;
  maps.depthOffset = result.depthOffset;
  return maps;
}

Maps undistort(const Calibration& calib, float fovFactor, bool allowOutOfImage) {
  if (!std::isfinite(fovFactor) || !(fovFactor > 0.0f)) throw py::value_error("fov_factor: must be a positive number");
  const CameraCalibrationMRV& left = calib.rig.device.cameras[0];
  Maps maps;
  allocate(maps, left.width, left.height, "camera 0");
  fillMaps(calib, maps, [&](float* lx, float* ly, float* rx, float* ry, uint32_t n, std::string&) {
    // The factor was checked above, so the entry point accepts the call.
    return CreateUndistortMap(&calib.rig.device, allowOutOfImage ? 1u : 0u, fovFactor, lx, n, ly, n, rx, n, ry, n);
  });
  return maps;
}

Maps seeThrough(const Calibration& calib, float planeDepth, bool allowOutOfImage, const std::optional<Camera>& left,
                const std::optional<Camera>& right) {
  if (!std::isfinite(planeDepth) || !(planeDepth > 0.0f)) throw py::value_error("plane_depth: must be a positive number");
  if (left.has_value() != right.has_value())
    throw py::value_error("left_display, right_display: give both display eyes or neither");
  if (!left && !calib.rig.hasDisplays)
    throw py::value_error(calib.source + ": no display eyes (only the XML calibration file carries them)");
  const CameraCalibrationMRV leftEye = left ? left->record : calib.rig.leftDisplay;
  const CameraCalibrationMRV rightEye = right ? right->record : calib.rig.rightDisplay;
  checkDisplay(leftEye, "left display");
  checkDisplay(rightEye, "right display");
  Maps maps;
  allocate(maps, leftEye.width, leftEye.height, "the left display");
  fillMaps(calib, maps, [&](float* lx, float* ly, float* rx, float* ry, uint32_t n, std::string&) {
    return CreateFixedPlaneVSTMaps(&calib.rig.device, &leftEye, &rightEye, planeDepth, allowOutOfImage ? 1u : 0u,
                                   lx, n, ly, n, rx, n, ry, n);
  });
  return maps;
}

Camera makeDisplay(int width, int height, double fx, double fy,
                   const py::array_t<double, py::array::c_style | py::array::forcecast>& eyeFromDevice) {
  Camera eye;
  eye.display = true;
  eye.record.width = width;
  eye.record.height = height;
  eye.record.fx = fx;
  eye.record.fy = fy;
  // The library centres a display eye's principal point in its image.
  eye.record.cx = 0.5 * width;
  eye.record.cy = 0.5 * height;
  StereoMaps::toPoseRecord(poseFromMatrix(eyeFromDevice, "eye_from_device"), eye.record.pose);
  checkDisplay(eye.record, "display eye");
  return eye;
}

std::string modelNameOf(const Camera& camera) {
  const int32_t m = camera.record.distortionModel;
  // Loaded records are checked; the name of anything else is not asked of
  // the library, whose lookup treats unknown values as fatal.
  if (m < 0 || m > 5) return "UNKNOWN";
  return CamModel::modelName(static_cast<DistortionModel>(m));
}

void defineCamera(py::module_& m) {
  py::class_<Camera>(m, "Camera",
                     "A camera or display-eye record (read-only). Tracking cameras carry intrinsics, a lens model "
                     "and the camera-from-device pose; display eyes a size, focal lengths and the eye-from-device "
                     "pose (principal point at the image centre).")
      .def_static("display", &makeDisplay, py::arg("width"), py::arg("height"), py::arg("fx"), py::arg("fy"),
                  py::arg("eye_from_device"),
                  "A display eye for see_through(): size and focal lengths in display pixels, and the 4x4 "
                  "transform from device into eye coordinates (the eye looks along -z with y up).")
      .def_property_readonly("width", [](const Camera& c) { return c.record.width; }, "Image width in pixels.")
      .def_property_readonly("height", [](const Camera& c) { return c.record.height; }, "Image height in pixels.")
      .def_property_readonly(
          "size", [](const Camera& c) { return py::make_tuple(c.record.width, c.record.height); },
          "(width, height) in pixels.")
      .def_property_readonly(
          "focal_length", [](const Camera& c) { return py::make_tuple(c.record.fx, c.record.fy); },
          "(fx, fy) in pixels.")
      .def_property_readonly(
          "principal_point", [](const Camera& c) { return py::make_tuple(c.record.cx, c.record.cy); },
          "(cx, cy) in pixels.")
      .def_property_readonly("model", &modelNameOf,
                             "Lens model name: LINEAR, RADIAL_2_PARAMETERS, RADIAL_3_PARAMETERS, "
                             "RADIAL_6_PARAMETERS, FISHEYE_1_PARAMETER or FISHEYE_4_PARAMETERS.")
      .def_property_readonly(
          "radial_coefficients",
          [](const Camera& c) {
            const double* k = c.record.k;
            return py::make_tuple(k[0], k[1], k[2], k[3], k[4], k[5]);
          },
          "The lens model's six radial coefficients k1..k6 (unused ones are 0).")
      .def_property_readonly(
          "tangential_coefficients", [](const Camera& c) { return py::make_tuple(c.record.p[0], c.record.p[1]); },
          "Tangential coefficients (p1, p2).")
      .def_property_readonly(
          "pose", [](const Camera& c) { return poseMatrix(c.record.pose); },
          "4x4 rigid transform (read-only NumPy array) from device coordinates into this camera's or "
          "eye's coordinates.")
      .def(
          "to_record",
          [](const Camera& c) {
            return py::bytes(reinterpret_cast<const char*>(&c.record), sizeof(CameraCalibrationMRV));
          },
          "The CameraCalibrationMRV record (312 bytes).")
      .def_property_readonly("is_display", [](const Camera& c) { return c.display; },
                             "True for a display eye.")
      .def("__repr__", [](const Camera& c) {
        return "<stereo_rectify.Camera " + std::to_string(c.record.width) + "x" + std::to_string(c.record.height) +
               " " + (c.display ? std::string("display") : modelNameOf(c)) + ">";
      });
}

Camera trackingCamera(const Calibration& c, int i) {
  Camera camera;
  camera.record = c.rig.device.cameras[i];
  return camera;
}

std::optional<Camera> displayEye(const Calibration& c, bool leftEye) {
  if (!c.rig.hasDisplays) return std::nullopt;
  Camera eye;
  eye.display = true;
  eye.record = leftEye ? c.rig.leftDisplay : c.rig.rightDisplay;
  return eye;
}

void defineCalibration(py::module_& m) {
  py::class_<Calibration>(m, "Calibration",
                          "A stereo rig: two tracking cameras as a DeviceCalibrationMRV record, and the two display "
                          "eyes when the input carries them. Checked on loading, so every entry point can use it.")
      .def_static("load", &load, py::arg("path"), py::arg("format") = py::none(), py::arg("fisheye") = false,
                  "Loads a calibration file. format: 'xml' (the library's DeviceConfiguration file, with display "
                  "eyes), 'kalibr' (camchain YAML), 'record' (raw DeviceCalibrationMRV bytes) or 'opencv' (OpenCV "
                  "stereo calibration saved by cv::FileStorage); None chooses by extension and content. fisheye "
                  "reads an OpenCV file's 4 coefficients as the equidistant fisheye model. Raises ValueError "
                  "with a message naming the file and the element or key at fault.")
      .def_static("from_record", &fromRecord, py::arg("data"),
                  "A calibration from the bytes of a DeviceCalibrationMRV record (at least 1504 bytes). Raises "
                  "ValueError if the record cannot be used.")
      .def(
          "to_record",
          [](const Calibration& c) {
            return py::bytes(reinterpret_cast<const char*>(&c.rig.device), sizeof(DeviceCalibrationMRV));
          },
          "The DeviceCalibrationMRV record (1504 bytes) the entry points receive.")
      .def(
          "save_xml",
          [](const Calibration& c, const std::string& path) {
            std::string error;
            bool ok = false;
            {
              py::gil_scoped_release release;
              CaptureStdout capture;
              ok = StereoMaps::saveXmlRig(path, c.rig, error);
            }
            flushLog();
            if (!ok) throw py::value_error(error);
          },
          py::arg("path"),
          "Writes the calibration as the library's XML file (cameras 'trackingA0' and 'trackingB1', display "
          "eyes when present). Raises ValueError when the file cannot be written.")
      .def_property_readonly(
          "cameras", [](const Calibration& c) { return py::make_tuple(trackingCamera(c, 0), trackingCamera(c, 1)); },
          "The two tracking cameras (left, right).")
      .def_property_readonly(
          "left_camera", [](const Calibration& c) { return trackingCamera(c, 0); }, "Tracking camera 0.")
      .def_property_readonly(
          "right_camera", [](const Calibration& c) { return trackingCamera(c, 1); }, "Tracking camera 1.")
      .def_property_readonly(
          "left_display", [](const Calibration& c) { return displayEye(c, true); },
          "The left display eye, or None.")
      .def_property_readonly(
          "right_display", [](const Calibration& c) { return displayEye(c, false); },
          "The right display eye, or None.")
      .def_property_readonly(
          "baseline", [](const Calibration& c) { return StereoMaps::baselineMetres(c.rig); },
          "Distance between the two camera centres, in the calibration's units (metres).")
      .def_property_readonly(
          "source", [](const Calibration& c) { return c.source; }, "The file path, or 'record'.")
      .def("__repr__", [](const Calibration& c) { return "<stereo_rectify.Calibration from " + c.source + ">"; });
}

void defineMaps(py::module_& m) {
  py::class_<Maps>(m, "Maps",
                   "Four remap tables, float32 arrays of shape (height, width), C-contiguous: the source position "
                   "in each distorted camera image for every output pixel; -1 marks pixels without a source. "
                   "Pass left_x, left_y (right_x, right_y) straight to cv2.remap.")
      .def_readonly("left_x", &Maps::leftX, "Left camera's source x per output pixel.")
      .def_readonly("left_y", &Maps::leftY, "Left camera's source y per output pixel.")
      .def_readonly("right_x", &Maps::rightX, "Right camera's source x per output pixel.")
      .def_readonly("right_y", &Maps::rightY, "Right camera's source y per output pixel.");
  py::class_<RectifyMaps, Maps>(m, "RectifyMaps",
                                "Rectification maps with the rectified camera and the depth parameters: "
                                "depth = depth_constant / (disparity + depth_offset).")
      .def_readonly("rectified_camera", &RectifyMaps::rectifiedCamera,
                    "The rectified left camera (distortion-free), pose rectified-from-device.")
      .def_readonly("depth_constant", &RectifyMaps::depthConstant, "Baseline times the rectified fx.")
      .def_readonly("depth_offset", &RectifyMaps::depthOffset,
                    "Disparity offset; 0 unless a minimum depth was asked for.");
}

}  // namespace

PYBIND11_MODULE(_native, m) {
  m.doc() = "Native part of stereo_rectify: calibrations and remap tables from libStereoRectifyWrapper.";
  StereoRectifyPython::installLogBridge();
  defineCamera(m);
  defineCalibration(m);
  defineMaps(m);
  m.def("rectify", &rectify, py::arg("calib"), py::arg("allow_out_of_image") = false,
        py::arg("num_disparities") = 64u, py::arg("min_depth") = 0.0f, py::arg("max_depth") = 10.0f,
        py::arg("target_width") = 0u,
        "Stereo rectification maps of both cameras. With the defaults the result equals CreateRectifyMap bit "
        "for bit; min_depth > 0 fits the disparity range [0, num_disparities] to [max_depth, min_depth] "
        "(metres) and target_width (0: camera 0's width) narrows the rectified images.");
  m.def("undistort", &undistort, py::arg("calib"), py::arg("fov_factor") = 1.0f,
        py::arg("allow_out_of_image") = false,
        "Undistortion maps of both cameras at camera 0's size; the virtual camera's focal length is fov_factor "
        "times the real one (below 1 widens the view).");
  m.def("see_through", &seeThrough, py::arg("calib"), py::arg("plane_depth"), py::arg("allow_out_of_image") = false,
        py::arg("left_display") = py::none(), py::arg("right_display") = py::none(),
        "Fixed-plane see-through maps: for each display pixel the camera pixel that shows the scene point seen "
        "through it when the scene is a plane plane_depth metres away. Display eyes come from the calibration "
        "unless both are given (Camera.display).");
  m.def("set_log_level", &StereoRectifyPython::setLogLevel, py::arg("level"),
        "Sets how much the library logs and the level of the 'stereo_rectify' logger: a logging level number "
        "or one of 'off', 'error', 'warning', 'debug', 'info', 'verbose'.");
}
