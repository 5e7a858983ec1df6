#include "EntryPointRules.h"

#include <cmath>
#include <cstdint>

#include "MapBuffers.h"

namespace VIO {

bool tryTruncateToInt32(float value, int32_t& out) {
  out = 0;
  // -2^31 and 2^31 are exact floats. A float in (-2^31 - 1, 2^31) truncates
  // into range; no float lies strictly between -2^31 - 1 and -2^31, so the
  // lower bound is simply -2^31. NaN fails both comparisons.
  if (!(value >= -2147483648.0f && value < 2147483648.0f)) return false;
  out = int32_t(value);
  return true;
}

bool tryTruncateToUint32(float value, uint32_t& out) {
  out = 0;
  // Truncation toward zero brings (-1, 0) to 0, which is defined.
  if (!(value > -1.0f && value < 4294967296.0f)) return false;
  out = value < 0.0f ? 0u : uint32_t(value);
  return true;
}

MapExtent mapExtentOf(float width, float height) {
  MapExtent extent;
  int32_t w = 0;
  int32_t h = 0;
  uint32_t product = 0;
  if (!tryTruncateToInt32(width, w) || !tryTruncateToInt32(height, h) || w < 0 || h < 0 ||
      !tryTruncateToUint32(width * height, product))
    return extent;
  const uint64_t exact = uint64_t(w) * uint64_t(h);
  // Every map image has a row stride of width × 4 bytes in uint32, and a map
  // is received in buffers counted in uint32.
  if (exact > UINT32_MAX || uint64_t(w) * sizeof(float) > UINT32_MAX) return extent;
  extent.size = AR::Math::Vec2I(w, h);
  extent.numFloats = size_t(exact);
  extent.mapBufferSize = product;
  extent.valid = true;
  return extent;
}

MapExtent mapExtentOf(const AR::Math::Vector<float, 2>& size) { return mapExtentOf(size(0), size(1)); }

CallerMapPair::CallerMapPair(const MapExtent& extent, float* bufferX, uint32_t bufferXSize,
                             float* bufferY, uint32_t bufferYSize)
    : mView(mImages.data(), mImages.size()) {
  mTargets[0] = Target{bufferX, bufferXSize, false};
  mTargets[1] = Target{bufferY, bufferYSize, false};
  const uint32_t stride = uint32_t(size_t(extent.size(0)) * sizeof(float));
  for (size_t i = 0; i < 2; ++i) {
    Target& target = mTargets[i];
    target.direct = target.buffer != nullptr && size_t(target.bufferSize) >= extent.numFloats;
    if (target.direct) {
      mImages[i].setPixels(target.buffer, extent.size, stride,
                           AR::Common::OS::getAlignment(target.buffer));
    } else {
      mImages[i].allocPixels(extent.size, AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);
    }
  }
}

void CallerMapPair::finish() {
  for (size_t i = 0; i < 2; ++i) {
    const Target& target = mTargets[i];
    if (!target.direct && target.buffer != nullptr)
      copyImagePrefixToArray(mImages[i], target.buffer, target.bufferSize);
  }
}

}  // namespace VIO
