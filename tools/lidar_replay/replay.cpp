#include "lidar_replay/replay.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <memory>

#include "MIPI_reader/node/lidar_node.h"
#include "calibration/para2_loading.h"
#include "config/default_config.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "lidar_replay/capture_once.h"
#include "output/shm_layout.h"

// The one door to the node's members.
struct LidarNodeTestAccess {
  static void SetSource(LidarNode& node, std::unique_ptr<kerul::lidar::Source> source) {
    node.source_ = std::move(source);
  }
  static std::atomic<bool>& Running(LidarNode& node) { return node.running_; }
};

namespace kerul::lidar::replay {
namespace {

// One raw packet can close a frame and so publish all of its 3456 packets.
constexpr std::uint32_t kRingSlots = 8192;

// The ring between the node and its reader here goes with them.
class PrivateRing {
 public:
  PrivateRing() {
    static std::atomic<int> count{0};
    name_ = "/lidar_replay_" + std::to_string(getpid()) + "_" + std::to_string(count++);
  }
  ~PrivateRing() { shm_unlink(name_.c_str()); }
  PrivateRing(const PrivateRing&) = delete;
  PrivateRing& operator=(const PrivateRing&) = delete;
  const std::string& Name() const { return name_; }

 private:
  std::string name_;
};

DefaultConfig ConfigFor(const PrivateRing& ring) {
  DefaultConfig config = default_config::kConfig;
  config.recv_port = 0;  // whatever port is free; no packet comes from there
  config.recv_ip.clear();
  config.udp_output = false;
  config.shm_name = ring.Name();
  config.shm_size = shm_ring::kHeaderBytes + kRingSlots * shm_ring::kStride;
  return config;
}

}  // namespace

bool Replay(const std::string& capture, const std::string& cali_path,
            const std::function<bool(const ReceivedPacket&)>& take) {
  ValidateCaliPath(cali_path);
  const PrivateRing ring;
  LidarNode node("lidar_replay", ConfigFor(ring), cali_path);
  node.RequestStop();
  node.JoinWorker();

  ShmRingReader reader(ring.Name().c_str(), RingStart::kOldest);
  std::atomic<bool>& running = LidarNodeTestAccess::Running(node);
  bool wanted = true;
  const auto hand_on = [&] {
    ReceivedPacket packet;
    while (wanted && reader.TryNext(packet)) wanted = take(packet);
    if (!wanted) running = false;
  };
  LidarNodeTestAccess::SetSource(node, std::make_unique<CaptureOnce>(capture, running, hand_on));
  running = true;
  node.Run();
  hand_on();
  return wanted;
}

}  // namespace kerul::lidar::replay
