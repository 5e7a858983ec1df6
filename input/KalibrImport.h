#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// Reads a Kalibr camchain YAML file with cameras cam0 (left) and cam1 (right)
/// into `rig.device`.
///
/// Supported: camera_model pinhole with distortion_model radtan (k1 k2 p1 p2:
/// two-coefficient rational-polynomial model plus tangential terms),
/// equidistant (four-coefficient fisheye), fov (one-parameter fisheye) or none
/// (no distortion). cam0's pose is its T_cam_imu when present, else the
/// identity; cam1's pose is its T_cn_cnm1 (cam0 coordinates into cam1) applied
/// after cam0's pose, or its own T_cam_imu when T_cn_cnm1 is absent. The file
/// carries no display eyes. On failure `error` names the file and the key.
bool loadKalibrCamchain(const std::string& path, Rig& rig, std::string& error);

}  // namespace StereoMaps
