// Both sides of the ring while somebody else writes into its memory: every byte of header and slots
// may change between two calls.
#include <sys/mman.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>

#include "byte_input.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "output/shm_udp_writer.h"

using namespace kerul::lidar;
using fuzz::ByteInput;
using fuzz::Require;

namespace {

// Five slots, and room after them that nobody may touch: the region does not fill its last page.
constexpr std::uint32_t kSlots = 5;
constexpr std::uint32_t kRegionBytes = shm_ring::kHeaderBytes + kSlots * shm_ring::kStride;
constexpr std::uint32_t kMappedBytes = (kRegionBytes + 4095) / 4096 * 4096;

// Byte `i` of the packet of this number. Never below 128, so that no word of a payload can pass for
// a packet number of this short run.
std::uint8_t PayloadByte(std::uint32_t number, unsigned generation, std::uint32_t i) {
  return static_cast<std::uint8_t>(128U | (number * 31U + generation * 17U + i));
}

std::uint16_t PayloadLength(std::uint32_t number) {
  return static_cast<std::uint16_t>(1 + number * 97 % shm_ring::kMaxPayload);
}

class Ring {
 public:
  Ring() : writer_(Name().c_str(), kRegionBytes) {
    Reopen();
    readers_[0] = std::make_unique<ShmRingReader>(Name().c_str(), RingStart::kOldest);
    readers_[1] = std::make_unique<ShmRingReader>(Name().c_str(), RingStart::kNewest);
  }
  ~Ring() {
    writer_.Close();
    shm_unlink(Name().c_str());
  }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  // A restarted writer: a new object under the same name.
  void Reopen() {
    writer_.Close();
    Require(writer_.Open(), "a new ring");
    ++generation_;
  }

  void Write() {
    const std::uint32_t number = writer_.Seq() + 1;
    const std::uint16_t length = PayloadLength(number);
    std::uint8_t payload[shm_ring::kMaxPayload];
    for (std::uint32_t i = 0; i < length; ++i) payload[i] = PayloadByte(number, generation_, i);
    Require(writer_.WriteOne(payload, length), "a write that succeeds whatever the header holds");
    Require(writer_.Seq() == number, "numbers that go on");
    for (std::uint32_t i = kRegionBytes; i < kMappedBytes; ++i) {
      Require(writer_.Data()[i] == 0, "nothing written past the region");
    }
  }

  void Refuse(unsigned length) {
    const std::uint8_t payload[1] = {0};
    if (length >= 1 && length <= shm_ring::kMaxPayload) return;
    Require(!writer_.WriteOne(payload, static_cast<std::uint16_t>(length)), "a length refused");
  }

  void Overwrite(std::uint32_t offset, std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) {
      if (offset >= shm_ring::kHeaderBytes) slots_overwritten_ = true;
      if (offset < kRegionBytes) writer_.Data()[offset++] = byte;
    }
    // Another sound shape makes the slots overlap: both sides follow it, and what stood there is
    // overwritten as if by a stranger.
    const shm_ring::HeaderShape shape = shm_ring::LoadShape(writer_.Data());
    const bool other = shape.slots != kSlots || shape.stride != shm_ring::kStride;
    if (other && shm_ring::ShapeFits(shape, kRegionBytes)) slots_overwritten_ = true;
  }

  void Read(std::size_t which) {
    ReceivedPacket packet;
    if (!readers_[which]->TryNext(packet)) return;
    Require(packet.length >= 1 && packet.length <= kReceivedPacketRoom, "a length of a packet");
    // A header may hold anything, an accepted packet is still one that was written.
    if (!slots_overwritten_) Require(IsGenuine(packet), "a packet as it was written");
  }

  void CheckCounts() const {
    for (const auto& reader : readers_) {
      const RingStatistics& counts = reader->Statistics();
      Require(counts.torn + counts.malformed <= counts.lost, "lost packets of both kinds");
    }
  }

 private:
  static const std::string& Name() {
    static const std::string name = "/kerul_fuzz_ring_" + std::to_string(getpid());
    return name;
  }

  bool IsGenuine(const ReceivedPacket& packet) const {
    if (packet.length != PayloadLength(packet.number)) return false;
    for (unsigned generation = 1; generation <= generation_; ++generation) {
      std::uint32_t i = 0;
      while (i < packet.length && packet.bytes[i] == PayloadByte(packet.number, generation, i)) ++i;
      if (i == packet.length) return true;
    }
    return false;
  }

  ShmUdpWriter writer_;
  std::unique_ptr<ShmRingReader> readers_[2];
  unsigned generation_ = 0;
  bool slots_overwritten_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::cout.rdbuf(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteInput input(data, size);
  Ring ring;
  constexpr int kMaxSteps = 400;
  for (int step = 0; step < kMaxSteps && !input.Empty(); ++step) {
    const unsigned what = input.Byte();
    switch (what % 8) {
      case 0:
      case 1:
        for (unsigned count = 0; count <= what >> 5; ++count) ring.Write();
        break;
      case 2:
      case 3:
        for (unsigned count = 0; count <= what >> 5; ++count) ring.Read(what % 2);
        break;
      case 4: {  // the header
        const std::uint32_t offset = input.Byte() % shm_ring::kHeaderBytes;
        const std::uint32_t room = shm_ring::kHeaderBytes - offset;
        ring.Overwrite(offset, input.Take(std::min<std::size_t>(1 + (what >> 5), room)));
        break;
      }
      case 5:  // anything
        ring.Overwrite(input.Word() % kRegionBytes, input.Take(1 + (what >> 3)));
        break;
      case 6:
        ring.Refuse(input.Word());
        break;
      default:
        if ((what >> 5) == 0) ring.Reopen();
        break;
    }
  }
  ring.CheckCounts();
  return 0;
}
