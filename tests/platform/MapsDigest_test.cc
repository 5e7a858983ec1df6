// The maps must come out bit for bit the same on every architecture the
// library ships for: a stereo pipeline tuned on a desktop has to see the very
// tables the device computes. Float results stay reproducible only while no
// step depends on the machine (fused multiply-adds, excess precision, a
// vector path that rounds differently), so the digests below were taken on
// x86-64 and every architecture's build is checked against them.
//
// When a change to the numerics is intended, the failure message prints the
// new row of every rig that changed: check on x86-64 that the change is
// meant, then paste the rows over kExpected below.

#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "AR/CV/Camera/CalibrationFile.h"
#include "RecordRig.h"
#include "StereoRectifyWrapper.h"

namespace {

/// 64-bit FNV-1a over explicit little-endian bytes, so the digest of a value
/// does not depend on the byte order of the machine that computes it.
class Digest {
 public:
  void add(uint64_t bits, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      hash_ ^= (bits >> (8 * i)) & 0xffu;
      hash_ *= 0x100000001b3ull;
    }
  }
  void add(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    add(bits, 4);
  }
  void add(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    add(bits, 8);
  }
  void add(const std::vector<float>& values) {
    for (float v : values) add(v);
  }
  uint64_t value() const { return hash_; }

 private:
  uint64_t hash_ = 0xcbf29ce484222325ull;
};

struct Rig {
  std::string name;
  DeviceCalibrationMRV device;
  CameraCalibrationMRV leftEye, rightEye;
};

/// Quaternion record of a rotation matrix, pivoting on the largest of the
/// four squared components so that no division is by a small number.
XrQuaterniondMRV_t quaternionOf(const AR::Math::Matrix<double, 3, 3>& R) {
  const double tr = R(0, 0) + R(1, 1) + R(2, 2);
  if (tr > 0) {
    const double s = 2 * std::sqrt(1 + tr);
    return {(R(2, 1) - R(1, 2)) / s, (R(0, 2) - R(2, 0)) / s, (R(1, 0) - R(0, 1)) / s, s / 4};
  }
  if (R(0, 0) > R(1, 1) && R(0, 0) > R(2, 2)) {
    const double s = 2 * std::sqrt(1 + R(0, 0) - R(1, 1) - R(2, 2));
    return {s / 4, (R(0, 1) + R(1, 0)) / s, (R(0, 2) + R(2, 0)) / s, (R(2, 1) - R(1, 2)) / s};
  }
  if (R(1, 1) > R(2, 2)) {
    const double s = 2 * std::sqrt(1 + R(1, 1) - R(0, 0) - R(2, 2));
    return {(R(0, 1) + R(1, 0)) / s, s / 4, (R(1, 2) + R(2, 1)) / s, (R(0, 2) - R(2, 0)) / s};
  }
  const double s = 2 * std::sqrt(1 + R(2, 2) - R(0, 0) - R(1, 1));
  return {(R(0, 2) + R(2, 0)) / s, (R(1, 2) + R(2, 1)) / s, s / 4, (R(1, 0) - R(0, 1)) / s};
}

XrPosedMRV_t poseOf(const AR::Math::SE3<double>& T) {
  const auto& t = T.translation();
  return {quaternionOf(T.rotation().matrix()), {t(0), t(1), t(2)}};
}

/// The example rig shipped with the project, as a device would hand it over.
Rig exampleRig() {
  AR::CV::FullStereoCameraCalibration<double> calibration;
  AR::CV::DisplayEyes eyes;
  std::string error;
  Rig rig{"ExampleRig", {}, {}, {}};
  std::memset(&rig.device, 0, sizeof rig.device);
  if (!AR::CV::loadCameraCalibFromDeviceConfig<double>(AR_EXAMPLE_RIG, calibration, &eyes, &error) ||
      calibration.size() != 2 || !eyes.present) {
    ADD_FAILURE() << "example rig: " << error;
    return rig;
  }
  rig.device.num_cameras = 2;
  for (size_t i = 0; i < 2; ++i) {
    const AR::CV::Camera<double>& in = calibration[i].getIntrinsics();
    CameraCalibrationMRV& cam = rig.device.cameras[i];
    cam.width = static_cast<int32_t>(in.getSize()(0));
    cam.height = static_cast<int32_t>(in.getSize()(1));
    cam.cx = in.getPrincipalPoint()(0);
    cam.cy = in.getPrincipalPoint()(1);
    cam.fx = in.getOriginalFocalLength()(0);
    cam.fy = in.getOriginalFocalLength()(1);
    for (int k = 0; k < 6; ++k) cam.k[k] = in.getRadialDistortionCoeffs()(k);
    cam.p[0] = in.getTangentialDistortionCoeffs()(0);
    cam.p[1] = in.getTangentialDistortionCoeffs()(1);
    cam.distortionModel = static_cast<int32_t>(in.getRadialDistortionModel());
    cam.pose = poseOf(calibration[i].getCamReferenceToLocal());
  }
  // Full-size display eyes would dominate the suite's time under emulation;
  // a quarter of each side keeps every step of the see-through path.
  const AR::CV::DisplayEye* in[2] = {&eyes.left, &eyes.right};
  CameraCalibrationMRV* out[2] = {&rig.leftEye, &rig.rightEye};
  for (int e = 0; e < 2; ++e) {
    std::memset(out[e], 0, sizeof *out[e]);
    out[e]->width = in[e]->width / 4;
    out[e]->height = in[e]->height / 4;
    out[e]->fx = in[e]->fx / 4;
    out[e]->fy = in[e]->fy / 4;
    out[e]->pose = poseOf(in[e]->eyeFromDevice);
  }
  return rig;
}

/// The record rigs' 640x480 cameras shrunk to 160x120 (focal lengths and
/// principal points with them): the same lenses and poses at a sixteenth of
/// the pixels, which keeps the test quick under emulation.
CameraCalibrationMRV quarterSize(CameraCalibrationMRV cam) {
  cam.width /= 4;
  cam.height /= 4;
  cam.fx /= 4, cam.fy /= 4, cam.cx /= 4, cam.cy /= 4;
  return cam;
}

Rig recordRig(const RecordRig::LensCase& lens) {
  Rig rig{lens.name, RecordRig::makeDevice(lens),
          RecordRig::makeDisplay(96, 72, 70.0, 71.0, RecordRig::Vec3d(-0.032, 0.0, 0.01), 0.02),
          RecordRig::makeDisplay(96, 72, 69.0, 70.5, RecordRig::Vec3d(0.032, 0.0, 0.01), -0.015)};
  for (auto& cam : rig.device.cameras) cam = quarterSize(cam);
  return rig;
}

const std::vector<Rig>& allRigs() {
  static const std::vector<Rig> rigs = [] {
    std::vector<Rig> r{exampleRig()};
    for (const auto& lens : RecordRig::realisticLenses()) r.push_back(recordRig(lens));
    return r;
  }();
  return rigs;
}

struct Maps {
  std::vector<float> v[4];
  explicit Maps(size_t n) {
    for (auto& m : v) m.assign(n, 0.0f);
  }
  uint32_t size() const { return static_cast<uint32_t>(v[0].size()); }
  void addTo(Digest& d) const {
    for (const auto& m : v) d.add(m);
  }
  /// Maps that are all "no source" would make equal digests meaningless.
  size_t validEntries() const {
    return static_cast<size_t>(std::count_if(v[0].begin(), v[0].end(), [](float x) { return x != -1.0f; }));
  }
};

size_t pixelsOf(const CameraCalibrationMRV& cam) { return size_t(cam.width) * size_t(cam.height); }

struct Result {
  uint64_t digest;
  size_t valid;
};

Result rectifyDigest(const Rig& rig) {
  Maps m(pixelsOf(rig.device.cameras[0]));
  float depth = 0.0f;
  CameraCalibrationMRV rectified;
  std::memset(&rectified, 0, sizeof rectified);
  EXPECT_TRUE(CreateRectifyMap(&rig.device, 0, m.v[0].data(), m.size(), m.v[1].data(), m.size(),
                               m.v[2].data(), m.size(), m.v[3].data(), m.size(), &depth, &rectified));
  Digest d;
  m.addTo(d);
  d.add(depth);
  for (double v : {rectified.fx, rectified.fy, rectified.cx, rectified.cy, rectified.pose.orientation.x,
                   rectified.pose.orientation.y, rectified.pose.orientation.z, rectified.pose.orientation.w,
                   rectified.pose.position.x, rectified.pose.position.y, rectified.pose.position.z})
    d.add(v);
  d.add(uint64_t(uint32_t(rectified.width)) | uint64_t(uint32_t(rectified.height)) << 32, 8);
  return {d.value(), m.validEntries()};
}

Result undistortDigest(const Rig& rig) {
  Maps m(pixelsOf(rig.device.cameras[0]));
  EXPECT_TRUE(CreateUndistortMap(&rig.device, 1, 0.85f, m.v[0].data(), m.size(), m.v[1].data(), m.size(),
                                 m.v[2].data(), m.size(), m.v[3].data(), m.size()));
  Digest d;
  m.addTo(d);
  return {d.value(), m.validEntries()};
}

Result seeThroughDigest(const Rig& rig) {
  Maps m(pixelsOf(rig.leftEye));
  EXPECT_TRUE(CreateFixedPlaneVSTMaps(&rig.device, &rig.leftEye, &rig.rightEye, 1.25f, 0, m.v[0].data(),
                                      m.size(), m.v[1].data(), m.size(), m.v[2].data(), m.size(),
                                      m.v[3].data(), m.size()));
  Digest d;
  m.addTo(d);
  return {d.value(), m.validEntries()};
}

struct Expected {
  const char* rig;
  uint64_t rectify, undistort, seeThrough;
};

// Taken on x86-64 (g++ and clang, Debug and Release give the same values).
const Expected kExpected[] = {
    {"ExampleRig", 0x03b2c354cd6527ee, 0x6cf95bf9432e3007, 0xfc0000c82deddfaf},
    {"Linear", 0x4664631554196114, 0x80a56ae66f5082d5, 0x9e31c0d3d8df3eea},
    {"Radial2", 0x51bbb7c4e737513b, 0x9d0c3602ff726be4, 0x7c123e261b526f69},
    {"Radial3Tangential", 0x2ea95a7960ca53eb, 0x390d09cf0bc4c3a8, 0x27b9fb465e58dc2d},
    {"Radial6", 0x6021b2bd03ae7a34, 0x4603105773a2d22b, 0x938d42a96b4f5eb4},
    {"Fisheye1", 0xe8d748f8ad735c09, 0xc1bd5e705d6e82e2, 0x4a216707db904e49},
    {"Fisheye4", 0xd14cc8d5ec85f407, 0x41a2e493941939c9, 0x4e424b72586d81c6},
};

class MapsDigest : public testing::TestWithParam<size_t> {};

TEST_P(MapsDigest, MatchesTheMapsTakenOnX86_64) {
  const Rig& rig = allRigs()[GetParam()];
  const Expected& want = kExpected[GetParam()];
  ASSERT_EQ(rig.name, want.rig);
  const Result got[3] = {rectifyDigest(rig), undistortDigest(rig), seeThroughDigest(rig)};
  const char* entry[3] = {"CreateRectifyMap", "CreateUndistortMap", "CreateFixedPlaneVSTMaps"};
  const uint64_t wanted[3] = {want.rectify, want.undistort, want.seeThrough};
  bool equal = true;
  for (int e = 0; e < 3; ++e) {
    EXPECT_GT(got[e].valid, 0u) << entry[e] << " found no source for any pixel";
    EXPECT_EQ(got[e].digest, wanted[e]) << entry[e];
    equal = equal && got[e].digest == wanted[e];
  }
  if (!equal) {
    char row[160];
    std::snprintf(row, sizeof row, "{\"%s\", 0x%016" PRIx64 ", 0x%016" PRIx64 ", 0x%016" PRIx64 "},",
                  rig.name.c_str(), got[0].digest, got[1].digest, got[2].digest);
    ADD_FAILURE() << "this build's row: " << row;
  }
}

INSTANTIATE_TEST_SUITE_P(Rigs, MapsDigest, testing::Range<size_t>(0, std::size(kExpected)),
                         [](const testing::TestParamInfo<size_t>& info) { return kExpected[info.param].rig; });

TEST(MapsDigestRigs, TableCoversEveryRig) { EXPECT_EQ(allRigs().size(), std::size(kExpected)); }

}  // namespace
