// The order in which the writer's stores reach the ring, and what a reader finds between any two.
//
// The writer is compiled here once more, under another name and with its word accesses recorded:
// on a processor that keeps the order of stores no run of threads would miss a fence.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "output/shm_test_name.h"
#include "output/shm_words.h"

namespace kerul::lidar {
namespace {

// One step of the writer, as a line: "20 = 1 release", "fence", "28 + 5 bytes".
struct Recorder {
  const std::uint8_t* ring = nullptr;
  std::vector<std::string> steps;
  std::function<void()> after_each;  // what a reader would do there

  void Add(std::string step) {
    steps.push_back(std::move(step));
    if (after_each) after_each();
  }
  std::string Place(const std::uint8_t* at) const { return std::to_string(at - ring); }
};
Recorder* recorder = nullptr;

}  // namespace

namespace shm_ring {
namespace {

void RecordedStoreWord(std::uint8_t* at, std::uint32_t value, std::memory_order order) {
  StoreWord(at, value, order);
  if (recorder == nullptr) return;
  const char* const name = order == std::memory_order_release ? " release" : "";
  recorder->Add(recorder->Place(at) + " = " + std::to_string(value) + name);
}

void RecordedStoreBytes(std::uint8_t* at, const std::uint8_t* from, std::uint32_t length) {
  StoreBytes(at, from, length);
  if (recorder != nullptr) {
    recorder->Add(recorder->Place(at) + " + " + std::to_string(length) + " bytes");
  }
}

void RecordedFence() {
  FenceBeforeStores();
  if (recorder != nullptr) recorder->Add("fence");
}

}  // namespace
}  // namespace shm_ring
}  // namespace kerul::lidar

#define StoreWord RecordedStoreWord
#define StoreBytes RecordedStoreBytes
#define FenceBeforeStores RecordedFence
#define ShmUdpWriter RecordedShmUdpWriter
#define ShmUdpInitRing RecordedShmUdpInitRing
#include "output/shm_udp_writer.cpp"  // NOLINT(bugprone-suspicious-include)
#undef StoreWord
#undef StoreBytes
#undef FenceBeforeStores
#undef ShmUdpWriter
#undef ShmUdpInitRing

namespace kerul::lidar {
namespace {

using Steps = std::vector<std::string>;

constexpr std::size_t kFirstSlot = 20;
constexpr std::size_t kSecondSlot = 20 + 1508;
constexpr std::uint32_t kTwoSlots = 20 + 2 * 1508;

std::uint32_t WordOf(const std::uint8_t* ring, std::size_t at) {
  std::uint32_t word = 0;
  std::memcpy(&word, ring + at, 4);
  return word;
}

class ShmStoreOrder : public testing::Test {
 protected:
  void SetUp() override {
    ::testing::internal::CaptureStdout();
    const bool opened = writer_.Open();
    ::testing::internal::GetCapturedStdout();
    ASSERT_TRUE(opened);
    recorder_.ring = writer_.Data();
  }
  void TearDown() override { recorder = nullptr; }

  // Writes a packet of equal bytes and gives the steps.
  Steps Write(std::uint16_t length, std::uint8_t byte) {
    recorder_.steps.clear();
    const std::vector<std::uint8_t> bytes(length, byte);
    recorder = &recorder_;
    EXPECT_TRUE(writer_.WriteOne(bytes.data(), length));
    recorder = nullptr;
    return recorder_.steps;
  }
  std::uint32_t Word(std::size_t at) { return WordOf(writer_.Data(), at); }

  ShmTestName name_;
  RecordedShmUdpWriter writer_{name_.c_str(), kTwoSlots};
  Recorder recorder_;
};

TEST_F(ShmStoreOrder, APacketIsMarkedCopiedNumberedAndOnlyThenAnnounced) {
  EXPECT_EQ(Write(5, 7), (Steps{"20 = 0", "fence", "24 = 0", "28 + 5 bytes", "24 = 5",
                                "20 = 1 release", "4 = 1 release"}));
  EXPECT_EQ(Write(1500, 8), (Steps{"1528 = 0", "fence", "1532 = 0", "1536 + 1500 bytes",
                                   "1532 = 1500", "1528 = 2 release", "4 = 2 release"}));
  EXPECT_EQ(Write(9, 9), (Steps{"20 = 0", "fence", "24 = 0", "28 + 9 bytes", "24 = 9",
                                "20 = 3 release", "4 = 3 release"}));
}

TEST_F(ShmStoreOrder, AWriterStoppedBetweenTwoStoresShowsNoNumberOverAnotherPacket) {
  Write(40, 1);
  Write(50, 2);
  int stops = 0;
  int hidden = 0;
  recorder_.after_each = [&] {
    ++stops;
    // The slot that is written again: none, or all of packet 3. Never its old number 1.
    const std::uint32_t number = Word(kFirstSlot);
    EXPECT_TRUE(number == 0 || number == 3) << "stop " << stops;
    hidden += number == 0;
    if (number == 3) {
      EXPECT_EQ(Word(kFirstSlot + 4), 60U) << "stop " << stops;
      for (std::size_t i = 0; i < 60; ++i) EXPECT_EQ(writer_.Data()[kFirstSlot + 8 + i], 3);
    }
    // The head leads to a packet that is there.
    const std::uint32_t head = Word(4);
    EXPECT_EQ(Word((head - 1) % 2 == 0 ? kFirstSlot : kSecondSlot), head) << "stop " << stops;
  };
  Write(60, 3);
  EXPECT_EQ(stops, 7);
  EXPECT_EQ(hidden, 5);
  EXPECT_EQ(Word(4), 3U);
}

TEST_F(ShmStoreOrder, ARepairTakesTheHeadBackBeforeTheNewBootIdAndEmptiesTheSlotsLast) {
  Write(4, 1);
  const std::uint32_t boot_id = Word(8);
  writer_.Data()[2] = 99;
  const Steps steps = Write(4, 2);
  const std::uint32_t magic = 0x53 + 0x48 * 0x100 + 3 * 0x10000;
  const std::uint32_t sizes = 1508 + 1500 * 0x10000U;
  Steps expected{"0 = " + std::to_string(magic),
                 "4 = 0",
                 "8 = " + std::to_string(boot_id + 1) + " release",
                 "12 = 2",
                 "16 = " + std::to_string(sizes),
                 "fence"};
  for (const std::size_t slot : {kFirstSlot, kSecondSlot}) {
    expected.push_back(std::to_string(slot) + " = 0");
    expected.emplace_back("fence");
    for (std::size_t i = 4; i < 1508; i += 4) expected.push_back(std::to_string(slot + i) + " = 0");
  }
  // The packet after it: the numbers go on.
  for (const char* const step : {"1528 = 0", "fence", "1532 = 0", "1536 + 4 bytes", "1532 = 4",
                                 "1528 = 2 release", "4 = 2 release"}) {
    expected.emplace_back(step);
  }
  EXPECT_EQ(steps, expected);
}

}  // namespace
}  // namespace kerul::lidar
