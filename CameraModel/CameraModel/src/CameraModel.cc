#include "CameraModel/CameraModel.h"

#include <cmath>
#include <cstdio>
#include <type_traits>

#include "AR/Common/FatalAssert.h"

namespace CamModel {

namespace {

constexpr const char* kSource = "CameraModel/CameraModel/include/CameraModel/CameraModel";

// Function texts of the fatal assertions, as g++ prints the signatures, so
// that the message does not depend on the compiler that built the library.
template <typename PREC, typename PREC2>
constexpr const char* distortionFactorText() {
  if constexpr (std::is_same_v<PREC, float> && std::is_same_v<PREC2, float>)
    return "PREC2 CamModel::CameraModel<PREC>::distortionFactor(PREC2) const [with PREC2 = float; PREC = float]";
  else if constexpr (std::is_same_v<PREC, float> && std::is_same_v<PREC2, double>)
    return "PREC2 CamModel::CameraModel<PREC>::distortionFactor(PREC2) const [with PREC2 = double; PREC = float]";
  else if constexpr (std::is_same_v<PREC, float>)
    return "PREC2 CamModel::CameraModel<PREC>::distortionFactor(PREC2) const [with PREC2 = AR::Math::ad<double, 1>; PREC = float]";
  else if constexpr (std::is_same_v<PREC2, double>)
    return "PREC2 CamModel::CameraModel<PREC>::distortionFactor(PREC2) const [with PREC2 = double; PREC = double]";
  else
    return "PREC2 CamModel::CameraModel<PREC>::distortionFactor(PREC2) const [with PREC2 = AR::Math::ad<double, 1>; PREC = double]";
}

template <typename PREC, typename PREC2>
constexpr const char* undistortionFactorText() {
  if constexpr (std::is_same_v<PREC, float> && std::is_same_v<PREC2, float>)
    return "PREC2 CamModel::CameraModel<PREC>::undistortionFactor(PREC2) const [with PREC2 = float; PREC = float]";
  else if constexpr (std::is_same_v<PREC, float>)
    return "PREC2 CamModel::CameraModel<PREC>::undistortionFactor(PREC2) const [with PREC2 = double; PREC = float]";
  else
    return "PREC2 CamModel::CameraModel<PREC>::undistortionFactor(PREC2) const [with PREC2 = double; PREC = double]";
}

// The radial models share one rational polynomial; coefficients beyond a
// model's count are zero (validateCoeffs enforces it), so no per-model code.
template <typename PREC2, typename PREC>
PREC2 rationalFactor(const AR::Math::Vector<PREC, 6>& k, PREC2 x) {
  const PREC2 k0(k(0)), k1(k(1)), k2(k(2)), k3(k(3)), k4(k(4)), k5(k(5));
  const PREC2 one(1);
  // No guard against a vanishing denominator: the valid range keeps callers
  // away from its roots.
  return (k0 * x + one + x * x * k1 + x * x * x * k2) / (k3 * x + one + x * x * k4 + x * x * x * k5);
}

}  // namespace

std::string modelName(DistortionModel model) {
  switch (model) {
    case LINEAR: return "LINEAR";
    case RADIAL_2_PARAMETERS: return "RADIAL_2_PARAMETERS";
    case RADIAL_3_PARAMETERS: return "RADIAL_3_PARAMETERS";
    case RADIAL_6_PARAMETERS: return "RADIAL_6_PARAMETERS";
    case FISHEYE_1_PARAMETER: return "FISHEYE_1_PARAMETER";
    case FISHEYE_4_PARAMETERS: return "FISHEYE_4_PARAMETERS";
  }
  ::AR::Common::fatalAssertFailed("0 && \"Unhandled distortion model\"", kSource,
                                  "std::string CamModel::modelName(DistortionModel)");
}

int maxNumRadialDistortionCoeffs(DistortionModel model) {
  switch (model) {
    case LINEAR: return 0;
    case RADIAL_2_PARAMETERS: return 2;
    case RADIAL_3_PARAMETERS: return 3;
    case RADIAL_6_PARAMETERS: return 6;
    case FISHEYE_1_PARAMETER: return 1;
    case FISHEYE_4_PARAMETERS: return 4;
  }
  ::AR::Common::fatalAssertFailed("0 && \"Unhandled distortion model\"", kSource,
                                  "int CamModel::maxNumRadialDistortionCoeffs(DistortionModel)");
}

template <typename PREC>
bool CameraModel<PREC>::validateCoeffs() const {
  // Every check is written so that a NaN fails it: a NaN focal length, size
  // or principal point is as unusable as a negative one.
  if (!(focalLength(0) > PREC(0)) || !(focalLength(1) > PREC(0))) {
    puts("Error: Focal length should be positive");
    return false;
  }
  if (!(size(0) > PREC(0)) || !(size(1) > PREC(0))) {
    puts("Error: Size must be the image size in pixels");
    return false;
  }
  // Strictly inside: a principal point on the border is rejected.
  if (!(principalPoint(0) > PREC(0)) || !(principalPoint(1) < size(1)) ||
      !(principalPoint(0) < size(0)) || !(principalPoint(1) > PREC(0))) {
    puts("Error: Principal point should be inside the image");
    return false;
  }
  const int n = maxNumRadialDistortionCoeffs(model);
  for (int i = n; i < 6; ++i) {
    if (radialDistortionCoeffs(i) != PREC(0)) {
      printf("Radial distortion vector for model %s must have at most %d nonzero coefficients\n",
             modelName(model).c_str(), n);
      return false;
    }
  }
  if (model == RADIAL_6_PARAMETERS) return true;
  if (model == FISHEYE_1_PARAMETER) {
    // Compared in double against double pi, so the float value of pi (which
    // is slightly above pi) is rejected too.
    const double omega = double(radialDistortionCoeffs(0));
    if (!(omega > 0.0 && omega < 3.141592653589793)) {
      printf("Omega parameter of 1-param fisheye model (%f) must be in the range (0, Pi)\n", omega);
      return false;
    }
  }
  return true;
}

template <typename PREC>
template <typename T>
const T& CameraModel<PREC>::minRSq() {
  // Function-local static: initialised once, thread-safely, on first use.
  static const T MIN_RSQ = T(1e-8);
  return MIN_RSQ;
}

template <typename PREC>
template <typename PREC2>
PREC2 CameraModel<PREC>::distortionFactor(PREC2 rSq) const {
  AR_FATAL_ASSERT(model <= FISHEYE_4_PARAMETERS, "0 && \"Distortion model not implemented\"", kSource,
                  (distortionFactorText<PREC, PREC2>()));
  switch (model) {
    case LINEAR: return PREC2(1);
    case FISHEYE_1_PARAMETER: return distort_1paramFisheye(rSq);
    case FISHEYE_4_PARAMETERS: return distort_4paramFisheye(rSq);
    default: return rationalFactor(radialDistortionCoeffs, rSq);
  }
}

template <typename PREC>
template <typename T>
T CameraModel<PREC>::distort_1paramFisheye(T rSq) const {
  using std::atan;
  using std::sqrt;
  using std::tan;
  // The formula divides by r; lifting tiny squared radii keeps it finite
  // (its limit at 0 is 2 tan(omega/2) / omega).
  const T& MIN_RSQ = minRSq<T>();
  T x = rSq;
  if (x < MIN_RSQ) x = x + MIN_RSQ;
  const T r = sqrt(x);
  const T omega(radialDistortionCoeffs(0));
  const T two(2);
  return atan(two * r * tan(omega / two)) / omega / r;
}

template <typename PREC>
template <typename T>
T CameraModel<PREC>::distort_4paramFisheye(T rSq) const {
  using std::atan;
  using std::sqrt;
  const T& MIN_RSQ = minRSq<T>();
  T x = rSq;
  if (x < MIN_RSQ) x = x + MIN_RSQ;
  const T r = sqrt(x);
  const T k0(radialDistortionCoeffs(0)), k1(radialDistortionCoeffs(1)), k2(radialDistortionCoeffs(2)),
      k3(radialDistortionCoeffs(3));
  // Equidistant projection: the distorted radius is a polynomial in the
  // incidence angle theta, with odd powers only.
  const T theta = atan(r);
  const T theta2 = theta * theta;
  const T theta3 = theta2 * theta;
  const T theta5 = theta3 * theta2;
  const T theta7 = theta5 * theta2;
  const T theta9 = theta7 * theta2;
  const T thetaD = theta + k0 * theta3 + k1 * theta5 + k2 * theta7 + k3 * theta9;
  return thetaD / r;
}

template <typename PREC>
template <typename PREC2>
PREC2 CameraModel<PREC>::undistortionFactor(PREC2 rdSq) const {
  using std::fabs;
  using std::sqrt;
  using std::tan;
  AR_FATAL_ASSERT(model <= FISHEYE_4_PARAMETERS, "0 && \"Undistortion model not implemented\"", kSource,
                  (undistortionFactorText<PREC, PREC2>()));
  if (model == LINEAR) return PREC2(1);
  if (model == FISHEYE_1_PARAMETER) {
    // The field-of-view model has a closed-form inverse.
    const PREC2& MIN_RSQ = minRSq<PREC2>();
    PREC2 y = rdSq;
    if (y < MIN_RSQ) y = y + MIN_RSQ;
    const PREC2 rd = sqrt(y);
    const PREC2 omega(radialDistortionCoeffs(0));
    const PREC2 two(2);
    return tan(omega * rd) / (two * tan(omega / two)) / rd;
  }

  // Fixed-point iteration on the ideal squared radius: r^2 = u^2 rd^2 with
  // u = 1/d(r^2). The estimate is held inside the valid distortion range so
  // the factor is never evaluated where the model is not trusted (beyond a
  // denominator root, say). A NaN estimate fails the comparison and is kept.
  const PREC2 limit(maxValidDistortionRSq);
  const PREC2 one(1);
  const PREC2 tolerance(1e-6);
  const int maxIterations = 200;
  PREC2 est = rdSq;
  PREC2 dPrev(0);
  PREC2 u(1);
  for (int i = 0; i < maxIterations; ++i) {
    const PREC2 d = distortionFactor(est);
    u = one / d;
    est = u * u * rdSq;
    if (est > limit) est = limit;
    // Converged when the factor changed by less than 1e-6 relative to the
    // previous iteration.
    if (i > 0 && fabs(dPrev * u - one) < tolerance) return u;
    dPrev = d;
  }
  // Not converged: the last factor is the best there is.
  return u;
}

template class CameraModel<float>;
template class CameraModel<double>;

using AD = AR::Math::ad<double, 1>;

template AR_EXPORT float CameraModel<float>::distortionFactor<float>(float) const;
template AR_EXPORT double CameraModel<float>::distortionFactor<double>(double) const;
template AR_EXPORT AD CameraModel<float>::distortionFactor<AD>(AD) const;
template AR_EXPORT double CameraModel<double>::distortionFactor<double>(double) const;
template AR_EXPORT AD CameraModel<double>::distortionFactor<AD>(AD) const;

template AR_EXPORT float CameraModel<float>::undistortionFactor<float>(float) const;
template AR_EXPORT double CameraModel<float>::undistortionFactor<double>(double) const;
template AR_EXPORT double CameraModel<double>::undistortionFactor<double>(double) const;

template AR_EXPORT float CameraModel<float>::distort_1paramFisheye<float>(float) const;
template AR_EXPORT double CameraModel<float>::distort_1paramFisheye<double>(double) const;
template AR_EXPORT AD CameraModel<float>::distort_1paramFisheye<AD>(AD) const;
template AR_EXPORT double CameraModel<double>::distort_1paramFisheye<double>(double) const;
template AR_EXPORT AD CameraModel<double>::distort_1paramFisheye<AD>(AD) const;

template AR_EXPORT float CameraModel<float>::distort_4paramFisheye<float>(float) const;
template AR_EXPORT double CameraModel<float>::distort_4paramFisheye<double>(double) const;
template AR_EXPORT AD CameraModel<float>::distort_4paramFisheye<AD>(AD) const;
template AR_EXPORT double CameraModel<double>::distort_4paramFisheye<double>(double) const;
template AR_EXPORT AD CameraModel<double>::distort_4paramFisheye<AD>(AD) const;

}  // namespace CamModel
