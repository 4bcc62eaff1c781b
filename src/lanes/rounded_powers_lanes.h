// PowerOfTwo and LogOfTwo over W lanes, bit for bit.
//
// The double result is within one part in 2^37 of the true one. It is enough where that much less
// and that much more round to the same float. The library computes the other lanes, one in some
// thousands, and those outside the polynomials' range.
// scripts/check_rounded_powers.sh holds this against the library for every float there is.
#pragma once

#include "lanes/lanes.h"
#include "lanes/rounded_powers.h"

namespace kerul::lidar {

template <int W>
struct RoundedPowers {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;
  using Double = typename V::Double;
  using Long = typename V::Long;

  // Lanes that are not `wanted` may come out as anything; they never cost a call of the library.
  static Float Power(Float exponent, Int wanted) noexcept {
    // Results from the smallest normal float up to the largest.
    const Int fits = (exponent >= -126.0F) & (exponent < 128.0F);
    const Float x = V::Select(fits, exponent, Float{});
    return Settle(PowerNear(V::Low(x)), PowerNear(V::High(x)), fits, wanted, exponent, &PowerOfTwo);
  }

  static Float Log(Float value, Int wanted) noexcept {
    // From 2 on the result is at least 1, so that the sum below loses little beside it.
    const Int fits = (value >= 2.0F) & (value < 16777216.0F);
    Double halves[2];
    LogNear(V::Select(fits, value, V::Splat(2.0F)), halves);
    return Settle(halves[0], halves[1], fits, wanted, value, &LogOfTwo);
  }

  // log2 of 2 <= value < 2^24 in two halves, off by less than one part in 2^44.
  static void LogNear(Float value, Double* halves) noexcept {
    // value = mantissa * 2^exponent with the mantissa in [sqrt(1/2), sqrt(2)).
    const Int bits = reinterpret_cast<Int>(value);
    const Int exponent = (bits - 0x3F3504F3) >> 23;
    const Float whole = V::ToFloat(exponent);
    const Float mantissa = reinterpret_cast<Float>(bits - (exponent << 23));
    halves[0] = V::Low(whole) + LogOfMantissa(V::Low(mantissa));
    halves[1] = V::High(whole) + LogOfMantissa(V::High(mantissa));
  }

  // 2^x for -126 <= x < 128, off by less than one part in 2^39.
  static Double PowerNear(Double x) noexcept {
    // Adding this leaves no fraction bits: it rounds to the nearest integer, which is then in the
    // low bits.
    constexpr double kShifter = 6755399441055744.0;  // 1.5 * 2^52
    const Double shifted = x + kShifter;
    const Double f = x - (shifted - kShifter);  // exact, -0.5..0.5
    // Polynomial through 2^f at the Chebyshev nodes.
    const Double f2 = f * f;
    const Double f4 = f2 * f2;
    const Double p01 = 1.0 + 0.6931471805459335 * f;
    const Double p23 = 0.2402265069581299 + 0.05550410941205933 * f;
    const Double p45 = 0.009618129159402558 + 0.0013333450568000645 * f;
    const Double p67 = 0.00015403455852453838 + 1.5310079402249296e-05 * f;
    const Double p = (p01 + p23 * f2) + (p45 + (p67 + 1.3255224878668817e-06 * f2) * f2) * f4;
    // Times 2^integer, in the exponent's bits.
    return reinterpret_cast<Double>(reinterpret_cast<Long>(p) +
                                    (reinterpret_cast<Long>(shifted) << 52));
  }

  // log2 m = 2 / ln 2 * artanh s with s = (m - 1) / (m + 1), off by less than 2^-45.
  static Double LogOfMantissa(Double m) noexcept {
    const Double s = (m - 1.0) / (m + 1.0);
    const Double z = s * s;
    const Double z2 = z * z;
    const Double p01 = 2.885390081777851 + 0.9617966941122658 * z;
    const Double p23 = 0.5770779426600041 + 0.4122092240937952 * z;
    const Double p45 = 0.3199068023779123 + 0.2828850449996103 * z;
    return s * (p01 + (p23 + p45 * z2) * z2);
  }

 private:
  static Float Settle(Double low, Double high, Int fits, Int wanted, Float argument,
                      float (*library)(float) noexcept) noexcept {
    constexpr double kLess = 1.0 - 0x1p-37;
    constexpr double kMore = 1.0 + 0x1p-37;
    Float result = V::Join(low * kMore, high * kMore);
    const Int open = wanted & ~(fits & (V::Join(low * kLess, high * kLess) == result));
    if (__builtin_expect(V::Any(open), 0)) result = Ask(result, open, argument, library);
    return result;
  }

  [[gnu::noinline]] static Float Ask(Float result, Int open, Float argument,
                                     float (*library)(float) noexcept) noexcept {
    for (int lane = 0; lane < W; ++lane) {
      if (open[lane] != 0) result[lane] = library(argument[lane]);
    }
    return result;
  }
};

}  // namespace kerul::lidar
