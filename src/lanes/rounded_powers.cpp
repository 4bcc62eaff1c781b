#include "lanes/rounded_powers.h"

#include <cmath>

namespace kerul::lidar {

float PowerOfTwo(float exponent) noexcept {
  return static_cast<float>(std::pow(2.0, static_cast<double>(exponent)));
}

float LogOfTwo(float value) noexcept {
  return static_cast<float>(std::log2(static_cast<double>(value)));
}

}  // namespace kerul::lidar
