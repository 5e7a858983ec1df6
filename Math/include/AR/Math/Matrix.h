#pragma once

#include "AR/Math/Vector.h"

namespace AR {
namespace Math {

/// Element layout of a matrix: element (r, c) at position r * COLS + c.
struct RowMajor {};
/// Storage policy: the matrix holds its own values.
struct MatrixOwner {};

/// ROWS x COLS values, row-major, read and written as m(r, c).
template <typename FLOAT, int ROWS, int COLS, typename LAYOUT = RowMajor,
          typename STORAGE = MatrixOwner>
class Matrix {
  static_assert(ROWS > 0 && COLS > 0, "fixed-size matrices only");

 public:
  using Scalar = FLOAT;
  static constexpr int Rows = ROWS;
  static constexpr int Cols = COLS;

  constexpr Matrix() : values_{} {}

  /// Row-major list of exactly ROWS * COLS values.
  template <typename... Args,
            typename = std::enable_if_t<sizeof...(Args) == ROWS * COLS && (ROWS * COLS > 1)>>
  constexpr Matrix(Args... args) : values_{static_cast<FLOAT>(args)...} {}

  static constexpr Matrix zero() { return Matrix(); }
  static Matrix identity() {
    static_assert(ROWS == COLS, "identity needs a square matrix");
    Matrix m;
    for (int i = 0; i < ROWS; ++i) m(i, i) = FLOAT(1);
    return m;
  }

  static constexpr int rows() { return ROWS; }
  static constexpr int cols() { return COLS; }

  constexpr FLOAT& operator()(int r, int c) { return values_[r * COLS + c]; }
  constexpr const FLOAT& operator()(int r, int c) const { return values_[r * COLS + c]; }

  FLOAT* data() { return values_; }
  const FLOAT* data() const { return values_; }

  Vector<FLOAT, COLS> row(int r) const {
    Vector<FLOAT, COLS> v;
    for (int c = 0; c < COLS; ++c) v(c) = (*this)(r, c);
    return v;
  }
  Vector<FLOAT, ROWS> col(int c) const {
    Vector<FLOAT, ROWS> v;
    for (int r = 0; r < ROWS; ++r) v(r) = (*this)(r, c);
    return v;
  }

  Matrix<FLOAT, COLS, ROWS> transpose() const {
    Matrix<FLOAT, COLS, ROWS> t;
    for (int r = 0; r < ROWS; ++r)
      for (int c = 0; c < COLS; ++c) t(c, r) = (*this)(r, c);
    return t;
  }

  template <typename OTHER>
  Matrix<OTHER, ROWS, COLS> cast() const {
    Matrix<OTHER, ROWS, COLS> out;
    for (int i = 0; i < ROWS * COLS; ++i) out.data()[i] = static_cast<OTHER>(values_[i]);
    return out;
  }

  Matrix& operator+=(const Matrix& o) {
    for (int i = 0; i < ROWS * COLS; ++i) values_[i] += o.values_[i];
    return *this;
  }
  Matrix& operator-=(const Matrix& o) {
    for (int i = 0; i < ROWS * COLS; ++i) values_[i] -= o.values_[i];
    return *this;
  }
  Matrix& operator*=(FLOAT s) {
    for (int i = 0; i < ROWS * COLS; ++i) values_[i] *= s;
    return *this;
  }

  friend Matrix operator+(Matrix a, const Matrix& b) { return a += b; }
  friend Matrix operator-(Matrix a, const Matrix& b) { return a -= b; }
  friend Matrix operator*(Matrix a, FLOAT s) { return a *= s; }
  friend Matrix operator*(FLOAT s, Matrix a) { return a *= s; }

  friend bool operator==(const Matrix& a, const Matrix& b) {
    for (int i = 0; i < ROWS * COLS; ++i)
      if (!(a.values_[i] == b.values_[i])) return false;
    return true;
  }
  friend bool operator!=(const Matrix& a, const Matrix& b) { return !(a == b); }

 private:
  FLOAT values_[ROWS * COLS];
};

/// Matrix product; each element sums its products from 0 in index order.
template <typename T, int R, int K, int C>
Matrix<T, R, C> operator*(const Matrix<T, R, K>& a, const Matrix<T, K, C>& b) {
  Matrix<T, R, C> m;
  for (int r = 0; r < R; ++r)
    for (int c = 0; c < C; ++c) {
      T sum = T(0);
      for (int k = 0; k < K; ++k) sum += a(r, k) * b(k, c);
      m(r, c) = sum;
    }
  return m;
}

/// Matrix times column vector; each element sums from 0 in index order.
template <typename T, int R, int C>
Vector<T, R> operator*(const Matrix<T, R, C>& a, const Vector<T, C>& v) {
  Vector<T, R> out;
  for (int r = 0; r < R; ++r) {
    T sum = T(0);
    for (int c = 0; c < C; ++c) sum += a(r, c) * v(c);
    out(r) = sum;
  }
  return out;
}

using Matrix33F = Matrix<float, 3, 3>;
using Matrix33D = Matrix<double, 3, 3>;

}  // namespace Math
}  // namespace AR
