// The compressions that MCAP knows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "mcap/records.h"

namespace kerul::lidar::mcap {

enum class Compression : std::uint8_t { kNone, kLz4, kZstd };

// As it stands in a chunk: "", "lz4" or "zstd".
const char* CompressionName(Compression compression) noexcept;

// Keeps the tables of one compression from chunk to chunk. Not for use by several threads.
class Compressor {
 public:
  // `level` as the libraries count it.
  Compressor(Compression compression, int level);
  ~Compressor();

  Compression Kind() const noexcept { return kind_; }
  // Appends `plain` to `out`, compressed in one frame that carries its size. Throws
  // std::runtime_error with the library's text when it fails, std::bad_alloc without memory.
  void Append(std::span<const std::uint8_t> plain, Bytes& out);

 private:
  struct Contexts;

  Compression kind_;
  int level_;
  std::unique_ptr<Contexts> contexts_;
};

// Makes `plain` the `plain_size` bytes that `stored` holds, at most. False with the reason in
// `error` for an unknown compression, a broken stream, and one that holds more or less. Needs no
// more memory than `plain_size`, whatever the stream claims of itself, and 8 MiB.
bool Decompress(std::string_view compression, std::span<const std::uint8_t> stored,
                std::size_t plain_size, Bytes& plain, std::string& error);

}  // namespace kerul::lidar::mcap
