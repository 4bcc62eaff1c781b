// The scalar form of the decoding of one pixel block. `tell` hears what it reads and decides; it
// changes nothing. Members of a teller, each for one record: Block, NoWindow.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "lanes/truncation.h"

namespace kerul::lidar {
namespace packet_decoding {

// The detection level and the entry of its table, -1 without a table.
struct DetectionLevel {
  int by_noise = -1;  // the noise as an entry, before the shot ratio
  int index = -1;
  float level = 0.0F;
};

// A block as it stands in the packet, and what its two windows share.
struct BlockWords {
  const RawPixel& pixel;
  const std::uint16_t* samples;  // 48 of the block
  DetectionLevel detection;
  float baseline;  // of the noise, level units
};

// A window that starts after the last allowed bin is no echo: peak_addr > kMaxPeakAddr.
struct WindowStart {
  int slot;
  int peak_addr;
};

// The clamp before the multiplication belongs to the rule. The one after it keeps the index in the
// table, which is shorter than the largest ratio can reach.
inline DetectionLevel DetectThreshold(std::span<const std::uint16_t> bins, float noise,
                                      float ratio) noexcept {
  if (bins.empty()) return {};
  const int last = static_cast<int>(bins.size()) - 1;
  const int by_noise = std::clamp(TruncateToInt32(noise), 0, last);
  const int index = std::clamp(TruncateToInt32(static_cast<float>(by_noise) * ratio), 0, last);
  return {.by_noise = by_noise,
          .index = index,
          .level = static_cast<float>(bins[static_cast<std::size_t>(index)])};
}

// Decodes the window of one echo slot, unless its address says that there is none.
template <typename Tell, typename Compute>
void DecodeEcho(const EchoSettings& settings, const std::uint16_t* samples, const RawPixel& pixel,
                float baseline, LidarPoint& point, int slot, Tell& tell,
                const Compute& compute) noexcept {
  if (pixel.peak_addr[slot] > raw_packet::kMaxPeakAddr) {
    tell.NoWindow({.slot = slot, .peak_addr = pixel.peak_addr[slot]});
    return;
  }
  LidarEcho& echo = point.echoes[slot];
  echo.peak_addr = pixel.peak_addr[slot];
  echo.noise = static_cast<float>(pixel.noise);
  echo.baseline = baseline;
  const int window = raw_packet::kWindowSample + raw_packet::kWindowStride * slot;
  compute(settings, samples + window, point, slot);
}

}  // namespace packet_decoding

// Decodes one pixel block of 72 bytes into a point in its reset state. Gives the block's pixel id.
//   compute  takes what ComputeEcho takes, for each window that is an echo's
template <typename Tell, typename Compute>
int DecodeBlock(const PacketContext& context, const std::uint8_t* block, LidarPoint& point,
                Tell& tell, const Compute& compute) noexcept {
  using namespace packet_decoding;
  std::array<std::uint16_t, raw_packet::kSamplesPerBlock> samples;
  UnpackBlock(block, samples.data());
  const RawPixel pixel = ReadRawPixel(samples.data());
  const int place = kPixelPlaces.offsets[pixel.pixel_id];
  point.row = (place & 0xFFFF) + context.first_row;
  point.col = (place >> 16) + context.first_col;
  point.pixel_word22 = static_cast<float>(pixel.pixel_word22);
  point.pixel_word11 = static_cast<float>(pixel.pixel_word11);
  point.shot_times = context.shot_times;
  point.shot_ratio = context.shot_ratio;
  const auto noise = static_cast<float>(pixel.noise);
  const DetectionLevel detection =
      DetectThreshold({context.threshold_bins, static_cast<std::size_t>(context.threshold_count)},
                      noise, context.shot_ratio);
  point.detect_threshold = detection.level;
  // Level of a three-bin sum of background: one noise count is 1/2048 per shot and bin.
  const float baseline = 3.0F * (context.shot_times * (noise * 0.00048828125F));
  tell.Block(
      {.pixel = pixel, .samples = samples.data(), .detection = detection, .baseline = baseline});
  for (int slot = 0; slot < context.echo_count; ++slot) {
    DecodeEcho(context.settings, samples.data(), pixel, baseline, point, slot, tell, compute);
  }
  return pixel.pixel_id;
}

}  // namespace kerul::lidar
