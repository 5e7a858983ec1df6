#pragma once

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SE3.h"
#include "StereoRectifyWrapperTypes.h"

namespace VIO {

/// Feature-noise variance (pixels squared, in x and in y) of every camera
/// converted from a device record: the record's noise fields are output-only
/// (written back as the standard deviation, 9 pixels). Inside the camera model
/// these two slots are the validity limits (maxValidDistortionRSq,
/// maxValidUndistortionRSq), which must start at 81 before the range
/// analysis narrows them.
constexpr float kDeviceCameraNoiseVariance = 81.0f;

/// Pose record to rigid transform: the quaternion is rounded to float,
/// normalised (a zero quaternion is a fatal error, "length>0"), turned into a
/// rotation matrix and re-orthogonalised; the position is rounded to float.
AR::Math::SE3<float> toXRRD(const XrPosedMRV_t& pose);

/// Converts cameras 0 and 1 of `device` into a two-camera rig:
/// "trackingA0" at the identity pose (the rig's reference frame) and
/// "trackingB1" at the relative pose T1 * T0^-1, each with the fixed feature
/// noise variance 81 (the record's noise fields are ignored). Fills `frame`
/// with the header vectors, camera 0's inverse pose and its integer field;
/// the caller zeroes `frame` beforehand. Both cameras are always attempted;
/// returns true when both were initialised. Reads camera slots 0 and 1
/// whatever `num_cameras` says. Exported so that front ends can build maps
/// for other rectification targets from exactly the rig the entry points use.
AR_EXPORT bool deviceToStereoCalibration(const DeviceCalibrationMRV* device,
                                         AR::CV::FullStereoCameraCalibration<float>& calibration,
                                         DeviceFrameParams& frame);

}  // namespace VIO

using VIO::deviceToStereoCalibration;
using VIO::toXRRD;
