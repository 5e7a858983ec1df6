#include "UndistortMap.h"

#include "AR/Common/Logger.h"
#include "CameraModel/CameraModel.h"
#include "EntryPointRules.h"
#include "MapRows.h"
#include "SourceProjection.h"

namespace VIO {

namespace {

constexpr char kSource[] = "VIO/src/StereoRectify";
constexpr char kFunction[] =
    "void VIO::setupUndistortMap(const VIO::IntrinsicCamera &, bool, float, "
    "AR::Common::ArrayView<AR::CV::ImageFloat> &)";

using Vec2F = AR::Math::Vector<float, 2>;

/// The distortion-free camera whose image the map produces: same size and
/// principal point, focal length `fovFactor` times the corrected one.
CamModel::CameraModel<float> virtualCameraModel(const AR::CV::Camera<float>& camera,
                                                const AR::Math::Vec2I& size, float fovFactor) {
  CamModel::CameraModel<float> model;
  model.size = Vec2F(float(size(0)), float(size(1)));
  model.principalPoint = camera.getPrincipalPoint();
  model.focalLength = camera.getCorrectedFocalLengthVec() * fovFactor;
  model.radialDistortionCoeffs = AR::Math::Vector<float, 6>();
  model.tangentialDistortionCoeffs = Vec2F();
  model.model = LINEAR;
  // Full range before narrowing; a model without distortion keeps it.
  model.maxValidDistortionRSq = 81.0f;
  model.maxValidUndistortionRSq = 81.0f;
  model.setupValidDistortionRange();
  return model;
}

}  // namespace

void setupUndistortMap(const AR::CV::Camera<float>& camera, bool allowOutOfImage, float fovFactor,
                       AR::Common::ArrayView<AR::CV::Image<float>>& mapXY) {
  setupUndistortMap(camera, allowOutOfImage, fovFactor, mapXY, MapKernel::Vector);
}

void setupUndistortMap(const AR::CV::Camera<float>& camera, bool allowOutOfImage, float fovFactor,
                       AR::Common::ArrayView<AR::CV::Image<float>>& mapXY, MapKernel kernel) {
  const AR::Math::Vec2I size = mapExtentOf(camera.getSize()).size;

  AR::CV::Camera<float> virtualCamera;
  const bool success = virtualCamera.init(virtualCameraModel(camera, size, fovFactor));
  if (!success) AR::Common::logError("success", kSource, kFunction, 64);

  // A missing image is reported by the view itself and read as an empty one.
  if (!(mapXY.size() == 2)) AR::Common::logError("mapXY.size() == 2", kSource, kFunction, 65);
  if (!(mapXY[0].size() == size)) AR::Common::logError("mapXY[0].size() == size", kSource, kFunction, 66);
  if (!(mapXY[1].size() == size)) AR::Common::logError("mapXY[1].size() == size", kSource, kFunction, 67);

  // Without a pair there is nowhere to write; without a virtual camera no
  // pixel has a ray.
  if (!success || mapXY.size() < 2) {
    for (AR::CV::Image<float>& image : mapXY) image.clear(-1.0f);
    return;
  }

  AR::CV::Image<float>& mapX = mapXY[0];
  AR::CV::Image<float>& mapY = mapXY[1];
  const AR::Math::Vec2I walk = walkWithinMap(size, mapX, mapY);
  reportLeftOut(kSource, kFunction, __LINE__, "setupUndistortMap", size, walk);

  const SourceProjection project(camera, allowOutOfImage);
  VectorPlan plan(virtualCamera, camera, allowOutOfImage, kernel);
  plan.pipeline().ray = RayKind::Ideal;
  const auto scalarPixel = [&](int x, int y, PixelResult& result, IdealCarry&) {
    Vec2F ideal;
    if (!virtualCamera.tryPixel2ideal(Vec2F(float(x), float(y)), ideal)) return;
    result.valid = project.tryProject(ideal(0), ideal(1), result.sx, result.sy);
  };
  fillMapRows(plan.active(), walk, mapX, mapY, nullptr, false, scalarPixel);
  clearExtraImages(mapXY);
}

}  // namespace VIO
