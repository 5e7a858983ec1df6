// The XML calibration loader on arbitrary text, in both precisions. A file
// that loads must save, and what was saved must load back to the very same
// cameras, poses and display eyes, and save to the very same text.

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "AR/CV/Camera/CalibrationFile.h"
#include "FuzzCheck.h"

namespace {

using AR::CV::DisplayEyes;
using AR::CV::FullStereoCameraCalibration;

template <typename V>
void append(std::vector<double>& out, const V& v, int n) {
  for (int i = 0; i < n; ++i) out.push_back(static_cast<double>(v(i)));
}

void appendPose(std::vector<double>& out, const AR::Math::SE3<double>& T) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) out.push_back(T.rotation().matrix()(r, c));
  append(out, T.translation(), 3);
}

/// Every number a calibration file carries, in a fixed order, so that two
/// loads can be compared bit for bit (float values widen exactly).
template <typename T>
std::vector<double> numbersOf(const FullStereoCameraCalibration<T>& calibration, const DisplayEyes& eyes) {
  std::vector<double> out;
  for (size_t i = 0; i < calibration.size(); ++i) {
    const auto& camera = calibration[i];
    const auto& in = camera.getIntrinsics();
    append(out, in.getSize(), 2);
    append(out, in.getPrincipalPoint(), 2);
    append(out, in.getOriginalFocalLength(), 2);
    append(out, in.getRadialDistortionCoeffs(), 6);
    append(out, in.getTangentialDistortionCoeffs(), 2);
    out.push_back(static_cast<double>(in.getRadialDistortionModel()));
    const auto& pose = camera.getCamReferenceToLocal();
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) out.push_back(static_cast<double>(pose.rotation().matrix()(r, c)));
    append(out, pose.translation(), 3);
  }
  if (eyes.present) {
    for (const auto* eye : {&eyes.left, &eyes.right}) {
      out.insert(out.end(), {double(eye->width), double(eye->height), eye->fx, eye->fy});
      appendPose(out, eye->eyeFromDevice);
    }
  }
  return out;
}

template <typename T>
std::string namesOf(const FullStereoCameraCalibration<T>& calibration) {
  std::string names = calibration.getDeviceUID();
  for (size_t i = 0; i < calibration.size(); ++i) names += "|" + calibration[i].getNameStr();
  return names;
}

bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

template <typename T>
void roundTrip(const std::string& xml) {
  FullStereoCameraCalibration<T> loaded;
  DisplayEyes eyes;
  std::string error;
  if (!AR::CV::loadCalibrationFromString<T>(xml, loaded, &eyes, &error)) {
    FUZZ_CHECK(!error.empty(), "a refused file must say why");
    FUZZ_CHECK(loaded.size() == 0 && !eyes.present, "a refused file must leave the outputs alone");
    return;
  }
  FUZZ_CHECK(error.empty(), "an accepted file reported '%s'", error.c_str());

  std::string saved;
  FUZZ_CHECK(AR::CV::saveCalibrationToString<T>(loaded, &eyes, saved, &error),
             "a loaded calibration must save: %s", error.c_str());

  FullStereoCameraCalibration<T> reloaded;
  DisplayEyes reloadedEyes;
  FUZZ_CHECK(AR::CV::loadCalibrationFromString<T>(saved, reloaded, &reloadedEyes, &error),
             "a saved calibration must load: %s\n%s", error.c_str(), saved.c_str());
  FUZZ_CHECK(namesOf(reloaded) == namesOf(loaded), "ids changed: '%s' became '%s'", namesOf(loaded).c_str(),
             namesOf(reloaded).c_str());
  FUZZ_CHECK(eyes.present == reloadedEyes.present, "display eyes appeared or vanished");
  FUZZ_CHECK(sameBits(numbersOf(loaded, eyes), numbersOf(reloaded, reloadedEyes)),
             "numbers changed in a save/load round trip:\n%s", saved.c_str());

  std::string savedAgain;
  FUZZ_CHECK(AR::CV::saveCalibrationToString<T>(reloaded, &reloadedEyes, savedAgain, &error),
             "a reloaded calibration must save: %s", error.c_str());
  FUZZ_CHECK(savedAgain == saved, "saving is not stable:\n%s\n---\n%s", saved.c_str(), savedAgain.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string xml(reinterpret_cast<const char*>(data), size);
  roundTrip<float>(xml);
  roundTrip<double>(xml);
  return 0;
}
