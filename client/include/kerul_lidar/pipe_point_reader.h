// Reads point packets from a pipe, one after another without anything between them, as lidar_replay
// writes them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kerul_lidar/received_packet.h"

namespace kerul::lidar {

class PipePointReader {
 public:
  // The descriptor stays the caller's and must stay open while the reader is used.
  explicit PipePointReader(int fd);

  // Waits up to `timeout` for one packet. False when none came, when a signal ended the wait, or at
  // the end of the pipe.
  bool Receive(ReceivedPacket& packet, std::chrono::milliseconds timeout);
  // The writer has closed its end, or the descriptor cannot be read. A packet that was cut is
  // dropped.
  bool Ended() const noexcept { return ended_; }

 private:
  bool Fill(std::chrono::milliseconds timeout);

  int fd_;
  bool ended_;
  std::vector<std::uint8_t> buffer_;
  std::size_t begin_ = 0;  // of what has been read and not yet given
  std::size_t end_ = 0;
};

}  // namespace kerul::lidar
