#include "output/shm_udp_writer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <iostream>

#include "output/ring_ownership.h"
#include "output/shm_words.h"

namespace kerul::lidar {

using namespace shm_ring;

namespace {

// Making a ring takes longer than a frame. So a program that keeps removing it must not stop the
// stream, and one that keeps overwriting its header must not fill the log.
constexpr auto kPause = std::chrono::seconds(1);

// The shape of a fresh ring with room for `slots`.
HeaderShape FreshShape(std::uint32_t slots) noexcept {
  return {kMagicWord, slots, kStride, kMaxPayload};
}

// Slots in a region of `size` bytes, which must be the smallest region or larger.
std::uint32_t SlotsIn(std::uint32_t size) noexcept { return (size - kHeaderBytes) / kStride; }

bool SameRing(const HeaderShape& a, const HeaderShape& b) noexcept {
  return a.slots == b.slots && a.stride == b.stride && a.max_payload == b.max_payload;
}

// -1 when it is not known.
off_t SizeOf(int fd) noexcept {
  struct stat status {};
  return fstat(fd, &status) == 0 ? status.st_size : -1;
}

// Marks the slot as being written, then empties it. A reader that saw an emptied word also sees the
// mark when it looks again.
void ClearSlot(std::uint8_t* slot) noexcept {
  StoreWord(slot, 0, std::memory_order_relaxed);
  FenceBeforeStores();
  for (std::uint32_t i = kWordBytes; i < kStride; i += kWordBytes) {
    StoreWord(slot + i, 0, std::memory_order_relaxed);
  }
}

// Prefetches as much of the slot as a packet of `length` bytes needs. Many megabytes of other slots
// were written since its last use, and waiting for it would cost more than the copy.
void PrefetchSlot(const std::uint8_t* slot, std::uint32_t length) noexcept {
  constexpr std::uint32_t kCacheLine = 64;
  for (std::uint32_t i = 0; i < kSlotHeaderBytes + length; i += kCacheLine) {
    __builtin_prefetch(slot + i, 1);
  }
}

}  // namespace

void ShmUdpInitRing(std::uint8_t* data, std::uint32_t size) {
  static std::atomic<std::uint32_t> s_boot_id{1};
  constexpr auto kRelaxed = std::memory_order_relaxed;
  const HeaderShape shape = FreshShape(size >= kSmallestShmRegion ? SlotsIn(size) : 0);
  StoreWord(data, kMagicWord, kRelaxed);
  StoreWord(data + kHeadSeqOffset, 0, kRelaxed);
  // A reader that sees the new boot id must see the head reset.
  StoreWord(data + kBootIdOffset, s_boot_id.fetch_add(1, kRelaxed), std::memory_order_release);
  StoreWord(data + kSlotsOffset, shape.slots, kRelaxed);
  StoreWord(data + kStrideOffset, shape.stride | (std::uint32_t{shape.max_payload} << 16),
            kRelaxed);
  // A reader that sees an emptied slot must see the new boot id as well.
  FenceBeforeStores();
  for (std::uint32_t i = 0; i < shape.slots; ++i) {
    ClearSlot(data + kHeaderBytes + std::size_t{i} * kStride);
  }
}

ShmUdpWriter::ShmUdpWriter(const char* name, std::uint32_t size)
    : ShmRegion(name, size), file_(ObjectFile(name_)) {}

bool ShmUdpWriter::Open() {
  Close();  // or the own lock would be taken for another writer's
  if (RingWriterLives(name_)) {
    std::cerr << "[WARN] ring " << name_ << ": taken over from a writer that still lives"
              << std::endl;
  }
  wanted_ = true;
  return MakeRing();
}

bool ShmUdpWriter::MakeRing() {
  taken_over_ = false;
  rebuild_ = false;
  if (!ShmRegion::Open(false, true)) return false;
  LockAsWriter(fd_);
  struct stat own {};
  if (fstat(fd_, &own) == 0) {
    own_device_ = own.st_dev;
    own_inode_ = own.st_ino;
  }
  Guard();
  ShmUdpInitRing(data_, size_);
  seq_ = 0;
  const HeaderShape shape = LoadShape(data_);
  std::cout << "ShmUdpWriter init ring: slots=" << shape.slots << " stride=" << shape.stride
            << " boot_id=" << LoadWord(data_ + kBootIdOffset, std::memory_order_relaxed)
            << " region=" << size_ << std::endl;
  return true;
}

void ShmUdpWriter::Close() {
  wanted_ = false;
  ShmRegion::Close();
}

bool ShmUdpWriter::IsOwn(const struct stat& object) const noexcept {
  return object.st_dev == own_device_ && object.st_ino == own_inode_;
}

// Where the name leads when it does not show the own object.
ShmUdpWriter::NameState ShmUdpWriter::LookAtName() const noexcept {
  struct stat own {};
  if (!IsOpened()) return NameState::kGone;
  if (fstat(fd_, &own) != 0) return NameState::kOurs;  // nothing is known
  const int named = shm_open(name_.c_str(), O_RDONLY | O_NONBLOCK, 0);
  if (named < 0) {
    // A symbolic link or a socket has the name.
    if (errno == ELOOP || errno == ENXIO) return NameState::kReplaced;
    return own.st_nlink == 0 || errno == ENOENT ? NameState::kGone : NameState::kOurs;
  }
  struct stat now {};
  NameState state = NameState::kOurs;
  if (fstat(named, &now) == 0 && (now.st_dev != own.st_dev || now.st_ino != own.st_ino)) {
    state = WriterLives(named) ? NameState::kTakenOver : NameState::kReplaced;
  }
  close(named);
  return state;
}

void ShmUdpWriter::Tend() {
  if (!wanted_) return;
  // One call of the system tells nearly always that all is well.
  struct stat named {};
  const bool shown = IsOpened() && lstat(file_.c_str(), &named) == 0 && IsOwn(named);
  const NameState name_state = shown ? NameState::kOurs : LookAtName();
  if (name_state == NameState::kTakenOver) {
    if (!taken_over_) {
      std::cerr << "[WARN] ring " << name_
                << ": another writer that still lives has taken the name over: what is written here"
                   " reaches no new reader"
                << std::endl;
    }
    taken_over_ = true;
    return;
  }
  const char* const loss = FindLoss(name_state, shown ? named.st_size : SizeOf(fd_));
  if (loss == nullptr) {
    TendHeader();
    TellRefusal();
    return;
  }
  const Clock::time_point now = Clock::now();
  if (now < next_making_) return;
  next_making_ = now + kPause;
  std::cerr << "[WARN] ring " << name_ << ": " << loss << ", making a new one" << std::endl;
  MakeRing();
}

// Why readers cannot see what is written; null while they can.
const char* ShmUdpWriter::FindLoss(NameState name_state, off_t object_size) const {
  if (!IsOpened()) return "it could not be made";
  if (PagesLost() || (object_size >= 0 && object_size < off_t{size_})) {
    return "its object was made shorter";
  }
  if (name_state == NameState::kGone) return "its object was removed";
  if (name_state == NameState::kReplaced) return "its object was replaced";
  return nullptr;
}

void ShmUdpWriter::TellRefusal() {
  const Clock::time_point now = Clock::now();
  if (now < next_refusal_look_) return;
  next_refusal_look_ = now + kRefusalLookPause;
  const pid_t refused = RefusedProcess(fd_);
  if (refused == refused_) return;
  refused_ = refused;
  if (refused == 0) return;
  std::cerr << "[WARN] ring " << name_ << ": another process ";
  if (refused > 0) std::cerr << '(' << refused << ") ";
  std::cerr << "was to write it as well and was refused" << std::endl;
}

// WriteOne follows any sound shape; one of two slots loses every reader. Only the next WriteOne
// rebuilds, as an empty ring whose count goes on must not be seen.
void ShmUdpWriter::TendHeader() {
  const HeaderShape shape = LoadShape(data_);
  if (ShapeFits(shape, size_) && !SameRing(shape, FreshShape(SlotsIn(size_)))) rebuild_ = true;
  const Clock::time_point now = Clock::now();
  if (repairs_ == repairs_told_ || now < next_telling_) return;
  next_telling_ = now + kPause;
  repairs_told_ = repairs_;
  std::cerr << "[WARN] ring " << name_
            << ": something has overwritten its header, it was rebuilt; repairs so far: "
            << repairs_ << std::endl;
}

bool ShmUdpWriter::IsOpened() const noexcept { return ShmRegion::IsOpened(); }

// Into pages that are gone.
bool ShmUdpWriter::LosePacket() {
  ++write_errors_;
  Tend();
  return false;
}

bool ShmUdpWriter::WriteOne(const std::uint8_t* data, std::uint16_t length) {
  if (!IsOpened() || length == 0 || length > kMaxPayload || data == nullptr) {
    ++write_errors_;
    return false;
  }
  // Each field of the header is read once: another process may overwrite it between check and use.
  HeaderShape shape = LoadShape(data_);
  if (!ShapeFits(shape, size_) || rebuild_) [[unlikely]] {
    if (PagesLost()) return LosePacket();
    ShmUdpInitRing(data_, size_);
    rebuild_ = false;
    ++repairs_;
    shape = FreshShape(SlotsIn(size_));  // not read back, for the same reason
  }
  const std::uint32_t number = seq_ + 1;  // deliberate: goes on after a repair
  std::uint8_t* slot = data_ + SlotOffset(shape, number);

  StoreWord(slot, 0, std::memory_order_relaxed);
  // The stores below must not overtake the mark above. A reader that has copied any of them would
  // find the old number unchanged and accept a mixture of two packets. Plain stores keep their
  // order on x86-64; other processors need the fence.
  FenceBeforeStores();
  StoreWord(slot + kLengthOffset, 0, std::memory_order_relaxed);
  StoreBytes(slot + kSlotHeaderBytes, data, length);
  StoreWord(slot + kLengthOffset, length, std::memory_order_relaxed);
  StoreWord(slot, number, std::memory_order_release);
  StoreWord(data_ + kHeadSeqOffset, number, std::memory_order_release);
  PrefetchSlot(data_ + SlotOffset(shape, number + 1), length);

  seq_ = number;
  ++written_;
  return true;
}

}  // namespace kerul::lidar
