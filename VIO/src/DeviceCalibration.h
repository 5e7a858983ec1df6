#pragma once

#include <string>

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SE3.h"
#include "CameraModel/CameraModel.h"
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

/// The same conversion for a caller that must not abort: every step that
/// would reach a fatal assertion (a quaternion without direction in float,
/// a distortion model outside 0..5, a RADIAL_6 denominator root that is not a
/// number) is tested first on the very values that step uses; the conversion
/// then stops, returns false and says in `refusal` which camera and field are
/// to blame. Otherwise it is deviceToStereoCalibration exactly, `refusal`
/// empty (a camera that does not initialise still gives false).
bool tryDeviceToStereoCalibration(const DeviceCalibrationMRV* device,
                                  AR::CV::FullStereoCameraCalibration<float>& calibration,
                                  DeviceFrameParams& frame, std::string& refusal);

/// The pose quaternion of a record rounded to float, as toXRRD reads it.
AR::Math::Vector<float, 4> poseQuaternion(const XrPosedMRV_t& pose);

/// The internal model of a camera record before its valid range is set up
/// (both limits at their starting value), as the conversion builds it.
CamModel::CameraModel<float> cameraModelFields(const CameraCalibrationMRV& cam);

}  // namespace VIO

using VIO::deviceToStereoCalibration;
using VIO::toXRRD;
