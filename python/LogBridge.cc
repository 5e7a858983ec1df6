#include "LogBridge.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include <AR/Common/Logger.h>

namespace py = pybind11;
using AR::Common::Logger;

namespace StereoRectifyPython {
namespace {

// Python's numeric logging levels. The library's INFO and VERBOSE are more
// verbose than its DEBUG, so they land below logging.DEBUG.
constexpr int kPyError = 40, kPyWarning = 30, kPyDebug = 10, kPyInfo = 8, kPyVerbose = 5;

std::mutex gQueueMutex;
std::deque<std::pair<int, std::string>> gQueue;

void enqueue(int level, std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  if (text.empty()) return;
  std::lock_guard<std::mutex> lock(gQueueMutex);
  gQueue.emplace_back(level, std::move(text));
}

/// Receives finished lines "AR <LEVEL>: text"; the level word is the only
/// place the level survives, so it is read back from there.
class QueueTarget : public AR::Common::LogTarget {
 public:
  void output(const char* text) override {
    static const std::pair<const char*, int> kPrefixes[] = {{"AR ERROR: ", kPyError},   {"AR WARNING: ", kPyWarning},
                                                            {"AR DEBUG: ", kPyDebug},   {"AR INFO: ", kPyInfo},
                                                            {"AR VERBOSE: ", kPyVerbose}};
    for (const auto& prefix : kPrefixes) {
      const size_t n = std::strlen(prefix.first);
      if (std::strncmp(text, prefix.first, n) == 0) {
        enqueue(prefix.second, text + n);
        return;
      }
    }
    enqueue(kPyDebug, text);
  }
};

std::mutex gCaptureMutex;
int gCaptureDepth = 0;
int gSavedStdout = -1;
int gCaptureFd = -1;

void queueCapturedLines(int fd) {
  std::string all;
  if (::lseek(fd, 0, SEEK_SET) == 0) {
    char buffer[4096];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof(buffer))) > 0) all.append(buffer, size_t(n));
  }
  size_t start = 0;
  while (start < all.size()) {
    size_t end = all.find('\n', start);
    if (end == std::string::npos) end = all.size();
    const std::string line = all.substr(start, end - start);
    // The model's validation lines explain why a camera was refused.
    const bool refusal = line.rfind("Error", 0) == 0 || line.find(" must ") != std::string::npos;
    enqueue(refusal ? kPyError : kPyDebug, line);
    start = end + 1;
  }
}

py::object& pythonLogger() {
  // Never destroyed: it may outlive the interpreter's teardown order.
  static py::object* logger = new py::object(py::module_::import("logging").attr("getLogger")("stereo_rectify"));
  return *logger;
}

}  // namespace

void installLogBridge() {
  static QueueTarget* target = nullptr;
  if (target != nullptr) return;
  // Lives as long as the process: the logger keeps a pointer to it.
  target = new QueueTarget();
  Logger& logger = Logger::getInstance();
  logger.setFlag(Logger::FLAG_CONSOLE, false);
  logger.addTarget(target);
  pythonLogger();
}

CaptureStdout::CaptureStdout() {
  std::lock_guard<std::mutex> lock(gCaptureMutex);
  if (gCaptureDepth++ > 0) return;
  std::fflush(stdout);
  gCaptureFd = ::memfd_create("stereo_rectify_stdout", MFD_CLOEXEC);
  if (gCaptureFd < 0) return;
  gSavedStdout = ::dup(STDOUT_FILENO);
  if (gSavedStdout < 0 || ::dup2(gCaptureFd, STDOUT_FILENO) < 0) {
    if (gSavedStdout >= 0) ::close(gSavedStdout);
    ::close(gCaptureFd);
    gSavedStdout = gCaptureFd = -1;
  }
}

CaptureStdout::~CaptureStdout() {
  std::lock_guard<std::mutex> lock(gCaptureMutex);
  if (--gCaptureDepth > 0 || gCaptureFd < 0) return;
  std::fflush(stdout);
  ::dup2(gSavedStdout, STDOUT_FILENO);
  ::close(gSavedStdout);
  queueCapturedLines(gCaptureFd);
  ::close(gCaptureFd);
  gSavedStdout = gCaptureFd = -1;
}

void flushLog() {
  std::deque<std::pair<int, std::string>> pending;
  {
    std::lock_guard<std::mutex> lock(gQueueMutex);
    pending.swap(gQueue);
  }
  if (pending.empty()) return;
  py::object log = pythonLogger().attr("log");
  for (const auto& message : pending) log(message.first, message.second);
}

void setLogLevel(const py::object& level) {
  int pyLevel = 0;
  Logger::LEVEL arLevel = Logger::LEVEL_OFF;
  if (py::isinstance<py::str>(level)) {
    const std::string word = level.cast<std::string>();
    static const std::pair<const char*, std::pair<Logger::LEVEL, int>> kWords[] = {
        {"off", {Logger::LEVEL_OFF, 60}},           {"error", {Logger::LEVEL_ERROR, kPyError}},
        {"warning", {Logger::LEVEL_WARNING, kPyWarning}}, {"debug", {Logger::LEVEL_DEBUG, kPyDebug}},
        {"info", {Logger::LEVEL_INFO, kPyInfo}},     {"verbose", {Logger::LEVEL_VERBOSE, kPyVerbose}}};
    bool found = false;
    for (const auto& entry : kWords)
      if (word == entry.first) {
        arLevel = entry.second.first;
        pyLevel = entry.second.second;
        found = true;
      }
    if (!found)
      throw py::value_error("set_log_level: unknown level '" + word +
                            "', expected off, error, warning, debug, info or verbose");
  } else if (py::isinstance<py::int_>(level) && !py::isinstance<py::bool_>(level)) {
    pyLevel = level.cast<int>();
    // The library has nothing between DEBUG and WARNING, so logging.INFO
    // keeps its DEBUG messages coming and lets the Python logger filter them.
    arLevel = pyLevel > kPyError     ? Logger::LEVEL_OFF
              : pyLevel > kPyWarning ? Logger::LEVEL_ERROR
              : pyLevel > 20         ? Logger::LEVEL_WARNING
              : pyLevel > kPyInfo    ? Logger::LEVEL_DEBUG
              : pyLevel > kPyVerbose ? Logger::LEVEL_INFO
                                     : Logger::LEVEL_VERBOSE;
  } else {
    throw py::value_error("set_log_level: expected a logging level number or a level word");
  }
  {
    py::gil_scoped_release release;
    Logger::getInstance().setLevel(arLevel);
  }
  pythonLogger().attr("setLevel")(pyLevel);
}

}  // namespace StereoRectifyPython
