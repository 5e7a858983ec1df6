#pragma once

namespace StereoMaps {

/// The library reports on standard output (lens-model ranges) and through its
/// logger (debug lines on standard error). The tool shows those only with
/// --verbose; otherwise it keeps warnings and errors.
void setVerbose(bool verbose);

/// While alive and not verbose, the library's standard-output lines are
/// discarded. Wrap every call into the library with one. With `silenceLog`
/// the library's log is off too: for loading and validating an input, whose
/// failure the tool reports in one sentence of its own.
class QuietLibrary {
 public:
  explicit QuietLibrary(bool silenceLog = false);
  ~QuietLibrary();
  QuietLibrary(const QuietLibrary&) = delete;
  QuietLibrary& operator=(const QuietLibrary&) = delete;

 private:
  int savedStdout_ = -1;
  int savedLevel_ = -1;
};

}  // namespace StereoMaps
