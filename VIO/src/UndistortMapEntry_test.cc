#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

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

const std::string kFunction =
    "bool CreateUndistortMap(const DeviceCalibrationMRV *, uint32_t, float, float *, uint32_t, "
    "float *, uint32_t, float *, uint32_t, float *, uint32_t)";

std::string assertLine(const std::string& condition, int line) {
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" +
         std::to_string(line) + ") " + kFunction.substr(0, 100) + "\n";
}

const std::string kNullCondition =
    "deviceCalibration != nullptr && mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != "
    "nullptr && mapRightY != nullptr";

void setCamera(CameraCalibrationMRV& cam, int width, int height, double fx, DistortionModel model,
               std::array<double, 6> k, double tx) {
  cam.width = width;
  cam.height = height;
  cam.cx = width * 0.5 + 0.7;
  cam.cy = height * 0.5 - 1.2;
  cam.fx = fx;
  cam.fy = fx * 1.002;
  for (int i = 0; i < 6; ++i) cam.k[i] = k[size_t(i)];
  cam.p[0] = 2e-4;
  cam.p[1] = -1e-4;
  cam.distortionModel = int32_t(model);
  cam.pose.orientation = {0.0, 0.0, 0.0, 1.0};
  cam.pose.position = {tx, 0.0, 0.0};
}

/// A two-camera device with radially distorted cameras of kWidth x kHeight.
DeviceCalibrationMRV makeDevice() {
  DeviceCalibrationMRV device;
  std::memset(&device, 0, sizeof(device));
  device.num_cameras = 2;
  setCamera(device.cameras[0], kWidth, kHeight, 210.0, RADIAL_3_PARAMETERS,
            {-0.29, 0.09, -0.012, 0, 0, 0}, 0.0);
  setCamera(device.cameras[1], kWidth, kHeight, 205.0, FISHEYE_4_PARAMETERS,
            {-0.01, 0.002, -0.0004, 0.00005, 0, 0}, -0.1);
  return device;
}

/// Four caller buffers with canaries around each.
struct Buffers {
  static constexpr size_t kGuard = 8;
  std::array<std::vector<float>, 4> storage;
  std::array<uint32_t, 4> sizes;

  explicit Buffers(size_t size = kMapSize) {
    for (size_t i = 0; i < 4; ++i) {
      storage[i].assign(size + 2 * kGuard, kCanary);
      sizes[i] = uint32_t(size);
    }
  }
  float* map(size_t i) { return storage[i].data() + kGuard; }
  float at(size_t i, size_t index) const { return storage[i][kGuard + index]; }
  bool guardsIntact() const {
    for (const auto& s : storage)
      for (size_t i = 0; i < kGuard; ++i)
        if (s[i] != kCanary || s[s.size() - 1 - i] != kCanary) return false;
    return true;
  }
  bool untouched(size_t i) const {
    for (float v : storage[i])
      if (v != kCanary) return false;
    return true;
  }
  bool call(const DeviceCalibrationMRV* device, float fovFactor, uint32_t allowOut = 0,
            std::array<bool, 4> nulls = {}) {
    float* p[4];
    for (size_t i = 0; i < 4; ++i) p[i] = nulls[i] ? nullptr : map(i);
    return CreateUndistortMap(device, allowOut, fovFactor, p[0], sizes[0], p[1], sizes[1], p[2],
                              sizes[2], p[3], sizes[3]);
  }
};

/// The maps the builder gives for both converted cameras, at camera 0's size.
std::array<std::vector<float>, 4> referenceMaps(const DeviceCalibrationMRV& device, float fovFactor,
                                                bool allowOut) {
  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  EXPECT_TRUE(VIO::deviceToStereoCalibration(&device, calibration, frame));
  const AR::Math::Vec2I size(device.cameras[0].width, device.cameras[0].height);
  std::array<std::vector<float>, 4> out;
  for (size_t cam = 0; cam < 2; ++cam) {
    std::array<AR::CV::Image<float>, 2> images{AR::CV::Image<float>(size),
                                               AR::CV::Image<float>(size)};
    AR::Common::ArrayView<AR::CV::Image<float>> view(images);
    VIO::setupUndistortMap(calibration[cam].getIntrinsics(), allowOut, fovFactor, view);
    for (size_t xy = 0; xy < 2; ++xy) {
      out[2 * cam + xy].resize(images[xy].numPixels());
      std::memcpy(out[2 * cam + xy].data(), images[xy].data(), images[xy].numPixels() * 4);
    }
  }
  return out;
}

class CreateUndistortMapTest : public testing::Test {
 protected:
  void SetUp() override {
    device = makeDevice();
    // Camera set-up prints the valid ranges; keep the test output readable.
    testing::internal::CaptureStdout();
  }
  void TearDown() override { testing::internal::GetCapturedStdout(); }
  DeviceCalibrationMRV device;
};

TEST_F(CreateUndistortMapTest, WritesTheBuildersMapsOfBothCameras) {
  AR::Test::LogCapture log;
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f, 1));
  EXPECT_EQ(log.countContaining("AR ERROR"), 0u);
  const auto reference = referenceMaps(device, 1.0f, true);
  for (size_t i = 0; i < 4; ++i)
    EXPECT_EQ(std::memcmp(buffers.map(i), reference[i].data(), kMapSize * 4), 0) << "map " << i;
  EXPECT_TRUE(buffers.guardsIntact());
  // Left and right are different lenses, so their maps differ.
  EXPECT_NE(std::memcmp(buffers.map(0), buffers.map(2), kMapSize * 4), 0);
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
    EXPECT_TRUE(log.has(expected)) << factor;
    EXPECT_EQ(log.messages().size(), 1u);
  }
  EXPECT_FALSE(Buffers().call(nullptr, -1.0f));  // refused without a record too
}

TEST_F(CreateUndistortMapTest, NaNFactorIsAcceptedAndGivesNoValidEntries) {
  Buffers buffers;
  EXPECT_TRUE(buffers.call(&device, std::numeric_limits<float>::quiet_NaN(), 1));
  for (size_t i = 0; i < 4; ++i)
    for (size_t j = 0; j < kMapSize; ++j) ASSERT_EQ(buffers.at(i, j), -1.0f);
  EXPECT_TRUE(buffers.guardsIntact());
}

class CreateUndistortMapBounds : public CreateUndistortMapTest,
                                 public testing::WithParamInterface<int> {};

TEST_P(CreateUndistortMapBounds, ShortBuffersGetThePrefixAndNothingMore) {
  AR::Test::LogCapture log;
  const size_t size = size_t(int(kMapSize) + GetParam());
  Buffers buffers(size);
  ASSERT_TRUE(buffers.call(&device, 1.0f));
  EXPECT_TRUE(log.has(assertLine(VIO::MAP_SIZE_CONDITION, 90)));
  EXPECT_TRUE(buffers.guardsIntact());
  const auto reference = referenceMaps(device, 1.0f, false);
  const size_t written = std::min(size, kMapSize);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(std::memcmp(buffers.map(i), reference[i].data(), written * 4), 0) << "map " << i;
    for (size_t j = written; j < size; ++j) ASSERT_EQ(buffers.at(i, j), kCanary);
  }
}

// One row short, one float short, one float long, a row long.
INSTANTIATE_TEST_SUITE_P(SizeOffsets, CreateUndistortMapBounds,
                         testing::Values(-kWidth, -1, 1, kWidth));

TEST_F(CreateUndistortMapTest, MixedSizesAreEachBoundedByTheirOwnSize) {
  AR::Test::LogCapture log;
  Buffers buffers;
  buffers.sizes = {uint32_t(kMapSize), 5, 0, uint32_t(kMapSize)};
  ASSERT_TRUE(buffers.call(&device, 1.0f));
  EXPECT_EQ(log.countContaining("mapLeftX_size==map_buffer_size"), 1u);
  EXPECT_TRUE(buffers.guardsIntact());
  EXPECT_NE(buffers.at(0, kMapSize - 1), kCanary);
  EXPECT_NE(buffers.at(1, 4), kCanary);
  EXPECT_EQ(buffers.at(1, 5), kCanary);
  EXPECT_EQ(buffers.at(2, 0), kCanary);
  EXPECT_NE(buffers.at(3, kMapSize - 1), kCanary);
}

TEST_F(CreateUndistortMapTest, NullMapsAreSkippedAndTheOthersWritten) {
  const auto reference = referenceMaps(device, 1.0f, false);
  for (size_t nullIndex = 0; nullIndex < 4; ++nullIndex) {
    AR::Test::LogCapture log;
    Buffers buffers;
    std::array<bool, 4> nulls{};
    nulls[nullIndex] = true;
    ASSERT_TRUE(buffers.call(&device, 1.0f, 0, nulls));
    EXPECT_TRUE(log.has(assertLine(kNullCondition, 73)));
    EXPECT_EQ(log.countContaining("AR ERROR"), 1u);
    for (size_t i = 0; i < 4; ++i) {
      if (i == nullIndex)
        EXPECT_TRUE(buffers.untouched(i));
      else
        EXPECT_EQ(std::memcmp(buffers.map(i), reference[i].data(), kMapSize * 4), 0);
    }
  }
}

TEST_F(CreateUndistortMapTest, NullDeviceEndsTheCallAfterTheChecks) {
  AR::Test::LogCapture log;
  Buffers buffers;
  EXPECT_TRUE(buffers.call(nullptr, 1.0f));
  EXPECT_TRUE(log.has(assertLine(kNullCondition, 73)));
  EXPECT_EQ(log.messages().size(), 1u);
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(buffers.untouched(i));
  // Everything null at once.
  EXPECT_TRUE(CreateUndistortMap(nullptr, 0, 1.0f, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0));
}

TEST_F(CreateUndistortMapTest, WrongCameraCountIsReportedAndCamerasZeroAndOneUsed) {
  AR::Test::LogCapture log;
  device.num_cameras = 3;
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f));
  EXPECT_TRUE(log.has(assertLine("deviceCalibration->num_cameras == 2", 74)));
  device.num_cameras = 2;
  const auto reference = referenceMaps(device, 1.0f, false);
  for (size_t i = 0; i < 4; ++i)
    EXPECT_EQ(std::memcmp(buffers.map(i), reference[i].data(), kMapSize * 4), 0);
}

TEST_F(CreateUndistortMapTest, RightCameraOfAnotherSizeGetsCameraZerosMapSize) {
  AR::Test::LogCapture log;
  setCamera(device.cameras[1], kWidth / 2, kHeight / 2, 105.0, RADIAL_2_PARAMETERS,
            {-0.25, 0.06, 0, 0, 0, 0}, -0.1);
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f, 1));
  EXPECT_EQ(log.countContaining("mapLeftX_size==map_buffer_size"), 0u);
  // The right camera's own view covers the top-left quarter of camera 0's size.
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[0].size() == size VIO/src/StereoRectify(66)"), 1u);
  size_t validInQuarter = 0;
  for (size_t j = 0; j < kMapSize; ++j) {
    const size_t x = j % kWidth, y = j / kWidth;
    if (x >= size_t(kWidth / 2) || y >= size_t(kHeight / 2)) {
      ASSERT_EQ(buffers.at(2, j), -1.0f) << x << "," << y;
      ASSERT_EQ(buffers.at(3, j), -1.0f);
    } else if (buffers.at(2, j) != -1.0f) {
      ++validInQuarter;
      EXPECT_LT(buffers.at(2, j), float(kWidth));  // a source in the small camera's image
    }
  }
  EXPECT_GT(validInQuarter, kMapSize / 8);
  EXPECT_TRUE(buffers.guardsIntact());
}

TEST_F(CreateUndistortMapTest, CameraThatCannotBeBuiltIsReported) {
  AR::Test::LogCapture log;
  device.cameras[1].fx = -5.0;
  Buffers buffers;
  ASSERT_TRUE(buffers.call(&device, 1.0f));
  EXPECT_TRUE(log.has(assertLine("ret", 84)));
  const auto reference = referenceMaps(makeDevice(), 1.0f, false);
  EXPECT_EQ(std::memcmp(buffers.map(0), reference[0].data(), kMapSize * 4), 0);
  EXPECT_TRUE(buffers.guardsIntact());
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
  constexpr int kThreads = 8;
  std::vector<Buffers> results(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] { EXPECT_TRUE(results[size_t(t)].call(&device, 1.2f, 1)); });
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t)
    for (size_t i = 0; i < 4; ++i)
      EXPECT_EQ(std::memcmp(results[size_t(t)].map(i), serial.map(i), kMapSize * 4), 0)
          << "thread " << t << " map " << i;
}

}  // namespace
