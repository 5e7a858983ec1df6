#include "VSTMap.h"

#include "AR/Common/Logger.h"
#include "EntryPointRules.h"
#include "MapRows.h"
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

// Lines of the messages this builder has always logged.
constexpr int kLineTargetSize = 44;
constexpr int kLineViewCount = 49;
constexpr int kLineViewX = 53;
constexpr int kLineViewY = 55;
constexpr int kLineUnproject = 86;

}  // namespace

namespace {

void buildVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                 bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                 std::array<AR::CV::Image<float>, 3>* points, float planeDepth, MapKernel kernel) {
  auto& logger = AR::Common::Logger::getInstance();
  if (logger.getLevel() >= AR::Common::Logger::LEVEL_DEBUG)
    logger.logEx2(AR::Common::Logger::LEVEL_DEBUG, kSource, kFunction, kLineTargetSize,
                  "setupVSTMap::targetSize%s", AR::Math::to_string(target.getSize()).c_str());

  // An eye size that is not a valid image size gives an empty map.
  const AR::Math::Vec2I size = mapExtentOf(target.getSize()).size;
  if (!(mapXY.size() == 2)) AR::Common::logError("mapXY.size() == 2", kSource, kFunction, kLineViewCount);
  AR::CV::Image<float> noImage;
  AR::CV::Image<float>& mapX = mapXY.size() > 0 ? mapXY[0] : noImage;
  AR::CV::Image<float>& mapY = mapXY.size() > 1 ? mapXY[1] : noImage;
  if (!(mapXY.size() > 0 && mapX.size() == size))
    AR::Common::logError("mapXY[0].size() == size", kSource, kFunction, kLineViewX);
  if (!(mapXY.size() > 1 && mapY.size() == size))
    AR::Common::logError("mapXY[1].size() == size", kSource, kFunction, kLineViewY);

  // Only the eye pixels that can land in the maps are walked, and the plane
  // points are kept for those: a display far larger than the map costs no
  // more than the map. A scratch image that cannot be allocated stays empty
  // and is skipped.
  const AR::Math::Vec2I walk = walkWithinMap(size, mapX, mapY);
  reportLeftOut(kSource, kFunction, __LINE__, "setupVSTMap", size, walk);
  if (points != nullptr)
    for (AR::CV::Image<float>& image : *points)
      image.allocPixels(walk, AR::Common::MEMORY_ALIGNMENT_DEFAULT, false);

  const AR::Math::Matrix33F& R = eyeTransform.rotation().matrix();
  const Vec3F& t = eyeTransform.translation();
  const SourceProjection project(source, allowOutOfImage);
  VectorPlan plan(target, source, allowOutOfImage, kernel);
  plan.pipeline().ray = RayKind::Plane;
  plan.pipeline().M = R;
  plan.pipeline().t = t;
  plan.pipeline().depth = planeDepth;
  // The unprojection reports a depth that is not positive for every pixel;
  // the scalar path keeps those messages in place.
  if (!(planeDepth > 0)) plan.disable();

  const auto scalarPixel = [&](int x, int y, PixelResult& result, IdealCarry&) {
    Vec3F P;
    if (!target.tryUnprojectFromPix(Vec2F(float(x), float(y)), P, planeDepth)) {
      AR::Common::logError("success", kSource, kFunction, kLineUnproject);
      return;
    }
    result.point = true;
    for (int i = 0; i < 3; ++i) result.P[i] = P(i);
    const Vec3F Q = R * P + t;
    // Written so that a NaN depth (from a NaN plane depth) is skipped too.
    if (!(Q(2) >= kMinDepth)) return;
    const float invZ = 1.0f / Q(2);
    result.valid = project.tryProject(Q(0) * invZ, Q(1) * invZ, result.sx, result.sy);
  };
  fillMapRows(plan.active(), walk, mapX, mapY, points, false, scalarPixel);
  clearExtraImages(mapXY);
}

}  // namespace

void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                 bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                 std::array<AR::CV::Image<float>, 3>& points, float planeDepth) {
  buildVSTMap(source, target, allowOutOfImage, eyeTransform, mapXY, &points, planeDepth, MapKernel::Vector);
}

void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                 bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY,
                 std::array<AR::CV::Image<float>, 3>& points, float planeDepth, MapKernel kernel) {
  buildVSTMap(source, target, allowOutOfImage, eyeTransform, mapXY, &points, planeDepth, kernel);
}

void setupVSTMap(const AR::CV::Camera<float>& source, const AR::CV::Camera<float>& target,
                 bool allowOutOfImage, const AR::Math::SE3<float>& eyeTransform,
                 AR::Common::ArrayView<AR::CV::Image<float>>& mapXY, float planeDepth) {
  buildVSTMap(source, target, allowOutOfImage, eyeTransform, mapXY, nullptr, planeDepth, MapKernel::Vector);
}

}  // namespace VIO
