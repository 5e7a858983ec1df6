// The vector map kernel, compiled once per instruction-set target and chosen
// at run time (SSE4, AVX2, AVX-512 on x86-64; NEON, SVE on AArch64).
//
// Bit-identity with the scalar builders rests on three rules kept throughout:
// every scalar operation appears here as one vector operation in the same
// order (including the 0 + a*b that a matrix-vector product starts from,
// which turns -0 into +0); multiplications and additions stay separate (no
// MulAdd, and the project compiles with -ffp-contract=off); division is the
// IEEE division, never a reciprocal estimate.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "MapKernel.cc"
#include <hwy/foreach_target.h>  // re-includes this file once per target
#include <hwy/highway.h>

#include "MapKernel.h"

#include <algorithm>

HWY_BEFORE_NAMESPACE();
namespace VIO {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using DF = hn::ScalableTag<float>;
using DI = hn::RebindToSigned<DF>;
using VF = hn::Vec<DF>;
using MF = hn::Mask<DF>;
using IF = decltype(hn::IndicesFromVec(DF(), hn::Zero(DI())));

/// Coefficient `table` at each lane's bin. Neighbouring pixels have
/// neighbouring radii, so the lanes' bins usually fit in one vector starting
/// at the smallest: one load and a permutation then replace a gather (the
/// tables are padded for that load). Lanes further apart are gathered.
struct BinFetch {
  bool window;
  int32_t first;
};

HWY_INLINE VF fetch(const float* table, const BinFetch& how, hn::Vec<DI> bin,
                    IF relative) {
  const DF df;
  if (how.window) return hn::TableLookupLanes(hn::LoadU(df, table + how.first), relative);
  return hn::GatherIndex(df, table, bin);
}

/// The spline at x for every lane, as `HermiteSplineInterpolation::evaluate`
/// computes it; lanes outside [lo, hi) (or NaN) are cleared from `ok`. Their
/// argument is replaced by lo first so that every lane reads a real bin.
HWY_INLINE VF evaluateSpline(const SplineLookup& s, VF x, MF& ok) {
  const DF df;
  const DI di;
  const VF lo = hn::Set(df, s.lo);
  const MF inRange = hn::And(hn::Ge(x, lo), hn::Lt(x, hn::Set(df, s.hi)));
  ok = hn::And(ok, inRange);
  const VF xs = hn::IfThenElse(inRange, x, lo);
  if (s.last == 0.0f) {
    // One bin (distortion-free cameras): its coefficients for every lane.
    const VF t = hn::Sub(xs, hn::Set(df, s.first[0]));
    VF y = hn::Set(df, s.first[4]);
    y = hn::Add(hn::Set(df, s.first[3]), hn::Mul(t, y));
    y = hn::Add(hn::Set(df, s.first[2]), hn::Mul(t, y));
    return hn::Add(hn::Set(df, s.first[1]), hn::Mul(t, y));
  }
  // pos < last ? trunc(pos) : last  ==  trunc(min(pos, last)) for finite pos.
  const VF pos = hn::Min(hn::Mul(hn::Sub(xs, lo), hn::Set(df, s.scale)), hn::Set(df, s.last));
  const auto bin = hn::ConvertTo(di, pos);
  // Radii along a row change monotonically or have one minimum, so the
  // smaller bin of the two end lanes usually starts the window; whether every
  // lane then falls inside it is checked, and only otherwise does a full
  // reduction (or, for lanes too far apart, a gather) follow.
  const int32_t lanes = int32_t(hn::Lanes(df));
  BinFetch how;
  how.first = std::min(hn::GetLane(bin), hn::ExtractLane(bin, size_t(lanes - 1)));
  auto offset = hn::Sub(bin, hn::Set(di, how.first));
  how.window = hn::AllTrue(di, hn::And(hn::Gt(offset, hn::Set(di, -1)), hn::Lt(offset, hn::Set(di, lanes))));
  if (!how.window) {
    how.first = hn::GetLane(hn::MinOfLanes(di, bin));
    how.window = hn::GetLane(hn::MaxOfLanes(di, bin)) - how.first < lanes;
    offset = hn::Sub(bin, hn::Set(di, how.first));
  }
  // Only used for a window, where every lane lies in [0, lanes).
  const auto relative = hn::IndicesFromVec(df, how.window ? offset : hn::Zero(di));
  const VF t = hn::Sub(xs, fetch(s.t0, how, bin, relative));
  VF y = fetch(s.c3, how, bin, relative);
  y = hn::Add(fetch(s.c2, how, bin, relative), hn::Mul(t, y));
  y = hn::Add(fetch(s.c1, how, bin, relative), hn::Mul(t, y));
  return hn::Add(fetch(s.c0, how, bin, relative), hn::Mul(t, y));
}

/// Row r of M times (a, b, c), summed from 0 in index order.
HWY_INLINE VF matrixRow(const PixelPipeline& p, int r, VF a, VF b, VF c) {
  const DF df;
  VF sum = hn::Add(hn::Zero(df), hn::Mul(hn::Set(df, p.M(r, 0)), a));
  sum = hn::Add(sum, hn::Mul(hn::Set(df, p.M(r, 1)), b));
  return hn::Add(sum, hn::Mul(hn::Set(df, p.M(r, 2)), c));
}

/// Ideal source point (X, Y) -> source pixel, with the -1 rule applied.
HWY_INLINE void projectToSource(const PixelPipeline& p, VF X, VF Y, MF ok, float* outX,
                                float* outY) {
  const DF df;
  const VF rSq = hn::Add(hn::Mul(X, X), hn::Mul(Y, Y));
  const VF factor = evaluateSpline(p.distortion, rSq, ok);
  VF xd = hn::Mul(X, factor);
  VF yd = hn::Mul(Y, factor);
  if (p.tangential) {
    const VF two = hn::Set(df, 2.0f);
    const VF p1 = hn::Set(df, p.p1);
    const VF p2 = hn::Set(df, p.p2);
    // 2 p1 X Y + p2 (r² + 2 X X), evaluated left to right as written.
    const VF dx = hn::Add(hn::Mul(hn::Mul(hn::Set(df, 2.0f * p.p1), X), Y),
                          hn::Mul(p2, hn::Add(rSq, hn::Mul(hn::Mul(two, X), X))));
    const VF dy = hn::Add(hn::Mul(p1, hn::Add(rSq, hn::Mul(hn::Mul(two, Y), Y))),
                          hn::Mul(hn::Mul(hn::Set(df, 2.0f * p.p2), X), Y));
    xd = hn::Add(xd, dx);
    yd = hn::Add(yd, dy);
  }
  const VF sx = hn::Add(hn::Mul(hn::Set(df, p.fx), xd), hn::Set(df, p.px));
  const VF sy = hn::Add(hn::Mul(hn::Set(df, p.fy), yd), hn::Set(df, p.py));
  if (!p.allowOutOfImage) {
    const VF zero = hn::Zero(df);
    const MF inX = hn::And(hn::Ge(sx, zero), hn::Lt(sx, hn::Set(df, p.width)));
    const MF inY = hn::And(hn::Ge(sy, zero), hn::Lt(sy, hn::Set(df, p.height)));
    ok = hn::And(ok, hn::And(inX, inY));
  }
  const VF invalid = hn::Set(df, -1.0f);
  hn::StoreU(hn::IfThenElse(ok, sx, invalid), df, outX);
  hn::StoreU(hn::IfThenElse(ok, sy, invalid), df, outY);
}

/// Output pixels -> ideal points of the output camera: u with q0 (q1 is the
/// row's); lanes whose squared radius leaves the spline's range are cleared
/// from `ok`.
HWY_INLINE VF idealFactor(const PixelPipeline& p, hn::Vec<DI> column, VF q1Sq, VF& q0, MF& ok) {
  const DF df;
  q0 = hn::Mul(hn::Sub(hn::ConvertTo(df, column), hn::Set(df, p.cx)), hn::Set(df, p.invFx));
  return evaluateSpline(p.undistortion, hn::Add(hn::Mul(q0, q0), q1Sq), ok);
}

/// Ideal point -> ray -> source pixel for the vector of columns from x.
template <RayKind kRay>
HWY_INLINE void finishVector(const PixelPipeline& p, int x, VF q0, VF q1, VF u, MF ok,
                             const RowOutput& out, VF& lastU, VF& lastV) {
  const DF df;
  const VF one = hn::Set(df, 1.0f);
  const VF i0 = hn::Mul(u, q0);
  const VF i1 = hn::Mul(u, q1);
  if (kRay == RayKind::Ideal) {
    projectToSource(p, i0, i1, ok, out.x + x, out.y + x);
  } else if (kRay == RayKind::Rotated) {
    const VF d2 = matrixRow(p, 2, i0, i1, one);
    ok = hn::AndNot(hn::Lt(d2, hn::Set(df, 0.01f)), ok);
    const VF invZ = hn::Div(one, d2);
    projectToSource(p, hn::Mul(matrixRow(p, 0, i0, i1, one), invZ),
                    hn::Mul(matrixRow(p, 1, i0, i1, one), invZ), ok, out.x + x, out.y + x);
    lastU = i0;
    lastV = i1;
  } else {
    const VF depth = hn::Set(df, p.depth);
    const VF P0 = hn::Mul(i0, depth);
    const VF P1 = hn::Mul(i1, depth);
    if (out.point[0] != nullptr) hn::StoreU(P0, df, out.point[0] + x);
    if (out.point[1] != nullptr) hn::StoreU(P1, df, out.point[1] + x);
    if (out.point[2] != nullptr) hn::StoreU(depth, df, out.point[2] + x);
    const VF Q2 = hn::Add(matrixRow(p, 2, P0, P1, depth), hn::Set(df, p.t(2)));
    ok = hn::And(ok, hn::Ge(Q2, hn::Set(df, 0.01f)));
    const VF invZ = hn::Div(one, Q2);
    const VF Q0 = hn::Add(matrixRow(p, 0, P0, P1, depth), hn::Set(df, p.t(0)));
    const VF Q1 = hn::Add(matrixRow(p, 1, P0, P1, depth), hn::Set(df, p.t(1)));
    projectToSource(p, hn::Mul(Q0, invZ), hn::Mul(Q1, invZ), ok, out.x + x, out.y + x);
  }
}

template <RayKind kRay>
int rowImpl(const PixelPipeline& pipeline, int y, int xBegin, int xEnd, const RowOutput& out,
            IdealCarry& carry) {
  // A local copy: the map rows are floats too, and stores to them could
  // otherwise alias the pipeline's fields and force their reload per vector.
  const PixelPipeline p = pipeline;
  const DF df;
  const DI di;
  const int N = int(hn::Lanes(df));
  // The row's distorted y is the same for every pixel of the row.
  const VF q1 = hn::Mul(hn::Sub(hn::Set(df, float(y)), hn::Set(df, p.cy)), hn::Set(df, p.invFy));
  const VF q1Sq = hn::Mul(q1, q1);
  // Columns as int, converted exactly as float(x) converts them; advanced by
  // vector additions (building them lane by lane stalls on the stack).
  auto column = hn::Iota(di, xBegin);
  const auto step = hn::Set(di, N);
  VF lastU = hn::Zero(df), lastV = hn::Zero(df);
  int x = xBegin;
  // Two vectors per step: each pixel is one long dependent chain, and two
  // independent chains side by side keep the units busy.
  for (; xEnd - x >= 2 * N; x += 2 * N, column = hn::Add(column, hn::Add(step, step))) {
    MF okA = hn::FirstN(df, size_t(N)), okB = okA;
    VF q0A, q0B;
    const VF uA = idealFactor(p, column, q1Sq, q0A, okA);
    const VF uB = idealFactor(p, hn::Add(column, step), q1Sq, q0B, okB);
    // A failed pixel is logged (and, for rays, falls back to the previous
    // ideal point) by the scalar path; the loop below stops at its vector.
    if (kRay != RayKind::Ideal && !(hn::AllTrue(df, okA) && hn::AllTrue(df, okB))) break;
    finishVector<kRay>(p, x, q0A, q1, uA, okA, out, lastU, lastV);
    finishVector<kRay>(p, x + N, q0B, q1, uB, okB, out, lastU, lastV);
  }
  for (; xEnd - x >= N; x += N, column = hn::Add(column, step)) {
    MF ok = hn::FirstN(df, size_t(N));
    VF q0;
    const VF u = idealFactor(p, column, q1Sq, q0, ok);
    if (kRay != RayKind::Ideal && !hn::AllTrue(df, ok)) break;
    finishVector<kRay>(p, x, q0, q1, u, ok, out, lastU, lastV);
  }
  if (kRay == RayKind::Rotated && x > xBegin) {
    carry.have = true;
    carry.u = hn::ExtractLane(lastU, size_t(N - 1));
    carry.v = hn::ExtractLane(lastV, size_t(N - 1));
  }
  return x;
}

int MapRowVector(const PixelPipeline& p, int y, int xBegin, int xEnd, const RowOutput& out,
                 IdealCarry& carry) {
  switch (p.ray) {
    case RayKind::Ideal:
      return rowImpl<RayKind::Ideal>(p, y, xBegin, xEnd, out, carry);
    case RayKind::Rotated:
      return rowImpl<RayKind::Rotated>(p, y, xBegin, xEnd, out, carry);
    case RayKind::Plane:
      return rowImpl<RayKind::Plane>(p, y, xBegin, xEnd, out, carry);
  }
  return xBegin;
}

int MapKernelLanes() { return int(hn::Lanes(DF())); }

}  // namespace HWY_NAMESPACE
}  // namespace VIO
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace VIO {

// The widest vector of any target (SVE allows 2048 bits) holds 64 floats.
constexpr size_t kSplineTablePadding = 64;

HWY_EXPORT(MapRowVector);
HWY_EXPORT(MapKernelLanes);

int mapRowVector(const PixelPipeline& pipeline, int y, int xBegin, int xEnd, const RowOutput& out,
                 IdealCarry& carry) {
  return HWY_DYNAMIC_DISPATCH(MapRowVector)(pipeline, y, xBegin, xEnd, out, carry);
}

int mapKernelLanes() { return HWY_DYNAMIC_DISPATCH(MapKernelLanes)(); }

SplineTables::SplineTables(const AR::CV::HermiteSplineInterpolation<float>& spline) {
  const auto& segments = spline.getSegments();
  const size_t n = segments.size();
  // Each table is followed by padding for one vector load from its last bin.
  const size_t stride = n + kSplineTablePadding;
  storage_.assign(5 * stride, 0.0f);
  for (size_t i = 0; i < n; ++i) {
    storage_[i] = segments[i].t0;
    for (int k = 0; k < 4; ++k) storage_[(size_t(k) + 1) * stride + i] = segments[i].coef(k);
  }
  const float* base = storage_.data();
  lookup_.t0 = base;
  lookup_.c0 = base + stride;
  lookup_.c1 = base + 2 * stride;
  lookup_.c2 = base + 3 * stride;
  lookup_.c3 = base + 4 * stride;
  lookup_.lo = spline.getRange()(0);
  lookup_.hi = spline.getRange()(1);
  lookup_.scale = spline.getScale();
  lookup_.last = n > 0 ? float(n - 1) : 0.0f;
  if (n > 0)
    for (int k = 0; k < 5; ++k) lookup_.first[k] = storage_[size_t(k) * stride];
}

}  // namespace VIO
#endif  // HWY_ONCE
