#pragma once

// Memory-safety rules that the three exported entry points share.
//
// Every entry point logs each failed argument check and goes on. Going on must
// never mean undefined behaviour, so the entry points route every size
// conversion and every write into a caller's buffer through this header:
//
//  * Sizes arrive as floats (camera and display sizes) and become integers
//    only through `tryTruncateToInt32` / `tryTruncateToUint32` /
//    `mapExtentOf`, which refuse NaN, infinities, negative and too-large
//    values instead of performing a conversion that C++ leaves undefined. A
//    size that cannot be represented yields an empty map.
//  * Maps are built into `CallerMapPair`, which writes nothing outside
//    [buffer, buffer + bufferSize) of each caller buffer, writes nothing
//    through a null buffer, and still lets the map builder run on a complete
//    map of the right size, so the maps that do reach the caller are exactly
//    those a correctly sized call produces.
//
// Nothing here keeps state between calls: calls from several threads at once
// give the maps that serial calls give.

#include <array>
#include <cstddef>
#include <cstdint>

#include "AR/CV/Image/Image.h"
#include "AR/Common/ArrayView.h"
#include "AR/Math/Vector.h"

namespace VIO {

/// The condition text that every entry point logs when a map buffer's size
/// argument differs from the map's size.
inline constexpr char MAP_SIZE_CONDITION[] =
    "mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && "
    "mapRightX_size==map_buffer_size && mapRightY_size==map_buffer_size";

/// Truncates `value` toward zero into `out`, as a cast would, but only when
/// the result is defined: false (and `out` = 0) for NaN, an infinity, or a
/// value whose truncation lies outside [INT32_MIN, INT32_MAX].
bool tryTruncateToInt32(float value, int32_t& out);

/// The same for uint32_t: false (and `out` = 0) for NaN, an infinity, a
/// value of -1 or less, or a value of 2^32 or more. Values in (-1, 0)
/// truncate to 0, which is defined.
bool tryTruncateToUint32(float value, uint32_t& out);

/// How large a map is, derived once from an image size given in floats.
struct MapExtent {
  /// Width and height truncated toward zero: the size of every map image and
  /// the size that the map builders compare their images with. (0, 0) when
  /// the size is not valid.
  AR::Math::Vec2I size;
  /// Floats in the map, width × height computed exactly: the bound of every
  /// write. 0 when the size is not valid.
  size_t numFloats = 0;
  /// `map_buffer_size` of the entry points' size check: width × height as a
  /// float product, truncated to unsigned. Above 2^24 it may differ from
  /// `numFloats` by float rounding; it is used for the logged comparison
  /// only, never to bound a write. 0 when the size is not valid.
  uint32_t mapBufferSize = 0;
  /// False when the width, the height or the product is negative, NaN,
  /// infinite or too large: for int32 (width, height), for uint32 (the map
  /// size, exact or as float product), or for a row stride of width × 4
  /// bytes in uint32. The map is then empty.
  bool valid = false;
};

/// Extent of a map of an image of `width` × `height` pixels (sizes as the
/// camera and display models hold them, in float).
MapExtent mapExtentOf(float width, float height);
/// The same for a size vector (width, height).
MapExtent mapExtentOf(const AR::Math::Vector<float, 2>& size);

/// The X and Y images of one camera's map, placed over the caller's two
/// buffers where that is safe.
///
/// For each buffer:
///  * non-null and at least `extent.numFloats` floats: the image is laid
///    directly over the buffer (no copy, no allocation); the builder writes
///    the row-major map into its first `numFloats` floats and the rest of the
///    buffer is untouched;
///  * non-null but smaller: the builder writes into a scratch image of the
///    map's size and `finish()` copies the first `bufferSize` floats of the
///    row-major map into the buffer;
///  * null: the builder writes into a scratch image that is discarded.
///
/// So the builder always sees two images of exactly `extent.size`, and
/// nothing is ever written outside [buffer, buffer + bufferSize). A scratch
/// image whose allocation fails stays empty; the builder then reports the
/// size mismatch itself and nothing reaches that buffer.
///
/// Use: construct, pass `view()` to the map builder, call `finish()`.
class CallerMapPair {
 public:
  CallerMapPair(const MapExtent& extent, float* bufferX, uint32_t bufferXSize, float* bufferY,
                uint32_t bufferYSize);
  CallerMapPair(const CallerMapPair&) = delete;
  CallerMapPair& operator=(const CallerMapPair&) = delete;

  /// Exactly two images: X first, then Y.
  AR::Common::ArrayView<AR::CV::Image<float>>& view() { return mView; }

  /// Copies what a scratch image holds into a too-small buffer (its first
  /// `bufferSize` floats). Does nothing for buffers the map was built in
  /// directly and for null buffers. Call once, after the builder.
  void finish();

 private:
  struct Target {
    float* buffer = nullptr;
    uint32_t bufferSize = 0;
    bool direct = false;  // the image lies over the buffer itself
  };

  std::array<AR::CV::Image<float>, 2> mImages;
  std::array<Target, 2> mTargets;
  AR::Common::ArrayView<AR::CV::Image<float>> mView;
};

}  // namespace VIO
