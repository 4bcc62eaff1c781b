// What drives a node from inside its process: its members, a source without a network, the ring.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "MIPI_reader/node/lidar_node.h"

// The one door to the node's members.
struct LidarNodeTestAccess {
  LidarNode& node;

  std::unique_ptr<kerul::lidar::Source>& source() { return node.source_; }
  std::atomic<bool>& running() { return node.running_; }
  kerul::lidar::LidarFrame& frame() { return *node.frame_; }
  std::shared_ptr<kerul::lidar::LidarFrame>& upsampled_frame() { return node.upsampled_frame_; }
  LidarParserQDV11& parser() { return *node.parser_; }
  int& next_mrow() { return node.next_mrow_; }
  int& current_frame_id() { return node.current_frame_id_; }
  std::vector<int>& mrow_packet_count() { return node.mrow_packet_count_; }
  std::vector<std::vector<bool>>& mrow_packet_seen() { return node.mrow_packet_seen_; }
  std::vector<float>& cur_dist_map() { return node.cur_dist_map_; }
  std::vector<float>& prev_dist_map() { return node.prev_dist_map_; }
  bool prev_dist_map_valid() { return node.prev_dist_map_valid_; }
  LidarNode::EchoOutputPlan& echo_plan() { return node.echo_plan_; }
  kerul::lidar::ShmUdpWriter* shm_writer() { return node.shm_writer_.get(); }
  std::unique_ptr<kerul::lidar::SocketSource>& udp_output() { return node.udp_output_; }
  std::int64_t& frame_busy_ns() { return node.frame_busy_ns_; }
  std::chrono::system_clock::time_point& packet_start_time() { return node.packet_start_time_; }
  bool& upsampled_frame_written() { return node.upsampled_frame_written_; }
  kerul::lidar::BloomSuppressCalib& bloom_calib() { return node.bloom_calib_; }
  kerul::lidar::AngleCalibGrid& angle_grid() { return node.angle_grid_; }
  const kerul::lidar::TransformParam& transform() { return *node.transform_; }
  std::uint64_t& export_file_seq() { return node.export_file_seq_; }
  bool detect_threshold_valid() { return node.detect_threshold_valid_; }
  void SetMiniflashRows(int rows) {
    node.miniflash_rows_ = rows;
    node.ResetMrowProgress();
  }
  // In the place of the worker; ends at once.
  void StartIdleWorker() {
    node.thread_ = std::make_unique<std::thread>([] {});
  }
  bool HasThread() { return node.thread_ != nullptr; }
  bool HasDistCalib() { return node.dist_calib_ != nullptr; }
  bool HasRetroCalib() { return node.retro_calib_ != nullptr; }
  bool HasHighReflCheck() { return node.high_refl_check_ != nullptr; }
  bool HasEnvCalib() { return node.env_calib_ != nullptr; }
  bool HasHighThresholdMap() { return node.high_threshold_map_ != nullptr; }
  bool HasCogwFilter() { return node.cogw_filter_ != nullptr; }
  const kerul::lidar::EnvCalib& env_calib() { return *node.env_calib_; }
  const kerul::lidar::RetroCalib& retro_calib() { return *node.retro_calib_; }

  int GetOnePacket(kerul::lidar::UdpPacket& packet) {
    return node.GetOnePacket(node.source_.get(), packet);
  }
  void ResetFrame(int id) { node.ResetFrame(id); }
  void SettleFrame() { node.SettleFrame(); }
  void UpdateFrames(int index, std::vector<kerul::lidar::LidarPoint>& points) {
    node.UpdateFrames(index, points);
  }
  void PrefetchPixels(const kerul::lidar::UdpPacket& packet) { node.PrefetchPixels(packet); }
  void CopyIntoFrame(const std::vector<kerul::lidar::LidarPoint>& points) {
    node.CopyIntoFrame(points);
  }
  void CalibratePoints(std::vector<kerul::lidar::LidarPoint>& points) {
    node.CalibratePoints(points);
  }
  void ProcessMiniflashRow(int m_row) { node.ProcessMiniflashRow(m_row); }
  void ForwardUDP710Row(int m_row) { node.ForwardUDP710Row(m_row, node.echo_plan_); }
};

namespace kerul::lidar::testing {

// Plays a script of datagrams, then runs `at_end` and gives nothing more.
class ScriptedSource : public Source {
 public:
  std::deque<UdpPacket> script;
  std::function<void()> at_end = [] {};
  std::string type = "SCRIPT";
  int result_at_end = 0;
  bool opened = true;
  int receive_calls = 0;

  std::string GetType() override { return type; }
  bool Open() override { return true; }
  void Close() override {}
  bool IsOpened() override { return opened; }
  void SetClientIp(const std::string&) override {}
  int Send(const std::uint8_t*, std::uint16_t length, int) override { return length; }
  int SetSocketBufferSize(std::uint32_t) override { return 0; }
  int Receive(UdpPacket& packet, std::uint16_t, int, int) override {
    ++receive_calls;
    if (script.empty()) {
      at_end();
      return result_at_end;
    }
    std::memcpy(packet.buffer, script.front().buffer, script.front().length);
    const int length = script.front().length;
    script.pop_front();
    return length;
  }
};

inline std::string UniqueShmName(const std::string& what) {
  static std::atomic<int> count{0};
  return "/kerul_test_" + what + "_" + std::to_string(getpid()) + "_" + std::to_string(count++);
}

// Reads on in a ring that is written by this process.
class RingTail {
 public:
  // The point packets published since the last call, oldest first. No more may have come than the
  // ring has slots.
  std::vector<std::vector<std::uint8_t>> Take(ShmUdpWriter& writer) {
    std::vector<std::vector<std::uint8_t>> packets;
    const std::uint8_t* data = writer.Data();
    const std::uint32_t slots = (writer.Size() - shm_ring::kHeaderBytes) / shm_ring::kStride;
    for (; taken_ < writer.Seq(); ++taken_) {
      const std::uint8_t* slot =
          data + shm_ring::kHeaderBytes + (taken_ % slots) * shm_ring::kStride;
      std::uint16_t length = 0;
      std::memcpy(&length, slot + 4, sizeof(length));
      packets.emplace_back(slot + 8, slot + 8 + length);
    }
    return packets;
  }

 private:
  std::uint32_t taken_ = 0;
};

}  // namespace kerul::lidar::testing
