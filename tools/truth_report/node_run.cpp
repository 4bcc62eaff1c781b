#include "truth_report/node_run.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "MIPI_reader/parser/point_packet_layout.h"
#include "output/shm_words.h"
#include "sensor_simulator/raw_packet.h"
#include "support/inert_source.h"
#include "support/silent_cout.h"

// The one door to the node's members.
struct LidarNodeTestAccess {
  static void SetSource(LidarNode& node, std::unique_ptr<kerul::lidar::Source> source) {
    node.source_ = std::move(source);
  }
  static std::atomic<bool>& Running(LidarNode& node) { return node.running_; }
};

namespace kerul::lidar::report {
namespace {

constexpr auto kModeWithFlags = static_cast<std::uint16_t>(OutputMode::kFlags);
constexpr std::uint16_t kBothSlotsAsTheyStand = 34;
// More than the 3456 packets of a frame, which are read when the frame is complete.
constexpr std::uint32_t kRingSlots = 8192;

// Plays packets out of memory and stops the packet loop after the last one.
class MemorySource : public InertSource {
 public:
  MemorySource(std::vector<simulator::RawPacket> packets, std::atomic<bool>& running)
      : packets_(std::move(packets)), running_(running) {}

  int Receive(UdpPacket& packet, std::uint16_t, int, int) override {
    const simulator::RawPacket& raw = packets_[next_];
    // The loop sees the cleared flag only after it has worked off this packet.
    if (++next_ == packets_.size()) running_ = false;
    std::memcpy(packet.buffer, raw.data(), raw.size());
    return static_cast<int>(raw.size());
  }

 private:
  std::vector<simulator::RawPacket> packets_;
  std::atomic<bool>& running_;
  std::size_t next_ = 0;
};

// A directory that is gone when the node has read it.
class CalibrationDirectory {
 public:
  explicit CalibrationDirectory(const simulator::CalibrationBlobs& blobs) {
    std::string pattern = (std::filesystem::temp_directory_path() / "truth_report_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
    root_ = pattern;
    place_ = simulator::WriteBlobs(blobs, root_);
  }
  ~CalibrationDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  CalibrationDirectory(const CalibrationDirectory&) = delete;
  CalibrationDirectory& operator=(const CalibrationDirectory&) = delete;
  std::string Path() const { return place_.string(); }

 private:
  std::filesystem::path root_;
  std::filesystem::path place_;
};

std::string UniqueRingName() {
  static std::atomic<int> count{0};
  return "/truth_report_" + std::to_string(getpid()) + "_" + std::to_string(count++);
}

}  // namespace

DefaultConfig ConfigWith(const Passes& passes) {
  DefaultConfig config = default_config::kConfig;
  config.output_mode = kModeWithFlags;
  config.echo_output_code = kBothSlotsAsTheyStand;
  config.ground_enable = passes.ground;
  config.ground_plane_enable = passes.plane;
  config.neighbor_check_enable = passes.neighbours;
  config.shot_noise_enable = passes.shot_noise;
  config.high_ref_blooming = passes.bloom;
  return config;
}

NodeRun::NodeRun(const Passes& passes, const simulator::CalibrationBlobs& calibration)
    : shm_name_(UniqueRingName()) {
  DefaultConfig config = ConfigWith(passes);
  config.recv_port = 0;  // whatever port is free; no packet comes from there
  config.shm_name = shm_name_;
  config.shm_size = shm_ring::kHeaderBytes + kRingSlots * shm_ring::kStride;
  const SilentCout silent;
  const CalibrationDirectory directory(calibration);
  node_ = std::make_unique<LidarNode>("truth_report_node", config, directory.Path());
  node_->RequestStop();
  node_->JoinWorker();
  ring_ = std::make_unique<ShmRingReader>(shm_name_.c_str(), RingStart::kOldest);
}

NodeRun::~NodeRun() {
  const SilentCout silent;
  node_.reset();
  shm_unlink(shm_name_.c_str());
}

const CollectedFrame& NodeRun::Publish(const simulator::SimulatedFrame& frame) {
  {
    const SilentCout silent;
    std::atomic<bool>& running = LidarNodeTestAccess::Running(*node_);
    LidarNodeTestAccess::SetSource(
        *node_, std::make_unique<MemorySource>(simulator::EncodeFrame(frame), running));
    running = true;
    node_->Run();
  }
  const CollectedFrame* collected = nullptr;
  ReceivedPacket packet;
  PointPacketView view;
  while (ring_->TryNext(packet)) {
    if (view.Parse(packet.bytes, packet.length) != PointPacketError::kNone) continue;
    const CollectedFrame* given = collector_.Add(view);
    if (given != nullptr) collected = given;
  }
  if (collected == nullptr || !collected->IsComplete()) {
    throw std::runtime_error("the node did not publish the whole frame");
  }
  return *collected;
}

}  // namespace kerul::lidar::report
