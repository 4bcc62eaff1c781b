// The lossy ring of point packets in shared memory: one writer that never waits.
#pragma once

#include <cstdint>

#include "output/shm_layout.h"
#include "output/shm_region.h"

namespace kerul::lidar {

// Writes a fresh ring over `size` bytes at `data`, with the process's next boot id.
void ShmUdpInitRing(std::uint8_t* data, std::uint32_t size);

class ShmUdpWriter : public ShmRegion {
 public:
  ShmUdpWriter(const char* name, std::uint32_t size);

  // Replaces the named object by a fresh ring and prints its shape.
  bool Open();
  void Close();
  bool IsOpened() const noexcept;

  // Publishes one packet of 1..1500 bytes. False counts a write error. A header that something has
  // overwritten is rebuilt first. No system call, no allocation, no wait.
  bool WriteOne(const std::uint8_t* data, std::uint16_t length);

  std::uint32_t Seq() const noexcept { return seq_; }
  std::uint64_t Written() const noexcept { return written_; }
  std::uint64_t WriteErrors() const noexcept { return write_errors_; }

 private:
  std::uint32_t seq_ = 0;
  std::uint64_t written_ = 0;
  std::uint64_t write_errors_ = 0;
};

}  // namespace kerul::lidar
