#include "VSTRig.h"

#include <gtest/gtest.h>

#include <string>

#include "DeviceCalibration.h"
#include "LogCapture.h"
#include "RecordRig.h"

namespace {

using AR::Math::SE3;
using AR::Math::Vec3F;

SE3<float> pose(float wx, float wy, float wz, float tx, float ty, float tz) {
  return SE3<float>::exp(AR::Math::Vector<float, 6>(tx, ty, tz, wx, wy, wz));
}

// Only an exactly identity rotation of camera 0 counts as the origin (its
// translation is not examined). Otherwise the message is logged once, camera
// 0 becomes the identity, and camera 1 and the pose see every point of camera
// 0's old frame where they saw it before.
TEST(MoveLeftCameraToOrigin, MovesARotatedCameraZeroToTheOriginOnce) {
  AR::Math::Matrix33F nearIdentity = AR::Math::Matrix33F::identity();
  nearIdentity(0, 1) = 1e-7f;
  const struct {
    SE3<float> C0;
    bool moves;
  } cases[] = {{SE3<float>(AR::Math::SO3<float>(), Vec3F(0.1f, -0.02f, 0.3f)), false},
               {pose(0.1f, 0.2f, -0.3f, 0.05f, 0.01f, -0.02f), true},
               {SE3<float>(AR::Math::SO3<float>::fromOrthonormal(nearIdentity), Vec3F()), true}};
  const std::vector<std::string> message = {
      "AR ERROR: StereoRectify requires the left camera to be at the origin. Hacking calibration to move "
      "left camera to the origin. TODO pass in 2 camera IDs as an argument and make all the code work "
      "independently of left camera position.\n"};
  const SE3<float> C1 = pose(0.12f, 0.15f, -0.25f, -0.05f, 0.015f, -0.01f);
  const SE3<float> T_before = pose(-0.4f, 0.2f, 0.1f, 0.2f, -0.3f, 0.1f);
  const DeviceCalibrationMRV device = RecordRig::makeDevice(RecordRig::realisticLenses()[0]);
  for (const auto& c : cases) {
    AR::CV::FullStereoCameraCalibration<float> rig;
    DeviceFrameParams frame{};
    ASSERT_TRUE(VIO::deviceToStereoCalibration(&device, rig, frame));
    rig[0].setExtrinsics(c.C0);
    rig[1].setExtrinsics(C1);
    SE3<float> T = T_before;
    AR::Test::LogCapture log;
    EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
    EXPECT_EQ(log.messages(), c.moves ? message : std::vector<std::string>());
    const SE3<float> C0_after = c.moves ? SE3<float>() : c.C0, undo = c.moves ? c.C0.inverse() : SE3<float>();
    EXPECT_EQ(rig[0].getCamReferenceToLocal().rotation().matrix(), C0_after.rotation().matrix());
    EXPECT_EQ(rig[0].getCamReferenceToLocal().translation(), C0_after.translation());
    for (const Vec3F& p : {Vec3F(0.1f, 0.2f, 1.5f), Vec3F(-0.7f, 0.3f, 0.4f), Vec3F(2.0f, -1.0f, 5.0f)})
      for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR((rig[1].getCamReferenceToLocal() * p)(i), (C1 * (undo * p))(i), 1e-5f);
        EXPECT_NEAR((T * p)(i), (T_before * (undo * p))(i), 1e-5f);
      }
    log.clear();
    EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
    EXPECT_TRUE(log.messages().empty());
  }
}

}  // namespace
