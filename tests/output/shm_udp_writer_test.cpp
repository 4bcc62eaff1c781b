#include "output/shm_udp_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "output/shm_test_name.h"

namespace kerul::lidar {
namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr std::uint32_t kSmallest = 3036;

// Offsets are written out, not taken from the header: the layout is what readers depend on.
constexpr std::size_t SlotAt(std::uint32_t index) { return 20 + std::size_t{index} * 1508; }

std::uint32_t U32(const std::uint8_t* at) {
  std::uint32_t value = 0;
  std::memcpy(&value, at, 4);
  return value;
}

std::uint16_t U16(const std::uint8_t* at) {
  std::uint16_t value = 0;
  std::memcpy(&value, at, 2);
  return value;
}

void PutU32(std::uint8_t* at, std::uint32_t value) { std::memcpy(at, &value, 4); }
void PutU16(std::uint8_t* at, std::uint16_t value) { std::memcpy(at, &value, 2); }

std::vector<std::uint8_t> Payload(std::uint32_t length, std::uint8_t first) {
  std::vector<std::uint8_t> bytes(length);
  for (std::uint32_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(first + i);
  return bytes;
}

// A writer over a ring of `slots` slots, opened in silence.
class ShmUdpWriterTest : public testing::Test {
 protected:
  void OpenRing(std::uint32_t slots) {
    writer_.emplace(name_.c_str(), 20 + slots * 1508);
    CaptureStdout();
    const bool opened = writer_->Open();
    opening_text_ = GetCapturedStdout();
    ASSERT_TRUE(opened);
  }
  std::uint8_t* Ring() { return writer_->Data(); }
  bool Write(std::uint16_t length, std::uint8_t first) {
    const std::vector<std::uint8_t> bytes = Payload(length, first);
    return writer_->WriteOne(bytes.data(), length);
  }
  std::vector<std::uint8_t> Image() { return {Ring(), Ring() + writer_->Size()}; }
  // Writes once and returns whether the ring was rebuilt for it.
  bool NextWriteRebuilds() {
    const std::uint32_t boot_id = U32(Ring() + 8);
    EXPECT_TRUE(Write(4, 1));
    return U32(Ring() + 8) != boot_id;
  }

  ShmTestName name_;
  std::optional<ShmUdpWriter> writer_;
  std::string opening_text_;
};

TEST(ShmUdpInitRing, WritesHeaderAndEmptySlots) {
  std::vector<std::uint32_t> words(20 / 4 + 3 * 1508 / 4 + 25, 0xAAAAAAAAU);
  auto* data = reinterpret_cast<std::uint8_t*>(words.data());
  const auto size = static_cast<std::uint32_t>(20 + 3 * 1508 + 100);
  ShmUdpInitRing(data, size);
  const std::array<std::uint8_t, 8> head{0x53, 0x48, 3, 0, 0, 0, 0, 0};
  EXPECT_TRUE(std::equal(head.begin(), head.end(), data));
  EXPECT_EQ(U32(data + 12), 3U);
  EXPECT_EQ(U16(data + 16), 1508);
  EXPECT_EQ(U16(data + 18), 1500);
  for (std::size_t i = 20; i < SlotAt(3); ++i) ASSERT_EQ(data[i], 0) << i;
  for (std::size_t i = SlotAt(3); i < size; ++i) ASSERT_EQ(data[i], 0xAA) << "after the slots";
}

TEST(ShmUdpInitRing, EachCallTakesTheNextBootId) {
  std::vector<std::uint32_t> words(kSmallest / 4);
  auto* data = reinterpret_cast<std::uint8_t*>(words.data());
  ShmUdpInitRing(data, kSmallest);
  const std::uint32_t first = U32(data + 8);
  EXPECT_GE(first, 1U);
  ShmUdpInitRing(data, kSmallest);
  EXPECT_EQ(U32(data + 8), first + 1);
}

TEST(ShmUdpInitRing, ARegionBelowTwoSlotsGetsNone) {
  std::vector<std::uint32_t> words(kSmallest / 4, 0xBBBBBBBBU);
  auto* data = reinterpret_cast<std::uint8_t*>(words.data());
  ShmUdpInitRing(data, 3035);
  EXPECT_EQ(U32(data + 12), 0U);
  EXPECT_EQ(U16(data + 16), 1508);
  EXPECT_EQ(U16(data + 18), 1500);
  for (std::size_t i = 20; i < kSmallest; ++i) ASSERT_EQ(data[i], 0xBB) << i;
}

TEST(ShmUdpWriterOpening, ARegionOneByteTooSmallDoesNotOpen) {
  const ShmTestName name;
  ShmUdpWriter writer(name.c_str(), 3035);
  EXPECT_FALSE(writer.Open());
  EXPECT_FALSE(writer.IsOpened());
  ShmUdpWriter smallest(name.c_str(), 3036);
  CaptureStdout();
  EXPECT_TRUE(smallest.Open());
  GetCapturedStdout();
  EXPECT_EQ(U32(smallest.Data() + 12), 2U);
}

TEST_F(ShmUdpWriterTest, OpenPrintsTheRingsShape) {
  OpenRing(5);
  const std::uint32_t boot_id = U32(Ring() + 8);
  EXPECT_EQ(opening_text_, "ShmUdpWriter init ring: slots=5 stride=1508 boot_id=" +
                               std::to_string(boot_id) + " region=7560\n");
}

TEST_F(ShmUdpWriterTest, TheDefaultRegionHas69534Slots) {
  writer_.emplace(name_.c_str(), 104857600);
  CaptureStdout();
  ASSERT_TRUE(writer_->Open());
  GetCapturedStdout();
  EXPECT_EQ(U32(Ring() + 12), 69534U);
}

TEST_F(ShmUdpWriterTest, OpeningAgainBeginsAFreshRingWithANewBootId) {
  OpenRing(3);
  ASSERT_TRUE(Write(10, 1));
  const std::uint32_t boot_id = U32(Ring() + 8);
  CaptureStdout();
  ASSERT_TRUE(writer_->Open());
  EXPECT_NE(GetCapturedStdout().find("removed stale region"), std::string::npos);
  EXPECT_EQ(writer_->Seq(), 0U);
  EXPECT_EQ(writer_->Written(), 1U) << "counts the process's packets";
  EXPECT_EQ(U32(Ring() + 4), 0U);
  EXPECT_EQ(U32(Ring() + 8), boot_id + 1);
}

TEST_F(ShmUdpWriterTest, APacketStandsInItsSlotWithNumberAndLength) {
  OpenRing(3);
  ASSERT_TRUE(Write(249, 7));
  const std::uint8_t* slot = Ring() + SlotAt(0);
  EXPECT_EQ(U32(slot), 1U);
  EXPECT_EQ(U16(slot + 4), 249);
  EXPECT_EQ(U16(slot + 6), 0);
  const std::vector<std::uint8_t> expected = Payload(249, 7);
  EXPECT_EQ(std::vector<std::uint8_t>(slot + 8, slot + 8 + 249), expected);
  EXPECT_EQ(U32(Ring() + 4), 1U);
  EXPECT_EQ(writer_->Seq(), 1U);
  EXPECT_EQ(writer_->Written(), 1U);
  EXPECT_EQ(writer_->WriteErrors(), 0U);
}

TEST_F(ShmUdpWriterTest, EveryLengthFitsAndBytesBehindItStay) {
  OpenRing(2);
  int compared = 0;
  for (const std::uint16_t length :
       std::initializer_list<std::uint16_t>{1, 2, 3, 4, 5, 249, 1497, 1498, 1499, 1500}) {
    std::uint8_t* slot = Ring() + SlotAt(writer_->Seq() % 2);
    std::memset(slot + 8, 0xEE, 1500);
    const std::uint8_t* other = Ring() + SlotAt((writer_->Seq() + 1) % 2);
    const std::vector<std::uint8_t> other_before(other, other + 1508);
    ASSERT_TRUE(Write(length, 3));
    const std::vector<std::uint8_t> expected = Payload(length, 3);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), slot + 8)) << length;
    for (std::uint32_t i = length; i < 1500; ++i) ASSERT_EQ(slot[8 + i], 0xEE) << length;
    EXPECT_TRUE(std::equal(other_before.begin(), other_before.end(), other)) << length;
    ++compared;
  }
  EXPECT_EQ(compared, 10);
}

TEST_F(ShmUdpWriterTest, AnUnalignedSourceIsCopiedToo) {
  OpenRing(2);
  const std::vector<std::uint8_t> bytes = Payload(300, 1);
  ASSERT_TRUE(writer_->WriteOne(bytes.data() + 1, 249));
  EXPECT_TRUE(std::equal(bytes.begin() + 1, bytes.begin() + 250, Ring() + SlotAt(0) + 8));
}

TEST_F(ShmUdpWriterTest, AfterAllSlotsTheFirstIsUsedAgain) {
  OpenRing(3);
  for (std::uint8_t i = 0; i < 4; ++i) ASSERT_TRUE(Write(8, i));
  EXPECT_EQ(U32(Ring() + SlotAt(0)), 4U);
  EXPECT_EQ(U32(Ring() + SlotAt(1)), 2U);
  EXPECT_EQ(U32(Ring() + SlotAt(2)), 3U);
  EXPECT_EQ(Ring()[SlotAt(0) + 8], 3);
  EXPECT_EQ(U32(Ring() + 4), 4U);
}

TEST_F(ShmUdpWriterTest, BadLengthsAndNullCountAnErrorAndChangeNothing) {
  OpenRing(2);
  ASSERT_TRUE(Write(20, 1));
  const std::vector<std::uint8_t> before = Image();
  const std::vector<std::uint8_t> bytes = Payload(1501, 0);
  EXPECT_FALSE(writer_->WriteOne(bytes.data(), 0));
  EXPECT_FALSE(writer_->WriteOne(bytes.data(), 1501));
  EXPECT_FALSE(writer_->WriteOne(nullptr, 10));
  EXPECT_EQ(writer_->WriteErrors(), 3U);
  EXPECT_EQ(writer_->Written(), 1U);
  EXPECT_EQ(writer_->Seq(), 1U);
  EXPECT_EQ(Image(), before);
}

TEST_F(ShmUdpWriterTest, AClosedWriterCountsAnError) {
  OpenRing(2);
  writer_->Close();
  EXPECT_FALSE(writer_->IsOpened());
  EXPECT_FALSE(Write(10, 1));
  EXPECT_EQ(writer_->WriteErrors(), 1U);
}

TEST_F(ShmUdpWriterTest, WriteErrorsAreCountedOverALaterOpen) {
  OpenRing(2);
  EXPECT_FALSE(writer_->WriteOne(nullptr, 10));
  CaptureStdout();
  ASSERT_TRUE(writer_->Open());
  GetCapturedStdout();
  EXPECT_EQ(writer_->WriteErrors(), 1U);
  EXPECT_FALSE(writer_->WriteOne(nullptr, 10));
  EXPECT_EQ(writer_->WriteErrors(), 2U);
}

TEST_F(ShmUdpWriterTest, AnOverwrittenVersionRebuildsTheRingAndTheCountGoesOn) {
  OpenRing(4);
  for (std::uint8_t i = 0; i < 6; ++i) ASSERT_TRUE(Write(100, i));
  const std::uint32_t boot_id = U32(Ring() + 8);
  Ring()[2] = 99;
  ASSERT_TRUE(Write(50, 9));
  EXPECT_EQ(Ring()[2], 3);
  EXPECT_EQ(U32(Ring() + 8), boot_id + 1);
  EXPECT_EQ(U32(Ring() + 4), 7U);
  const std::uint8_t* slot = Ring() + SlotAt(2);  // packet 7 of 4 slots
  EXPECT_EQ(U32(slot), 7U);
  EXPECT_EQ(U16(slot + 4), 50);
  int zeros = 0;
  for (std::uint32_t i : {0U, 1U, 3U}) {
    for (std::size_t b = 0; b < 1508; ++b) zeros += Ring()[SlotAt(i) + b] == 0;
  }
  EXPECT_EQ(zeros, 3 * 1508);
  for (std::size_t b = 58; b < 1508; ++b) ASSERT_EQ(slot[b], 0);
  EXPECT_EQ(writer_->Written(), 7U);
}

TEST_F(ShmUdpWriterTest, EveryWrongHeaderFieldRebuilds) {
  OpenRing(4);
  int rebuilt = 0;
  const auto rebuilds = [&] { rebuilt += NextWriteRebuilds(); };
  Ring()[0] = 0;
  rebuilds();
  Ring()[1] = 0;
  rebuilds();
  Ring()[2] = 2;
  rebuilds();
  for (std::uint32_t slots : {0U, 1U, 5U, 0xFFFFFFFFU}) {  // 5 slots do not fit the region
    PutU32(Ring() + 12, slots);
    rebuilds();
  }
  for (const std::uint16_t stride :
       std::initializer_list<std::uint16_t>{0, 1507, 1512, 65532}) {  // 1512 does not fit 4 times
    PutU16(Ring() + 16, stride);
    rebuilds();
  }
  for (const std::uint16_t max_payload : std::initializer_list<std::uint16_t>{0, 1501, 65535}) {
    PutU16(Ring() + 18, max_payload);
    rebuilds();
  }
  EXPECT_EQ(rebuilt, 3 + 4 + 4 + 3);
  EXPECT_EQ(U32(Ring() + 12), 4U);
  EXPECT_EQ(writer_->Seq(), 14U);
}

TEST_F(ShmUdpWriterTest, FieldsThatAreNotCheckedDoNotRebuild) {
  OpenRing(4);
  Ring()[3] = 0x55;
  EXPECT_FALSE(NextWriteRebuilds());
  PutU32(Ring() + 4, 0x12345678);
  EXPECT_FALSE(NextWriteRebuilds());
  EXPECT_EQ(U32(Ring() + 4), 2U) << "the head is stored anew";
  PutU16(Ring() + 18, 1);
  EXPECT_FALSE(NextWriteRebuilds()) << "any payload size of 1..1500 passes";
}

TEST_F(ShmUdpWriterTest, ASmallerRingInTheHeaderIsFollowed) {
  OpenRing(4);
  PutU32(Ring() + 12, 3);
  PutU16(Ring() + 16, 2000);  // 20 + 3 * 2000 = 6020 of 6052 bytes
  for (std::uint8_t i = 0; i < 3; ++i) ASSERT_FALSE(NextWriteRebuilds());
  EXPECT_EQ(U32(Ring() + 20 + 2 * 2000), 3U);
}

TEST_F(ShmUdpWriterTest, AStrideThatBreaksTheAlignmentRebuilds) {
  OpenRing(4);
  PutU32(Ring() + 12, 2);
  PutU16(Ring() + 16, 1509);
  EXPECT_TRUE(NextWriteRebuilds());
  EXPECT_EQ(U32(Ring() + 12), 4U);
}

}  // namespace
}  // namespace kerul::lidar
