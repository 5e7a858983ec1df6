#pragma once

#include "AR/Common/Macros.h"
#include "AR/Math/AutoDiff.h"
#include "AR/Math/Vector.h"
#include "CameraModel/DistortionModel.h"

namespace CamModel {

/// Plain description of one pinhole camera with radial lens distortion: image
/// size, principal point, focal length, distortion model and coefficients,
/// and the squared radii up to which distortion and undistortion are trusted.
///
/// All radii are measured in the ideal focal plane (pixel offset from the
/// principal point divided by the focal length; radius 1 is 45 degrees off
/// axis). The factor functions take the SQUARED radius.
///
/// A plain value type, copied whole. Exists for float and double with the same
/// logic. All const members are pure and may be called from any thread.
template <typename PREC>
class AR_EXPORT CameraModel {
 public:
  /// Image width and height in pixels.
  AR::Math::Vector<PREC, 2> size;
  /// cx, cy in pixels.
  AR::Math::Vector<PREC, 2> principalPoint;
  /// fx, fy in pixels.
  AR::Math::Vector<PREC, 2> focalLength;
  /// k0..k5; their meaning depends on `model` (see DistortionModel).
  AR::Math::Vector<PREC, 6> radialDistortionCoeffs;
  /// p1, p2. Carried for the intrinsic camera; the factor functions below
  /// never read them.
  AR::Math::Vector<PREC, 2> tangentialDistortionCoeffs;
  DistortionModel model = LINEAR;
  /// Square of the largest ideal-plane radius for which distortion is valid.
  /// Starts at 81 (a radius of 9, the widest range ever tabulated), as
  /// setupValidDistortionRange() expects, which then narrows it.
  PREC maxValidDistortionRSq = PREC(81);
  /// Square of the largest distorted radius (ideal-plane units) for which
  /// undistortion is valid. Same life cycle as maxValidDistortionRSq.
  PREC maxValidUndistortionRSq = PREC(81);

  /// Checks focal length, image size, principal point and the coefficients
  /// against the model. On the first failure prints one line on standard
  /// output and returns false.
  bool validateCoeffs() const;

  /// Distortion factor d(rSq) at the ideal squared radius rSq: the distorted
  /// radius is r * d(r*r). Computed in PREC2 (coefficients converted first).
  /// Available for CameraModel<float> with PREC2 = float, double and
  /// AR::Math::ad<double,1>; for CameraModel<double> with double and
  /// AR::Math::ad<double,1>. Never checks its input: outside the valid range
  /// the result may be meaningless, infinite or NaN. Aborts on a model value
  /// outside 0..5.
  template <typename PREC2>
  PREC2 distortionFactor(PREC2 rSq) const;

  /// Undistortion factor u(rdSq) at the distorted squared radius rdSq: the
  /// ideal radius is rd * u(rd*rd). Closed form for LINEAR and
  /// FISHEYE_1_PARAMETER; otherwise a fixed-point iteration on the ideal
  /// squared radius (at most 200 steps, relative tolerance 1e-6 on the
  /// factor) whose estimate never exceeds maxValidDistortionRSq. A run that
  /// does not converge silently returns its last factor. Available for
  /// CameraModel<float> with PREC2 = float and double, for CameraModel<double>
  /// with double. Aborts on a model value outside 0..5.
  template <typename PREC2>
  PREC2 undistortionFactor(PREC2 rdSq) const;

  /// Field-of-view fisheye branch of distortionFactor (omega = k0):
  /// atan(2 r tan(omega/2)) / omega / r, with tiny rSq lifted by 1e-8.
  template <typename T>
  T distort_1paramFisheye(T rSq) const;

  /// Equidistant fisheye branch of distortionFactor: theta_d / r with
  /// theta = atan(r), theta_d = theta + k0 theta^3 + k1 theta^5 + k2 theta^7
  /// + k3 theta^9, with tiny rSq lifted by 1e-8.
  template <typename T>
  T distort_4paramFisheye(T rSq) const;

  /// Narrows maxValidDistortionRSq and maxValidUndistortionRSq (which the
  /// caller must have set to 81) to where the model is a sensible, invertible
  /// map, clamps both to at most 81 and prints them on standard output
  /// (nothing for LINEAR).
  void setupValidDistortionRange();

  /// Scans the ideal radius outward in steps of 0.02 until the radius map
  /// flattens, folds or explodes, and records where the iterative inverse
  /// stops reproducing the ideal radius. Used for every model but LINEAR and
  /// FISHEYE_1_PARAMETER.
  void findDistortionLimits();

  /// RADIAL_6_PARAMETERS: keeps maxValidDistortionRSq at least 0.1 below the
  /// first positive real squared radius at which the denominator
  /// 1 + k3 x + k4 x^2 + k5 x^3 falls to 0.1, and prints each such root.
  void findMaxDistortionLimits_6paramRadial();

  /// True when findMaxDistortionLimits_6paramRadial would meet a root whose
  /// real part is NaN (coefficients that are NaN, or so large that the cubic
  /// formula overflows), which it treats as fatal. Evaluates the very same
  /// roots, so a caller can refuse such a model before setting up its range.
  /// Always false for the other models and when k5 is 0.
  bool denominatorRootIsNaN() const;

 private:
  /// Lower bound below which the fisheye branches lift a squared radius
  /// (1e-8, zero gradient): their formulas divide by the radius.
  template <typename T>
  static const T& minRSq();
};

extern template class CameraModel<float>;
extern template class CameraModel<double>;

}  // namespace CamModel
