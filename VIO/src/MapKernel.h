#pragma once

// The per-pixel pipeline that the three map builders share, in a form the
// vector kernel can run: every camera quantity it needs, copied out of the
// cameras once per call.
//
// A builder's output pixel (x, y) goes through
//   pixel -> ideal point of the output camera (its undistortion spline)
//         -> ray in the source camera (the only step that differs)
//         -> ideal source point -> distortion spline -> tangential terms
//         -> source pixel -> bounds -> the -1 rule.
// The vector kernel performs exactly the scalar operations in the same order
// (no fused multiply-add, IEEE division, no approximate reciprocals), so
// its maps equal the scalar maps bit for bit on every target.

#include <cstdint>
#include <vector>

#include "AR/CV/Camera/Camera.h"
#include "AR/Math/Matrix.h"
#include "AR/Math/Vector.h"

namespace VIO {

/// Which implementation a builder uses: the vector kernel with the best
/// target of this CPU, or the scalar reference (tests compare the two).
enum class MapKernel { Vector, Scalar };

/// A fitted float spline as separate coefficient arrays, so that one vector
/// of lanes can fetch its bins with gathers. Views the storage of a
/// `SplineTables`.
struct SplineLookup {
  const float* t0 = nullptr;
  const float* c0 = nullptr;
  const float* c1 = nullptr;
  const float* c2 = nullptr;
  const float* c3 = nullptr;
  float lo = 0.0f;     // range(0)
  float hi = 0.0f;     // range(1), excluded
  float scale = 0.0f;  // bins per unit
  float last = 0.0f;   // index of the last bin, as float (at most 1024: exact)
  // The first bin's entries once more: a copy held with the pipeline stays in
  // registers, where loads from the tables would be repeated per vector.
  float first[5] = {0, 0, 0, 0, 0};  // t0, c0, c1, c2, c3
};

/// Owns the arrays behind a `SplineLookup`. Built per builder call (a few
/// kilobytes): nothing is kept between calls.
class SplineTables {
 public:
  explicit SplineTables(const AR::CV::HermiteSplineInterpolation<float>& spline);
  const SplineLookup& lookup() const { return lookup_; }

 private:
  std::vector<float> storage_;
  SplineLookup lookup_;
};

/// How the ideal point (u, v) of an output pixel becomes a ray of the source.
enum class RayKind {
  /// The ideal point is already the source's (undistortion).
  Ideal,
  /// d = M (u, v, 1), skipped when d.z < 0.01 (rectification).
  Rotated,
  /// P = (u depth, v depth, depth) on the plane, Q = M P + t, skipped unless
  /// Q.z >= 0.01 (see-through; P is also an output).
  Plane,
};

/// Everything the per-pixel pipeline reads, in plain floats.
struct PixelPipeline {
  // Output camera: pixel -> distorted -> ideal (symmetric undistortion only).
  float cx = 0, cy = 0, invFx = 0, invFy = 0;
  SplineLookup undistortion;

  RayKind ray = RayKind::Ideal;
  AR::Math::Matrix<float, 3, 3> M;
  AR::Math::Vector<float, 3> t;
  float depth = 0;

  // Source camera: ideal -> pixel.
  SplineLookup distortion;
  float fx = 0, fy = 0, px = 0, py = 0, p1 = 0, p2 = 0;
  bool tangential = false;
  bool allowOutOfImage = false;
  float width = 0, height = 0;
};

/// The ideal point that a failed pixel of the rectify builder falls back to:
/// the last one that succeeded, along the rows.
struct IdealCarry {
  bool have = false;
  float u = 0, v = 0;
};

/// Where one row's results go: X and Y entries (-1.0 where a pixel has no
/// source) and, for plane rays, the plane point (may be null each).
struct RowOutput {
  float* x = nullptr;
  float* y = nullptr;
  float* point[3] = {nullptr, nullptr, nullptr};
};

/// Lanes of the vector kernel on this CPU (1 when only the scalar path runs).
int mapKernelLanes();

/// Runs the vector kernel over whole vectors of row `y` from column `xBegin`
/// towards `xEnd`; `out` is indexed by column. Stops before the tail that is
/// shorter than a vector, and, unless the ray kind is `Ideal` (whose failed
/// pixels are silent skips), before a vector in which some pixel cannot be
/// made ideal: the scalar path handles that vector, logging and falling back
/// as it does. Updates `carry` with the last pixel of every finished vector.
/// Returns the first column it did not finish.
int mapRowVector(const PixelPipeline& pipeline, int y, int xBegin, int xEnd, const RowOutput& out,
                 IdealCarry& carry);

}  // namespace VIO
