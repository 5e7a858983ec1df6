// The entry points keep nothing between calls and lock nothing but the
// logger, so calls from many threads must give exactly the maps of a single
// call, even while another thread reconfigures the logger they all log
// through. Built with ThreadSanitizer (make test-tsan) this also reports
// every unsynchronised access on the way.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/LogFilter.h"
#include "AR/Common/Logger.h"
#include "RecordRig.h"
#include "StereoRectifyWrapper.h"
#include "XmlImport.h"

namespace {

using AR::Common::Logger;

constexpr int kWorkers = 8;

enum EntryPoint { kRectify, kUndistort, kSeeThrough, kEntryPoints };

struct TestRig {
  std::string name;
  StereoMaps::Rig rig;
};

void scale(CameraCalibrationMRV& camera, double factor) {
  camera.width = static_cast<int32_t>(camera.width * factor);
  camera.height = static_cast<int32_t>(camera.height * factor);
  camera.fx *= factor, camera.fy *= factor, camera.cx *= factor, camera.cy *= factor;
}

/// The example rig and the record rig of every lens model, shrunk so that
/// a few hundred calls stay quick under ThreadSanitizer.
std::vector<TestRig> testRigs() {
  std::vector<TestRig> rigs(1);
  std::string error;
  rigs[0].name = "example";
  EXPECT_TRUE(StereoMaps::loadXmlRig(STEREO_MAPS_EXAMPLE, rigs[0].rig, error)) << error;
  scale(rigs[0].rig.leftDisplay, 0.05);
  scale(rigs[0].rig.rightDisplay, 0.05);
  for (const RecordRig::LensCase& lens : RecordRig::realisticLenses()) {
    TestRig test{lens.name, {}};
    test.rig.device = RecordRig::makeDevice(lens);
    test.rig.leftDisplay = RecordRig::makeDisplay(64, 56, 40.0, 40.0, RecordRig::Vec3d(-0.032, 0.0, 0.06), 0.01);
    test.rig.rightDisplay = RecordRig::makeDisplay(64, 56, 40.0, 40.0, RecordRig::Vec3d(0.032, 0.0, 0.06), -0.01);
    rigs.push_back(test);
  }
  for (TestRig& test : rigs) {
    scale(test.rig.device.cameras[0], 0.25);
    scale(test.rig.device.cameras[1], 0.25);
  }
  return rigs;
}

/// Everything one call writes.
struct Output {
  std::vector<float> maps[4];
  float depth = 0.0f;
  CameraCalibrationMRV rectified{};
  bool result = false;

  bool operator==(const Output& other) const {
    for (int k = 0; k < 4; ++k)
      if (maps[k].size() != other.maps[k].size() ||
          std::memcmp(maps[k].data(), other.maps[k].data(), maps[k].size() * sizeof(float)) != 0)
        return false;
    return result == other.result && std::memcmp(&depth, &other.depth, sizeof depth) == 0 &&
           std::memcmp(&rectified, &other.rectified, sizeof rectified) == 0;
  }
};

Output run(const StereoMaps::Rig& rig, int entryPoint) {
  const CameraCalibrationMRV& size = entryPoint == kSeeThrough ? rig.leftDisplay : rig.device.cameras[0];
  const uint32_t n = static_cast<uint32_t>(size.width * size.height);
  Output out;
  for (auto& map : out.maps) map.assign(n, 0.0f);
  float* m[4] = {out.maps[0].data(), out.maps[1].data(), out.maps[2].data(), out.maps[3].data()};
  switch (entryPoint) {
    case kRectify:
      out.result = CreateRectifyMap(&rig.device, 0, m[0], n, m[1], n, m[2], n, m[3], n, &out.depth, &out.rectified);
      break;
    case kUndistort:
      out.result = CreateUndistortMap(&rig.device, 0, 0.8f, m[0], n, m[1], n, m[2], n, m[3], n);
      break;
    default:
      out.result = CreateFixedPlaneVSTMaps(&rig.device, &rig.leftDisplay, &rig.rightDisplay, 1.5f, 0, m[0], n, m[1],
                                           n, m[2], n, m[3], n);
      break;
  }
  return out;
}

/// Counts the messages that reach the logger's outputs.
class CountingTarget : public AR::Common::LogTarget {
 public:
  void output(const char*) override { ++count; }
  std::atomic<long> count{0};
};

const char* const kLevelWords[] = {"error", "Warning", "DEBUG", "info", "VERBOSE", "off"};
const Logger::LEVEL kLevels[] = {Logger::LEVEL_ERROR, Logger::LEVEL_WARNING, Logger::LEVEL_DEBUG,
                                 Logger::LEVEL_INFO,  Logger::LEVEL_VERBOSE, Logger::LEVEL_OFF};

/// Configuration number `i`: a level word, flags, and per-method levels that
/// include a name never seen before, so the filter tree grows every time.
std::string configuration(int i) {
  const char* on = i % 2 ? "true" : "false";
  return std::string("<Brim><Logging console=\"false\" defaultLevel=\"") + kLevelWords[i % 6] + "\" filter=\"" + on +
         "\" function=\"" + on + "\" filename=\"" + (i % 3 ? "true" : "false") + "\" timedate=\"" +
         (i % 5 ? "false" : "true") + "\">" +
         "<LogLevel name=\"CreateRectifyMap\" level=\"" + kLevelWords[(i + 1) % 6] + "\"/>" +
         "<LogLevel name=\"AR::CV::Camera&lt;float&gt;::init\" level=\"" + kLevelWords[(i + 2) % 6] + "\"/>" +
         "<LogLevel name=\"Reconfigured" + std::to_string(i % 7) + "::method" + std::to_string(i) +
         "\" level=\"verbose\"/></Logging></Brim>";
}

TEST(EntryPointThreads, MapsAreBitIdenticalWhileTheLoggerIsReconfigured) {
  Logger& logger = Logger::getInstance();
  CountingTarget target;
  logger.setFlag(Logger::FLAG_CONSOLE, false);
  logger.addTarget(&target);

  const std::vector<TestRig> rigs = testRigs();
  std::vector<Output> reference;
  for (const TestRig& test : rigs)
    for (int e = 0; e < kEntryPoints; ++e) {
      reference.push_back(run(test.rig, e));
      // Identical maps prove little if they are empty: each must sample its
      // camera somewhere.
      const std::vector<float>& x = reference.back().maps[0];
      size_t inside = 0;
      for (float v : x) inside += v >= 0.0f;
      EXPECT_GT(inside, x.size() / 4) << test.name << " entry point " << e;
    }
  const int jobs = static_cast<int>(reference.size());

  std::atomic<int> workersLeft{kWorkers};
  std::vector<std::vector<std::string>> mismatches(kWorkers);
  std::vector<std::thread> threads;
  for (int t = 0; t < kWorkers; ++t)
    threads.emplace_back([&, t] {
      // Each worker starts at a different job so that all three entry
      // points run at the same time.
      for (int j = 0; j < jobs; ++j) {
        const int job = (j + t * 3) % jobs;
        if (!(run(rigs[job / kEntryPoints].rig, job % kEntryPoints) == reference[job]))
          mismatches[t].push_back(rigs[job / kEntryPoints].name + " entry point " + std::to_string(job % kEntryPoints));
      }
      --workersLeft;
    });
  int configurations = 0;
  std::thread reconfigure([&] {
    AR::Common::ConfigNode config;
    do {
      ASSERT_TRUE(config.loadFromString(configuration(configurations).c_str())) << config.getError();
      logger.initializeLogSettingsFromConfiguration(config);
      ++configurations;
    } while (workersLeft > 0);
  });
  for (std::thread& thread : threads) thread.join();
  reconfigure.join();

  for (int t = 0; t < kWorkers; ++t)
    EXPECT_TRUE(mismatches[t].empty()) << "worker " << t << " differs first on " << mismatches[t].front();
  EXPECT_EQ(logger.getLevel(), kLevels[(configurations - 1) % 6]) << "the last configuration must stick";
  EXPECT_GT(target.count.load(), 0);

  logger.removeTarget(&target);
  logger.getLogFilter().clear();
  logger.setFlag(~0u, false);
  logger.setFlag(Logger::FLAG_CONSOLE | Logger::FLAG_LEVEL, true);
  logger.setLevel(Logger::LEVEL_DEBUG);
}

}  // namespace
