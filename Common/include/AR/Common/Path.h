#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "AR/Common/Macros.h"

namespace AR {
namespace Common {

/// A file-system path held as text, with '/' as the separator. It does not
/// touch the file system.
class AR_EXPORT Path {
 public:
  Path() = default;
  Path(const char* text) : text_(text != nullptr ? text : "") {}  // NOLINT: implicit by design
  Path(std::string text) : text_(std::move(text)) {}               // NOLINT: implicit by design

  const char* c_str() const { return text_.c_str(); }
  const std::string& str() const { return text_; }
  size_t length() const { return text_.length(); }
  bool empty() const { return text_.empty(); }

  /// This path followed by `child`, with exactly one separator between them.
  /// An empty side yields the other; an absolute `child` replaces this path.
  Path operator/(const Path& child) const;
  /// The last component ("c.txt" of "a/b/c.txt"; empty for "a/b/").
  std::string filename() const;
  /// Everything before the last separator ("a/b" of "a/b/c.txt", "/" of
  /// "/c.txt", empty when there is no separator).
  Path parent() const;
  /// The last component's extension with its dot (".txt"), or empty. A
  /// leading dot (".profile") does not start an extension.
  std::string extension() const;

  bool operator==(const Path& other) const { return text_ == other.text_; }
  bool operator!=(const Path& other) const { return text_ != other.text_; }

 private:
  std::string text_;
};

}  // namespace Common
}  // namespace AR
