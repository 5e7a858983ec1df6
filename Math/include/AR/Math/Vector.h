#pragma once

#include <cstddef>
#include <type_traits>
#include <vector>

#include "AR/Common/Logger.h"

namespace AR {
namespace Math {

/// Element layout of a vector: `Linear` stores the values contiguously.
struct Linear {};
/// Storage policy: the vector holds its own values.
struct VectorOwner {};

/// Size of a vector or matrix dimension that is chosen at run time.
constexpr int Dynamic = -1;

/// SIZE values of type FLOAT, stored contiguously, read and written as v(i).
/// A plain value type: no allocation, copyable, zero-initialised by default.
/// SIZE = -1 (Dynamic) selects the run-time sized specialisation below.
template <typename FLOAT, int SIZE, typename LAYOUT = Linear, typename STORAGE = VectorOwner>
class Vector {
  static_assert(SIZE > 0, "a vector size is positive or Dynamic");

 public:
  using Scalar = FLOAT;
  static constexpr int Size = SIZE;

  constexpr Vector() : values_{} {}

  /// Vector<float,3> v(1.f, 2.f, 3.f): exactly SIZE values.
  template <typename... Args, typename = std::enable_if_t<sizeof...(Args) == SIZE && (SIZE > 1)>>
  constexpr Vector(Args... args) : values_{static_cast<FLOAT>(args)...} {}

  constexpr explicit Vector(FLOAT x) : values_{} {
    for (int i = 0; i < SIZE; ++i) values_[i] = x;
  }

  static constexpr Vector zero() { return Vector(); }
  static constexpr Vector constant(FLOAT x) { return Vector(x); }

  static constexpr int size() { return SIZE; }

  constexpr FLOAT& operator()(int i) { return values_[i]; }
  constexpr const FLOAT& operator()(int i) const { return values_[i]; }
  constexpr FLOAT& operator[](int i) { return values_[i]; }
  constexpr const FLOAT& operator[](int i) const { return values_[i]; }

  FLOAT* data() { return values_; }
  const FLOAT* data() const { return values_; }

  /// Element-wise conversion to another precision.
  template <typename OTHER>
  Vector<OTHER, SIZE> cast() const {
    Vector<OTHER, SIZE> out;
    for (int i = 0; i < SIZE; ++i) out(i) = static_cast<OTHER>(values_[i]);
    return out;
  }

  Vector& operator+=(const Vector& o) {
    for (int i = 0; i < SIZE; ++i) values_[i] += o.values_[i];
    return *this;
  }
  Vector& operator-=(const Vector& o) {
    for (int i = 0; i < SIZE; ++i) values_[i] -= o.values_[i];
    return *this;
  }
  Vector& operator*=(FLOAT s) {
    for (int i = 0; i < SIZE; ++i) values_[i] *= s;
    return *this;
  }
  Vector& operator/=(FLOAT s) {
    for (int i = 0; i < SIZE; ++i) values_[i] /= s;
    return *this;
  }

  friend Vector operator+(Vector a, const Vector& b) { return a += b; }
  friend Vector operator-(Vector a, const Vector& b) { return a -= b; }
  friend Vector operator-(Vector a) {
    for (int i = 0; i < SIZE; ++i) a.values_[i] = -a.values_[i];
    return a;
  }
  friend Vector operator*(Vector a, FLOAT s) { return a *= s; }
  friend Vector operator*(FLOAT s, Vector a) { return a *= s; }
  friend Vector operator/(Vector a, FLOAT s) { return a /= s; }

  /// Exact element-wise equality.
  friend bool operator==(const Vector& a, const Vector& b) {
    for (int i = 0; i < SIZE; ++i)
      if (!(a.values_[i] == b.values_[i])) return false;
    return true;
  }
  friend bool operator!=(const Vector& a, const Vector& b) { return !(a == b); }

 private:
  FLOAT values_[SIZE];
};

/// A vector whose size is chosen at run time (heap storage). Element access
/// checks the index: an index out of range is reported through logError and
/// reads or writes a scratch element instead of memory outside the vector.
template <typename FLOAT, typename LAYOUT, typename STORAGE>
class Vector<FLOAT, Dynamic, LAYOUT, STORAGE> {
 public:
  using Scalar = FLOAT;
  static constexpr int Size = Dynamic;

  Vector() = default;
  /// `size` values, all equal to `value`.
  explicit Vector(size_t size, FLOAT value = FLOAT(0)) : values_(size, value) {}

  size_t size() const { return values_.size(); }
  /// Changes the size; new elements are 0, existing ones are kept.
  void resize(size_t size) { values_.resize(size, FLOAT(0)); }

  FLOAT& operator()(size_t i) { return checkIndex(i) ? values_[i] : scratch(); }
  const FLOAT& operator()(size_t i) const { return checkIndex(i) ? values_[i] : scratch(); }
  FLOAT& operator[](size_t i) { return (*this)(i); }
  const FLOAT& operator[](size_t i) const { return (*this)(i); }

  FLOAT* data() { return values_.data(); }
  const FLOAT* data() const { return values_.data(); }

  friend bool operator==(const Vector& a, const Vector& b) { return a.values_ == b.values_; }
  friend bool operator!=(const Vector& a, const Vector& b) { return !(a == b); }

 private:
  bool checkIndex(size_t i) const {
    if (i < this->size()) return true;
    AR::Common::logError("i<this->size()", "Math/include/AR/Math/Vector",
                         "FLOAT& AR::Math::Vector<FLOAT, -1, LAYOUT, STORAGE>::operator()(size_t)",
                         __LINE__);
    return false;
  }
  // Target of out-of-range accesses, reset on every use so that such a read
  // yields 0 and such a write is dropped.
  FLOAT& scratch() const {
    scratch_ = FLOAT(0);
    return scratch_;
  }

  std::vector<FLOAT> values_;
  mutable FLOAT scratch_ = FLOAT(0);
};

using VecXF = Vector<float, Dynamic>;
using VecXD = Vector<double, Dynamic>;

using Vec2F = Vector<float, 2>;
using Vec3F = Vector<float, 3>;
using Vec4F = Vector<float, 4>;
using Vec6F = Vector<float, 6>;
using Vec8F = Vector<float, 8>;
using Vec2D = Vector<double, 2>;
using Vec3D = Vector<double, 3>;
using Vec4D = Vector<double, 4>;
using Vec6D = Vector<double, 6>;
using Vec2I = Vector<int, 2>;
using Vec3I = Vector<int, 3>;

}  // namespace Math
}  // namespace AR
