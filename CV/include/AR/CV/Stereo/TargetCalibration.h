#pragma once

// The virtual, distortion-free stereo pair into which a real two-camera rig is
// rectified: target intrinsics, target poses, the rectifying rotation and the
// disparity-to-depth parameters.

#include <cstdint>

#include "AR/Common/Macros.h"
#include "AR/CV/Camera/StereoCamera.h"
#include "AR/CV/Stereo/RectifyChecks.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace CV {

/// Disparity to depth: for a disparity d (x in the left target image minus x
/// in the right one, pixels) the depth along the target optical axis is
/// constant / (d + offsetX).
template <typename T>
struct DepthParams {
  T constant = T(0);
  T offsetX = T(0);
};

/// Horizontal focal scale and principal-point offset of the right target
/// camera that make a disparity range fit a depth range.
template <typename SFType>
struct TargetIntrinsicsParams {
  SFType focalScale = SFType(1);  ///< factor on the horizontal focal length
  SFType offsetX = SFType(0);     ///< pixels added to the right principal point's x
};

/// Chooses the rectified target of the rig `calibration` (camera 0 the input
/// left camera, which must sit at the rig origin; camera 1 the input right
/// camera).
///
/// - `numDisparities`: width of the disparity search range in pixels.
/// - `minDepth`: nearest depth that must be reachable within numDisparities;
///   0 or less keeps fx = fy and offsetX = 0.
/// - `maxDepth`: depth that maps to disparity 0 when minDepth > 0.
/// - `targetImageWidth`: width of the target images; 0 keeps the left width.
/// - `T_ol2ref`, `desiredDirection`: a direction (in the frame T_ol2ref maps
///   into) towards which the target optical axis leans by a rotation about the
///   baseline; (0,0,0) disables that step.
///
/// Outputs: `targetCalibration` holds the target cameras "left" (identity
/// pose) and "right" (at (-baseline, 0, 0)), both distortion-free;
/// `R_tl2ol` maps target-left directions into input-left ones; `depthParams`
/// turns target disparities into depth. Problems are reported through the log
/// and the computation goes on; a zero baseline aborts in the normalisation.
template <typename FloatType>
AR_EXPORT void makeTargetCalibration(const FullStereoCameraCalibration<FloatType>& calibration,
                                     const uint32_t numDisparities, const FloatType minDepth,
                                     const FloatType maxDepth, const uint32_t targetImageWidth,
                                     const AR::Math::SE3<FloatType>& T_ol2ref,
                                     const AR::Math::Vector<FloatType, 3>& desiredDirection,
                                     FullStereoCameraCalibration<FloatType>& targetCalibration,
                                     AR::Math::SO3<FloatType>& R_tl2ol,
                                     DepthParams<FloatType>& depthParams);

namespace Internal {

/// makeTargetCalibration for a caller that must not abort: before each step
/// that would reach a fatal assertion (the normalisations of the baseline
/// and of the rotation axis) the same value is tested, and the computation
/// stops there, returns false and sets `refusal` to a sentence fragment
/// saying why (the outputs are then incomplete). Otherwise it is
/// makeTargetCalibration exactly and returns true. The leaning step is not
/// covered: a non-zero `desiredDirection` is refused.
template <typename FloatType>
AR_EXPORT bool tryMakeTargetCalibration(const FullStereoCameraCalibration<FloatType>& calibration,
                                        const uint32_t numDisparities, const FloatType minDepth,
                                        const FloatType maxDepth, const uint32_t targetImageWidth,
                                        const AR::Math::SE3<FloatType>& T_ol2ref,
                                        const AR::Math::Vector<FloatType, 3>& desiredDirection,
                                        FullStereoCameraCalibration<FloatType>& targetCalibration,
                                        AR::Math::SO3<FloatType>& R_tl2ol, DepthParams<FloatType>& depthParams,
                                        const char*& refusal);

/// Focal scale and offset for a disparity range of `numDisparities` pixels
/// that spans [minDepth, maxDepth]: disparity 0 means maxDepth and disparity
/// numDisparities means minDepth. `baselineFocal` is the baseline times the
/// unscaled focal length. With minDepth <= 0 the result is (1, 0).
/// minDepth == maxDepth > 0 yields an infinite offset; minDepth > maxDepth is
/// reported and computed anyway.
template <typename SFType>
AR_EXPORT TargetIntrinsicsParams<SFType> setupTargetIntrinsics(uint32_t numDisparities, SFType minDepth,
                                                               SFType maxDepth, SFType baselineFocal);

/// The optional leaning step of makeTargetCalibration: rotates the target pair
/// about its baseline (R_tl2ol = R_tl2ol * E) so that its optical axis comes
/// closer to `desiredDirection` (given in the frame of T_ol2ref), and moves
/// the principal point of both target cameras to where the old optical axis
/// lands. `targetModels` are the two target camera models before the step.
template <typename FloatType>
AR_EXPORT void leanTowardsDirection(const AR::Math::SE3<FloatType>& T_ol2ref,
                                    const AR::Math::Vector<FloatType, 3>& desiredDirection,
                                    const CamModel::CameraModel<FloatType> (&targetModels)[2],
                                    FullStereoCameraCalibration<FloatType>& targetCalibration,
                                    AR::Math::SO3<FloatType>& R_tl2ol);

}  // namespace Internal
}  // namespace CV
}  // namespace AR
