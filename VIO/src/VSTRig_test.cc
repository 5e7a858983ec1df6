#include "VSTRig.h"

#include <gtest/gtest.h>

#include <string>

#include "DeviceCalibration.h"
#include "LogCapture.h"
#include "RecordRig.h"

namespace {

using AR::Math::SE3;
using AR::Math::Vec3F;

const std::string kMessage =
    "AR ERROR: StereoRectify requires the left camera to be at the origin. Hacking calibration to move "
    "left camera to the origin. TODO pass in 2 camera IDs as an argument and make all the code work "
    "independently of left camera position.\n";

/// A two-camera rig with its cameras at C0 and C1.
AR::CV::FullStereoCameraCalibration<float> makeRig(const SE3<float>& C0, const SE3<float>& C1) {
  const DeviceCalibrationMRV device = RecordRig::makeDevice(RecordRig::realisticLenses()[0]);
  AR::CV::FullStereoCameraCalibration<float> rig;
  DeviceFrameParams frame{};
  EXPECT_TRUE(VIO::deviceToStereoCalibration(&device, rig, frame));
  rig[0].setExtrinsics(C0);
  rig[1].setExtrinsics(C1);
  return rig;
}

SE3<float> pose(float wx, float wy, float wz, float tx, float ty, float tz) {
  return SE3<float>::exp(AR::Math::Vector<float, 6>(tx, ty, tz, wx, wy, wz));
}

bool same(const SE3<float>& a, const SE3<float>& b) {
  return a.rotation().matrix() == b.rotation().matrix() && a.translation() == b.translation();
}

// Only the rotation is examined: a translated camera 0 is left as it is.
TEST(MoveLeftCameraToOrigin, IdentityRotationWithTranslationIsLeftAlone) {
  const SE3<float> C0(AR::Math::SO3<float>(), Vec3F(0.1f, -0.02f, 0.3f)), C1 = pose(0.01f, -0.2f, 0, -0.1f, 0, 0);
  auto rig = makeRig(C0, C1);
  const SE3<float> T_before = pose(0.3f, 0.1f, -0.2f, 0.5f, 0.6f, 0.7f);
  SE3<float> T = T_before;
  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.messages().empty());
  EXPECT_TRUE(same(rig[0].getCamReferenceToLocal(), C0) && same(rig[1].getCamReferenceToLocal(), C1));
  EXPECT_TRUE(same(T, T_before));
}

// Afterwards camera 0 is the identity, and a point of camera 0's old frame is
// seen by camera 1, and carried by the pose, where it was before. The
// comparison with the identity is exact: an element off by 1e-7 moves the rig.
TEST(MoveLeftCameraToOrigin, RotatedCameraZeroBecomesTheReferenceOnce) {
  const SE3<float> C0 = pose(0.1f, 0.2f, -0.3f, 0.05f, 0.01f, -0.02f);
  const SE3<float> C1 = pose(0.12f, 0.15f, -0.25f, -0.05f, 0.015f, -0.01f);
  auto rig = makeRig(C0, C1);
  const SE3<float> T_before = pose(-0.4f, 0.2f, 0.1f, 0.2f, -0.3f, 0.1f);
  SE3<float> T = T_before;
  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_EQ(log.messages(), std::vector<std::string>{kMessage});
  EXPECT_TRUE(same(rig[0].getCamReferenceToLocal(), SE3<float>()));
  for (const Vec3F& p : {Vec3F(0.1f, 0.2f, 1.5f), Vec3F(-0.7f, 0.3f, 0.4f), Vec3F(2.0f, -1.0f, 5.0f)}) {
    const Vec3F pOld = C0.inverse() * p, inCam1 = rig[1].getCamReferenceToLocal() * p, viaT = T * p;
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(inCam1(i), (C1 * pOld)(i), 1e-5f);
      EXPECT_NEAR(viaT(i), (T_before * pOld)(i), 1e-5f);
    }
  }
  log.clear();
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.messages().empty());

  AR::Math::Matrix33F R = AR::Math::Matrix33F::identity();
  R(0, 1) = 1e-7f;
  rig[0].setExtrinsics(SE3<float>(AR::Math::SO3<float>::fromOrthonormal(R), Vec3F()));
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_EQ(log.messages(), std::vector<std::string>{kMessage});
  EXPECT_TRUE(same(rig[0].getCamReferenceToLocal(), SE3<float>()));
}

}  // namespace
