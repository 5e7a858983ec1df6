#pragma once

#include "AR/CV/Camera/FullCamera.h"
#include "AR/CV/Image/Image.h"
#include "AR/Common/ArrayView.h"
#include "AR/Common/Macros.h"
#include "AR/Math/SO3.h"
#include "MapKernel.h"

namespace VIO {

/// Fills the stereo-rectification map of one camera: for every pixel (x, y)
/// of the rectified `target` image (integer positions, no half-pixel offset),
/// mapXY[0] and mapXY[1] receive the position in the distorted image of
/// `source` where that pixel's viewing ray lands.
///
/// `rectification` (S) takes directions of the rectified frame into the rig's
/// reference frame; together with the source's reference-to-local rotation
/// R_c it is folded once into M = R_c * S. Distortion goes through the source
/// camera's spline, not the polynomial model.
///
/// An entry is -1.0 for rays that point less
/// than 0.01 forward, leave the source's valid distortion range or, unless
/// `allowOutOfImage`, land outside the source image. When a target pixel
/// cannot be made ideal the failure is logged and the ideal point of the
/// previous pixel is used again; before the first success such pixels keep
/// -1.0. `mapXY` must hold exactly two images of the target's size; a
/// mismatch is logged and element access stays checked.
AR_EXPORT void setupRectifyMap(const AR::CV::FullCamera<float>& source, bool allowOutOfImage,
                               const AR::CV::FullCamera<float>& target,
                               const AR::Math::SO3<float>& rectification,
                               AR::Common::ArrayView<AR::CV::Image<float>>& mapXY);

/// The same with a chosen implementation; both give the same maps bit for
/// bit and log the same messages.
AR_EXPORT void setupRectifyMap(const AR::CV::FullCamera<float>& source, bool allowOutOfImage,
                               const AR::CV::FullCamera<float>& target,
                               const AR::Math::SO3<float>& rectification,
                               AR::Common::ArrayView<AR::CV::Image<float>>& mapXY, MapKernel kernel);

}  // namespace VIO
