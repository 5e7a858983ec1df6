#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "AR/Common/Logger.h"
#include "DeviceCalibration.h"
#include "EntryPointRules.h"
#include "LogCapture.h"
#include "StereoRectifyWrapper.h"
#include "UndistortMap.h"

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr size_t kMapSize = size_t(kWidth) * kHeight;
constexpr float kCanary = 4321.25f;
using Logs = std::vector<std::string>;

std::string assertLine(const std::string& condition, int line) {
  const std::string function =
      "bool CreateUndistortMap(const DeviceCalibrationMRV *, uint32_t, float, float *, uint32_t, "
      "float *, uint32_t, float *, uint32_t, float *, uint32_t)";
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" +
         std::to_string(line) + ") " + function.substr(0, 100) + "\n";
}

const std::string kNullCondition =
    "deviceCalibration != nullptr && mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != "
    "nullptr && mapRightY != nullptr";

void setCamera(CameraCalibrationMRV& cam, int width, double fx, DistortionModel model,
               std::array<double, 6> k) {
  cam.width = width;
  cam.height = width * 3 / 4;
  cam.cx = width * 0.5 + 0.7;
  cam.cy = cam.height * 0.5 - 1.2;
  cam.fx = fx;
  cam.fy = fx * 1.002;
  std::copy(k.begin(), k.end(), cam.k);
  cam.p[0] = 2e-4;
  cam.p[1] = -1e-4;
  cam.distortionModel = int32_t(model);
  cam.pose.orientation.w = 1.0;
}

/// Four caller buffers of `size` floats with canaries on both sides.
struct Buffers {
  static constexpr size_t kGuard = 8;
  std::array<std::vector<float>, 4> storage;
  uint32_t size;

  explicit Buffers(size_t n = kMapSize) : size(uint32_t(n)) {
    for (auto& s : storage) s.assign(n + 2 * kGuard, kCanary);
  }
  float at(size_t i, size_t index) const { return storage[i][kGuard + index]; }
  bool untouched(size_t i) const {
    return std::all_of(storage[i].begin(), storage[i].end(), [](float v) { return v == kCanary; });
  }
  /// Buffer i holds `map` in its first floats and canaries everywhere else.
  bool holds(size_t i, const std::vector<float>& map) const {
    return (map.empty() ||
            std::memcmp(storage[i].data() + kGuard, map.data(), map.size() * sizeof(float)) == 0) &&
           std::all_of(storage[i].begin() + kGuard + long(map.size()), storage[i].end(),
                       [](float v) { return v == kCanary; }) &&
           std::all_of(storage[i].begin(), storage[i].begin() + kGuard,
                       [](float v) { return v == kCanary; });
  }
  bool call(const DeviceCalibrationMRV* device, float fovFactor, uint32_t allowOut = 0,
            int nullIndex = -1) {
    float* p[4];
    for (size_t i = 0; i < 4; ++i) p[i] = int(i) == nullIndex ? nullptr : storage[i].data() + kGuard;
    return CreateUndistortMap(device, allowOut, fovFactor, p[0], size, p[1], size, p[2], size, p[3],
                              size);
  }
};

class CreateUndistortMapTest : public testing::Test {
 protected:
  void SetUp() override {
    // Camera set-up prints the valid ranges and logs the spline fits at
    // DEBUG; keep the output and the captured log to what the tests check.
    testing::internal::CaptureStdout();
    level = AR::Common::Logger::getInstance().getLevel();
    AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_ERROR);
    device.num_cameras = 2;
    setCamera(device.cameras[0], kWidth, 210.0, RADIAL_3_PARAMETERS, {-0.29, 0.09, -0.012});
    setCamera(device.cameras[1], kWidth, 205.0, FISHEYE_4_PARAMETERS, {-0.01, 0.002, -0.0004, 5e-5});
    device.cameras[1].pose.position.x = -0.1;
  }
  void TearDown() override {
    AR::Common::Logger::getInstance().setLevel(level);
    testing::internal::GetCapturedStdout();
  }

  /// The builder's maps of both converted cameras at camera 0's size, each
  /// cut to its first `count` floats.
  std::array<std::vector<float>, 4> referenceMaps(bool allowOut, size_t count = kMapSize) const {
    AR::CV::FullStereoCameraCalibration<float> calibration;
    DeviceFrameParams frame{};
    EXPECT_TRUE(VIO::deviceToStereoCalibration(&device, calibration, frame));
    std::array<std::vector<float>, 4> out;
    for (size_t cam = 0; cam < 2; ++cam) {
      std::array<AR::CV::Image<float>, 2> images{AR::CV::Image<float>({kWidth, kHeight}),
                                                 AR::CV::Image<float>({kWidth, kHeight})};
      AR::Common::ArrayView<AR::CV::Image<float>> view(images);
      VIO::setupUndistortMap(calibration[cam].getIntrinsics(), allowOut, 1.0f, view);
      for (size_t xy = 0; xy < 2; ++xy)
        out[2 * cam + xy].assign(images[xy].data(), images[xy].data() + std::min(count, kMapSize));
    }
    return out;
  }

  DeviceCalibrationMRV device{};
  AR::Common::Logger::LEVEL level{};
};

TEST_F(CreateUndistortMapTest, WritesTheBuildersMapsOfBothCameras) {
  AR::Test::LogCapture log;
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f, 1));
  EXPECT_EQ(log.messages(), Logs{});
  const auto reference = referenceMaps(true);
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.holds(i, reference[i])) << "map " << i;
  EXPECT_NE(reference[0], reference[2]);  // different lenses, different maps
}

TEST_F(CreateUndistortMapTest, ZeroAndNegativeFactorsAreRefusedBeforeAnyWrite) {
  for (float factor : {0.0f, -0.0f, -1.0f}) {
    AR::Test::LogCapture log;
    Buffers buffers;
    EXPECT_FALSE(buffers.call(&device, factor));
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.untouched(i));
    char expected[128];
    std::snprintf(expected, sizeof(expected),
                  "AR ERROR: Invalid undistortion field of view factor %f\n", double(factor));
    EXPECT_EQ(log.messages(), Logs{expected});
  }
  EXPECT_FALSE(Buffers().call(nullptr, -1.0f));  // refused without a record too
}

TEST_F(CreateUndistortMapTest, NaNFactorIsAcceptedAndGivesNoValidEntries) {
  Buffers buffers;
  EXPECT_TRUE(buffers.call(&device, std::numeric_limits<float>::quiet_NaN(), 1));
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.holds(i, std::vector<float>(kMapSize, -1.0f)));
}

TEST_F(CreateUndistortMapTest, BuffersOfAnotherSizeGetThePrefixAndNothingMore) {
  // One row short, one float short, one float long, a single float, none.
  for (size_t size : {kMapSize - kWidth, kMapSize - 1, kMapSize + 1, size_t(1), size_t(0)}) {
    AR::Test::LogCapture log;
    Buffers buffers(size);
    ASSERT_TRUE(buffers.call(&device, 1.0f));
    EXPECT_EQ(log.messages(), Logs{assertLine(VIO::MAP_SIZE_CONDITION, 90)});
    const auto reference = referenceMaps(false, size);
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.holds(i, reference[i])) << size << " " << i;
  }
}

TEST_F(CreateUndistortMapTest, NullPointersAreReportedAndNeverWrittenThrough) {
  const auto reference = referenceMaps(false);
  for (int nullIndex = 0; nullIndex < 4; ++nullIndex) {
    AR::Test::LogCapture log;
    Buffers buffers;
    ASSERT_TRUE(buffers.call(&device, 1.0f, 0, nullIndex));
    EXPECT_EQ(log.messages(), Logs{assertLine(kNullCondition, 73)});
    for (size_t i = 0; i < 4; ++i)
      EXPECT_TRUE(int(i) == nullIndex ? buffers.untouched(i) : buffers.holds(i, reference[i]));
  }
  // A null record ends the call after the checks.
  AR::Test::LogCapture log;
  Buffers buffers;
  EXPECT_TRUE(buffers.call(nullptr, 1.0f));
  EXPECT_EQ(log.messages(), Logs{assertLine(kNullCondition, 73)});
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.untouched(i));
  EXPECT_TRUE(CreateUndistortMap(nullptr, 0, 1.0f, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0));
}

TEST_F(CreateUndistortMapTest, WrongCameraCountOrABadCameraIsReportedAndTheCallGoesOn) {
  const auto reference = referenceMaps(false);
  device.num_cameras = 3;
  device.cameras[1].fx = -5.0;
  AR::Test::LogCapture log;
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f));
  EXPECT_TRUE(log.has(assertLine("deviceCalibration->num_cameras == 2", 74)));
  EXPECT_TRUE(log.has(assertLine("ret", 84)));
  EXPECT_TRUE(buffers.holds(0, reference[0]) && buffers.holds(1, reference[1]));
}

TEST_F(CreateUndistortMapTest, RightCameraOfAnotherSizeGetsCameraZerosMapSize) {
  AR::Test::LogCapture log;
  setCamera(device.cameras[1], kWidth / 2, 105.0, RADIAL_2_PARAMETERS, {-0.25, 0.06});
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f, 1));
  // No size message: the buffers have camera 0's size. The right camera's
  // own view covers the top-left quarter of it.
  const std::string builder =
      ") void VIO::setupUndistortMap(const VIO::IntrinsicCamera &, bool, float, "
      "AR::Common::ArrayView<AR::CV:\n";
  EXPECT_EQ(log.messages(),
            (Logs{"AR ERROR: AR_ASSERT mapXY[0].size() == size VIO/src/StereoRectify(66" + builder,
                  "AR ERROR: AR_ASSERT mapXY[1].size() == size VIO/src/StereoRectify(67" + builder}));
  size_t validInQuarter = 0;
  for (size_t j = 0; j < kMapSize; ++j) {
    if (j % kWidth >= size_t(kWidth / 2) || j / kWidth >= size_t(kHeight / 2)) {
      ASSERT_EQ(buffers.at(2, j), -1.0f) << j;
      ASSERT_EQ(buffers.at(3, j), -1.0f) << j;
    } else if (buffers.at(2, j) != -1.0f) {
      ++validInQuarter;
      EXPECT_LT(buffers.at(2, j), float(kWidth / 2));  // a source in the small camera's image
    }
  }
  EXPECT_GT(validInQuarter, kMapSize / 8);
}

TEST_F(CreateUndistortMapTest, UnrepresentableImageSizeGivesEmptyMaps) {
  // Camera 0 is valid but too large for any map: its size does not convert
  // to a buffer size, so nothing is written anywhere.
  device.cameras[0].width = std::numeric_limits<int32_t>::max();
  device.cameras[0].cx = 1e9;
  Buffers buffers(16);
  EXPECT_TRUE(buffers.call(&device, 1.0f));
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.untouched(i));
}

TEST_F(CreateUndistortMapTest, ConcurrentCallsMatchASerialCall) {
  Buffers serial;
  ASSERT_TRUE(serial.call(&device, 1.2f, 1));
  std::vector<Buffers> results(8);
  std::vector<std::thread> threads;
  for (Buffers& result : results)
    threads.emplace_back([&] { EXPECT_TRUE(result.call(&device, 1.2f, 1)); });
  for (auto& thread : threads) thread.join();
  for (const Buffers& result : results)
    for (size_t i = 0; i < 4; ++i)
      EXPECT_EQ(std::memcmp(result.storage[i].data(), serial.storage[i].data(),
                            serial.storage[i].size() * sizeof(float)),
                0);
}

}  // namespace
