#pragma once

#include "AR/CV/Camera/Camera.h"
#include "EntryPointRules.h"

namespace VIO {

/// The step every map builder ends each pixel with: an ideal point (X, Y) of
/// the source camera (a ray at depth 1) becomes its position in the source's
/// distorted image. The distortion spline at r² = X² + Y² scales the point,
/// the tangential terms are added when either coefficient is non-zero, the
/// model's focal length and principal point turn it into pixels, and unless
/// out-of-image positions are allowed, positions outside
/// [0, width) × [0, height) are refused. Allocation-free and inline: it runs
/// once per output pixel.
class SourceProjection {
 public:
  SourceProjection(const AR::CV::Camera<float>& camera, bool allowOutOfImage)
      : spline_(camera.getDistortionSpline()),
        focal_(camera.getOriginalFocalLength()),
        principal_(camera.getPrincipalPoint()),
        p1_(camera.getTangentialDistortionCoeffs()(0)),
        p2_(camera.getTangentialDistortionCoeffs()(1)),
        tangential_(p1_ != 0.0f || p2_ != 0.0f),
        allowOutOfImage_(allowOutOfImage) {
    // The bounds are the source image as whole pixels.
    const AR::Math::Vec2I size = mapExtentOf(camera.getSize()).size;
    width_ = float(size(0));
    height_ = float(size(1));
  }

  /// False when r² is outside the distortion spline's range (or NaN) or the
  /// position falls outside the image and that is not allowed.
  bool tryProject(float X, float Y, float& sx, float& sy) const {
    const float rSq = X * X + Y * Y;
    float factor = 0.0f;
    if (!spline_.evaluate(rSq, factor)) return false;
    float xd = X * factor;
    float yd = Y * factor;
    if (tangential_) {
      xd += 2.0f * p1_ * X * Y + p2_ * (rSq + 2.0f * X * X);
      yd += p1_ * (rSq + 2.0f * Y * Y) + 2.0f * p2_ * X * Y;
    }
    sx = focal_(0) * xd + principal_(0);
    sy = focal_(1) * yd + principal_(1);
    return allowOutOfImage_ || (sx >= 0.0f && sx < width_ && sy >= 0.0f && sy < height_);
  }

 private:
  const AR::CV::HermiteSplineInterpolation<float>& spline_;
  AR::Math::Vec2F focal_;
  AR::Math::Vec2F principal_;
  float p1_, p2_;
  bool tangential_;
  bool allowOutOfImage_;
  float width_ = 0.0f, height_ = 0.0f;
};

}  // namespace VIO
