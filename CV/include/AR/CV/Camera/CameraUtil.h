#pragma once

#include <string>

#include "AR/CV/Camera/Camera.h"
#include "AR/Common/Macros.h"
#include "AR/Math/Vector.h"
#include "CameraModel/DistortionModel.h"

namespace AR {
namespace Math {

/// Axis-aligned rectangle held as its minimum corner (x, y) and its maximum
/// corner (x, y), in that order.
template <typename T>
struct Rectangle {
  Vector<T, 2> minCorner;
  Vector<T, 2> maxCorner;
};

}  // namespace Math

namespace CV {

/// Looks `name` up among the model names ("LINEAR", "RADIAL_2_PARAMETERS",
/// ...; exact, case-sensitive, whole string) and stores the matching model.
/// Otherwise logs "Radial distortion model <name> not supported (use
/// UPPERCASE)." at error level, leaves `model` untouched and returns false.
AR_EXPORT bool radialDistortionModelStringToEnum(const std::string& name, DistortionModel& model);

/// Rectangle in the ideal (undistorted, normalised) plane spanned by the
/// camera's valid pixels, estimated from at most 17 samples: the corners
/// (0, 0), (w, h), (0, h - 1), (w - 1, 0), the edge midpoints (w/2, 0),
/// (w/2, h - 1), (w - 1, h/2), the centre (w/2, h/2), and the points of the
/// valid undistortion circle at multiples of 45 degrees that lie inside the
/// image. The (w, h) corner lies one pixel beyond the image and the left edge
/// midpoint is not sampled; this matches the client code the function serves.
/// Samples that do not undistort are skipped. Failures (no sample
/// undistorted, a degenerate rectangle) are logged as errors and reported as
/// contract breaches; the extremes then stay at +-FLT_MAX.
AR_EXPORT AR::Math::Rectangle<float> computeCamCoordApproxBoundaries(
    const AR::CV::Camera<float>& camera);

/// The same rectangle from every `step`-th pixel of every `step`-th row
/// (exact up to the sampling step). A `step` of 0 is reported and taken as 1.
/// Logs the result at debug level.
AR_EXPORT AR::Math::Rectangle<float> computeCamCoordBoundaries(const AR::CV::Camera<float>& camera,
                                                               unsigned int step);

}  // namespace CV
}  // namespace AR
