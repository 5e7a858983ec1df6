// Valid ranges of a lens model: where distortion is a sensible, invertible map
// and where its iterative inverse still reproduces the ideal radius.

#include <cmath>
#include <complex>
#include <cstdio>
#include <type_traits>

#include "AR/Common/FatalAssert.h"
#include "CameraModel/CameraModel.h"

namespace CamModel {

namespace {

constexpr const char* kSource = "CameraModel/CameraModel/include/CameraModel/CameraModel";

template <typename PREC>
constexpr const char* rootSearchText() {
  if constexpr (std::is_same_v<PREC, float>)
    return "void CamModel::CameraModel<PREC>::findMaxDistortionLimits_6paramRadial() [with PREC = float]";
  else
    return "void CamModel::CameraModel<PREC>::findMaxDistortionLimits_6paramRadial() [with PREC = double]";
}

// Nothing beyond a radius of 9 focal lengths (about 84 degrees off axis for a
// pinhole) is ever tabulated.
template <typename PREC>
constexpr PREC kMaxRSq = PREC(81);

}  // namespace

template <typename PREC>
void CameraModel<PREC>::setupValidDistortionRange() {
  if (model == LINEAR) return;

  if (model == FISHEYE_1_PARAMETER) {
    const PREC omega = radialDistortionCoeffs(0);
    // For a tiny omega the model is practically a pinhole and the bound below
    // would be huge; the limits stay as they came in.
    if (omega > PREC(0.01)) {
      // The distorted radius tends to pi/(2 omega) as the ideal radius goes to
      // infinity; the squared bound is kept 0.1 below that asymptote.
      const PREC pi = PREC(3.14159265358979323846);
      const PREC rdAsymptote = pi / (PREC(2) * omega);
      maxValidUndistortionRSq = rdAsymptote * rdAsymptote - PREC(0.1);
      // The ideal squared radius that distorts onto that bound, through the
      // model's closed-form inverse.
      const PREC u = undistortionFactor<PREC>(maxValidUndistortionRSq);
      maxValidDistortionRSq = maxValidUndistortionRSq * (u * u);
    }
  } else {
    findDistortionLimits();
  }

  // Written so that a NaN limit becomes 81 as well.
  if (!(maxValidDistortionRSq < kMaxRSq<PREC>)) maxValidDistortionRSq = kMaxRSq<PREC>;
  if (!(maxValidUndistortionRSq < kMaxRSq<PREC>)) maxValidUndistortionRSq = kMaxRSq<PREC>;

  const std::string name = modelName(model);
  printf("Model %s. Distortion is valid up-to a radius of %.1f in the ideal focal plane\n", name.c_str(),
         double(std::sqrt(maxValidDistortionRSq)));
  printf("Model %s. Undistortion is valid up-to a radius of %.1f pixels from the principal point\n",
         name.c_str(), std::sqrt(double(maxValidUndistortionRSq)) * double(focalLength(0)));
}

template <typename PREC>
void CameraModel<PREC>::findDistortionLimits() {
  if (model == RADIAL_6_PARAMETERS) findMaxDistortionLimits_6paramRadial();

  const PREC step = PREC(0.02);
  PREC L = maxValidDistortionRSq;
  // Below one step (0.02^2) there is nothing to scan; a NaN limit is skipped too.
  if (L >= PREC(0.0004)) {
    PREC r = step;
    PREC rdPrev = PREC(0);
    bool undistortionFailed = false;
    for (;;) {
      const PREC rd = r * distortionFactor<PREC>(r * r);
      // Slope of the radius map over the last step: below 0.01 it has
      // flattened or folded back (no longer invertible), above 20 it is
      // exploding towards a pole.
      const PREC slope = (rd - rdPrev) / step;
      if (slope < PREC(0.01) || slope > PREC(20)) {
        maxValidDistortionRSq = (r - step) * (r - step);
        if (undistortionFailed) return;
        break;
      }
      // Round trip ideal -> distorted -> ideal; the first miss fixes the
      // undistortion limit at the last distorted radius that still worked.
      if (!undistortionFailed && std::fabs(rd * undistortionFactor<PREC>(rd * rd) - r) > PREC(1e-4)) {
        maxValidUndistortionRSq = rdPrev * rdPrev;
        undistortionFailed = true;
      }
      rdPrev = rd;
      r = r + step;
      L = maxValidDistortionRSq;
      // The 81 cap only matters for a caller that did not preset the limit:
      // it keeps the scan finite for an infinite one.
      if (!(r * r <= L) || r * r > kMaxRSq<PREC>) {
        if (undistortionFailed) return;
        break;
      }
    }
  }
  // Undistortion is valid up to the image of the end of the distortion range.
  const PREC Lend = maxValidDistortionRSq;
  const PREC d = distortionFactor<PREC>(Lend);
  maxValidUndistortionRSq = d * d * Lend;
}

namespace {

/// The positive, (nearly) real squared radii at which the denominator
/// 1 + k3 x + k4 x^2 + k5 x^3 has fallen to 0.1 (not to 0: the factor is
/// already ten times too large there), from the general cubic formula
/// a3 x^3 + a2 x^2 + a1 x + a0 = 0. Writes their real parts in the order of
/// the three cube roots of unity and returns how many there are. A NaN root
/// passes both rejections and is returned too.
template <typename PREC>
int denominatorRoots(PREC k3, PREC k4, PREC k5, PREC (&roots)[3]) {
  using Complex = std::complex<PREC>;
  if (k5 == PREC(0)) return 0;
  // The target 0.1 is the single-precision constant in both precisions, so
  // a0 = 1 - 0.1f: 0.9f in float, 0.8999999985098839 in double.
  const Complex a3(k5);
  const Complex a2(k4);
  const Complex a1(k3);
  const Complex a0(PREC(1) - PREC(0.1f));
  const Complex D0 = a2 * a2 - PREC(3) * a3 * a1;
  const Complex D1 = PREC(2) * a2 * a2 * a2 - PREC(9) * a3 * a2 * a1 + PREC(27) * a3 * a3 * a0;
  const Complex S = std::sqrt(D1 * D1 - PREC(4) * D0 * D0 * D0);
  // Principal cube root as exp(log(z)/3); log(0) = -inf gives Q = 0.
  const Complex Q = std::exp(std::log((D1 - S) / PREC(2)) / PREC(3));
  // Always the minus sign above: when D1 - S vanishes (D0 = 0) no bound is
  // set, and the slope test of the scan has to catch the pole.
  if (Q.real() == PREC(0) && Q.imag() == PREC(0)) return 0;

  // The three roots use the powers of a primitive cube root of unity.
  const Complex xi(PREC(-0.5), PREC(0.8660254));
  const Complex logXi(std::log(std::abs(xi)), PREC(2.0943951));
  int count = 0;
  for (int k = 1; k <= 3; ++k) {
    const Complex xiK = std::exp(PREC(k) * logXi);
    const Complex xiKQ = xiK * Q;
    const Complex root = (PREC(-1) / (PREC(3) * a3)) * (a2 + xiKQ + D0 / xiKQ);
    // Only positive, (nearly) real squared radii bound the range. Written as
    // rejections, so a NaN root gets through.
    if (root.real() <= PREC(0)) continue;
    if (std::fabs(root.imag() / root.real()) > PREC(0.001)) continue;
    roots[count++] = root.real();
  }
  return count;
}

}  // namespace

template <typename PREC>
void CameraModel<PREC>::findMaxDistortionLimits_6paramRadial() {
  PREC roots[3];
  const int count = denominatorRoots(radialDistortionCoeffs(3), radialDistortionCoeffs(4),
                                     radialDistortionCoeffs(5), roots);
  for (int i = 0; i < count; ++i) {
    const PREC bound = roots[i] - PREC(0.1);
    if (bound <= maxValidDistortionRSq) maxValidDistortionRSq = bound;
    printf("Radial polynomial model: root of denominator at %f\n", double(roots[i]));
    AR_FATAL_ASSERT(!std::isnan(roots[i]), "!std::isnan(root.real())", kSource, rootSearchText<PREC>());
  }
}

template <typename PREC>
bool CameraModel<PREC>::denominatorRootIsNaN() const {
  if (model != RADIAL_6_PARAMETERS) return false;
  PREC roots[3];
  const int count = denominatorRoots(radialDistortionCoeffs(3), radialDistortionCoeffs(4),
                                     radialDistortionCoeffs(5), roots);
  for (int i = 0; i < count; ++i)
    if (std::isnan(roots[i])) return true;
  return false;
}

template AR_EXPORT void CameraModel<float>::setupValidDistortionRange();
template AR_EXPORT void CameraModel<double>::setupValidDistortionRange();
template AR_EXPORT void CameraModel<float>::findDistortionLimits();
template AR_EXPORT void CameraModel<double>::findDistortionLimits();
template AR_EXPORT void CameraModel<float>::findMaxDistortionLimits_6paramRadial();
template AR_EXPORT void CameraModel<double>::findMaxDistortionLimits_6paramRadial();
template AR_EXPORT bool CameraModel<float>::denominatorRootIsNaN() const;
template AR_EXPORT bool CameraModel<double>::denominatorRootIsNaN() const;

}  // namespace CamModel
