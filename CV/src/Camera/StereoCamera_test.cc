#include "AR/CV/Camera/StereoCamera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace AR {
namespace CV {
namespace {

using AR::Test::LogCapture;

/// Text that logError produces for a failed condition (prefix up to the file).
std::string assertText(const std::string& condition) { return "AR_ASSERT " + condition + " "; }

template <typename PREC>
CamModel::CameraModel<PREC> makeModel(DistortionModel distortion = RADIAL_3_PARAMETERS) {
  CamModel::CameraModel<PREC> model;
  model.size = AR::Math::Vector<PREC, 2>(PREC(640), PREC(480));
  model.principalPoint = AR::Math::Vector<PREC, 2>(PREC(321.5), PREC(238.25));
  model.focalLength = AR::Math::Vector<PREC, 2>(PREC(400), PREC(402));
  model.model = distortion;
  if (distortion == RADIAL_3_PARAMETERS)
    model.radialDistortionCoeffs = AR::Math::Vector<PREC, 6>(PREC(-0.12), PREC(0.03), PREC(-0.002),
                                                             PREC(0), PREC(0), PREC(0));
  model.maxValidDistortionRSq = PREC(81);
  model.maxValidUndistortionRSq = PREC(81);
  model.setupValidDistortionRange();
  return model;
}

template <typename PREC>
AR::Math::SE3<PREC> makePose() {
  return AR::Math::SE3<PREC>::exp(AR::Math::Vector<PREC, 6>(PREC(0.05), PREC(-0.01), PREC(0.02),
                                                            PREC(0.03), PREC(-0.04), PREC(0.02)));
}

/// init with a global-shutter camera, no capture details and no time offset.
template <typename PREC>
bool initCamera(FullCamera<PREC>& camera, const char* name,
                const CamModel::CameraModel<PREC>& model = makeModel<PREC>(),
                const AR::Math::SE3<PREC>& pose = makePose<PREC>()) {
  return camera.init(model, pose, CamImageId(name), false, PREC(0), CaptureDetails(), 0.0);
}

TEST(CamImageIdTest, OverlongNameIsReportedTruncatedAndUnterminated) {
  LogCapture log;
  const std::string name63(63, 'a');
  EXPECT_EQ(CamImageId(name63.c_str()).getNameStr(), name63);
  EXPECT_TRUE(log.messages().empty());

  const CamImageId id(std::string(70, 'x').c_str());
  EXPECT_EQ(log.countContaining(assertText("len < fixedLengthString.size()")), 1u);
  log.clear();
  EXPECT_EQ(std::string(id.getName()), std::string(64, 'x'));
  EXPECT_EQ(log.countContaining(assertText("strnlen(fixedLengthString.data(), "
                                           "fixedLengthString.size()) < "
                                           "fixedLengthString.size()")),
            1u);
}

TEST(CamImageIdTest, EqualityIsByHashOnly) {
  // Names that differ only beyond the 64 kept characters hash alike, so the
  // ids are equal although the names given were not.
  const std::string common(64, 'c');
  LogCapture log;
  EXPECT_TRUE(CamImageId((common + "-first-tail").c_str()) == CamImageId((common + "-second").c_str()));
  EXPECT_FALSE(CamImageId("left") == CamImageId("right"));
  EXPECT_TRUE(CamImageId().empty());
  EXPECT_EQ(CamImageId().getHash(), CamImageId("").getHash());
}

TEST(CamImageIdTest, CameraIdToString) {
  EXPECT_EQ(cameraIdToString(0), "left");
  EXPECT_EQ(cameraIdToString(1), "right");
  EXPECT_EQ(cameraIdToString(2), "cam2");
  EXPECT_EQ(cameraIdToString(17), "cam17");
}

template <typename PREC>
class FullCameraTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FullCameraTest, Precisions);

TYPED_TEST(FullCameraTest, InitStoresEverything) {
  using PREC = TypeParam;
  const auto pose = makePose<PREC>();
  CaptureDetails details;
  details.nativeSensorWidth = 1280;
  details.cropB = -3;

  FullCamera<PREC> camera;
  EXPECT_EQ(camera.getRSCorrector().velocities.size(), 1u);
  LogCapture log;
  ASSERT_TRUE(
      camera.init(makeModel<PREC>(), pose, CamImageId("right"), true, PREC(2.5e-5), details, 0.125));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  EXPECT_TRUE(camera.isInitialized());
  EXPECT_EQ(camera.getNameStr(), "right");
  EXPECT_TRUE(camera.getRSCorrector().isRollingShutter);
  EXPECT_EQ(camera.getRSCorrector().lineTime, PREC(2.5e-5));
  EXPECT_EQ(camera.getRSCorrector().referenceRow, PREC(240));
  EXPECT_EQ(camera.getCaptureDetails(), details);
  EXPECT_EQ(camera.getDelta(), 0.125);
  EXPECT_EQ(camera.getCamReferenceToLocal().rotation().matrix(), pose.rotation().matrix());
  EXPECT_EQ(camera.getCamReferenceToLocal().translation(), pose.translation());

  const auto inverse = camera.getLocalToCamReference();
  EXPECT_EQ(inverse.rotation().matrix(), pose.rotation().matrix().transpose());
  const auto roundTrip = camera.getWorldInCamLocal(inverse);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(roundTrip.translation()(i), PREC(0), PREC(1e-6));
}

TYPED_TEST(FullCameraTest, RejectedModelFailsButTakesTheId) {
  using PREC = TypeParam;
  auto model = makeModel<PREC>();
  model.focalLength(0) = PREC(-1);
  FullCamera<PREC> camera;
  testing::internal::CaptureStdout();
  const bool ok = initCamera(camera, "bad", model);
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(ok);
  EXPECT_FALSE(camera.isInitialized());
  EXPECT_EQ(camera.getNameStr(), "bad");
}

TYPED_TEST(FullCameraTest, EmptyIdIsNeverInitialised) {
  using PREC = TypeParam;
  FullCamera<PREC> camera;
  LogCapture log;
  EXPECT_TRUE(initCamera(camera, ""));
  // Storing the pose and the final check both see an uninitialised camera.
  EXPECT_EQ(log.countContaining(assertText("isInitialized()")), 2u);
  EXPECT_TRUE(camera.getIntrinsicsPtr()->isInitialized());
  EXPECT_FALSE(camera.isInitialized());

  // Sharing those intrinsics does not initialise a camera either; a name does.
  auto shared = camera.getIntrinsicsPtr();
  FullCamera<PREC> unnamed;
  unnamed.setIntrinsics(shared);
  EXPECT_FALSE(unnamed.isInitialized());
  unnamed.setCamId(CamImageId("now-named"));
  EXPECT_TRUE(unnamed.isInitialized());
}

TYPED_TEST(FullCameraTest, GettersReportAnUninitialisedCamera) {
  using PREC = TypeParam;
  const FullCamera<PREC> camera(CamImageId("x"));
  LogCapture log;
  camera.getCamReferenceToLocal();
  camera.getLocalToCamReference();
  EXPECT_EQ(camera.getIntrinsicsPtr(), nullptr);
  EXPECT_FALSE(camera.getIntrinsics().isInitialized());
  EXPECT_EQ(log.countContaining(assertText("isInitialized()")), 4u);
}

TYPED_TEST(FullCameraTest, CopiesShareIntrinsicsAndReinitMakesNewOnes) {
  using PREC = TypeParam;
  FullCamera<PREC> first;
  ASSERT_TRUE(initCamera(first, "first"));
  FullCamera<PREC> copy(first);
  const Camera<PREC>* original = first.getIntrinsicsPtr().get();
  EXPECT_EQ(copy.getIntrinsicsPtr().get(), original);
  EXPECT_EQ(AR::Common::refCount(first.getIntrinsicsPtr()), 2);

  // Re-initialising is reported but done, with a new intrinsic camera.
  LogCapture log;
  ASSERT_TRUE(initCamera(copy, "copy", makeModel<PREC>(LINEAR)));
  EXPECT_EQ(log.countContaining(assertText("!isInitialized()")), 1u);
  EXPECT_EQ(copy.getNameStr(), "copy");
  EXPECT_EQ(first.getIntrinsicsPtr().get(), original);
  EXPECT_EQ(AR::Common::refCount(first.getIntrinsicsPtr()), 1);
  EXPECT_EQ(first.getIntrinsics().getRadialDistortionModel(), RADIAL_3_PARAMETERS);
  EXPECT_EQ(copy.getIntrinsics().getRadialDistortionModel(), LINEAR);
}

TYPED_TEST(FullCameraTest, ProjectionNeedsOneCentimetreOfDepth) {
  using PREC = TypeParam;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  FullCamera<PREC> camera;
  ASSERT_TRUE(initCamera(camera, "c", makeModel<PREC>(), AR::Math::SE3<PREC>()));
  const AR::Math::Vector<PREC, 2> untouched(PREC(-7), PREC(-7));
  AR::Math::Vector<PREC, 2> pixel = untouched;
  EXPECT_FALSE(camera.projectCameraToDevicePix(Vec3(PREC(0), PREC(0), PREC(0.009)), pixel));
  EXPECT_FALSE(camera.projectCameraToDevicePix(Vec3(PREC(0), PREC(0), PREC(-1)), pixel));
  // Just below 0.01 in the camera's own precision.
  const PREC below = std::nextafter(PREC(0.01), PREC(0));
  EXPECT_FALSE(camera.projectCameraToDevicePix(Vec3(PREC(0), PREC(0), below), pixel));
  EXPECT_EQ(pixel, untouched);
  EXPECT_TRUE(camera.projectCameraToDevicePix(Vec3(PREC(0), PREC(0), PREC(0.01)), pixel));
  EXPECT_EQ(pixel, camera.getIntrinsics().getPrincipalPoint());
}

TYPED_TEST(FullCameraTest, ProjectionMatchesTheIntrinsicCameraAfterThePose) {
  using PREC = TypeParam;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  const auto pose = makePose<PREC>();
  auto tangential = makeModel<PREC>();
  tangential.tangentialDistortionCoeffs = AR::Math::Vector<PREC, 2>(PREC(0.001), PREC(-0.0015));
  for (const auto& model : {makeModel<PREC>(), tangential}) {
    FullCamera<PREC> camera;
    ASSERT_TRUE(initCamera(camera, "c", model, pose));
    for (const Vec3& X : {Vec3(PREC(0.3), PREC(-0.2), PREC(2)), Vec3(PREC(-1), PREC(0.5), PREC(1.5))}) {
      AR::Math::Vector<PREC, 2> viaRig;
      AR::Math::Vector<PREC, 2> viaCamera;
      ASSERT_TRUE(camera.projectCameraToDevicePix(X, viaRig));
      const Vec3 local = pose.rotation().matrix() * X + pose.translation();
      ASSERT_TRUE(camera.getIntrinsics().tryProjectToPix(local, viaCamera));
      EXPECT_NEAR(viaRig(0), viaCamera(0), 1e-3);
      EXPECT_NEAR(viaRig(1), viaCamera(1), 1e-3);
    }
    // Far outside the valid distortion range (ideal radius 100).
    AR::Math::Vector<PREC, 2> pixel;
    EXPECT_FALSE(camera.projectCameraToDevicePix(
        camera.getLocalToCamReference() * Vec3(PREC(100), PREC(0), PREC(1)), pixel));
  }
}

template <typename PREC>
class RigTest : public ::testing::Test {
 protected:
  using Rig = FullStereoCameraCalibration<PREC>;

  /// Initialised cameras with the given names, in order.
  static Rig makeRig(const std::vector<const char*>& names) {
    Rig rig;
    rig.setDeviceUID("rig-uid");
    for (const char* name : names) {
      FullCamera<PREC> camera;
      EXPECT_TRUE(initCamera(camera, name, makeModel<PREC>(LINEAR)));
      rig.push_back(camera);
    }
    return rig;
  }
};
TYPED_TEST_SUITE(RigTest, Precisions);

TYPED_TEST(RigTest, DefaultIdsAreAppendedUpToTheCount) {
  typename TestFixture::Rig rig;
  EXPECT_FALSE(rig.isInitialized());
  rig.setupEmptyCalibrationWithDefaultIds(3);
  ASSERT_EQ(rig.size(), 3u);
  EXPECT_EQ(rig[2].getNameStr(), "default_cam_2");
  EXPECT_FALSE(rig.isInitialized());
  rig.setupEmptyCalibrationWithDefaultIds(2);
  EXPECT_EQ(rig.size(), 3u);
  rig.setupEmptyCalibrationWithDefaultIds(4);
  ASSERT_EQ(rig.size(), 4u);
  EXPECT_EQ(rig[0].getNameStr(), "default_cam_0");
  EXPECT_EQ(rig[3].getNameStr(), "default_cam_3");
}

TYPED_TEST(RigTest, NoCameraIdsProvided) {
  using Rig = typename TestFixture::Rig;
  using Ids = std::vector<CamImageId>;
  EXPECT_TRUE(Rig::noCameraIdsProvided(Ids()));
  EXPECT_TRUE(Rig::noCameraIdsProvided(Ids{CamImageId("left"), CamImageId("default_cam_7")}));
  EXPECT_FALSE(Rig::noCameraIdsProvided(Ids{CamImageId("left"), CamImageId("right")}));
  EXPECT_FALSE(Rig::noCameraIdsProvided(Ids{CamImageId("my_default_cam_1")}));
}

TYPED_TEST(RigTest, SelectCamerasKeepsTheRigOrder) {
  const auto rig = TestFixture::makeRig({"left", "right", "cam2"});
  LogCapture log;
  const auto subset = rig.selectCameras(std::vector<CamImageId>{CamImageId("right"), CamImageId("left")});
  EXPECT_TRUE(log.messages().empty());
  ASSERT_EQ(subset.size(), 2u);
  EXPECT_EQ(subset[0].getNameStr(), "left");
  EXPECT_EQ(subset[1].getNameStr(), "right");
  EXPECT_EQ(subset.getDeviceUID(), "rig-uid");
  EXPECT_EQ(subset[0].getIntrinsicsPtr().get(), rig[0].getIntrinsicsPtr().get());
  EXPECT_EQ(rig.selectCameras(std::vector<CamImageId>()).size(), 3u);

  // An id that no camera has: the matching subset, and the size is reported.
  const auto partial =
      rig.selectCameras(std::vector<CamImageId>{CamImageId("right"), CamImageId("nobody")});
  ASSERT_EQ(partial.size(), 1u);
  EXPECT_EQ(partial[0].getNameStr(), "right");
  EXPECT_EQ(log.countContaining(assertText("cameraSubset.size() == camIds.size()")), 1u);
}

TYPED_TEST(RigTest, LookupById) {
  auto rig = TestFixture::makeRig({"left", "right"});
  EXPECT_TRUE(rig.isInitialized());
  const auto& constRig = rig;
  LogCapture log;
  EXPECT_EQ(&constRig[CamImageId("right")], &rig[1]);
  EXPECT_EQ(&rig[CamImageId("left")], &rig[0]);
  EXPECT_TRUE(log.messages().empty());

  // An unknown id is logged, reported and yields a detectable stand-in.
  const auto& found = constRig[CamImageId("ghost")];
  EXPECT_FALSE(found.isInitialized());
  EXPECT_TRUE(found.getCamId().empty());
  EXPECT_TRUE(log.has("AR ERROR: camId ghost not found in FullStereoCameraCalibration\n"));
  EXPECT_EQ(log.countContaining(assertText("0")), 1u);
  // Writing through the mutable stand-in changes nothing in the rig, and the
  // next miss gets a clean stand-in again.
  rig[CamImageId("ghost")].setCamId(CamImageId("left"));
  EXPECT_EQ(rig.size(), 2u);
  EXPECT_TRUE(rig[CamImageId("ghost")].getCamId().empty());
}

TYPED_TEST(RigTest, CamIdCacheIsFilledOnceAndReportsStaleness) {
  auto rig = TestFixture::makeRig({"left", "right"});
  LogCapture log;
  const auto& ids = rig.getCamIds();
  ASSERT_EQ(ids.size(), 2u);
  EXPECT_TRUE(ids[0] == CamImageId("left"));
  EXPECT_TRUE(log.messages().empty());

  // Renaming a camera after the cache was filled: one mismatch reported.
  rig[1].setCamId(CamImageId("other"));
  EXPECT_TRUE(rig.getCamIds()[1] == CamImageId("right"));
  const std::string stale = assertText("this->at(i).getCamId() == camIdVec[i]");
  EXPECT_EQ(log.countContaining(stale), 1u);
  // A camera added later is exposed as well.
  rig.setupEmptyCalibrationWithDefaultIds(3);
  log.clear();
  rig.getCamIds();
  EXPECT_EQ(log.countContaining(stale), 2u);
}

TYPED_TEST(RigTest, TrySetupEmptyCalibration) {
  typename TestFixture::Rig rig;
  LogCapture log;
  rig.trySetupEmptyCalibration(std::vector<CamImageId>{CamImageId("b"), CamImageId("a")});
  ASSERT_EQ(rig.size(), 2u);
  EXPECT_EQ(rig[0].getNameStr(), "b");
  EXPECT_EQ(rig[1].getNameStr(), "a");
  EXPECT_TRUE(log.messages().empty());

  // Not empty: nothing added, each missing id reported.
  rig.trySetupEmptyCalibration(
      std::vector<CamImageId>{CamImageId("a"), CamImageId("c"), CamImageId("d")});
  EXPECT_EQ(rig.size(), 2u);
  EXPECT_EQ(log.countContaining("AR_ASSERT find_if(this->begin(), this->end(), [&camId](const "
                                "FullCamera<PREC> & cam){ return cam.getCamId() == camId; }) != "
                                "this->end() "),
            2u);
}

}  // namespace
}  // namespace CV
}  // namespace AR
