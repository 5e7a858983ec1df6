#include "AR/CV/Camera/CalibrationFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "RecordRig.h"

namespace RecordRig {
void PrintTo(const LensCase& lens, std::ostream* os) { *os << lens.name; }
}  // namespace RecordRig

namespace AR::CV {
namespace {

/// Runs `fn` with standard output captured: building a camera prints its valid distortion range.
template <typename FN>
auto quietly(FN fn) {
  testing::internal::CaptureStdout();
  auto result = fn();
  testing::internal::GetCapturedStdout();
  return result;
}

/// Two cameras with `lens`, no field left at its default.
template <typename PREC>
FullStereoCameraCalibration<PREC> makeRig(const RecordRig::LensCase& lens) {
  FullStereoCameraCalibration<PREC> rig;
  rig.setDeviceUID("HMD \"serial\" <42> & co");
  for (int i = 0; i < 2; ++i) {
    CamModel::CameraModel<PREC> model;
    model.size = AR::Math::Vector<PREC, 2>(PREC(640), PREC(480));
    model.principalPoint = AR::Math::Vector<PREC, 2>(PREC(319.37) + PREC(0.37) * PREC(i), PREC(241.06));
    model.focalLength = AR::Math::Vector<PREC, 2>(PREC(281.13), PREC(280.77) - PREC(0.37) * PREC(i));
    model.model = DistortionModel(lens.model);
    for (size_t j = 0; j < lens.k.size(); ++j) model.radialDistortionCoeffs(j) = PREC(lens.k[j]);
    model.tangentialDistortionCoeffs = AR::Math::Vector<PREC, 2>(PREC(lens.p1), PREC(lens.p2));
    model.setupValidDistortionRange();
    const auto pose = AR::Math::SE3<PREC>::exp(AR::Math::Vector<PREC, 6>(
        PREC(0.0496) - PREC(0.0987) * PREC(i), PREC(0.0055), PREC(-0.0169), PREC(3.118), PREC(0.021), PREC(-0.034)));
    const CaptureDetails details{1280, 960, i, -i, 7, 8, 2, 2};  // every field distinct from the defaults
    rig.emplace_back();
    EXPECT_TRUE(quietly([&] {
      return rig.back().init(model, pose, CamImageId(i ? "B1" : "A0"), i == 1, PREC(1.9e-5) * PREC(i), details,
                             0.3 + 1e-4 * i);
    }));
  }
  rig[1].getRSCorrector().referenceRow = PREC(233.5);
  return rig;
}

template <typename PREC>
void expectSameRig(const FullStereoCameraCalibration<PREC>& a, const FullStereoCameraCalibration<PREC>& b) {
  ASSERT_TRUE(a.size() == b.size() && a.getDeviceUID() == b.getDeviceUID());
  for (size_t i = 0; i < a.size(); ++i) {
    const auto &ma = a[i].getIntrinsics().getCamModel(), &mb = b[i].getIntrinsics().getCamModel();
    EXPECT_TRUE(ma.size == mb.size && ma.principalPoint == mb.principalPoint && ma.focalLength == mb.focalLength &&
                ma.radialDistortionCoeffs == mb.radialDistortionCoeffs && ma.model == mb.model &&
                ma.tangentialDistortionCoeffs == mb.tangentialDistortionCoeffs &&
                ma.maxValidDistortionRSq == mb.maxValidDistortionRSq &&
                ma.maxValidUndistortionRSq == mb.maxValidUndistortionRSq) << "intrinsics of camera " << i;
    const auto &pa = a[i].getCamReferenceToLocal(), &pb = b[i].getCamReferenceToLocal();
    const auto &ra = a[i].getRSCorrector(), &rb = b[i].getRSCorrector();
    EXPECT_TRUE(pa.rotation().matrix() == pb.rotation().matrix() && pa.translation() == pb.translation() &&
                ra.isRollingShutter == rb.isRollingShutter && ra.lineTime == rb.lineTime &&
                ra.referenceRow == rb.referenceRow && a[i].getDelta() == b[i].getDelta() &&
                a[i].getNameStr() == b[i].getNameStr() && a[i].getCaptureDetails() == b[i].getCaptureDetails())
        << "identity, pose, rolling shutter, capture details or time offset of camera " << i;
  }
}

class CalibrationFileRoundTripTest : public ::testing::TestWithParam<RecordRig::LensCase> {
 protected:
  template <typename PREC>
  void roundTrip() {
    const auto rig = makeRig<PREC>(GetParam());
    DisplayEyes eyes;
    eyes.present = true;
    eyes.left = {1280, 1280, 612.25, 611.75, AR::Math::SE3<double>::exp({0.0315, 0.012, -0.062, 0.01, -0.02, 0.003})};
    eyes.right = {1440, 1280, 612.5, 611.5, AR::Math::SE3<double>::exp({-0.0315, 0.012, -0.062, 0.01, 0.02, -0.003})};
    std::string xml, again, error;
    ASSERT_TRUE(saveCalibrationToString(rig, &eyes, xml, &error)) << error;
    FullStereoCameraCalibration<PREC> loaded;
    ASSERT_TRUE(quietly([&] { return loadCalibrationFromString(xml, loaded, &eyes, &error); })) << error;
    expectSameRig(rig, loaded);
    // Saving what was loaded writes the same text again: every field of the display eyes is in it.
    ASSERT_TRUE(saveCalibrationToString(loaded, &eyes, again, &error)) << error;
    EXPECT_EQ(xml, again);
  }
};

TEST_P(CalibrationFileRoundTripTest, Float) { roundTrip<float>(); }
TEST_P(CalibrationFileRoundTripTest, Double) { roundTrip<double>(); }
INSTANTIATE_TEST_SUITE_P(AllLensModels, CalibrationFileRoundTripTest, ::testing::ValuesIn(RecordRig::realisticLenses()),
                         [](const auto& info) { return std::string(info.param.name); });

/// A rig whose rotations are a little off orthonormal, as rotations composed
/// in memory are: saving then loading must reach a fixed point at once.
template <typename PREC>
class NearRotationRoundTrip : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(NearRotationRoundTrip, Precisions);

TYPED_TEST(NearRotationRoundTrip, SecondSaveIsIdenticalAndLoadedPosesEqualTheFile) {
  using PREC = TypeParam;
  auto rig = makeRig<PREC>(RecordRig::realisticLenses()[2]);
  for (size_t i = 0; i < rig.size(); ++i) {
    auto R = rig[i].getCamReferenceToLocal().rotation().matrix();
    // Off by several hundred units of rounding, well inside the loader's tolerance.
    for (int j = 0; j < 9; ++j) R.data()[j] *= PREC(1) + PREC(300 + 50 * j) * std::numeric_limits<PREC>::epsilon();
    rig[i].setExtrinsics(AR::Math::SE3<PREC>(AR::Math::SO3<PREC>::fromOrthonormal(R),
                                             rig[i].getCamReferenceToLocal().translation()));
  }
  std::string first, second, third, error;
  ASSERT_TRUE(saveCalibrationToString(rig, nullptr, first, &error)) << error;
  FullStereoCameraCalibration<PREC> loaded, reloaded;
  ASSERT_TRUE(quietly([&] { return loadCalibrationFromString(first, loaded, nullptr, &error); })) << error;
  ASSERT_TRUE(saveCalibrationToString(loaded, nullptr, second, &error)) << error;
  EXPECT_EQ(first, second);
  ASSERT_TRUE(quietly([&] { return loadCalibrationFromString(second, reloaded, nullptr, &error); })) << error;
  expectSameRig(loaded, reloaded);
  ASSERT_TRUE(saveCalibrationToString(reloaded, nullptr, third, &error)) << error;
  EXPECT_EQ(second, third);
}

/// One camera, every element present; each malformed case edits one piece of it.
const std::string kValidFile =
    "<?xml version=\"1.0\"?>\n"
    "<DeviceConfiguration deviceUID=\"uid\">\n"
    "  <Camera id=\"cam\">\n"
    "    <Calibration size=\"640 480 \" principal_point=\"320 240 \" focal_length=\"280 280 \"\n"
    "        model=\"RADIAL_3_PARAMETERS\" radial_distortion=\"-0.28 0.07 -0.008 0 0 0 \" tangential_distortion=\"0 0\"/>\n"
    "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.05 0 0\"/>\n"
    "    <RollingShutter enabled=\"true\" line_time=\"2e-5\"/>\n"
    "  </Camera>\n"
    "  <DisplayEye side=\"left\" width=\"1280\" height=\"1280\" fx=\"612\" fy=\"612\">\n"
    "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"0.03 0 0\"/>\n"
    "  </DisplayEye>\n"
    "  <DisplayEye side=\"right\" width=\"1280\" height=\"1280\" fx=\"612\" fy=\"612\">\n"
    "    <Pose rotation=\"1 0 0 0 1 0 0 0 1\" translation=\"-0.03 0 0\"/>\n"
    "  </DisplayEye>\n"
    "</DeviceConfiguration>\n";

/// Loading `text` fails with `message` and leaves rig and eyes as they were.
template <typename PREC>
void expectRejected(const std::string& text, const std::string& message) {
  FullStereoCameraCalibration<PREC> rig;
  rig.setupEmptyCalibrationWithDefaultIds(3);
  DisplayEyes eyes;
  std::string error;
  EXPECT_FALSE(quietly([&] { return loadCalibrationFromString(text, rig, &eyes, &error); }));
  EXPECT_NE(error.find(message), std::string::npos) << "expected: " << message << "\nactual:   " << error;
  EXPECT_EQ(rig.size(), 3u);
  EXPECT_FALSE(eyes.present);
}

struct MalformedCase {
  const char* from;     // text in kValidFile
  const char* to;       // its replacement
  const char* message;  // expected part of the error
};

TEST(MalformedFileTest, EachCaseIsRejectedWithItsMessageAndChangesNothing) {
  const MalformedCase cases[] = {
      {"</DeviceConfiguration>", "</DeviceConfig>", "XML parse error"},
      {"<Camera id=", "<Camera name=", "element 'Camera' (line 3): attribute 'id' is missing"},
      {"focal_length=\"280 280 \"", "",
       "element 'Calibration' of camera 'cam' (line 4): attribute 'focal_length' is missing"},
      {"240 \"", "240px \"", "attribute 'principal_point' value '240px' is not a number"},
      {"RADIAL_3", "RADIAL_4", "attribute 'model' names an unknown distortion model 'RADIAL_4_PARAMETERS'"},
      {"0 0 0 \"", "0 0 \"", "attribute 'radial_distortion' holds 5 values, expected 6"},
      {"280 280", "280 nan", "attribute 'focal_length' value 'nan' is not finite"},
      {"280 280", "-inf 280", "attribute 'focal_length' value '-inf' is not finite"},
      {"320 240", "320 1e400", "attribute 'principal_point' value '1e400' is not finite"},
      // More values than the element holds: counted, never stored.
      {"translation=\"0.05 0 0\"", "translation=\"0.05 0 0 1e300 -1e300 7 8\"",
       "attribute 'translation' holds 7 values, expected 3"},
      {"RADIAL_3", "RADIAL_2", "element 'Calibration' of camera 'cam' (line 4): invalid intrinsics"},
      {"0 1\" translation=\"0.05", "0 -1\" translation=\"0.05", "attribute 'rotation' is not a rotation matrix"},
      {"\"true\"", "\"yes\"",
       "element 'RollingShutter' of camera 'cam' (line 7): attribute 'enabled' value 'yes' is not a boolean"},
      {"\"left\" width=\"1280\"", "\"left\" width=\"0\"",
       "element 'DisplayEye' of display eye 'left' (line 9): attribute 'width' must be positive"},
  };
  for (const MalformedCase& c : cases) {
    SCOPED_TRACE(c.message);
    std::string text = kValidFile;
    ASSERT_NE(text.find(c.from), std::string::npos) << c.from;
    text.replace(text.find(c.from), std::strlen(c.from), c.to);
    expectRejected<float>(text, c.message);
    expectRejected<double>(text, c.message);
  }
  // Representable as a double but not as a float.
  const std::string tooBigForFloat = std::string(kValidFile).replace(kValidFile.find("280 280"), 7, "280 1e39");
  expectRejected<float>(tooBigForFloat, "attribute 'focal_length' value '1e39' is out of range");
}

TEST(MalformedFileTest, StructureOfTheDocument) {
  FullStereoCameraCalibration<double> rig;
  DisplayEyes displayEyes;
  ASSERT_TRUE(quietly([&] { return loadCalibrationFromString(kValidFile, rig, &displayEyes); }));  // every case's base
  EXPECT_TRUE(rig.size() == 1u && rig[0].getRSCorrector().referenceRow == 240.0 && displayEyes.present);
  const std::string& file = kValidFile;
  const size_t camera = file.find("  <Camera"), eyes = file.find("  <DisplayEye");
  const size_t rightEye = file.rfind("  <DisplayEye");
  expectRejected<double>("<Rig><DeviceConfiguration/></Rig>", "root element is 'Rig', expected 'DeviceConfiguration'");
  expectRejected<double>(file.substr(0, camera) + file.substr(eyes), "holds no 'Camera' element");
  expectRejected<double>(file.substr(0, eyes) + file.substr(camera, eyes - camera) + file.substr(eyes),
                         "attribute 'id' repeats camera 'cam'");
  expectRejected<double>(file.substr(0, rightEye) + "</DeviceConfiguration>\n",
                         "display eyes come in pairs, the right 'DisplayEye' is missing");
}

}  // namespace
}  // namespace AR::CV
