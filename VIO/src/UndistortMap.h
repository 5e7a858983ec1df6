#pragma once

#include "AR/CV/Camera/Camera.h"
#include "AR/CV/Image/Image.h"
#include "AR/Common/ArrayView.h"
#include "AR/Common/Macros.h"
#include "MapKernel.h"

namespace VIO {

/// Fills the X and Y maps (`mapXY[0]`, `mapXY[1]`, each of the camera's
/// image size) that undo `camera`'s lens distortion.
///
/// The undistorted view is a virtual distortion-free camera of the same image
/// size and principal point whose focal length is `fovFactor` times the
/// camera's corrected focal length (the pixel scale near the principal
/// point): 1 keeps the scale at the centre, larger factors narrow the field
/// of view, smaller ones widen it. For every output pixel (x, y), taken at
/// integer positions, the map holds the position in the camera's distorted
/// image that sees the same ray, or -1.0 when there is none: the ray lies
/// outside the valid range of either camera, or, unless `allowOutOfImage`,
/// the position falls outside [0, width) × [0, height).
///
/// A view that does not hold two images of the camera's size is reported:
/// a pair of another size still receives the pixels that lie inside its
/// images, a view without a pair is only cleared. Only the camera pixels
/// that can land in the images are computed (the work is bounded by the
/// map, not by the camera); how many were left out is logged once at DEBUG. A virtual
/// camera that cannot be initialised (a non-positive or NaN focal length, a
/// camera without a valid image size) is reported and leaves every entry at
/// -1.0. Single precision throughout; the distortion goes through the
/// camera's spline.
AR_EXPORT void setupUndistortMap(const AR::CV::Camera<float>& camera, bool allowOutOfImage,
                                 float fovFactor,
                                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY);

/// The same with a chosen implementation; both give the same maps bit for
/// bit and log the same messages.
AR_EXPORT void setupUndistortMap(const AR::CV::Camera<float>& camera, bool allowOutOfImage,
                                 float fovFactor,
                                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                                 MapKernel kernel);

}  // namespace VIO
