#pragma once

#include <memory>
#include <utility>

namespace AR {
namespace Common {

/// Reference-counted shared ownership of an immutable object.
///
/// Copies of a camera share one intrinsic model instead of cloning its
/// splines; the object lives as long as its last holder. The count is atomic,
/// so holders may be copied and released on different threads; the object
/// itself must not change once it is shared.
template <typename T>
using RefCounted = std::shared_ptr<T>;

/// Creates a new shared object with a reference count of one.
template <typename T, typename... Args>
RefCounted<T> makeRefCounted(Args&&... args) {
  return std::make_shared<T>(std::forward<Args>(args)...);
}

/// Number of holders of `ptr`'s object (0 for a null pointer).
template <typename T>
long refCount(const RefCounted<T>& ptr) {
  return ptr.use_count();
}

}  // namespace Common
}  // namespace AR
