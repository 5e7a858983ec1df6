#pragma once

#include <string>

#include "AR/CV/Camera/CalibrationFile.h"
#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Math/SE3.h"
#include "StereoRectifyWrapperTypes.h"

namespace VIO {

/// Feature-noise variance (pixels squared, in x and in y) of every camera
/// converted from a device record: the record's noise fields are output-only
/// (written back as the standard deviation, 9 pixels).
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
/// whatever `num_cameras` says.
bool deviceToStereoCalibration(const DeviceCalibrationMRV* device,
                               AR::CV::FullStereoCameraCalibration<float>& calibration,
                               DeviceFrameParams& frame);

/// Pose record of a rigid transform: the rotation as a unit quaternion
/// (scalar part non-negative where the rotation allows), the translation as
/// the position. The inverse of toXRRD up to rounding.
template <typename PREC>
XrPosedMRV_t toPoseRecord(const AR::Math::SE3<PREC>& pose);

/// Fills `device` from a two-camera rig whose reference frame is the
/// device frame: camera i goes to slot i with its intrinsics, model and
/// camReferenceToLocal as its pose; the noise fields get the standard
/// deviation of the default variance (9 pixels); everything else, the header
/// vectors and the reserved regions included, is zeroed. False (with
/// `error`, `device` untouched) unless the rig has exactly two initialised
/// cameras whose image size fits the record.
template <typename PREC>
bool makeDeviceCalibration(const AR::CV::FullStereoCameraCalibration<PREC>& calibration,
                           DeviceCalibrationMRV& device, std::string* error = nullptr);

/// Fills a display-eye record: size, focal lengths, principal point at the
/// image centre, no distortion (LINEAR), the eye's pose; everything else
/// zeroed.
void makeDisplayRecord(const AR::CV::DisplayEye& eye, CameraCalibrationMRV& record);

}  // namespace VIO

using VIO::deviceToStereoCalibration;
using VIO::toXRRD;
