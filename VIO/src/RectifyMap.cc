#include "RectifyMap.h"

#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"
#include "EntryPointRules.h"
#include "MapRows.h"
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
  setupRectifyMap(source, allowOutOfImage, target, rectification, mapXY, MapKernel::Vector);
}

void setupRectifyMap(const AR::CV::FullCamera<float>& source, bool allowOutOfImage,
                     const AR::CV::FullCamera<float>& target, const AR::Math::SO3<float>& rectification,
                     AR::Common::ArrayView<AR::CV::Image<float>>& mapXY, MapKernel kernel) {
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

  AR::CV::Image<float>& mapX = mapXY[0];
  AR::CV::Image<float>& mapY = mapXY[1];

  const SourceProjection project(sourceCamera, allowOutOfImage);
  VectorPlan plan(targetCamera, sourceCamera, allowOutOfImage, kernel);
  plan.pipeline().ray = RayKind::Rotated;
  plan.pipeline().M = M;

  // A pixel that cannot be made ideal is not a skip: the ideal point of the
  // pixel before (along the rows) is the best estimate; before the first
  // success there is none.
  const auto scalarPixel = [&](int x, int y, PixelResult& result, IdealCarry& carry) {
    Vec2F candidate;
    if (targetCamera.tryPixel2ideal(Vec2F(float(x), float(y)), candidate)) {
      carry.have = true;
      carry.u = candidate(0);
      carry.v = candidate(1);
    } else {
      AR::Common::logError("success", kSource, kFunction, 40);
    }
    if (!carry.have) return;
    const Vec3F d = M * Vec3F(carry.u, carry.v, 1.0f);
    // Rays at grazing angles or behind the camera have no useful source.
    if (d(2) < 0.01f) return;
    const float invZ = 1.0f / d(2);
    result.valid = project.tryProject(d(0) * invZ, d(1) * invZ, result.sx, result.sy);
  };
  // The whole target is walked: writes outside a map image of the wrong size
  // are reported by the image, pixel by pixel.
  fillMapRows(plan.active(), size, mapX, mapY, nullptr, true, scalarPixel);
  clearExtraImages(mapXY);
}

}  // namespace VIO
