#pragma once

// Self-checks of a rectified stereo target and the midpoint triangulation they
// rest on. The checks only log: they never change a calibration and never stop
// the computation.

#include "AR/Common/Macros.h"
#include "AR/CV/Camera/StereoCamera.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace CV {

template <typename T>
struct DepthParams;

/// Optional by-product of a two-ray triangulation.
template <typename T>
struct TriangulationDetails {
  T angle = T(0);     ///< radians between the two ray directions
  T cosAngle = T(0);  ///< cosine of that angle
  T distance = T(0);  ///< length of the shortest segment between the rays
  AR::Math::Vector<T, 3> pointOnRay1;  ///< end of that segment on ray 1
  AR::Math::Vector<T, 3> pointOnRay2;  ///< end of that segment on ray 2
};

namespace MidPoint {

/// Midpoint of the shortest segment between the rays origin1 + s * direction1
/// and origin2 + t * direction2 (directions need not be unit vectors).
/// Returns false for parallel rays (the cross product of the directions is
/// exactly zero) and then writes neither `point` nor `details`. When `details`
/// is given it receives the segment's end points, its length and the angle
/// between the directions (0 when the rounded cosine leaves [-1, 1]); a zero
/// direction then aborts in the normalisation.
template <typename T>
AR_EXPORT bool twoPoints(const AR::Math::Vector<T, 3>& origin1, const AR::Math::Vector<T, 3>& direction1,
                         const AR::Math::Vector<T, 3>& origin2, const AR::Math::Vector<T, 3>& direction2,
                         AR::Math::Vector<T, 3>& point, TriangulationDetails<T>* details = nullptr);

}  // namespace MidPoint

namespace Internal {

/// Triangulates the image centre of the left target camera against the right
/// target pixels at disparities 0..127 and reports every row where
/// depth * (disparity + offsetX) differs from constant by 0.0001 or more. At
/// VERBOSE it logs a table of disparity and depth, with depth 1000 for a row
/// whose rays are parallel (not compared); rows whose pixels cannot be made
/// ideal are skipped silently.
template <typename T>
AR_EXPORT void checkMappingFactor(const AR::Math::Vector<T, 2>& imageSize,
                                  const FullStereoCameraCalibration<T>& targetCalibration,
                                  const DepthParams<T>& depthParams);

/// Projects the point one unit along the input left optical axis through the
/// input and the target cameras and reports when it lands on different rows of
/// the two target images (0.01 px or more) or when the rectifying rotation does
/// not carry it back to its input-left pixel (0.1 px or more).
template <typename T>
AR_EXPORT void validateStereoRectify(const FullStereoCameraCalibration<T>& calibration,
                                     const FullStereoCameraCalibration<T>& targetCalibration,
                                     const AR::Math::SO3<T>& R_tl2ol);

}  // namespace Internal
}  // namespace CV
}  // namespace AR
