#include "VSTRig.h"

#include "AR/Common/Logger.h"

namespace VIO {

namespace {

constexpr char kSource[] = "VIO/src/StereoRectifyWrapper";
constexpr char kFunction[] =
    "bool VIO::moveLeftCameraToOrigin(AR::CV::FullStereoCameraCalibration<float>&, "
    "AR::Math::SE3<float>&)";

/// Nine exact comparisons: only a rotation that is the identity bit for bit
/// leaves the rig as it is.
bool isExactIdentity(const AR::Math::Matrix33F& R) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      if (!(R(r, c) == (r == c ? 1.0f : 0.0f))) return false;
  return true;
}

AR::Math::SE3<float> identityPose() {
  AR::Math::Matrix33F R = AR::Math::Matrix33F::identity();
  AR::Math::enforceRotation(R);
  return AR::Math::SE3<float>(AR::Math::SO3<float>::fromOrthonormal(R), AR::Math::Vec3F());
}

}  // namespace

bool moveLeftCameraToOrigin(AR::CV::FullStereoCameraCalibration<float>& calibration,
                            AR::Math::SE3<float>& pose) {
  if (calibration.empty()) {
    AR::Common::logError("!calibration.empty()", kSource, kFunction, __LINE__);
    return false;
  }
  AR::CV::FullCamera<float>& camera0 = calibration[0];
  if (!isExactIdentity(camera0.getCamReferenceToLocal().rotation().matrix())) {
    auto& logger = AR::Common::Logger::getInstance();
    if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      logger.logEx2(AR::Common::Logger::LEVEL_ERROR, kSource, kFunction, __LINE__,
                    "StereoRectify requires the left camera to be at the origin. Hacking calibration "
                    "to move left camera to the origin. TODO pass in 2 camera IDs as an argument and "
                    "make all the code work independently of left camera position.");
    const AR::Math::SE3<float> C0 = camera0.getCamReferenceToLocal();
    const AR::Math::SE3<float> C0_inv = C0.inverse();
    camera0.setExtrinsics(identityPose());
    // Every other camera keeps its pose relative to camera 0.
    for (size_t i = 1; i < calibration.size(); ++i)
      calibration[i].setExtrinsics(calibration[i].getCamReferenceToLocal() * C0_inv);
    pose = pose * C0_inv;
  }
  return isExactIdentity(camera0.getCamReferenceToLocal().rotation().matrix());
}

}  // namespace VIO
