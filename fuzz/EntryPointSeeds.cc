// Writes the seed corpus of the entry-point fuzz target: the test rigs of
// every lens model at a tenth of their size (small maps keep runs fast), each
// with one entry point, small display eyes and a usable factor.
// Usage: fuzz_entry_points_seeds DIRECTORY

#include <cstdio>
#include <fstream>
#include <limits>
#include <string>

#include "EntryPointInput.h"
#include "RecordRig.h"

namespace {

void shrink(CameraCalibrationMRV& camera, double scale) {
  camera.width = static_cast<int32_t>(camera.width * scale);
  camera.height = static_cast<int32_t>(camera.height * scale);
  camera.fx *= scale, camera.fy *= scale, camera.cx *= scale, camera.cy *= scale;
}

void write(const std::string& path, const EntryPointInput::Input& in) {
  std::ofstream(path, std::ios::binary) << EntryPointInput::serialise(in);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return 2;
  }
  int index = 0;
  for (const RecordRig::LensCase& lens : RecordRig::realisticLenses()) {
    EntryPointInput::Input in{};
    in.device = RecordRig::makeDevice(lens);
    shrink(in.device.cameras[0], 0.1);
    shrink(in.device.cameras[1], 0.1);
    in.leftDisplay = RecordRig::makeDisplay(40, 36, 30.0, 30.0, RecordRig::Vec3d(-0.032, 0.0, 0.06), 0.01);
    in.rightDisplay = RecordRig::makeDisplay(40, 36, 30.0, 30.0, RecordRig::Vec3d(0.032, 0.0, 0.06), -0.01);
    in.control.entryPoint = static_cast<uint8_t>(index % 3);
    in.control.flags = static_cast<uint8_t>(index / 3 % 2);  // allowOutOfImage on every other pair
    in.control.messageSize = 96;
    in.control.factor = in.control.entryPoint == EntryPointInput::kSeeThrough ? 2.0f : 0.9f;
    write(std::string(argv[1]) + "/" + lens.name + ".bin", in);
    // The same rig on the edges of the other arguments.
    if (index == 0) {
      in.control.entryPoint = EntryPointInput::kUndistort;
      in.control.factor = std::numeric_limits<float>::quiet_NaN();
      write(std::string(argv[1]) + "/UndistortNaNFactor.bin", in);
      in.control.entryPoint = EntryPointInput::kSeeThrough;
      in.control.factor = 0.0f;
      write(std::string(argv[1]) + "/SeeThroughZeroDepth.bin", in);
      in.control.entryPoint = EntryPointInput::kRectify;
      in.control.flags = 1 << 3;  // right X map null
      in.control.sizeDelta[0] = -7, in.control.sizeDelta[1] = 5;
      in.control.messageSize = 0;
      write(std::string(argv[1]) + "/RectifyOddBuffers.bin", in);
    }
    ++index;
  }
  return 0;
}
