// A source for a node in the tool's own process.
#pragma once

#include <cstdint>
#include <string>

#include "source/source.h"

namespace kerul::lidar {

// All but Receive does nothing. Looks like a socket: a capture would be paused after each frame.
class InertSource : public Source {
 public:
  std::string GetType() override { return "UDP"; }
  bool Open() override { return true; }
  void Close() override {}
  bool IsOpened() override { return true; }
  void SetClientIp(const std::string& /*ip*/) override {}
  int Send(const std::uint8_t* /*buffer*/, std::uint16_t length, int /*flags*/) override {
    return length;
  }
  int SetSocketBufferSize(std::uint32_t /*size*/) override { return 0; }
};

}  // namespace kerul::lidar
