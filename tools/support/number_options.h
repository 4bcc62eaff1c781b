// Checks of numeric options. CLI11's own read "-1" as a huge unsigned number, take a number beyond
// the type for its largest, and let "nan" pass any range.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <optional>
#include <type_traits>

namespace kerul::lidar {

// A whole number from `least` to `most`, decimal or with 0x in front, without a sign but the minus.
CLI::Validator WholeNumber(std::int64_t least, std::uint64_t most);

// Any whole number that the option's type can hold, `least` at the least.
template <class Number>
CLI::Validator WholeNumberOf(const Number& /*option's value*/, std::int64_t least = 0) {
  static_assert(std::is_integral_v<Number>);
  return WholeNumber(least, static_cast<std::uint64_t>(std::numeric_limits<Number>::max()));
}

template <class Number>
CLI::Validator WholeNumberOf(const std::optional<Number>& value, std::int64_t least = 0) {
  return WholeNumberOf(value.value_or(Number{}), least);
}

// A finite decimal number from `least` to `most`.
CLI::Validator FiniteNumber(double least, double most);

// A finite decimal number above 0.
CLI::Validator PositiveNumber();

}  // namespace kerul::lidar
