#include <cmath>
#include <cstdint>
#include <type_traits>

#include "AR/CV/Stereo/TargetCalibration.h"
#include "AR/Common/Logger.h"
#include "AR/Common/RefCounter.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace CV {

namespace {

constexpr const char* kSource = "CV/include/AR/CV/Stereo/Rectify";

// Function texts of the log lines, exactly as g++'s __PRETTY_FUNCTION__
// prints the two instances (template parameter names included).
#define AR_TARGET_FUNCTION_TEXT(PARAM, text)                                             \
  (std::is_same_v<PARAM, float> ? text " [with " #PARAM " = float; uint32_t = unsigned int]" \
                                : text " [with " #PARAM " = double; uint32_t = unsigned int]")

template <typename FloatType>
const char* makeTargetCalibrationText() {
  return AR_TARGET_FUNCTION_TEXT(
      FloatType,
      "void AR::CV::makeTargetCalibration(const FullStereoCameraCalibration<T>&, uint32_t, FloatType, "
      "FloatType, uint32_t, const AR::Math::SE3<OTHER>&, const AR::Math::Vector<PREC, 3>&, "
      "FullStereoCameraCalibration<T>&, AR::Math::SO3<OTHER>&, DepthParams<T>&)");
}

template <typename SFType>
const char* setupTargetIntrinsicsText() {
  return AR_TARGET_FUNCTION_TEXT(
      SFType,
      "AR::CV::TargetIntrinsicsParams<SFType> AR::CV::Internal::setupTargetIntrinsics(uint32_t, SFType, "
      "SFType, SFType)");
}

template <typename FloatType>
const char* leanTowardsDirectionText() {
  return std::is_same_v<FloatType, float>
             ? "void AR::CV::Internal::leanTowardsDirection(const AR::Math::SE3<OTHER>&, const "
               "AR::Math::Vector<PREC, 3>&, const CamModel::CameraModel<PREC> (&)[2], "
               "AR::CV::FullStereoCameraCalibration<T>&, AR::Math::SO3<OTHER>&) [with FloatType = float]"
             : "void AR::CV::Internal::leanTowardsDirection(const AR::Math::SE3<OTHER>&, const "
               "AR::Math::Vector<PREC, 3>&, const CamModel::CameraModel<PREC> (&)[2], "
               "AR::CV::FullStereoCameraCalibration<T>&, AR::Math::SO3<OTHER>&) [with FloatType = double]";
}

#undef AR_TARGET_FUNCTION_TEXT

bool levelAtLeast(AR::Common::Logger::LEVEL level) {
  return AR::Common::Logger::getInstance().getLevel() >= level;
}

/// A float truncated towards zero into uint32_t without the undefined
/// conversion of a negative, NaN or too large value (those saturate; NaN
/// gives 0).
template <typename T>
uint32_t truncateToUnsigned(T value) {
  if (!(value >= T(0))) return 0u;
  if (value >= T(4294967296.0)) return UINT32_MAX;
  return static_cast<uint32_t>(value);
}

/// Angle between two directions with the rounded cosine clamped into the
/// domain of acos (pi below -1, 0 above 1).
template <typename T>
T angleBetween(const AR::Math::Vector<T, 3>& a, const AR::Math::Vector<T, 3>& b) {
  const T c = AR::Math::dot(a, b) / std::sqrt(AR::Math::squaredNorm(a) * AR::Math::squaredNorm(b));
  if (c < T(-1)) return AR::Math::pi<T>();
  if (c > T(1)) return T(0);
  return std::acos(c);
}

/// A distortion-free target camera model with both validity limits at 81 and
/// its valid range set up (which leaves a distortion-free model unchanged).
template <typename T>
CamModel::CameraModel<T> makeTargetModel(const AR::Math::Vector<T, 2>& size, const AR::Math::Vector<T, 2>& focal,
                                         const AR::Math::Vector<T, 2>& principalPoint) {
  CamModel::CameraModel<T> model;
  model.size = size;
  model.principalPoint = principalPoint;
  model.focalLength = focal;
  model.radialDistortionCoeffs = AR::Math::Vector<T, 6>();
  model.tangentialDistortionCoeffs = AR::Math::Vector<T, 2>();
  model.model = LINEAR;
  model.maxValidDistortionRSq = T(81);
  model.maxValidUndistortionRSq = T(81);
  model.setupValidDistortionRange();
  return model;
}

}  // namespace

namespace Internal {

template <typename SFType>
TargetIntrinsicsParams<SFType> setupTargetIntrinsics(uint32_t numDisparities, SFType minDepth, SFType maxDepth,
                                                     SFType baselineFocal) {
  if (minDepth > maxDepth)
    AR::Common::logError("minDepth <= maxDepth", kSource, setupTargetIntrinsicsText<SFType>(), __LINE__);

  TargetIntrinsicsParams<SFType> params;
  if (minDepth > SFType(0)) {
    // depth = constant / (d + offsetX) with constant = baselineFocal *
    // focalScale: d = 0 must give maxDepth and d = N minDepth, which fixes
    // offsetX = N / (maxDepth / minDepth - 1) and constant = offsetX * maxDepth.
    params.offsetX = SFType(numDisparities) / (maxDepth / minDepth - SFType(1));
    params.focalScale = params.offsetX * maxDepth / baselineFocal;
  } else {
    params.offsetX = SFType(0);
    params.focalScale = SFType(1);
  }
  return params;
}

template <typename FloatType>
void leanTowardsDirection(const AR::Math::SE3<FloatType>& T_ol2ref,
                          const AR::Math::Vector<FloatType, 3>& desiredDirection,
                          const CamModel::CameraModel<FloatType> (&targetModels)[2],
                          FullStereoCameraCalibration<FloatType>& targetCalibration,
                          AR::Math::SO3<FloatType>& R_tl2ol) {
  using T = FloatType;
  using Vec2 = AR::Math::Vector<T, 2>;
  using Vec3 = AR::Math::Vector<T, 3>;
  const char* function = leanTowardsDirectionText<T>();

  const Vec3 dir_ol = T_ol2ref.rotation().matrix().transpose() * desiredDirection;
  const Vec3 newDir_tl = AR::Math::unit(R_tl2ol.matrix().transpose() * dir_ol);
  const Vec3 currentDir_tl(0, 0, 1);

  const T angleFromTargetBefore = angleBetween(currentDir_tl, newDir_tl);
  if (!(angleFromTargetBefore < T(AR_PI / 4)))
    AR::Common::logError("angleFromTargetBefore < FloatType(AR_PI/4)", kSource, function, __LINE__);
  if (!(AR::Math::dot(currentDir_tl, newDir_tl) > T(0)))
    AR::Common::logError("Math::dot(currentDir_tl, newDir_tl) > 0", kSource, function, __LINE__);

  // Only a rotation about the baseline keeps the pair rectified, so both
  // directions are projected into the plane normal to it first.
  const Vec3 baselineDir_target_t =
      AR::Math::unit(targetCalibration[1].getCamReferenceToLocal().translation());
  const Vec3 nearNewDir_tl = AR::Math::perpendicular(baselineDir_target_t, newDir_tl);
  const Vec3 nearCurrentDir_tl = AR::Math::perpendicular(baselineDir_target_t, currentDir_tl);
  if (!(AR::Math::dot(nearNewDir_tl, nearCurrentDir_tl) > T(0)))
    AR::Common::logError("Math::dot(nearNewDir_tl, nearCurrentDir_tl) > 0", kSource, function, __LINE__);

  const AR::Math::SO3<T> E = AR::Math::SO3<T>::exp(AR::Math::makeso3FromTo(nearCurrentDir_tl, nearNewDir_tl));
  R_tl2ol = AR::Math::SO3<T>(R_tl2ol.matrix() * E.matrix());

  const T angleFromTargetAfter = angleBetween(Vec3(R_tl2ol.matrix().transpose() * dir_ol), currentDir_tl);
  if (!(angleFromTargetAfter < angleFromTargetBefore))
    AR::Common::logError("angleFromTargetBefore > angleFromTargetAfter", kSource, function, __LINE__);
  if (levelAtLeast(AR::Common::Logger::LEVEL_DEBUG))
    AR::Common::Logger::getInstance().logEx2(AR::Common::Logger::LEVEL_DEBUG, kSource, function, __LINE__,
                                             "Target calibration angle from desired direction %frads; was %frads.",
                                             double(angleFromTargetAfter), double(angleFromTargetBefore));

  // The principal point moves to the pixel at which the turned optical axis
  // appeared in the unturned target image.
  const Vec3 q = E.matrix() * Vec3(0, 0, 1);
  if (q(2) < T(0.01)) {
    // Keeps the principal points of the unrotated target.
    AR::Common::logError("0 && \"Principal point moved outside FOV. Rotation too large\"", kSource, function,
                         __LINE__);
    return;
  }
  const T x = q(0) / q(2);
  const T y = q(1) / q(2);
  const Camera<T>& left = targetCalibration[0].getIntrinsics();
  const T rSq = x * x + y * y;
  T factor;
  if (!left.getDistortionSpline().evaluate(rSq, factor)) {
    AR::Common::logError("0 && \"Principal point moved outside FOV. Rotation too large\"", kSource, function,
                         __LINE__);
    return;
  }
  Vec2 distorted(x * factor, y * factor);
  const Vec2& tangential = left.getTangentialDistortionCoeffs();
  if (tangential(0) != T(0) || tangential(1) != T(0)) {
    distorted(0) += T(2) * tangential(0) * x * y + tangential(1) * (rSq + T(2) * x * x);
    distorted(1) += tangential(0) * (rSq + T(2) * y * y) + T(2) * tangential(1) * x * y;
  }
  const Vec2& focal = left.getOriginalFocalLength();
  const Vec2& principal = left.getPrincipalPoint();
  const Vec2 newPrincipalPoint(distorted(0) * focal(0) + principal(0), distorted(1) * focal(1) + principal(1));

  // Both cameras get the same principal point: the right camera's disparity
  // offset is deliberately not carried over by this step.
  for (size_t i = 0; i < 2; ++i) {
    CamModel::CameraModel<T> model = targetModels[i];
    model.size = Vec2(std::trunc(model.size(0)), std::trunc(model.size(1)));
    model.principalPoint = newPrincipalPoint;
    model.maxValidDistortionRSq = T(81);
    model.maxValidUndistortionRSq = T(81);
    model.setupValidDistortionRange();
    AR::Common::RefCounted<Camera<T>> camera = AR::Common::makeRefCounted<Camera<T>>();
    if (!camera->init(model)) AR::Common::logError("0", kSource, function, __LINE__);
    targetCalibration[i].setIntrinsics(camera);
  }
}

}  // namespace Internal

namespace {

/// The computation of makeTargetCalibration. With a non-null `refusal` each
/// normalisation that would abort is tested first on the very value it
/// normalises, and the computation stops there with the reason.
template <typename FloatType>
bool targetCalibrationSteps(const FullStereoCameraCalibration<FloatType>& calibration,
                            const uint32_t numDisparities, const FloatType minDepth, const FloatType maxDepth,
                            const uint32_t targetImageWidth, const AR::Math::SE3<FloatType>& T_ol2ref,
                            const AR::Math::Vector<FloatType, 3>& desiredDirection,
                            FullStereoCameraCalibration<FloatType>& targetCalibration,
                            AR::Math::SO3<FloatType>& R_tl2ol, DepthParams<FloatType>& depthParams,
                            const char** refusal) {
  using T = FloatType;
  using Vec2 = AR::Math::Vector<T, 2>;
  using Vec3 = AR::Math::Vector<T, 3>;
  using Mat3 = AR::Math::Matrix<T, 3, 3>;
  const char* function = makeTargetCalibrationText<T>();

  // 1. Baseline length from the right camera's pose.
  const AR::Math::SE3<T>& T_ol2or = calibration[1].getCamReferenceToLocal();
  const T baseline = AR::Math::norm(T_ol2or.translation());

  // 2.-3. The target keeps the vertical field of view of the left centre column.
  const Camera<T>& leftInput = calibration[0].getIntrinsics();
  const Vec2 size = leftInput.getSize();
  Vec2 idealTop, idealBottom;
  if (!leftInput.tryPixel2ideal(Vec2(size(0) / T(2), T(0)), idealTop) ||
      !leftInput.tryPixel2ideal(Vec2(size(0) / T(2), size(1)), idealBottom))
    AR::Common::logError("0", kSource, function, __LINE__);
  const T f = size(1) / AR::Math::norm(idealTop - idealBottom);

  // 4. Horizontal focal scale and principal-point offset from the depth range.
  const T baselineFocal = baseline * f;
  const TargetIntrinsicsParams<T> intrinsics =
      Internal::setupTargetIntrinsics<T>(numDisparities, minDepth, maxDepth, baselineFocal);

  // 5. Target width.
  T targetWidth = size(0);
  if (targetImageWidth != 0u) {
    if (truncateToUnsigned(size(0)) < targetImageWidth)
      AR::Common::logError("targetImageWidth == 0u || targetImageWidth <= static_cast<uint32_t>(size(0))",
                           kSource, function, __LINE__);
    targetWidth = T(targetImageWidth);
  }
  const Vec2 targetSize(targetWidth, size(1));

  // 6. Distortion-free target models; fx != fy whenever the disparity range
  // was fitted to the depth range.
  const Vec2 targetFocal(f * intrinsics.focalScale, f);
  const CamModel::CameraModel<T> targetModels[2] = {
      makeTargetModel(targetSize, targetFocal, Vec2(targetWidth / T(2), size(1) / T(2))),
      makeTargetModel(targetSize, targetFocal, Vec2(targetWidth / T(2) + intrinsics.offsetX, size(1) / T(2)))};

  // 7. The target pair: "left" at the origin, "right" at (-baseline, 0, 0).
  targetCalibration.setupEmptyCalibrationWithDefaultIds(2);
  AR::Math::SE3<T> identityPose;
  const bool init1 =
      targetCalibration[0].init(targetModels[0], identityPose, CamImageId("left"), false, T(0), CaptureDetails(), 0.0);
  const AR::Math::SE3<T> rightPose(AR::Math::SO3<T>(), Vec3(-baseline, T(0), T(0)));
  const bool init2 =
      targetCalibration[1].init(targetModels[1], rightPose, CamImageId("right"), false, T(0), CaptureDetails(), 0.0);
  if (!(init1 && init2)) AR::Common::logError("init1 && init2", kSource, function, __LINE__);

  // 8. The input left camera must define the rig's frame.
  const AR::Math::SE3<T>& T_ol2ol = calibration[0].getCamReferenceToLocal();
  if (!AR::Math::isIdentity(T_ol2ol.rotation().matrix()))
    AR::Common::logError("Math::isIdentity(T_ol2ol.rotation().matrix())", kSource, function, __LINE__);
  if (!(AR::Math::norm(T_ol2ol.translation()) == T(0)))
    AR::Common::logError("Math::norm(T_ol2ol.translation())==0", kSource, function, __LINE__);

  // 9. Half of the relative rotation: each camera turns by the same amount.
  const Mat3& R_r = T_ol2or.rotation().matrix();
  Vec3 axis;
  T angle;
  AR::Math::matrix2AxisAngle(R_r, axis, angle);
  const Vec3 omega = axis * (T(0.5) * angle);
  const AR::Math::SO3<T> R_half = AR::Math::SO3<T>::exp(omega);

  // 10. The baseline in input-left coordinates, half-rotated.
  const Vec3 baselineVec_ol = R_r.transpose() * T_ol2or.translation();
  const Vec3 uPrime = R_half.matrix() * baselineVec_ol;
  if (levelAtLeast(AR::Common::Logger::LEVEL_DEBUG))
    AR::Common::logMultilineString(AR::Math::to_string(uPrime), AR::Common::Logger::LEVEL_DEBUG);

  // 11.-12. Rotation A that turns the half-rotated baseline onto the target
  // baseline direction.
  if (refusal != nullptr && !(AR::Math::norm(uPrime) > T(0))) {
    *refusal = "the baseline between the two cameras is zero or not a number in single precision";
    return false;
  }
  const Vec3 u = AR::Math::unit(uPrime);
  const Vec3& targetBaseline = targetCalibration[1].getCamReferenceToLocal().translation();
  if (refusal != nullptr && !(AR::Math::norm(targetBaseline) > T(0))) {
    *refusal = "the rectified pair has no baseline (its right camera could not be built)";
    return false;
  }
  const Vec3 baselineDir_target_t = AR::Math::unit(targetBaseline);
  Vec3 a = AR::Math::cross(u, baselineDir_target_t);
  if (AR::Math::isZero(a)) {
    a = Vec3(-u(1), u(0), u(2));
  } else {
    if (refusal != nullptr && !(AR::Math::squaredNorm(a) > T(0))) {
      *refusal = "the baseline direction is not a number, or too nearly parallel to the rectified baseline "
                 "for single precision";
      return false;
    }
    AR::Math::normalize(a);
  }
  const T alpha = std::acos(AR::Math::dot(u, baselineDir_target_t));
  const AR::Math::SO3<T> A = AR::Math::SO3<T>::exp(a * alpha);

  // 13. The rectifying rotation. The product order R_half * A is the
  // established one; it aligns the baseline to first order in R_half, which
  // the tolerance of the check below absorbs for real rigs.
  const Mat3 product = R_half.matrix() * A.matrix();
  R_tl2ol = AR::Math::SO3<T>(product.transpose());

  // 14.-15. The baseline seen from the target frame must lie along -x (the
  // bound is the double constant 0.0001, compared after promotion).
  const Vec3 v = R_tl2ol.matrix().transpose() * baselineVec_ol;
  if (levelAtLeast(AR::Common::Logger::LEVEL_DEBUG))
    AR::Common::logMultilineString(AR::Math::to_string(v), AR::Common::Logger::LEVEL_DEBUG);
  if (refusal != nullptr && !(AR::Math::norm(v) > T(0))) {
    *refusal = "the baseline vanishes or is not a number after rectification in single precision";
    return false;
  }
  if (!(AR::Math::fabs(AR::Math::dot(AR::Math::unit(v), baselineDir_target_t) - T(1)) < 0.0001))
    AR::Common::logError(
        "(Math::fabs(Math::dot(Math::unit(R_tl2ol.inverse()*baselineVec_ol), baselineDir_target_t) - 1)) < "
        "0.0001",
        kSource, function, __LINE__);

  // 16. Optional lean towards a desired direction (not covered by the
  // checked variant, which refuses it up front).
  if (!AR::Math::isZero(desiredDirection))
    Internal::leanTowardsDirection(T_ol2ref, desiredDirection, targetModels, targetCalibration, R_tl2ol);

  // 17. depth = baseline * fx / (disparity + offsetX).
  depthParams.constant = baselineFocal * intrinsics.focalScale;
  depthParams.offsetX = intrinsics.offsetX;

  // 18. Self-checks (log only).
  Internal::checkMappingFactor(targetSize, targetCalibration, depthParams);
  Internal::validateStereoRectify(calibration, targetCalibration, R_tl2ol);
  return true;
}

}  // namespace

template <typename FloatType>
void makeTargetCalibration(const FullStereoCameraCalibration<FloatType>& calibration, const uint32_t numDisparities,
                           const FloatType minDepth, const FloatType maxDepth, const uint32_t targetImageWidth,
                           const AR::Math::SE3<FloatType>& T_ol2ref,
                           const AR::Math::Vector<FloatType, 3>& desiredDirection,
                           FullStereoCameraCalibration<FloatType>& targetCalibration,
                           AR::Math::SO3<FloatType>& R_tl2ol, DepthParams<FloatType>& depthParams) {
  targetCalibrationSteps(calibration, numDisparities, minDepth, maxDepth, targetImageWidth, T_ol2ref,
                         desiredDirection, targetCalibration, R_tl2ol, depthParams, nullptr);
}

namespace Internal {

template <typename FloatType>
bool tryMakeTargetCalibration(const FullStereoCameraCalibration<FloatType>& calibration,
                              const uint32_t numDisparities, const FloatType minDepth, const FloatType maxDepth,
                              const uint32_t targetImageWidth, const AR::Math::SE3<FloatType>& T_ol2ref,
                              const AR::Math::Vector<FloatType, 3>& desiredDirection,
                              FullStereoCameraCalibration<FloatType>& targetCalibration,
                              AR::Math::SO3<FloatType>& R_tl2ol, DepthParams<FloatType>& depthParams,
                              const char*& refusal) {
  refusal = nullptr;
  if (!AR::Math::isZero(desiredDirection)) {
    refusal = "leaning towards a desired direction is not checked";
    return false;
  }
  return targetCalibrationSteps(calibration, numDisparities, minDepth, maxDepth, targetImageWidth, T_ol2ref,
                                desiredDirection, targetCalibration, R_tl2ol, depthParams, &refusal);
}

template AR_EXPORT bool tryMakeTargetCalibration<float>(
    const FullStereoCameraCalibration<float>&, const uint32_t, const float, const float, const uint32_t,
    const AR::Math::SE3<float>&, const AR::Math::Vector<float, 3>&, FullStereoCameraCalibration<float>&,
    AR::Math::SO3<float>&, DepthParams<float>&, const char*&);
template AR_EXPORT bool tryMakeTargetCalibration<double>(
    const FullStereoCameraCalibration<double>&, const uint32_t, const double, const double, const uint32_t,
    const AR::Math::SE3<double>&, const AR::Math::Vector<double, 3>&, FullStereoCameraCalibration<double>&,
    AR::Math::SO3<double>&, DepthParams<double>&, const char*&);

}  // namespace Internal

template AR_EXPORT void makeTargetCalibration<float>(const FullStereoCameraCalibration<float>&, const uint32_t,
                                                     const float, const float, const uint32_t,
                                                     const AR::Math::SE3<float>&, const AR::Math::Vector<float, 3>&,
                                                     FullStereoCameraCalibration<float>&, AR::Math::SO3<float>&,
                                                     DepthParams<float>&);
template AR_EXPORT void makeTargetCalibration<double>(const FullStereoCameraCalibration<double>&, const uint32_t,
                                                      const double, const double, const uint32_t,
                                                      const AR::Math::SE3<double>&,
                                                      const AR::Math::Vector<double, 3>&,
                                                      FullStereoCameraCalibration<double>&, AR::Math::SO3<double>&,
                                                      DepthParams<double>&);

namespace Internal {
template AR_EXPORT TargetIntrinsicsParams<float> setupTargetIntrinsics<float>(uint32_t, float, float, float);
template AR_EXPORT TargetIntrinsicsParams<double> setupTargetIntrinsics<double>(uint32_t, double, double, double);
template AR_EXPORT void leanTowardsDirection<float>(const AR::Math::SE3<float>&, const AR::Math::Vector<float, 3>&,
                                                    const CamModel::CameraModel<float> (&)[2],
                                                    FullStereoCameraCalibration<float>&, AR::Math::SO3<float>&);
template AR_EXPORT void leanTowardsDirection<double>(const AR::Math::SE3<double>&,
                                                     const AR::Math::Vector<double, 3>&,
                                                     const CamModel::CameraModel<double> (&)[2],
                                                     FullStereoCameraCalibration<double>&, AR::Math::SO3<double>&);
}  // namespace Internal

}  // namespace CV
}  // namespace AR
