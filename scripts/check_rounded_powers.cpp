// Holds the vector forms of PowerOfTwo and LogOfTwo against the library for every float there is,
// at the width of the instruction set that this file is compiled for. Also reports how far the
// polynomials are off at most and how many floats were left to the library, and fails when the
// polynomials are off by more than a quarter of what the rounding test allows.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "lanes/rounded_powers_lanes.h"

namespace {

using namespace kerul::lidar;

#if defined(__AVX512F__)
constexpr int kWidth = 16;
#elif defined(__AVX2__)
constexpr int kWidth = 8;
#else
constexpr int kWidth = 4;
#endif
using Powers = RoundedPowers<kWidth>;
using V = Lanes<kWidth>;
using H = HalfLanes<kWidth>;
constexpr double kAllowed = 0x1p-37 / 4;

struct Findings {
  std::uint64_t floats = 0;
  std::uint64_t fitting = 0;  // in the range of the polynomials
  std::uint64_t wrong = 0;
  std::uint64_t open = 0;  // of the fitting ones, those too close to a midpoint
  double farthest = 0.0;   // relative, of the fitting ones
};

bool Same(float a, float b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

// What the polynomial gives before it is rounded.
template <typename Near>
void CheckPolynomial(V::Float arguments, Near near, double (*library)(double), bool (*fits)(float),
                     Findings& findings) {
  H::Double halves[2];
  near(arguments, halves);
  for (int lane = 0; lane < kWidth; ++lane) {
    if (!fits(arguments[lane])) continue;
    ++findings.fitting;
    const double value = halves[lane / (kWidth / 2)][lane % (kWidth / 2)];
    const double exact = library(static_cast<double>(arguments[lane]));
    findings.farthest = std::max(findings.farthest, std::fabs(value / exact - 1.0));
    findings.open +=
        static_cast<float>(value * (1.0 - 0x1p-37)) != static_cast<float>(value * (1.0 + 0x1p-37));
  }
}

template <typename Form, typename Near>
bool CheckAll(const char* name, Form form, float (*scalar)(float) noexcept, Near near,
              double (*library)(double), bool (*fits)(float)) {
  Findings findings;
  for (std::uint64_t first = 0; first < std::uint64_t{1} << 32; first += kWidth) {
    V::Float arguments{};
    for (int lane = 0; lane < kWidth; ++lane) {
      arguments[lane] = std::bit_cast<float>(static_cast<std::uint32_t>(first) +
                                             static_cast<std::uint32_t>(lane));
    }
    const V::Float results = form(arguments);
    for (int lane = 0; lane < kWidth; ++lane) {
      ++findings.floats;
      findings.wrong += !Same(results[lane], scalar(arguments[lane]));
    }
    if (fits(arguments[0]) || fits(arguments[kWidth - 1])) {
      CheckPolynomial(arguments, near, library, fits, findings);
    }
  }
  const bool passed = findings.wrong == 0 && findings.farthest < kAllowed && findings.fitting > 0;
  std::printf(
      "%s, %d lanes: %llu floats, %llu wrong; polynomial: %llu floats, off by 2^%.2f at "
      "most, %llu left to the library: %s\n",
      name, kWidth, static_cast<unsigned long long>(findings.floats),
      static_cast<unsigned long long>(findings.wrong),
      static_cast<unsigned long long>(findings.fitting), std::log2(findings.farthest),
      static_cast<unsigned long long>(findings.open), passed ? "passed" : "FAILED");
  return passed;
}

double Power(double exponent) { return std::pow(2.0, exponent); }
double Log(double value) { return std::log2(value); }
bool PowerFits(float exponent) { return exponent >= -126.0F && exponent < 128.0F; }
bool LogFits(float value) { return value >= 2.0F && value < 16777216.0F; }

void PowerHalves(V::Float arguments, H::Double* halves) {
  halves[0] = Powers::PowerNear(H::Low(arguments));
  halves[1] = Powers::PowerNear(H::High(arguments));
}

void LogHalves(V::Float arguments, H::Double* halves) { Powers::LogNear(arguments, halves); }

}  // namespace

int main() {
  const V::Int all = V::SplatInt(-1);
  const bool power = CheckAll(
      "power", [all](V::Float x) { return Powers::Power(x, all); }, &PowerOfTwo, PowerHalves,
      &Power, &PowerFits);
  const bool log = CheckAll(
      "log", [all](V::Float x) { return Powers::Log(x, all); }, &LogOfTwo, LogHalves, &Log,
      &LogFits);
  return power && log ? 0 : 1;
}
