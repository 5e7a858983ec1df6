#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "RecordRig.h"
#include "StereoRectifyWrapper.h"

namespace {

using AR::Test::LogCapture;
using RecordRig::LensCase;
using RecordRig::Mat3d;
using RecordRig::Vec3d;

constexpr int kWidth = 640, kHeight = 480;
constexpr uint32_t kSize = kWidth * kHeight;

/// Camera 0 turned by `tilt` and `yaw`; camera 1 turned against it by `turn` (tilt,
/// yaw, roll about its optical axis), its centre at `baseline` in camera 0's frame.
DeviceCalibrationMRV makeRig(const LensCase& lens, double tilt, double yaw, const Vec3d& turn, const Vec3d& baseline) {
  DeviceCalibrationMRV device = RecordRig::makeDevice(lens);
  CameraCalibrationMRV &left = device.cameras[0], &right = device.cameras[1];
  const Vec3d centre0(-0.05, 0.01, -0.005);
  left = RecordRig::camera(lens, 280.0, 281.0, 320.5, 240.25, tilt, yaw, centre0);
  const Vec3d centre1 = centre0 + RecordRig::rotationOf(left.pose.orientation).transpose() * baseline;
  right = RecordRig::camera(lens, 279.0, 280.5, 318.75, 241.5, tilt + turn(0), yaw + turn(1), Vec3d());
  // Roll: the quaternion (0, 0, sin(a/2), cos(a/2)) times camera 1's own.
  const XrQuaterniondMRV_t q = right.pose.orientation;
  const double s = std::sin(turn(2) / 2), c = std::cos(turn(2) / 2);
  right.pose = RecordRig::poseAt({c * q.x - s * q.y, c * q.y + s * q.x, c * q.z + s * q.w, c * q.w - s * q.z}, centre1);
  return device;
}

/// The four maps of one call (left X, left Y, right X, right Y), canaries
/// beyond what was written, and the other outputs.
struct Result {
  static constexpr float kCanary = 12345.5f;
  explicit Result(size_t capacity) : maps(4, std::vector<float>(capacity, kCanary)) {
    std::memset(&rectified, 0xA5, sizeof(rectified));
  }
  std::vector<std::vector<float>> maps;
  float depthParam = 0;
  CameraCalibrationMRV rectified;
};

Result rectify(const DeviceCalibrationMRV& device, uint32_t size = kSize, uint32_t allowOut = 1) {
  Result r(size);
  EXPECT_TRUE(CreateRectifyMap(&device, allowOut, r.maps[0].data(), size, r.maps[1].data(), size, r.maps[2].data(),
                               size, r.maps[3].data(), size, &r.depthParam, &r.rectified));
  return r;
}

std::string assertText(const std::string& condition, int line) {
  return "AR_ASSERT " + condition + " VIO/src/StereoRectifyWrapper(" + std::to_string(line) +
         ") bool CreateRectifyMap(";
}

/// Bilinear sample of a map; false near the border or next to an entry without source.
bool sample(const std::vector<float>& map, double u, double v, double& value) {
  if (!(u >= 0 && v >= 0 && u < kWidth - 1 && v < kHeight - 1)) return false;
  const int x = int(u), y = int(v), i = x + kWidth * y;
  const double fx = u - x, fy = v - y, a = map[i], b = map[i + 1], c = map[i + kWidth], d = map[i + kWidth + 1];
  value = (a * (1 - fx) + b * fx) * (1 - fy) + (c * (1 - fx) + d * fx) * fy;
  return a != -1.0 && b != -1.0 && c != -1.0 && d != -1.0;
}

/// The rectified position (u, v) whose entry in maps `m`, `m + 1` is the source
/// pixel (sx, sy): Newton steps on the interpolated maps from the guess (u, v).
bool invertMaps(const Result& r, int m, double sx, double sy, double& u, double& v) {
  for (int iteration = 0; iteration < 20; ++iteration) {
    double x, y, xu, yu, xv, yv;
    if (!sample(r.maps[m], u, v, x) || !sample(r.maps[m + 1], u, v, y) || !sample(r.maps[m], u + 0.25, v, xu) ||
        !sample(r.maps[m + 1], u + 0.25, v, yu) || !sample(r.maps[m], u, v + 0.25, xv) ||
        !sample(r.maps[m + 1], u, v + 0.25, yv))
      return false;
    const double a = 4 * (xu - x), b = 4 * (xv - x), c = 4 * (yu - y), d = 4 * (yv - y), det = a * d - b * c;
    const double du = (d * (sx - x) - b * (sy - y)) / det, dv = (a * (sy - y) - c * (sx - x)) / det;
    u += du;
    v += dv;
    if (std::fabs(du) < 1e-6 && std::fabs(dv) < 1e-6) return true;
  }
  return false;
}

class RectifyLens : public testing::TestWithParam<LensCase> {};

// For rigs as users build them (2 degrees at most between the cameras, a
// baseline of 10 cm +- 5 mm, off axis by less than 3 mm) every map entry is the
// closed-form projection of the ray of `rectifiedCam`, and points between 1 m
// and 10 m seen by both cameras land on one row of the two rectified images,
// with constant / disparity as their depth. Camera 0's turns take each branch
// of the record's quaternion (x largest, positive trace, y largest, z largest).
TEST_P(RectifyLens, MapsRectifyRealisticRigs) {
  std::mt19937 rng(20240611u);
  std::uniform_real_distribution<double> uniform(0, 1), r(-1, 1);
  for (const auto& [tilt, yaw] : {std::pair{0.0, 0.0}, {3.0, 0.0}, {M_PI, 3.0}, {0.0, 3.0}}) {
    const DeviceCalibrationMRV device =
        makeRig(GetParam(), tilt + 0.1 * r(rng), yaw + 0.1 * r(rng), 0.019 * Vec3d(r(rng), r(rng), r(rng)),
                Vec3d(0.1 + 0.005 * r(rng), 0.003 * r(rng), 0.003 * r(rng)));
    const Result result = rectify(device);
    const CameraCalibrationMRV& rc = result.rectified;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&rc);
    for (const auto& [begin, end] : {std::pair{0, 64}, {248, 312}})
      for (int i = begin; i < end; ++i) ASSERT_EQ(bytes[i], 0xA5) << "caller's byte " << i;
    EXPECT_TRUE(rc.width == kWidth && rc.height == kHeight);
    EXPECT_TRUE(rc.noiseX == 9.0 && rc.noiseY == 9.0);  // the model's variance 81 as a standard deviation
    const Mat3d R_rect = RecordRig::rotationOf(rc.pose.orientation);
    Mat3d R[2];  // camera from device
    for (int cam = 0; cam < 2; ++cam) {
      R[cam] = RecordRig::rotationOf(device.cameras[cam].pose.orientation);
      int compared = 0;
      for (int y = 0; y < kHeight; y += 20)
        for (int x = 0; x < kWidth; x += 20) {
          const float mapX = result.maps[2 * cam][x + kWidth * y], mapY = result.maps[2 * cam + 1][x + kWidth * y];
          if (mapX == -1.0f && mapY == -1.0f) continue;  // beyond the lens's valid radius
          // Rays have no position: only the rotations take part.
          const Vec3d ray = R[cam] * (R_rect.transpose() * Vec3d((x - rc.cx) / rc.fx, (y - rc.cy) / rc.fy, 1));
          double sx, sy, rSq;
          ASSERT_TRUE(RecordRig::projectClosedForm(device.cameras[cam], ray, sx, sy, rSq));
          ASSERT_TRUE(std::fabs(mapX - sx) < 0.03 && std::fabs(mapY - sy) < 0.03) << cam << " at " << x << "," << y;
          ++compared;
        }
      EXPECT_GT(compared, 640) << "cam " << cam;  // of 768: all but the corners
    }
    int checked = 0;
    for (int n = 0; n < 20; ++n) {
      const double z = 1 + 9 * uniform(rng);
      const Vec3d p_c0(z * (0.6 * uniform(rng) - 0.3), z * (0.5 * uniform(rng) - 0.25), z);
      const Vec3d p_dev = R[0].transpose() * (p_c0 - RecordRig::positionOf(device.cameras[0].pose));
      const Vec3d p_c1 = R[1] * p_dev + RecordRig::positionOf(device.cameras[1].pose);
      const Vec3d p_rect = R_rect * p_dev + RecordRig::positionOf(rc.pose);
      double s0x, s0y, s1x, s1y, rSq;
      ASSERT_TRUE(RecordRig::projectClosedForm(device.cameras[0], p_c0, s0x, s0y, rSq));
      ASSERT_TRUE(RecordRig::projectClosedForm(device.cameras[1], p_c1, s1x, s1y, rSq));
      if (s1x < 2 || s1x > kWidth - 3 || s1y < 2 || s1y > kHeight - 3) continue;
      // Newton starts where the rectified record puts the point; its depth is p_rect(2).
      double uL = rc.fx * p_rect(0) / p_rect(2) + rc.cx, vL = rc.fy * p_rect(1) / p_rect(2) + rc.cy;
      double uR = uL - result.depthParam / p_rect(2), vR = vL;
      ASSERT_TRUE(invertMaps(result, 0, s0x, s0y, uL, vL) && invertMaps(result, 2, s1x, s1y, uR, vR)) << n;
      EXPECT_LT(std::fabs(vL - vR), 0.05) << "point " << n;
      EXPECT_LT(std::fabs(result.depthParam / (uL - uR) / p_rect(2) - 1), 0.005) << "point " << n;
      ++checked;
    }
    EXPECT_GT(checked, 12);
  }
}

INSTANTIATE_TEST_SUITE_P(LensModels, RectifyLens, testing::ValuesIn(RecordRig::realisticLenses()),
                         [](const testing::TestParamInfo<LensCase>& info) { return info.param.name; });

class CreateRectifyMapRules : public testing::Test {
 protected:
  DeviceCalibrationMRV device_ = RecordRig::makeDevice(RecordRig::realisticLenses()[2]);
  Result reference_ = rectify(device_);
};

// Failed checks are only reported. A wrong camera count or buffer size still
// gives the maps of cameras 0 and 1 (a short buffer the map's first floats, a
// long one the map in front); nothing is written through a null pointer, and
// without the device nothing is computed. Without the record to fill, maps
// and depth constant are still produced.
TEST_F(CreateRectifyMapRules, ChecksOnlyReportAndWritesStayInBounds) {
  const std::string sizes =
      "mapLeftX_size==map_buffer_size && mapLeftY_size==map_buffer_size && mapRightX_size==map_buffer_size && "
      "mapRightY_size==map_buffer_size";
  const std::string maps = "mapLeftX != nullptr && mapLeftY != nullptr && mapRightX != nullptr && mapRightY != nullptr";
  const std::string records = "deviceCalibration != nullptr && rectifiedCam != nullptr";
  struct Case { uint32_t cameras, size; bool leftX, device, rectified; std::string condition; int line; };
  const Case cases[] = {{3, kSize, true, true, true, "deviceCalibration->num_cameras == 2", 24},
                        {2, kSize - 1, true, true, true, sizes, 51},  {2, kSize + 100, true, true, true, sizes, 51},
                        {2, kSize, false, true, true, maps, 22},      {2, kSize, true, false, true, records, 23},
                        {2, kSize, true, true, false, records, 23}};
  for (const Case& c : cases) {
    DeviceCalibrationMRV record = device_;
    record.num_cameras = c.cameras;
    Result r(c.size);
    LogCapture log;
    EXPECT_TRUE(CreateRectifyMap(c.device ? &record : nullptr, 1, c.leftX ? r.maps[0].data() : nullptr, c.size,
                                 r.maps[1].data(), c.size, r.maps[2].data(), c.size, r.maps[3].data(), c.size,
                                 c.leftX ? &r.depthParam : nullptr, c.rectified ? &r.rectified : nullptr));
    EXPECT_EQ(log.countContaining(assertText(c.condition, c.line)), 1u) << c.condition;
    EXPECT_EQ(log.countContaining("AR_ASSERT"), 1u) << c.condition;
    const bool computed = c.device;
    EXPECT_EQ(r.depthParam, computed && c.leftX ? reference_.depthParam : 0.0f) << c.condition;
    for (int m = 0; m < 4; ++m)
      for (size_t i = 0; i < c.size; ++i) {
        const bool written = computed && (m > 0 || c.leftX) && i < kSize;
        ASSERT_EQ(r.maps[m][i], written ? reference_.maps[m][i] : Result::kCanary) << c.condition << " " << m;
      }
  }
}

TEST_F(CreateRectifyMapRules, OutOfImageEntriesAreKeptOnlyWhenAllowed) {
  const Result inside = rectify(device_, kSize, 0);
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

}  // namespace
