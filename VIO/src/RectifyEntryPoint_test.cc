#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "RectifyTestDevice.h"
#include "StereoRectifyWrapper.h"

namespace {

using AR::Test::Lens;
using AR::Test::LogCapture;
using AR::Test::Mat3d;
using AR::Test::StereoDevice;
using AR::Test::Vec3d;

constexpr const char* kWhere = " VIO/src/StereoRectifyWrapper(";

/// "AR_ASSERT <condition> VIO/src/StereoRectifyWrapper(<line>) " as logged.
std::string assertText(const std::string& condition, int line) {
  return "AR_ASSERT " + condition + kWhere + std::to_string(line) + ") bool CreateRectifyMap(";
}

const std::string kSizeCondition =
    "mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && mapRightX_size==map_buffer_size && "
    "mapRightY_size==map_buffer_size";

/// The four maps of one call, each with room for `capacity` floats, filled
/// with a canary value beforehand.
struct Maps {
  static constexpr float kCanary = 12345.5f;
  explicit Maps(size_t capacity) : data(4, std::vector<float>(capacity, kCanary)) {}
  std::vector<std::vector<float>> data;  // left X, left Y, right X, right Y
};

struct RectifyResult {
  bool ok = false;
  float depthParam = 0;
  CameraCalibrationMRV rectified;
};

/// Calls CreateRectifyMap with buffers of `capacity` floats whose declared
/// sizes are `declared`.
RectifyResult rectify(const DeviceCalibrationMRV& device, Maps& maps, uint32_t declared, uint32_t allowOutOfImage = 1) {
  RectifyResult result;
  std::memset(&result.rectified, 0xA5, sizeof(result.rectified));
  result.ok = CreateRectifyMap(&device, allowOutOfImage, maps.data[0].data(), declared, maps.data[1].data(), declared,
                               maps.data[2].data(), declared, maps.data[3].data(), declared, &result.depthParam,
                               &result.rectified);
  return result;
}

// --- Pose of the rectified camera --------------------------------------------

Mat3d rectifiedRotation(const CameraCalibrationMRV& rectified) {
  return AR::Test::rotationOf(rectified.pose.orientation);
}

Vec3d rectifiedPosition(const CameraCalibrationMRV& rectified) {
  return Vec3d(rectified.pose.position.x, rectified.pose.position.y, rectified.pose.position.z);
}

// --- Map inversion -------------------------------------------------------------

/// Bilinear sample of a map at a fractional position; false when a corner
/// is outside the map or holds no source.
bool sample(const std::vector<float>& map, int width, int height, double u, double v, double& value) {
  const int x0 = int(std::floor(u)), y0 = int(std::floor(v));
  if (x0 < 0 || y0 < 0 || x0 + 1 >= width || y0 + 1 >= height) return false;
  const double fx = u - x0, fy = v - y0;
  const double a = map[x0 + width * y0], b = map[x0 + 1 + width * y0];
  const double c = map[x0 + width * (y0 + 1)], d = map[x0 + 1 + width * (y0 + 1)];
  if (a == -1.0 || b == -1.0 || c == -1.0 || d == -1.0) return false;
  value = (a * (1 - fx) + b * fx) * (1 - fy) + (c * (1 - fx) + d * fx) * fy;
  return true;
}

/// The rectified position (u, v) whose map entry is the source pixel (sx,
/// sy): nearest entry by a coarse and a fine search, then Newton steps on
/// the bilinear interpolation of the maps.
bool invertMap(const std::vector<float>& mapX, const std::vector<float>& mapY, int width, int height, double sx,
               double sy, double& u, double& v) {
  auto distanceAt = [&](int x, int y) {
    const double dx = mapX[x + width * y] - sx, dy = mapY[x + width * y] - sy;
    return mapX[x + width * y] == -1.0f ? 1e30 : dx * dx + dy * dy;
  };
  int bestX = 0, bestY = 0;
  double best = 1e30;
  for (int y = 0; y < height; y += 4)
    for (int x = 0; x < width; x += 4)
      if (distanceAt(x, y) < best) best = distanceAt(x, y), bestX = x, bestY = y;
  const int cx = bestX, cy = bestY;
  for (int y = std::max(0, cy - 6); y < std::min(height, cy + 7); ++y)
    for (int x = std::max(0, cx - 6); x < std::min(width, cx + 7); ++x)
      if (distanceAt(x, y) < best) best = distanceAt(x, y), bestX = x, bestY = y;

  u = bestX;
  v = bestY;
  for (int iteration = 0; iteration < 20; ++iteration) {
    double mx, my, mxu, myu, mxv, myv;
    const double h = 0.25;
    if (!sample(mapX, width, height, u, v, mx) || !sample(mapY, width, height, u, v, my) ||
        !sample(mapX, width, height, u + h, v, mxu) || !sample(mapY, width, height, u + h, v, myu) ||
        !sample(mapX, width, height, u, v + h, mxv) || !sample(mapY, width, height, u, v + h, myv))
      return false;
    const double j00 = (mxu - mx) / h, j01 = (mxv - mx) / h, j10 = (myu - my) / h, j11 = (myv - my) / h;
    const double det = j00 * j11 - j01 * j10;
    const double ex = sx - mx, ey = sy - my;
    const double du = (j11 * ex - j01 * ey) / det, dv = (-j10 * ex + j00 * ey) / det;
    u += du;
    v += dv;
    if (std::fabs(du) < 1e-6 && std::fabs(dv) < 1e-6) return true;
  }
  return false;
}

// --- The stereo property ---------------------------------------------------------

struct LensCase {
  const char* name;
  Lens (*make)(int, int);
};

void PrintTo(const LensCase& lensCase, std::ostream* os) { *os << lensCase.name; }

class RectifyStereoProperty : public ::testing::TestWithParam<LensCase> {};

// Points between 1 m and 10 m, projected into both real cameras by the lens
// formulas, must land on the same row of the two rectified images, and the
// disparity must give their depth along the rectified optical axis.
TEST_P(RectifyStereoProperty, PointsLandOnOneRowAndDisparityGivesDepth) {
  const int width = 640, height = 480;
  const Lens lens = GetParam().make(width, height);
  std::mt19937 rng(20240611u);
  std::uniform_real_distribution<double> uniform(0, 1);

  for (int rig = 0; rig < 3; ++rig) {
    SCOPED_TRACE("rig " + std::to_string(rig));
    const StereoDevice device = AR::Test::randomStereoDevice(rng, lens);
    Maps maps(width * height);
    const RectifyResult result = rectify(device.record, maps, width * height);
    ASSERT_TRUE(result.ok);
    ASSERT_EQ(result.rectified.width, width);
    ASSERT_EQ(result.rectified.height, height);
    const Mat3d R_rect = rectifiedRotation(result.rectified);
    const Vec3d t_rect = rectifiedPosition(result.rectified);
    const Mat3d R0 = AR::Test::rotationOf(device.pose[0].q);
    const Mat3d R1 = AR::Test::rotationOf(device.pose[1].q);

    int checked = 0;
    double worstRow = 0, worstDepth = 0;
    for (int n = 0; n < 40; ++n) {
      // A point in camera 0's frame, then on the device.
      const double z = 1 + 9 * uniform(rng);
      const Vec3d p_c0(z * (0.6 * uniform(rng) - 0.3), z * (0.5 * uniform(rng) - 0.25), z);
      const Vec3d p_dev = R0.transpose() * (p_c0 - device.pose[0].t);
      double s0x, s0y, s1x, s1y;
      ASSERT_TRUE(AR::Test::projectClosedForm(device.lens[0], p_c0, s0x, s0y));
      ASSERT_TRUE(AR::Test::projectClosedForm(device.lens[1], R1 * p_dev + device.pose[1].t, s1x, s1y));
      if (s1x < 2 || s1x > width - 3 || s1y < 2 || s1y > height - 3) continue;

      double uL, vL, uR, vR;
      ASSERT_TRUE(invertMap(maps.data[0], maps.data[1], width, height, s0x, s0y, uL, vL));
      ASSERT_TRUE(invertMap(maps.data[2], maps.data[3], width, height, s1x, s1y, uR, vR));
      const double depth = (R_rect * p_dev + t_rect)(2);
      const double depthFromDisparity = result.depthParam / (uL - uR);
      worstRow = std::max(worstRow, std::fabs(vL - vR));
      worstDepth = std::max(worstDepth, std::fabs(depthFromDisparity / depth - 1));
      EXPECT_LT(std::fabs(vL - vR), 0.05) << "point " << n << " at depth " << depth;
      EXPECT_LT(std::fabs(depthFromDisparity / depth - 1), 0.005) << "point " << n << " at depth " << depth;
      ++checked;
    }
    EXPECT_GT(checked, 30);
    RecordProperty("worstRow" + std::to_string(rig), std::to_string(worstRow));
    RecordProperty("worstDepth" + std::to_string(rig), std::to_string(worstDepth));
  }
}

// Every map entry is the source camera's projection of the rectified ray,
// computed here from the rectified camera record and the lens formulas.
TEST_P(RectifyStereoProperty, MapEntriesProjectTheRectifiedRay) {
  const int width = 640, height = 480;
  const Lens lens = GetParam().make(width, height);
  std::mt19937 rng(77u);
  const StereoDevice device = AR::Test::randomStereoDevice(rng, lens);
  Maps maps(width * height);
  const RectifyResult result = rectify(device.record, maps, width * height);
  const CameraCalibrationMRV& rc = result.rectified;
  EXPECT_EQ(rc.distortionModel, 0);
  const Mat3d R_rect = rectifiedRotation(rc);

  for (int cam = 0; cam < 2; ++cam) {
    const Mat3d R_cam = AR::Test::rotationOf(device.pose[cam].q);
    const std::vector<float>& mapX = maps.data[2 * cam];
    const std::vector<float>& mapY = maps.data[2 * cam + 1];
    int compared = 0, inside = 0;
    for (int y = 0; y < height; y += 12) {
      for (int x = 0; x < width; x += 12) {
        // Rays have no position: only the rotations take part.
        const Vec3d ray_rect((x - rc.cx) / rc.fx, (y - rc.cy) / rc.fy, 1);
        double sx, sy;
        if (!AR::Test::projectClosedForm(device.lens[cam], R_cam * (R_rect.transpose() * ray_rect), sx, sy)) continue;
        const bool sourceInside = sx >= 0 && sx < width && sy >= 0 && sy < height;
        if (!sourceInside) continue;
        ++inside;
        const float mx = mapX[x + width * y], my = mapY[x + width * y];
        ASSERT_NE(mx, -1.0f) << "cam " << cam << " at " << x << "," << y;
        EXPECT_NEAR(mx, sx, 0.02) << "cam " << cam << " at " << x << "," << y;
        EXPECT_NEAR(my, sy, 0.02) << "cam " << cam << " at " << x << "," << y;
        ++compared;
      }
    }
    EXPECT_GT(compared, 1500);
    EXPECT_EQ(compared, inside);
  }
}

INSTANTIATE_TEST_SUITE_P(Lenses, RectifyStereoProperty,
                         ::testing::Values(LensCase{"RadialTangential", AR::Test::radialTangentialLens},
                                           LensCase{"Fisheye", AR::Test::fisheyeLens}),
                         [](const ::testing::TestParamInfo<LensCase>& info) { return info.param.name; });

// --- Entry-point rules ---------------------------------------------------------------

class CreateRectifyMapRules : public ::testing::Test {
 protected:
  static constexpr int kWidth = 320, kHeight = 240;
  static constexpr uint32_t kSize = kWidth * kHeight;

  void SetUp() override {
    std::mt19937 rng(5u);
    device_ = AR::Test::randomStereoDevice(rng, AR::Test::radialTangentialLens(kWidth, kHeight));
    reference_ = std::make_unique<Maps>(kSize);
    referenceResult_ = rectify(device_.record, *reference_, kSize);
  }

  StereoDevice device_;
  std::unique_ptr<Maps> reference_;
  RectifyResult referenceResult_;
};

TEST_F(CreateRectifyMapRules, RectifiedCameraRecordKeepsTheCallersBytes) {
  const CameraCalibrationMRV& rc = referenceResult_.rectified;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&rc);
  for (size_t i = 0; i < 64; ++i) ASSERT_EQ(bytes[i], 0xA5) << "byte " << i;
  for (size_t i = 248; i < 312; ++i) ASSERT_EQ(bytes[i], 0xA5) << "byte " << i;
  EXPECT_EQ(rc.width, kWidth);
  EXPECT_EQ(rc.height, kHeight);
  // A distortion-free target; the variance 81 of its model reads back as 9.
  for (double k : rc.k) EXPECT_EQ(k, 0.0);
  EXPECT_EQ(rc.p[0], 0.0);
  EXPECT_EQ(rc.p[1], 0.0);
  EXPECT_EQ(rc.noiseX, 9.0);
  EXPECT_EQ(rc.noiseY, 9.0);
  EXPECT_EQ(rc.fx, rc.fy);
  EXPECT_EQ(rc.cx, kWidth / 2.0);
  EXPECT_EQ(rc.cy, kHeight / 2.0);
  // depth = constant / disparity with constant = baseline * fx.
  const Mat3d R0 = AR::Test::rotationOf(device_.pose[0].q), R1 = AR::Test::rotationOf(device_.pose[1].q);
  const Vec3d c0 = R0.transpose() * (-1.0 * device_.pose[0].t), c1 = R1.transpose() * (-1.0 * device_.pose[1].t);
  const Vec3d b = c1 - c0;
  const double baseline = std::sqrt(b(0) * b(0) + b(1) * b(1) + b(2) * b(2));
  EXPECT_NEAR(referenceResult_.depthParam, baseline * rc.fx, 1e-5 * baseline * rc.fx);
  // The rectified camera sits where camera 0 sits: position = -R_rect * c0.
  const Vec3d expectedPosition = -1.0 * (rectifiedRotation(rc) * c0);
  const Vec3d position = rectifiedPosition(rc);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(position(i), expectedPosition(i), 1e-5);
}

TEST_F(CreateRectifyMapRules, WrongBufferSizesAreReportedAndNeverOverrun) {
  {
    // One float short: the first kSize - 1 floats of the map, the canary after them.
    Maps maps(kSize);
    LogCapture log;
    EXPECT_TRUE(rectify(device_.record, maps, kSize - 1).ok);
    EXPECT_EQ(log.countContaining(assertText(kSizeCondition, 51)), 1u);
    for (int m = 0; m < 4; ++m) {
      EXPECT_EQ(maps.data[m].back(), Maps::kCanary);
      EXPECT_TRUE(std::equal(maps.data[m].begin(), maps.data[m].end() - 1, reference_->data[m].begin()));
    }
  }
  {
    // Larger than the map: the map in front, the rest untouched.
    Maps maps(kSize + 100);
    LogCapture log;
    EXPECT_TRUE(rectify(device_.record, maps, kSize + 100).ok);
    EXPECT_EQ(log.countContaining(assertText(kSizeCondition, 51)), 1u);
    for (int m = 0; m < 4; ++m) {
      EXPECT_TRUE(std::equal(maps.data[m].begin(), maps.data[m].begin() + kSize, reference_->data[m].begin()));
      for (size_t i = kSize; i < kSize + 100; ++i) ASSERT_EQ(maps.data[m][i], Maps::kCanary);
    }
  }
  {
    LogCapture log;
    Maps maps(kSize);
    rectify(device_.record, maps, kSize);
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
  }
}

TEST_F(CreateRectifyMapRules, ThirdCameraCountIsReportedAndIgnored) {
  DeviceCalibrationMRV record = device_.record;
  record.num_cameras = 3;
  Maps maps(kSize);
  LogCapture log;
  const RectifyResult result = rectify(record, maps, kSize);
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(log.countContaining(assertText("deviceCalibration->num_cameras == 2", 24)), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u);
  EXPECT_EQ(maps.data, reference_->data);
  EXPECT_EQ(std::memcmp(&result.rectified, &referenceResult_.rectified, sizeof(CameraCalibrationMRV)), 0);
}

TEST_F(CreateRectifyMapRules, OutOfImageEntriesAreKeptOnlyWhenAllowed) {
  Maps inside(kSize);
  rectify(device_.record, inside, kSize, 0);
  int outside = 0;
  for (int m = 0; m < 4; m += 2) {
    for (size_t i = 0; i < kSize; ++i) {
      const float x = reference_->data[m][i], y = reference_->data[m + 1][i];
      const bool valid = x >= 0 && x < kWidth && y >= 0 && y < kHeight;
      if (valid) {
        ASSERT_EQ(inside.data[m][i], x);
        ASSERT_EQ(inside.data[m + 1][i], y);
      } else {
        ++outside;
        ASSERT_EQ(inside.data[m][i], -1.0f);
        ASSERT_EQ(inside.data[m + 1][i], -1.0f);
      }
    }
  }
  // The rectified view of a turned camera reaches past its image borders.
  EXPECT_GT(outside, 0);
}

TEST_F(CreateRectifyMapRules, NullPointersAreReportedAndNeverWrittenThrough) {
  const std::string mapsCondition =
      "mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr";
  const std::string recordCondition = "deviceCalibration != nullptr && rectifiedCam != nullptr";
  {
    // A missing map is skipped; the others are written.
    Maps maps(kSize);
    float depth = 0;
    CameraCalibrationMRV rc;
    LogCapture log;
    EXPECT_TRUE(CreateRectifyMap(&device_.record, 1, nullptr, kSize, maps.data[1].data(), kSize,
                                 maps.data[2].data(), kSize, maps.data[3].data(), kSize, &depth, &rc));
    EXPECT_EQ(log.countContaining(assertText(mapsCondition, 22)), 1u);
    for (int m = 1; m < 4; ++m) EXPECT_EQ(maps.data[m], reference_->data[m]);
    EXPECT_EQ(depth, referenceResult_.depthParam);
  }
  {
    // Without the record to fill, or without the device, nothing is computed.
    Maps maps(kSize);
    float depth = 7;
    LogCapture log;
    EXPECT_TRUE(CreateRectifyMap(&device_.record, 1, maps.data[0].data(), kSize, maps.data[1].data(), kSize,
                                 maps.data[2].data(), kSize, maps.data[3].data(), kSize, &depth, nullptr));
    EXPECT_TRUE(CreateRectifyMap(nullptr, 1, maps.data[0].data(), kSize, maps.data[1].data(), kSize,
                                 maps.data[2].data(), kSize, maps.data[3].data(), kSize, &depth, nullptr));
    EXPECT_EQ(log.countContaining(assertText(recordCondition, 23)), 2u);
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 2u);
    EXPECT_EQ(depth, 7.0f);
    for (int m = 0; m < 4; ++m)
      for (float value : maps.data[m]) ASSERT_EQ(value, Maps::kCanary);
  }
  {
    // A missing depth output is simply not written.
    Maps maps(kSize);
    CameraCalibrationMRV rc;
    LogCapture log;
    EXPECT_TRUE(CreateRectifyMap(&device_.record, 1, maps.data[0].data(), kSize, maps.data[1].data(), kSize,
                                 maps.data[2].data(), kSize, maps.data[3].data(), kSize, nullptr, &rc));
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 0u);
    EXPECT_EQ(maps.data, reference_->data);
  }
}

TEST_F(CreateRectifyMapRules, ConcurrentCallsGiveTheSerialMaps) {
  std::vector<std::unique_ptr<Maps>> results;
  for (int i = 0; i < 4; ++i) results.push_back(std::make_unique<Maps>(kSize));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, i] { rectify(device_.record, *results[i], kSize); });
  for (std::thread& thread : threads) thread.join();
  for (const auto& maps : results) EXPECT_EQ(maps->data, reference_->data);
}

}  // namespace

namespace {

// A left camera that the conversion rejects leaves the target pair without
// intrinsics and without its right pose, i.e. with a zero baseline, and a
// zero baseline is a fatal error of the target calibration ("length>0").
TEST(CreateRectifyMapRejectedCameraDeathTest, LeftCameraWithoutValidIntrinsicsEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  std::mt19937 rng(9u);
  StereoDevice device = AR::Test::randomStereoDevice(rng, AR::Test::radialTangentialLens(64, 48));
  device.record.cameras[0].fx = -1.0;
  Maps maps(64 * 48);
  EXPECT_DEATH(rectify(device.record, maps, 64 * 48), "length>0");
}

}  // namespace

namespace {

// The rectified orientation is S^T R0, close to R0 for a nearly parallel rig.
// Left cameras turned half way round about each axis give rotations whose
// trace is negative, so every branch of the quaternion extraction is used.
TEST(CreateRectifyMapPose, QuaternionOfEveryLargeRotationIsRight) {
  const Vec3d axes[] = {Vec3d(1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, 0, 1), Vec3d(1, 1, 1), Vec3d(0, 0, 0)};
  for (const Vec3d& axis : axes) {
    const bool identity = axis(0) == 0 && axis(1) == 0 && axis(2) == 0;
    const AR::Test::Pose leftPose{identity ? AR::Test::Quat() : AR::Test::quatFromAxisAngle(axis, 3.0),
                                  Vec3d(0.01, -0.02, 0.03)};
    const StereoDevice device =
        AR::Test::makeStereoDevice(AR::Test::radialTangentialLens(64, 48), AR::Test::radialTangentialLens(64, 48),
                                   leftPose, AR::Test::quatFromAxisAngle(Vec3d(0, 1, 0), 0.01), Vec3d(0.1, 0, 0));
    Maps maps(64 * 48);
    const RectifyResult result = rectify(device.record, maps, 64 * 48);
    const XrQuaterniondMRV_t& q = result.rectified.pose.orientation;
    EXPECT_NEAR(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w, 1.0, 1e-6);
    const Mat3d R_rect = rectifiedRotation(result.rectified);
    const Mat3d R0 = AR::Test::rotationOf(device.pose[0].q);
    // S is half the relative rotation of 0.01 rad here.
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(R_rect(r, c), R0(r, c), 0.006) << r << "," << c;
  }
}

}  // namespace
