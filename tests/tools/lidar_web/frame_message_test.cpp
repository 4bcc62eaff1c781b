#include "lidar_web/frame_message.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kerul_lidar/point_payload.h"

namespace kerul::lidar::web {
namespace {

constexpr std::size_t kRoom = 16;
constexpr std::size_t kRow = 288;
constexpr std::size_t kPlane = 216 * kRow;

template <class T>
T At(std::span<const char> bytes, std::size_t offset) {
  T value{};
  EXPECT_LE(offset + sizeof value, bytes.size());
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

// Two echoes in mode 12; one return of each echo, the second with flag bits 3, 6 and 11.
Frame TwoReturns() {
  Frame frame;
  frame.id = 7;
  frame.echoes = 2;
  frame.return_code = 12;
  frame.output_mode = 12;
  frame.carries = CarriedFields(12);
  frame.known_flags = KnownFlags(12);
  frame.first_timestamp_us = 1700000000250000;
  frame.last_timestamp_us = 1700000000340000;
  frame.missing_blocks = 3;
  frame.missing_frames = 2;
  frame.lost_packets = 5'000'000'000;  // more than the message can tell
  frame.after_restart = true;
  const std::size_t first = 12 * kRow + 24;
  const std::size_t second = kPlane + 215 * kRow + 287;
  frame.range_m[first] = 0.996F;  // 249 units
  frame.payload[3 * first] = 80;
  frame.range_m[second] = 262.14F;  // 65535 units
  frame.payload[3 * second] = 255;
  frame.flags[second] = 0x0848;
  return frame;
}

TEST(FrameMessage, HeaderStandsAsDocumented) {
  FrameMessage message;
  EncodeFrame(TwoReturns(), 41, 1700000000341000.0, kRoom, message);
  ASSERT_EQ(message.bytes.size(), kRoom + 96 + 5 * 2 * kPlane);
  const std::span<const char> bytes = message.View();
  EXPECT_EQ(std::string(bytes.data(), 8), std::string("\x02\x01\x02\x04\x29\x00\x00\x00", 8));
  EXPECT_EQ(At<double>(bytes, 8), 1700000000250000.0);
  EXPECT_EQ(At<double>(bytes, 16), 1700000000340000.0);
  EXPECT_EQ(At<double>(bytes, 24), 1700000000341000.0);
  // Id 7, return code 12, mode 12, after a restart; 13 flags known; 3 blocks, 2 frames missing.
  EXPECT_EQ(std::string(bytes.data() + 56, 12),
            std::string("\x07\x0C\x0C\x01\xFF\x1F\x03\x00\x02\x00\x00\x00", 12));
  EXPECT_EQ(At<std::uint32_t>(bytes, 68), 0xFFFFFFFFU);
  EXPECT_EQ(At<std::uint32_t>(bytes, 72), 1U | 8U | 2048U);  // reflectivity, ground, flags
  EXPECT_EQ(std::string(bytes.data() + 76, 20), std::string(20, '\0'));
}

TEST(FrameMessage, PlanesFollowEachOther) {
  FrameMessage message;
  EncodeFrame(TwoReturns(), 1, 0.0, kRoom, message);
  const std::span<const char> bytes = message.View();
  const std::size_t first = 12 * kRow + 24;
  const std::size_t second = kPlane + 215 * kRow + 287;
  const std::size_t n = 2 * kPlane;
  EXPECT_EQ(At<std::uint16_t>(bytes, 96 + 2 * first), 249);
  EXPECT_EQ(At<std::uint16_t>(bytes, 96 + 2 * second), 65535);
  EXPECT_EQ(At<std::uint8_t>(bytes, 96 + 2 * n + first), 80);
  EXPECT_EQ(At<std::uint8_t>(bytes, 96 + 2 * n + second), 255);
  EXPECT_EQ(At<std::uint16_t>(bytes, 96 + 3 * n + 2 * second), 0x0848);
  std::size_t others = 0;
  for (std::size_t i = 96; i < bytes.size(); ++i) others += bytes[i] != 0 ? 1U : 0U;
  EXPECT_EQ(others, 1U + 2U + 1U + 1U + 2U) << "bytes of the two returns and no others";
}

TEST(FrameMessage, EveryDistanceComesBackFromItsRange) {
  Frame frame;
  for (std::size_t i = 0; i < 65536; ++i) {
    if (i >= kPlane) frame.echoes = 2;
    frame.range_m[i] = static_cast<float>(i * 4) / 1000.0F;  // as FillFrame has it
  }
  FrameMessage message;
  EncodeFrame(frame, 1, 0.0, 0, message);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < 65536; ++i) {
    wrong += At<std::uint16_t>(message.View(), 96 + 2 * i) != i ? 1U : 0U;
  }
  EXPECT_EQ(wrong, 0U);
}

TEST(FrameMessage, AnAnswerCarriesWhatItsPullSaid) {
  FrameMessage message;
  EncodeFrame(TwoReturns(), 1, 0.0, kRoom, message);
  const Pull pull{.planes = 0, .asked_ms = 12.5, .pulled_us = 100.0};
  EXPECT_EQ(AddressFrame(message, pull, 200.0), 96 + 3 * 2 * kPlane);
  EXPECT_EQ(At<std::uint8_t>(message.View(), 1), 0);
  EXPECT_EQ(At<double>(message.View(), 32), 100.0);
  EXPECT_EQ(At<double>(message.View(), 40), 200.0);
  EXPECT_EQ(At<double>(message.View(), 48), 12.5);
  EXPECT_EQ(AddressFrame(message, {.planes = 1}, 300.0), 96 + 5 * 2 * kPlane);
  EXPECT_EQ(At<std::uint8_t>(message.View(), 1), 1) << "the next client wants flags";
}

TEST(FrameMessage, APullIsSixteenBytesOfItsKind) {
  std::vector<std::uint8_t> bytes{1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x29, 0x40};
  const std::optional<Pull> pull = ReadPull(bytes);
  ASSERT_TRUE(pull.has_value());
  EXPECT_EQ(pull->planes, 1);
  EXPECT_EQ(pull->asked_ms, 12.5);
  for (const std::size_t at : {0U, 1U, 2U, 7U}) {
    std::vector<std::uint8_t> changed = bytes;
    changed[at] = 2;
    EXPECT_FALSE(ReadPull(changed).has_value()) << at;
  }
  bytes.push_back(0);
  EXPECT_FALSE(ReadPull(bytes).has_value());
  bytes.resize(15);
  EXPECT_FALSE(ReadPull(bytes).has_value());
  EXPECT_FALSE(ReadPull({}).has_value());
}

TEST(FrameMessage, AMessageFromOutsideIsReadBack) {
  FrameMessage message;
  EncodeFrame(TwoReturns(), 41, 1.0, 0, message);
  const std::optional<FrameHeader> header = ReadFrameHeader(message.View());
  ASSERT_TRUE(header.has_value());
  EXPECT_EQ(header->serial, 41U);
  EXPECT_EQ(header->echoes, 2);
  EXPECT_EQ(header->unit_mm, 4);
  EXPECT_EQ(header->frame_id, 7);
  EXPECT_EQ(header->output_mode, 12);
  EXPECT_TRUE(header->after_restart);
  EXPECT_EQ(header->known_flags, 0x1FFF);
  EXPECT_EQ(header->missing_blocks, 3);
  EXPECT_EQ(header->missing_frames, 2U);
  EXPECT_EQ(header->last_us, 1700000000340000.0);
}

TEST(FrameMessage, MessagesThatCannotBeAreRefused) {
  FrameMessage message;
  EncodeFrame(TwoReturns(), 41, 1.0, 0, message);
  const std::vector<char> good = message.bytes;
  const auto refused = [&](std::size_t at, char value) {
    std::vector<char> changed = good;
    changed[at] = value;
    return !ReadFrameHeader(changed).has_value();
  };
  EXPECT_TRUE(refused(0, 1)) << "another kind";
  EXPECT_TRUE(refused(1, 0)) << "longer than without flags";
  EXPECT_TRUE(refused(1, 3)) << "unknown planes";
  EXPECT_TRUE(refused(2, 0)) << "no echo";
  EXPECT_TRUE(refused(2, 1)) << "longer than one echo";
  EXPECT_TRUE(refused(2, 3)) << "three echoes";
  EXPECT_TRUE(refused(3, 0)) << "no unit";
  std::vector<char> cut(good.begin(), good.end() - 1);
  EXPECT_FALSE(ReadFrameHeader(cut).has_value());
  cut.resize(95);
  EXPECT_FALSE(ReadFrameHeader(cut).has_value());
  EXPECT_FALSE(ReadFrameHeader({}).has_value());
}

TEST(FrameMessage, DirectionsAreTurnedAndTheOffsetIsApart) {
  Directions directions;
  directions.unit.assign(kPlane, {0.0F, 0.0F, 0.0F});
  directions.unit[1] = {1.0F, 0.0F, 0.0F};
  TransformParam mount;
  mount.x = 0.5;
  mount.y = -1.0;
  mount.z = 2.0;
  const double quarter_left[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};  // x becomes y
  std::copy(std::begin(quarter_left), std::end(quarter_left), mount.rotation);
  const std::vector<char> room = EncodeDirections(directions, &mount, kRoom);
  ASSERT_EQ(room.size(), kRoom + 746512);
  const std::span<const char> bytes = std::span(room).subspan(kRoom);
  EXPECT_EQ(At<std::uint32_t>(bytes, 0), 1U);
  const float expected[] = {0.5F, -1.0F, 2.0F, 0, 0, 0, 0.0F, 1.0F, 0.0F};
  for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(At<float>(bytes, 4 + 4 * i), expected[i]) << i;
  const std::vector<char> plain = EncodeDirections(directions, nullptr, 0);
  const float unturned[] = {0, 0, 0, 0, 0, 0, 1.0F, 0, 0};
  for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(At<float>(plain, 4 + 4 * i), unturned[i]) << i;
}

}  // namespace
}  // namespace kerul::lidar::web
