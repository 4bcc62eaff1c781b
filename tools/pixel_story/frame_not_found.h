#pragma once

#include <stdexcept>

namespace kerul::lidar::story {

// The capture does not hold the frame that was asked for. The text names no files.
class FrameNotFound : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kerul::lidar::story
