#pragma once

#include <cstddef>
#include <cstdint>

#include "AR/CV/Image/Image.h"
#include "AR/Common/ArrayView.h"
#include "AR/Common/Macros.h"

namespace VIO {

/// Copies a map pair (X image first, Y image second) into two plain float
/// arrays, each packed row by row without stride gaps.
///
/// Logs at DEBUG both images' pixel counts and both sizes, and reports through
/// `logError` a view that does not hold exactly two images and an output
/// size that differs from its image's pixel count. It then copies what is
/// safe: at most `mapXOut_size` floats into `mapXOut` and at most
/// `mapYOut_size` into `mapYOut` (a larger array keeps its tail, a smaller one
/// receives the first floats of the map), nothing into a null array and
/// nothing for an image that the view does not have (the view reports each
/// access to a missing image).
AR_EXPORT void copyMapToArrays(const AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                               float* mapXOut, uint32_t mapXOut_size, float* mapYOut,
                               uint32_t mapYOut_size);

/// Copies every pixel of `image` into `out`, packed: pixel (x, y) goes to
/// out[x + width × y]. `out` must hold `image.numPixels()` floats; nothing is
/// written when it is null.
AR_EXPORT void copyImageToArray(const AR::CV::Image<float>& image, float* out);

/// Copies the first `count` floats of `image`'s packed row-major pixels into
/// `out`, never more than the image holds. Returns the number of floats
/// written (0 for a null `out`).
AR_EXPORT size_t copyImagePrefixToArray(const AR::CV::Image<float>& image, float* out,
                                        size_t count);

}  // namespace VIO
