#include "mcap/compression.h"

#include <lz4frame.h>
#include <zstd.h>

#include <new>
#include <stdexcept>

namespace kerul::lidar::mcap {
namespace {

struct FreeZstd {
  void operator()(ZSTD_CCtx* context) const noexcept { ZSTD_freeCCtx(context); }
};

struct FreeLz4 {
  void operator()(LZ4F_dctx* context) const noexcept { LZ4F_freeDecompressionContext(context); }
};

bool DecompressZstd(std::span<const std::uint8_t> stored, Bytes& plain, std::string& error) {
  const std::size_t size =
      ZSTD_decompress(plain.data(), plain.size(), stored.data(), stored.size());
  if (ZSTD_isError(size) != 0) {
    error = ZSTD_getErrorName(size);
  } else if (size != plain.size()) {
    error = "it holds " + std::to_string(size) + " bytes, not " + std::to_string(plain.size());
  }
  return error.empty();
}

// One frame, which must end with the last byte of `stored` and of `plain`.
bool DecompressLz4(std::span<const std::uint8_t> stored, Bytes& plain, std::string& error) {
  LZ4F_dctx* made = nullptr;
  if (LZ4F_isError(LZ4F_createDecompressionContext(&made, LZ4F_VERSION)) != 0) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<LZ4F_dctx, FreeLz4> context(made);
  std::size_t read = 0;
  std::size_t written = 0;
  std::size_t hint = 1;
  while (hint != 0) {
    std::size_t taken = stored.size() - read;
    std::size_t given = plain.size() - written;
    hint = LZ4F_decompress(context.get(), plain.data() + written, &given, stored.data() + read,
                           &taken, nullptr);
    if (LZ4F_isError(hint) != 0) {
      error = LZ4F_getErrorName(hint);
      return false;
    }
    read += taken;
    written += given;
    if (taken == 0 && given == 0 && hint != 0) {
      error = read == stored.size() ? "it ends too early" : "it holds too many bytes";
      return false;
    }
  }
  if (read != stored.size() || written != plain.size()) {
    error = "it holds " + std::to_string(written) + " bytes, not " + std::to_string(plain.size());
  }
  return error.empty();
}

}  // namespace

struct Compressor::Contexts {
  std::unique_ptr<ZSTD_CCtx, FreeZstd> zstd;
};

const char* CompressionName(Compression compression) noexcept {
  switch (compression) {
    case Compression::kLz4:
      return "lz4";
    case Compression::kZstd:
      return "zstd";
    case Compression::kNone:
      break;
  }
  return "";
}

Compressor::Compressor(Compression compression, int level)
    : kind_(compression), level_(level), contexts_(std::make_unique<Contexts>()) {
  if (kind_ != Compression::kZstd) return;
  contexts_->zstd.reset(ZSTD_createCCtx());
  if (contexts_->zstd == nullptr) throw std::bad_alloc();
}

Compressor::~Compressor() = default;

void Compressor::Append(std::span<const std::uint8_t> plain, Bytes& out) {
  if (kind_ == Compression::kNone) {
    out.insert(out.end(), plain.begin(), plain.end());
    return;
  }
  const std::size_t begin = out.size();
  LZ4F_preferences_t lz4{};
  lz4.frameInfo.contentSize = plain.size();
  lz4.frameInfo.blockSizeID = LZ4F_max4MB;
  lz4.compressionLevel = level_;
  const bool is_zstd = kind_ == Compression::kZstd;
  const std::size_t bound =
      is_zstd ? ZSTD_compressBound(plain.size()) : LZ4F_compressFrameBound(plain.size(), &lz4);
  out.resize(begin + bound);
  std::size_t size = 0;
  if (is_zstd) {
    size = ZSTD_compressCCtx(contexts_->zstd.get(), out.data() + begin, bound, plain.data(),
                             plain.size(), level_);
    if (ZSTD_isError(size) != 0) throw std::runtime_error(ZSTD_getErrorName(size));
  } else {
    size = LZ4F_compressFrame(out.data() + begin, bound, plain.data(), plain.size(), &lz4);
    if (LZ4F_isError(size) != 0) throw std::runtime_error(LZ4F_getErrorName(size));
  }
  out.resize(begin + size);
}

bool Decompress(std::string_view compression, std::span<const std::uint8_t> stored,
                std::size_t plain_size, Bytes& plain, std::string& error) {
  error.clear();
  if (compression.empty()) {
    plain.assign(stored.begin(), stored.end());
    if (stored.size() != plain_size) error = "its two sizes differ";
    return error.empty();
  }
  if (compression != "lz4" && compression != "zstd") {
    error = "its compression is not known: " + std::string(compression);
    return false;
  }
  plain.resize(plain_size);
  return compression == "zstd" ? DecompressZstd(stored, plain, error)
                               : DecompressLz4(stored, plain, error);
}

}  // namespace kerul::lidar::mcap
