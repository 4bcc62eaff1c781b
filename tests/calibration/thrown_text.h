// The text of what a call throws.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace kerul::lidar {

// The text of the std::runtime_error that `call` throws. Anything else gives a text that no test
// expects.
template <typename Call>
std::string ThrownText(Call call) {
  try {
    call();
  } catch (const std::exception& error) {
    if (typeid(error) == typeid(std::runtime_error)) return error.what();
    return std::string("[not a runtime_error] ") + error.what();
  }
  return "[nothing thrown]";
}

// The same for std::invalid_argument.
template <typename Call>
std::string InvalidArgumentText(Call call) {
  try {
    call();
  } catch (const std::invalid_argument& error) {
    return error.what();
  } catch (const std::exception& error) {
    return std::string("[not an invalid_argument] ") + error.what();
  }
  return "[nothing thrown]";
}

}  // namespace kerul::lidar
