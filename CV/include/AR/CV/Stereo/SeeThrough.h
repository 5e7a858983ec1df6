#pragma once

#include <array>

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SE3.h"

// The display-eye record of the public C interface (StereoRectifyWrapperTypes.h).
// Declared here so that this header does not pull the C interface in.
struct CameraCalibrationMRV;

namespace AR {
namespace CV {

/// Builds the target cameras of video see-through from the two display-eye
/// records of a head-worn device.
///
/// `targetCalibration` receives two distortion-free cameras, "lefteye" and
/// "righteye": each has its record's image size and focal lengths, and its
/// principal point at the centre of the image (the record's own principal point
/// is ignored, the display is rendered centred). Their poses are the records'
/// poses (quaternion normalised on the way in; a zero quaternion aborts).
///
/// `eyePoses[0]` and `eyePoses[1]` map points given in the flipped frame of the
/// left and right eye (x right, y down, z forward, as a camera looks) into the
/// frame of tracking camera 0 and 1 of `calibration`:
///   eyePoses[0] = T^-1 * E_L^-1 * F,   eyePoses[1] = C1 * T^-1 * E_R^-1 * F,
/// where E_L, E_R are the eye poses (eye-from-device), T is the device transform
/// whose inverse takes device points into tracking camera 0, C1 is camera 1's
/// reference-to-local transform and F the rotation by pi about x.
///
/// `calibration` must have camera 0 at its origin (identity reference-to-local
/// transform); otherwise the violation is logged and the result uses it as is.
/// Every failed check is logged and the computation goes on.
template <typename FloatType>
AR_EXPORT void makeSeeThroughCalibration(const FullStereoCameraCalibration<FloatType>& calibration,
                                         const CameraCalibrationMRV& leftEye,
                                         const CameraCalibrationMRV& rightEye,
                                         const AR::Math::SE3<FloatType>& T,
                                         FullStereoCameraCalibration<FloatType>& targetCalibration,
                                         std::array<AR::Math::SE3<FloatType>, 2>& eyePoses);

extern template AR_EXPORT void makeSeeThroughCalibration<float>(
    const FullStereoCameraCalibration<float>&, const CameraCalibrationMRV&,
    const CameraCalibrationMRV&, const AR::Math::SE3<float>&, FullStereoCameraCalibration<float>&,
    std::array<AR::Math::SE3<float>, 2>&);
extern template AR_EXPORT void makeSeeThroughCalibration<double>(
    const FullStereoCameraCalibration<double>&, const CameraCalibrationMRV&,
    const CameraCalibrationMRV&, const AR::Math::SE3<double>&, FullStereoCameraCalibration<double>&,
    std::array<AR::Math::SE3<double>, 2>&);

}  // namespace CV
}  // namespace AR
