#pragma once

#include <pybind11/pybind11.h>

namespace StereoRectifyPython {

/// Routes the library's messages to Python's logging (logger
/// "stereo_rectify") instead of standard error and standard output.
///
/// The library logs from whatever thread builds maps, with its logger's mutex
/// held and usually without the GIL, so messages are only queued there; the
/// thread that called into the library hands them to `logging` once it holds
/// the GIL again (`flushLog`).
void installLogBridge();

/// While alive, the library's standard-output lines (the lens model's range
/// and validation lines) are captured instead of printed and queued at DEBUG
/// (ERROR for validation failures). Standard output is a process-wide file
/// descriptor, so the capture spans all overlapping calls: the first one in
/// redirects it and the last one out restores it.
class CaptureStdout {
 public:
  CaptureStdout();
  ~CaptureStdout();
  CaptureStdout(const CaptureStdout&) = delete;
  CaptureStdout& operator=(const CaptureStdout&) = delete;
};

/// Emits the queued messages through `logging`. Needs the GIL.
void flushLog();

/// Sets the library's level and the Python logger's level from a `logging`
/// level number or a level word ("off", "error", "warning", "debug", "info",
/// "verbose").
void setLogLevel(const pybind11::object& level);

}  // namespace StereoRectifyPython
