#include "AR/CV/Camera/StereoCamera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"

namespace AR::CV {
namespace {

using AR::Test::LogCapture;
using Ids = std::vector<CamImageId>;

/// What logError writes for a failed condition, up to the source file.
std::string assertText(const std::string& condition) { return "AR_ASSERT " + condition + " "; }

template <typename PREC>
CamModel::CameraModel<PREC> makeModel(DistortionModel distortion = RADIAL_3_PARAMETERS) {
  CamModel::CameraModel<PREC> model;
  model.size = AR::Math::Vector<PREC, 2>(PREC(640), PREC(480));
  model.principalPoint = AR::Math::Vector<PREC, 2>(PREC(321.5), PREC(238.25));
  model.focalLength = AR::Math::Vector<PREC, 2>(PREC(400), PREC(402));
  model.model = distortion;
  if (distortion == RADIAL_3_PARAMETERS)
    model.radialDistortionCoeffs = AR::Math::Vector<PREC, 6>(PREC(-0.12), PREC(0.03), PREC(-0.002), 0, 0, 0);
  model.setupValidDistortionRange();
  return model;
}

/// A global-shutter camera without capture details or time offset.
template <typename PREC>
bool initCamera(FullCamera<PREC>& camera, const char* name,
                const CamModel::CameraModel<PREC>& model = makeModel<PREC>(),
                const AR::Math::SE3<PREC>& pose = AR::Math::SE3<PREC>::exp(AR::Math::Vector<PREC, 6>(
                    PREC(0.05), PREC(-0.01), PREC(0.02), PREC(0.03), PREC(-0.04), PREC(0.02)))) {
  return camera.init(model, pose, CamImageId(name), false, PREC(0), CaptureDetails(), 0.0);
}

/// Uninitialised cameras with the given ids, in order.
template <typename PREC>
FullStereoCameraCalibration<PREC> makeRig(const Ids& ids) {
  FullStereoCameraCalibration<PREC> rig;
  rig.setDeviceUID("rig-uid");
  rig.trySetupEmptyCalibration(ids);
  return rig;
}

TEST(CamImageIdTest, SeventyCharacterNamesAndHashEquality) {
  LogCapture log;
  EXPECT_EQ(CamImageId(std::string(63, 'a').c_str()).getNameStr(), std::string(63, 'a'));
  EXPECT_TRUE(log.messages().empty());
  // Cut to 64 characters without a terminator: reported, and reported again on reading.
  const CamImageId id(std::string(70, 'x').c_str());
  EXPECT_EQ(std::string(id.getName()), std::string(64, 'x'));
  EXPECT_EQ(log.countContaining(assertText("len < fixedLengthString.size()")), 1u);
  EXPECT_EQ(log.countContaining(assertText(
                "strnlen(fixedLengthString.data(), fixedLengthString.size()) < fixedLengthString.size()")), 1u);
  // Names that differ only beyond the kept characters hash alike, and ids compare by hash.
  EXPECT_TRUE(CamImageId((std::string(70, 'x') + "-other").c_str()) == id);
  EXPECT_FALSE(CamImageId("left") == CamImageId("right"));
  EXPECT_TRUE(cameraIdToString(0) == "left" && cameraIdToString(1) == "right" && cameraIdToString(17) == "cam17");
}

template <typename PREC>
class FullCameraTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FullCameraTest, Precisions);

TYPED_TEST(FullCameraTest, ReinitialisingACopyLeavesTheOriginalsIntrinsics) {
  FullCamera<TypeParam> first;
  ASSERT_TRUE(initCamera(first, "first"));
  FullCamera<TypeParam> copy(first);
  EXPECT_EQ(AR::Common::refCount(first.getIntrinsicsPtr()), 2);
  LogCapture log;
  ASSERT_TRUE(initCamera(copy, "copy", makeModel<TypeParam>(LINEAR)));
  EXPECT_EQ(log.countContaining(assertText("!isInitialized()")), 1u);
  EXPECT_EQ(AR::Common::refCount(first.getIntrinsicsPtr()), 1);
  EXPECT_EQ(first.getIntrinsics().getRadialDistortionModel(), RADIAL_3_PARAMETERS);
}

TYPED_TEST(FullCameraTest, ProjectionAppliesThePoseAndNeedsDepthAndTheValidRange) {
  using PREC = TypeParam;
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  auto model = makeModel<PREC>();
  model.tangentialDistortionCoeffs = Vec2(PREC(0.001), PREC(-0.0015));
  FullCamera<PREC> camera;
  ASSERT_TRUE(initCamera(camera, "c", model));
  for (const Vec3& X : {Vec3(PREC(0.3), PREC(-0.2), PREC(2)), Vec3(PREC(-1), PREC(0.5), PREC(1.5))}) {
    Vec2 viaRig, viaCamera;
    ASSERT_TRUE(camera.projectCameraToDevicePix(X, viaRig));
    ASSERT_TRUE(camera.getIntrinsics().tryProjectToPix(camera.getCamReferenceToLocal() * X, viaCamera));
    EXPECT_NEAR(viaRig(0), viaCamera(0), 1e-3);
    EXPECT_NEAR(viaRig(1), viaCamera(1), 1e-3);
  }
  // In the camera's own frame: under 1 cm deep, behind, or at ideal radius 100.
  Vec2 pixel(PREC(-7), PREC(-7));
  for (const Vec3& local : {Vec3(0, 0, PREC(0.0099)), Vec3(0, 0, PREC(-1)), Vec3(PREC(100), 0, 1)})
    EXPECT_FALSE(camera.projectCameraToDevicePix(camera.getLocalToCamReference() * local, pixel)) << local(2);
  EXPECT_EQ(pixel, Vec2(PREC(-7), PREC(-7)));
  EXPECT_TRUE(camera.projectCameraToDevicePix(camera.getLocalToCamReference() * Vec3(0, 0, PREC(0.0101)), pixel));
  EXPECT_NEAR(pixel(0), model.principalPoint(0), 1e-2);
}

template <typename PREC>
class RigTest : public ::testing::Test {};
TYPED_TEST_SUITE(RigTest, Precisions);

TYPED_TEST(RigTest, PlaceholderIds) {
  FullStereoCameraCalibration<TypeParam> rig;
  EXPECT_FALSE(rig.isInitialized());
  for (size_t count : {3, 2, 4}) rig.setupEmptyCalibrationWithDefaultIds(count);  // the 2 changes nothing
  ASSERT_EQ(rig.size(), 4u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(rig[i].getNameStr(), "default_cam_" + std::to_string(i));
  EXPECT_TRUE(rig.noCameraIdsProvided(Ids()));
  EXPECT_TRUE(rig.noCameraIdsProvided(Ids{CamImageId("left"), CamImageId("default_cam_7")}));
  EXPECT_FALSE(rig.noCameraIdsProvided(Ids{CamImageId("left"), CamImageId("my_default_cam_1")}));

  // Ids fill an empty rig; a rig that has cameras only reports the ids it lacks.
  LogCapture log;
  auto named = makeRig<TypeParam>({CamImageId("b"), CamImageId("a")});
  named.trySetupEmptyCalibration(Ids{CamImageId("a"), CamImageId("c")});
  EXPECT_TRUE(named.size() == 2u && named[0].getNameStr() == "b");
  EXPECT_EQ(log.countContaining(assertText("find_if(this->begin(), this->end(), [&camId](const FullCamera<PREC> & "
                                           "cam){ return cam.getCamId() == camId; }) != this->end()")), 1u);
}

TYPED_TEST(RigTest, SelectCamerasKeepsTheRigOrder) {
  const auto rig = makeRig<TypeParam>({CamImageId("left"), CamImageId("right"), CamImageId("cam2")});
  LogCapture log;
  const auto subset = rig.selectCameras(Ids{CamImageId("right"), CamImageId("left")});
  EXPECT_TRUE(subset.size() == 2u && subset[0].getNameStr() == "left" && subset.getDeviceUID() == "rig-uid");
  EXPECT_EQ(rig.selectCameras(Ids()).size(), 3u);
  EXPECT_TRUE(log.messages().empty());
  // An id that no camera has: the matching subset, and the size is reported.
  const auto partial = rig.selectCameras(Ids{CamImageId("right"), CamImageId("nobody")});
  EXPECT_TRUE(partial.size() == 1u && partial[0].getNameStr() == "right");
  EXPECT_EQ(log.countContaining(assertText("cameraSubset.size() == camIds.size()")), 1u);
}

TYPED_TEST(RigTest, LookupById) {
  auto rig = makeRig<TypeParam>({CamImageId("left"), CamImageId("right")});
  LogCapture log;
  EXPECT_EQ(&std::as_const(rig)[CamImageId("right")], &rig[1]);
  EXPECT_TRUE(log.messages().empty());
  // An unknown id is logged and reported; the stand-in has no id, and writing through it reaches nothing.
  rig[CamImageId("ghost")].setCamId(CamImageId("left"));
  EXPECT_TRUE(log.has("AR ERROR: camId ghost not found in FullStereoCameraCalibration\n"));
  EXPECT_EQ(log.countContaining(assertText("0")), 1u);
  EXPECT_TRUE(std::as_const(rig)[CamImageId("ghost")].getCamId().empty());
  EXPECT_TRUE(rig.size() == 2u && rig[CamImageId("ghost")].getCamId().empty());
}

TYPED_TEST(RigTest, StaleIdCacheIsReported) {
  auto rig = makeRig<TypeParam>({CamImageId("left"), CamImageId("right")});
  LogCapture log;
  ASSERT_EQ(rig.getCamIds().size(), 2u);
  // Renaming a camera, then adding one, after the cache was filled.
  rig[1].setCamId(CamImageId("other"));
  EXPECT_TRUE(rig.getCamIds()[1] == CamImageId("right"));
  const std::string stale = assertText("this->at(i).getCamId() == camIdVec[i]");
  EXPECT_TRUE(log.messages().size() == 1u && log.countContaining(stale) == 1u);
  rig.setupEmptyCalibrationWithDefaultIds(3);
  rig.getCamIds();
  EXPECT_EQ(log.countContaining(stale), 3u);
}

}  // namespace
}  // namespace AR::CV
