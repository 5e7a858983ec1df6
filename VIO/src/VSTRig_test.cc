#include "VSTRig.h"

#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"

namespace {

using AR::Math::SE3;
using AR::Math::Vec3F;

const std::string kMessage =
    "AR ERROR: StereoRectify requires the left camera to be at the origin. Hacking calibration to move "
    "left camera to the origin. TODO pass in 2 camera IDs as an argument and make all the code work "
    "independently of left camera position.\n";

AR::CV::FullStereoCameraCalibration<float> makeRig(const SE3<float>& C0, const SE3<float>& C1) {
  CamModel::CameraModel<float> model;
  model.size = AR::Math::Vec2F(640.0f, 480.0f);
  model.principalPoint = AR::Math::Vec2F(320.0f, 240.0f);
  model.focalLength = AR::Math::Vec2F(300.0f, 300.0f);
  model.model = LINEAR;
  model.maxValidDistortionRSq = model.maxValidUndistortionRSq = 81.0f;
  AR::CV::FullStereoCameraCalibration<float> rig;
  rig.setupEmptyCalibrationWithDefaultIds(2);
  const char* ids[2] = {"trackingA0", "trackingB1"};
  for (size_t i = 0; i < 2; ++i)
    EXPECT_TRUE(rig[i].init(model, i == 0 ? C0 : C1, AR::CV::CamImageId(ids[i]), false, 0.0f,
                            AR::CV::CaptureDetails(), 0.0));
  return rig;
}

SE3<float> pose(float wx, float wy, float wz, float tx, float ty, float tz) {
  return SE3<float>::exp(AR::Math::Vector<float, 6>(tx, ty, tz, wx, wy, wz));
}

bool same(const SE3<float>& a, const SE3<float>& b) {
  return a.rotation().matrix() == b.rotation().matrix() && a.translation() == b.translation();
}

TEST(MoveLeftCameraToOrigin, IdentityRotationWithTranslationIsLeftAlone) {
  const SE3<float> C0(AR::Math::SO3<float>(), Vec3F(0.1f, -0.02f, 0.3f));
  const SE3<float> C1 = pose(0.01f, -0.2f, 0.03f, -0.1f, 0.0f, 0.01f);
  auto rig = makeRig(C0, C1);
  const SE3<float> T_before = pose(0.3f, 0.1f, -0.2f, 0.5f, 0.6f, 0.7f);
  SE3<float> T = T_before;
  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.messages().empty());
  EXPECT_TRUE(same(rig[0].getCamReferenceToLocal(), C0));
  EXPECT_TRUE(same(rig[1].getCamReferenceToLocal(), C1));
  EXPECT_TRUE(same(T, T_before));
}

// Afterwards camera 0 is the identity, and a point of camera 0's frame is
// seen by camera 1, and carried by the pose, where it was before.
TEST(MoveLeftCameraToOrigin, RotatedCameraZeroBecomesTheReference) {
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
    const Vec3F pRef = C0.inverse() * p;
    const Vec3F inCam1 = rig[1].getCamReferenceToLocal() * p, viaT = T * p;
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(inCam1(i), (C1 * pRef)(i), 1e-5f);
      EXPECT_NEAR(viaT(i), (T_before * pRef)(i), 1e-5f);
    }
  }
  // Done once: a second call finds camera 0 at the origin.
  log.clear();
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.messages().empty());
}

// The comparison with the identity is exact: an element off by 1e-7 moves
// the rig. A rig without cameras is reported and fails.
TEST(MoveLeftCameraToOrigin, NearIdentityMovesAndEmptyRigFails) {
  AR::Math::Matrix33F R = AR::Math::Matrix33F::identity();
  R(0, 1) = 1e-7f;
  auto rig = makeRig(SE3<float>(AR::Math::SO3<float>::fromOrthonormal(R), Vec3F()), pose(0, 0.1f, 0, -0.1f, 0, 0));
  SE3<float> T;
  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.has(kMessage));
  EXPECT_TRUE(same(rig[0].getCamReferenceToLocal(), SE3<float>()));

  AR::CV::FullStereoCameraCalibration<float> empty;
  EXPECT_FALSE(VIO::moveLeftCameraToOrigin(empty, T));
  EXPECT_EQ(log.countContaining("AR_ASSERT !calibration.empty() VIO/src/StereoRectifyWrapper("), 1u);
}

}  // namespace
