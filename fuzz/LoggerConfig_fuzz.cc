// The logger's configuration ("Brim.Logging") from arbitrary XML, applied
// while a second thread keeps logging through the per-method filter: the
// logger promises one mutex around everything a message touches, so
// reconfiguring must never disturb a message in flight. Every finished
// message reaches a checking target instead of a console or a file.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/LogFilter.h"
#include "AR/Common/Logger.h"
#include "FuzzCheck.h"

namespace {

using AR::Common::ConfigNode;
using AR::Common::Logger;

/// Finished messages are cut to fit the logger's 2048-character buffer.
class CheckingTarget : public AR::Common::LogTarget {
 public:
  void output(const char* text) override {
    const size_t length = std::strlen(text);
    FUZZ_CHECK(length < 2048, "a message of %zu characters left the logger", length);
  }
};

CheckingTarget checkingTarget;

/// Back to the start-up state, minus the console: configurations that turn
/// it on or name a log file are not applied (they would write to this
/// terminal or anywhere on disk).
void resetLogger() {
  Logger& logger = Logger::getInstance();
  logger.getLogFilter().clear();
  logger.setLevel(Logger::LEVEL_DEBUG);
  logger.setFlag(~0u, false);
  logger.setFlag(Logger::FLAG_LEVEL, true);
}

const char* const kBackgroundMethods[] = {
    "void VIO::setupRectifyMap(int)", "bool AR::CV::Camera<float>::init(const Model&)",
    "static void A::B::C::d()",        "int main(int, char**)",
    "void run()",                      "operator()",
};

void logContinuously(const std::atomic<bool>& stop, std::atomic<bool>& started) {
  Logger& logger = Logger::getInstance();
  int count = 0;
  do {
    started = true;
    for (const char* method : kBackgroundMethods) {
      const auto level = static_cast<Logger::LEVEL>(1 + count % 5);
      if (logger.getLevel() >= level) logger.logEx2(level, "fuzz/Logger", method, count, "background %d", count);
      ++count;
    }
  } while (!stop.load(std::memory_order_relaxed));
}

bool safeToApply(const ConfigNode& config) {
  const ConfigNode logging = config.getNode("Brim.Logging");
  return !logging.hasAttribute("logfile") && !logging.getBool("console", false);
}

/// Messages from the methods the configuration names, at every level, so
/// the filter tree it built is walked as well.
void logFromConfiguredMethods(const ConfigNode& config) {
  Logger& logger = Logger::getInstance();
  std::vector<std::string> methods;
  for (ConfigNode child = config.getNode("Brim.Logging").firstChild("LogLevel"); child.isValid();
       child = child.nextSibling("LogLevel"))
    methods.push_back("void " + child.getString("name") + "(int)");
  for (const std::string& method : methods)
    for (int level = 1; level <= 5; ++level)
      logger.logEx2(static_cast<Logger::LEVEL>(level), "fuzz/Logger", method.c_str(), level, "%s at %d",
                    method.c_str(), level);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance().addTarget(&checkingTarget);
  resetLogger();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string xml(reinterpret_cast<const char*>(data), size);
  ConfigNode config;
  resetLogger();
  if (!config.loadFromString(xml.c_str())) {
    FUZZ_CHECK(!config.isValid() && !config.getError().empty(), "a failed load must say why and stay invalid");
    return 0;
  }
  if (!safeToApply(config)) return 0;

  std::atomic<bool> stop{false}, started{false};
  std::thread background(logContinuously, std::cref(stop), std::ref(started));
  // Reconfigure only once messages are in flight.
  while (!started) std::this_thread::yield();
  Logger::getInstance().initializeLogSettingsFromConfiguration(config);
  logFromConfiguredMethods(config);
  stop = true;
  background.join();
  return 0;
}
