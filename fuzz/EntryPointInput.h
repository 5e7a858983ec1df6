#pragma once

// One input of the entry-point fuzz target: a control block, the device
// record and the two display-eye records, back to back. Short inputs are
// padded with zero bytes, longer ones are cut. The seed writer and the
// harness share this layout.

#include <cstdint>
#include <cstring>
#include <string>

#include "StereoRectifyWrapperTypes.h"

namespace EntryPointInput {

struct Control {
  uint8_t entryPoint = 0;    // modulo 3: rectify, undistort, see-through
  uint8_t flags = 0;         // bit 0: allowOutOfImage; bits 1..4: map 0..3 passed as null
  int8_t sizeDelta[4] = {};  // added to each map buffer's declared size
  uint8_t messageSize = 0;   // validation message buffer size
  uint8_t unused = 0;
  float factor = 0.0f;       // fovFactor (undistort) or planeDepth (see-through)
};

enum EntryPoint : uint8_t { kRectify = 0, kUndistort = 1, kSeeThrough = 2 };

struct Input {
  Control control;
  DeviceCalibrationMRV device;
  CameraCalibrationMRV leftDisplay;
  CameraCalibrationMRV rightDisplay;
};

constexpr size_t kControlBytes = 12;
static_assert(sizeof(Control) == kControlBytes, "control block is packed by hand");
constexpr size_t kBytes = kControlBytes + sizeof(DeviceCalibrationMRV) + 2 * sizeof(CameraCalibrationMRV);

inline Input parse(const uint8_t* data, size_t size) {
  uint8_t bytes[kBytes] = {};
  std::memcpy(bytes, data, size < kBytes ? size : kBytes);
  Input in;
  size_t at = 0;
  std::memcpy(&in.control, bytes + at, kControlBytes), at += kControlBytes;
  std::memcpy(&in.device, bytes + at, sizeof in.device), at += sizeof in.device;
  std::memcpy(&in.leftDisplay, bytes + at, sizeof in.leftDisplay), at += sizeof in.leftDisplay;
  std::memcpy(&in.rightDisplay, bytes + at, sizeof in.rightDisplay);
  return in;
}

inline std::string serialise(const Input& in) {
  std::string out;
  out.append(reinterpret_cast<const char*>(&in.control), kControlBytes);
  out.append(reinterpret_cast<const char*>(&in.device), sizeof in.device);
  out.append(reinterpret_cast<const char*>(&in.leftDisplay), sizeof in.leftDisplay);
  out.append(reinterpret_cast<const char*>(&in.rightDisplay), sizeof in.rightDisplay);
  return out;
}

}  // namespace EntryPointInput
