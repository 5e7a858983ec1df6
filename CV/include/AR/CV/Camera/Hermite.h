#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <vector>

#include "AR/Common/Logger.h"
#include "AR/Common/Macros.h"
#include "AR/Math/AutoDiff.h"
#include "AR/Math/Vector.h"
#include "CameraModel/CameraModel.h"

namespace AR {
namespace CV {

namespace internal {

/// Picks the text of a message for the precision a template runs in, so that
/// function names in logs read as the compiler prints them for that instance.
template <typename PREC>
constexpr const char* textFor(const char* forFloat, const char* forDouble) {
  return std::is_same<PREC, float>::value ? forFloat : forDouble;
}

}  // namespace internal

/// Signature text of a member of a class template on PREC, as g++ prints it.
#define AR_CV_PRETTY(PREC, signature) \
  ::AR::CV::internal::textFor<PREC>(signature " [with PREC = float]", signature " [with PREC = double]")

/// The differentiable scalar used to fit splines: value and one derivative.
using HermiteAD = AR::Math::ad<double, 1>;

/// Piecewise cubic Hermite approximation of a smooth scalar function on an
/// interval [range(0), range(1)), with bins of equal width.
///
/// `setupHermiteCoeffs` samples the function's value and slope at every bin
/// edge and doubles the number of bins, starting from one, until the largest
/// error at the bin midpoints is below a target or the bin budget is spent.
/// Afterwards the spline is read-only and `evaluate` costs one subtraction,
/// one multiplication, a truncation and a three-step Horner scheme: the bin
/// index is computed, never searched, so lookups are O(1) and allocation-free.
///
/// The function to approximate is any callable that accepts both a plain
/// `PREC` (used to measure the error) and a `HermiteAD` (value and slope).
/// The slope it returns must be the derivative with respect to the argument
/// times the derivative seeded into the argument, as forward-mode
/// differentiation gives it.
template <typename PREC>
class AR_EXPORT HermiteSplineInterpolation {
 public:
  using Vec2 = AR::Math::Vector<PREC, 2>;

  /// Smallest bin count tried; the count doubles from here.
  static constexpr size_t INIT_BINS = 1;

  /// One bin: y = c0 + t*(c1 + t*(c2 + t*c3)) with t = x - t0.
  struct Coeffs {
    AR::Math::Vector<PREC, 4> coef;
    PREC t0 = PREC(-1);
  };

  /// Fits the spline to `fn` on [rangeForApprox(0), rangeForApprox(1)) with
  /// at most `MAX_BINS` bins (1, 2, 4, ... bins are tried in turn) and returns
  /// the largest absolute error found at the bin midpoints of the spline that
  /// is kept. The kept spline is the last one fitted, even when its error is
  /// still above `eps`; the caller decides whether that is good enough.
  /// A spline is fitted once: fitting again is reported as a contract breach.
  template <typename FUNCTION>
  PREC setupHermiteCoeffs(const FUNCTION& fn, const Vec2& rangeForApprox, size_t MAX_BINS,
                          PREC eps);

  /// Builds the spline with exactly `nBins` bins over the stored range.
  template <typename FUNCTION>
  void setupHermiteCoeffsInt(const FUNCTION& fn, size_t nBins);

  /// Largest absolute difference between `fn` and the spline at the bin
  /// midpoints (0 if no point was tested). A point where `fn` is not a number
  /// counts as an infinite error, so a broken function never passes a fit.
  template <typename FUNCTION>
  PREC testAccuracy(const FUNCTION& fn) const;

  /// Writes the spline's value at `x` to `y`. False, with `y` untouched, when
  /// `x` is outside [range(0), range(1)) (the upper end is excluded), is not
  /// a number, or the spline has not been fitted (that last case is also
  /// logged as an error: callers must not evaluate an unfitted spline).
  bool evaluate(PREC x, PREC& y) const {
    if (!isInit()) {
      reportNotInitialized();
      return false;
    }
    // Written so that a NaN argument compares false and is rejected.
    if (!(x >= range(0)) || !(x < range(1))) return false;
    const size_t last = segments.size() - 1;
    // x is finite and at or above range(0), so pos is >= 0; it may still
    // round up to the segment count (or overflow to infinity for extreme
    // ranges), which the clamp to the last bin covers before any conversion.
    const PREC pos = (x - range(0)) * scale;
    const size_t i = pos < PREC(last) ? static_cast<size_t>(pos) : last;
    const Coeffs& s = segments[i];
    const PREC t = x - s.t0;
    y = s.coef(0) + t * (s.coef(1) + t * (s.coef(2) + t * s.coef(3)));
    return true;
  }

  /// Fitted: at least one bin and a positive bin density.
  bool isInit() const { return !segments.empty() && scale > PREC(0); }

  /// Bins in increasing order of the argument.
  const std::vector<Coeffs>& getSegments() const { return segments; }
  /// Lower and upper end of the approximated interval.
  const Vec2& getRange() const { return range; }
  /// Bins per unit of the argument (1 / bin width); not positive before fitting.
  PREC getScale() const { return scale; }

 private:
  void reportNotInitialized() const;
  void reportFit(size_t nBins, PREC err) const;

  std::vector<Coeffs> segments;
  Vec2 range;
  PREC scale = PREC(0);
};

/// Function object for the distortion factor d(r^2) of a camera model.
template <typename MODEL>
struct DistortFn;

/// Function object for the undistortion factor u(rd^2) of a camera model.
template <typename MODEL>
struct UndistortFn;

template <typename PREC>
struct DistortFn<CamModel::CameraModel<PREC>> {
  explicit DistortFn(const CamModel::CameraModel<PREC>& m) : model(m) {}

  PREC operator()(PREC rSq) const { return model.template distortionFactor<PREC>(rSq); }
  /// Value and derivative come straight from differentiating the model.
  HermiteAD operator()(const HermiteAD& rSq) const {
    return model.template distortionFactor<HermiteAD>(rSq);
  }

  const CamModel::CameraModel<PREC>& model;
};

template <typename PREC>
struct UndistortFn<CamModel::CameraModel<PREC>> {
  explicit UndistortFn(const CamModel::CameraModel<PREC>& m) : model(m) {}

  PREC operator()(PREC rdSq) const { return model.template undistortionFactor<PREC>(rdSq); }

  /// The undistortion factor is computed iteratively and cannot be
  /// differentiated directly. Its slope follows from the inverse-function
  /// rule: with the ideal radius ru = rd*u and the radius map
  /// g(ru) = ru*d(ru^2) = rd, d(ru)/d(rd) = 1/g'(ru), and for u = ru/rd as a
  /// function of x = rd^2 (dx = 2*rd*d(rd)):
  ///   du/dx = 1/(2*rd^2*g'(ru)) - ru/(2*rd^3).
  HermiteAD operator()(const HermiteAD& rdSq) const {
    double x = rdSq.value();
    // rd appears in denominators; lift the origin like the model does.
    if (x < 1e-8) x = x + 1e-8;
    const double rd = std::sqrt(x);
    const double u = model.template undistortionFactor<double>(x);
    const double ru = rd * u;
    const HermiteAD D =
        model.template distortionFactor<HermiteAD>(HermiteAD(ru * ru, 2 * ru));
    const double slope = D.value() + ru * D.derivative();
    const double dudx = 1 / (rd * rd * 2 * slope) - ru / (rd * rd * 2 * rd);
    return HermiteAD(u, dudx * rdSq.derivative());
  }

  const CamModel::CameraModel<PREC>& model;
};

// ---------------------------------------------------------------------------

template <typename PREC>
template <typename FUNCTION>
PREC HermiteSplineInterpolation<PREC>::setupHermiteCoeffs(const FUNCTION& fn,
                                                          const Vec2& rangeForApprox,
                                                          size_t MAX_BINS, PREC eps) {
  static constexpr const char* kFile = "CV/include/AR/CV/Camera/Hermite";
  const char* kFunction =
      AR_CV_PRETTY(PREC,
                   "PREC AR::CV::HermiteSplineInterpolation<PREC>::setupHermiteCoeffs(const "
                   "FUNCTION&, const AR::Math::Vector<PREC, 2>&, size_t, PREC)");
  if (isInit()) AR::Common::logError("!isInit()", kFile, kFunction, __LINE__);
  if (!(rangeForApprox(1) > rangeForApprox(0)))
    AR::Common::logError("rangeForApprox(1) > rangeForApprox(0)", kFile, kFunction, __LINE__);
  if (!(MAX_BINS >= INIT_BINS))
    AR::Common::logError("MAX_BINS >= INIT_BINS", kFile, kFunction, __LINE__);
  if (!(eps > 0)) AR::Common::logError("eps > 0", kFile, kFunction, __LINE__);

  range = rangeForApprox;
  PREC err = std::numeric_limits<PREC>::infinity();
  if (MAX_BINS > 0) {
    size_t nBins = INIT_BINS;
    for (;;) {
      setupHermiteCoeffsInt(fn, nBins);
      err = testAccuracy(fn);
      if (err < eps || 2 * nBins > MAX_BINS) break;
      nBins = 2 * nBins;
    }
  }
  reportFit(segments.size(), err);
  return err;
}

template <typename PREC>
template <typename FUNCTION>
void HermiteSplineInterpolation<PREC>::setupHermiteCoeffsInt(const FUNCTION& fn, size_t nBins) {
  segments.resize(nBins);
  const PREC h = (range(1) - range(0)) / PREC(nBins);
  scale = PREC(1) / h;
  const bool verbose =
      AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_VERBOSE;
  const char* kFunction = AR_CV_PRETTY(
      PREC, "void AR::CV::HermiteSplineInterpolation<PREC>::setupHermiteCoeffsInt(const "
            "FUNCTION&, size_t)");

  // Seeding the derivative with h gives the slope per bin parameter
  // s = (x - t0)/h in [0, 1], the form the Hermite basis needs.
  HermiteAD edge = fn(HermiteAD(double(range(0)), double(h)));
  double p0 = edge.value();
  double m0 = edge.derivative();

  // Powers of the density in PREC, as the coefficients are stored in PREC.
  const PREC scale2 = scale * scale;
  const PREC scale3 = scale2 * scale;
  for (size_t i = 0; i < nBins; ++i) {
    // Edges come from the index, never from a running sum, so rounding does
    // not accumulate across 1024 bins.
    const double x1 = double(h) * double(i + 1) + double(range(0));
    const double t0 = double(h) * double(i) + double(range(0));
    edge = fn(HermiteAD(x1, double(h)));
    const double p1 = edge.value();
    const double m1 = edge.derivative();
    if (verbose)
      AR::Common::Logger::getInstance().logEx2(
          AR::Common::Logger::LEVEL_VERBOSE, "CV/include/AR/CV/Camera/Hermite", kFunction,
          __LINE__, "Hermite approximation v0:%e v0.d:%e v1:%e v1.d:%e", p0, m0, p1, m1);

    // Cubic Hermite basis in s: matches p0, m0 at s = 0 and p1, m1 at s = 1.
    const double a0 = p0;
    const double a1 = m0;
    const double a2 = -3 * p0 + 3 * p1 - 2 * m0 - m1;
    const double a3 = 2 * p0 - 2 * p1 + m0 + m1;
    if (verbose)
      AR::Common::Logger::getInstance().logEx2(
          AR::Common::Logger::LEVEL_VERBOSE, "CV/include/AR/CV/Camera/Hermite", kFunction,
          __LINE__, "Hermite approximation coef(0):%e coef(1):%e coef(2):%e coef(3):%e t0:%e",
          a0, a1, a2, a3, t0);

    // Back from s to the argument's own units: t = s*h, so the k-th
    // coefficient picks up scale^k.
    Coeffs& seg = segments[i];
    seg.t0 = PREC(t0);
    seg.coef(0) = PREC(a0);
    seg.coef(1) = PREC(a1 * double(scale));
    seg.coef(2) = PREC(a2 * double(scale2));
    seg.coef(3) = PREC(a3 * double(scale3));
    p0 = p1;
    m0 = m1;
  }
  if (!isInit())
    AR::Common::logError("isInit()", "CV/include/AR/CV/Camera/Hermite", kFunction, __LINE__);
}

template <typename PREC>
template <typename FUNCTION>
PREC HermiteSplineInterpolation<PREC>::testAccuracy(const FUNCTION& fn) const {
  // No point tested means no error seen: 0, also for a spline that could not
  // be fitted over its range (the caller judges initialisation by isInit).
  // Without bins there is no midpoint to test.
  PREC err = PREC(0);
  if (segments.empty()) return err;
  const PREC step = PREC(1) / scale;
  // One test point per bin, at its midpoint. The loop also stops if adding
  // the step no longer moves x (a range far from 0 relative to its width).
  for (PREC x = range(0) + step / PREC(2); x < range(1);) {
    PREC y = PREC(0);
    if (evaluate(x, y)) {
      const PREC diff = std::fabs(fn(x) - y);
      if (std::isnan(diff)) return std::numeric_limits<PREC>::infinity();
      if (diff > err) err = diff;
    } else {
      AR::Common::logError(
          "inRange", "CV/include/AR/CV/Camera/Hermite",
          AR_CV_PRETTY(PREC, "PREC AR::CV::HermiteSplineInterpolation<PREC>::testAccuracy(const "
                             "FUNCTION&) const"),
          __LINE__);
    }
    const PREC next = x + step;
    if (!(next > x)) break;
    x = next;
  }
  return err;
}

template <typename PREC>
void HermiteSplineInterpolation<PREC>::reportNotInitialized() const {
  AR::Common::logError(
      "isInit()", "CV/include/AR/CV/Camera/Hermite",
      AR_CV_PRETTY(PREC, "bool AR::CV::HermiteSplineInterpolation<PREC>::evaluate(PREC, PREC&) const"),
      __LINE__);
  if (AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_ERROR)
    AR::Common::Logger::getInstance().logEx2(
        AR::Common::Logger::LEVEL_ERROR, "CV/include/AR/CV/Camera/Hermite",
        AR_CV_PRETTY(PREC,
                     "bool AR::CV::HermiteSplineInterpolation<PREC>::evaluate(PREC, PREC&) const"),
        __LINE__, "HermiteSplineInterpolation::Evaluate() - not initialized");
}

template <typename PREC>
void HermiteSplineInterpolation<PREC>::reportFit(size_t nBins, PREC err) const {
  if (AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_DEBUG)
    AR::Common::Logger::getInstance().logEx2(
        AR::Common::Logger::LEVEL_DEBUG, "CV/include/AR/CV/Camera/Hermite",
        AR_CV_PRETTY(PREC,
                     "PREC AR::CV::HermiteSplineInterpolation<PREC>::setupHermiteCoeffs(const "
                     "FUNCTION&, const AR::Math::Vector<PREC, 2>&, size_t, PREC)"),
        __LINE__, "Fitted Hermite spline with %zu bins, maximum approximation error %f", nBins,
        double(err));
}

extern template class HermiteSplineInterpolation<float>;
extern template class HermiteSplineInterpolation<double>;

}  // namespace CV
}  // namespace AR
