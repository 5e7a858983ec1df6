#pragma once

// The row loop that the three map builders share: it walks the output pixels
// row by row, lets the vector kernel do whole vectors and the scalar
// reference do the rest, and writes every row straight into the map images.
//
// Memory: rows that fit an image are written in place, nothing is cleared
// before (every walked pixel receives its entry or -1.0, and only the part of
// an image outside the walked area is set to -1.0 afterwards), and the only
// scratch is one row per image for rows that do not fit it.

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "AR/CV/Camera/Camera.h"
#include "AR/CV/Image/Image.h"
#include "AR/Common/ArrayView.h"
#include "AR/Common/Logger.h"
#include "EntryPointRules.h"
#include "MapKernel.h"

namespace VIO {

/// What the scalar path makes of one output pixel.
struct PixelResult {
  bool valid = false;  // a source position that passes every test
  float sx = -1.0f, sy = -1.0f;
  bool point = false;  // a plane point was produced (see-through only)
  float P[3] = {-1.0f, -1.0f, -1.0f};
};

/// The vector kernel's view of a builder call: the pipeline, its spline
/// tables, and whether the vector kernel may run at all. It may not when the
/// scalar path would log something that does not depend on a pixel's lane
/// (an unfitted spline, a bad plane depth) or takes a path the kernel does
/// not have (tangential undistortion of the output camera): those calls stay
/// scalar throughout, so their messages are exactly the scalar ones.
class VectorPlan {
 public:
  VectorPlan(const AR::CV::Camera<float>& output, const AR::CV::Camera<float>& source,
             bool allowOutOfImage, MapKernel kernel)
      : undistortion_(output.getUndistortionSpline()), distortion_(source.getDistortionSpline()) {
    const AR::Math::Vec2F outputTangential = output.getTangentialDistortionCoeffs();
    enabled_ = kernel == MapKernel::Vector && fitted(output.getUndistortionSpline()) &&
               fitted(source.getDistortionSpline()) && outputTangential(0) == 0.0f &&
               outputTangential(1) == 0.0f;
    PixelPipeline& p = pipeline_;
    p.cx = output.getPrincipalPoint()(0);
    p.cy = output.getPrincipalPoint()(1);
    // pixelToDistorted multiplies by the camera's stored inverse, not 1/f.
    p.invFx = output.getInvModelFocalLengthVec()(0);
    p.invFy = output.getInvModelFocalLengthVec()(1);
    p.undistortion = undistortion_.lookup();
    p.distortion = distortion_.lookup();
    p.fx = source.getOriginalFocalLength()(0);
    p.fy = source.getOriginalFocalLength()(1);
    p.px = source.getPrincipalPoint()(0);
    p.py = source.getPrincipalPoint()(1);
    p.p1 = source.getTangentialDistortionCoeffs()(0);
    p.p2 = source.getTangentialDistortionCoeffs()(1);
    p.tangential = p.p1 != 0.0f || p.p2 != 0.0f;
    p.allowOutOfImage = allowOutOfImage;
    const AR::Math::Vec2I size = mapExtentOf(source.getSize()).size;
    p.width = float(size(0));
    p.height = float(size(1));
  }

  PixelPipeline& pipeline() { return pipeline_; }
  const PixelPipeline* active() const { return enabled_ ? &pipeline_ : nullptr; }
  void disable() { enabled_ = false; }

 private:
  /// Fitted, with a finite bin density: only then is every bin index the
  /// kernel computes the one the scalar lookup computes.
  static bool fitted(const AR::CV::HermiteSplineInterpolation<float>& spline) {
    return spline.isInit() && std::isfinite(spline.getScale());
  }

  SplineTables undistortion_;
  SplineTables distortion_;
  PixelPipeline pipeline_;
  bool enabled_ = false;
};

/// The part of an output image of `size` that can land in the map images:
/// rows and columns beyond both images are never walked, so the work is
/// bounded by the map, however large the camera or display behind it.
inline AR::Math::Vec2I walkWithinMap(const AR::Math::Vec2I& size, const AR::CV::Image<float>& mapX,
                                     const AR::CV::Image<float>& mapY) {
  const auto extent = [](const AR::CV::Image<float>& image, int i) {
    return image.empty() ? 0 : image.size()(i);
  };
  const int width = std::min(size(0), std::max(extent(mapX, 0), extent(mapY, 0)));
  const int height = std::min(size(1), std::max(extent(mapX, 1), extent(mapY, 1)));
  return AR::Math::Vec2I(std::max(width, 0), std::max(height, 0));
}

/// Logs, once per call and only when there are any, how many pixels of an
/// output image of `size` were left out by `walk`.
inline void reportLeftOut(const char* source, const char* function, int line, const char* builder,
                          const AR::Math::Vec2I& size, const AR::Math::Vec2I& walk) {
  const unsigned long long all = (unsigned long long)std::max(size(0), 0) * (unsigned long long)std::max(size(1), 0);
  const unsigned long long left = all - (unsigned long long)walk(0) * (unsigned long long)walk(1);
  auto& logger = AR::Common::Logger::getInstance();
  if (left > 0 && logger.getLevel() >= AR::Common::Logger::LEVEL_DEBUG)
    logger.logEx2(AR::Common::Logger::LEVEL_DEBUG, source, function, line,
                  "%s: %llu pixels of the %dx%d image lie outside the %dx%d map and were left out", builder,
                  left, size(0), size(1), walk(0), walk(1));
}

/// Images of a view beyond the X and Y maps are only set to -1.0.
inline void clearExtraImages(AR::Common::ArrayView<AR::CV::Image<float>>& mapXY) {
  for (size_t i = 2; i < mapXY.size(); ++i) mapXY[i].clear(-1.0f);
}

/// Fills rows [0, walk height) x columns [0, walk width) of the two map
/// images (and, when `points` is given, of its three images, which must have
/// the walk size) and sets every other pixel of the map images to -1.0.
///
/// `scalarPixel(x, y, result, carry)` is the reference per-pixel path; it is
/// called in row-major order for every pixel the vector kernel does not
/// finish, so messages it logs keep their order. When `logOutside` is set, a
/// row that does not fit both map images is written pixel by pixel through
/// the images' checked access, which reports each write outside; otherwise
/// such writes are dropped silently.
template <class ScalarPixel>
void fillMapRows(const PixelPipeline* vector, const AR::Math::Vec2I& walk,
                 AR::CV::Image<float>& mapX, AR::CV::Image<float>& mapY,
                 std::array<AR::CV::Image<float>, 3>* points, bool logOutside,
                 ScalarPixel&& scalarPixel) {
  using Image = AR::CV::Image<float>;
  const int walkW = std::max(walk(0), 0);
  const int walkH = std::max(walk(1), 0);
  const int lanes = vector != nullptr ? mapKernelLanes() : 1;
  const auto rowOf = [](Image& image, int y) {
    return image.data() + size_t(image.stride() / sizeof(float)) * size_t(y);
  };
  const auto fits = [walkW](const Image& image, int y) {
    return !image.empty() && y < image.height() && walkW <= image.width();
  };
  std::vector<float> scratch;  // one row per image that a row does not fit
  IdealCarry carry;
  PixelResult r;

  for (int y = 0; y < walkH; ++y) {
    const bool fitX = fits(mapX, y), fitY = fits(mapY, y);
    if (!(fitX && fitY) && logOutside) {
      for (int x = 0; x < walkW; ++x) {
        r = PixelResult();
        scalarPixel(x, y, r, carry);
        if (r.valid) {
          mapX.at(x, y) = r.sx;
          mapY.at(x, y) = r.sy;
        } else {
          if (x < mapX.width() && y < mapX.height() && !mapX.empty()) mapX.at(x, y) = -1.0f;
          if (x < mapY.width() && y < mapY.height() && !mapY.empty()) mapY.at(x, y) = -1.0f;
        }
      }
      continue;
    }
    if (!(fitX && fitY) && scratch.empty()) scratch.resize(2 * size_t(walkW));
    RowOutput out;
    out.x = fitX ? rowOf(mapX, y) : scratch.data();
    out.y = fitY ? rowOf(mapY, y) : scratch.data() + walkW;
    if (points != nullptr)
      for (int i = 0; i < 3; ++i) {
        Image& image = (*points)[size_t(i)];
        out.point[i] = fits(image, y) ? rowOf(image, y) : nullptr;
      }

    int x = 0;
    while (x < walkW) {
      if (vector != nullptr) x = mapRowVector(*vector, y, x, walkW, out, carry);
      const int end = vector != nullptr ? std::min(x + lanes, walkW) : walkW;
      for (; x < end; ++x) {
        r = PixelResult();
        scalarPixel(x, y, r, carry);
        out.x[x] = r.valid ? r.sx : -1.0f;
        out.y[x] = r.valid ? r.sy : -1.0f;
        for (int i = 0; i < 3; ++i)
          if (out.point[i] != nullptr) out.point[i][x] = r.point ? r.P[i] : -1.0f;
      }
    }

    // Rows that did not fit: the part inside each image, silently.
    if (!fitX && !mapX.empty() && y < mapX.height())
      std::copy_n(out.x, std::min(walkW, mapX.width()), rowOf(mapX, y));
    if (!fitY && !mapY.empty() && y < mapY.height())
      std::copy_n(out.y, std::min(walkW, mapY.width()), rowOf(mapY, y));
  }

  // What the walk did not reach keeps the invalid value.
  for (Image* image : {&mapX, &mapY}) {
    if (image->empty()) continue;
    for (int y = 0; y < image->height(); ++y) {
      const int from = y < walkH ? std::min(walkW, image->width()) : 0;
      std::fill(rowOf(*image, y) + from, rowOf(*image, y) + image->width(), -1.0f);
    }
  }
}

}  // namespace VIO
