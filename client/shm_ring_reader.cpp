#include "kerul_lidar/shm_ring_reader.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <thread>

namespace kerul::lidar {

using namespace shm_ring;

namespace {

constexpr auto kLookInterval = std::chrono::milliseconds(20);
constexpr auto kFirstSleep = std::chrono::microseconds(50);
constexpr auto kLongestSleep = std::chrono::microseconds(1000);
constexpr std::uint32_t kPacketsPerClock = 1024;
// Tries to catch the writer between two packets. It moves on once per packet, so a few tries are
// enough even in a ring of two slots.
constexpr int kHeadTries = 8;
// An overtaken reader skips to this share of the ring ahead of the oldest packet. Otherwise it
// would be overtaken again at once.
constexpr std::uint32_t kSkipShare = 8;

// a - b in the ring of 32-bit numbers: above 0 when a is the newer one.
std::int32_t Distance(std::uint32_t a, std::uint32_t b) noexcept {
  return static_cast<std::int32_t>(a - b);
}

bool SameSlots(const HeaderShape& a, const HeaderShape& b) noexcept {
  return a.slots == b.slots && a.stride == b.stride;
}

}  // namespace

ShmRingReader::ShmRingReader(const char* name, RingStart start)
    : name_(ShmRegion::NormalizeName(name)), start_(start) {}

bool ShmRingReader::Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) {
  if (TryNext(packet)) return true;
  const Clock::time_point deadline = Clock::now() + timeout;
  Clock::duration sleep = kFirstSleep;
  for (;;) {
    const Clock::duration left = deadline - Clock::now();
    if (left <= Clock::duration::zero()) return false;
    std::this_thread::sleep_for(std::min(sleep, left));
    if (TryNext(packet)) return true;
    sleep = std::min<Clock::duration>(sleep * 2, kLongestSleep);
  }
}

bool ShmRingReader::TryNext(ReceivedPacket& packet) {
  if (!IsAttached() && (!LookDue(Clock::now()) || !Attach())) return false;
  if (until_clock_ == 0) {
    until_clock_ = kPacketsPerClock;
    if (LookDue(Clock::now())) LookAtName();
  }
  --until_clock_;
  // One round for each slot at most: a ring that only ever shows lost packets gives up in between.
  for (std::uint32_t rounds = 0; rounds <= shape_.slots; ++rounds) {
    const Take take = TakeNext(packet);
    if (take == Take::kTaken) return true;
    if (take == Take::kNothing) return ReadOn(packet);
  }
  return false;
}

// The attached ring holds nothing more: moves to the one that has replaced it, if any.
bool ShmRingReader::ReadOn(ReceivedPacket& packet) {
  until_clock_ = 0;  // idle, so the next call looks at the clock
  if (region_->PagesLost()) {
    GiveUpShortened();
    return false;
  }
  if (!ring_replaced_) return false;
  region_.reset();
  return Attach() && TryNext(packet);
}

ShmRingReader::Take ShmRingReader::TakeNext(ReceivedPacket& packet) {
  if (Distance(head_, next_) < 0 && !RefreshHead()) return Take::kNothing;
  return TakeSlot(packet);
}

bool ShmRingReader::LookDue(Clock::time_point now) {
  if (now < next_look_) return false;
  next_look_ = now + kLookInterval;
  return true;
}

bool ShmRingReader::Attach() {
  // Asks for the largest size, which the region lowers to the object's.
  region_ = std::make_unique<ShmRegion>(name_.c_str(), std::numeric_limits<std::uint32_t>::max());
  if (!region_->Open(true, false)) {
    attach_error_ = region_->OpenError();
    region_.reset();
    return false;
  }
  if (survives_shortening_) region_->Guard();
  if (!FindPlace()) {
    attach_error_ = EINVAL;
    region_.reset();
    return false;
  }
  attach_error_ = 0;
  token_ = region_->AttachToken();
  followed_before_ = true;
  ring_replaced_ = false;
  restart_possible_ = false;
  attached_shape_ = shape_;
  header_sound_ = true;
  ++statistics_.attached;
  return true;
}

void ShmRingReader::SurviveShortening() noexcept {
  survives_shortening_ = true;
  if (region_ != nullptr) region_->Guard();
}

std::string ShmRingReader::AttachProblem() const {
  switch (attach_error_) {
    case 0:
      return "";
    case ENOENT:
      return "not there";
    case EACCES:
      return "no permission";
    case EINVAL:
      return "not a ring";
    default:
      return std::strerror(attach_error_);
  }
}

// The writer makes another object, which the next look at the name finds.
void ShmRingReader::GiveUpShortened() {
  ++statistics_.shortened;
  region_.reset();
}

// Finds the number to begin with. False while the header is not sound: the writer may be working on
// it, and a wrong head could give a place beyond everything that will ever be written.
bool ShmRingReader::FindPlace() {
  const std::uint8_t* data = region_->Data();
  shape_ = LoadShape(data);
  if (!ShapeFits(shape_, region_->Size())) return false;
  // Boot id before head, here and in RefreshHead: the writer resets the head before it changes the
  // boot id, so a head read after the new id is never one of the old count.
  boot_id_ = LoadWord(data + kBootIdOffset, std::memory_order_acquire);
  head_ = LoadWord(data + kHeadSeqOffset, std::memory_order_acquire);
  if (head_ != 0 && !ConfirmedHead(head_)) return false;
  next_ = 1;
  if (followed_before_) return true;
  if (start_ == RingStart::kNewest) next_ = head_ + 1;
  if (start_ == RingStart::kOldest && head_ > shape_.slots) next_ = head_ - shape_.slots + 1;
  return true;
}

// Marks the end of the attached ring when the name now leads to another object.
void ShmRingReader::LookAtName() {
  if (ring_replaced_ || !region_->NamedObjectReplaced(token_)) return;
  ring_replaced_ = true;
  ++statistics_.replaced;
  // A writer that is still alive on the old object must not hold the reader there for ever.
  final_head_ = LoadWord(region_->Data() + kHeadSeqOffset, std::memory_order_acquire);
  if (Distance(head_, final_head_) > 0) head_ = final_head_;
}

// Reads the header again. True when it shows a packet from next_ on.
bool ShmRingReader::RefreshHead() {
  const std::uint8_t* data = region_->Data();
  const HeaderShape shape = LoadShape(data);
  const bool fits = ShapeFits(shape, region_->Size());
  const bool sound = fits && SameSlots(shape, attached_shape_);
  if (!sound && header_sound_) ++statistics_.header_faults;
  header_sound_ = sound;
  if (!fits) return false;  // the writer repairs it with its next packet
  shape_ = shape;           // the writer follows another shape too, until its frame ends
  const std::uint32_t boot_id = LoadWord(data + kBootIdOffset, std::memory_order_acquire);
  std::uint32_t head = LoadWord(data + kHeadSeqOffset, std::memory_order_acquire);
  if (boot_id != boot_id_) AdoptBootId(boot_id);
  if (head == 0) return false;  // empty or being rebuilt
  if (Distance(head, next_ - 1) < 0 && NumbersBeganAgain(head)) next_ = 1;
  if (ring_replaced_ && Distance(head, final_head_) > 0) head = final_head_;
  if (Distance(head, next_) < 0) return false;
  head_ = head;
  return true;
}

// A writer that rebuilds a ring with an overwritten header goes on counting. The slots' content is
// gone, and the slots themselves show that.
void ShmRingReader::AdoptBootId(std::uint32_t boot_id) {
  boot_id_ = boot_id;
  restart_possible_ = true;
  ++statistics_.rebuilt;
}

// A head below the own number is a new count only if the ring was rebuilt since, the packet read
// last is gone and the head's slot agrees. Otherwise somebody has overwritten the head.
bool ShmRingReader::NumbersBeganAgain(std::uint32_t head) const {
  return restart_possible_ && SlotNumber(next_ - 1) != next_ - 1 && SlotNumber(head) == head;
}

std::uint32_t ShmRingReader::SlotNumber(std::uint32_t number) const {
  return LoadWord(region_->Data() + SlotOffset(shape_, number), std::memory_order_acquire);
}

ShmRingReader::Take ShmRingReader::TakeSlot(ReceivedPacket& packet) {
  // A written slot holding 0 cannot be told from an empty one. One packet in 2^32 is lost here.
  if (next_ == 0) {
    SkipTo(1);
    return Take::kLost;
  }
  const std::uint8_t* slot = region_->Data() + SlotOffset(shape_, next_);
  if (LoadWord(slot, std::memory_order_acquire) != next_) return MissingPacket();

  const std::uint32_t length = LoadWord(slot + kLengthOffset, std::memory_order_relaxed) & 0xFFFF;
  const bool sound = length >= 1 && length <= kMaxPayload;
  if (sound) LoadBytes(slot + kSlotHeaderBytes, packet.bytes, length);
  // The words copied above must be loaded before the number is looked at again: if any of them
  // came from a younger packet, its writer's mark is seen here.
  FenceAfterLoads();
  // In a rebuilt ring the same number may stand for another packet. The boot id is loaded last: if
  // the number is the rebuilt ring's, the new id is seen here.
  const bool unchanged = LoadWord(slot, std::memory_order_acquire) == next_;
  const std::uint8_t* boot = region_->Data() + kBootIdOffset;
  if (LoadWord(boot, std::memory_order_relaxed) != boot_id_) {
    head_ = next_ - 1;
    return Take::kLookAgain;
  }
  if (!unchanged) {
    ++statistics_.torn;
    SkipTo(next_ + 1);
    return Take::kLost;
  }
  if (!sound) {
    ++statistics_.malformed;
    SkipTo(next_ + 1);
    return Take::kLost;
  }
  packet.number = next_;
  packet.length = static_cast<std::uint16_t>(length);
  ++statistics_.accepted;
  ++next_;
  restart_possible_ = false;
  return Take::kTaken;
}

// The slot of next_ holds something else although the head seemed to have passed it. Only a
// confirmed head proves that next_ is gone: after tampering with the header, the slot's own number
// could be anything.
ShmRingReader::Take ShmRingReader::MissingPacket() {
  std::uint32_t newest = 0;
  if (!ConfirmedHead(newest) || Distance(newest, next_) < 0) {
    head_ = next_ - 1;  // nothing shows that next_ has been written
    return Take::kNothing;
  }
  // It has been written, perhaps after the slot was looked at.
  if (SlotNumber(next_) == next_) return Take::kLookAgain;
  const std::uint32_t oldest = newest - shape_.slots + 1;
  const std::uint32_t margin = std::max(shape_.slots / kSkipShare, 1U);
  const std::uint32_t ahead = oldest + margin;  // at most the newest: there are two slots or more
  SkipTo(Distance(ahead, next_ + 1) > 0 ? ahead : next_ + 1);
  return Take::kLost;
}

// The head number, once the slot that it points to holds it.
bool ShmRingReader::ConfirmedHead(std::uint32_t& head) const {
  for (int i = 0; i < kHeadTries; ++i) {
    head = LoadWord(region_->Data() + kHeadSeqOffset, std::memory_order_acquire);
    if (head != 0 && SlotNumber(head) == head) return true;
  }
  return false;
}

void ShmRingReader::SkipTo(std::uint32_t number) {
  statistics_.lost += number - next_;
  next_ = number;
}

}  // namespace kerul::lidar
