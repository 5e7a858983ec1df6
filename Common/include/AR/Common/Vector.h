#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "AR/Common/Macros.h"

namespace AR {
namespace Common {

// Reports a container that could not grow (declared again in Logger.h; kept
// here so the containers do not pull in the whole logger interface).
AR_EXPORT void logError(size_t currentSize, size_t maxSize, const char* what, size_t bytes);

/// Growth policy: start with N elements, then double the capacity.
template <size_t N>
struct VectorGrowDoubling {
  static_assert(N > 0, "initial capacity must be positive");
  static size_t nextCapacity(size_t capacity) { return capacity == 0 ? N : capacity * 2; }
};

/// Growth policy: add N elements each time; suits containers that grow
/// rarely and stay small (the children of one filter node).
template <size_t N>
struct VectorGrowConstant {
  static_assert(N > 0, "growth step must be positive");
  static size_t nextCapacity(size_t capacity) { return capacity + N; }
};

/// A growable array with a pluggable growth policy. Unlike std::vector it
/// never throws: when memory runs out the insertion reports the failure
/// through the logger and returns false, leaving the contents unchanged.
/// Element types only need to be move-constructible; copying the vector
/// requires copyable elements.
template <typename T, typename Grow = VectorGrowDoubling<16>>
class Vector {
 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  Vector() = default;
  ~Vector() { release(); }

  Vector(const Vector& other) {
    if (!reserve(other.size_)) return;  // reported; the copy stays empty
    for (size_t i = 0; i < other.size_; ++i) new (data_ + i) T(other.data_[i]);
    size_ = other.size_;
  }
  Vector(Vector&& other) noexcept
      : data_(other.data_), size_(other.size_), capacity_(other.capacity_) {
    other.data_ = nullptr;
    other.size_ = 0;
    other.capacity_ = 0;
  }
  Vector& operator=(const Vector& other) {
    if (this != &other) {
      Vector copy(other);
      swap(copy);
    }
    return *this;
  }
  Vector& operator=(Vector&& other) noexcept {
    if (this != &other) {
      release();
      swap(other);
    }
    return *this;
  }

  void swap(Vector& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  size_t size() const { return size_; }
  size_t capacity() const { return capacity_; }
  bool empty() const { return size_ == 0; }

  T* data() { return data_; }
  const T* data() const { return data_; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }
  T& front() { return data_[0]; }
  const T& front() const { return data_[0]; }
  T& back() { return data_[size_ - 1]; }
  const T& back() const { return data_[size_ - 1]; }

  iterator begin() { return data_; }
  iterator end() { return data_ + size_; }
  const_iterator begin() const { return data_; }
  const_iterator end() const { return data_ + size_; }

  /// Makes room for at least `capacity` elements; false if memory ran out.
  bool reserve(size_t capacity) {
    if (capacity <= capacity_) return true;
    T* fresh = allocate(capacity);
    if (fresh == nullptr) return false;
    moveInto(fresh, 0, size_, 0);
    adopt(fresh, capacity);
    return true;
  }

  bool push_back(const T& value) { return emplace(size_, value); }
  bool push_back(T&& value) { return emplace(size_, std::move(value)); }
  template <typename... Args>
  bool emplace_back(Args&&... args) {
    return emplace(size_, std::forward<Args>(args)...);
  }

  /// Inserts before position `index` (0..size). False if out of memory or
  /// if `index` is past the end.
  template <typename... Args>
  bool emplace(size_t index, Args&&... args) {
    if (index > size_) return false;
    if (size_ < capacity_) {
      if (index == size_) {
        new (data_ + size_) T(std::forward<Args>(args)...);
      } else {
        // Build the value first: an argument may refer to an element that
        // is about to move.
        T value(std::forward<Args>(args)...);
        new (data_ + size_) T(std::move(data_[size_ - 1]));
        for (size_t i = size_ - 1; i > index; --i) data_[i] = std::move(data_[i - 1]);
        data_[index] = std::move(value);
      }
      ++size_;
      return true;
    }
    const size_t capacity = Grow::nextCapacity(capacity_);
    T* fresh = capacity > capacity_ ? allocate(capacity) : nullptr;
    if (fresh == nullptr) return false;
    // The new element is constructed while the old storage still exists, so
    // pushing a copy of one's own element is safe.
    new (fresh + index) T(std::forward<Args>(args)...);
    moveInto(fresh, 0, index, 0);
    moveInto(fresh, index, size_, index + 1);
    adopt(fresh, capacity);
    ++size_;
    return true;
  }

  bool insert(size_t index, const T& value) { return emplace(index, value); }
  bool insert(size_t index, T&& value) { return emplace(index, std::move(value)); }

  /// Removes the element at `index`, keeping the order of the rest.
  void erase(size_t index) {
    if (index >= size_) return;
    for (size_t i = index; i + 1 < size_; ++i) data_[i] = std::move(data_[i + 1]);
    data_[size_ - 1].~T();
    --size_;
  }
  iterator erase(iterator position) {
    const size_t index = static_cast<size_t>(position - data_);
    erase(index);
    return data_ + index;
  }

  void pop_back() {
    if (size_ > 0) data_[--size_].~T();
  }

  void clear() {
    for (size_t i = 0; i < size_; ++i) data_[i].~T();
    size_ = 0;
  }

 private:
  T* allocate(size_t capacity) {
    static_assert(alignof(T) <= alignof(std::max_align_t), "over-aligned elements are not supported");
    const bool representable = capacity <= SIZE_MAX / sizeof(T);
    const size_t bytes = representable ? capacity * sizeof(T) : SIZE_MAX;
    void* memory = representable ? ::operator new(bytes, std::nothrow) : nullptr;
    if (memory == nullptr) logError(size_, capacity_, "AR::Common::Vector out of memory", bytes);
    return static_cast<T*>(memory);
  }

  // Move-constructs [from, to) of the current storage into `fresh` starting
  // at `at`, destroying the originals.
  void moveInto(T* fresh, size_t from, size_t to, size_t at) {
    for (size_t i = from; i < to; ++i, ++at) {
      new (fresh + at) T(std::move(data_[i]));
      data_[i].~T();
    }
  }

  void adopt(T* fresh, size_t capacity) {
    ::operator delete(data_);
    data_ = fresh;
    capacity_ = capacity;
  }

  void release() {
    clear();
    ::operator delete(data_);
    data_ = nullptr;
    capacity_ = 0;
  }

  T* data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace Common
}  // namespace AR
