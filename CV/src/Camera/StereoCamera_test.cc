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
  if (distortion == RADIAL_3_PARAMETERS) {
    model.radialDistortionCoeffs(0) = PREC(-0.12);
    model.radialDistortionCoeffs(1) = PREC(0.03);
    model.radialDistortionCoeffs(2) = PREC(-0.002);
  }
  model.maxValidDistortionRSq = PREC(81);
  model.maxValidUndistortionRSq = PREC(81);
  model.setupValidDistortionRange();
  return model;
}

template <typename PREC>
AR::Math::SE3<PREC> makePose() {
  const AR::Math::Vector<PREC, 6> v(PREC(0.05), PREC(-0.01), PREC(0.02), PREC(0.03), PREC(-0.04),
                                    PREC(0.02));
  return AR::Math::SE3<PREC>::exp(v);
}

// ---------------------------------------------------------------------------
// CamImageId

TEST(CamImageIdTest, OverlongNameIsReportedTruncatedAndUnterminated) {
  const std::string name70(70, 'x');
  LogCapture log;
  const CamImageId id(name70.c_str());
  EXPECT_EQ(log.countContaining(assertText("len < fixedLengthString.size()")), 1u);
  EXPECT_EQ(log.countContaining("strnlen"), 0u);

  log.clear();
  const std::string_view name = id.getName();
  EXPECT_EQ(name.size(), 64u);
  EXPECT_EQ(std::string(name), std::string(64, 'x'));
  EXPECT_EQ(log.countContaining(assertText("strnlen(fixedLengthString.data(), "
                                           "fixedLengthString.size()) < "
                                           "fixedLengthString.size()")),
            1u);
}

TEST(CamImageIdTest, SixtyThreeCharactersFitWithoutReport) {
  const std::string name63(63, 'a');
  LogCapture log;
  const CamImageId id(name63.c_str());
  EXPECT_EQ(id.getNameStr(), name63);
  EXPECT_TRUE(log.messages().empty());
}

TEST(CamImageIdTest, EqualityIsByHashOnly) {
  // Names that differ only beyond the 64 kept characters hash alike, so the
  // ids are equal although the names given were not.
  const std::string common(64, 'c');
  LogCapture log;
  const CamImageId a((common + "-first-tail").c_str());
  const CamImageId b((common + "-second").c_str());
  EXPECT_EQ(a.getHash(), b.getHash());
  EXPECT_TRUE(a == b);

  EXPECT_TRUE(CamImageId("left") == CamImageId(std::string("left")));
  EXPECT_FALSE(CamImageId("left") == CamImageId("right"));
  EXPECT_TRUE(CamImageId("left") != CamImageId("right"));
  EXPECT_TRUE(CamImageId().empty());
  EXPECT_TRUE(CamImageId("").empty());
  EXPECT_EQ(CamImageId().getHash(), CamImageId("").getHash());
}

TEST(CamImageIdTest, CameraIdToString) {
  EXPECT_EQ(cameraIdToString(0), "left");
  EXPECT_EQ(cameraIdToString(1), "right");
  EXPECT_EQ(cameraIdToString(2), "cam2");
  EXPECT_EQ(cameraIdToString(17), "cam17");
}

// ---------------------------------------------------------------------------
// FullCamera

template <typename PREC>
class FullCameraTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FullCameraTest, Precisions);

TYPED_TEST(FullCameraTest, NewCameraHasDefaults) {
  using PREC = TypeParam;
  const FullCamera<PREC> camera(CamImageId("left"));
  EXPECT_FALSE(camera.isInitialized());
  EXPECT_FALSE(camera.hasIntrinsics());
  EXPECT_EQ(camera.getNameStr(), "left");
  EXPECT_EQ(camera.getDelta(), 0.0);
  EXPECT_EQ(camera.getCaptureDetails(), CaptureDetails());
  EXPECT_FALSE(camera.getRSCorrector().isRollingShutter);
  EXPECT_EQ(camera.getRSCorrector().lineTime, PREC(0));
  EXPECT_EQ(camera.getRSCorrector().referenceRow, PREC(0));
  ASSERT_EQ(camera.getRSCorrector().velocities.size(), 1u);
  EXPECT_TRUE(AR::Math::isZero(camera.getRSCorrector().velocities[0].linear));
  EXPECT_TRUE(AR::Math::isZero(camera.getRSCorrector().velocities[0].angular));
}

TYPED_TEST(FullCameraTest, InitStoresEverything) {
  using PREC = TypeParam;
  const auto model = makeModel<PREC>();
  const auto pose = makePose<PREC>();
  CaptureDetails details;
  details.nativeSensorWidth = 1280;
  details.binningV = 2;
  details.cropB = -3;

  FullCamera<PREC> camera;
  LogCapture log;
  ASSERT_TRUE(camera.init(model, pose, CamImageId("right"), true, PREC(2.5e-5), details, 0.125));
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
  EXPECT_EQ(camera.getIntrinsics().getCamModel().focalLength, model.focalLength);

  const auto inverse = camera.getLocalToCamReference();
  EXPECT_EQ(inverse.rotation().matrix(), pose.rotation().matrix().transpose());
  const auto roundTrip = camera.getWorldInCamLocal(inverse);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(roundTrip.translation()(i), PREC(0), PREC(1e-6));
}

TYPED_TEST(FullCameraTest, ReinitialisingIsReportedButDone) {
  using PREC = TypeParam;
  FullCamera<PREC> camera;
  ASSERT_TRUE(camera.init(makeModel<PREC>(), makePose<PREC>(), CamImageId("a"), false, PREC(0),
                          CaptureDetails(), 0.0));
  LogCapture log;
  ASSERT_TRUE(camera.init(makeModel<PREC>(LINEAR), makePose<PREC>(), CamImageId("b"), false,
                          PREC(0), CaptureDetails(), 0.0));
  EXPECT_EQ(log.countContaining(assertText("!isInitialized()")), 1u);
  EXPECT_EQ(camera.getNameStr(), "b");
  EXPECT_EQ(camera.getIntrinsics().getRadialDistortionModel(), LINEAR);
}

TYPED_TEST(FullCameraTest, RejectedModelFailsButTakesTheId) {
  using PREC = TypeParam;
  auto model = makeModel<PREC>();
  model.focalLength(0) = PREC(-1);
  FullCamera<PREC> camera;
  testing::internal::CaptureStdout();
  const bool ok = camera.init(model, makePose<PREC>(), CamImageId("bad"), false, PREC(0),
                              CaptureDetails(), 0.0);
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(ok);
  EXPECT_FALSE(camera.isInitialized());
  EXPECT_EQ(camera.getNameStr(), "bad");
}

TYPED_TEST(FullCameraTest, EmptyIdIsNeverInitialised) {
  using PREC = TypeParam;
  FullCamera<PREC> camera;
  LogCapture log;
  EXPECT_TRUE(camera.init(makeModel<PREC>(), makePose<PREC>(), CamImageId(""), false, PREC(0),
                          CaptureDetails(), 0.0));
  // Storing the pose and the final check both see an uninitialised camera.
  EXPECT_EQ(log.countContaining(assertText("isInitialized()")), 2u);
  EXPECT_TRUE(camera.hasIntrinsics());
  EXPECT_TRUE(camera.getIntrinsicsPtr()->isInitialized());
  EXPECT_FALSE(camera.isInitialized());

  // A shared, initialised intrinsic camera does not change that.
  FullCamera<PREC> named(CamImageId("named"));
  ASSERT_TRUE(named.init(makeModel<PREC>(), makePose<PREC>(), CamImageId("named"), false, PREC(0),
                         CaptureDetails(), 0.0));
  auto shared = named.getIntrinsicsPtr();
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
  camera.getIntrinsicsPtr();
  const Camera<PREC>& intrinsics = camera.getIntrinsics();
  EXPECT_FALSE(intrinsics.isInitialized());
  EXPECT_EQ(log.countContaining(assertText("isInitialized()")), 4u);
}

TYPED_TEST(FullCameraTest, CopiesShareIntrinsicsAndReinitDropsTheShare) {
  using PREC = TypeParam;
  FullCamera<PREC> first;
  ASSERT_TRUE(first.init(makeModel<PREC>(), makePose<PREC>(), CamImageId("first"), false, PREC(0),
                         CaptureDetails(), 0.0));
  FullCamera<PREC> copy(first);
  EXPECT_EQ(copy.getIntrinsicsPtr().get(), first.getIntrinsicsPtr().get());
  EXPECT_EQ(AR::Common::refCount(first.getIntrinsicsPtr()), 2);

  const Camera<PREC>* original = first.getIntrinsicsPtr().get();
  LogCapture log;
  ASSERT_TRUE(copy.init(makeModel<PREC>(LINEAR), makePose<PREC>(), CamImageId("copy"), false,
                        PREC(0), CaptureDetails(), 0.0));
  EXPECT_EQ(first.getIntrinsicsPtr().get(), original);
  EXPECT_EQ(AR::Common::refCount(first.getIntrinsicsPtr()), 1);
  EXPECT_EQ(first.getIntrinsics().getRadialDistortionModel(), RADIAL_3_PARAMETERS);
  EXPECT_EQ(copy.getIntrinsics().getRadialDistortionModel(), LINEAR);
  EXPECT_EQ(first.getNameStr(), "first");
}

TYPED_TEST(FullCameraTest, ProjectionNeedsOneCentimetreOfDepth) {
  using PREC = TypeParam;
  FullCamera<PREC> camera;
  ASSERT_TRUE(camera.init(makeModel<PREC>(), AR::Math::SE3<PREC>(), CamImageId("c"), false, PREC(0),
                          CaptureDetails(), 0.0));
  const AR::Math::Vector<PREC, 2> untouched(PREC(-7), PREC(-7));
  AR::Math::Vector<PREC, 2> pixel = untouched;
  EXPECT_FALSE(camera.projectCameraToDevicePix(
      AR::Math::Vector<PREC, 3>(PREC(0), PREC(0), PREC(0.009)), pixel));
  EXPECT_EQ(pixel, untouched);
  EXPECT_FALSE(camera.projectCameraToDevicePix(
      AR::Math::Vector<PREC, 3>(PREC(0), PREC(0), PREC(-1)), pixel));
  EXPECT_TRUE(camera.projectCameraToDevicePix(
      AR::Math::Vector<PREC, 3>(PREC(0), PREC(0), PREC(0.01f)), pixel));
  EXPECT_EQ(pixel, camera.getIntrinsics().getPrincipalPoint());
}

TYPED_TEST(FullCameraTest, ProjectionMatchesTheIntrinsicCameraAfterThePose) {
  using PREC = TypeParam;
  FullCamera<PREC> camera;
  const auto pose = makePose<PREC>();
  ASSERT_TRUE(
      camera.init(makeModel<PREC>(), pose, CamImageId("c"), false, PREC(0), CaptureDetails(), 0.0));
  const Camera<PREC>& intrinsics = camera.getIntrinsics();
  const AR::Math::Vector<PREC, 3> points[] = {{PREC(0.3), PREC(-0.2), PREC(2)},
                                              {PREC(-1), PREC(0.5), PREC(1.5)},
                                              {PREC(0), PREC(0), PREC(1)}};
  for (const auto& X : points) {
    AR::Math::Vector<PREC, 2> viaRig;
    AR::Math::Vector<PREC, 2> viaCamera;
    ASSERT_TRUE(camera.projectCameraToDevicePix(X, viaRig));
    const AR::Math::Vector<PREC, 3> local = pose.rotation().matrix() * X + pose.translation();
    ASSERT_TRUE(intrinsics.tryProjectToPix(local, viaCamera));
    // Without tangential terms both follow the same operations exactly.
    EXPECT_EQ(viaRig, viaCamera);
  }
  // Far outside the valid distortion range (ideal radius 100).
  AR::Math::Vector<PREC, 2> pixel;
  const AR::Math::Vector<PREC, 3> local(PREC(100), PREC(0), PREC(1));
  EXPECT_FALSE(camera.projectCameraToDevicePix(camera.getLocalToCamReference() * local, pixel));
}

TYPED_TEST(FullCameraTest, ProjectionWithTangentialDistortion) {
  using PREC = TypeParam;
  auto model = makeModel<PREC>();
  model.tangentialDistortionCoeffs = AR::Math::Vector<PREC, 2>(PREC(0.001), PREC(-0.0015));
  FullCamera<PREC> camera;
  ASSERT_TRUE(camera.init(model, AR::Math::SE3<PREC>(), CamImageId("t"), false, PREC(0),
                          CaptureDetails(), 0.0));
  const AR::Math::Vector<PREC, 3> X(PREC(0.4), PREC(-0.3), PREC(1.2));
  AR::Math::Vector<PREC, 2> viaRig;
  AR::Math::Vector<PREC, 2> viaCamera;
  ASSERT_TRUE(camera.projectCameraToDevicePix(X, viaRig));
  ASSERT_TRUE(camera.getIntrinsics().tryProjectToPix(X, viaCamera));
  EXPECT_NEAR(viaRig(0), viaCamera(0), 1e-3);
  EXPECT_NEAR(viaRig(1), viaCamera(1), 1e-3);
  // The tangential terms move the pixel measurably.
  AR::Math::Vector<PREC, 2> symmetric;
  FullCamera<PREC> plain;
  ASSERT_TRUE(plain.init(makeModel<PREC>(), AR::Math::SE3<PREC>(), CamImageId("p"), false, PREC(0),
                         CaptureDetails(), 0.0));
  ASSERT_TRUE(plain.projectCameraToDevicePix(X, symmetric));
  EXPECT_GT(std::fabs(symmetric(0) - viaRig(0)), PREC(0.05));
}

// ---------------------------------------------------------------------------
// FullStereoCameraCalibration

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
      EXPECT_TRUE(camera.init(makeModel<PREC>(LINEAR), makePose<PREC>(), CamImageId(name), false,
                              PREC(0), CaptureDetails(), 0.0));
      rig.push_back(camera);
    }
    return rig;
  }
};
TYPED_TEST_SUITE(RigTest, Precisions);

TYPED_TEST(RigTest, DefaultIdsAreAppendedUpToTheCount) {
  typename TestFixture::Rig rig;
  rig.setupEmptyCalibrationWithDefaultIds(3);
  ASSERT_EQ(rig.size(), 3u);
  EXPECT_EQ(rig[0].getNameStr(), "default_cam_0");
  EXPECT_EQ(rig[2].getNameStr(), "default_cam_2");
  EXPECT_FALSE(rig[1].isInitialized());
  rig.setupEmptyCalibrationWithDefaultIds(2);
  EXPECT_EQ(rig.size(), 3u);
  rig.setupEmptyCalibrationWithDefaultIds(4);
  ASSERT_EQ(rig.size(), 4u);
  EXPECT_EQ(rig[3].getNameStr(), "default_cam_3");
  EXPECT_EQ(rig[0].getNameStr(), "default_cam_0");
}

TYPED_TEST(RigTest, NoCameraIdsProvided) {
  using Rig = typename TestFixture::Rig;
  EXPECT_TRUE(Rig::noCameraIdsProvided(std::vector<CamImageId>()));
  EXPECT_TRUE(Rig::noCameraIdsProvided(
      std::vector<CamImageId>{CamImageId("left"), CamImageId("default_cam_7")}));
  EXPECT_FALSE(
      Rig::noCameraIdsProvided(std::vector<CamImageId>{CamImageId("left"), CamImageId("right")}));
  EXPECT_FALSE(Rig::noCameraIdsProvided(std::vector<CamImageId>{CamImageId("my_default_cam_1")}));
}

TYPED_TEST(RigTest, SelectCamerasKeepsTheRigOrder) {
  const auto rig = TestFixture::makeRig({"left", "right", "cam2"});
  const std::vector<CamImageId> ids{CamImageId("right"), CamImageId("left")};
  LogCapture log;
  const auto subset = rig.selectCameras(ids);
  EXPECT_TRUE(log.messages().empty());
  ASSERT_EQ(subset.size(), 2u);
  EXPECT_EQ(subset[0].getNameStr(), "left");
  EXPECT_EQ(subset[1].getNameStr(), "right");
  EXPECT_EQ(subset.getDeviceUID(), "rig-uid");
  EXPECT_EQ(subset[0].getIntrinsicsPtr().get(), rig[0].getIntrinsicsPtr().get());

  const auto all = rig.selectCameras(std::vector<CamImageId>());
  EXPECT_EQ(all.size(), 3u);
  EXPECT_EQ(all.getDeviceUID(), "rig-uid");
}

TYPED_TEST(RigTest, SelectCamerasWithAnUnknownIdReportsTheSize) {
  const auto rig = TestFixture::makeRig({"left", "right"});
  LogCapture log;
  const auto subset =
      rig.selectCameras(std::vector<CamImageId>{CamImageId("right"), CamImageId("nobody")});
  ASSERT_EQ(subset.size(), 1u);
  EXPECT_EQ(subset[0].getNameStr(), "right");
  EXPECT_EQ(log.countContaining(assertText("cameraSubset.size() == camIds.size()")), 1u);
}

TYPED_TEST(RigTest, LookupById) {
  auto rig = TestFixture::makeRig({"left", "right"});
  const auto& constRig = rig;
  LogCapture log;
  EXPECT_EQ(&constRig[CamImageId("right")], &rig[1]);
  EXPECT_EQ(&rig[CamImageId("left")], &rig[0]);
  EXPECT_TRUE(log.messages().empty());
}

TYPED_TEST(RigTest, LookupOfAnUnknownIdIsLoggedAndDetectable) {
  auto rig = TestFixture::makeRig({"left", "right"});
  LogCapture log;
  const auto& found = static_cast<const typename TestFixture::Rig&>(rig)[CamImageId("ghost")];
  EXPECT_FALSE(found.isInitialized());
  EXPECT_TRUE(found.getCamId().empty());
  EXPECT_TRUE(log.has("AR ERROR: camId ghost not found in FullStereoCameraCalibration\n"))
      << (log.messages().empty() ? "" : log.messages().front());
  EXPECT_EQ(log.countContaining(assertText("0")), 1u);

  // Writing through the mutable stand-in changes nothing in the rig, and the
  // next miss gets a clean stand-in again.
  auto& missing = rig[CamImageId("ghost")];
  missing.setCamId(CamImageId("left"));
  EXPECT_EQ(rig.size(), 2u);
  EXPECT_TRUE(rig[CamImageId("ghost")].getCamId().empty());
  EXPECT_EQ(log.countContaining(assertText("0")), 3u);
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
  const auto& stale = rig.getCamIds();
  EXPECT_TRUE(stale[1] == CamImageId("right"));
  EXPECT_EQ(log.countContaining(assertText("this->at(i).getCamId() == camIdVec[i]")), 1u);

  // A copy carries the cache along.
  log.clear();
  const auto copy = rig;
  copy.getCamIds();
  EXPECT_EQ(log.countContaining(assertText("this->at(i).getCamId() == camIdVec[i]")), 1u);
}

TYPED_TEST(RigTest, TrySetupEmptyCalibration) {
  typename TestFixture::Rig rig;
  const std::vector<CamImageId> ids{CamImageId("b"), CamImageId("a")};
  LogCapture log;
  rig.trySetupEmptyCalibration(ids);
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

TYPED_TEST(RigTest, IsInitialized) {
  typename TestFixture::Rig empty;
  EXPECT_FALSE(empty.isInitialized());
  auto rig = TestFixture::makeRig({"left", "right"});
  EXPECT_TRUE(rig.isInitialized());
  rig.setupEmptyCalibrationWithDefaultIds(3);
  EXPECT_FALSE(rig.isInitialized());
}

}  // namespace
}  // namespace CV
}  // namespace AR
