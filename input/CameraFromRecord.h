#pragma once

#include <AR/CV/Camera/Camera.h>
#include <StereoRectifyWrapper.h>

namespace StereoMaps {

/// Builds the intrinsic camera of a camera record, in the precision asked for,
/// exactly as the library builds it from the same fields. False when the lens
/// model rejects the record (the model prints why on standard output).
template <typename PREC>
bool cameraFromRecord(const CameraCalibrationMRV& rec, AR::CV::Camera<PREC>& camera) {
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec6 = AR::Math::Vector<PREC, 6>;
  if (rec.distortionModel < 0 || rec.distortionModel > 5) return false;
  return camera.init(Vec2(PREC(rec.width), PREC(rec.height)), Vec2(PREC(rec.fx), PREC(rec.fy)),
                     Vec2(PREC(rec.cx), PREC(rec.cy)),
                     Vec6(PREC(rec.k[0]), PREC(rec.k[1]), PREC(rec.k[2]), PREC(rec.k[3]), PREC(rec.k[4]),
                          PREC(rec.k[5])),
                     Vec2(PREC(rec.p[0]), PREC(rec.p[1])), static_cast<DistortionModel>(rec.distortionModel));
}

}  // namespace StereoMaps
