#pragma once

#include <cstddef>
#include <utility>

#include "AR/Common/Vector.h"

namespace AR {
namespace Common {

/// An ordered map kept as a sorted array of (key, value) pairs: lookups bisect,
/// insertions shift the tail. It suits small maps that are read far more often
/// than written. Keys need `operator<`; keys a and b are equal when neither is
/// less than the other. Iterators and element addresses are invalidated by
/// every insertion and erasure.
template <typename K, typename V, typename Grow = VectorGrowDoubling<16>>
class Map {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;
  using iterator = value_type*;
  using const_iterator = const value_type*;

  size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  void clear() { items_.clear(); }

  iterator begin() { return items_.begin(); }
  iterator end() { return items_.end(); }
  const_iterator begin() const { return items_.begin(); }
  const_iterator end() const { return items_.end(); }
  value_type& operator[](size_t i) { return items_[i]; }
  const value_type& operator[](size_t i) const { return items_[i]; }

  /// First element whose key is not less than `key`.
  iterator lower_bound(const K& key) { return begin() + lowerIndex(key); }
  const_iterator lower_bound(const K& key) const { return begin() + lowerIndex(key); }

  /// The element with this key, or end().
  iterator find(const K& key) {
    const size_t i = lowerIndex(key);
    return (i < size() && !(key < items_[i].first)) ? begin() + i : end();
  }
  const_iterator find(const K& key) const {
    const size_t i = lowerIndex(key);
    return (i < size() && !(key < items_[i].first)) ? begin() + i : end();
  }

  /// The element whose value is `value` (compared with the value type's
  /// `operator!=`), or end(). Linear.
  iterator find_data(const V& value) {
    for (iterator it = begin(); it != end(); ++it)
      if (!(it->second != value)) return it;
    return end();
  }

  /// Inserts (key, value) at its sorted place unless the key is present.
  /// Returns the element with the key (end() if memory ran out) and whether
  /// it was inserted.
  std::pair<iterator, bool> insert(K key, V value) {
    const size_t i = lowerIndex(key);
    if (i < size() && !(key < items_[i].first)) return {begin() + i, false};
    if (!items_.emplace(i, std::move(key), std::move(value))) return {end(), false};
    return {begin() + i, true};
  }

  iterator erase(iterator position) { return items_.erase(position); }

 private:
  size_t lowerIndex(const K& key) const {
    size_t lo = 0;
    size_t hi = items_.size();
    while (lo < hi) {
      const size_t mid = lo + (hi - lo) / 2;
      if (items_[mid].first < key)
        lo = mid + 1;
      else
        hi = mid;
    }
    return lo;
  }

  Vector<value_type, Grow> items_;
};

}  // namespace Common
}  // namespace AR
