// The lossy ring of point packets in shared memory: one writer that never waits.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "output/shm_layout.h"
#include "output/shm_region.h"

namespace kerul::lidar {

// Writes a fresh ring over `size` bytes at `data`, with the process's next boot id.
void ShmUdpInitRing(std::uint8_t* data, std::uint32_t size);

class ShmUdpWriter : public ShmRegion {
 public:
  ShmUdpWriter(const char* name, std::uint32_t size);

  // Replaces the named object by a fresh ring, locks it (see ring_ownership.h) and prints its
  // shape. A ring whose writer still lives is replaced as well, with a warning on standard error;
  // the other writer notices in Tend.
  bool Open();
  void Close();
  bool IsOpened() const noexcept;

  // Publishes one packet of 1..1500 bytes. False counts a write error. A header that something has
  // overwritten is rebuilt first. No system call, no allocation, no wait, except after the object
  // was made shorter: then the packet is lost and a fresh ring is made as by Tend.
  bool WriteOne(const std::uint8_t* data, std::uint16_t length);

  // To be called regularly between two packets, for example at the end of a frame. Finds what would
  // keep readers from seeing the packets, and reports it on standard error.
  //   object unlinked, replaced or made shorter   a fresh ring is made, at most one a second
  //   name taken over by a living writer          reported once; this ring goes on without the name
  //   header overwritten by another sound shape   the next WriteOne rebuilds the ring; repairs are
  //                                               reported, at most once a second
  // Also reports a process that was refused as a second writer, once each, looked for four times a
  // second at most.
  // Some system calls, no allocation while all is well.
  void Tend();

  std::uint32_t Seq() const noexcept { return seq_; }
  std::uint64_t Written() const noexcept { return written_; }
  std::uint64_t WriteErrors() const noexcept { return write_errors_; }

 private:
  using Clock = std::chrono::steady_clock;

  // Where the ring's name leads.
  enum class NameState : std::uint8_t { kOurs, kGone, kReplaced, kTakenOver };

  bool IsOwn(const struct stat& object) const noexcept;
  NameState LookAtName() const noexcept;
  bool MakeRing();
  bool LosePacket();
  // object_size: -1 when it is not known.
  const char* FindLoss(NameState name_state, off_t object_size) const;
  void TendHeader();
  void TellRefusal();

  const std::string file_;  // shows the object
  dev_t own_device_ = 0;    // of the object that is written
  ino_t own_inode_ = 0;
  bool wanted_ = false;      // between Open and Close
  bool taken_over_ = false;  // another writer has the name, and that was reported
  bool rebuild_ = false;     // by the next WriteOne
  pid_t refused_ = 0;        // the process that was reported last
  std::uint64_t repairs_ = 0;
  std::uint64_t repairs_told_ = 0;
  Clock::time_point next_making_{};
  Clock::time_point next_telling_{};
  Clock::time_point next_refusal_look_{};
  std::uint32_t seq_ = 0;
  std::uint64_t written_ = 0;
  std::uint64_t write_errors_ = 0;
};

}  // namespace kerul::lidar
