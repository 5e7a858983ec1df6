#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "AR/Common/Logger.h"
#include "DeviceCalibration.h"
#include "LogCapture.h"
#include "RecordRig.h"
#include "StereoRectifyWrapper.h"
#include "UndistortMap.h"

namespace {

constexpr int kWidth = 640, kHeight = 480;  // the record rig's camera 0
constexpr size_t kMapSize = size_t(kWidth) * kHeight, kGuard = 8;
constexpr float kCanary = 4321.25f;
using Maps = std::array<std::vector<float>, 4>;

// Logged checks of the entry point and of the builder; function texts are cut to 100 characters.
std::string entryLine(const std::string& condition, int line) {
  const std::string function = "bool CreateUndistortMap(const DeviceCalibrationMRV *, uint32_t, float, float *, "
                               "uint32_t, float *, uint32_t, float *, uint32_t, float *, uint32_t)";
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" + std::to_string(line) + ") " +
         function.substr(0, 100) + "\n";
}
std::string builderLine(const std::string& condition, int line) {
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectify(" + std::to_string(line) + ") " +
         "void VIO::setupUndistortMap(const VIO::IntrinsicCamera &, bool, float, AR::Common::ArrayView<AR::CV:\n";
}

/// Four caller buffers of `size` floats with canaries on both sides.
struct Buffers {
  Maps storage;
  uint32_t size;
  explicit Buffers(size_t n = kMapSize) : size(uint32_t(n)) {
    for (auto& s : storage) s.assign(n + 2 * kGuard, kCanary);
  }
  /// Buffer i holds the first floats of `map` (as many as fit) and canaries everywhere else.
  bool holds(size_t i, const std::vector<float>& map = {}) const {
    std::vector<float> expected(kGuard, kCanary);
    expected.insert(expected.end(), map.begin(), map.begin() + long(std::min<size_t>(size, map.size())));
    expected.resize(storage[i].size(), kCanary);
    return storage[i] == expected;
  }
  bool call(const DeviceCalibrationMRV* device, float fovFactor, uint32_t allowOut = 0, int nullIndex = -1) {
    float* p[4];
    for (size_t i = 0; i < 4; ++i) p[i] = int(i) == nullIndex ? nullptr : storage[i].data() + kGuard;
    return CreateUndistortMap(device, allowOut, fovFactor, p[0], size, p[1], size, p[2], size, p[3], size);
  }
};

class CreateUndistortMapTest : public testing::Test {
 protected:
  void SetUp() override { AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_ERROR); }
  void TearDown() override { AR::Common::Logger::getInstance().setLevel(level); }

  /// The builder's maps of both converted cameras at camera 0's size.
  Maps builderMaps(float fovFactor, bool allowOut) const {
    AR::CV::FullStereoCameraCalibration<float> calibration;
    DeviceFrameParams frame{};
    EXPECT_TRUE(VIO::deviceToStereoCalibration(&device, calibration, frame));
    Maps out;
    for (size_t i = 0; i < 4; i += 2) {
      std::array<AR::CV::Image<float>, 2> xy{AR::CV::Image<float>({kWidth, kHeight}),
                                             AR::CV::Image<float>({kWidth, kHeight})};
      AR::Common::ArrayView<AR::CV::Image<float>> view(xy);
      VIO::setupUndistortMap(calibration[i / 2].getIntrinsics(), allowOut, fovFactor, view);
      for (size_t j = 0; j < 2; ++j) out[i + j].assign(xy[j].data(), xy[j].data() + kMapSize);
    }
    return out;
  }

  const AR::Common::Logger::LEVEL level = AR::Common::Logger::getInstance().getLevel();
  DeviceCalibrationMRV device = RecordRig::makeDevice(RecordRig::realisticLenses()[2]);
};

TEST_F(CreateUndistortMapTest, WritesTheBuildersMapsAtCameraZerosSizeFromEveryThreadAlike) {
  CameraCalibrationMRV& right = device.cameras[1];  // half as large: its maps still have camera 0's size
  right.width /= 2, right.height /= 2, right.cx /= 2, right.cy /= 2;
  const Maps expected = builderMaps(0.8f, true);
  Buffers serial;
  AR::Test::LogCapture log;
  ASSERT_TRUE(serial.call(&device, 0.8f, 1));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{builderLine("mapXY[0].size() == size", 66),
                                                     builderLine("mapXY[1].size() == size", 67)}));
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(serial.holds(i, expected[i])) << "map " << i;

  std::vector<Buffers> results(8);
  std::vector<std::thread> threads;
  for (Buffers& result : results) threads.emplace_back([&] { EXPECT_TRUE(result.call(&device, 0.8f, 1)); });
  for (auto& thread : threads) thread.join();
  for (const Buffers& result : results) EXPECT_EQ(result.storage, serial.storage);
}

TEST_F(CreateUndistortMapTest, RefusedFactorsWrongSizesNullPointersAndBadRecordsNeverLeadToABadWrite) {
  for (const auto& [factor, text] : {std::pair<float, const char*>{0.0f, "0.000000"}, {-1.0f, "-1.000000"}}) {
    AR::Test::LogCapture log;
    Buffers buffers;
    EXPECT_FALSE(buffers.call(&device, factor));
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.holds(i));
    EXPECT_EQ(log.messages(), std::vector<std::string>{"AR ERROR: Invalid undistortion field of view factor " +
                                                       std::string(text) + "\n"});
  }
  {  // NaN is accepted; no virtual camera can be built from it
    AR::Test::LogCapture log;
    Buffers buffers;
    EXPECT_TRUE(buffers.call(&device, std::numeric_limits<float>::quiet_NaN(), 1));
    EXPECT_EQ(log.countContaining(builderLine("success", 64)), 2u);
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.holds(i, std::vector<float>(kMapSize, -1.0f)));
  }
  const Maps expected = builderMaps(1.0f, false);
  const std::string nullCheck = "deviceCalibration != nullptr && mapLeftX != nullptr && mapLeftY != nullptr && "
                                "mapRightX != nullptr && mapRightY != nullptr";
  const std::string sizeCheck = "mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && "
                                "mapRightX_size==map_buffer_size && mapRightY_size==map_buffer_size";
  for (size_t size : {kMapSize - kWidth, kMapSize - 1, kMapSize + 1}) {  // a row short, a float short, long
    AR::Test::LogCapture log;
    Buffers buffers(size);
    ASSERT_TRUE(buffers.call(&device, 1.0f));
    EXPECT_EQ(log.messages(), std::vector<std::string>{entryLine(sizeCheck, 90)});
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.holds(i, expected[i])) << size << " " << i;
  }
  for (int nullIndex = -1; nullIndex < 4; ++nullIndex) {  // -1: the record
    AR::Test::LogCapture log;
    Buffers buffers;
    ASSERT_TRUE(buffers.call(nullIndex < 0 ? nullptr : &device, 1.0f, 0, nullIndex));
    EXPECT_EQ(log.messages(), std::vector<std::string>{entryLine(nullCheck, 73)});
    for (size_t i = 0; i < 4; ++i)
      EXPECT_TRUE(nullIndex < 0 || int(i) == nullIndex ? buffers.holds(i) : buffers.holds(i, expected[i]));
  }
  device.num_cameras = 3, device.cameras[1].fx = -5.0;  // a wrong count, a camera that does not convert
  AR::Test::LogCapture log;
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f));
  EXPECT_TRUE(log.has(entryLine("deviceCalibration->num_cameras == 2", 74)));
  EXPECT_TRUE(log.has(entryLine("ret", 84)));
  EXPECT_TRUE(buffers.holds(0, expected[0]) && buffers.holds(1, expected[1]));
}

}  // namespace
