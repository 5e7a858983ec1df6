#include "RectifyMap.h"

#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"
#include "EntryPointRules.h"
#include "SourceProjection.h"

namespace VIO {

namespace {

constexpr const char* kSource = "VIO/src/StereoRectify";
constexpr const char* kFunction =
    "void VIO::setupRectifyMap(const VIO::FullCamera &, bool, const VIO::FullCamera &, const VIO::SO3Pose &, "
    "AR::Common::ArrayView<AR::CV::ImageFloat> &)";

/// An image size held in floats as int, (0, 0) when it cannot be represented.
AR::Math::Vec2I truncatedSize(const AR::Math::Vec2F& size) {
  int32_t width = 0, height = 0;
  if (!tryTruncateToInt32(size(0), width) || !tryTruncateToInt32(size(1), height)) return AR::Math::Vec2I(0, 0);
  return AR::Math::Vec2I(width, height);
}

}  // namespace

void setupRectifyMap(const AR::CV::FullCamera<float>& source, bool allowOutOfImage,
                     const AR::CV::FullCamera<float>& target, const AR::Math::SO3<float>& rectification,
                     AR::Common::ArrayView<AR::CV::Image<float>>& mapXY) {
  using AR::Math::Vec2F;
  using AR::Math::Vec3F;

  // Rectified ray -> reference frame -> source camera, folded once.
  AR::Math::Matrix33F M = source.getCamReferenceToLocal().rotation().matrix() * rectification.matrix();
  AR::Math::enforceRotation(M);

  // getIntrinsics reports a camera that is not initialised (no id or no
  // valid intrinsics).
  const AR::CV::Camera<float>& sourceCamera = source.getIntrinsics();
  const AR::CV::Camera<float>& targetCamera = target.getIntrinsics();

  const AR::Math::Vec2I size = truncatedSize(targetCamera.getSize());
  if (!(mapXY.size() == 2)) AR::Common::logError("mapXY.size() == 2", kSource, kFunction, 25);
  if (!(mapXY[0].size() == size)) AR::Common::logError("mapXY[0].size() == size", kSource, kFunction, 26);
  if (!(mapXY[1].size() == size)) AR::Common::logError("mapXY[1].size() == size", kSource, kFunction, 27);

  for (AR::CV::Image<float>& image : mapXY) image.clear(-1.0f);

  const SourceProjection project(sourceCamera, allowOutOfImage);

  AR::CV::Image<float>& mapX = mapXY[0];
  AR::CV::Image<float>& mapY = mapXY[1];

  Vec2F ideal;
  bool haveIdeal = false;
  for (int y = 0; y < size(1); ++y) {
    for (int x = 0; x < size(0); ++x) {
      Vec2F candidate;
      if (targetCamera.tryPixel2ideal(Vec2F(float(x), float(y)), candidate)) {
        ideal = candidate;
        haveIdeal = true;
      } else {
        // Not a skip: the neighbouring ideal point is the best estimate.
        AR::Common::logError("success", kSource, kFunction, 40);
      }
      if (!haveIdeal) continue;

      const Vec3F d = M * Vec3F(ideal(0), ideal(1), 1.0f);
      // Rays at grazing angles or behind the camera have no useful source.
      if (d(2) < 0.01f) continue;
      const float invZ = 1.0f / d(2);
      const float X = d(0) * invZ;
      const float Y = d(1) * invZ;

      float sx, sy;
      if (!project.tryProject(X, Y, sx, sy)) continue;
      mapX.at(x, y) = sx;
      mapY.at(x, y) = sy;
    }
  }
}

}  // namespace VIO
