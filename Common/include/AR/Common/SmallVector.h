#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include "AR/Common/Vector.h"  // logError(currentSize, maxSize, what, bytes)

namespace AR {
namespace Common {

/// A vector with a fixed capacity of N elements stored inline: no heap at all,
/// which is what hot paths need (the logger keeps its filter path in one). A
/// push beyond N is reported as "push_back: current_size=..., MAX_SIZE=..."
/// through the logger and the element is dropped.
template <typename T, size_t N>
class SmallVector {
  static_assert(N > 0, "capacity must be positive");

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  SmallVector() = default;
  ~SmallVector() { clear(); }
  SmallVector(const SmallVector& other) {
    for (const T& value : other) push_back(value);
  }
  SmallVector& operator=(const SmallVector& other) {
    if (this != &other) {
      clear();
      for (const T& value : other) push_back(value);
    }
    return *this;
  }

  static constexpr size_t capacity() { return N; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool full() const { return size_ == N; }

  T* data() { return std::launder(reinterpret_cast<T*>(storage_)); }
  const T* data() const { return std::launder(reinterpret_cast<const T*>(storage_)); }
  T& operator[](size_t i) { return data()[i]; }
  const T& operator[](size_t i) const { return data()[i]; }
  T& back() { return data()[size_ - 1]; }
  const T& back() const { return data()[size_ - 1]; }

  iterator begin() { return data(); }
  iterator end() { return data() + size_; }
  const_iterator begin() const { return data(); }
  const_iterator end() const { return data() + size_; }

  /// False (and reported) when the vector is full.
  bool push_back(const T& value) { return emplace_back(value); }
  bool push_back(T&& value) { return emplace_back(std::move(value)); }
  template <typename... Args>
  bool emplace_back(Args&&... args) {
    if (size_ == N) {
      logError(size_, N, "AR::Common::SmallVector is full", sizeof(T));
      return false;
    }
    new (storage_ + size_ * sizeof(T)) T(std::forward<Args>(args)...);
    ++size_;
    return true;
  }

  void pop_back() {
    if (size_ > 0) data()[--size_].~T();
  }
  void clear() {
    while (size_ > 0) pop_back();
  }

 private:
  alignas(T) unsigned char storage_[N * sizeof(T)];
  size_t size_ = 0;
};

}  // namespace Common
}  // namespace AR
