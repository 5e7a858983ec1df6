// Writes the seed corpus of the entry-point fuzz target: the test rigs of
// every lens model at a tenth of their size (small maps keep runs fast), each
// with one entry point, small display eyes and a usable factor.
// Usage: fuzz_entry_points_seeds DIRECTORY

#include <cstdio>
#include <fstream>
#include <string>

#include "EntryPointInput.h"
#include "RecordRig.h"

namespace {

void shrink(CameraCalibrationMRV& camera, double scale) {
  camera.width = static_cast<int32_t>(camera.width * scale);
  camera.height = static_cast<int32_t>(camera.height * scale);
  camera.fx *= scale, camera.fy *= scale, camera.cx *= scale, camera.cy *= scale;
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
    const std::string path = std::string(argv[1]) + "/" + lens.name + ".bin";
    std::ofstream(path, std::ios::binary) << EntryPointInput::serialise(in);
    ++index;
  }
  return 0;
}
