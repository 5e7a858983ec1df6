#include "OutputDirectory.h"

#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace StereoMaps {

namespace fs = std::filesystem;

namespace {

std::string because(const std::error_code& ec) { return ec ? " (" + ec.message() + ")" : std::string(); }

/// Whether anything (a dangling symbolic link included) is at `p`.
bool present(const fs::path& p) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(p, ec));
}

}  // namespace

OutputDirectory::~OutputDirectory() {
  std::error_code ignored;
  if (!staging_.empty()) fs::remove_all(staging_, ignored);
  if (committed_) return;
  // Parents made for an output that never came: remove them again, only
  // while they are empty.
  for (const std::string& parent : createdParents_)
    if (!fs::remove(parent, ignored)) break;
}

bool OutputDirectory::open(const std::string& dir, std::string& error) {
  std::error_code ec;
  // Resolved, so that the staging directory sits beside the real directory
  // (on its file system) even when --out is a symbolic link.
  fs::path target = fs::weakly_canonical(fs::absolute(dir, ec), ec);
  if (!ec && !target.has_filename()) target = target.parent_path();  // "maps/" names "maps"
  if (dir.empty() || ec || !target.has_filename() || target.filename() == "..") {
    error = "'" + dir + "' cannot be used as the output directory";
    return false;
  }
  dir_ = dir;
  if (present(target) && !fs::is_directory(target, ec)) {
    error = dir + ": exists and is not a directory";
    return false;
  }
  target_ = target.string();
  // Missing parents are made now so that the staging directory can sit
  // beside the output directory; they are recorded to be removed on failure.
  for (fs::path p = target.parent_path(); !p.empty() && !present(p); p = p.parent_path()) {
    createdParents_.push_back(p.string());
    if (p == p.parent_path()) break;
  }
  fs::create_directories(target.parent_path(), ec);
  if (ec) {
    error = dir + ": cannot create the output directory" + because(ec);
    return false;
  }
  const fs::path staging =
      target.parent_path() / ("." + target.filename().string() + ".stereo-maps-partial-" + std::to_string(::getpid()));
  fs::remove_all(staging, ec);  // left by an earlier process with this id that was killed
  if (!fs::create_directory(staging, ec)) {
    error = dir + ": cannot write beside the output directory" + because(ec);
    return false;
  }
  staging_ = staging.string();
  return true;
}

std::string OutputDirectory::stage(const std::string& name) {
  names_.push_back(name);
  return (fs::path(staging_) / name).string();
}

std::string OutputDirectory::finalPath(const std::string& name) const { return (fs::path(dir_) / name).string(); }

bool OutputDirectory::commit(std::string& error) {
  std::error_code ec;
  if (!present(target_)) {
    // A new output directory: one rename makes it appear complete.
    fs::rename(staging_, target_, ec);
    if (ec) {
      error = dir_ + ": cannot create the output directory" + because(ec);
      return false;
    }
    staging_.clear();
  } else if (!replaceFiles(error)) {
    return false;
  }
  committed_ = true;
  return true;
}

bool OutputDirectory::replaceFiles(std::string& error) {
  const fs::path target(target_), staging(staging_), aside = staging / ".replaced";
  std::error_code ec;
  // Refuse before changing anything when a name is taken by something that
  // is not a file (a directory, say): renaming over it would fail half-way.
  for (const std::string& name : names_) {
    const fs::file_status s = fs::symlink_status(target / name, ec);
    if (present(target / name) && !fs::is_regular_file(s) && !fs::is_symlink(s)) {
      error = finalPath(name) + ": exists and is not a regular file; nothing was written";
      return false;
    }
  }
  if (!fs::create_directory(aside, ec)) {
    error = dir_ + ": cannot write beside the output directory" + because(ec);
    return false;
  }
  // Each step is a rename within one file system; on failure the steps done
  // so far are undone in reverse.
  std::vector<std::pair<fs::path, fs::path>> done;  // (from, to)
  for (const std::string& name : names_) {
    ec.clear();
    if (present(target / name)) {
      fs::rename(target / name, aside / name, ec);
      if (!ec) done.emplace_back(target / name, aside / name);
    }
    if (!ec) fs::rename(staging / name, target / name, ec);
    if (!ec) {
      done.emplace_back(staging / name, target / name);
      continue;
    }
    error = finalPath(name) + ": cannot be written" + because(ec) + "; nothing was written";
    std::error_code ignored;
    for (auto step = done.rbegin(); step != done.rend(); ++step) fs::rename(step->second, step->first, ignored);
    return false;
  }
  return true;
}

}  // namespace StereoMaps
