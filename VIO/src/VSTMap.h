#pragma once

#include <array>

#include "AR/CV/Camera/Camera.h"
#include "AR/CV/Image/Image.h"
#include "AR/Common/ArrayView.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SE3.h"
#include "MapKernel.h"

namespace VIO {

/// Fills the fixed-plane video-see-through map of one display eye.
///
/// The scene is taken to be the plane at depth `planeDepth` in front of the
/// eye (perpendicular to its optical axis). For every pixel (x, y) of the
/// eye's image `target` (integer positions, no half-pixel offset) the ray
/// through it is cut with that plane; the point P, carried into the tracking
/// camera by `eyeTransform` (Q = R P + t), is projected through `source`'s
/// lens (distortion spline and tangential terms), and mapXY[0], mapXY[1]
/// receive the pixel (sx, sy) of the distorted tracking-camera image that
/// shows it.
///
/// An entry is -1.0 where the eye pixel cannot be unprojected (logged), where Q lies less than 0.01 in front of the tracking
/// camera, outside its valid distortion range or, unless `allowOutOfImage`,
/// outside [0, width) x [0, height) of its image.
///
/// `points` is scratch space: its three images are (re)allocated at the size
/// of the walked part of the eye image (below) and receive X, Y and Z of P at
/// each pixel, -1.0 where none was made.
///
/// `mapXY` should hold two images of the eye's size; a mismatch is logged and
/// only the pixels inside each image are written. Eye pixels beyond both map
/// images are not walked at all (the work and the scratch are bounded by the
/// map, not by the display); how many were left out is logged once at DEBUG.
/// A `planeDepth` that is not positive is reported by the unprojection for
/// every pixel. A tracking or eye camera that was not initialised (no fitted
/// splines) is reported by its spline lookups, pixel by pixel, and the
/// unprojection failures as "success"; such entries keep -1.0.
AR_EXPORT void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                           bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                           AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                           std::array<AR::CV::Image<float>, 3>& points, float planeDepth);

/// The same with a chosen implementation; both give the same maps and points
/// bit for bit and log the same messages.
AR_EXPORT void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                           bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                           AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                           std::array<AR::CV::Image<float>, 3>& points, float planeDepth,
                           MapKernel kernel);

/// The maps alone, for callers that have no use for the plane points: no
/// scratch images are allocated, the rest is as above.
AR_EXPORT void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                           bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                           AR::Common::ArrayView<AR::CV::Image<float>>& mapXY, float planeDepth);

}  // namespace VIO
