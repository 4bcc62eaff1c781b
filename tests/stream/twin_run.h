// The node and the reference on the same stream, side by side.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "config/default_config.h"
#include "reference/node.h"
#include "sensor_simulator/calibration_blobs.h"
#include "support/node_access.h"

namespace kerul::lidar::testing {

using Datagram = std::vector<std::uint8_t>;

// The defaults of the product, except for where packets come from and go to.
DefaultConfig StreamConfig();

// What a run saw, for a test to check that the stream held what it is about.
struct TwinCounts {
  std::uint64_t datagrams = 0;
  std::uint64_t packets = 0;     // published and compared
  std::uint64_t distances = 0;   // of these, points with a distance
  std::uint64_t frames = 0;      // closed
  std::uint64_t rows = 0;        // miniflash rows published
  std::uint64_t rows_again = 0;  // of these, after a later row of the same frame
  std::uint64_t stragglers = 0;  // packets of an earlier frame id taken into the frame in hand
  std::uint64_t exported_files = 0;
  std::uint64_t withheld = 0;  // datagrams that would have ended the process
  // Of all bytes published except the clock: two streams that differ have different ones.
  std::uint64_t digest = 14695981039346656037U;
};

class TwinRun {
 public:
  // Both are calibrated from the simulated sensor's blobs, the node through a directory.
  TwinRun(const DefaultConfig& config, const simulator::CalibrationBlobs& blobs);
  ~TwinRun();

  // Gives the stream's datagrams in turn, null at its end. What it gives must live
  // until the next call.
  using NextDatagram = std::function<const Datagram*()>;

  // Plays the stream through both and compares what they publish after each datagram, byte for
  // byte but for the clock, then the closed frames' ids and counts, the frame left in hand and the
  // exported files.
  // Stops at the first difference and describes it; an empty text says that there is none.
  // To be called once.
  std::string Play(const NextDatagram& next);

  const TwinCounts& counts() const noexcept { return counts_; }

 private:
  class PairedSource;

  int GiveNext(UdpPacket& packet);
  bool EndsTheProcess(const Datagram& datagram) const;
  void CountStraggler();
  std::string ComparePublished();
  std::string CompareClosedFrames(const std::string& log);
  std::string CompareFrame();
  std::string CompareExportedFiles();
  void CountPacket(const std::vector<std::uint8_t>& packet);

  std::string shm_name_;
  std::unique_ptr<LidarNode> node_;
  std::unique_ptr<reference::Node> reference_;
  NextDatagram next_;
  RingTail ring_tail_;
  UdpPacket buffer_{};  // what the node's packet buffer holds
  std::string difference_;
  TwinCounts counts_;
  std::size_t frames_at_last_row_ = 0;
  int last_row_ = -1;
};

}  // namespace kerul::lidar::testing
