#include "MIPI_reader/parser/point_packet_encoder.h"

#include <algorithm>

#include "MIPI_reader/parser/point_block.h"
#include "lanes/instruction_set.h"
#include "lanes/truncation.h"

namespace kerul::lidar {
namespace {

// Low bytes of integers, in unsigned arithmetic: the products below may leave 32 bits.
constexpr std::uint8_t LowByte(std::uint32_t value) noexcept {
  return static_cast<std::uint8_t>(value);
}
constexpr std::uint8_t LowByte(std::int32_t value) noexcept {
  return LowByte(static_cast<std::uint32_t>(value));
}
std::uint8_t TruncatedByte(float value) noexcept { return LowByte(TruncateToInt32(value)); }

// low + factor * trunc(high), low byte.
std::uint8_t PackBytes(std::int32_t low, std::uint32_t factor, float high) noexcept {
  return LowByte(static_cast<std::uint32_t>(low) +
                 factor * static_cast<std::uint32_t>(TruncateToInt32(high)));
}

void StoreU16(std::uint8_t* bytes, std::uint32_t value) noexcept {
  bytes[0] = LowByte(value);
  bytes[1] = LowByte(value >> 8);
}

void StoreU32(std::uint8_t* bytes, std::uint32_t value) noexcept {
  StoreU16(bytes, value);
  StoreU16(bytes + 2, value >> 16);
}

void StoreU32BigEndian(std::uint8_t* bytes, std::uint32_t value) noexcept {
  for (int i = 0; i < 4; ++i) bytes[i] = LowByte(value >> (24 - 8 * i));
}

std::uint8_t EncodeReflectivity(float refl_proc) noexcept {
  return refl_proc > 255.0F ? 255 : TruncatedByte(refl_proc);
}

// Height in the low two bits of the first byte and in the second, beside `extra`; the ground flag
// flips the second byte's top bit.
void PackHeight(const LidarEcho& echo, float extra, PayloadBytes& bytes) noexcept {
  const std::int32_t height = TruncateToInt32(echo.cogh);
  bytes[1] = PackBytes(height % 4, 4, extra);
  bytes[2] = LowByte(height / 4 - (echo.ground ? 128 : 0));
}

// Noise beside a 12-bit number, in three bytes.
PayloadBytes PackNoise(float noise, std::int32_t low, std::uint8_t high) noexcept {
  return {TruncatedByte(noise * 0.0625F), PackBytes(low % 16, 16, noise), high};
}

static_assert(point_flag::kCogwFlagMask == cogw_flags::kAll);

PayloadBytes EncodeFlags(const LidarEcho& echo) noexcept {
  using namespace point_flag;
  const int flags = (echo.cogw_flag & kCogwFlagMask) | echo.highRefl << kHighRefl |
                    echo.highReflBlooming << kBloom | echo.afterPulse << kAfterPulse |
                    echo.ground << kGround | echo.fill_point << kFilled |
                    echo.shot_noise_point << kShotNoise | echo.debug_flag << kDebug |
                    (echo.echo_flags & 1) << kEchoFlag | !echo.detect_pass << kDetectFailed |
                    echo.shot_noise_group_point << kShotNoiseGroup;
  return {EncodeReflectivity(echo.refl_proc), LowByte(flags), LowByte(flags >> 8)};
}

}  // namespace

std::uint8_t EncodeReturnCode(int code) noexcept {
  if (code <= 9) return LowByte(code);
  return LowByte(static_cast<std::uint32_t>(code / 10) << 4 |
                 static_cast<std::uint32_t>(code % 10));
}

std::uint32_t PointPacketSequence(std::uint32_t base, int packet_index,
                                  std::uint8_t marker) noexcept {
  const auto index = static_cast<std::uint32_t>(packet_index);
  if (marker == point_packet::kMarkerOnly) return base + index;
  return base + 2 * index + (marker == point_packet::kMarkerSecond ? 1U : 0U);
}

void WritePointPacketHeader(const PointPacketHeader& header, std::uint8_t* packet) noexcept {
  using namespace point_packet;
  std::copy_n(kMagic, 2, packet + kMagicOffset);
  packet[kVersionOffset] = kVersionMajor;
  packet[kVersionOffset + 1] = kVersionMinor;
  StoreU16(packet + kHeightOffset, static_cast<std::uint32_t>(header.height));
  StoreU16(packet + kWidthOffset, static_cast<std::uint32_t>(header.width));
  packet[kBlocksPerColumnOffset] = LowByte(header.blocks_per_column);
  packet[kBlocksPerRowOffset] = LowByte(header.blocks_per_row);
  packet[kMarkerOffset] = header.marker;
  packet[kUnitOffset] = kUnitMillimetres;
  StoreU16(packet + kPointCountOffset, kPoints);
  packet[kOutputModeOffset] = LowByte(header.output_mode);
  std::copy_n(kTail, 3, packet + kTailOffset);
  packet[kBlockRowOffset] = LowByte(header.packet_index / kBlocksPerRow);
  packet[kBlockColOffset] = LowByte(header.packet_index % kBlocksPerRow);
  packet[kFrameIdOffset] = LowByte(header.frame_id);
  packet[kZeroOffset] = 0;
  packet[kReturnCodeOffset] = EncodeReturnCode(header.echo_output_code);
  StoreU16(packet + kFixedWordOffset, kFixedWord);
  StoreU16(packet + kZeroWordOffset, 0);
  StoreU32BigEndian(packet + kSecondsOffset, header.time.seconds);
  StoreU32(packet + kMicrosecondsOffset, header.time.microseconds);
  packet[kMarkOffset] = kMark;
  StoreU32(packet + kSequenceOffset, header.sequence);
}

std::uint16_t EncodeDistance(float dist_proc, int output_mode) noexcept {
  if (!IsPublishedRange(dist_proc, output_mode)) return 0;
  return static_cast<std::uint16_t>(TruncateToInt32(
      static_cast<double>(dist_proc) / static_cast<double>(point_packet::kUnitMetres)));
}

PayloadBytes EncodePayload(const LidarPoint& point, int echo, int output_mode) noexcept {
  const LidarEcho& e = point.echoes[echo];
  PayloadBytes bytes{};
  switch (OutputMode{output_mode}) {
    case OutputMode::kReflectivity:
      bytes[0] = EncodeReflectivity(e.refl_proc);
      // Deliberate: a product in single precision, which may round up to the next whole number.
      PackHeight(e, 10.0F * point.shot_ratio, bytes);
      return bytes;
    case OutputMode::kPixelWord:
      return {TruncatedByte(point.pixel_word22 * 0.00390625F), TruncatedByte(point.pixel_word22),
              0};
    case OutputMode::kNoiseAndWidth: {
      const std::int32_t width = TruncateToInt32(128.0F * e.cogw);
      return PackNoise(e.noise, width, LowByte(width / 16));
    }
    case OutputMode::kNoiseAndPeak:
      return PackNoise(e.noise, TruncateToInt32(e.peak), TruncatedByte(e.peak * 0.0625F));
    case OutputMode::kNoiseAndHeight:
      return PackNoise(e.noise, TruncateToInt32(e.cogh), TruncatedByte(e.cogh * 0.0625F));
    case OutputMode::kWidthAndPeak:
      return PackNoise(128.0F * e.cogw, TruncateToInt32(e.peak), TruncatedByte(e.peak * 0.0625F));
    case OutputMode::kPixelWordAndHeight:
      return {TruncatedByte(point.pixel_word22 * 0.0625F),
              PackBytes(TruncateToInt32(point.pixel_word22) % 16, 128, e.cogh),
              LowByte(TruncateToInt32(e.cogh) / 2)};
    case OutputMode::kWaveformRms: {
      const float rms = 256.0F * e.waveform_rms_ratio;
      bytes[0] = rms > 255.0F ? 255 : TruncatedByte(rms);
      PackHeight(e, 0.015625F * point.shot_times, bytes);
      return bytes;
    }
    case OutputMode::kFlags:
      return EncodeFlags(e);
    default:
      return {LowByte(e.peak_addr), 0, 0};
  }
}

PayloadBytes EncodeDirection(const AngleCalibGrid& grid, int row, int col) noexcept {
  if (!grid.valid || row < 0 || row >= grid.rows || col < 0 || col >= grid.cols) return {};
  return {AngleCalibGrid::EncodeComponent(grid.At(0, row, col)),
          AngleCalibGrid::EncodeComponent(grid.At(1, row, col)),
          AngleCalibGrid::EncodeComponent(grid.At(2, row, col))};
}

BlockOrigin OriginOfBlock(int packet_index) noexcept {
  using namespace point_packet;
  return {packet_index / kBlocksPerRow * kBlockSide, packet_index % kBlocksPerRow * kBlockSide};
}

const LidarPoint* FindPoint(const FrameRows& rows, int row, int col) noexcept {
  // As unsigned numbers, negative ones exceed every size.
  if (static_cast<std::size_t>(row) >= rows.size()) return nullptr;
  const std::vector<LidarPoint>& pixels = rows[static_cast<std::size_t>(row)];
  if (static_cast<std::size_t>(col) >= pixels.size()) return nullptr;
  return &pixels[static_cast<std::size_t>(col)];
}

namespace {

// The scalar form, for every mode and for blocks that the rows hold only in part.
void WritePointsOneByOne(const FrameRows& rows, const AngleCalibGrid& grid, int packet_index,
                         int echo, int output_mode, std::uint8_t* packet) noexcept {
  const BlockOrigin origin = OriginOfBlock(packet_index);
  std::uint8_t* bytes = packet + point_packet::kPointsOffset;
  for (int col = origin.col; col < origin.col + point_packet::kBlockSide; ++col) {
    for (int row = origin.row; row < origin.row + point_packet::kBlockSide; ++row) {
      std::uint16_t distance = 0;
      PayloadBytes payload{};
      if (const LidarPoint* point = FindPoint(rows, row, col)) {
        distance = EncodeDistance(point->echoes[echo].dist_proc, output_mode);
        payload = OutputMode{output_mode} == OutputMode::kDirection
                      ? EncodeDirection(grid, row, col)
                      : EncodePayload(*point, echo, output_mode);
      }
      StoreU16(bytes, distance);
      std::copy(payload.begin(), payload.end(), bytes + point_packet::kPayloadOffset);
      bytes += point_packet::kPointBytes;
    }
  }
}

using VectorForm = void (*)(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept;
constexpr VectorForms<VectorForm> kForms{WriteBlockPlain, WriteBlockAvx2, WriteBlockAvx512};

// False when the rows do not hold the whole block.
bool FindBlock(const FrameRows& rows, int packet_index, BlockRows& block) noexcept {
  const BlockOrigin origin = OriginOfBlock(packet_index);
  for (int row = 0; row < point_packet::kBlockSide; ++row) {
    const LidarPoint* first = FindPoint(rows, origin.row + row, origin.col);
    if (first == nullptr ||
        FindPoint(rows, origin.row + row, origin.col + point_packet::kBlockSide - 1) == nullptr) {
      return false;
    }
    block.rows[row] = first;
  }
  return true;
}

}  // namespace

void WritePoints(const FrameRows& rows, const AngleCalibGrid& grid, int packet_index, int echo,
                 int output_mode, std::uint8_t* packet) noexcept {
  const VectorForm form =
      OutputMode{output_mode} == OutputMode::kReflectivity ? kForms.Chosen() : nullptr;
  BlockRows block;
  if (form != nullptr && FindBlock(rows, packet_index, block)) {
    form(block, echo, packet + point_packet::kPointsOffset);
  } else {
    WritePointsOneByOne(rows, grid, packet_index, echo, output_mode, packet);
  }
}

}  // namespace kerul::lidar
