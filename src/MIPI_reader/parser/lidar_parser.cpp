#include "MIPI_reader/parser/lidar_parser.h"

#include <algorithm>
#include <iostream>
#include <span>

#include "MIPI_reader/parser/echo_computation.h"
#include "MIPI_reader/parser/fatal_check.h"
#include "MIPI_reader/parser/packet_context.h"
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "lanes/instruction_set.h"

namespace {

using kerul::lidar::EchoSettings;
using kerul::lidar::LidarPoint;
using kerul::lidar::PacketContext;
using kerul::lidar::PacketPlanes;
using kerul::lidar::RawHeader;
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

EchoSettings SettingsOf(const LidarParserQDV11& parser) noexcept {
  EchoSettings settings{.baseline_samples = parser.baseline_samples,
                        .baseline_rise_gate = parser.baseline_rise_gate,
                        .baseline_rise_limit = parser.baseline_rise_limit,
                        .clip_side_peaks = parser.clip_side_peaks,
                        .keep_bins = parser.keep_bins,
                        .cogw_high_mode = parser.cogw_high_mode};
  if (parser.cogw_filter) settings.cogw_limits = parser.cogw_filter->Limits();
  return settings;
}

}  // namespace

PacketContext kerul::lidar::ContextOf(const LidarParserQDV11& parser, const RawHeader& header,
                                      int echo_count) noexcept {
  const Shots shots = ShotsOfGroup(parser.shot_times, header.group_id);
  return {.settings = SettingsOf(parser),
          .threshold_bins = parser.detect_threshold_bins.data(),
          .threshold_count = static_cast<int>(parser.detect_threshold_bins.size()),
          .shot_times = shots.times,
          .shot_ratio = shots.ratio,
          .first_row = header.group_id * parser.mrow_height,
          .first_col = header.slot_id * parser.group_width,
          .echo_count = std::min(echo_count, kerul::lidar::kEchoSlots)};
}

namespace {

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

using VectorForm = int (*)(const PacketContext&, const std::uint8_t*, LidarPoint*) noexcept;
constexpr kerul::lidar::VectorForms<VectorForm> kForms{kerul::lidar::DecodeBlocksPlain,
                                                       kerul::lidar::DecodeBlocksAvx2,
                                                       kerul::lidar::DecodeBlocksAvx512};

using PlanesForm = int (*)(const PacketContext&, const std::uint8_t*, PacketPlanes&) noexcept;
constexpr kerul::lidar::VectorForms<PlanesForm> kPlanesForms{kerul::lidar::DecodePacketPlain,
                                                             kerul::lidar::DecodePacketAvx2,
                                                             kerul::lidar::DecodePacketAvx512};

// The vector forms write every record whole. A slot that is decoded without a reset must keep
// fields of its earlier content, so it takes the scalar form.
bool FitsLanes(int echo_count) noexcept {
  return echo_count <= LidarPoint::echo_num && LidarPoint::echo_num >= 1;
}

int DecodeBlocksChosen(const PacketContext& context, const std::uint8_t* blocks,
                       LidarPoint* points) noexcept {
  const VectorForm form = FitsLanes(context.echo_count) ? kForms.Chosen() : nullptr;
  return form != nullptr ? form(context, blocks, points)
                         : kerul::lidar::DecodeBlocks(context, blocks, points);
}

// `decode` takes the packet's context and blocks and gives the last block's pixel id.
template <typename Decode>
int TakePacket(LidarParserQDV11& parser, const UdpPacket& packet, int& frame_id, int echo_count,
               Decode&& decode) {
  if (kerul::lidar::ReadMagic(packet.buffer) != raw_packet::kMagic) {
    PrintWrongMagic(packet);
    return -1;
  }
  if (kerul::lidar::ReadVersion(packet.buffer) != raw_packet::kVersion) {
    if (parser.packet_debug) PrintSkippedVersion(packet);
    return -1;
  }
  const RawHeader header = kerul::lidar::ReadRawHeader(packet.buffer);
  frame_id = header.frame_id;
  if (header.ch_num != raw_packet::kBlocks) {
    kerul::lidar::FailAssertion("ch_num == 9", "src/MIPI_reader/parser/lidar_parser", 804,
                                "ParsePacket");
  }

  // The last block's pixel id places the packet.
  const int pixel_id = decode(kerul::lidar::ContextOf(parser, header, echo_count),
                              packet.buffer + raw_packet::kBlocksOffset);

  const int total_packet_id = kerul::lidar::TotalPacketId(header, pixel_id);
  if (parser.packet_debug) PrintPacket(header, total_packet_id, pixel_id);
  if (parser.udp_seq_base == 0) {
    parser.udp_seq_base = static_cast<std::uint32_t>(header.udp_sequence_num);
  }
  return total_packet_id;
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
  return TakePacket(*this, packet, frame_id, echo_count,
                    [&points](const PacketContext& context, const std::uint8_t* blocks) {
                      points.resize(raw_packet::kBlocks);
                      return DecodeBlocksChosen(context, blocks, points.data());
                    });
}

bool LidarParserQDV11::CanParseIntoPlanes(int echo_count) const noexcept {
  return !keep_bins && FitsLanes(echo_count) && kPlanesForms.Chosen() != nullptr;
}

int LidarParserQDV11::ParsePacket(const UdpPacket& packet, PacketPlanes& planes, int& frame_id,
                                  int echo_count) {
  return TakePacket(*this, packet, frame_id, echo_count,
                    [&planes](const PacketContext& context, const std::uint8_t* blocks) {
                      return kPlanesForms.Chosen()(context, blocks, planes);
                    });
}

void LidarParserQDV11::ComputeEchoData(const std::uint16_t* samples, LidarPoint& point,
                                       int echo) const noexcept {
  kerul::lidar::ComputeEcho(SettingsOf(*this), samples, point, echo);
}
