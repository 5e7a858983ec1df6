#pragma once

#include "AR/Math/Vector.h"

namespace AR {
namespace Math {

/// Element layout of a matrix: element (r, c) at position r * COLS + c.
struct RowMajor {};
/// Storage policy: the matrix holds its own values.
struct MatrixOwner {};

/// ROWS x COLS values, row-major, read and written as m(r, c). ROWS = COLS =
/// -1 (Dynamic) selects the run-time sized specialisation below.
template <typename FLOAT, int ROWS, int COLS, typename LAYOUT = RowMajor,
          typename STORAGE = MatrixOwner>
class Matrix {
  static_assert(ROWS > 0 && COLS > 0, "matrix sizes are positive, or both Dynamic");

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
  static_assert(R > 0 && K > 0 && C > 0, "products of fixed-size matrices only");
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
  static_assert(R > 0 && C > 0, "products of fixed-size matrices only");
  Vector<T, R> out;
  for (int r = 0; r < R; ++r) {
    T sum = T(0);
    for (int c = 0; c < C; ++c) sum += a(r, c) * v(c);
    out(r) = sum;
  }
  return out;
}

/// A row-major matrix whose size is chosen at run time (heap storage).
/// Element access checks both indices: an index out of range is reported
/// through logError and reads or writes a scratch element instead of memory
/// outside the matrix.
template <typename FLOAT, typename LAYOUT, typename STORAGE>
class Matrix<FLOAT, Dynamic, Dynamic, LAYOUT, STORAGE> {
 public:
  using Scalar = FLOAT;
  static constexpr int Rows = Dynamic;
  static constexpr int Cols = Dynamic;

  Matrix() = default;
  /// rows x cols values, all equal to `value`.
  Matrix(size_t rows, size_t cols, FLOAT value = FLOAT(0))
      : rows_(rows), cols_(cols), values_(rows * cols, value) {}

  size_t rows() const { return rows_; }
  size_t cols() const { return cols_; }

  FLOAT& operator()(size_t nRow, size_t nCol) {
    return checkIndex(nRow, nCol) ? values_[nRow * cols_ + nCol] : scratch();
  }
  const FLOAT& operator()(size_t nRow, size_t nCol) const {
    return checkIndex(nRow, nCol) ? values_[nRow * cols_ + nCol] : scratch();
  }

  FLOAT* data() { return values_.data(); }
  const FLOAT* data() const { return values_.data(); }

  friend bool operator==(const Matrix& a, const Matrix& b) {
    return a.rows_ == b.rows_ && a.cols_ == b.cols_ && a.values_ == b.values_;
  }
  friend bool operator!=(const Matrix& a, const Matrix& b) { return !(a == b); }

 private:
  bool checkIndex(size_t nRow, size_t nCol) const {
    bool ok = true;
    if (!(nRow < this->rows())) {
      AR::Common::logError("nRow<this->rows()", "Math/include/AR/Math/Matrix",
                           "FLOAT& AR::Math::Matrix<FLOAT, -1, -1, LAYOUT, STORAGE>::operator()"
                           "(size_t, size_t)",
                           __LINE__);
      ok = false;
    }
    if (!(nCol < this->cols())) {
      AR::Common::logError("nCol<this->cols()", "Math/include/AR/Math/Matrix",
                           "FLOAT& AR::Math::Matrix<FLOAT, -1, -1, LAYOUT, STORAGE>::operator()"
                           "(size_t, size_t)",
                           __LINE__);
      ok = false;
    }
    return ok;
  }
  // Target of out-of-range accesses, reset on every use so that such a read
  // yields 0 and such a write is dropped.
  FLOAT& scratch() const {
    scratch_ = FLOAT(0);
    return scratch_;
  }

  size_t rows_ = 0;
  size_t cols_ = 0;
  std::vector<FLOAT> values_;
  mutable FLOAT scratch_ = FLOAT(0);
};

using MatrixXF = Matrix<float, Dynamic, Dynamic>;
using MatrixXD = Matrix<double, Dynamic, Dynamic>;

using Matrix33F = Matrix<float, 3, 3>;
using Matrix33D = Matrix<double, 3, 3>;

}  // namespace Math
}  // namespace AR
