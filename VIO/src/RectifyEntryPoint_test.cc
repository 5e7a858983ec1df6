#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "AR/Math/Matrix.h"
#include "CameraModel/DistortionModel.h"
#include "LogCapture.h"
#include "StereoRectifyWrapper.h"

namespace {

using AR::Test::LogCapture;
using Vec3d = AR::Math::Vector<double, 3>;
using Mat3d = AR::Math::Matrix<double, 3, 3>;

// --- A device, built and projected in double precision without the library ---

struct Quat {
  double x = 0, y = 0, z = 0, w = 1;
};

Quat quatFromAxisAngle(const Vec3d& axis, double angle) {
  const double s = std::sin(angle / 2) / std::sqrt(axis(0) * axis(0) + axis(1) * axis(1) + axis(2) * axis(2));
  return Quat{axis(0) * s, axis(1) * s, axis(2) * s, std::cos(angle / 2)};
}

/// Hamilton product: the rotation of b followed by that of a.
Quat operator*(const Quat& a, const Quat& b) {
  return Quat{a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
              a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

Mat3d rotationOf(const XrQuaterniondMRV_t& q) {
  const double n = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
  const double x = q.x / n, y = q.y / n, z = q.z / n, w = q.w / n;
  return Mat3d(1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w),  //
               2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w),  //
               2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y));
}

Vec3d positionOf(const CameraCalibrationMRV& camera) {
  return Vec3d(camera.pose.position.x, camera.pose.position.y, camera.pose.position.z);
}

/// A lens as the record holds it.
struct Lens {
  DistortionModel model;
  int width, height;
  double fx, fy, cx, cy, k[6], p[2];
};

Lens radialTangentialLens(int w, int h) {
  return {RADIAL_3_PARAMETERS, w, h, 0.7 * w, 0.7 * w * 1.002, w / 2.0 + 3.5, h / 2.0 - 2.25,
          {-0.12, 0.025, -0.002, 0, 0, 0}, {4e-4, -2.5e-4}};
}

Lens fisheyeLens(int w, int h) {
  return {FISHEYE_4_PARAMETERS, w, h, 0.45 * w, 0.45 * w, w / 2.0 - 1.5, h / 2.0 + 2.0,
          {0.03, -0.008, 0.0015, -0.0002, 0, 0}, {0, 0}};
}

/// Pixel of a point in camera coordinates by the lens formulas; false for
/// points less than 0.01 in front of the camera.
bool project(const Lens& lens, const Vec3d& point, double& u, double& v) {
  if (point(2) < 0.01) return false;
  const double x = point(0) / point(2), y = point(1) / point(2), r2 = x * x + y * y;
  double factor = 1 + lens.k[0] * r2 + lens.k[1] * r2 * r2 + lens.k[2] * r2 * r2 * r2;
  if (lens.model == FISHEYE_4_PARAMETERS) {
    const double theta = std::atan(std::sqrt(r2)), t2 = theta * theta;
    const double thetaD = theta * (1 + t2 * (lens.k[0] + t2 * (lens.k[1] + t2 * (lens.k[2] + t2 * lens.k[3]))));
    factor = r2 > 0 ? thetaD / std::sqrt(r2) : 1;
  }
  u = lens.fx * (x * factor + 2 * lens.p[0] * x * y + lens.p[1] * (r2 + 2 * x * x)) + lens.cx;
  v = lens.fy * (y * factor + lens.p[0] * (r2 + 2 * y * y) + 2 * lens.p[1] * x * y) + lens.cy;
  return true;
}

/// Two cameras with the same lens: camera 0 turned and moved on the device
/// (camera-from-device `q0`, `t0`), camera 1 turned by `relative` against it
/// with its centre at `rightCentre` in camera 0's frame.
struct StereoDevice {
  StereoDevice(const Lens& lens_, const Quat& q0, const Vec3d& t0, const Quat& relative, const Vec3d& rightCentre)
      : lens(lens_), R{rotationOf({q0.x, q0.y, q0.z, q0.w}), Mat3d()}, t{t0, Vec3d()} {
    const Quat q1 = relative * q0;
    const Mat3d R_rel = rotationOf({relative.x, relative.y, relative.z, relative.w});
    R[1] = rotationOf({q1.x, q1.y, q1.z, q1.w});
    t[1] = R_rel * t0 - R_rel * rightCentre;  // T1 = (R_rel, -R_rel c) * T0
    std::memset(&record, 0, sizeof(record));
    record.num_cameras = 2;
    const Quat q[2] = {q0, q1};
    for (int i = 0; i < 2; ++i) {
      CameraCalibrationMRV& c = record.cameras[i];
      c.width = lens.width, c.height = lens.height, c.distortionModel = int32_t(lens.model);
      c.cx = lens.cx, c.cy = lens.cy, c.fx = lens.fx, c.fy = lens.fy;
      std::copy(lens.k, lens.k + 6, c.k);
      std::copy(lens.p, lens.p + 2, c.p);
      c.pose.orientation = {q[i].x, q[i].y, q[i].z, q[i].w};
      c.pose.position = {t[i](0), t[i](1), t[i](2)};
    }
  }
  Lens lens;
  Mat3d R[2];  // camera from device
  Vec3d t[2];
  DeviceCalibrationMRV record;
};

/// A realistic rig: a relative rotation of 1 to 2 degrees about a random axis,
/// a baseline of 10 cm +- 5 mm along x whose other components stay below 3 mm.
StereoDevice randomStereoDevice(std::mt19937& rng, const Lens& lens) {
  std::uniform_real_distribution<double> r(-1, 1);
  const Quat q0 = quatFromAxisAngle(Vec3d(r(rng), r(rng), r(rng)), 0.3 * r(rng));
  const Vec3d t0(0.05 * r(rng), 0.05 * r(rng), 0.02 * r(rng));
  const Quat relative = quatFromAxisAngle(Vec3d(r(rng), r(rng), r(rng)), M_PI / 180 * (1.5 + 0.5 * r(rng)));
  return StereoDevice(lens, q0, t0, relative, Vec3d(0.1 + 0.005 * r(rng), 0.003 * r(rng), 0.003 * r(rng)));
}

// --- Calling the entry point ---------------------------------------------------

/// The four maps of one call (left X, left Y, right X, right Y) and the other outputs.
struct Result {
  static constexpr float kCanary = 12345.5f;
  explicit Result(size_t capacity) : maps(4, std::vector<float>(capacity, kCanary)) {
    std::memset(&rectified, 0xA5, sizeof(rectified));
  }
  std::vector<std::vector<float>> maps;
  float depthParam = 0;
  CameraCalibrationMRV rectified;
};

/// CreateRectifyMap into buffers of `capacity` floats whose sizes are declared as `declared`.
Result rectify(const DeviceCalibrationMRV& device, uint32_t capacity, uint32_t declared, uint32_t allowOut = 1) {
  Result r(capacity);
  EXPECT_TRUE(CreateRectifyMap(&device, allowOut, r.maps[0].data(), declared, r.maps[1].data(), declared,
                               r.maps[2].data(), declared, r.maps[3].data(), declared, &r.depthParam, &r.rectified));
  return r;
}

/// "AR_ASSERT <condition> VIO/src/StereoRectifyWrapper(<line>) bool CreateRectifyMap(" as logged.
std::string assertText(const std::string& condition, int line) {
  return "AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" + std::to_string(line) + ") bool CreateRectifyMap(";
}

/// Bilinear sample of a map; false when a corner is outside or holds no source.
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

/// The rectified position (u, v) whose map entry is the source pixel (sx, sy):
/// Newton steps on the bilinear interpolation of the maps from the guess (u, v).
bool invertMap(const std::vector<float>& mapX, const std::vector<float>& mapY, int width, int height, double sx,
               double sy, double& u, double& v) {
  const double h = 0.25;
  for (int iteration = 0; iteration < 20; ++iteration) {
    double mx, my, mxu, myu, mxv, myv;
    if (!sample(mapX, width, height, u, v, mx) || !sample(mapY, width, height, u, v, my) ||
        !sample(mapX, width, height, u + h, v, mxu) || !sample(mapY, width, height, u + h, v, myu) ||
        !sample(mapX, width, height, u, v + h, mxv) || !sample(mapY, width, height, u, v + h, myv))
      return false;
    const double j00 = (mxu - mx) / h, j01 = (mxv - mx) / h, j10 = (myu - my) / h, j11 = (myv - my) / h;
    const double det = j00 * j11 - j01 * j10, ex = sx - mx, ey = sy - my;
    const double du = (j11 * ex - j01 * ey) / det, dv = (j00 * ey - j10 * ex) / det;
    u += du;
    v += dv;
    if (std::fabs(du) < 1e-6 && std::fabs(dv) < 1e-6) return true;
  }
  return false;
}

// --- The stereo property, per lens -----------------------------------------------

struct LensCase {
  const char* name;
  Lens (*make)(int, int);
};
void PrintTo(const LensCase& lensCase, std::ostream* os) { *os << lensCase.name; }

class RectifyStereoProperty : public ::testing::TestWithParam<LensCase> {
 protected:
  static constexpr int kWidth = 640, kHeight = 480;
};

// Points between 1 m and 10 m, projected into both real cameras, land on the
// same row of the two rectified images, and constant / disparity is their depth.
TEST_P(RectifyStereoProperty, PointsLandOnOneRowAndDisparityGivesDepth) {
  std::mt19937 rng(20240611u);
  std::uniform_real_distribution<double> uniform(0, 1);
  for (int rig = 0; rig < 3; ++rig) {
    const StereoDevice device = randomStereoDevice(rng, GetParam().make(kWidth, kHeight));
    const Result result = rectify(device.record, kWidth * kHeight, kWidth * kHeight);
    const CameraCalibrationMRV& rc = result.rectified;
    const Mat3d R_rect = rotationOf(rc.pose.orientation);
    int checked = 0;
    for (int n = 0; n < 40; ++n) {
      const double z = 1 + 9 * uniform(rng);
      const Vec3d p_c0(z * (0.6 * uniform(rng) - 0.3), z * (0.5 * uniform(rng) - 0.25), z);
      const Vec3d p_dev = device.R[0].transpose() * (p_c0 - device.t[0]);
      double s0x, s0y, s1x, s1y;
      ASSERT_TRUE(project(device.lens, p_c0, s0x, s0y));
      ASSERT_TRUE(project(device.lens, device.R[1] * p_dev + device.t[1], s1x, s1y));
      if (s1x < 2 || s1x > kWidth - 3 || s1y < 2 || s1y > kHeight - 3) continue;

      // Start Newton where the rectified camera record says the point is.
      const Vec3d p_rect = R_rect * p_dev + positionOf(rc);
      double uL = rc.fx * p_rect(0) / p_rect(2) + rc.cx, vL = rc.fy * p_rect(1) / p_rect(2) + rc.cy;
      double uR = uL - result.depthParam / p_rect(2), vR = vL;
      ASSERT_TRUE(invertMap(result.maps[0], result.maps[1], kWidth, kHeight, s0x, s0y, uL, vL)) << "rig " << rig;
      ASSERT_TRUE(invertMap(result.maps[2], result.maps[3], kWidth, kHeight, s1x, s1y, uR, vR)) << "rig " << rig;
      EXPECT_LT(std::fabs(vL - vR), 0.05) << "rig " << rig << " point " << n;
      EXPECT_LT(std::fabs(result.depthParam / (uL - uR) / p_rect(2) - 1), 0.005) << "rig " << rig << " point " << n;
      ++checked;
    }
    EXPECT_GT(checked, 30);
  }
}

// Each map entry is the source camera's projection of the rectified ray,
// computed here from the rectified camera record and the lens formulas.
TEST_P(RectifyStereoProperty, MapEntriesProjectTheRectifiedRay) {
  std::mt19937 rng(77u);
  const StereoDevice device = randomStereoDevice(rng, GetParam().make(kWidth, kHeight));
  const Result result = rectify(device.record, kWidth * kHeight, kWidth * kHeight);
  const CameraCalibrationMRV& rc = result.rectified;
  EXPECT_EQ(rc.distortionModel, 0);
  const Mat3d R_rect = rotationOf(rc.pose.orientation);
  for (int cam = 0; cam < 2; ++cam) {
    int compared = 0;
    for (int y = 0; y < kHeight; y += 12)
      for (int x = 0; x < kWidth; x += 12) {
        // Rays have no position: only the rotations take part.
        const Vec3d ray((x - rc.cx) / rc.fx, (y - rc.cy) / rc.fy, 1);
        double sx, sy;
        if (!project(device.lens, device.R[cam] * (R_rect.transpose() * ray), sx, sy) || sx < 0 || sx >= kWidth ||
            sy < 0 || sy >= kHeight)
          continue;
        const size_t i = size_t(x + kWidth * y);
        ASSERT_NEAR(result.maps[2 * cam][i], sx, 0.02) << "cam " << cam << " at " << x << "," << y;
        ASSERT_NEAR(result.maps[2 * cam + 1][i], sy, 0.02) << "cam " << cam << " at " << x << "," << y;
        ++compared;
      }
    EXPECT_GT(compared, 1500);
  }
}

INSTANTIATE_TEST_SUITE_P(Lenses, RectifyStereoProperty,
                         ::testing::Values(LensCase{"RadialTangential", radialTangentialLens},
                                           LensCase{"Fisheye", fisheyeLens}),
                         [](const ::testing::TestParamInfo<LensCase>& info) { return info.param.name; });

// --- Entry-point rules, against one reference call -------------------------------

class CreateRectifyMapRules : public ::testing::Test {
 protected:
  static constexpr int kWidth = 320, kHeight = 240;
  static constexpr uint32_t kSize = kWidth * kHeight;

  std::mt19937 rng_{5u};
  StereoDevice device_ = randomStereoDevice(rng_, radialTangentialLens(kWidth, kHeight));
  Result reference_ = rectify(device_.record, kSize, kSize);
};

TEST_F(CreateRectifyMapRules, RectifiedCameraRecordKeepsTheCallersBytes) {
  const CameraCalibrationMRV& rc = reference_.rectified;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&rc);
  for (const auto& [begin, end] : {std::pair{0, 64}, std::pair{248, 312}})
    for (int i = begin; i < end; ++i) ASSERT_EQ(bytes[i], 0xA5) << "byte " << i;
  EXPECT_EQ(rc.width, kWidth);
  EXPECT_EQ(rc.height, kHeight);
  for (double k : rc.k) EXPECT_EQ(k, 0.0);
  EXPECT_EQ(rc.p[0], 0.0);
  EXPECT_EQ(rc.p[1], 0.0);
  EXPECT_EQ(rc.noiseX, 9.0);  // the model's variance 81 as a standard deviation
  EXPECT_EQ(rc.noiseY, 9.0);
  // The rectified camera sits where camera 0 sits: position = -R_rect * c0.
  const Vec3d c0 = device_.R[0].transpose() * (-1.0 * device_.t[0]);
  const Vec3d expectedPosition = -1.0 * (rotationOf(rc.pose.orientation) * c0);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(positionOf(rc)(i), expectedPosition(i), 1e-5);
}

TEST_F(CreateRectifyMapRules, WrongBufferSizesAreReportedAndNeverOverrun) {
  // One float short: the map's first kSize - 1 floats. Larger: the map in front, the rest untouched.
  for (uint32_t size : {kSize - 1, kSize + 100}) {
    LogCapture log;
    const Result result = rectify(device_.record, size, size);
    EXPECT_EQ(log.countContaining(assertText("mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && "
                                             "mapRightX_size==map_buffer_size && mapRightY_size==map_buffer_size",
                                             51)),
              1u);
    const size_t written = std::min(size, kSize);
    for (int m = 0; m < 4; ++m) {
      EXPECT_TRUE(std::equal(result.maps[m].begin(), result.maps[m].begin() + written, reference_.maps[m].begin()));
      for (size_t i = written; i < size; ++i) ASSERT_EQ(result.maps[m][i], Result::kCanary);
    }
  }
}

TEST_F(CreateRectifyMapRules, ThirdCameraCountIsReportedAndIgnored) {
  DeviceCalibrationMRV record = device_.record;
  record.num_cameras = 3;
  LogCapture log;
  const Result result = rectify(record, kSize, kSize);
  EXPECT_EQ(log.countContaining(assertText("deviceCalibration->num_cameras == 2", 24)), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u);
  EXPECT_EQ(result.maps, reference_.maps);
  EXPECT_EQ(std::memcmp(&result.rectified, &reference_.rectified, sizeof(CameraCalibrationMRV)), 0);
}

TEST_F(CreateRectifyMapRules, OutOfImageEntriesAreKeptOnlyWhenAllowed) {
  const Result inside = rectify(device_.record, kSize, kSize, 0);
  int outside = 0;
  for (int m = 0; m < 4; m += 2)
    for (size_t i = 0; i < kSize; ++i) {
      const float x = reference_.maps[m][i], y = reference_.maps[m + 1][i];
      const bool valid = x >= 0 && x < kWidth && y >= 0 && y < kHeight;
      outside += !valid;
      ASSERT_EQ(inside.maps[m][i], valid ? x : -1.0f) << i;
      ASSERT_EQ(inside.maps[m + 1][i], valid ? y : -1.0f) << i;
    }
  EXPECT_GT(outside, 0);  // a turned camera's rectified view reaches past its borders
}

TEST_F(CreateRectifyMapRules, NullPointersAreReportedAndNeverWrittenThrough) {
  Result r(kSize);
  auto call = [&](bool leftX, float* depth, CameraCalibrationMRV* rectified, const DeviceCalibrationMRV* device) {
    return CreateRectifyMap(device, 1, leftX ? r.maps[0].data() : nullptr, kSize, r.maps[1].data(), kSize,
                            r.maps[2].data(), kSize, r.maps[3].data(), kSize, depth, rectified);
  };
  {
    // Without the record to fill, or without the device, nothing is computed.
    float depth = 7;
    LogCapture log;
    EXPECT_TRUE(call(true, &depth, nullptr, &device_.record));
    EXPECT_TRUE(call(true, &depth, nullptr, nullptr));
    EXPECT_EQ(log.countContaining(assertText("deviceCalibration != nullptr && rectifiedCam != nullptr", 23)), 2u);
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 2u);
    EXPECT_EQ(depth, 7.0f);
    for (const auto& map : r.maps) ASSERT_EQ(map, std::vector<float>(kSize, Result::kCanary));
  }
  // A missing map or depth output is skipped; the rest is written.
  LogCapture log;
  EXPECT_TRUE(call(false, nullptr, &r.rectified, &device_.record));
  EXPECT_EQ(log.countContaining(assertText(
                "mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr", 22)),
            1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u);
  EXPECT_EQ(r.maps[0], std::vector<float>(kSize, Result::kCanary));
  for (int m = 1; m < 4; ++m) EXPECT_EQ(r.maps[m], reference_.maps[m]);
}

TEST_F(CreateRectifyMapRules, ConcurrentCallsGiveTheSerialMaps) {
  std::vector<std::vector<std::vector<float>>> maps(4);
  std::vector<std::thread> threads;
  for (auto& m : maps) threads.emplace_back([&] { m = rectify(device_.record, kSize, kSize).maps; });
  for (std::thread& thread : threads) thread.join();
  for (const auto& m : maps) EXPECT_EQ(m, reference_.maps);
}

// A left camera that the conversion rejects is reported ("ret") and leaves the
// target pair with a zero baseline, a fatal error of the target calibration.
TEST(CreateRectifyMapDeathTest, LeftCameraWithoutValidIntrinsicsEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  std::mt19937 rng(9u);
  StereoDevice device = randomStereoDevice(rng, radialTangentialLens(64, 48));
  device.record.cameras[0].fx = -1.0;
  EXPECT_DEATH(rectify(device.record, 64 * 48, 64 * 48),
               "AR_ASSERT ret VIO/src/StereoRectifyWrapper\\(29\\) bool CreateRectifyMap\\(.*length>0");
}

// The rectified orientation is S^T R0, close to R0 for a nearly parallel rig.
// Left cameras turned by 3 rad about each axis have a negative trace, so every
// branch of the quaternion extraction is used.
TEST(CreateRectifyMapPose, QuaternionOfEveryLargeRotationIsRight) {
  for (const Vec3d& axis : {Vec3d(1, 0, 0), Vec3d(0, 1, 0), Vec3d(0, 0, 1), Vec3d(1, 1, 1)}) {
    const StereoDevice device(radialTangentialLens(64, 48), quatFromAxisAngle(axis, 3.0), Vec3d(0.01, -0.02, 0.03),
                              quatFromAxisAngle(Vec3d(0, 1, 0), 0.01), Vec3d(0.1, 0, 0));
    const Result result = rectify(device.record, 64 * 48, 64 * 48);
    const XrQuaterniondMRV_t& q = result.rectified.pose.orientation;
    EXPECT_NEAR(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w, 1.0, 1e-6);
    const Mat3d R_rect = rotationOf(q);
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(R_rect(r, c), device.R[0](r, c), 0.006) << r << "," << c;
  }
}

}  // namespace
