#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "AR/Common/FatalAssert.h"
#include "AR/Common/Logger.h"

namespace AR {
namespace Common {

/// A non-owning view of `size()` contiguous items: a pointer and a count.
///
/// The view never allocates and never frees; whoever made the items keeps them
/// alive while the view is used. `ArrayView<const T>` is made implicitly from
/// a `std::vector<T>`, a `std::array<T, N>`, a C array or an `ArrayView<T>`;
/// `ArrayView<T>` from the non-const containers.
///
/// `operator[]` is checked: an index at or beyond the count is reported as
/// "idx<numItems" through `logError` and, since reading past the items would
/// be undefined, the call then returns a freshly default-constructed item that
/// belongs to the calling thread instead (or aborts when ITEM has no default
/// constructor).
template <typename ITEM>
class ArrayView {
 public:
  using value_type = std::remove_cv_t<ITEM>;
  using iterator = ITEM*;
  using const_iterator = const ITEM*;

  constexpr ArrayView() = default;
  constexpr ArrayView(ITEM* items, size_t numItems) : items_(items), numItems_(numItems) {}

  template <size_t N>
  constexpr ArrayView(ITEM (&items)[N]) : items_(items), numItems_(N) {}

  template <size_t N>
  constexpr ArrayView(std::array<value_type, N>& items) : items_(items.data()), numItems_(N) {}

  template <size_t N, typename SELF = ITEM, typename = std::enable_if_t<std::is_const_v<SELF>>>
  constexpr ArrayView(const std::array<value_type, N>& items)
      : items_(items.data()), numItems_(N) {}

  template <typename ALLOC>
  ArrayView(std::vector<value_type, ALLOC>& items) : items_(items.data()), numItems_(items.size()) {}

  template <typename ALLOC, typename SELF = ITEM,
            typename = std::enable_if_t<std::is_const_v<SELF>>>
  ArrayView(const std::vector<value_type, ALLOC>& items)
      : items_(items.data()), numItems_(items.size()) {}

  /// A view of mutable items is also a view of const items.
  template <typename OTHER,
            typename = std::enable_if_t<std::is_const_v<ITEM> && !std::is_const_v<OTHER> &&
                                        std::is_same_v<value_type, OTHER>>>
  constexpr ArrayView(const ArrayView<OTHER>& other)
      : items_(other.data()), numItems_(other.size()) {}

  constexpr size_t size() const { return numItems_; }
  constexpr bool empty() const { return numItems_ == 0; }
  constexpr ITEM* data() const { return items_; }

  constexpr ITEM* begin() const { return items_; }
  constexpr ITEM* end() const { return items_ + numItems_; }

  ITEM& operator[](size_t idx) {
    if (!(idx < numItems_)) {
      logError("idx<numItems", "Common/include/AR/Common/ArrayView",
               "ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t)", 105);
      return placeholder();
    }
    return items_[idx];
  }

  const ITEM& operator[](size_t idx) const {
    if (!(idx < numItems_)) {
      logError("idx<numItems", "Common/include/AR/Common/ArrayView",
               "const ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t) const", 112);
      return placeholder();
    }
    return items_[idx];
  }

 private:
  /// What an out-of-range index yields: a default item private to the calling
  /// thread, reset on every use, so a bad index reads defaults and writes go
  /// nowhere that matters.
  static ITEM& placeholder() {
    if constexpr (std::is_default_constructible_v<value_type> &&
                  std::is_move_assignable_v<value_type>) {
      thread_local value_type item;
      item = value_type();
      return item;
    } else {
      ::AR::Common::fatalAssertFailed("idx<numItems", "Common/include/AR/Common/ArrayView",
                                      "ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t)");
    }
  }

  ITEM* items_ = nullptr;
  size_t numItems_ = 0;
};

}  // namespace Common
}  // namespace AR
