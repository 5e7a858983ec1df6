#include <type_traits>

#include "AR/CV/Stereo/RectifyChecks.h"
#include "AR/CV/Stereo/TargetCalibration.h"
#include "AR/Common/Logger.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace CV {
namespace Internal {

namespace {

constexpr const char* kSource = "CV/include/AR/CV/Stereo/Rectify";

// Function texts of the log lines, exactly as g++'s __PRETTY_FUNCTION__
// prints the two instances (template parameter names included).
#define AR_RECTIFY_FUNCTION_TEXT(text) \
  (std::is_same_v<T, float> ? text " [with T = float]" : text " [with T = double]")

template <typename T>
const char* checkMappingFactorText() {
  return AR_RECTIFY_FUNCTION_TEXT(
      "void AR::CV::Internal::checkMappingFactor(const AR::Math::Vector<PREC, 2>&, const "
      "AR::CV::FullStereoCameraCalibration<T>&, const AR::CV::DepthParams<T>&)");
}

template <typename T>
const char* validateStereoRectifyText() {
  return AR_RECTIFY_FUNCTION_TEXT(
      "void AR::CV::Internal::validateStereoRectify(const AR::CV::FullStereoCameraCalibration<T>&, "
      "const AR::CV::FullStereoCameraCalibration<T>&, const AR::Math::SO3<OTHER>&)");
}

bool levelAtLeast(AR::Common::Logger::LEVEL level) {
  return AR::Common::Logger::getInstance().getLevel() >= level;
}

}  // namespace

template <typename T>
void checkMappingFactor(const AR::Math::Vector<T, 2>& imageSize,
                        const FullStereoCameraCalibration<T>& targetCalibration,
                        const DepthParams<T>& depthParams) {
  using Vec2 = AR::Math::Vector<T, 2>;
  using Vec3 = AR::Math::Vector<T, 3>;
  using AR::Common::Logger;
  const char* function = checkMappingFactorText<T>();

  if (levelAtLeast(Logger::LEVEL_VERBOSE))
    Logger::getInstance().logEx2(Logger::LEVEL_VERBOSE, kSource, function, __LINE__, "\tDisparity\tDepth");

  const Camera<T>& left = targetCalibration[0].getIntrinsics();
  const Camera<T>& right = targetCalibration[1].getIntrinsics();
  const AR::Math::SE3<T> T_tr2t = targetCalibration[1].getLocalToCamReference();
  const Vec2 centre = imageSize * T(0.5);

  for (int disparity = 0; disparity < 128; ++disparity) {
    const T disp = T(disparity);
    Vec2 idealLeft, idealRight;
    if (!left.tryPixel2ideal(centre, idealLeft) ||
        !right.tryPixel2ideal(Vec2(centre(0) - disp, centre(1)), idealRight))
      continue;

    const Vec3 originLeft(0, 0, 0);
    const Vec3 directionLeft(idealLeft(0), idealLeft(1), T(1));
    const Vec3 originRight = T_tr2t.translation();
    const Vec3 directionRight =
        T_tr2t.rotation().matrix() * Vec3(idealRight(0), idealRight(1), T(1));

    Vec3 midpoint;
    T depth;
    if (MidPoint::twoPoints(originLeft, directionLeft, originRight, directionRight, midpoint)) {
      depth = midpoint(2);
      if (!(AR::Math::fabs((disp + depthParams.offsetX) * depth - depthParams.constant) < T(0.0001f)))
        AR::Common::logError(
            "AR::Math::fabs((disp + depthParams.offsetX) * depth - depthParams.constant) < 0.0001f",
            kSource, function, __LINE__);
    } else {
      // Parallel rays meet at infinity; 1000 stands for that in the table.
      depth = T(1000);
    }
    if (levelAtLeast(Logger::LEVEL_VERBOSE))
      Logger::getInstance().logEx2(Logger::LEVEL_VERBOSE, kSource, function, __LINE__, "\t%d\t%f",
                                   disparity, double(depth));
  }
}

template <typename T>
void validateStereoRectify(const FullStereoCameraCalibration<T>& calibration,
                           const FullStereoCameraCalibration<T>& targetCalibration,
                           const AR::Math::SO3<T>& R_tl2ol) {
  using Vec2 = AR::Math::Vector<T, 2>;
  using Vec3 = AR::Math::Vector<T, 3>;
  const char* function = validateStereoRectifyText<T>();

  // One unit along the input left optical axis: near the image centre of
  // both input cameras for any real rig, so every projection below is valid.
  const Vec3 p_ol(0, 0, 1);
  Vec2 x_ol, x_or;
  if (!calibration[0].projectCameraToDevicePix(p_ol, x_ol))
    AR::Common::logError("success", kSource, function, __LINE__);
  if (!calibration[1].projectCameraToDevicePix(p_ol, x_or))
    AR::Common::logError("success", kSource, function, __LINE__);

  const Vec3 p_tl = R_tl2ol.matrix().transpose() * p_ol;
  Vec2 x_tl, x_tr;
  if (!targetCalibration[0].projectCameraToDevicePix(p_tl, x_tl))
    AR::Common::logError("success", kSource, function, __LINE__);
  if (!targetCalibration[1].projectCameraToDevicePix(p_tl, x_tr))
    AR::Common::logError("success", kSource, function, __LINE__);

  if (levelAtLeast(AR::Common::Logger::LEVEL_INFO)) {
    AR::Common::logMultilineString("x_tl=" + AR::Math::to_string(x_tl), AR::Common::Logger::LEVEL_INFO);
    AR::Common::logMultilineString("x_tr=" + AR::Math::to_string(x_tr), AR::Common::Logger::LEVEL_INFO);
  }

  // Rectified rows must agree: that is what makes a row-wise disparity search
  // valid. Both bounds below are double constants: a float difference is
  // compared after promotion, so exactly 0.01f (just below 0.01) passes.
  if (!(AR::Math::fabs(x_tl(1) - x_tr(1)) < 1e-2))
    AR::Common::logError("AR::Math::fabs(x_tl(1) - x_tr(1)) < 1e-2", kSource, function, __LINE__);

  // And the rectifying rotation must carry the target ray back to the input pixel.
  Vec2 ideal_tl;
  if (!targetCalibration[0].getIntrinsics().tryPixel2ideal(x_tl, ideal_tl))
    AR::Common::logError("success", kSource, function, __LINE__);
  const Vec3 ray_ol = R_tl2ol.matrix() * Vec3(ideal_tl(0), ideal_tl(1), T(1));
  Vec2 x_ol_reproj;
  if (!calibration[0].projectCameraToDevicePix(ray_ol, x_ol_reproj))
    AR::Common::logError("success", kSource, function, __LINE__);
  if (!(AR::Math::norm(x_ol_reproj - x_ol) < 1e-1))
    AR::Common::logError("AR::Math::norm(x_ol_reproj - x_ol) < 1e-1", kSource, function, __LINE__);
}

#undef AR_RECTIFY_FUNCTION_TEXT

template AR_EXPORT void checkMappingFactor<float>(const AR::Math::Vector<float, 2>&,
                                                  const FullStereoCameraCalibration<float>&,
                                                  const DepthParams<float>&);
template AR_EXPORT void checkMappingFactor<double>(const AR::Math::Vector<double, 2>&,
                                                   const FullStereoCameraCalibration<double>&,
                                                   const DepthParams<double>&);
template AR_EXPORT void validateStereoRectify<float>(const FullStereoCameraCalibration<float>&,
                                                     const FullStereoCameraCalibration<float>&,
                                                     const AR::Math::SO3<float>&);
template AR_EXPORT void validateStereoRectify<double>(const FullStereoCameraCalibration<double>&,
                                                      const FullStereoCameraCalibration<double>&,
                                                      const AR::Math::SO3<double>&);

}  // namespace Internal
}  // namespace CV
}  // namespace AR
