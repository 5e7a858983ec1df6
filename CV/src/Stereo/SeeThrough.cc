#include "AR/CV/Stereo/SeeThrough.h"

#include <string>

#include "AR/Common/Logger.h"
#include "AR/Math/CheckedConversion.h"
#include "AR/Math/Constants.h"
#include "CameraModel/CameraModel.h"
#include "StereoRectifyWrapperTypes.h"

namespace AR {
namespace CV {

namespace {

// The see-through calibration is part of the rectification module; its
// messages name that module's header.
constexpr char kSource[] = "CV/include/AR/CV/Stereo/Rectify";

// A failed camera initialisation is reported the way the success assertion
// of the common macros reports it.
constexpr char kAssertSuccessSource[] = "Common/include/AR/Common/Macros";
constexpr char kAssertSuccessFunction[] = "void assertSuccess(const bool)";
constexpr int kAssertSuccessLine = 52;

// Validity limits of a model before narrowing: a radius of 9 in the ideal
// plane. A distortion-free eye keeps them.
constexpr float kFullValidRSq = 81.0f;

template <typename FloatType>
struct SeeThroughNames;

template <>
struct SeeThroughNames<float> {
  static constexpr const char* function =
      "void AR::CV::makeSeeThroughCalibration(const AR::CV::FullStereoCameraCalibration<FloatType>&, "
      "const CameraCalibrationMRV&, const CameraCalibrationMRV&, const AR::Math::SE3<FloatType>&, "
      "AR::CV::FullStereoCameraCalibration<FloatType>&, std::array<AR::Math::SE3<FloatType>, 2>&) "
      "[with FloatType = float]";
};

template <>
struct SeeThroughNames<double> {
  static constexpr const char* function =
      "void AR::CV::makeSeeThroughCalibration(const AR::CV::FullStereoCameraCalibration<FloatType>&, "
      "const CameraCalibrationMRV&, const CameraCalibrationMRV&, const AR::Math::SE3<FloatType>&, "
      "AR::CV::FullStereoCameraCalibration<FloatType>&, std::array<AR::Math::SE3<FloatType>, 2>&) "
      "[with FloatType = double]";
};

bool debugEnabled() {
  return AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_DEBUG;
}

/// Vector text for the log. The text form exists for float vectors; double
/// vectors print through their float values (six decimals either way).
template <typename FloatType, int N>
std::string vectorText(const AR::Math::Vector<FloatType, N>& v) {
  return AR::Math::to_string(v.template cast<float>());
}

/// The distortion-free camera of one display eye: the record's size and
/// focal lengths, the principal point at the image centre. The record's own
/// principal point is not used: the eye image is rendered centred.
template <typename FloatType>
CamModel::CameraModel<FloatType> eyeModel(const AR::Math::Vector<FloatType, 2>& size,
                                          const CameraCalibrationMRV& eye) {
  CamModel::CameraModel<FloatType> model;
  model.model = LINEAR;
  model.size = size;
  model.principalPoint = size * FloatType(0.5);
  model.focalLength = AR::Math::Vector<FloatType, 2>(AR::Math::roundToPrecision<FloatType>(eye.fx),
                                                     AR::Math::roundToPrecision<FloatType>(eye.fy));
  model.radialDistortionCoeffs = AR::Math::Vector<FloatType, 6>();
  model.tangentialDistortionCoeffs = AR::Math::Vector<FloatType, 2>();
  model.maxValidDistortionRSq = FloatType(kFullValidRSq);
  model.maxValidUndistortionRSq = FloatType(kFullValidRSq);
  model.setupValidDistortionRange();
  return model;
}

/// Eye pose of a record (eye-from-device): the quaternion normalised (a zero
/// quaternion is a fatal error), turned into its rotation matrix and
/// re-orthogonalised once; the translation is the record's position.
template <typename FloatType>
AR::Math::SE3<FloatType> eyePose(const XrPosedMRV_t& pose) {
  // Record doubles beyond the float range become infinities, never an
  // undefined conversion.
  const auto narrow = [](double value) { return AR::Math::roundToPrecision<FloatType>(value); };
  AR::Math::Vector<FloatType, 4> q(narrow(pose.orientation.x), narrow(pose.orientation.y),
                                   narrow(pose.orientation.z), narrow(pose.orientation.w));
  AR::Math::normalize(q);
  const FloatType x = q(0), y = q(1), z = q(2), w = q(3);
  const FloatType one(1), two(2);
  const AR::Math::Matrix<FloatType, 3, 3> R(
      one - two * (y * y + z * z), two * (x * y - z * w), two * (x * z + y * w),  //
      two * (x * y + z * w), one - two * (x * x + z * z), two * (y * z - x * w),  //
      two * (x * z - y * w), two * (y * z + x * w), one - two * (x * x + y * y));
  // The SO3 constructor applies the single enforceRotation step.
  return AR::Math::SE3<FloatType>(
      AR::Math::SO3<FloatType>(R),
      AR::Math::Vector<FloatType, 3>(narrow(pose.position.x), narrow(pose.position.y),
                                     narrow(pose.position.z)));
}

/// The rotation by pi about x: the eye frame of the records looks along -z
/// with y up, a camera looks along +z with y down. Built by the exponential
/// map from the single-precision pi, as the float pipeline builds it: its
/// squared angle is 9.869605 in float; the double instance squares that same
/// pi in double (9.86960495...).
template <typename FloatType>
AR::Math::SE3<FloatType> flipAboutX() {
  const FloatType pi = FloatType(AR_PI);
  return AR::Math::SE3<FloatType>::exp(AR::Math::Vector<FloatType, 6>(
      FloatType(0), FloatType(0), FloatType(0), pi, FloatType(0), FloatType(0)));
}

template <typename FloatType>
void initEyeCamera(FullCamera<FloatType>& camera, const CamModel::CameraModel<FloatType>& model,
                   const AR::Math::SE3<FloatType>& pose, const char* id) {
  const bool result =
      camera.init(model, pose, CamImageId(id), false, FloatType(0), CaptureDetails(), 0.0);
  if (!result)
    AR::Common::logError("result", kAssertSuccessSource, kAssertSuccessFunction, kAssertSuccessLine);
}

}  // namespace

template <typename FloatType>
void makeSeeThroughCalibration(const FullStereoCameraCalibration<FloatType>& calibration,
                               const CameraCalibrationMRV& leftEye,
                               const CameraCalibrationMRV& rightEye,
                               const AR::Math::SE3<FloatType>& T,
                               FullStereoCameraCalibration<FloatType>& targetCalibration,
                               std::array<AR::Math::SE3<FloatType>, 2>& eyePoses) {
  using Vec2 = AR::Math::Vector<FloatType, 2>;
  using SE3 = AR::Math::SE3<FloatType>;
  const char* const function = SeeThroughNames<FloatType>::function;

  const Vec2 leftSize(FloatType(leftEye.width), FloatType(leftEye.height));
  const Vec2 rightSize(FloatType(rightEye.width), FloatType(rightEye.height));
  if (debugEnabled()) {
    // Both lines show the left size: logs are compared across versions that
    // printed it that way.
    AR::Common::logMultilineString("Left targetSize" + vectorText(leftSize), 3);
    AR::Common::logMultilineString("Right targetSize" + vectorText(leftSize), 3);
  }

  const CamModel::CameraModel<FloatType> leftModel = eyeModel(leftSize, leftEye);
  const CamModel::CameraModel<FloatType> rightModel = eyeModel(rightSize, rightEye);
  auto& logger = AR::Common::Logger::getInstance();
  if (debugEnabled())
    logger.logEx2(AR::Common::Logger::LEVEL_DEBUG, kSource, function, __LINE__,
                  "targetLeftEye: focal length fx, fy = %f, %f", double(leftModel.focalLength(0)),
                  double(leftModel.focalLength(1)));

  const SE3 E_L = eyePose<FloatType>(leftEye.pose);
  const SE3 E_R = eyePose<FloatType>(rightEye.pose);

  targetCalibration.setupEmptyCalibrationWithDefaultIds(2);
  initEyeCamera(targetCalibration[0], leftModel, E_L, "lefteye");
  initEyeCamera(targetCalibration[1], rightModel, E_R, "righteye");

  // The eye transforms are expressed in the tracking rig's frame, whose
  // origin must be camera 0. A rig without its two cameras is reported and
  // the missing transforms are taken as the identity.
  if (!(calibration.size() >= 2))
    AR::Common::logError("calibration.size() >= 2", kSource, function, __LINE__);
  const SE3 T_ol2ol = calibration.size() > 0 ? calibration[0].getCamReferenceToLocal() : SE3();
  const SE3 C1 = calibration.size() > 1 ? calibration[1].getCamReferenceToLocal() : SE3();
  if (!AR::Math::isIdentity(T_ol2ol.rotation().matrix()))
    AR::Common::logError("Math::isIdentity(T_ol2ol.rotation().matrix())", kSource, function, __LINE__);
  if (!(AR::Math::norm(T_ol2ol.translation()) == 0))
    AR::Common::logError("Math::norm(T_ol2ol.translation())==0", kSource, function, __LINE__);

  // T maps tracking camera 0 into the device frame; its inverse is the
  // IMU-to-left-camera transform.
  const SE3 T_inv = T.inverse();
  if (debugEnabled()) {
    AR::Common::logMultilineString("IMU to left eye translation" + vectorText(E_L.translation()), 3);
    AR::Common::logMultilineString("IMU to left camera translation" + vectorText(T_inv.translation()),
                                   3);
  }

  // Flipped eye frame -> eye frame -> device -> tracking camera 0 (and on to
  // camera 1 for the right eye).
  const SE3 F = flipAboutX<FloatType>();
  eyePoses[0] = T_inv * E_L.inverse() * F;
  eyePoses[1] = C1 * T_inv * E_R.inverse() * F;
  if (debugEnabled()) AR::Common::logMultilineString(vectorText(eyePoses[0].translation()), 3);
}

template AR_EXPORT void makeSeeThroughCalibration<float>(
    const FullStereoCameraCalibration<float>&, const CameraCalibrationMRV&,
    const CameraCalibrationMRV&, const AR::Math::SE3<float>&, FullStereoCameraCalibration<float>&,
    std::array<AR::Math::SE3<float>, 2>&);
template AR_EXPORT void makeSeeThroughCalibration<double>(
    const FullStereoCameraCalibration<double>&, const CameraCalibrationMRV&,
    const CameraCalibrationMRV&, const AR::Math::SE3<double>&, FullStereoCameraCalibration<double>&,
    std::array<AR::Math::SE3<double>, 2>&);

}  // namespace CV
}  // namespace AR
