#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "RecordRig.h"
#include "StereoRectifyWrapper.h"

namespace {

using RecordRig::LensCase;

constexpr uint32_t kMapSize = 640 * 480;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// A RADIAL_6 rig: the model whose denominator roots can be undefined.
DeviceCalibrationMRV radial6Rig() { return RecordRig::makeDevice(RecordRig::realisticLenses()[3]); }

struct Verdict {
  bool ok;
  std::string message;
};

Verdict validate(const DeviceCalibrationMRV& device) {
  char message[512];
  std::memset(message, 'x', sizeof(message));
  const bool ok = ValidateDeviceCalibration(&device, message, sizeof(message));
  return {ok, message};
}

// Every lens model on a realistic rig is accepted, and the entry points then
// run to their end on it (an abort here fails the whole test binary).
class ValidRig : public ::testing::TestWithParam<LensCase> {};

TEST_P(ValidRig, IsAcceptedAndTheEntryPointsRun) {
  const DeviceCalibrationMRV device = RecordRig::makeDevice(GetParam());
  const Verdict verdict = validate(device);
  EXPECT_TRUE(verdict.ok) << verdict.message;
  EXPECT_EQ(verdict.message, "");

  std::vector<std::vector<float>> maps(4, std::vector<float>(kMapSize, 0.0f));
  float depth = 0.0f;
  CameraCalibrationMRV rectified{};
  EXPECT_TRUE(CreateRectifyMap(&device, 0, maps[0].data(), kMapSize, maps[1].data(), kMapSize, maps[2].data(),
                               kMapSize, maps[3].data(), kMapSize, &depth, &rectified));
  EXPECT_TRUE(std::isfinite(depth) && depth > 0.0f);
  EXPECT_TRUE(CreateUndistortMap(&device, 0, 1.0f, maps[0].data(), kMapSize, maps[1].data(), kMapSize,
                                 maps[2].data(), kMapSize, maps[3].data(), kMapSize));
  const CameraCalibrationMRV eye = RecordRig::makeDisplay(64, 48, 50.0, 50.0, RecordRig::Vec3d(0, 0, 0), 0.0);
  EXPECT_TRUE(CreateFixedPlaneVSTMaps(&device, &eye, &eye, 2.0f, 0, maps[0].data(), 64 * 48, maps[1].data(),
                                      64 * 48, maps[2].data(), 64 * 48, maps[3].data(), 64 * 48));
}

INSTANTIATE_TEST_SUITE_P(AllLensModels, ValidRig, ::testing::ValuesIn(RecordRig::realisticLenses()),
                         [](const auto& info) { return std::string(info.param.name); });

/// A bad record: how it is made from a good one, and what the sentence must
/// name. `fatal` holds the assertion text the entry points abort with, or
/// is empty when they would run on with non-finite or meaningless values.
struct BadRecord {
  const char* name;
  std::function<void(DeviceCalibrationMRV&)> spoil;
  std::string expectedStart;
  const char* fatal;
};

void PrintTo(const BadRecord& bad, std::ostream* os) { *os << bad.name; }

std::vector<BadRecord> badRecords() {
  return {
      {"Radial6CoefficientNaN", [](DeviceCalibrationMRV& d) { d.cameras[1].k[5] = kNaN; },
       "camera 1 (trackingB1) k6: is not a number", "!std::isnan(root.real())"},
      {"Radial6CoefficientHuge", [](DeviceCalibrationMRV& d) { d.cameras[0].k[5] = 1e30; },
       "camera 0 (trackingA0) distortion model: ", "!std::isnan(root.real())"},
      {"PositionNaN", [](DeviceCalibrationMRV& d) { d.cameras[0].pose.position.y = kNaN; },
       "camera 0 (trackingA0) pose position y: is not a number", "length>0"},
      {"PositionHuge", [](DeviceCalibrationMRV& d) { d.cameras[1].pose.position.x = 1e26; },
       "camera 1 (trackingB1) pose position: the distance between the two cameras overflows", "length>0"},
      {"PositionBeyondFloat", [](DeviceCalibrationMRV& d) { d.cameras[1].pose.position.z = 1e39; },
       "camera 1 (trackingB1) pose position z: lies beyond the single-precision range", "length>0"},
      {"QuaternionBeyondFloat", [](DeviceCalibrationMRV& d) { d.cameras[0].pose.orientation.w = -4e38; },
       "camera 0 (trackingA0) pose orientation w: lies beyond the single-precision range", "length>0"},
      {"QuaternionZero", [](DeviceCalibrationMRV& d) { d.cameras[1].pose.orientation = {0, 0, 0, 0}; },
       "camera 1 (trackingB1) pose orientation: the quaternion is zero", "length>0"},
      {"QuaternionUnderflowsWhenSquared",
       [](DeviceCalibrationMRV& d) { d.cameras[0].pose.orientation = {1e-30, 0, 0, 1e-30}; },
       "camera 0 (trackingA0) pose orientation: the quaternion is zero", "length>0"},
      {"PositionsEqualInFloat",
       [](DeviceCalibrationMRV& d) {
         // Unturned cameras 1e-5 apart at 1 km, where floats are 6e-5 apart.
         d.cameras[0].pose = XrPosedMRV_t{{0, 0, 0, 1}, {1000.0, 0, 0}};
         d.cameras[1].pose = XrPosedMRV_t{{0, 0, 0, 1}, {1000.0 + 1e-5, 0, 0}};
       },
       "camera 1 (trackingB1) pose position: the baseline between the two cameras is zero", "length>0"},
      {"FocalLengthInfinite",
       [](DeviceCalibrationMRV& d) { d.cameras[0].fx = std::numeric_limits<double>::infinity(); },
       "camera 0 (trackingA0) fx: is infinite", ""},
      {"FocalLengthNegative", [](DeviceCalibrationMRV& d) { d.cameras[1].fy = -280.0; },
       "camera 1 (trackingB1) fy: the focal length must be positive", "length>0"},
      {"ModelOutOfRange", [](DeviceCalibrationMRV& d) { d.cameras[1].distortionModel = 6; },
       "camera 1 (trackingB1) distortion model: 6 is not one of the six lens models",
       "0 && \"Distortion model not implemented\""},
      {"ModelNegative", [](DeviceCalibrationMRV& d) { d.cameras[0].distortionModel = -1; },
       "camera 0 (trackingA0) distortion model: -1 is not one of the six lens models",
       "0 && \"Distortion model not implemented\""},
      {"CoefficientBeyondModel", [](DeviceCalibrationMRV& d) { d.cameras[0].k[0] = 0.1; },
       "camera 0 (trackingA0) k1: must be 0 for LINEAR", "length>0"},
      {"PrincipalPointOutside", [](DeviceCalibrationMRV& d) { d.cameras[1].cx = 640.0; },
       "camera 1 (trackingB1) cx: the principal point must lie strictly inside", "length>0"},
      {"CameraCount", [](DeviceCalibrationMRV& d) { d.num_cameras = 3; },
       "The device record holds 3 cameras in num_cameras", ""},
  };
}

/// The lens each bad record starts from: RADIAL_6 for coefficient cases,
/// LINEAR otherwise (a LINEAR lens has no coefficient of its own).
DeviceCalibrationMRV baseFor(const BadRecord& bad) {
  const std::string name = bad.name;
  return name.rfind("Radial6", 0) == 0 ? radial6Rig() : RecordRig::makeDevice(RecordRig::realisticLenses()[0]);
}

/// `text` as a regular expression that matches it literally.
std::string literal(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (std::strchr("\\^$.|?*+()[]{}", c) != nullptr) out += '\\';
    out += c;
  }
  return out;
}

class BadRecordTest : public ::testing::TestWithParam<BadRecord> {};

TEST_P(BadRecordTest, IsRefusedNamingCameraAndField) {
  DeviceCalibrationMRV device = baseFor(GetParam());
  ASSERT_TRUE(validate(device).ok);
  GetParam().spoil(device);
  const Verdict verdict = validate(device);
  EXPECT_FALSE(verdict.ok);
  EXPECT_EQ(verdict.message.rfind(GetParam().expectedStart, 0), 0u) << verdict.message;
  EXPECT_EQ(verdict.message.back(), '.') << verdict.message;
}

// A record refused for a fatal reason does abort in an entry point, with the
// assertion that validation foresaw: validation never refuses what would run.
TEST_P(BadRecordTest, FatalRefusalsAbortTheEntryPoint) {
  if (std::strlen(GetParam().fatal) == 0) GTEST_SKIP() << "not a fatal case";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  DeviceCalibrationMRV device = baseFor(GetParam());
  GetParam().spoil(device);
  std::vector<float> map(kMapSize);
  CameraCalibrationMRV rectified{};
  EXPECT_DEATH(
      {
        CreateUndistortMap(&device, 0, 1.0f, map.data(), kMapSize, map.data(), kMapSize, map.data(), kMapSize,
                           map.data(), kMapSize);
        CreateRectifyMap(&device, 0, map.data(), kMapSize, map.data(), kMapSize, map.data(), kMapSize, map.data(),
                         kMapSize, nullptr, &rectified);
      },
      literal(std::string("Assertion failed: ") + GetParam().fatal));
}

INSTANTIATE_TEST_SUITE_P(Table, BadRecordTest, ::testing::ValuesIn(badRecords()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ValidateDeviceCalibration, NullRecordIsRefused) {
  char message[64];
  EXPECT_FALSE(ValidateDeviceCalibration(nullptr, message, sizeof(message)));
  EXPECT_STREQ(message, "No device record was given.");
}

TEST(ValidateDeviceCalibration, MessageIsCutToItsBufferAndTerminated) {
  DeviceCalibrationMRV device = radial6Rig();
  device.cameras[1].fx = kNaN;
  char full[256];
  ASSERT_FALSE(ValidateDeviceCalibration(&device, full, sizeof(full)));
  ASSERT_GT(std::strlen(full), 12u);

  char buffer[16];
  std::memset(buffer, '#', sizeof(buffer));
  EXPECT_FALSE(ValidateDeviceCalibration(&device, buffer, 12));
  EXPECT_EQ(std::string(buffer), std::string(full, 11));
  EXPECT_EQ(buffer[12], '#');  // nothing beyond the declared size

  buffer[0] = '#';
  EXPECT_FALSE(ValidateDeviceCalibration(&device, buffer, 1));
  EXPECT_EQ(buffer[0], '\0');

  buffer[0] = '#';
  EXPECT_FALSE(ValidateDeviceCalibration(&device, buffer, 0));
  EXPECT_EQ(buffer[0], '#');
  EXPECT_FALSE(ValidateDeviceCalibration(&device, nullptr, 100));
}

}  // namespace
