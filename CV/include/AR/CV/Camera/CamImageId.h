#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "AR/Common/Logger.h"
#include "AR/Common/Macros.h"

namespace AR {
namespace CV {

/// A camera's identity: a name of at most 63 characters held in a fixed
/// 64-character array, and the standard library's string hash of that name.
/// Ids compare by hash only, so lookups in a rig cost one integer comparison;
/// an empty name means "no identity" and a camera carrying it is never
/// initialised.
class CamImageId {
 public:
  /// The fixed-size, NUL-terminated name storage.
  class CamName {
   public:
    static constexpr size_t CAPACITY = 64;

    CamName() : fixedLengthString{} {}

    /// Zero-fills the array and copies `name`. A name of 64 or more
    /// characters is reported and truncated to 64 characters, which leaves no
    /// terminator (getName() reports that when read).
    explicit CamName(const char* name) : fixedLengthString{} {
      if (name == nullptr) return;
      const size_t len = std::strlen(name);
      if (!(len < fixedLengthString.size()))
        AR::Common::logError("len < fixedLengthString.size()", "CV/include/AR/CV/Camera/CamImageId",
                             "AR::CV::CamImageId::CamName::CamName(const char*)", __LINE__);
      const size_t n = len < fixedLengthString.size() ? len : fixedLengthString.size();
      std::memcpy(fixedLengthString.data(), name, n);
    }

    /// The name characters without the terminator. Reports a missing
    /// terminator and then returns all 64 characters.
    std::string_view getName() const {
      if (!(strnlen(fixedLengthString.data(), fixedLengthString.size()) < fixedLengthString.size()))
        AR::Common::logError(
            "strnlen(fixedLengthString.data(), fixedLengthString.size()) < "
            "fixedLengthString.size()",
            "CV/include/AR/CV/Camera/CamImageId",
            "std::string_view AR::CV::CamImageId::CamName::getName() const", __LINE__);
      return rawName();
    }

    /// The stored characters up to the terminator or the end of the array,
    /// without any check (used for hashing and for silent tests).
    std::string_view rawName() const {
      return std::string_view(fixedLengthString.data(),
                              strnlen(fixedLengthString.data(), fixedLengthString.size()));
    }

    bool empty() const { return fixedLengthString[0] == '\0'; }

   private:
    std::array<char, CAPACITY> fixedLengthString;
  };

  /// An empty id (no identity).
  CamImageId() : mName(), mHash(std::hash<std::string_view>{}(std::string_view())) {}

  /// Takes `name` (see CamName for over-long names) and hashes it.
  explicit CamImageId(const char* name)
      : mName(name), mHash(std::hash<std::string_view>{}(mName.rawName())) {}
  explicit CamImageId(const std::string& name) : CamImageId(name.c_str()) {}

  const CamName& getCamName() const { return mName; }
  /// The name, reporting a missing terminator (see CamName::getName).
  std::string_view getName() const { return mName.getName(); }
  std::string getNameStr() const { return std::string(mName.getName()); }
  size_t getHash() const { return mHash; }
  /// True when the id carries no name.
  bool empty() const { return mName.empty(); }

  /// Equal hashes make equal ids; the names are not compared again.
  friend bool operator==(const CamImageId& a, const CamImageId& b) { return a.mHash == b.mHash; }
  friend bool operator!=(const CamImageId& a, const CamImageId& b) { return !(a == b); }

 private:
  CamName mName;
  size_t mHash;
};

/// How a camera's image was cut from its sensor. Carried and written out
/// unchanged; nothing in the library computes with it.
struct CaptureDetails {
  int32_t nativeSensorWidth = 0;
  int32_t nativeSensorHeight = 0;
  int32_t cropL = 0;
  int32_t cropR = 0;
  int32_t cropT = 0;
  int32_t cropB = 0;
  int32_t binningH = 0;
  int32_t binningV = 0;

  friend bool operator==(const CaptureDetails& a, const CaptureDetails& b) {
    return a.nativeSensorWidth == b.nativeSensorWidth &&
           a.nativeSensorHeight == b.nativeSensorHeight && a.cropL == b.cropL &&
           a.cropR == b.cropR && a.cropT == b.cropT && a.cropB == b.cropB &&
           a.binningH == b.binningH && a.binningV == b.binningV;
  }
  friend bool operator!=(const CaptureDetails& a, const CaptureDetails& b) { return !(a == b); }
};

/// Conventional name of the camera at `index` in a rig: "left", "right",
/// then "cam2", "cam3", ...
inline std::string cameraIdToString(size_t index) {
  if (index == 0) return "left";
  if (index == 1) return "right";
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "cam%zu", index);
  return buffer;
}

}  // namespace CV
}  // namespace AR
