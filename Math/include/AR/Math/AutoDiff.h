#pragma once

#include <cmath>
#include <type_traits>

namespace AR {
namespace Math {

/// Forward-mode automatic-differentiation scalar: a value together with its
/// gradient with respect to N seeded inputs.
///
/// It supports exactly what the lens distortion factors need: +, -, *, /,
/// sqrt, atan, tan and comparisons (which look at the value only). A plain
/// number converts implicitly into a constant (gradient 0), so coefficients
/// can be mixed freely into expressions.
///
/// Seeding an input: `ad<double,1> x(value, 1.0)` makes x the variable with
/// dx/dx = 1; any other seed scales every derivative derived from it.
template <typename T, int N>
class ad {
  static_assert(N > 0, "an ad scalar carries at least one derivative");

 public:
  using Scalar = T;
  static constexpr int NumDerivatives = N;

  /// Zero value, zero gradient.
  constexpr ad() : value_(0), grad_{} {}

  /// A constant: the given value, gradient 0. Implicit on purpose, so that
  /// coefficients enter expressions as constants.
  constexpr ad(T value) : value_(value), grad_{} {}  // NOLINT(runtime/explicit)

  /// A variable with one derivative: value and d(value)/d(input).
  template <int M = N, typename = std::enable_if_t<M == 1>>
  constexpr ad(T value, T derivative) : value_(value), grad_{derivative} {}

  /// The value.
  constexpr T value() const { return value_; }
  /// The i-th derivative (0 <= i < N).
  constexpr T derivative(int i = 0) const { return grad_[i]; }
  /// Sets the i-th derivative (0 <= i < N).
  void setDerivative(int i, T d) { grad_[i] = d; }

  friend ad operator+(const ad& a, const ad& b) {
    ad r(a.value_ + b.value_);
    for (int i = 0; i < N; ++i) r.grad_[i] = a.grad_[i] + b.grad_[i];
    return r;
  }
  friend ad operator-(const ad& a, const ad& b) {
    ad r(a.value_ - b.value_);
    for (int i = 0; i < N; ++i) r.grad_[i] = a.grad_[i] - b.grad_[i];
    return r;
  }
  /// Product rule.
  friend ad operator*(const ad& a, const ad& b) {
    ad r(a.value_ * b.value_);
    for (int i = 0; i < N; ++i) r.grad_[i] = a.grad_[i] * b.value_ + a.value_ * b.grad_[i];
    return r;
  }
  /// Quotient rule: (a/b)' = (a'*b - a*b') / (b*b).
  friend ad operator/(const ad& a, const ad& b) {
    ad r(a.value_ / b.value_);
    const T bSq = b.value_ * b.value_;
    for (int i = 0; i < N; ++i) r.grad_[i] = (a.grad_[i] * b.value_ - a.value_ * b.grad_[i]) / bSq;
    return r;
  }

  /// d sqrt(x) = dx / (2 sqrt(x)). At x = 0 the derivative is infinite; the
  /// distortion code never differentiates there, and a 0 is returned instead
  /// of an infinity or NaN so that a stray evaluation stays finite.
  friend ad sqrt(const ad& x) {
    using std::sqrt;
    const T root = sqrt(x.value_);
    ad r(root);
    for (int i = 0; i < N; ++i) r.grad_[i] = (root == T(0)) ? T(0) : x.grad_[i] / (T(2) * root);
    return r;
  }
  /// d atan(x) = dx / (1 + x*x).
  friend ad atan(const ad& x) {
    using std::atan;
    ad r(atan(x.value_));
    const T denom = T(1) + x.value_ * x.value_;
    for (int i = 0; i < N; ++i) r.grad_[i] = x.grad_[i] / denom;
    return r;
  }
  /// d tan(x) = dx / cos(x)^2.
  friend ad tan(const ad& x) {
    using std::cos;
    using std::tan;
    ad r(tan(x.value_));
    const T c = cos(x.value_);
    const T cSq = c * c;
    for (int i = 0; i < N; ++i) r.grad_[i] = x.grad_[i] / cSq;
    return r;
  }

  // Comparisons look at the value only.
  friend bool operator<(const ad& a, const ad& b) { return a.value_ < b.value_; }
  friend bool operator>(const ad& a, const ad& b) { return a.value_ > b.value_; }
  friend bool operator<=(const ad& a, const ad& b) { return a.value_ <= b.value_; }
  friend bool operator>=(const ad& a, const ad& b) { return a.value_ >= b.value_; }
  friend bool operator==(const ad& a, const ad& b) { return a.value_ == b.value_; }
  friend bool operator!=(const ad& a, const ad& b) { return a.value_ != b.value_; }

 private:
  T value_;
  T grad_[N];
};

}  // namespace Math
}  // namespace AR
