#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "AR/CV/Camera/Hermite.h"
#include "DeviceCalibration.h"
#include "LogCapture.h"
#include "RecordRig.h"
#include "StereoRectifyWrapper.h"

namespace {

/// A failed check of the entry point as the log shows it (the logger keeps
/// the first 100 characters of the function text).
std::string assertLine(const std::string& condition, int line) {
  return "AR ERROR: AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" + std::to_string(line) +
         ") bool CreateFixedPlaneVSTMaps(const DeviceCalibrationMRV *, const CameraCalibrationMRV *, const Camer\n";
}

const std::string kSizeCheck = assertLine(
    "mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && "
    "mapRightX_size==map_buffer_size && mapRightY_size==map_buffer_size",
    203);

/// Left X, left Y, right X, right Y, each followed by canaries.
struct Buffers {
  std::vector<float> data[4];
  uint32_t sizes[4];
  explicit Buffers(uint32_t n) : Buffers(n, n, n, n) {}
  Buffers(uint32_t lx, uint32_t ly, uint32_t rx, uint32_t ry) : sizes{lx, ly, rx, ry} {
    for (int i = 0; i < 4; ++i) data[i].assign(sizes[i] + 16, 12345.0f);
  }
  float* ptr(int i) { return data[i].data(); }
  bool untouchedFrom(int i, size_t from) const {
    return std::all_of(data[i].begin() + long(from), data[i].end(), [](float v) { return v == 12345.0f; });
  }
};

/// A device and two display eyes 6.4 cm apart, slightly rolled.
struct Scene {
  DeviceCalibrationMRV device;
  CameraCalibrationMRV left, right;
  Scene(const RecordRig::LensCase& lens, int32_t w, int32_t h, int32_t rw, int32_t rh)
      : device(RecordRig::makeDevice(lens)),
        left(RecordRig::makeDisplay(w, h, 70.0, 71.4, RecordRig::Vec3d(-0.032, 0.0, 0.01), 0.02)),
        right(RecordRig::makeDisplay(rw, rh, 68.6, 70.0, RecordRig::Vec3d(0.032, 0.0, 0.01), -0.015)) {}
  bool call(Buffers& b, float depth = 1.0f) const {
    return CreateFixedPlaneVSTMaps(&device, &left, &right, depth, 0, b.ptr(0), b.sizes[0], b.ptr(1), b.sizes[1],
                                   b.ptr(2), b.sizes[2], b.ptr(3), b.sizes[3]);
  }
};

const RecordRig::LensCase kLens = RecordRig::realisticLenses()[2];

class SeeThroughLens : public testing::TestWithParam<RecordRig::LensCase> {};

// Every entry is the camera pixel of the point where the eye ray meets the
// plane, computed from the raw records with a closed-form lens, within the
// spline's reported error; entries without a source are exactly -1.0 and
// occur only where the closed form finds none (borders excepted).
TEST_P(SeeThroughLens, EveryEntryShowsThePlanePointSeenThroughThatPixel) {
  const Scene scene(GetParam(), 96, 80, 96, 80);
  AR::CV::FullStereoCameraCalibration<float> rig;  // for the splines' reported error and range
  DeviceFrameParams frame{};
  ASSERT_TRUE(VIO::deviceToStereoCalibration(&scene.device, rig, frame));
  Buffers b(96 * 80);
  ASSERT_TRUE(scene.call(b, 1.5f));
  for (int e = 0; e < 2; ++e) {
    const CameraCalibrationMRV& cam = scene.device.cameras[e];
    const AR::CV::Camera<float>& camera = rig[size_t(e)].getIntrinsics();
    const double splineErr = camera.getDistortionSpline().testAccuracy(
        AR::CV::DistortFn<CamModel::CameraModel<float>>(camera.getCamModel()));
    const double maxRSq = camera.getCamModel().maxValidDistortionRSq;
    for (int i = 0; i < 96 * 80; ++i) {
      double sx = 0, sy = 0, rSq = 0;
      const bool projects =
          RecordRig::expectedSeeThrough(e ? scene.right : scene.left, cam, 1.5, i % 96, i / 96, sx, sy, rSq);
      const double tol = 2e-3 + std::max(cam.fx, cam.fy) * std::sqrt(rSq) * splineErr * 1.01;
      const bool inside = projects && rSq < maxRSq && sx >= 0 && sx < 640 && sy >= 0 && sy < 480;
      const bool nearEdge = projects && (std::fabs(rSq - maxRSq) < 1e-3 * maxRSq ||
                                         std::min({std::fabs(sx), std::fabs(640 - sx), std::fabs(sy),
                                                   std::fabs(480 - sy)}) < tol);
      const float mx = b.data[2 * e][size_t(i)], my = b.data[2 * e + 1][size_t(i)];
      const bool hasSource = mx != -1.0f || my != -1.0f;
      ASSERT_TRUE(nearEdge || hasSource == inside) << "eye " << e << " pixel " << i;
      ASSERT_TRUE(!hasSource || (std::fabs(mx - sx) < tol && std::fabs(my - sy) < tol))
          << "eye " << e << " pixel " << i << ": " << mx << ", " << my << " vs " << sx << ", " << sy;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(LensModels, SeeThroughLens, testing::ValuesIn(RecordRig::realisticLenses()),
                         [](const testing::TestParamInfo<RecordRig::LensCase>& info) { return info.param.name; });

// All four buffers are checked against, and filled at, the left display's
// size: a larger right eye is cut to it, a smaller one leaves -1.0 around it.
// A buffer one row short or one float short gets the first floats of the
// row-major map and nothing beyond its declared size; unusable display sizes
// give empty maps (and no undefined conversion).
TEST(CreateFixedPlaneVSTMaps, MapsTakeTheLeftDisplaysSizeAndNeverOverrunABuffer) {
  const uint32_t n = 40 * 30;
  Buffers reference(n), b(n - 40, n - 1, n, n + 7);
  AR::Test::LogCapture log;
  EXPECT_TRUE(Scene(kLens, 40, 30, 56, 36).call(reference));
  EXPECT_FALSE(log.has(kSizeCheck));
  EXPECT_TRUE(Scene(kLens, 40, 30, 20, 15).call(b));
  EXPECT_TRUE(log.has(kSizeCheck));
  for (int i = 0; i < 4; ++i) {
    const size_t written = std::min<size_t>(b.sizes[i], n);
    EXPECT_TRUE(i >= 2 || std::equal(b.data[i].begin(), b.data[i].begin() + long(written), reference.data[i].begin()));
    EXPECT_TRUE(b.untouchedFrom(i, written)) << i;
  }
  for (int y = 0; y < 30; ++y)
    for (int x = 20; x < 40; ++x) EXPECT_EQ(b.data[2][size_t(x + 40 * y)], -1.0f);
  for (int32_t width : {-5, 0, INT32_MAX}) {
    Buffers c(8);
    log.clear();
    EXPECT_TRUE(Scene(kLens, width, 30, width, 30).call(c));
    EXPECT_TRUE(log.has(kSizeCheck)) << width;
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(c.untouchedFrom(i, 0)) << width << " " << i;
  }
}

// Each failed check is reported once: a null map is skipped alone, a null
// record ends the call after the checks, a camera count other than 2 is only
// reported.
TEST(CreateFixedPlaneVSTMaps, ArgumentChecksAreReportedAndOnlySkipWhatIsMissing) {
  const Scene scene(kLens, 40, 30, 40, 30);
  const uint32_t n = 40 * 30;
  Buffers reference(n);
  scene.call(reference);
  const std::string lines[3] = {
      assertLine("mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr", 181),
      assertLine("deviceCalibration != nullptr && leftDisplay != nullptr && rightDisplay != nullptr", 182),
      assertLine("deviceCalibration->num_cameras == 2", 183)};
  for (int missing = 0; missing < 8; ++missing) {  // maps 0-3, records 4-6, 7: three cameras
    DeviceCalibrationMRV device = scene.device;
    device.num_cameras = missing == 7 ? 3 : 2;
    Buffers b(n);
    float* p[4] = {b.ptr(0), b.ptr(1), b.ptr(2), b.ptr(3)};
    if (missing < 4) p[missing] = nullptr;
    AR::Test::LogCapture log;
    EXPECT_TRUE(CreateFixedPlaneVSTMaps(missing == 4 ? nullptr : &device, missing == 5 ? nullptr : &scene.left,
                                        missing == 6 ? nullptr : &scene.right, 1.0f, 0, p[0], n, p[1], n, p[2], n,
                                        p[3], n));
    EXPECT_TRUE(log.has(lines[missing < 4 ? 0 : missing < 7 ? 1 : 2])) << missing;
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u) << missing;
    for (int i = 0; i < 4; ++i) {
      const bool written = missing == 7 || (missing < 4 && i != missing);
      EXPECT_EQ(b.data[i], (written ? reference : Buffers(n)).data[i]) << missing << " " << i;
    }
  }
}

TEST(CreateFixedPlaneVSTMaps, EightConcurrentCallsGiveTheSerialMaps) {
  const Scene scene(kLens, 48, 40, 48, 40);
  Buffers reference(48 * 40);
  scene.call(reference, 0.8f);
  std::vector<Buffers> results(8, Buffers(48 * 40));
  std::vector<std::thread> threads;
  for (auto& r : results) threads.emplace_back([&scene, &r] { scene.call(r, 0.8f); });
  for (auto& t : threads) t.join();
  for (const auto& r : results)
    for (int i = 0; i < 4; ++i) EXPECT_EQ(r.data[i], reference.data[i]);
}

}  // namespace
