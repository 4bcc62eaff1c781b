#include "kernel_input.h"

#include <cstring>
#include <map>

namespace kerul::lidar::bench {

ReferenceTables MakeReferenceTables(LidarNodeTestAccess node) {
  const LidarParserQDV11& parser = node.parser();
  ReferenceTables tables;
  tables.parser = {.keep_bins = parser.keep_bins,
                   .clip_side_peaks = parser.clip_side_peaks,
                   .cogw_high_mode = parser.cogw_high_mode,
                   .baseline_samples = parser.baseline_samples,
                   .baseline_rise_gate = parser.baseline_rise_gate,
                   .baseline_rise_limit = parser.baseline_rise_limit,
                   .shot_times = parser.shot_times,
                   .detect_threshold = parser.detect_threshold_bins,
                   .width_curves = {},
                   .angle_grid = parser.angle_grid,
                   .udp_seq_base = 0};
  const DefaultTables& defaults = node.config().tables;
  tables.parser.width_curves = {defaults.cogw_a, defaults.cogw_b, defaults.cogw_c};
  tables.environment = {defaults.env_cogh, defaults.env_cogh_high, defaults.env_cogt,
                        node.config().env_bias};
  const DistCalib& dist = node.dist_calib();
  tables.range = {dist.curve, dist.offset, dist.curve_high};
  const HighThresholdMap& map = node.high_threshold_map();
  tables.height_map = {map.cogh_in, map.cogh_out};
  const RetroCalib& retro = node.retro_calib();
  tables.reflectivity = {retro.retro_curve, retro.retro_scale, retro.high_refl_check,
                         retro.cogh_efficiant, retro.retro_filter};
  return tables;
}

const std::vector<FramePackets>& FramesOf(const std::string& scene) {
  static std::map<std::string, std::vector<FramePackets>> made;
  std::vector<FramePackets>& frames = made[scene];
  if (frames.empty()) frames = MakeFrames(scene, kFramesPerScene);
  return frames;
}

UdpPacket MakeDatagram(const RawPacket& raw) {
  UdpPacket packet{};
  std::memcpy(packet.buffer, raw.data(), raw.size());
  packet.length = static_cast<std::uint16_t>(raw.size());
  return packet;
}

std::vector<UdpPacket> BatchOfDatagrams(const std::string& scene, int i) {
  const std::vector<FramePackets>& frames = FramesOf(scene);
  const FramePackets& frame =
      frames[static_cast<std::size_t>(i / kBatchesPerFrame) % frames.size()];
  const auto first = static_cast<std::size_t>(i % kBatchesPerFrame * kBatchPackets);
  std::vector<UdpPacket> batch;
  for (std::size_t k = 0; k < kBatchPackets; ++k) batch.push_back(MakeDatagram(frame[first + k]));
  return batch;
}

const std::vector<std::vector<Points>>& ParsedBatches(const std::string& scene, BenchNode& node) {
  static std::map<std::string, std::vector<std::vector<Points>>> made;
  std::vector<std::vector<Points>>& batches = made[scene];
  if (!batches.empty()) return batches;
  LidarNodeTestAccess access = node.Access();
  int frame_id = 0;
  for (int i = 0; i < kFramesPerScene * kBatchesPerFrame; ++i) {
    std::vector<Points>& batch = batches.emplace_back();
    for (const UdpPacket& packet : BatchOfDatagrams(scene, i)) {
      access.parser().ParsePacket(packet, batch.emplace_back(), frame_id, access.config().echo_num);
    }
  }
  return batches;
}

const std::vector<std::vector<Points>>& CalibratedFrames(const std::string& scene,
                                                         BenchNode& node) {
  static std::map<std::string, std::vector<std::vector<Points>>> made;
  std::vector<std::vector<Points>>& frames = made[scene];
  if (!frames.empty()) return frames;
  LidarNodeTestAccess access = node.Access();
  const std::vector<std::vector<Points>>& batches = ParsedBatches(scene, node);
  for (std::size_t i = 0; i < batches.size(); ++i) {
    for (Points points : batches[i]) {
      access.CalibratePoints(points);
      access.CopyIntoFrame(points);
    }
    if ((i + 1) % kBatchesPerFrame == 0) frames.push_back(access.frame().points);
  }
  return frames;
}

}  // namespace kerul::lidar::bench
