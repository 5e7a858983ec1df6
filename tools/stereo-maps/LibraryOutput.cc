#include "LibraryOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include <AR/Common/Logger.h>

namespace StereoMaps {
namespace {

bool gVerbose = false;

}  // namespace

void setVerbose(bool verbose) {
  gVerbose = verbose;
  AR::Common::Logger::getInstance().setLevel(verbose ? AR::Common::Logger::LEVEL_DEBUG
                                                     : AR::Common::Logger::LEVEL_WARNING);
}

QuietLibrary::QuietLibrary(bool silenceLog) {
  if (gVerbose) return;
  if (silenceLog) {
    AR::Common::Logger& logger = AR::Common::Logger::getInstance();
    savedLevel_ = static_cast<int>(logger.getLevel());
    logger.setLevel(AR::Common::Logger::LEVEL_OFF);
  }
  std::fflush(stdout);
  const int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (devNull < 0) return;
  savedStdout_ = ::dup(STDOUT_FILENO);
  if (savedStdout_ >= 0) ::dup2(devNull, STDOUT_FILENO);
  ::close(devNull);
}

QuietLibrary::~QuietLibrary() {
  if (savedLevel_ >= 0)
    AR::Common::Logger::getInstance().setLevel(static_cast<AR::Common::Logger::LEVEL>(savedLevel_));
  if (savedStdout_ < 0) return;
  std::fflush(stdout);
  ::dup2(savedStdout_, STDOUT_FILENO);
  ::close(savedStdout_);
}

}  // namespace StereoMaps
