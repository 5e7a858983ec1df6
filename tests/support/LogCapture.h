#pragma once

#include <string>
#include <vector>

#include "AR/Common/Logger.h"

namespace AR {
namespace Test {

/// Collects every finished log message while it is alive, through the
/// logger's target interface, so tests compare the exact texts the library
/// produced instead of parsing standard error.
class LogCapture : public AR::Common::LogTarget {
 public:
  LogCapture() { AR::Common::Logger::getInstance().addTarget(this); }
  ~LogCapture() override { AR::Common::Logger::getInstance().removeTarget(this); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void output(const char* text) override { messages_.emplace_back(text); }

  const std::vector<std::string>& messages() const { return messages_; }
  void clear() { messages_.clear(); }

  /// True if some message equals `text` exactly (newline included).
  bool has(const std::string& text) const {
    for (const auto& m : messages_)
      if (m == text) return true;
    return false;
  }
  /// Number of messages that contain `part`.
  size_t countContaining(const std::string& part) const {
    size_t n = 0;
    for (const auto& m : messages_)
      if (m.find(part) != std::string::npos) ++n;
    return n;
  }

 private:
  std::vector<std::string> messages_;
};

}  // namespace Test
}  // namespace AR
