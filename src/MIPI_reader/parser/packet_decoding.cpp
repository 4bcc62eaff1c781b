#include "MIPI_reader/parser/packet_decoding.h"

#include <algorithm>
#include <array>
#include <span>

#include "MIPI_reader/parser/raw_packet.h"
#include "lanes/instruction_set.h"
#include "lanes/truncation.h"

namespace kerul::lidar {
namespace {

// The clamp before the multiplication belongs to the rule. The one after it keeps the index in the
// table, which is shorter than the largest ratio can reach.
float DetectThreshold(std::span<const std::uint16_t> bins, float noise, float ratio) noexcept {
  if (bins.empty()) return 0.0F;
  const int last = static_cast<int>(bins.size()) - 1;
  const int by_noise = std::clamp(TruncateToInt32(noise), 0, last);
  const int index = TruncateToInt32(static_cast<float>(by_noise) * ratio);
  return static_cast<float>(bins[static_cast<std::size_t>(std::clamp(index, 0, last))]);
}

// Decodes the window of one echo slot, unless its address says that there is none.
void DecodeEcho(const EchoSettings& settings, const std::uint16_t* samples, const RawPixel& pixel,
                float baseline, LidarPoint& point, int slot) noexcept {
  if (pixel.peak_addr[slot] > raw_packet::kMaxPeakAddr) return;
  LidarEcho& echo = point.echoes[slot];
  echo.peak_addr = pixel.peak_addr[slot];
  echo.noise = static_cast<float>(pixel.noise);
  echo.baseline = baseline;
  const int window = raw_packet::kWindowSample + raw_packet::kWindowStride * slot;
  ComputeEcho(settings, samples + window, point, slot);
}

// Decodes one pixel block into a point in its reset state. Gives the block's pixel id.
int DecodeBlock(const PacketContext& context, const std::uint8_t* block,
                LidarPoint& point) noexcept {
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
  point.detect_threshold =
      DetectThreshold({context.threshold_bins, static_cast<std::size_t>(context.threshold_count)},
                      noise, context.shot_ratio);
  // Level of a three-bin sum of background: one noise count is 1/2048 per shot and bin.
  const float baseline = 3.0F * (context.shot_times * (noise * 0.00048828125F));
  for (int slot = 0; slot < context.echo_count; ++slot) {
    DecodeEcho(context.settings, samples.data(), pixel, baseline, point, slot);
  }
  return pixel.pixel_id;
}

}  // namespace

int DecodeBlocks(const PacketContext& context, const std::uint8_t* blocks,
                 LidarPoint* points) noexcept {
  int pixel_id = 0;
  for (int i = 0; i < raw_packet::kBlocks; ++i) {
    points[i].ResetEchoes();
    pixel_id = DecodeBlock(context, blocks + i * raw_packet::kBlockBytes, points[i]);
  }
  return pixel_id;
}

void StorePacket(const PacketPlanes& planes, LidarPoint* const* places) noexcept {
  using VectorForm = void (*)(const PacketPlanes&, LidarPoint* const*) noexcept;
  static constexpr VectorForms<VectorForm> kForms{StorePacketPlain, StorePacketAvx2,
                                                  StorePacketAvx512};
  kForms.Chosen()(planes, places);
}

}  // namespace kerul::lidar
