// The real node in this process, fed datagram by datagram, with a look at what it did for each.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "MIPI_reader/node/lidar_node.h"
#include "config/default_config.h"
#include "kerul_lidar/received_packet.h"
#include "kerul_lidar/shm_ring_reader.h"

namespace kerul::lidar::story {

// Gives the sensor's next datagram, its length in packet.length; false after the last one.
using DatagramFeed = std::function<bool(UdpPacket& packet)>;

// The sensor's datagrams of a capture file, all others passed over. Throws std::runtime_error when
// it cannot be read as a capture.
DatagramFeed FeedOfCapture(const std::string& path);

// What the node has made of its settings and the calibration. Refers to the node's own objects.
struct NodeParts {
  const DefaultConfig& config;
  const LidarParserQDV11& parser;
  const PacketCalibrator& calibrator;
  CalibrationSteps calibration;  // the calibrator's, one by one; null where a step is off
  const GroundSettings& ground;
  const AngleCalibGrid& angle_grid;
  const BloomSuppressCalib& bloom;
  EchoOutputPlan echo_plan;
  int miniflash_rows;
};

class WatchedNode {
 public:
  // Told of each datagram, first before the node has it, then with all that it published for it.
  class Watcher {
   public:
    virtual ~Watcher() = default;
    virtual void BeforeDatagram(const UdpPacket& packet) = 0;
    virtual void AfterDatagram(const std::vector<ReceivedPacket>& published) = 0;
  };

  // Brings a node up from `cali_path`, as for the node's --cali_path. Of `config`, source and
  // output are replaced, and a stop after the first frame is switched off. Throws what the start
  // throws.
  WatchedNode(const DefaultConfig& config, const std::string& cali_path);
  ~WatchedNode();
  WatchedNode(const WatchedNode&) = delete;
  WatchedNode& operator=(const WatchedNode&) = delete;

  // As long as the node lives.
  NodeParts Parts() const;
  // Whether a packet with this frame number now closes the frame in hand. False before the first.
  bool BelongsToAnotherFrame(int frame_id) const;

  // Feeds the node to the end of `feed`, or until Stop. What the watcher throws comes out here.
  // Once.
  void Play(DatagramFeed feed, Watcher& watcher);
  void Stop() noexcept;

 private:
  class FedSource;
  void TakePublished(std::vector<ReceivedPacket>& packets);

  std::string ring_name_;
  std::unique_ptr<LidarNode> node_;
  std::unique_ptr<ShmRingReader> ring_;
};

}  // namespace kerul::lidar::story
