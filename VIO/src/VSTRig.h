#pragma once

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SE3.h"

namespace VIO {

/// Makes camera 0 of `calibration` the reference frame of the rig.
///
/// When camera 0's reference-to-local rotation is not exactly the identity,
/// the fact is logged (ERROR), camera 0 gets the identity pose, camera 1 (and
/// any further camera) its old pose times C0^-1 (C0 = camera 0's old pose, so
/// its pose relative to camera 0 is kept), and `pose` becomes pose * C0^-1. A camera 0 whose
/// rotation is the identity is left as it is, whatever its translation.
///
/// Returns true exactly when camera 0's rotation is now the identity; false
/// (reported) for a calibration without cameras.
AR_EXPORT bool moveLeftCameraToOrigin(AR::CV::FullStereoCameraCalibration<float>& calibration,
                                      AR::Math::SE3<float>& pose);

}  // namespace VIO
