#include "VSTMap.h"

#include "AR/Common/Logger.h"
#include "EntryPointRules.h"
#include "SourceProjection.h"

namespace VIO {

namespace {

constexpr char kSource[] = "VIO/src/StereoRectify";
constexpr char kFunction[] =
    "void VIO::setupVSTMap(const AR::CV::Camera<VIO::SFType> &, const AR::CV::Camera<VIO::SFType> &, "
    "bool, const AR::Math::SE3<VIO::SFType> &, AR::Common::ArrayView<AR::CV::ImageFloat> &, "
    "std::array<AR::CV::ImageFloat, 3> &, float)";

using Vec2F = AR::Math::Vector<float, 2>;
using Vec3F = AR::Math::Vector<float, 3>;

// Points closer than this in front of the tracking camera do not project:
// the same bound as every other projection of the library.
constexpr float kMinDepth = 0.01f;

/// Row y of an image as a plain pointer, or null when the image has no such
/// row. Writes through it stay below image.width().
float* rowOf(AR::CV::Image<float>* image, int y) {
  if (image == nullptr || image->empty() || y >= image->height()) return nullptr;
  return image->data() + size_t(image->stride() / sizeof(float)) * size_t(y);
}

/// Writes `value` at column x of a row obtained from rowOf.
inline void writeAt(float* row, const AR::CV::Image<float>* image, int x, float value) {
  if (row != nullptr && x < image->width()) row[x] = value;
}

}  // namespace

void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                 bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                 std::array<AR::CV::Image<float>, 3>& points, float planeDepth) {
  auto& logger = AR::Common::Logger::getInstance();
  if (logger.getLevel() >= AR::Common::Logger::LEVEL_DEBUG)
    logger.logEx2(AR::Common::Logger::LEVEL_DEBUG, kSource, kFunction, __LINE__,
                  "setupVSTMap::targetSize%s", AR::Math::to_string(target.getSize()).c_str());

  // An eye size that is not a valid image size gives an empty map.
  const AR::Math::Vec2I size = mapExtentOf(target.getSize()).size;
  if (!(mapXY.size() == 2)) AR::Common::logError("mapXY.size() == 2", kSource, kFunction, __LINE__);
  AR::CV::Image<float>* mapX = mapXY.size() > 0 ? &mapXY[0] : nullptr;
  AR::CV::Image<float>* mapY = mapXY.size() > 1 ? &mapXY[1] : nullptr;
  if (!(mapX != nullptr && mapX->size() == size))
    AR::Common::logError("mapXY[0].size() == size", kSource, kFunction, __LINE__);
  if (!(mapY != nullptr && mapY->size() == size))
    AR::Common::logError("mapXY[1].size() == size", kSource, kFunction, __LINE__);

  for (AR::CV::Image<float>& image : mapXY) image.clear(-1.0f);
  // A scratch image that cannot be allocated stays empty and is skipped.
  for (AR::CV::Image<float>& image : points) {
    image.allocPixels(size, AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);
    image.clear(-1.0f);
  }

  // A camera whose set-up failed has no splines to look up: reported once
  // here rather than once per pixel, and every entry keeps -1.0.
  const bool sourceReady = source.getDistortionSpline().isInit();
  const bool targetReady = target.getUndistortionSpline().isInit();
  if (!sourceReady)
    AR::Common::logError("source.getDistortionSpline().isInit()", kSource, kFunction, __LINE__);
  if (!targetReady)
    AR::Common::logError("target.getUndistortionSpline().isInit()", kSource, kFunction, __LINE__);
  if (!sourceReady || !targetReady) return;

  const AR::Math::Matrix33F& R = eyeTransform.rotation().matrix();
  const Vec3F& t = eyeTransform.translation();
  const SourceProjection project(source, allowOutOfImage);

  for (int y = 0; y < size(1); ++y) {
    float* rowX = rowOf(mapX, y);
    float* rowY = rowOf(mapY, y);
    float* rowP[3] = {rowOf(&points[0], y), rowOf(&points[1], y), rowOf(&points[2], y)};
    for (int x = 0; x < size(0); ++x) {
      Vec3F P;
      const bool success = target.tryUnprojectFromPix(Vec2F(float(x), float(y)), P, planeDepth);
      if (!success) {
        AR::Common::logError("success", kSource, kFunction, __LINE__);
        continue;
      }
      for (int i = 0; i < 3; ++i) writeAt(rowP[i], &points[size_t(i)], x, P(i));

      const Vec3F Q = R * P + t;
      // Written so that a NaN depth (from a NaN plane depth) is skipped too.
      if (!(Q(2) >= kMinDepth)) continue;
      const float invZ = 1.0f / Q(2);
      const float X = Q(0) * invZ;
      const float Y = Q(1) * invZ;
      float sx, sy;
      if (!project.tryProject(X, Y, sx, sy)) continue;
      writeAt(rowX, mapX, x, sx);
      writeAt(rowY, mapY, x, sy);
    }
  }
}

}  // namespace VIO
