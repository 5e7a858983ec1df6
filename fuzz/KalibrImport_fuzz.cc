// The Kalibr camchain import on arbitrary YAML. The importer reads a path, so
// each input is written to one scratch file first. A refused file must name
// the file in its reason; an accepted one must give
// two cameras of the promised sizes with finite numbers only.

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzCheck.h"
#include "KalibrImport.h"

namespace {

std::string scratchPath;

void removeScratch() { std::remove(scratchPath.c_str()); }

bool finiteCamera(const CameraCalibrationMRV& c) {
  const double values[] = {c.cx, c.cy, c.fx, c.fy, c.k[0], c.k[1], c.k[2], c.k[3], c.k[4], c.k[5], c.p[0], c.p[1],
                           c.pose.orientation.x, c.pose.orientation.y, c.pose.orientation.z, c.pose.orientation.w,
                           c.pose.position.x, c.pose.position.y, c.pose.position.z};
  for (double v : values)
    if (!std::isfinite(v)) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char name[] = "/tmp/kalibr_fuzz_XXXXXX";
  const int fd = mkstemp(name);
  if (fd < 0) std::abort();
  close(fd);
  scratchPath = name;
  std::atexit(removeScratch);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* file = std::fopen(scratchPath.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);

  StereoMaps::Rig rig;
  std::string error;
  if (!StereoMaps::loadKalibrCamchain(scratchPath, rig, error)) {
    FUZZ_CHECK(error.rfind(scratchPath + ": ", 0) == 0, "the reason must name the file: '%s'", error.c_str());
    return 0;
  }
  FUZZ_CHECK(error.empty(), "an accepted file reported '%s'", error.c_str());
  FUZZ_CHECK(rig.device.num_cameras == 2 && !rig.hasDisplays, "a camchain gives two cameras and no eyes");
  for (const CameraCalibrationMRV& camera : {rig.device.cameras[0], rig.device.cameras[1]}) {
    FUZZ_CHECK(camera.width >= 1 && camera.width <= 65535 && camera.height >= 1 && camera.height <= 65535,
               "camera size %d x %d out of the accepted range", camera.width, camera.height);
    FUZZ_CHECK(finiteCamera(camera), "an accepted camera holds a non-finite number");
  }
  return 0;
}
