#include "pixel_story/watched_node.h"

#include <sys/mman.h>
#include <unistd.h>

#include <utility>

#include "calibration/para2_loading.h"
#include "lidar_replay/capture_once.h"
#include "output/shm_layout.h"
#include "support/inert_source.h"
#include "support/silent_cout.h"

// The one door to the node's members.
struct LidarNodeTestAccess {
  static void TakeFrom(LidarNode& node, std::unique_ptr<kerul::lidar::Source> source) {
    node.source_ = std::move(source);
  }
  static std::atomic<bool>& RunningFlag(LidarNode& node) { return node.running_; }
  static bool StartsAnotherFrame(const LidarNode& node, int frame_id) {
    return node.current_frame_id_ != -1 && node.BelongsToAnotherFrame(frame_id);
  }
  static kerul::lidar::story::NodeParts PartsOf(const LidarNode& node) {
    return {.config = *node.config_,
            .parser = *node.parser_,
            .calibrator = *node.packet_calibrator_,
            .calibration = {.env = node.env_calib_.get(),
                            .dist = node.dist_calib_.get(),
                            .high_threshold_map = node.high_threshold_map_.get(),
                            .high_refl_check = node.high_refl_check_.get(),
                            .retro = node.retro_calib_.get()},
            .ground = node.ground_settings_,
            .angle_grid = node.angle_grid_,
            .bloom = node.bloom_calib_,
            .echo_plan = node.echo_plan_,
            .miniflash_rows = node.miniflash_rows_};
  }
};

namespace kerul::lidar::story {
namespace {

// One raw packet can run all rows twice, at a frame change, and so publish 6912 packets.
constexpr std::uint32_t kRingSlots = 16384;

std::string UniqueRingName() {
  static std::atomic<int> count{0};
  return "/pixel_story_" + std::to_string(getpid()) + "_" + std::to_string(count++);
}

DefaultConfig WithPrivateRing(DefaultConfig config, const std::string& ring_name) {
  config.data_source = 1;
  config.recv_port = 0;  // whatever port is free; no packet comes from there
  config.recv_ip.clear();
  config.udp_output = false;
  config.shm_name = ring_name;
  config.shm_size = shm_ring::kHeaderBytes + kRingSlots * shm_ring::kStride;
  config.run_once = false;
  config.frame_output_enable = false;
  return config;
}

}  // namespace

DatagramFeed FeedOfCapture(const std::string& path) {
  const auto running = std::make_shared<std::atomic<bool>>(true);
  const SilentCout silent;
  // The capture refers to the flag, and tells of its closing.
  const std::shared_ptr<replay::CaptureOnce> capture(new replay::CaptureOnce(path, *running, [] {}),
                                                     [running](replay::CaptureOnce* once) {
                                                       const SilentCout silent_end;
                                                       delete once;
                                                     });
  return [capture](UdpPacket& packet) {
    const int length = capture->Receive(packet, kMaxDatagramBytes, 0, 0);
    if (length < 1) return false;
    packet.length = static_cast<std::uint16_t>(length);
    return true;
  };
}

// Asked for the next datagram when all work for the one before is done.
class WatchedNode::FedSource : public InertSource {
 public:
  FedSource(WatchedNode& node, DatagramFeed feed, Watcher& watcher)
      : node_(node), feed_(std::move(feed)), watcher_(watcher) {}

  int Receive(UdpPacket& packet, std::uint16_t, int, int) override {
    if (given_) {
      node_.TakePublished(published_);
      given_ = false;
      watcher_.AfterDatagram(published_);
    }
    if (!LidarNodeTestAccess::RunningFlag(*node_.node_) || !feed_(packet)) {
      node_.Stop();
      return 0;  // the loop looks at the flag next
    }
    given_ = true;
    watcher_.BeforeDatagram(packet);
    return packet.length;
  }

 private:
  WatchedNode& node_;
  DatagramFeed feed_;
  Watcher& watcher_;
  std::vector<ReceivedPacket> published_;
  bool given_ = false;
};

WatchedNode::WatchedNode(const DefaultConfig& config, const std::string& cali_path)
    : ring_name_(UniqueRingName()) {
  ValidateCaliPath(cali_path);
  const SilentCout silent;
  node_ =
      std::make_unique<LidarNode>("pixel_story", WithPrivateRing(config, ring_name_), cali_path);
  node_->RequestStop();
  node_->JoinWorker();
  ring_ = std::make_unique<ShmRingReader>(ring_name_.c_str(), RingStart::kOldest);
}

WatchedNode::~WatchedNode() {
  const SilentCout silent;
  ring_.reset();
  node_.reset();
  shm_unlink(ring_name_.c_str());
}

NodeParts WatchedNode::Parts() const { return LidarNodeTestAccess::PartsOf(*node_); }

bool WatchedNode::BelongsToAnotherFrame(int frame_id) const {
  return LidarNodeTestAccess::StartsAnotherFrame(*node_, frame_id);
}

void WatchedNode::TakePublished(std::vector<ReceivedPacket>& packets) {
  packets.clear();
  ReceivedPacket packet;
  while (ring_->TryNext(packet)) packets.push_back(packet);
}

void WatchedNode::Play(DatagramFeed feed, Watcher& watcher) {
  const SilentCout silent;
  LidarNodeTestAccess::TakeFrom(*node_,
                                std::make_unique<FedSource>(*this, std::move(feed), watcher));
  LidarNodeTestAccess::RunningFlag(*node_) = true;
  node_->Run();
}

void WatchedNode::Stop() noexcept { node_->RequestStop(); }

}  // namespace kerul::lidar::story
