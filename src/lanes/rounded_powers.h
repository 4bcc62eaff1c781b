// Powers and logarithms to the base 2, as the library's double functions give them after rounding
// to single precision. That differs from the library's single functions in the last bit.
#pragma once

namespace kerul::lidar {

float PowerOfTwo(float exponent) noexcept;
float LogOfTwo(float value) noexcept;

}  // namespace kerul::lidar
