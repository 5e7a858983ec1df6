#pragma once

#include <cstddef>
#include <type_traits>

namespace AR {
namespace Math {

/// Element layout of a vector: `Linear` stores the values contiguously.
struct Linear {};
/// Storage policy: the vector holds its own values.
struct VectorOwner {};

/// SIZE values of type FLOAT, stored contiguously, read and written as v(i).
/// A plain value type: no allocation, copyable, zero-initialised by default.
template <typename FLOAT, int SIZE, typename LAYOUT = Linear, typename STORAGE = VectorOwner>
class Vector {
  static_assert(SIZE > 0, "fixed-size vectors only");

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
