// One complete frame out of a stream that arrives on a port of this machine.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "pixel_story/watched_node.h"

namespace kerul::lidar::story {

// Waits for a frame of which every packet comes, with no packet of another frame between them.
class FrameCatcher {
 public:
  FrameCatcher();

  // True when the frame is complete: its last place came, and all others before. Other datagrams
  // than the sensor's are passed over.
  bool Take(const UdpPacket& packet);

  // Of the frame in hand, in the order in which they came.
  const std::vector<UdpPacket>& Packets() const noexcept { return packets_; }
  int FrameId() const noexcept { return frame_id_; }  // -1 before the first packet
  int Places() const noexcept { return places_; }     // of 6912 that have come
  int Passed() const noexcept { return passed_; }     // frames that were not complete

 private:
  void Begin(int frame_id);

  std::vector<UdpPacket> packets_;
  std::vector<bool> seen_;
  int frame_id_ = -1;
  int places_ = 0;
  int passed_ = 0;
};

// Listens on the UDP port, tells `progress` in lines, and gives the packets of one complete frame.
// The port must be free: the socket never shares one, because it would take the packets away from a
// node that listens there. Throws std::runtime_error when it is not free, or when no frame was
// complete within the time.
std::vector<UdpPacket> CatchFrame(std::uint16_t port, double timeout_s,
                                  const std::function<void(const std::string&)>& progress);

DatagramFeed FeedOfPackets(std::vector<UdpPacket> packets);

}  // namespace kerul::lidar::story
