#pragma once

#include <cstddef>
#include <string>

namespace StereoMaps {

/// Largest calibration file (XML or YAML) the readers accept. Real rig files
/// are a few kilobytes; the bound keeps a wrong path from filling memory.
constexpr size_t kMaxCalibrationFileBytes = size_t(16) << 20;

/// Largest image file given with --images.
constexpr size_t kMaxImageFileBytes = size_t(256) << 20;

/// Reads the start of the regular file `path` into `bytes`: all of it when
/// `exact` is false (and then a file longer than `limit` is refused), or
/// exactly its first `limit` bytes when `exact` is true (and then a shorter
/// file is refused). Directories, devices, FIFOs and sockets are refused
/// before they are opened, so nothing ever blocks on them or reads without
/// end. On failure `error` is one sentence naming the file; `what` says what
/// the file was meant to be, with its article ("a calibration file").
bool readInputFile(const std::string& path, const char* what, size_t limit, bool exact, std::string& bytes,
                   std::string& error);

}  // namespace StereoMaps
