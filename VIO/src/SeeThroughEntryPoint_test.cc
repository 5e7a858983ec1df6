#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "AR/CV/Camera/Hermite.h"
#include "AR/CV/Camera/StereoCamera.h"
#include "DeviceCalibration.h"
#include "LogCapture.h"
#include "StereoRectifyWrapper.h"
#include "VSTTestRig.h"

namespace {

using VSTTest::LensCase;

constexpr char kFunction[] =
    "bool CreateFixedPlaneVSTMaps(const DeviceCalibrationMRV *, const CameraCalibrationMRV *, "
    "const CameraCalibrationMRV *, float, uint32_t, float *, uint32_t, float *, uint32_t, float *, "
    "uint32_t, float *, uint32_t)";

/// The text of a failed contract check of the entry point as the log shows it.
std::string assertLine(const std::string& condition, int line) {
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" + std::to_string(line) +
         ") " + std::string(kFunction).substr(0, 100) + "\n";
}

const std::string kSizeCondition =
    "mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && "
    "mapRightX_size==map_buffer_size && mapRightY_size==map_buffer_size";

constexpr float kCanary = 12345.0f;

/// Four caller buffers with a guard zone of canaries behind each.
struct Buffers {
  static constexpr size_t kGuard = 16;
  std::vector<float> data[4];
  uint32_t sizes[4];

  explicit Buffers(uint32_t n) : Buffers(n, n, n, n) {}
  Buffers(uint32_t lx, uint32_t ly, uint32_t rx, uint32_t ry) : sizes{lx, ly, rx, ry} {
    for (int i = 0; i < 4; ++i) data[i].assign(sizes[i] + kGuard, kCanary);
  }
  float* ptr(int i) { return data[i].data(); }
  bool guardIntact(int i) const {
    for (size_t j = sizes[i]; j < data[i].size(); ++j)
      if (data[i][j] != kCanary) return false;
    return true;
  }
  bool untouched(int i) const {
    return std::all_of(data[i].begin(), data[i].end(), [](float v) { return v == kCanary; });
  }
};

bool callVST(const DeviceCalibrationMRV* device, const CameraCalibrationMRV* left,
             const CameraCalibrationMRV* right, float depth, uint32_t allow, Buffers& b) {
  return CreateFixedPlaneVSTMaps(device, left, right, depth, allow, b.ptr(0), b.sizes[0], b.ptr(1),
                                 b.sizes[1], b.ptr(2), b.sizes[2], b.ptr(3), b.sizes[3]);
}

/// A pair of display eyes 6.4 cm apart, a little in front of the cameras'
/// plane and slightly rolled, wider than the cameras in places so that some
/// pixels have no source.
struct Displays {
  CameraCalibrationMRV left, right;
  Displays(int32_t w, int32_t h, int32_t rw, int32_t rh, double f = 70.0)
      : left(VSTTest::makeDisplay(w, h, f, f * 1.02, {-0.032, 0.0, 0.01}, 0.02)),
        right(VSTTest::makeDisplay(rw, rh, f * 0.98, f, {0.032, 0.0, 0.01}, -0.015)) {}
};

/// Largest error of the tracking camera's distortion spline at its own test
/// points: the error its fit reported.
float reportedSplineError(const AR::CV::Camera<float>& camera) {
  AR::CV::DistortFn<CamModel::CameraModel<float>> fn(camera.getCamModel());
  return camera.getDistortionSpline().testAccuracy(fn);
}

}  // namespace

namespace VSTTest {
void PrintTo(const LensCase& lens, std::ostream* os) { *os << lens.name; }
}  // namespace VSTTest

namespace {

class SeeThroughLens : public testing::TestWithParam<LensCase> {};

// For every display pixel the map must give the camera pixel of the point
// where the eye ray meets the plane, computed here from the raw records with
// a closed-form lens; entries without a source are exactly -1.0 and occur
// only where the closed form finds none (up to the borders' tolerance).
TEST_P(SeeThroughLens, EveryEntryShowsThePlanePointSeenThroughThatPixel) {
  const LensCase lens = GetParam();
  const DeviceCalibrationMRV device = VSTTest::makeDevice(lens);
  const Displays eyes(96, 80, 96, 80);
  const float depth = 1.5f;

  // The library's own conversion of the cameras, only for the spline's
  // reported error and the valid distortion range.
  AR::CV::FullStereoCameraCalibration<float> rig;
  DeviceFrameParams frame{};
  ASSERT_TRUE(VIO::deviceToStereoCalibration(&device, rig, frame));

  Buffers b(96 * 80);
  ASSERT_TRUE(callVST(&device, &eyes.left, &eyes.right, depth, 0, b));

  for (int e = 0; e < 2; ++e) {
    const CameraCalibrationMRV& eye = e == 0 ? eyes.left : eyes.right;
    const CameraCalibrationMRV& cam = device.cameras[e];
    const AR::CV::Camera<float>& camera = rig[size_t(e)].getIntrinsics();
    const double splineErr = reportedSplineError(camera);
    const double maxRSq = camera.getCamModel().maxValidDistortionRSq;
    const float* mapX = b.ptr(2 * e);
    const float* mapY = b.ptr(2 * e + 1);
    int valid = 0, invalid = 0;
    for (int y = 0; y < eye.height; ++y) {
      for (int x = 0; x < eye.width; ++x) {
        const size_t i = size_t(x) + size_t(eye.width) * size_t(y);
        double sx = 0, sy = 0, rSq = 0;
        const bool projects = VSTTest::expectedSeeThrough(eye, cam, depth, x, y, sx, sy, rSq);
        const double tol = 2e-3 + std::max(cam.fx, cam.fy) * std::sqrt(rSq) * splineErr * 1.01;
        const bool inRange = projects && rSq < maxRSq;
        const bool inside = inRange && sx >= 0 && sx < 640 && sy >= 0 && sy < 480;
        const bool nearEdge = projects && (std::fabs(rSq - maxRSq) < 1e-3 * maxRSq ||
                                           std::fabs(sx) < tol || std::fabs(sx - 640) < tol ||
                                           std::fabs(sy) < tol || std::fabs(sy - 480) < tol);
        const bool mapped = !(mapX[i] == -1.0f && mapY[i] == -1.0f);
        if (mapped) {
          ++valid;
          ASSERT_TRUE(inside || nearEdge) << lens.name << " eye " << e << " (" << x << "," << y << ")";
          EXPECT_NEAR(mapX[i], sx, tol) << lens.name << " eye " << e << " (" << x << "," << y << ")";
          EXPECT_NEAR(mapY[i], sy, tol) << lens.name << " eye " << e << " (" << x << "," << y << ")";
        } else {
          ++invalid;
          ASSERT_TRUE(!inside || nearEdge) << lens.name << " eye " << e << " (" << x << "," << y << ")";
          EXPECT_EQ(mapX[i], -1.0f);
          EXPECT_EQ(mapY[i], -1.0f);
        }
      }
    }
    EXPECT_GT(valid, 96 * 80 / 2) << lens.name << " eye " << e;
    EXPECT_TRUE(b.guardIntact(2 * e) && b.guardIntact(2 * e + 1));
    (void)invalid;
  }
}

INSTANTIATE_TEST_SUITE_P(LensModels, SeeThroughLens, testing::ValuesIn(VSTTest::realisticLenses()),
                         [](const testing::TestParamInfo<LensCase>& info) { return info.param.name; });

const LensCase kLens = VSTTest::realisticLenses()[2];

// With allowOutOfImage the entries inside the image are the same and the
// others hold coordinates outside the image. Without distortion the whole
// plane is in the valid range, so eyes wider than the cameras see past them.
TEST(CreateFixedPlaneVSTMaps, AllowOutOfImageOnlyAddsEntriesOutsideTheImage) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(VSTTest::realisticLenses()[0]);
  const Displays eyes(64, 48, 64, 48, 20.0);
  Buffers strict(64 * 48), loose(64 * 48);
  callVST(&device, &eyes.left, &eyes.right, 2.0f, 0, strict);
  callVST(&device, &eyes.left, &eyes.right, 2.0f, 1, loose);
  int added = 0;
  for (int m = 0; m < 4; m += 2) {
    for (size_t i = 0; i < 64 * 48; ++i) {
      const float sx = loose.data[m][i], sy = loose.data[m + 1][i];
      if (strict.data[m][i] != -1.0f || strict.data[m + 1][i] != -1.0f) {
        EXPECT_EQ(strict.data[m][i], sx);
        EXPECT_EQ(strict.data[m + 1][i], sy);
      } else if (!(sx == -1.0f && sy == -1.0f)) {
        ++added;
        EXPECT_TRUE(sx < 0 || sx >= 640 || sy < 0 || sy >= 480) << i;
      }
    }
  }
  EXPECT_GT(added, 0);
}

TEST(CreateFixedPlaneVSTMaps, AllMapsTakeTheLeftDisplaysSize) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(80, 60, 112, 72);
  AR::Test::LogCapture log;
  Buffers b(80 * 60);
  EXPECT_TRUE(callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, b));
  // The buffers match the left display: no size message.
  EXPECT_EQ(log.countContaining(kSizeCondition), 0u);
  // The right eye's builder reports that its maps are not of its size.
  EXPECT_EQ(log.countContaining("mapXY[0].size() == size"), 1u);
  EXPECT_EQ(log.countContaining("mapXY[1].size() == size"), 1u);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(b.guardIntact(i)) << i;

  // The right maps hold the right eye's pixels (0..79, 0..59) of its own
  // geometry: centred on its own image, not on the left one's.
  int checked = 0;
  for (int y = 0; y < 60; y += 3)
    for (int x = 0; x < 80; x += 3) {
      const size_t i = size_t(x) + 80 * size_t(y);
      if (b.data[2][i] == -1.0f) continue;
      double sx, sy, rSq;
      ASSERT_TRUE(VSTTest::expectedSeeThrough(eyes.right, device.cameras[1], 1.0, x, y, sx, sy, rSq));
      EXPECT_NEAR(b.data[2][i], sx, 0.05);
      EXPECT_NEAR(b.data[3][i], sy, 0.05);
      ++checked;
    }
  EXPECT_GT(checked, 100);

  // A smaller right display leaves the rest of the right maps at -1.0.
  const Displays small(80, 60, 40, 30);
  Buffers c(80 * 60);
  callVST(&device, &small.left, &small.right, 1.0f, 0, c);
  for (int y = 0; y < 60; ++y)
    for (int x = 40; x < 80; ++x) EXPECT_EQ(c.data[2][size_t(x) + 80 * size_t(y)], -1.0f);
}

TEST(CreateFixedPlaneVSTMaps, WrongBufferSizesAreLoggedAndNeverOverrun) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(40, 30, 40, 30);
  const uint32_t n = 40 * 30;
  Buffers reference(n);
  callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, reference);

  // One row short, one float short, exact, and larger than needed.
  AR::Test::LogCapture log;
  Buffers b(n - 40, n - 1, n, n + 7);
  EXPECT_TRUE(callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, b));
  EXPECT_TRUE(log.has(assertLine(kSizeCondition, 203)));
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(b.guardIntact(i)) << i;
    const size_t written = std::min<size_t>(b.sizes[i], n);
    for (size_t j = 0; j < written; ++j) ASSERT_EQ(b.data[i][j], reference.data[i][j]) << i << " " << j;
    for (size_t j = written; j < b.sizes[i]; ++j) ASSERT_EQ(b.data[i][j], kCanary) << i << " " << j;
  }
}

TEST(CreateFixedPlaneVSTMaps, NullMapsAreReportedAndOnlySkipped) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(40, 30, 40, 30);
  const uint32_t n = 40 * 30;
  Buffers reference(n);
  callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, reference);
  for (int missing = 0; missing < 4; ++missing) {
    AR::Test::LogCapture log;
    Buffers b(n);
    float* p[4] = {b.ptr(0), b.ptr(1), b.ptr(2), b.ptr(3)};
    p[missing] = nullptr;
    EXPECT_TRUE(CreateFixedPlaneVSTMaps(&device, &eyes.left, &eyes.right, 1.0f, 0, p[0], n, p[1], n, p[2],
                                        n, p[3], n));
    EXPECT_TRUE(log.has(assertLine(
        "mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr", 181)));
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u);
    for (int i = 0; i < 4; ++i) {
      if (i == missing) {
        EXPECT_TRUE(b.untouched(i));
        continue;
      }
      EXPECT_TRUE(std::equal(b.data[i].begin(), b.data[i].begin() + n, reference.data[i].begin())) << i;
    }
  }
}

TEST(CreateFixedPlaneVSTMaps, NullRecordsEndTheCallAfterTheChecks) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(40, 30, 40, 30);
  const std::string recordCheck =
      assertLine("deviceCalibration != nullptr && leftDisplay != nullptr && rightDisplay != nullptr", 182);
  const DeviceCalibrationMRV* devices[3] = {nullptr, &device, &device};
  const CameraCalibrationMRV* lefts[3] = {&eyes.left, nullptr, &eyes.left};
  const CameraCalibrationMRV* rights[3] = {&eyes.right, &eyes.right, nullptr};
  for (int c = 0; c < 3; ++c) {
    AR::Test::LogCapture log;
    Buffers b(40 * 30);
    EXPECT_TRUE(callVST(devices[c], lefts[c], rights[c], 1.0f, 0, b));
    EXPECT_TRUE(log.has(recordCheck)) << c;
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u) << c;
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(b.untouched(i)) << c << " " << i;
  }
  // Everything null: both pointer checks, nothing else.
  AR::Test::LogCapture log;
  EXPECT_TRUE(CreateFixedPlaneVSTMaps(nullptr, nullptr, nullptr, 1.0f, 0, nullptr, 0, nullptr, 0, nullptr, 0,
                                      nullptr, 0));
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 2u);
  EXPECT_TRUE(log.has(recordCheck));
}

TEST(CreateFixedPlaneVSTMaps, CameraCountOtherThanTwoIsLoggedAndCamerasZeroAndOneAreUsed) {
  DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(40, 30, 40, 30);
  Buffers reference(40 * 30);
  callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, reference);
  device.num_cameras = 3;
  AR::Test::LogCapture log;
  Buffers b(40 * 30);
  EXPECT_TRUE(callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, b));
  EXPECT_TRUE(log.has(assertLine("deviceCalibration->num_cameras == 2", 183)));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(b.data[i], reference.data[i]) << i;
}

TEST(CreateFixedPlaneVSTMaps, UnusableDisplaySizesGiveEmptyMapsWithoutUndefinedConversions) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  for (int32_t width : {-5, 0, INT32_MAX}) {
    Displays eyes(40, 30, 40, 30);
    eyes.left.width = width;
    eyes.right.width = width;
    AR::Test::LogCapture log;
    Buffers b(8);
    EXPECT_TRUE(callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, b));
    EXPECT_TRUE(log.has(assertLine(kSizeCondition, 203))) << width;
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(b.untouched(i)) << width << " " << i;
  }
}

TEST(CreateFixedPlaneVSTMaps, FailedTrackingCameraIsReportedAndItsEyeGetsNoEntries) {
  DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(40, 30, 40, 30);
  Buffers reference(40 * 30);
  callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, reference);
  device.cameras[1].fx = -1.0;  // rejected by the camera model
  AR::Test::LogCapture log;
  Buffers b(40 * 30);
  EXPECT_TRUE(callVST(&device, &eyes.left, &eyes.right, 1.0f, 0, b));
  EXPECT_TRUE(log.has(assertLine("ret", 187)));
  EXPECT_EQ(log.countContaining("AR_ASSERT source.getDistortionSpline().isInit() "), 1u);
  EXPECT_LT(log.countContaining("AR_ASSERT"), 10u);  // no report per pixel
  EXPECT_EQ(b.data[0], reference.data[0]);
  EXPECT_EQ(b.data[1], reference.data[1]);
  for (int i = 2; i < 4; ++i)
    for (size_t j = 0; j < 40 * 30; ++j) ASSERT_EQ(b.data[i][j], -1.0f);
}

TEST(CreateFixedPlaneVSTMaps, ConcurrentCallsGiveTheSerialMaps) {
  const DeviceCalibrationMRV device = VSTTest::makeDevice(kLens);
  const Displays eyes(48, 40, 48, 40);
  const uint32_t n = 48 * 40;
  Buffers reference(n);
  callVST(&device, &eyes.left, &eyes.right, 0.8f, 0, reference);
  std::vector<Buffers> results(6, Buffers(n));
  std::vector<std::thread> threads;
  for (auto& r : results)
    threads.emplace_back([&device, &eyes, &r] { callVST(&device, &eyes.left, &eyes.right, 0.8f, 0, r); });
  for (auto& t : threads) t.join();
  for (const auto& r : results)
    for (int i = 0; i < 4; ++i) EXPECT_EQ(r.data[i], reference.data[i]);
}

}  // namespace
