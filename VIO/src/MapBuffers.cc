#include "MapBuffers.h"

#include <algorithm>

#include "AR/Common/Logger.h"

namespace VIO {

namespace {
constexpr char kSource[] = "VIO/src/StereoRectify";
constexpr char kCopyMapFunction[] =
    "void VIO::copyMapToArrays(const AR::Common::ArrayView<AR::CV::Image<float> >&, float*, "
    "uint32_t, float*, uint32_t)";
}  // namespace

size_t copyImagePrefixToArray(const AR::CV::Image<float>& image, float* out, size_t count) {
  if (out == nullptr) return 0;
  const size_t width = size_t(image.width());
  count = std::min(count, image.numPixels());
  size_t written = 0;
  for (int y = 0; written < count; ++y) {
    // Whole rows are contiguous in the image; only the last may be partial.
    const size_t n = std::min(width, count - written);
    const float* row = image.pixels(0, y);
    std::copy(row, row + n, out + written);
    written += n;
  }
  return written;
}

void copyImageToArray(const AR::CV::Image<float>& image, float* out) {
  copyImagePrefixToArray(image, out, image.numPixels());
}

void copyMapToArrays(const AR::Common::ArrayView<AR::CV::Image<float>>& mapXY, float* mapXOut,
                     uint32_t mapXOut_size, float* mapYOut, uint32_t mapYOut_size) {
  // A view without two images answers the missing index with an empty image
  // (and reports it itself), so every step below stays defined.
  auto& logger = AR::Common::Logger::getInstance();
  if (logger.getLevel() >= AR::Common::Logger::LEVEL_DEBUG)
    logger.logEx2(AR::Common::Logger::LEVEL_DEBUG, kSource, kCopyMapFunction, 142,
                  "mapXY[0]: %zu, mapXY[1]: %zu, mapXOut_size=%u, mapYOut_size=%u",
                  mapXY[0].numPixels(), mapXY[1].numPixels(), mapXOut_size, mapYOut_size);
  if (!(mapXY.size() == 2)) AR::Common::logError("mapXY.size() == 2", kSource, kCopyMapFunction, 143);
  if (!(mapXY[0].numPixels() == mapXOut_size))
    AR::Common::logError("mapXY[0].numPixels() == mapXOut_size", kSource, kCopyMapFunction, 144);
  if (!(mapXY[1].numPixels() == mapYOut_size))
    AR::Common::logError("mapXY[1].numPixels() == mapYOut_size", kSource, kCopyMapFunction, 145);
  copyImagePrefixToArray(mapXY[0], mapXOut, mapXOut_size);
  copyImagePrefixToArray(mapXY[1], mapYOut, mapYOut_size);
}

}  // namespace VIO
