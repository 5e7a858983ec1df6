#include "AR/CV/Camera/CalibrationFile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "LogCapture.h"

namespace AR {
namespace CV {
namespace {

/// Runs `fn` with standard output captured: building a camera prints its
/// valid distortion range.
template <typename FN>
auto quietly(FN fn) {
  testing::internal::CaptureStdout();
  auto result = fn();
  testing::internal::GetCapturedStdout();
  return result;
}

template <typename PREC>
bool loadString(const std::string& xml, FullStereoCameraCalibration<PREC>& calibration,
                DisplayEyes* eyes, std::string* error) {
  return quietly([&] { return loadCalibrationFromString(xml, calibration, eyes, error); });
}

/// Realistic coefficients for each lens model.
template <typename PREC>
CamModel::CameraModel<PREC> modelFor(DistortionModel distortion, PREC shift) {
  CamModel::CameraModel<PREC> model;
  model.size = AR::Math::Vector<PREC, 2>(PREC(640), PREC(480));
  model.principalPoint = AR::Math::Vector<PREC, 2>(PREC(319.37) + shift, PREC(241.06) - shift);
  model.focalLength = AR::Math::Vector<PREC, 2>(PREC(281.13) + shift, PREC(280.77));
  model.model = distortion;
  const double coefficients[6][6] = {
      {0, 0, 0, 0, 0, 0},
      {-0.2831, 0.0712, 0, 0, 0, 0},
      {-0.2796, 0.0689, -0.00791, 0, 0, 0},
      {0.4513, -0.0204, 0.00117, 0.7829, 0.0533, 0.00214},
      {0.9217, 0, 0, 0, 0, 0},
      {-0.00612, 0.04182, -0.03911, 0.00663, 0, 0},
  };
  for (int i = 0; i < 6; ++i)
    model.radialDistortionCoeffs(i) = static_cast<PREC>(coefficients[distortion][i]);
  if (distortion == RADIAL_2_PARAMETERS || distortion == RADIAL_3_PARAMETERS ||
      distortion == RADIAL_6_PARAMETERS)
    model.tangentialDistortionCoeffs = AR::Math::Vector<PREC, 2>(PREC(0.00031), PREC(-0.00023));
  model.maxValidDistortionRSq = PREC(81);
  model.maxValidUndistortionRSq = PREC(81);
  model.setupValidDistortionRange();
  return model;
}

template <typename PREC>
FullStereoCameraCalibration<PREC> makeRig(DistortionModel distortion) {
  FullStereoCameraCalibration<PREC> rig;
  rig.setDeviceUID("HMD \"serial\" <42> & co");
  const AR::Math::Vector<PREC, 6> motions[2] = {
      {PREC(0.0496), PREC(0.0055), PREC(-0.0169), PREC(3.118), PREC(0.021), PREC(-0.034)},
      {PREC(-0.0491), PREC(0.0049), PREC(-0.0172), PREC(3.121), PREC(-0.011), PREC(0.043)}};
  const char* ids[2] = {"trackingA0", "trackingB1"};
  for (int i = 0; i < 2; ++i) {
    const CaptureDetails details{1280, 960, i, -i, 7, 8, 2, 2};
    FullCamera<PREC> camera;
    const bool ok = quietly([&] {
      return camera.init(modelFor<PREC>(distortion, PREC(0.37) * PREC(i)),
                         AR::Math::SE3<PREC>::exp(motions[i]), CamImageId(ids[i]), i == 1,
                         PREC(i) * PREC(1.9e-5), details, 0.00012 * i + 1.0 / 3.0);
    });
    EXPECT_TRUE(ok) << CamModel::modelName(distortion);
    rig.push_back(camera);
  }
  rig[1].getRSCorrector().referenceRow = PREC(233.5);
  return rig;
}

DisplayEyes makeEyes() {
  DisplayEyes eyes;
  eyes.present = true;
  eyes.left = {1280, 1280, 612.25, 611.75,
               AR::Math::SE3<double>::exp(
                   AR::Math::Vector<double, 6>(0.0315, 0.012, -0.062, 0.01, -0.02, 0.003))};
  eyes.right = {1440, 1280, 612.25, 611.75,
                AR::Math::SE3<double>::exp(
                    AR::Math::Vector<double, 6>(-0.0315, 0.012, -0.062, 0.01, 0.02, -0.003))};
  return eyes;
}

template <typename T>
void expectSamePose(const AR::Math::SE3<T>& a, const AR::Math::SE3<T>& b) {
  EXPECT_EQ(a.rotation().matrix(), b.rotation().matrix());
  EXPECT_EQ(a.translation(), b.translation());
}

template <typename PREC>
void expectSameRig(const FullStereoCameraCalibration<PREC>& a,
                   const FullStereoCameraCalibration<PREC>& b) {
  EXPECT_EQ(a.getDeviceUID(), b.getDeviceUID());
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    SCOPED_TRACE("camera " + std::to_string(i));
    EXPECT_EQ(a[i].getNameStr(), b[i].getNameStr());
    EXPECT_TRUE(b[i].isInitialized());
    const auto& ma = a[i].getIntrinsics().getCamModel();
    const auto& mb = b[i].getIntrinsics().getCamModel();
    // Every number of the model, the derived limits included, bit for bit
    // (field by field: the padding between fields carries no value).
    const auto sameBits = [](const auto& x, const auto& y) { return std::memcmp(&x, &y, sizeof(x)) == 0; };
    EXPECT_TRUE(sameBits(ma.size, mb.size));
    EXPECT_TRUE(sameBits(ma.principalPoint, mb.principalPoint));
    EXPECT_TRUE(sameBits(ma.focalLength, mb.focalLength));
    EXPECT_TRUE(sameBits(ma.radialDistortionCoeffs, mb.radialDistortionCoeffs));
    EXPECT_TRUE(sameBits(ma.tangentialDistortionCoeffs, mb.tangentialDistortionCoeffs));
    EXPECT_EQ(ma.model, mb.model);
    EXPECT_TRUE(sameBits(ma.maxValidDistortionRSq, mb.maxValidDistortionRSq));
    EXPECT_TRUE(sameBits(ma.maxValidUndistortionRSq, mb.maxValidUndistortionRSq));
    expectSamePose(a[i].getCamReferenceToLocal(), b[i].getCamReferenceToLocal());
    EXPECT_EQ(a[i].getRSCorrector().isRollingShutter, b[i].getRSCorrector().isRollingShutter);
    EXPECT_EQ(a[i].getRSCorrector().lineTime, b[i].getRSCorrector().lineTime);
    EXPECT_EQ(a[i].getRSCorrector().referenceRow, b[i].getRSCorrector().referenceRow);
    EXPECT_EQ(a[i].getCaptureDetails(), b[i].getCaptureDetails());
    EXPECT_EQ(a[i].getDelta(), b[i].getDelta());
  }
}

// ---------------------------------------------------------------------------
// Round trips, one per lens model, in both precisions.

class CalibrationFileRoundTripTest : public ::testing::TestWithParam<DistortionModel> {
 protected:
  template <typename PREC>
  void roundTrip() {
    const FullStereoCameraCalibration<PREC> rig = makeRig<PREC>(GetParam());
    const DisplayEyes eyes = makeEyes();
    std::string xml;
    std::string error;
    ASSERT_TRUE(saveCalibrationToString(rig, &eyes, xml, &error)) << error;

    FullStereoCameraCalibration<PREC> loaded;
    DisplayEyes loadedEyes;
    ASSERT_TRUE(loadString(xml, loaded, &loadedEyes, &error)) << error << "\n" << xml;
    expectSameRig(rig, loaded);
    EXPECT_TRUE(loadedEyes.present);

    // Saving what was loaded writes the same text again (the display eyes
    // are checked through it: every field of theirs is written).
    std::string again;
    ASSERT_TRUE(saveCalibrationToString(loaded, &loadedEyes, again, &error)) << error;
    EXPECT_EQ(xml, again);
  }
};

TEST_P(CalibrationFileRoundTripTest, Float) { roundTrip<float>(); }
TEST_P(CalibrationFileRoundTripTest, Double) { roundTrip<double>(); }

INSTANTIATE_TEST_SUITE_P(AllLensModels, CalibrationFileRoundTripTest,
                         ::testing::Values(LINEAR, RADIAL_2_PARAMETERS, RADIAL_3_PARAMETERS,
                                           RADIAL_6_PARAMETERS, FISHEYE_1_PARAMETER,
                                           FISHEYE_4_PARAMETERS),
                         [](const testing::TestParamInfo<DistortionModel>& info) {
                           return CamModel::modelName(info.param);
                         });

TEST(CalibrationFileTest, FilesAndUnsavableRigs) {
  const auto rig = makeRig<double>(FISHEYE_4_PARAMETERS);
  const std::string path = testing::TempDir() + "cv_rig_file_test_rig.xml";
  std::string error;
  ASSERT_TRUE(saveCalibration(path, rig, nullptr, &error)) << error;
  FullStereoCameraCalibration<double> loaded;
  DisplayEyes eyes = makeEyes();
  ASSERT_TRUE(quietly([&] { return loadCameraCalibFromDeviceConfig(path, loaded, &eyes, &error); }))
      << error;
  expectSameRig(rig, loaded);
  EXPECT_FALSE(eyes.present);
  std::remove(path.c_str());

  EXPECT_FALSE(loadCameraCalibFromDeviceConfig(path, loaded, nullptr, &error));
  EXPECT_EQ(error.rfind(path + ": ", 0), 0u) << error;
  const std::string badDir = testing::TempDir() + "no-such-dir/rig.xml";
  EXPECT_FALSE(saveCalibration(badDir, rig, nullptr, &error));
  EXPECT_EQ(error.rfind(badDir + ": ", 0), 0u) << error;

  FullStereoCameraCalibration<float> placeholders;
  placeholders.setupEmptyCalibrationWithDefaultIds(1);
  std::string xml = "untouched";
  EXPECT_FALSE(saveCalibrationToString(placeholders, nullptr, xml, &error));
  EXPECT_EQ(error, "camera 0 ('default_cam_0') has no intrinsics and cannot be saved");
  EXPECT_EQ(xml, "untouched");
}

template <typename PREC>
class ExampleRigTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ExampleRigTest, Precisions);

TYPED_TEST(ExampleRigTest, LoadsAsARealisticRig) {
  using PREC = TypeParam;
  FullStereoCameraCalibration<PREC> rig;
  DisplayEyes eyes;
  std::string error;
  AR::Test::LogCapture log;
  ASSERT_TRUE(quietly([&] {
    return loadCameraCalibFromDeviceConfig(AR_EXAMPLE_RIG, rig, &eyes, &error);
  })) << error;
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  ASSERT_EQ(rig.size(), 2u);
  EXPECT_TRUE(rig.isInitialized());
  EXPECT_EQ(rig[0].getNameStr(), "trackingA0");
  EXPECT_EQ(rig[1].getNameStr(), "trackingB1");
  EXPECT_TRUE(eyes.present);

  // Baseline about 10 cm, a few degrees between the optical axes.
  const auto right = rig[1].getCamReferenceToLocal() * rig[0].getLocalToCamReference();
  EXPECT_NEAR(AR::Math::norm(right.translation()), PREC(0.1), PREC(0.002));
  AR::Math::Vector<PREC, 3> axis;
  PREC angle = PREC(0);
  AR::Math::matrix2AxisAngle(right.rotation().matrix(), axis, angle);
  EXPECT_GT(angle, PREC(0.02));
  EXPECT_LT(angle, PREC(0.15));

  // A point 2 m ahead of the device is seen near the centre of both cameras.
  const AR::Math::Vector<PREC, 3> ahead(PREC(0), PREC(0), PREC(-2));
  for (size_t i = 0; i < 2; ++i) {
    AR::Math::Vector<PREC, 2> pixel;
    ASSERT_TRUE(rig[i].projectCameraToDevicePix(ahead, pixel));
    EXPECT_NEAR(pixel(0), PREC(320), PREC(40));
    EXPECT_NEAR(pixel(1), PREC(240), PREC(40));
  }
}

/// One camera, every element present; each malformed case edits one piece of it.
const char* const kValidFile =
    "<?xml version=\"1.0\"?>\n"
    "<DeviceConfiguration deviceUID=\"uid\">\n"
    "  <Camera id=\"cam\">\n"
    "    <Calibration size=\"640 480 \" principal_point=\"320 240 \" focal_length=\"280 280 \"\n"
    "                 model=\"RADIAL_3_PARAMETERS\" radial_distortion=\"-0.28 0.07 -0.008 0 0 0 "
    "\"\n"
    "                 tangential_distortion=\"0.0003 -0.0002 \"/>\n"
    "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.05 0 0\"/>\n"
    "    <RollingShutter enabled=\"true\" line_time=\"2e-5\"/>\n"
    "    <CaptureDetails nativeSensorWidth=\"640\" nativeSensorHeight=\"480\" cropL=\"0\"\n"
    "                    cropR=\"0\" cropT=\"0\" cropB=\"0\" binningH=\"1\" binningV=\"1\"/>\n"
    "    <TimeAlignment delta=\"0.001\"/>\n"
    "  </Camera>\n"
    "  <DisplayEye side=\"left\" width=\"1280\" height=\"1280\" fx=\"612\" fy=\"612\">\n"
    "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.03 0 0\"/>\n"
    "  </DisplayEye>\n"
    "  <DisplayEye side=\"right\" width=\"1280\" height=\"1280\" fx=\"612\" fy=\"612\">\n"
    "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"-0.03 0 0\"/>\n"
    "  </DisplayEye>\n"
    "</DeviceConfiguration>\n";

struct MalformedCase {
  const char* name;
  const char* from;     // text in kValidFile
  const char* to;       // its replacement
  const char* message;  // expected part of the error
};

std::ostream& operator<<(std::ostream& os, const MalformedCase& c) { return os << c.name; }

std::string edited(const char* from, const char* to) {
  std::string text = kValidFile;
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, std::strlen(from), to);
  return text;
}

/// Loading `text` fails with `message` and leaves rig and eyes as they were.
template <typename PREC>
void expectRejected(const std::string& text, const std::string& message) {
  FullStereoCameraCalibration<PREC> rig;
  rig.setupEmptyCalibrationWithDefaultIds(3);
  rig.setDeviceUID("before");
  DisplayEyes eyes = makeEyes();
  std::string error;
  EXPECT_FALSE(loadString(text, rig, &eyes, &error));
  EXPECT_NE(error.find(message), std::string::npos) << "expected: " << message << "\nactual:   " << error;
  EXPECT_EQ(rig.size(), 3u);
  EXPECT_EQ(rig.getDeviceUID(), "before");
  EXPECT_EQ(eyes.right.width, 1440);
}

TEST(MalformedFileTest, TheBaseFileIsValid) {
  FullStereoCameraCalibration<double> rig;
  DisplayEyes eyes;
  std::string error;
  ASSERT_TRUE(loadString(kValidFile, rig, &eyes, &error)) << error;
  ASSERT_EQ(rig.size(), 1u);
  EXPECT_TRUE(rig[0].getRSCorrector().isRollingShutter);
  EXPECT_EQ(rig[0].getRSCorrector().referenceRow, 240.0);
  EXPECT_EQ(rig[0].getDelta(), 0.001);
  EXPECT_TRUE(eyes.present);
}

class MalformedFileCaseTest : public ::testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedFileCaseTest, IsRejectedWithItsMessageAndChangesNothing) {
  const std::string text = edited(GetParam().from, GetParam().to);
  expectRejected<float>(text, GetParam().message);
  expectRejected<double>(text, GetParam().message);
}

const MalformedCase kMalformedCases[] = {
    {"BadXml", "</DeviceConfiguration>", "</DeviceConfig>", "XML parse error"},
    {"MissingId", "<Camera id=\"cam\">", "<Camera name=\"cam\">",
     "element 'Camera' (line 3): attribute 'id' is missing"},
    {"EmptyId", "<Camera id=\"cam\">", "<Camera id=\"\">", "attribute 'id' is empty"},
    {"OverlongId", "<Camera id=\"cam\">",
     "<Camera id=\"cam_0123456789012345678901234567890123456789012345678901234567890\">",
     "is longer than 63 characters"},
    {"MissingFocalLength", "focal_length=\"280 280 \"", "",
     "element 'Calibration' of camera 'cam' (line 4): attribute 'focal_length' is missing"},
    {"UnparsableNumber", "principal_point=\"320 240 \"", "principal_point=\"320 240px \"",
     "attribute 'principal_point' value '240px' is not a number"},
    {"UnknownModel", "model=\"RADIAL_3_PARAMETERS\"", "model=\"RADIAL_4_PARAMETERS\"",
     "attribute 'model' names an unknown distortion model 'RADIAL_4_PARAMETERS'"},
    {"TooFewCoefficients", "radial_distortion=\"-0.28 0.07 -0.008 0 0 0 \"",
     "radial_distortion=\"-0.28 0.07 -0.008 0 0 \"",
     "attribute 'radial_distortion' holds 5 values, expected 6"},
    {"TooManySizeValues", "size=\"640 480 \"", "size=\"640 480 3\"",
     "attribute 'size' holds 3 values, expected 2"},
    {"NaN", "focal_length=\"280 280 \"", "focal_length=\"280 nan \"",
     "attribute 'focal_length' value 'nan' is not finite"},
    {"Overflow", "focal_length=\"280 280 \"", "focal_length=\"280 1e400 \"",
     "attribute 'focal_length' value '1e400' is not finite"},
    {"HugeCoefficient", "-0.008 0 0 0 \"", "-8e20 0 0 0 \"",
     "attribute 'radial_distortion' holds a coefficient beyond +-10000"},
    {"CoefficientBeyondTheModel", "model=\"RADIAL_3_PARAMETERS\"", "model=\"RADIAL_2_PARAMETERS\"",
     "element 'Calibration' of camera 'cam' (line 4): invalid intrinsics"},
    {"MissingPose", "<Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.05 0 0\"/>", "",
     "element 'Camera' of camera 'cam' (line 3): missing child element 'Pose'"},
    {"Reflection", "rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.05",
     "rotation=\"1 0 0 0 1 0 0 0 -1\" translation=\"0.05",
     "attribute 'rotation' is not a rotation matrix"},
    {"ScaledRotation", "rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.05",
     "rotation=\"2 0 0 0 2 0 0 0 2\" translation=\"0.05",
     "attribute 'rotation' is not a rotation matrix"},
    {"BadBoolean", "enabled=\"true\"", "enabled=\"yes\"",
     "element 'RollingShutter' of camera 'cam' (line 8): attribute 'enabled' value 'yes' is not a "
     "boolean"},
    {"MissingCrop", "cropT=\"0\" ", "",
     "element 'CaptureDetails' of camera 'cam' (line 9): attribute 'cropT' is missing"},
    {"FractionalCrop", "cropB=\"0\"", "cropB=\"1.5\"",
     "attribute 'cropB' value '1.5' is not an integer"},
    {"CropOutOfRange", "cropB=\"0\"", "cropB=\"4294967296\"",
     "attribute 'cropB' value '4294967296' is out of range"},
    {"DuplicateCamera", "  </Camera>\n",
     "  </Camera>\n  <Camera id=\"cam\"><Calibration size=\"640 480\" principal_point=\"320 240\" "
     "focal_length=\"280 280\" model=\"LINEAR\" radial_distortion=\"0 0 0 0 0 0\"/>"
     "<Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0 0 0\"/></Camera>\n",
     "attribute 'id' repeats camera 'cam'"},
    {"UnknownSide", "side=\"right\"", "side=\"middle\"",
     "attribute 'side' value 'middle' is neither 'left' nor 'right'"},
    {"RepeatedSide", "side=\"right\"", "side=\"left\"", "attribute 'side' repeats the left eye"},
    {"ZeroWidthEye", "<DisplayEye side=\"left\" width=\"1280\"",
     "<DisplayEye side=\"left\" width=\"0\"",
     "element 'DisplayEye' of display eye 'left' (line 13): attribute 'width' must be positive"},
};

INSTANTIATE_TEST_SUITE_P(Cases, MalformedFileCaseTest, ::testing::ValuesIn(kMalformedCases),
                         [](const testing::TestParamInfo<MalformedCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(MalformedFileTest, RootsAndEyePairs) {
  expectRejected<double>("<Rig><DeviceConfiguration/></Rig>",
                         "root element is 'Rig', expected 'DeviceConfiguration'");
  expectRejected<double>("<DeviceConfiguration deviceUID=\"x\"/>",
                         "element 'DeviceConfiguration' holds no 'Camera' element");
  expectRejected<double>("", "XML parse error");
  const char* const rightEye =
      "  <DisplayEye side=\"right\" width=\"1280\" height=\"1280\" fx=\"612\" fy=\"612\">\n"
      "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"-0.03 0 0\"/>\n"
      "  </DisplayEye>\n";
  expectRejected<double>(edited(rightEye, ""),
                         "display eyes come in pairs, the right 'DisplayEye' is missing");
}

TEST(MalformedFileTest, FloatRangeIsChecked) {
  // Representable as a double but not as a float.
  expectRejected<float>(edited("focal_length=\"280 280 \"", "focal_length=\"280 1e39 \""),
                        "attribute 'focal_length' value '1e39' is out of range");
}

}  // namespace
}  // namespace CV
}  // namespace AR
