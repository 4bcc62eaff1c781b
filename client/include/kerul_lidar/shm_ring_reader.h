// Follows the shared-memory ring of point packets from another process.
//
// The writer never waits: a reader that falls behind loses packets. Every packet number is either
// accepted or counted as lost, exactly once, from the number that the reader began with; so
// accepted + lost is always the distance covered. A packet is only accepted when its slot held the
// same number before and after the copy; a torn copy is dropped and counts as lost.
//
// The reader outlives the writer. When the ring is rebuilt in place, because something had
// overwritten its header, the numbers go on. When a restarted writer has replaced the named object,
// the reader first reads the old one to its end, then begins the new one at packet 1. Rings that
// came and went between two looks at the name are not seen.
//
// The header may be overwritten at any time by anybody. A head number that would make the reader
// skip packets is not believed unless the slot that it points to agrees.
//
// Whoever may write to the ring's object may also make it shorter. An access to what is gone ends
// the reader's process with SIGBUS, unless SurviveShortening was called.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "kerul_lidar/received_packet.h"
#include "kerul_lidar/shm_region.h"
#include "kerul_lidar/shm_words.h"

namespace kerul::lidar {

// Where a reader begins in the first ring that it attaches to.
enum class RingStart : std::uint8_t {
  kNewest,  // at the next packet to be written
  kOldest,  // at the oldest packet still held
};

struct RingStatistics {
  std::uint64_t accepted = 0;       // packets given to the caller
  std::uint64_t lost = 0;           // packets that were overwritten, wiped or torn before the copy
  std::uint64_t torn = 0;           // of the lost: overwritten during the copy
  std::uint64_t malformed = 0;      // of the lost: length outside 1..1500
  std::uint64_t attached = 0;       // rings attached to
  std::uint64_t rebuilt = 0;        // times the boot id of the attached ring changed
  std::uint64_t replaced = 0;       // times the named object was found to be another one
  std::uint64_t header_faults = 0;  // spells of a broken header, or one of another shape
  std::uint64_t shortened = 0;      // rings given up because their object was made shorter
};

class ShmRingReader {
 public:
  // A null or empty name is the default ring. Attaches to nothing yet.
  explicit ShmRingReader(const char* name, RingStart start = RingStart::kNewest);

  // Takes the next packet, attaching first where needed. False when there is none now. Never
  // sleeps; looks for a new or replaced object at most every 20 ms.
  bool TryNext(ReceivedPacket& packet);
  // As TryNext, but waits up to `timeout` in short sleeps. The writer wakes nobody, so a packet may
  // be found up to about a millisecond late.
  bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout);

  // Keeps the process alive when somebody makes the ring's object shorter: the reader gives the
  // ring up and looks for a new one. This installs a SIGBUS handler for the whole process, which
  // passes faults elsewhere on to the handler before it. So a program has to ask for it.
  void SurviveShortening() noexcept;

  bool IsAttached() const noexcept { return region_ != nullptr; }
  // Why nothing is attached, for messages: "not there", "no permission", "not a ring" or the
  // system's text; empty before the first try and while attached.
  std::string AttachProblem() const;
  // The number that comes next; accepted + lost counts those before it.
  std::uint32_t NextNumber() const noexcept { return next_; }
  const RingStatistics& Statistics() const noexcept { return statistics_; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Take : std::uint8_t { kTaken, kLost, kNothing, kLookAgain };

  bool Attach();
  void GiveUpShortened();
  bool FindPlace();
  bool LookDue(Clock::time_point now);
  void LookAtName();
  bool ReadOn(ReceivedPacket& packet);
  Take TakeNext(ReceivedPacket& packet);
  bool RefreshHead();
  void AdoptBootId(std::uint32_t boot_id);
  bool NumbersBeganAgain(std::uint32_t head) const;
  Take TakeSlot(ReceivedPacket& packet);
  Take MissingPacket();
  bool ConfirmedHead(std::uint32_t& head) const;
  std::uint32_t SlotNumber(std::uint32_t number) const;
  void SkipTo(std::uint32_t number);

  std::string name_;
  RingStart start_;
  std::unique_ptr<ShmRegion> region_;  // null while attached to nothing
  std::uint64_t token_ = 0;
  shm_ring::HeaderShape shape_{};           // as the header has it now
  shm_ring::HeaderShape attached_shape_{};  // as it had it at first
  std::uint32_t boot_id_ = 0;
  std::uint32_t next_ = 1;
  std::uint32_t head_ = 0;        // newest number known to stand in the ring
  std::uint32_t final_head_ = 0;  // where a replaced ring is left
  bool survives_shortening_ = false;
  int attach_error_ = 0;           // errno of the last try; 0 untried or attached
  bool ring_replaced_ = false;     // the name now leads to another object
  bool restart_possible_ = false;  // the boot id changed since the last accepted packet
  bool header_sound_ = true;
  bool followed_before_ = false;   // not the first ring
  std::uint32_t until_clock_ = 0;  // packets until the clock is looked at
  Clock::time_point next_look_{};
  RingStatistics statistics_;
};

}  // namespace kerul::lidar
