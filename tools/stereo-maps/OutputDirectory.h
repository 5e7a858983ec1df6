#pragma once

#include <string>
#include <vector>

namespace StereoMaps {

/// Collects a command's output files in a hidden staging directory beside
/// the output directory (same parent, so the same file system) and puts them
/// in place only on `commit`, all or nothing: a failed run leaves the output
/// directory exactly as it was. When the output directory does not exist yet
/// the staging directory simply becomes it; when it exists, every file it
/// will replace is checked first, moved aside, and moved back should any
/// step fail. The staging directory (and any parent directory this object
/// created) is removed when the object goes away.
class OutputDirectory {
 public:
  OutputDirectory() = default;
  ~OutputDirectory();
  OutputDirectory(const OutputDirectory&) = delete;
  OutputDirectory& operator=(const OutputDirectory&) = delete;

  /// Checks that `dir` is a directory or can become one, creates its missing
  /// parents and the staging directory.
  bool open(const std::string& dir, std::string& error);

  /// Path at which to write `name` before the commit.
  std::string stage(const std::string& name);

  /// Final path of `name` in the output directory.
  std::string finalPath(const std::string& name) const;

  /// Puts every staged file into the output directory, or none of them.
  bool commit(std::string& error);

 private:
  bool replaceFiles(std::string& error);

  std::string dir_;       // as given, for messages
  std::string target_;    // the output directory's absolute path
  std::string staging_;
  std::vector<std::string> createdParents_;  // innermost first
  std::vector<std::string> names_;
  bool committed_ = false;
};

}  // namespace StereoMaps
