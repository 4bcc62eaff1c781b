// A small MCAP file for tests, in memory: three chunks of one message each on one channel.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mcap/chunk.h"
#include "mcap/file_writer.h"
#include "support/temp_dir.h"

namespace kerul::lidar::mcap {

inline std::span<const std::uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string TextOf(std::span<const std::uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

inline FileDescription SampleDescription() {
  return {{"ros2", "a library"},
          {{1, "a/msg/Text", "ros2msg", "string data"}},
          {{1, 1, "/text", "cdr", {{"key", "value"}}}}};
}

inline constexpr int kSampleChunks = 3;

// What message `number` of a sample file carries, 600 bytes that compress well.
inline std::string SampleText(int number) {
  std::string text;
  while (text.size() < 600) text += "message " + std::to_string(number) + ", ";
  text.resize(600);
  return text;
}

inline MessageHeader SampleHeader(int number) {
  const auto count = static_cast<std::uint32_t>(number);
  return {1, count, 1000U + count, 900U + count};
}

inline Chunk SampleChunk(ChunkBuilder& builder, int number) {
  builder.Add(SampleHeader(number), BytesOf(SampleText(number)));
  return builder.Finish();
}

// The bytes of the file; without index and footer if it is not `finished`.
inline std::string SampleFile(Compression compression, bool finished = true) {
  const testing::TempDir folder;
  const std::string path = folder.File("sample.mcap");
  {
    FileWriter writer;
    ChunkBuilder builder(compression, 1);
    writer.Create(path, SampleDescription());
    for (int i = 0; i < kSampleChunks; ++i) writer.Write(SampleChunk(builder, i));
    if (finished) writer.Finish();
  }
  return testing::ReadFile(path);
}

}  // namespace kerul::lidar::mcap
