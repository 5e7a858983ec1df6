#pragma once

#include "AR/CV/Camera/Camera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SO3.h"
#include "StereoRectifyWrapperTypes.h"

namespace VIO {

/// Writes the rectified left camera `camera` into `out`: intrinsics (bytes
/// 64..191) and the pose rectified-from-device, built from camera 0's inverse
/// pose in `frame` and the rectifying rotation `S` (orientation S^T R0,
/// position S^T t0). Bytes 0..63 and 248..311 belong to the caller and are not
/// touched. Exported so that a front end with its own rectification target
/// writes the same record the entry point writes.
AR_EXPORT void writeRectifiedCamera(const AR::CV::Camera<float>& camera, const DeviceFrameParams& frame,
                                    const AR::Math::SO3<float>& S, CameraCalibrationMRV& out);

}  // namespace VIO
