#pragma once

#include <cstdint>
#include <string>

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace CV {

/// One display eye of a see-through headset: a distortion-free virtual
/// camera with the display's size and focal lengths, and its pose.
struct DisplayEye {
  int32_t width = 0;
  int32_t height = 0;
  /// Focal lengths in display pixels.
  double fx = 0.0;
  double fy = 0.0;
  /// Maps points of the rig's reference (device) frame into the eye's frame,
  /// the same convention as a camera's camReferenceToLocal.
  AR::Math::SE3<double> eyeFromDevice;
};

/// The optional pair of display eyes of a calibration file.
struct DisplayEyes {
  /// True when the file holds both eyes ("DisplayEye" side="left" and
  /// side="right"); false when it holds none.
  bool present = false;
  DisplayEye left;
  DisplayEye right;
};

/// Reads a rig calibration file (XML, root element "DeviceConfiguration").
///
/// On success `calibration` is replaced by the file's cameras (in file
/// order, each initialised) and device UID, and `displayEyes`, when given,
/// by the file's display eyes. On failure nothing is modified and `error`,
/// when given, names the element, the camera and the attribute at fault.
/// Building a camera narrows its valid distortion range, which prints the
/// two validity lines of the distortion model on standard output.
template <typename PREC>
AR_EXPORT bool loadCameraCalibFromDeviceConfig(const std::string& path,
                                               FullStereoCameraCalibration<PREC>& calibration,
                                               DisplayEyes* displayEyes = nullptr,
                                               std::string* error = nullptr);

/// As loadCameraCalibFromDeviceConfig, from XML text in memory.
template <typename PREC>
AR_EXPORT bool loadCalibrationFromString(const std::string& xml,
                                         FullStereoCameraCalibration<PREC>& calibration,
                                         DisplayEyes* displayEyes = nullptr,
                                         std::string* error = nullptr);

/// Writes `calibration` (and the display eyes when given and present) as a
/// calibration file that loads back to the same cameras, ids, poses, numbers
/// and device UID. Every camera must have intrinsics; false (with `error`)
/// otherwise or when the file cannot be written.
template <typename PREC>
AR_EXPORT bool saveCalibration(const std::string& path,
                               const FullStereoCameraCalibration<PREC>& calibration,
                               const DisplayEyes* displayEyes = nullptr,
                               std::string* error = nullptr);

/// As saveCalibration, into a string.
template <typename PREC>
AR_EXPORT bool saveCalibrationToString(const FullStereoCameraCalibration<PREC>& calibration,
                                       const DisplayEyes* displayEyes, std::string& xml,
                                       std::string* error = nullptr);

}  // namespace CV
}  // namespace AR
