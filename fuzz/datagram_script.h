// A stream of datagrams out of few bytes: a template packet that is changed, and sent to one place
// of the frame after another.
//
// An input is a list of steps, one byte each, followed by its arguments:
//   0  a datagram of the bytes that follow, length in two bytes
//   1  changes bytes of the template: offset in two bytes, count, bytes
//   2  the template at a place: miniflash row, slot, run of pixels and subpacket
//   3  the template at the places that follow, one after another: count in two bytes
//   4  a pulse in one pixel of the template: block and echo, address, height, floor
//   5  pulses in all pixels of the template: seed in two bytes
//   6  the template's frame id
//   7  the template's first bytes only: count
//   8  a request to finish a row: its number
#pragma once

#include <cstdint>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "byte_input.h"

namespace kerul::lidar::fuzz {

enum class ScriptEvent : std::uint8_t { kEnd, kDatagram, kRow };

struct ScriptLimits {
  int rows = 36;          // miniflash rows that places lie in, but for one in sixteen
  int slots = 4;          // the same for slots
  int datagrams = 20000;  // of the whole stream
};

class DatagramScript {
 public:
  DatagramScript(ByteInput input, const ScriptLimits& limits);

  // Goes on to the next event. A datagram that would end the process deliberately has its channel
  // count put right, or is left out when it does not reach that far.
  ScriptEvent Next();

  const std::vector<std::uint8_t>& Datagram() const noexcept { return datagram_; }
  int Row() const noexcept { return row_; }

 private:
  ScriptEvent Step();
  ScriptEvent Send(std::size_t length);
  void Place(unsigned group, unsigned slot, unsigned place);
  void NextPlace();
  void PutPulse(int block, int echo, unsigned address, unsigned height, unsigned floor);
  void PutRandomPulses(unsigned seed);
  bool MakeHarmless();

  ByteInput input_;
  ScriptLimits limits_;
  UdpPacket template_{};
  UdpPacket received_{};  // what a receiver's buffer holds: short datagrams leave the rest
  std::vector<std::uint8_t> datagram_;
  unsigned to_send_ = 0;  // of step 3
  int sent_ = 0;
  int row_ = 0;
};

}  // namespace kerul::lidar::fuzz
