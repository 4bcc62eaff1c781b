#include "support/number_options.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace kerul::lidar {
namespace {

// The whole text as one number, or nothing.
template <class Number, class... Format>
std::optional<Number> Parse(std::string_view text, Format... format) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, format...);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

bool IsWholeWithin(std::string_view text, std::int64_t least, std::uint64_t most) {
  const bool negative = text.starts_with('-');
  if (negative) {
    const std::optional<std::int64_t> number = Parse<std::int64_t>(text);
    return number && *number <= 0 && *number >= least;
  }
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  // The option's own conversion would read a number that begins with 0 as octal.
  if (!hexadecimal && text.size() > 1 && text.front() == '0') return false;
  const std::optional<std::uint64_t> number =
      hexadecimal ? Parse<std::uint64_t>(text.substr(2), 16) : Parse<std::uint64_t>(text);
  return number && *number <= most && (least <= 0 || *number >= static_cast<std::uint64_t>(least));
}

}  // namespace

CLI::Validator WholeNumber(std::int64_t least, std::uint64_t most) {
  const std::string range = std::to_string(least) + " to " + std::to_string(most);
  return CLI::Validator(
      [=](std::string& text) {
        if (IsWholeWithin(text, least, most)) return std::string();
        return text + " is not a whole number from " + range;
      },
      "WHOLE NUMBER " + range);
}

CLI::Validator FiniteNumber(double least, double most) {
  return CLI::Validator(
      [=](std::string& text) {
        const std::optional<double> number = Parse<double>(text, std::chars_format::general);
        if (number && std::isfinite(*number) && *number >= least && *number <= most) {
          return std::string();
        }
        std::ostringstream message;
        message << text << " is not a number from " << least << " to " << most;
        return message.str();
      },
      "NUMBER");
}

CLI::Validator PositiveNumber() {
  return CLI::Validator(
      [](std::string& text) {
        const std::optional<double> number = Parse<double>(text, std::chars_format::general);
        if (number && std::isfinite(*number) && *number > 0.0) return std::string();
        return text + " is not a number above 0";
      },
      "NUMBER ABOVE 0");
}

}  // namespace kerul::lidar
