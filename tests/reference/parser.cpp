#include "reference/parser.h"

#include <stdexcept>

#include "reference/numeric.h"

namespace reference {
namespace {

int Word16(const UdpPacket& packet, int offset) {
  return packet.buffer[offset] + 256 * packet.buffer[offset + 1];
}

// 72 bytes hold 48 samples of 12 bits, two samples in three bytes.
void UnpackSamples(const std::uint8_t* block, std::uint16_t* s) {
  for (int pair = 0; pair < 24; ++pair) {
    const int a = block[3 * pair];
    const int b = block[3 * pair + 1];
    const int c = block[3 * pair + 2];
    s[2 * pair] = static_cast<std::uint16_t>(a * 16 + (c & 0x0F));
    s[2 * pair + 1] = static_cast<std::uint16_t>(b * 16 + (c >> 4));
  }
}

float DetectThreshold(const Parser& parser, float noise, float ratio) {
  if (parser.detect_threshold.empty()) return 0.0F;
  const auto n = static_cast<std::int32_t>(parser.detect_threshold.size());
  std::int32_t level = Truncate(noise);
  if (level < 0) level = 0;
  if (level > n - 1) level = n - 1;
  const std::int32_t index = Truncate(static_cast<float>(level) * ratio);
  return static_cast<float>(
      parser.detect_threshold[NearestIndex(index, parser.detect_threshold.size())]);
}

// One window: `address` is its first bin, `samples` its 17 samples.
void DecodeWindow(const Parser& parser, int address, const std::uint16_t* samples, float noise,
                  float baseline, LidarPoint& p, int slot) {
  if (address > 1000) return;
  p.echoes[slot].peak_addr = address;
  p.echoes[slot].noise = noise;
  p.echoes[slot].baseline = baseline;
  ComputeEcho(parser, samples, p, slot);
}

}  // namespace

int ParsePacket(Parser& parser, const UdpPacket& packet, std::vector<LidarPoint>& points,
                int& frame_id, int echo_count) {
  if (Word16(packet, 0) != 0xFFEE) return -1;
  if (Word16(packet, 2) != 0x0B07) return -1;

  frame_id = packet.buffer[675];
  const int slot_id = packet.buffer[671];
  const int group_id = packet.buffer[673];
  const int subpkt_id = packet.buffer[674];
  if (packet.buffer[12] != 9) throw std::logic_error("ch_num == 9");

  points.resize(9);
  for (LidarPoint& point : points) ResetPoint(point);

  int pixel_id = 0;
  for (int block = 0; block < 9; ++block) {
    LidarPoint& p = points[static_cast<std::size_t>(block)];
    std::uint16_t s[48];
    UnpackSamples(packet.buffer + 20 + 72 * block, s);

    pixel_id = s[3];
    p.row = (pixel_id / 12 % 9) % 3 + group_id * 6 + ((pixel_id / 108) & 1) * 3;
    p.col = (pixel_id / 12 % 9) / 3 + slot_id * 6 + (pixel_id % 12) * 24 + (pixel_id / 216) * 3;
    p.pixel_word22 = static_cast<float>(((s[6] << 12) & 0x3FF000) | s[7]);
    p.pixel_word11 = static_cast<float>(s[8] & 0x7FF);

    float shot = 160.0F;
    float ratio = 1.0F;
    if (group_id < static_cast<int>(parser.shot_times.size())) {
      shot = parser.shot_times[static_cast<std::size_t>(group_id)];
      ratio = shot / 160.0F;
    }
    p.shot_times = shot;
    p.shot_ratio = ratio;

    const float noise = static_cast<float>(((s[4] << 12) & 0xFFFF) | s[5]);
    p.detect_threshold = DetectThreshold(parser, noise, ratio);

    if (echo_count < 1) continue;
    const float baseline = 3.0F * (shot * (noise * 0.00048828125F));
    DecodeWindow(parser, s[1], &s[10], noise, baseline, p, 0);
    if (echo_count >= 2) DecodeWindow(parser, s[2], &s[29], noise, baseline, p, 1);
  }

  const int total_packet_id = group_id * 192 + slot_id * 48 + (pixel_id / 72) * 8 + subpkt_id;

  if (parser.udp_seq_base == 0) {
    parser.udp_seq_base = static_cast<std::uint32_t>(Word16(packet, 688)) +
                          65536U * static_cast<std::uint32_t>(Word16(packet, 690));
  }
  return total_packet_id;
}

}  // namespace reference
