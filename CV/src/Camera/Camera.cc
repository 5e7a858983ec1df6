#include "AR/CV/Camera/Camera.h"

#include <tinyxml2.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "AR/Common/Logger.h"

namespace AR {
namespace CV {

namespace {

constexpr const char* kSource = "CV/src/Camera/Camera";

// The layout is a binary interface: fix every offset.
static_assert(offsetof(CameraIntrinsicsIDL, width) == 0, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, height) == 4, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, principalPoint) == 8, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, focalLength) == 24, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, radialDistortion) == 40, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, tangentialDistortion) == 88, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, distortionLimit) == 104, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, undistortionLimit) == 112, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, distortionModel) == 120, "IDL layout");
static_assert(offsetof(CameraIntrinsicsIDL, padding) == 124, "IDL layout");
static_assert(sizeof(CameraIntrinsicsIDL) == 128, "IDL layout");
static_assert(alignof(CameraIntrinsicsIDL) == 8, "IDL layout");

// Bins the camera allows per spline and the accuracy it aims for.
constexpr size_t kMaxBins = 1024;

/// Truncation toward zero that is defined for every input: saturates at the
/// int32 limits and maps NaN to 0 (a plain cast would be undefined there).
template <typename PREC>
int32_t truncToInt32(PREC v) {
  if (std::isnan(v)) return 0;
  if (v >= PREC(2147483648.0)) return std::numeric_limits<int32_t>::max();
  if (v < PREC(-2147483648.0)) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(v);
}

/// Elements written "%.8g " one after another, trailing blank included.
template <typename PREC, int N>
std::string formatVector(const AR::Math::Vector<PREC, N>& v) {
  std::string text;
  char buffer[32];
  for (int i = 0; i < N; ++i) {
    std::snprintf(buffer, sizeof(buffer), "%.8g ", double(v(i)));
    text += buffer;
  }
  return text;
}

template <typename PREC>
void logInitError(const char* format, double value) {
  if (AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_ERROR)
    AR::Common::Logger::getInstance().logEx2(
        AR::Common::Logger::LEVEL_ERROR, kSource,
        AR_CV_PRETTY(PREC, "bool AR::CV::Camera<PREC>::init(const CamModel::CameraModel<PREC>&)"),
        __LINE__, format, value);
}

}  // namespace

template <typename PREC>
bool Camera<PREC>::init(const Model& model) {
  const char* kFunction =
      AR_CV_PRETTY(PREC, "bool AR::CV::Camera<PREC>::init(const CamModel::CameraModel<PREC>&)");
  // `model` may be this camera's own model; work on a copy.
  const Model m = model;
  // Start from nothing so that a second init refits instead of tripping the
  // splines' fit-once check, and so that a failed init leaves no half state.
  distortionSpline = Spline();
  undistortionSpline = Spline();
  correctedFocalLength = Vec2();
  invFocalLength = Vec2();
  invModelFocalLength = Vec2();

  if (!m.validateCoeffs()) {
    if (AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      AR::Common::Logger::getInstance().logEx2(AR::Common::Logger::LEVEL_ERROR, kSource,
                                               kFunction, __LINE__,
                                               "Cannot initialize camera from invalid intrinsics");
    return false;
  }
  camModel = m;

  // The 6-parameter rational model bends hardest near its valid limit and
  // gets a looser bound. Single-precision constants in both precisions.
  const float threshold = camModel.model == RADIAL_6_PARAMETERS ? 0.01f : 0.002f;
  const PREC eps = PREC(1e-5);

  const PREC rDist = std::sqrt(camModel.maxValidDistortionRSq);
  const PREC errDist = distortionSpline.setupHermiteCoeffs(
      DistortFn<Model>(camModel), Vec2(PREC(0), rDist * rDist), kMaxBins, eps);
  if (!(errDist <= PREC(threshold))) {
    logInitError<PREC>("Relative approximation error in distortion too high (%f)",
                       double(errDist));
    distortionSpline = Spline();
    return false;
  }

  const PREC rUndist = std::sqrt(camModel.maxValidUndistortionRSq);
  const PREC errUndist = undistortionSpline.setupHermiteCoeffs(
      UndistortFn<Model>(camModel), Vec2(PREC(0), rUndist * rUndist), kMaxBins, eps);
  if (!(errUndist <= PREC(threshold))) {
    logInitError<PREC>("Relative approximation error in undistortion too high (%f)",
                       double(errUndist));
    distortionSpline = Spline();
    undistortionSpline = Spline();
    return false;
  }

  PREC distortionAt0 = PREC(0);
  const bool hasDistortionAt0 = distortionSpline.evaluate(PREC(0), distortionAt0);
  if (!(hasDistortionAt0 && distortionAt0 > 0))
    AR::Common::logError("hasDistortionAt0 && distortionAt0>0", kSource, kFunction, __LINE__);

  for (int c = 0; c < 2; ++c) {
    const PREC f = camModel.focalLength(c);
    if (f != PREC(0)) invModelFocalLength(c) = PREC(1) / f;
    correctedFocalLength(c) = f * distortionAt0;
    if (correctedFocalLength(c) != PREC(0)) invFocalLength(c) = PREC(1) / correctedFocalLength(c);
  }

  if (!isInitialized()) AR::Common::logError("isInitialized()", kSource, kFunction, __LINE__);
  return true;
}

template <typename PREC>
bool Camera<PREC>::init(const Vec2& size, const Vec2& focalLength, const Vec2& principalPoint,
                        const Vec6& radial, const Vec2& tangential, DistortionModel model) {
  Model m;
  m.size = size;
  m.principalPoint = principalPoint;
  m.focalLength = focalLength;
  m.radialDistortionCoeffs = radial;
  m.tangentialDistortionCoeffs = tangential;
  m.model = model;
  // A radius of 9 (84 degrees off axis) bounds every model before narrowing.
  m.maxValidDistortionRSq = PREC(81);
  m.maxValidUndistortionRSq = PREC(81);
  m.setupValidDistortionRange();
  return init(m);
}

template <typename PREC>
bool Camera<PREC>::isInitialized() const {
  return distortionSpline.isInit() && undistortionSpline.isInit() && camModel.validateCoeffs();
}

template <typename PREC>
typename Camera<PREC>::Vec2 Camera<PREC>::pixelToDistorted(const Vec2& pixel) const {
  return Vec2((pixel(0) - camModel.principalPoint(0)) * invModelFocalLength(0),
              (pixel(1) - camModel.principalPoint(1)) * invModelFocalLength(1));
}

template <typename PREC>
bool Camera<PREC>::tryDistort(const Vec2& x, Vec2& q) const {
  const PREC r2 = x(0) * x(0) + x(1) * x(1);
  PREC d;
  if (!distortionSpline.evaluate(r2, d)) return false;
  q = Vec2(d * x(0), d * x(1));
  const PREC p1 = camModel.tangentialDistortionCoeffs(0);
  const PREC p2 = camModel.tangentialDistortionCoeffs(1);
  if (p1 != PREC(0) || p2 != PREC(0)) {
    q(0) += PREC(2) * p1 * x(0) * x(1) + p2 * (r2 + PREC(2) * x(0) * x(0));
    q(1) += p1 * (r2 + PREC(2) * x(1) * x(1)) + PREC(2) * p2 * x(0) * x(1);
  }
  return true;
}

template <typename PREC>
bool Camera<PREC>::tryIdeal2pixel(const Vec2& ideal, Vec2& pixel) const {
  Vec2 q;
  if (!tryDistort(ideal, q)) return false;
  pixel = Vec2(q(0) * camModel.focalLength(0) + camModel.principalPoint(0),
               q(1) * camModel.focalLength(1) + camModel.principalPoint(1));
  return true;
}

template <typename PREC>
bool Camera<PREC>::tryUndistortSymmetric(const Vec2& q, Vec2& x) const {
  PREC u;
  if (!undistortionSpline.evaluate(q(0) * q(0) + q(1) * q(1), u)) return false;
  x = Vec2(u * q(0), u * q(1));
  return true;
}

template <typename PREC>
bool Camera<PREC>::tryUndistortTangential(const Vec2& q, Vec2& ideal) const {
  const PREC p1 = camModel.tangentialDistortionCoeffs(0);
  const PREC p2 = camModel.tangentialDistortionCoeffs(1);
  // The tangential offset depends on the ideal point that is being sought:
  // remove the offset of the current estimate, undo the radial part, repeat.
  // Ten lookups settle any realistic lens; more means the point is unusable.
  constexpr int kMaxLookups = 10;
  PREC x0 = PREC(0), x1 = PREC(0);
  PREC t0 = PREC(0), t1 = PREC(0);
  for (int lookup = 0; lookup < kMaxLookups; ++lookup) {
    const PREC s0 = q(0) - t0;
    const PREC s1 = q(1) - t1;
    PREC u;
    if (!undistortionSpline.evaluate(s0 * s0 + s1 * s1, u)) return false;
    const PREC n0 = u * s0;
    const PREC n1 = u * s1;
    const PREC d0 = n0 - x0;
    const PREC d1 = n1 - x1;
    x0 = n0;
    x1 = n1;
    if (d0 * d0 + d1 * d1 < PREC(1e-10)) {
      ideal = Vec2(x0, x1);
      return true;
    }
    const PREC r2 = x0 * x0 + x1 * x1;
    t0 = PREC(2) * p1 * x0 * x1 + p2 * (r2 + PREC(2) * x0 * x0);
    t1 = p1 * (r2 + PREC(2) * x1 * x1) + PREC(2) * p2 * x0 * x1;
  }
  return false;
}

template <typename PREC>
bool Camera<PREC>::tryUndistort(const Vec2& distorted, Vec2& ideal) const {
  if (camModel.tangentialDistortionCoeffs(0) == PREC(0) &&
      camModel.tangentialDistortionCoeffs(1) == PREC(0))
    return tryUndistortSymmetric(distorted, ideal);
  return tryUndistortTangential(distorted, ideal);
}

template <typename PREC>
bool Camera<PREC>::tryPixel2ideal(const Vec2& pixel, Vec2& ideal) const {
  return tryUndistort(pixelToDistorted(pixel), ideal);
}

template <typename PREC>
bool Camera<PREC>::tryProjectToPix(const Vec3& point, Vec2& pixel) const {
  // Points nearer than 0.01 (or behind the camera, or NaN) do not project;
  // the bound is the single-precision 0.01 in both precisions.
  if (!(point(2) >= PREC(0.01f))) return false;
  const PREC inv = PREC(1) / point(2);
  return tryIdeal2pixel(Vec2(inv * point(0), inv * point(1)), pixel);
}

template <typename PREC>
bool Camera<PREC>::tryUnprojectFromPix(const Vec2& pixel, Vec3& point, PREC depth) const {
  if (!(depth > 0))
    AR::Common::logError(
        "depth>0", kSource,
        AR_CV_PRETTY(PREC,
                     "bool AR::CV::Camera<PREC>::tryUnprojectFromPix(const AR::Math::Vector<PREC, "
                     "2>&, AR::Math::Vector<PREC, 3>&, PREC) const"),
        __LINE__);
  Vec2 x;
  if (!tryPixel2ideal(pixel, x)) return false;
  point = Vec3(x(0) * depth, x(1) * depth, depth);
  return true;
}

template <typename PREC>
bool Camera<PREC>::tryUndistortFeatMeasCov(const Vec2& pixel, const Mat2& pixelCov, Vec2& ideal,
                                           Mat2& idealCov) const {
  if (!tryPixel2ideal(pixel, ideal)) return false;
  // One-sided differences of a tenth of a pixel in each direction.
  const Vec2 q = pixelToDistorted(pixel);
  const Vec2 qx(q(0) + PREC(0.1) / camModel.focalLength(0), q(1));
  const Vec2 qy(q(0), q(1) + PREC(0.1) / camModel.focalLength(1));
  Vec2 ix, iy;
  if (!tryUndistort(qx, ix) || !tryUndistort(qy, iy)) return false;
  Mat2 J;
  J(0, 0) = (ix(0) - ideal(0)) * PREC(10);
  J(1, 0) = (ix(1) - ideal(1)) * PREC(10);
  J(0, 1) = (iy(0) - ideal(0)) * PREC(10);
  J(1, 1) = (iy(1) - ideal(1)) * PREC(10);
  idealCov = J * pixelCov * J.transpose();
  return true;
}

template <typename PREC>
bool Camera<PREC>::tryUndistortFeatMeasCov(const Vec2& pixel, PREC variance, Vec2& ideal,
                                           Mat2& idealCov) const {
  return tryUndistortFeatMeasCov(pixel, Mat2(variance, PREC(0), PREC(0), variance), ideal,
                                 idealCov);
}

template <typename PREC>
PREC Camera<PREC>::getFOV(PREC extentPixels) const {
  // Just inside the valid circle: its edge itself is outside the spline.
  const PREC rValid = std::sqrt(camModel.maxValidUndistortionRSq) *
                      (PREC(1) - std::numeric_limits<PREC>::epsilon());
  const PREC rExtent = extentPixels * PREC(0.5) / camModel.focalLength(0);
  const PREC r = std::min(rValid, rExtent);
  PREC u = std::numeric_limits<PREC>::quiet_NaN();
  const bool success = undistortionSpline.evaluate(r * r, u);
  if (!success)
    AR::Common::logError("success", kSource,
                         AR_CV_PRETTY(PREC, "PREC AR::CV::Camera<PREC>::getFOV(PREC) const"),
                         __LINE__);
  return PREC(2) * std::atan(r * u);
}

template <typename PREC>
PREC Camera<PREC>::getFOVPixels() const {
  return (camModel.focalLength(0) + camModel.focalLength(1)) / PREC(2) *
         std::sqrt(undistortionSpline.getRange()(1));
}

template <typename PREC>
CameraIntrinsicsIDL Camera<PREC>::toIDL() const {
  CameraIntrinsicsIDL idl{};
  idl.width = truncToInt32(camModel.size(0));
  idl.height = truncToInt32(camModel.size(1));
  for (int i = 0; i < 2; ++i) {
    idl.principalPoint[i] = double(camModel.principalPoint(i));
    idl.focalLength[i] = double(camModel.focalLength(i));
    idl.tangentialDistortion[i] = double(camModel.tangentialDistortionCoeffs(i));
  }
  for (int i = 0; i < 6; ++i) idl.radialDistortion[i] = double(camModel.radialDistortionCoeffs(i));
  idl.distortionLimit = double(std::sqrt(camModel.maxValidDistortionRSq));
  idl.undistortionLimit = double(std::sqrt(camModel.maxValidUndistortionRSq));
  idl.distortionModel = static_cast<uint32_t>(camModel.model);
  idl.padding = 0;
  return idl;
}

template <typename PREC>
tinyxml2::XMLElement* Camera<PREC>::toXMLNode(tinyxml2::XMLDocument& doc,
                                              const XMLFormat& format) const {
  tinyxml2::XMLElement* element = doc.NewElement("Calibration");
  element->SetAttribute("size", formatVector(camModel.size).c_str());
  element->SetAttribute("principal_point", formatVector(camModel.principalPoint).c_str());
  element->SetAttribute("focal_length", formatVector(camModel.focalLength).c_str());

  const bool writeOld = format == XML_FORMAT_OLD || format == XML_FORMAT_BOTH;
  const bool writeCurrent = format == XML_FORMAT_CURRENT || format == XML_FORMAT_BOTH;
  if (!writeOld && !writeCurrent)
    AR::Common::logError(
        "0 && \"Unhandled enum option\"", kSource,
        AR_CV_PRETTY(PREC,
                     "tinyxml2::XMLElement* AR::CV::Camera<PREC>::toXMLNode(tinyxml2::XMLDocument&, "
                     "const XMLFormat&) const"),
        __LINE__);

  if (writeOld) {
    AR::Math::Vector<PREC, 8> old8;
    OLD_DISTORTION_MODE oldMode = OLD_DISTORTION_NONE;
    getOldDistortionVec(camModel.model, camModel.tangentialDistortionCoeffs,
                        camModel.radialDistortionCoeffs, old8, oldMode);
    element->SetAttribute("radial_distortion_8", formatVector(old8).c_str());
    if (oldMode == OLD_DISTORTION_FISHEYE_4) element->SetAttribute("fish_eye", "true");
  }
  if (writeCurrent) {
    element->SetAttribute("model", CamModel::modelName(camModel.model).c_str());
    element->SetAttribute("radial_distortion",
                          formatVector(camModel.radialDistortionCoeffs).c_str());
    element->SetAttribute("distortion_limit", double(std::sqrt(camModel.maxValidDistortionRSq)));
    element->SetAttribute("undistortion_limit",
                          double(std::sqrt(camModel.maxValidUndistortionRSq)));
    if (camModel.tangentialDistortionCoeffs(0) != PREC(0) ||
        camModel.tangentialDistortionCoeffs(1) != PREC(0))
      element->SetAttribute("tangential_distortion",
                            formatVector(camModel.tangentialDistortionCoeffs).c_str());
  }
  return element;
}

template <typename PREC>
void getOldDistortionVec(DistortionModel model, const AR::Math::Vector<PREC, 2>& tangential,
                         const AR::Math::Vector<PREC, 6>& radial, AR::Math::Vector<PREC, 8>& out8,
                         OLD_DISTORTION_MODE& oldMode) {
  const PREC p1 = tangential(0);
  const PREC p2 = tangential(1);
  out8 = AR::Math::Vector<PREC, 8>();
  out8(2) = p1;
  out8(3) = p2;
  oldMode = OLD_DISTORTION_NONE;

  AR::Math::Vector<PREC, 6> k = radial;
  if (model >= RADIAL_2_PARAMETERS && model <= FISHEYE_4_PARAMETERS) {
    // The old format reads a zero as "coefficient absent".
    const int n = CamModel::maxNumRadialDistortionCoeffs(model);
    for (int i = 0; i < n; ++i)
      if (k(i) == PREC(0)) k(i) = PREC(1e-8);
  }
  const int withTangential = (p1 * p1 + p2 * p2 == PREC(0)) ? 0 : 1;
  switch (model) {
    case LINEAR:
      oldMode = OLD_DISTORTION_NONE;
      break;
    case RADIAL_2_PARAMETERS:
    case RADIAL_3_PARAMETERS:
    case RADIAL_6_PARAMETERS:
      out8 = AR::Math::Vector<PREC, 8>(k(0), k(1), p1, p2, k(2), k(3), k(4), k(5));
      oldMode = static_cast<OLD_DISTORTION_MODE>(
          (model == RADIAL_2_PARAMETERS ? 2 : model == RADIAL_3_PARAMETERS ? 4 : 6) +
          withTangential);
      break;
    case FISHEYE_1_PARAMETER:
      out8(0) = k(0);
      oldMode = OLD_DISTORTION_FOV;
      break;
    case FISHEYE_4_PARAMETERS:
      for (int i = 0; i < 4; ++i) out8(i) = k(i);
      oldMode = OLD_DISTORTION_FISHEYE_4;
      break;
    default:
      AR::Common::logError(
          "0 && \"Unhandled enum option\"", kSource,
          AR_CV_PRETTY(PREC,
                       "void AR::CV::getOldDistortionVec(DistortionModel, const "
                       "AR::Math::Vector<PREC, 2>&, const AR::Math::Vector<PREC, 6>&, "
                       "AR::Math::Vector<PREC, 8>&, AR::CV::OLD_DISTORTION_MODE&)"),
          __LINE__);
      break;
  }
}

template class Camera<float>;
template class Camera<double>;
template AR_EXPORT void getOldDistortionVec<float>(DistortionModel, const AR::Math::Vector<float, 2>&,
                                                   const AR::Math::Vector<float, 6>&,
                                                   AR::Math::Vector<float, 8>&,
                                                   OLD_DISTORTION_MODE&);
template AR_EXPORT void getOldDistortionVec<double>(DistortionModel,
                                                    const AR::Math::Vector<double, 2>&,
                                                    const AR::Math::Vector<double, 6>&,
                                                    AR::Math::Vector<double, 8>&,
                                                    OLD_DISTORTION_MODE&);

}  // namespace CV
}  // namespace AR
