// The three map entry points on mutated device records, display eyes, buffer
// sizes, flags and factors, with small images.
//
// ValidateDeviceCalibration is asked first: a record it refuses may reach a
// designed fatal assertion, so it is not passed on; a record it accepts must
// run through every entry point without aborting. Each call is checked
// against the promises of the interface: nothing is written outside a buffer
// as its size argument declares it (guard floats on both sides), the input
// records are left alone and so are the bytes of the rectified camera the
// library does not own, the result is what it is documented to be, and
// without allowOutOfImage every map entry is -1 or a position inside its
// source image.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "EntryPointInput.h"
#include "FuzzCheck.h"
#include "StereoRectifyWrapper.h"

namespace {

using EntryPointInput::Input;

constexpr uint32_t kSentinelBits = 0x7fa5a5a5u;  // a NaN no computation produces
constexpr size_t kGuard = 16;
constexpr int32_t kMaxSide = 96;

float sentinel() {
  float f;
  std::memcpy(&f, &kSentinelBits, sizeof f);
  return f;
}

bool isSentinel(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  return bits == kSentinelBits;
}

/// Image sides stay small so that a run takes milliseconds; sizes of zero
/// and below are kept as they are.
void keepSmall(int32_t& side) {
  if (side < -4 || side > kMaxSide) side %= (kMaxSide + 1);
}

/// The display eyes are the caller's own records: validation does not cover
/// them, so only plausible ones are handed over.
bool plausibleDisplay(const CameraCalibrationMRV& eye) {
  const double values[] = {eye.fx, eye.fy, eye.pose.orientation.x, eye.pose.orientation.y, eye.pose.orientation.z,
                           eye.pose.orientation.w, eye.pose.position.x, eye.pose.position.y, eye.pose.position.z};
  for (double v : values)
    if (!(std::fabs(v) <= 1e6)) return false;
  const auto& q = eye.pose.orientation;
  return eye.fx > 1e-3 && eye.fy > 1e-3 && q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w > 1e-6;
}

/// A caller's map buffer with guard floats on both sides, all holding the
/// sentinel before the call.
struct MapBuffer {
  std::vector<float> storage;
  uint32_t declared = 0;
  bool null = false;

  MapBuffer(int64_t size, bool passNull) : declared(size > 0 ? static_cast<uint32_t>(size) : 0), null(passNull) {
    storage.assign(declared + 2 * kGuard, sentinel());
  }
  float* data() { return null ? nullptr : storage.data() + kGuard; }
  const float* begin() const { return storage.data() + kGuard; }

  void checkGuards(const char* name) const {
    for (size_t i = 0; i < kGuard; ++i) {
      FUZZ_CHECK(isSentinel(storage[i]), "%s: write before the buffer at %zu", name, i);
      FUZZ_CHECK(isSentinel(storage[kGuard + declared + i]), "%s: write past the declared %u floats", name, declared);
    }
  }
  bool untouched() const {
    for (float v : storage)
      if (!isSentinel(v)) return false;
    return true;
  }
};

/// Without allowOutOfImage an entry is -1 (no source) or inside the source
/// image: 0 <= coordinate < side.
void checkEntries(const MapBuffer& map, const char* name, int32_t sourceSide) {
  if (map.null) return;
  const float side = static_cast<float>(sourceSide);
  for (uint32_t i = 0; i < map.declared; ++i) {
    const float v = map.begin()[i];
    FUZZ_CHECK(isSentinel(v) || v == -1.0f || (v >= 0.0f && v < side), "%s[%u] = %g outside [0, %d)", name, i,
               static_cast<double>(v), sourceSide);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in = EntryPointInput::parse(data, size);
  for (CameraCalibrationMRV* camera : {&in.device.cameras[0], &in.device.cameras[1], &in.leftDisplay, &in.rightDisplay}) {
    keepSmall(camera->width);
    keepSmall(camera->height);
  }
  const EntryPointInput::Control& control = in.control;

  std::vector<char> message(control.messageSize + kGuard, '\x5a');
  const bool valid = ValidateDeviceCalibration(&in.device, message.data(), control.messageSize);
  for (size_t i = control.messageSize; i < message.size(); ++i)
    FUZZ_CHECK(message[i] == '\x5a', "the validation message ran past its %u bytes", control.messageSize);
  if (control.messageSize > 0) {
    const size_t length = strnlen(message.data(), control.messageSize);
    FUZZ_CHECK(length < control.messageSize, "the validation message is not terminated");
    // A refusal always has a sentence, but a one-byte buffer holds only its end.
    FUZZ_CHECK(valid ? length == 0 : (length > 0 || control.messageSize == 1),
               "validation said %d with the message '%s'", valid, message.data());
  }
  if (!valid) return 0;

  const int entryPoint = control.entryPoint % 3;
  if (entryPoint == EntryPointInput::kSeeThrough &&
      !(plausibleDisplay(in.leftDisplay) && plausibleDisplay(in.rightDisplay)))
    return 0;

  const CameraCalibrationMRV& camera0 = in.device.cameras[0];
  const int64_t base = entryPoint == EntryPointInput::kSeeThrough
                           ? int64_t(in.leftDisplay.width) * in.leftDisplay.height
                           : int64_t(camera0.width) * camera0.height;
  MapBuffer maps[4] = {{base + control.sizeDelta[0], (control.flags & 2) != 0},
                       {base + control.sizeDelta[1], (control.flags & 4) != 0},
                       {base + control.sizeDelta[2], (control.flags & 8) != 0},
                       {base + control.sizeDelta[3], (control.flags & 16) != 0}};
  const uint32_t allowOutOfImage = control.flags & 1;

  const Input before = in;
  CameraCalibrationMRV rectified;
  std::memset(&rectified, 0xa5, sizeof rectified);
  const CameraCalibrationMRV rectifiedBefore = rectified;
  float depth = sentinel();

  bool result = false;
  switch (entryPoint) {
    case EntryPointInput::kRectify:
      result = CreateRectifyMap(&in.device, allowOutOfImage, maps[0].data(), maps[0].declared, maps[1].data(),
                                maps[1].declared, maps[2].data(), maps[2].declared, maps[3].data(), maps[3].declared,
                                &depth, &rectified);
      FUZZ_CHECK(result, "CreateRectifyMap returns true");
      FUZZ_CHECK(!isSentinel(depth), "the depth constant was not written");
      FUZZ_CHECK(std::memcmp(rectified.reserved0, rectifiedBefore.reserved0, sizeof rectified.reserved0) == 0 &&
                     std::memcmp(rectified.reserved1, rectifiedBefore.reserved1, sizeof rectified.reserved1) == 0 &&
                     rectified.cameraIntegerField == rectifiedBefore.cameraIntegerField,
                 "bytes of the rectified camera that the library does not own were written");
      break;
    case EntryPointInput::kUndistort:
      result = CreateUndistortMap(&in.device, allowOutOfImage, control.factor, maps[0].data(), maps[0].declared,
                                  maps[1].data(), maps[1].declared, maps[2].data(), maps[2].declared, maps[3].data(),
                                  maps[3].declared);
      // Only zero and negative factors are refused; NaN is accepted.
      FUZZ_CHECK(result == !(control.factor <= 0.0f), "CreateUndistortMap(%g) returned %d",
                 static_cast<double>(control.factor), result);
      if (!result)
        for (const MapBuffer& map : maps) FUZZ_CHECK(map.untouched(), "a refused factor must leave the maps alone");
      break;
    default:
      result = CreateFixedPlaneVSTMaps(&in.device, &in.leftDisplay, &in.rightDisplay, control.factor, allowOutOfImage,
                                       maps[0].data(), maps[0].declared, maps[1].data(), maps[1].declared,
                                       maps[2].data(), maps[2].declared, maps[3].data(), maps[3].declared);
      FUZZ_CHECK(result, "CreateFixedPlaneVSTMaps returns true");
      break;
  }

  FUZZ_CHECK(std::memcmp(&before, &in, sizeof in) == 0, "an input record was written");
  const char* names[4] = {"left X", "left Y", "right X", "right Y"};
  for (int k = 0; k < 4; ++k) maps[k].checkGuards(names[k]);
  if (!allowOutOfImage) {
    const CameraCalibrationMRV& camera1 = in.device.cameras[1];
    checkEntries(maps[0], names[0], camera0.width);
    checkEntries(maps[1], names[1], camera0.height);
    checkEntries(maps[2], names[2], camera1.width);
    checkEntries(maps[3], names[3], camera1.height);
  }
  return 0;
}
