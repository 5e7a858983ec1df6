#include "VSTRig.h"

#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"

namespace {

using AR::Math::SE3;
using AR::Math::SO3;
using AR::Math::Vec3F;

const std::string kMessage =
    "AR ERROR: StereoRectify requires the left camera to be at the origin. Hacking calibration to move "
    "left camera to the origin. TODO pass in 2 camera IDs as an argument and make all the code work "
    "independently of left camera position.\n";

CamModel::CameraModel<float> linearModel() {
  CamModel::CameraModel<float> model;
  model.size = AR::Math::Vec2F(640.0f, 480.0f);
  model.principalPoint = AR::Math::Vec2F(320.0f, 240.0f);
  model.focalLength = AR::Math::Vec2F(300.0f, 300.0f);
  model.model = LINEAR;
  model.maxValidDistortionRSq = 81.0f;
  model.maxValidUndistortionRSq = 81.0f;
  return model;
}

AR::CV::FullStereoCameraCalibration<float> makeRig(const SE3<float>& C0, const SE3<float>& C1) {
  AR::CV::FullStereoCameraCalibration<float> rig;
  rig.setupEmptyCalibrationWithDefaultIds(2);
  EXPECT_TRUE(rig[0].init(linearModel(), C0, AR::CV::CamImageId("trackingA0"), false, 0.0f,
                          AR::CV::CaptureDetails(), 0.0));
  EXPECT_TRUE(rig[1].init(linearModel(), C1, AR::CV::CamImageId("trackingB1"), false, 0.0f,
                          AR::CV::CaptureDetails(), 0.0));
  return rig;
}

SE3<float> pose(float wx, float wy, float wz, float tx, float ty, float tz) {
  return SE3<float>::exp(AR::Math::Vector<float, 6>(tx, ty, tz, wx, wy, wz));
}

void expectSameTransform(const SE3<float>& a, const SE3<float>& b, float tol) {
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(a.rotation().matrix()(r, c), b.rotation().matrix()(r, c), tol);
    EXPECT_NEAR(a.translation()(r), b.translation()(r), tol);
  }
}

TEST(MoveLeftCameraToOrigin, IdentityRotationWithTranslationIsLeftAlone) {
  const SE3<float> C0(SO3<float>(), Vec3F(0.1f, -0.02f, 0.3f));
  const SE3<float> C1 = pose(0.01f, -0.2f, 0.03f, -0.1f, 0.0f, 0.01f);
  auto rig = makeRig(C0, C1);
  SE3<float> T = pose(0.3f, 0.1f, -0.2f, 0.5f, 0.6f, 0.7f);
  const SE3<float> T_before = T;

  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.messages().empty());
  EXPECT_EQ(rig[0].getCamReferenceToLocal().rotation().matrix(), C0.rotation().matrix());
  EXPECT_EQ(rig[0].getCamReferenceToLocal().translation(), C0.translation());
  EXPECT_EQ(rig[1].getCamReferenceToLocal().rotation().matrix(), C1.rotation().matrix());
  EXPECT_EQ(rig[1].getCamReferenceToLocal().translation(), C1.translation());
  EXPECT_EQ(T.rotation().matrix(), T_before.rotation().matrix());
  EXPECT_EQ(T.translation(), T_before.translation());
}

TEST(MoveLeftCameraToOrigin, RotatedCameraZeroBecomesTheReference) {
  const SE3<float> C0 = pose(0.1f, 0.2f, -0.3f, 0.05f, 0.01f, -0.02f);
  const SE3<float> C1 = pose(0.12f, 0.15f, -0.25f, -0.05f, 0.015f, -0.01f);
  auto rig = makeRig(C0, C1);
  const SE3<float> T_before = pose(-0.4f, 0.2f, 0.1f, 0.2f, -0.3f, 0.1f);
  SE3<float> T = T_before;

  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_EQ(log.messages().size(), 1u);
  EXPECT_TRUE(log.has(kMessage));

  const SE3<float>& newC0 = rig[0].getCamReferenceToLocal();
  EXPECT_TRUE(AR::Math::isIdentity(newC0.rotation().matrix()));
  EXPECT_EQ(newC0.translation(), Vec3F());

  // A point seen from camera 0 is seen by camera 1, and carried by the pose,
  // exactly where it was before the rig moved its origin.
  const Vec3F pointsInCam0[] = {Vec3F(0.1f, 0.2f, 1.5f), Vec3F(-0.7f, 0.3f, 0.4f), Vec3F(2.0f, -1.0f, 5.0f)};
  for (const Vec3F& p : pointsInCam0) {
    const Vec3F pRef = C0.inverse() * p;  // the old reference frame
    const Vec3F inCam1Before = C1 * pRef;
    const Vec3F inCam1After = rig[1].getCamReferenceToLocal() * p;
    const Vec3F viaPoseBefore = T_before * pRef;
    const Vec3F viaPoseAfter = T * p;
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(inCam1After(i), inCam1Before(i), 1e-5f);
      EXPECT_NEAR(viaPoseAfter(i), viaPoseBefore(i), 1e-5f);
    }
  }
  // The relative pose of the two cameras is unchanged.
  expectSameTransform(rig[1].getCamReferenceToLocal() * rig[0].getCamReferenceToLocal().inverse(),
                      C1 * C0.inverse(), 1e-6f);

  // Done once: a second call finds camera 0 at the origin.
  log.clear();
  const SE3<float> T_once = T;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.messages().empty());
  EXPECT_EQ(T.translation(), T_once.translation());
}

TEST(MoveLeftCameraToOrigin, AlmostIdentityRotationStillMoves) {
  // One element off by an ulp is not the identity: the comparison is exact.
  AR::Math::Matrix33F R = AR::Math::Matrix33F::identity();
  R(0, 1) = 1e-7f;
  const SE3<float> C0(SO3<float>::fromOrthonormal(R), Vec3F(0.0f, 0.0f, 0.0f));
  auto rig = makeRig(C0, pose(0.0f, 0.1f, 0.0f, -0.1f, 0.0f, 0.0f));
  SE3<float> T;
  AR::Test::LogCapture log;
  EXPECT_TRUE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_TRUE(log.has(kMessage));
  EXPECT_TRUE(AR::Math::isIdentity(rig[0].getCamReferenceToLocal().rotation().matrix()));
}

TEST(MoveLeftCameraToOrigin, EmptyCalibrationIsReportedAndFails) {
  AR::CV::FullStereoCameraCalibration<float> rig;
  SE3<float> T;
  AR::Test::LogCapture log;
  EXPECT_FALSE(VIO::moveLeftCameraToOrigin(rig, T));
  EXPECT_EQ(log.countContaining("AR_ASSERT !calibration.empty() VIO/src/StereoRectifyWrapper("), 1u);
}

}  // namespace
