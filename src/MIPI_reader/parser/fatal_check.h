// Stops the process in every build type when a condition that must hold does not.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <iostream>

namespace kerul::lidar {

// Prints to standard error, in the form of the C library's assert message (which is gone from a
// build with NDEBUG), and aborts. The places are named by the callers, not taken from __FILE__,
// because they are part of the interface.
[[noreturn]] inline void FailAssertion(const char* expression, const char* file, int line,
                                       const char* function) noexcept {
  // By the stream, which the program keeps from waiting for a reader.
  std::cerr << program_invocation_short_name << ": " << file << ':' << line << ": " << function
            << ": Assertion `" << expression << "' failed." << std::endl;
  std::abort();
}

}  // namespace kerul::lidar
