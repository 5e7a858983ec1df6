#include "OutputDirectory.h"

#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace StereoMaps {

namespace fs = std::filesystem;

OutputDirectory::~OutputDirectory() {
  if (!staging_.empty()) {
    std::error_code ignored;
    fs::remove_all(staging_, ignored);
  }
}

bool OutputDirectory::open(const std::string& dir, std::string& error) {
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir)) {
    error = dir + ": cannot create the output directory" + (ec ? " (" + ec.message() + ")" : std::string());
    return false;
  }
  dir_ = dir;
  const std::string staging = (fs::path(dir) / (".stereo-maps-partial-" + std::to_string(::getpid()))).string();
  fs::create_directories(staging, ec);
  if (ec) {
    error = dir + ": cannot write into the output directory (" + ec.message() + ")";
    return false;
  }
  staging_ = staging;
  return true;
}

std::string OutputDirectory::stage(const std::string& name) {
  names_.push_back(name);
  return (fs::path(staging_) / name).string();
}

std::string OutputDirectory::finalPath(const std::string& name) const { return (fs::path(dir_) / name).string(); }

bool OutputDirectory::commit(std::string& error) {
  for (const std::string& name : names_) {
    std::error_code ec;
    fs::rename(fs::path(staging_) / name, fs::path(dir_) / name, ec);
    if (ec) {
      error = finalPath(name) + ": cannot be written (" + ec.message() + ")";
      return false;
    }
  }
  std::error_code ignored;
  fs::remove_all(staging_, ignored);
  staging_.clear();
  return true;
}

}  // namespace StereoMaps
