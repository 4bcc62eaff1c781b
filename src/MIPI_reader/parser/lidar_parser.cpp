#include "MIPI_reader/parser/lidar_parser.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <span>

#include "MIPI_reader/parser/echo_computation.h"
#include "MIPI_reader/parser/fatal_check.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "MIPI_reader/parser/truncation.h"

namespace {

using kerul::lidar::EchoSettings;
using kerul::lidar::LidarEcho;
using kerul::lidar::LidarPoint;
using kerul::lidar::RawHeader;
using kerul::lidar::RawPixel;
using kerul::lidar::UdpPacket;
namespace raw_packet = kerul::lidar::raw_packet;

constexpr float kNominalShots = 160.0F;

struct Shots {
  float times;
  float ratio;
};

Shots ShotsOfGroup(std::span<const float> table, std::size_t group_id) noexcept {
  if (group_id >= table.size()) return {kNominalShots, 1.0F};
  return {table[group_id], table[group_id] / kNominalShots};
}

// The clamp before the multiplication belongs to the rule; the one behind it keeps the index in
// the table, which is shorter than the largest ratio can reach.
float DetectThreshold(std::span<const std::uint16_t> bins, float noise, float ratio) noexcept {
  if (bins.empty()) return 0.0F;
  const int last = static_cast<int>(bins.size()) - 1;
  const int by_noise = std::clamp(kerul::lidar::TruncateToInt32(noise), 0, last);
  const int index = kerul::lidar::TruncateToInt32(static_cast<float>(by_noise) * ratio);
  return static_cast<float>(bins[static_cast<std::size_t>(std::clamp(index, 0, last))]);
}

EchoSettings SettingsOf(const LidarParserQDV11& parser) noexcept {
  EchoSettings settings{.baseline_samples = parser.baseline_samples,
                        .baseline_rise_gate = parser.baseline_rise_gate,
                        .baseline_rise_limit = parser.baseline_rise_limit,
                        .clip_side_peaks = parser.clip_side_peaks,
                        .keep_bins = parser.keep_bins,
                        .cogw_high_mode = parser.cogw_high_mode};
  if (parser.cogw_filter) {
    settings.cogw_low_curve = parser.cogw_filter->cogw_low_curve.data();
    settings.cogw_gate_curve = parser.cogw_filter->cogw_gate_curve.data();
    settings.cogw_high_curve = parser.cogw_filter->cogw_high_curve.data();
  }
  return settings;
}

void PrintWrongMagic(const UdpPacket& packet) {
  std::cout << "[DEBUG] UDP header doesn't match 0xEE, 0xFF, "
            << " udpPacket.buffer length = " << static_cast<std::int16_t>(packet.length) << ": ";
  for (int i = 0; i < 10; ++i) std::cout << ' ' << static_cast<int>(packet.buffer[i]);
  std::cout << '\n';
}

void PrintSkippedVersion(const UdpPacket& packet) {
  const std::uint8_t* version = packet.buffer + raw_packet::kVersionOffset;
  std::cout << "[DEBUG] skipping packet v" << static_cast<int>(version[0]) << '.'
            << static_cast<int>(version[1]) << '\n';
}

void PrintPacket(const RawHeader& header, int total_packet_id, int pixel_id) {
  std::cout << "[PacketDebug]"
            << " packet_type=" << header.packet_type
            << " frame_id=" << static_cast<int>(header.frame_id)
            << " scan_mode=" << static_cast<int>(header.scan_mode)
            << " mipi_packet_id=" << static_cast<int>(header.mipi_packet_id)
            << " subpkt_id=" << static_cast<int>(header.subpkt_id)
            << " slot_id=" << static_cast<int>(header.slot_id)
            << " group_id=" << static_cast<int>(header.group_id)
            << " total_packet_id=" << total_packet_id << " frame_duration=" << header.frame_duration
            << " timestamp=" << header.timestamp << " pixel_id=" << pixel_id
            << " udp_sequence_num=" << header.udp_sequence_num
            << " m_row=" << static_cast<int>(header.group_id) << '\n';
}

// What the nine pixels of a packet share.
struct PacketContext {
  EchoSettings settings;
  std::span<const std::uint16_t> threshold_bins;
  Shots shots;
  int group_id;
  int slot_id;
  int mrow_height;
  int group_width;
  int echo_count;
};

// Decodes the window of one echo slot, unless its address says that there is none.
void DecodeEcho(const EchoSettings& settings, const std::uint16_t* samples, const RawPixel& pixel,
                float baseline, LidarPoint& point, int slot) noexcept {
  if (pixel.peak_addr[slot] > raw_packet::kMaxPeakAddr) return;
  LidarEcho& echo = point.echoes[slot];
  echo.peak_addr = pixel.peak_addr[slot];
  echo.noise = static_cast<float>(pixel.noise);
  echo.baseline = baseline;
  const int window = raw_packet::kWindowSample + raw_packet::kWindowStride * slot;
  kerul::lidar::ComputeEcho(settings, samples + window, point, slot);
}

// Decodes one pixel block into a point in its reset state. Gives the block's pixel id.
int DecodeBlock(const PacketContext& context, const std::uint8_t* block,
                LidarPoint& point) noexcept {
  std::array<std::uint16_t, raw_packet::kSamplesPerBlock> samples;
  kerul::lidar::UnpackBlock(block, samples.data());
  const RawPixel pixel = kerul::lidar::ReadRawPixel(samples.data());
  const kerul::lidar::PixelPlace place = kerul::lidar::PlacePixel(
      pixel.pixel_id, context.group_id, context.slot_id, context.mrow_height, context.group_width);
  point.row = place.row;
  point.col = place.col;
  point.pixel_word22 = static_cast<float>(pixel.pixel_word22);
  point.pixel_word11 = static_cast<float>(pixel.pixel_word11);
  point.shot_times = context.shots.times;
  point.shot_ratio = context.shots.ratio;
  const auto noise = static_cast<float>(pixel.noise);
  point.detect_threshold = DetectThreshold(context.threshold_bins, noise, context.shots.ratio);
  // Level of a three-bin sum of background: one noise count is 1/2048 per shot and bin.
  const float baseline = 3.0F * (context.shots.times * (noise * 0.00048828125F));
  for (int slot = 0; slot < context.echo_count; ++slot) {
    DecodeEcho(context.settings, samples.data(), pixel, baseline, point, slot);
  }
  return pixel.pixel_id;
}

}  // namespace

std::string LidarParser::GetName() { return name; }
int LidarParser::GetNPacketPerFrame() { return n_packet_per_frame; }
int LidarParser::GetNPower() { return n_power; }
int LidarParser::Height() { return 128; }
int LidarParser::Width() { return 360; }
int LidarParser::GetNTOFs(const int& /*power*/) { return 100; }
void LidarParser::SetMiniflashRows(int /*rows*/) {}

int LidarParser::GetPacketFromUsbFrame(const char* /*frame*/, UdpPacket& /*packet*/, int /*index*/,
                                       int /*power*/) {
  std::cout << "[WARN] this lidar_type has not been implemented" << '\n';
  return -1;
}

std::string LidarParserQDV11::GetName() { return type_name; }
int LidarParserQDV11::GetNPacketPerFrame() { return packet_count; }
int LidarParserQDV11::GetNPower() { return power_count; }
int LidarParserQDV11::Height() { return miniflash_rows * mrow_height; }
int LidarParserQDV11::Width() { return col_groups * group_width; }
int LidarParserQDV11::GetNTOFs(const int& /*power*/) { return 100; }
void LidarParserQDV11::SetMiniflashRows(int /*rows*/) {}

int LidarParserQDV11::ParsePacket(const UdpPacket& packet, std::vector<LidarPoint>& points,
                                  int& frame_id, int echo_count) {
  if (kerul::lidar::ReadMagic(packet.buffer) != raw_packet::kMagic) {
    PrintWrongMagic(packet);
    return -1;
  }
  if (kerul::lidar::ReadVersion(packet.buffer) != raw_packet::kVersion) {
    if (packet_debug) PrintSkippedVersion(packet);
    return -1;
  }
  const RawHeader header = kerul::lidar::ReadRawHeader(packet.buffer);
  frame_id = header.frame_id;
  if (header.ch_num != raw_packet::kBlocks) {
    kerul::lidar::FailAssertion("ch_num == 9", "src/MIPI_reader/parser/lidar_parser", 804,
                                __func__);
  }

  const PacketContext context{.settings = SettingsOf(*this),
                              .threshold_bins = detect_threshold_bins,
                              .shots = ShotsOfGroup(shot_times, header.group_id),
                              .group_id = header.group_id,
                              .slot_id = header.slot_id,
                              .mrow_height = mrow_height,
                              .group_width = group_width,
                              .echo_count = std::min(echo_count, kerul::lidar::kEchoSlots)};
  points.resize(raw_packet::kBlocks);
  for (LidarPoint& point : points) point.ResetEchoes();
  const std::uint8_t* block = packet.buffer + raw_packet::kBlocksOffset;
  int pixel_id = 0;  // that of the last block places the packet
  for (LidarPoint& point : points) {
    pixel_id = DecodeBlock(context, block, point);
    block += raw_packet::kBlockBytes;
  }

  const int total_packet_id = kerul::lidar::TotalPacketId(header, pixel_id);
  if (packet_debug) PrintPacket(header, total_packet_id, pixel_id);
  if (udp_seq_base == 0) udp_seq_base = static_cast<std::uint32_t>(header.udp_sequence_num);
  return total_packet_id;
}

void LidarParserQDV11::ComputeEchoData(const std::uint16_t* samples, LidarPoint& point,
                                       int echo) const noexcept {
  kerul::lidar::ComputeEcho(SettingsOf(*this), samples, point, echo);
}
