#pragma once

#include <string>
#include <vector>

namespace StereoMaps {

/// Collects a command's output files in a hidden staging directory inside the
/// output directory and moves them into place only on `commit`, so a failed
/// run never leaves partial files that look like a result. Whatever was not
/// committed is removed when the object goes away.
class OutputDirectory {
 public:
  OutputDirectory() = default;
  ~OutputDirectory();
  OutputDirectory(const OutputDirectory&) = delete;
  OutputDirectory& operator=(const OutputDirectory&) = delete;

  /// Creates `dir` (and its parents) and the staging directory.
  bool open(const std::string& dir, std::string& error);

  /// Path at which to write `name` before the commit.
  std::string stage(const std::string& name);

  /// Final path of `name` in the output directory.
  std::string finalPath(const std::string& name) const;

  /// Moves every staged file into the output directory.
  bool commit(std::string& error);

 private:
  std::string dir_;
  std::string staging_;
  std::vector<std::string> names_;
};

}  // namespace StereoMaps
