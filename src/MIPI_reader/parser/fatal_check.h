// Stops the process in every build type when a condition that must hold does not.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace kerul::lidar {

// Prints to standard error, in the form of the C library's assert message (which is gone from a
// build with NDEBUG), and aborts. The places are named by the callers, not taken from __FILE__,
// because they are part of the interface.
[[noreturn]] inline void FailAssertion(const char* expression, const char* file, int line,
                                       const char* function) noexcept {
  std::fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               file, line, function, expression);
  std::abort();
}

}  // namespace kerul::lidar
