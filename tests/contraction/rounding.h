// Numbers that say how a product that is added to something is rounded, whatever the compiler's
// flags: a formula written once for both tells what a kernel must give and what it would give if
// multiply and add were contracted into one rounding.
#pragma once

#include <cmath>

namespace kerul::lidar::contraction {

// Every operation is rounded by itself.
struct Rounded {
  float value = 0.0F;

  Rounded() = default;
  // What passes through memory cannot be merged with the next operation.
  explicit Rounded(float number) {
    volatile float stored = number;
    value = stored;
  }
  friend Rounded operator+(Rounded a, Rounded b) { return Rounded(a.value + b.value); }
  friend Rounded operator-(Rounded a, Rounded b) { return Rounded(a.value - b.value); }
  friend Rounded operator*(Rounded a, Rounded b) { return Rounded(a.value * b.value); }
  friend Rounded operator/(Rounded a, Rounded b) { return Rounded(a.value / b.value); }
  Rounded operator-() const { return Rounded(-value); }
};

// A product that is added to something, or subtracted from it, is not rounded before.
struct Fused {
  float value = 0.0F;
  bool is_product = false;
  float factor1 = 0.0F;
  float factor2 = 0.0F;

  Fused() = default;
  explicit Fused(float number) : value(number) {}
  friend Fused operator+(const Fused& a, const Fused& b) {
    if (a.is_product) return Fused(std::fma(a.factor1, a.factor2, b.value));
    if (b.is_product) return Fused(std::fma(b.factor1, b.factor2, a.value));
    return Fused(a.value + b.value);
  }
  friend Fused operator-(const Fused& a, const Fused& b) {
    if (a.is_product) return Fused(std::fma(a.factor1, a.factor2, -b.value));
    if (b.is_product) return Fused(std::fma(-b.factor1, b.factor2, a.value));
    return Fused(a.value - b.value);
  }
  friend Fused operator*(const Fused& a, const Fused& b) {
    Fused product(a.value * b.value);
    product.is_product = true;
    product.factor1 = a.value;
    product.factor2 = b.value;
    return product;
  }
  friend Fused operator/(const Fused& a, const Fused& b) { return Fused(a.value / b.value); }
  Fused operator-() const { return Fused(-value); }
};

inline Rounded Sqrt(const Rounded& a) { return Rounded(std::sqrt(a.value)); }
inline Fused Sqrt(const Fused& a) { return Fused(std::sqrt(a.value)); }

}  // namespace kerul::lidar::contraction
