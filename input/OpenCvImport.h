#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// Reads the result of OpenCV's stereo calibration as saved by
/// cv::FileStorage (YAML or XML) into `rig.device`.
///
/// Keys: `K1`, `K2` (3x3 camera matrices without skew), `D1`, `D2`
/// (distortion vectors), `R`, `T` (camera 0 coordinates into camera 1:
/// x1 = R x0 + T) and the image size, read from `image_size` or `imageSize`
/// (two numbers, width then height) or else from `width` and `height`.
///
/// A distortion vector of 4 (k1 k2 p1 p2), 5 (k1 k2 p1 p2 k3) or 8
/// (k1 k2 p1 p2 k3 k4 k5 k6) coefficients becomes the rational model with two,
/// three or six coefficients plus the tangential terms. Vectors of 12 or 14
/// are accepted when their thin-prism and tilt terms are all zero, and refused
/// otherwise. A fisheye calibration (`fisheye` non-zero, `distortion_model`
/// "fisheye" or "equidistant" in the file, or `forceFisheye`) takes exactly
/// four coefficients, the equidistant model's k1..k4.
///
/// `T` is in metres unless the file says otherwise in `units` ("m", "cm" or
/// "mm"). Camera 0 becomes the device frame (identity pose); camera 1's pose
/// is (R, T). The file carries no display eyes. On failure `error` names the
/// file and the key.
bool loadOpenCvStereo(const std::string& path, bool forceFisheye, Rig& rig, std::string& error);

/// True when the first bytes of `path` look like a cv::FileStorage file
/// ("%YAML:1.0" or an "opencv_storage" root element).
bool looksLikeOpenCvStorage(const std::string& path);

}  // namespace StereoMaps
