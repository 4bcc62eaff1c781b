#include "mcap/compression.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace kerul::lidar::mcap {
namespace {

using ::testing::HasSubstr;

constexpr Compression kAll[] = {Compression::kNone, Compression::kLz4, Compression::kZstd};

// Half noise, half zeros, longer than a block of either library.
Bytes SomeBytes(std::size_t count) {
  std::mt19937 random(7);
  Bytes bytes(count);
  std::generate_n(bytes.begin(), count / 2,
                  [&] { return static_cast<std::uint8_t>(random() & 0xFF); });
  return bytes;
}

TEST(McapCompression, BytesComeBackFromEachCompression) {
  int compared = 0;
  for (const Compression compression : kAll) {
    Compressor compressor(compression, 1);
    for (const std::size_t count : {0U, 1U, 1000U, 9'000'000U}) {
      const Bytes plain = SomeBytes(count);
      Bytes stored{1, 2, 3};  // stay where they are
      compressor.Append(plain, stored);
      EXPECT_EQ(stored[2], 3);
      Bytes back;
      std::string error;
      ASSERT_TRUE(Decompress(CompressionName(compression), std::span(stored).subspan(3), count,
                             back, error))
          << CompressionName(compression) << ", " << count << ": " << error;
      EXPECT_TRUE(back == plain) << CompressionName(compression) << ", " << count;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 12);
}

TEST(McapCompression, ZerosBecomeFewer) {
  for (const Compression compression : {Compression::kLz4, Compression::kZstd}) {
    Bytes stored;
    Compressor(compression, 1).Append(Bytes(100'000), stored);
    EXPECT_LT(stored.size(), 1000U);
  }
}

TEST(McapCompression, OneByteMoreOrLessThanTheChunkTellsIsRefused) {
  int refused = 0;
  for (const Compression compression : kAll) {
    const Bytes plain = SomeBytes(5000);
    Bytes stored;
    Compressor(compression, 1).Append(plain, stored);
    for (const std::size_t told : {4999U, 5001U}) {
      Bytes back;
      std::string error;
      EXPECT_FALSE(Decompress(CompressionName(compression), stored, told, back, error));
      EXPECT_NE(error, "");
      ++refused;
    }
  }
  EXPECT_EQ(refused, 6);
}

TEST(McapCompression, ACutStreamAndBytesAfterItAreRefused) {
  int refused = 0;
  for (const Compression compression : {Compression::kLz4, Compression::kZstd}) {
    Bytes stored;
    Compressor(compression, 1).Append(SomeBytes(5000), stored);
    Bytes longer = stored;
    longer.push_back(9);
    Bytes back;
    std::string error;
    const char* name = CompressionName(compression);
    EXPECT_FALSE(Decompress(name, std::span(stored).first(stored.size() - 1), 5000, back, error));
    EXPECT_FALSE(Decompress(name, std::span(stored).first(0), 5000, back, error));
    EXPECT_FALSE(Decompress(name, longer, 5000, back, error));
    refused += 3;
  }
  EXPECT_EQ(refused, 6);
}

TEST(McapCompression, AnUnknownCompressionIsNamed) {
  Bytes back;
  std::string error;
  EXPECT_FALSE(Decompress("bz2", {}, 0, back, error));
  EXPECT_THAT(error, HasSubstr("bz2"));
}

}  // namespace
}  // namespace kerul::lidar::mcap
