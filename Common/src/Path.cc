#include "AR/Common/Path.h"

namespace AR {
namespace Common {

Path Path::operator/(const Path& child) const {
  if (text_.empty() || (!child.text_.empty() && child.text_[0] == '/')) return child;
  if (child.text_.empty()) return *this;
  if (text_.back() == '/') return Path(text_ + child.text_);
  return Path(text_ + "/" + child.text_);
}

std::string Path::filename() const {
  const size_t slash = text_.rfind('/');
  return slash == std::string::npos ? text_ : text_.substr(slash + 1);
}

Path Path::parent() const {
  const size_t slash = text_.rfind('/');
  if (slash == std::string::npos) return Path();
  if (slash == 0) return Path("/");
  return Path(text_.substr(0, slash));
}

std::string Path::extension() const {
  const std::string name = filename();
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return std::string();
  return name.substr(dot);
}

}  // namespace Common
}  // namespace AR
