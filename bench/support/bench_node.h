// The real node, brought up by its own constructor from the simulated sensor's calibration, with a
// source that plays frames out of memory.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "MIPI_reader/node/lidar_node.h"
#include "MIPI_reader/node/row_passes.h"
#include "support/bench_input.h"

// The one door to the node's members.
struct LidarNodeTestAccess {
  LidarNode& node;

  std::unique_ptr<kerul::lidar::Source>& source() { return node.source_; }
  std::atomic<bool>& running() { return node.running_; }
  const kerul::lidar::DefaultConfig& config() { return *node.config_; }
  kerul::lidar::LidarFrame& frame() { return *node.frame_; }
  kerul::lidar::LidarFrame& upsampled_frame() { return *node.upsampled_frame_; }
  LidarParserQDV11& parser() { return *node.parser_; }
  kerul::lidar::ShmUdpWriter& shm_writer() { return *node.shm_writer_; }
  kerul::lidar::StalePixels& stale_pixels() { return node.stale_pixels_; }
  const kerul::lidar::EnvCalib& env_calib() { return *node.env_calib_; }
  const kerul::lidar::DistCalib& dist_calib() { return *node.dist_calib_; }
  const kerul::lidar::HighThresholdMap& high_threshold_map() { return *node.high_threshold_map_; }
  const kerul::lidar::HighReflCheck& high_refl_check() { return *node.high_refl_check_; }
  const kerul::lidar::RetroCalib& retro_calib() { return *node.retro_calib_; }

  const kerul::lidar::GroundSettings& ground_settings() { return node.ground_settings_; }
  const kerul::lidar::AngleCalibGrid& angle_grid() { return node.angle_grid_; }
  const kerul::lidar::BloomSuppressCalib& bloom_calib() { return node.bloom_calib_; }
  const kerul::lidar::EchoOutputPlan& echo_plan() { return node.echo_plan_; }

  void ResetFrame(int id) { node.ResetFrame(id); }
  void UpdateFrames(int index, std::vector<kerul::lidar::LidarPoint>& points) {
    node.UpdateFrames(index, points);
  }
  void CalibratePoints(std::vector<kerul::lidar::LidarPoint>& points) {
    node.CalibratePoints(points);
  }
  using PixelRecords = LidarNode::PixelRecords;
  bool StaysInPlanes() { return node.StaysInPlanes(); }
  PixelRecords PrefetchPixels(const kerul::lidar::UdpPacket& packet) {
    return node.PrefetchPixels(packet);
  }
  void CalibratePlanes(kerul::lidar::PacketPlanes& planes) {
    node.packet_calibrator_->Calibrate(planes);
  }
  void StoreIntoFrame(const kerul::lidar::PacketPlanes& planes, const PixelRecords& records) {
    node.StoreIntoFrame(planes, records);
  }
  void CopyIntoFrame(const std::vector<kerul::lidar::LidarPoint>& points) {
    node.CopyIntoFrame(points);
  }
  kerul::lidar::RowPassSettings PassSettings(int m_row) { return node.PassSettings(m_row); }
  void RunPass(kerul::lidar::RowPass pass, int m_row) { node.RunPass(pass, m_row); }
  void RecordDistances(int m_row) { node.RecordDistances(m_row); }
  void Forward(int m_row) { node.ForwardUDP710Row(m_row, node.echo_plan_); }
};

namespace kerul::lidar::bench {

// The clock's bytes are zero, so that packets of two runs can be compared.
using PublishedPacket = std::array<std::uint8_t, 249>;

// Plays one frame's packets and then stops the packet loop.
class MemorySource : public Source {
 public:
  explicit MemorySource(std::atomic<bool>& running) : running_(running) {}
  void Play(const FramePackets& packets) {
    packets_ = &packets;
    next_ = 0;
  }

  std::string GetType() override { return "UDP"; }
  bool Open() override { return true; }
  void Close() override {}
  bool IsOpened() override { return true; }
  void SetClientIp(const std::string&) override {}
  int Send(const std::uint8_t*, std::uint16_t length, int) override { return length; }
  int SetSocketBufferSize(std::uint32_t) override { return 0; }
  int Receive(UdpPacket& packet, std::uint16_t, int, int) override {
    const RawPacket& raw = (*packets_)[next_];
    // The loop sees the cleared flag only after it has worked off this packet.
    if (++next_ == packets_->size()) running_ = false;
    std::memcpy(packet.buffer, raw.data(), raw.size());
    return static_cast<int>(raw.size());
  }

 private:
  std::atomic<bool>& running_;
  const FramePackets* packets_ = nullptr;
  std::size_t next_ = 0;
};

// The first one silences the process's std::cout for good: the node prints a line for each frame.
class BenchNode {
 public:
  // Default configuration with a ring of its own name. Throws what the node's start throws.
  explicit BenchNode(const simulator::CalibrationBlobs& calibration);
  ~BenchNode();
  BenchNode(const BenchNode&) = delete;
  BenchNode& operator=(const BenchNode&) = delete;

  // The node's own packet loop over one frame. Frames must come with rising frame ids.
  void Run(const FramePackets& packets) {
    source_->Play(packets);
    RunLoop();
  }
  // The same with the node's current source, which must stop the loop.
  void RunLoop() {
    Access().running() = true;
    node_->Run();
  }

  const std::string& RingName() const noexcept { return shm_name_; }
  LidarNodeTestAccess Access() { return LidarNodeTestAccess{*node_}; }
  // The point packets that went into the ring since the last call, oldest first.
  std::vector<PublishedPacket> TakePublished();
  // Skips what went into the ring since then; it may be more than the ring holds.
  void SkipPublished() { taken_ = Access().shm_writer().Seq(); }
  // Puts the memory source back after another one.
  void UseMemorySource();

 private:
  std::string shm_name_;
  std::unique_ptr<LidarNode> node_;
  MemorySource* source_ = nullptr;
  std::uint32_t taken_ = 0;
};

}  // namespace kerul::lidar::bench
