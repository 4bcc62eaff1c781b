#include "support/bench_node.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "MIPI_reader/parser/point_packet_encoder.h"
#include "sensor_simulator/calibration_blobs.h"

namespace kerul::lidar::bench {
namespace {

// A directory that is gone when the node has read it.
class CalibrationDirectory {
 public:
  explicit CalibrationDirectory(const simulator::CalibrationBlobs& blobs)
      : root_(std::filesystem::temp_directory_path() / ("kerul_bench_" + std::to_string(getpid()))),
        place_(simulator::WriteBlobs(blobs, root_)) {}
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

// A stream without a buffer loses what is written to it.
class NoBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// Never destroyed: sources print their closing lines while the process ends.
void SilenceCout() {
  static auto* const buffer = new NoBuffer;
  std::cout.rdbuf(buffer);
}

std::string UniqueName() {
  static int count = 0;
  return "/kerul_bench_" + std::to_string(getpid()) + "_" + std::to_string(count++);
}

}  // namespace

BenchNode::BenchNode(const simulator::CalibrationBlobs& calibration) : shm_name_(UniqueName()) {
  SilenceCout();
  DefaultConfig config = default_config::kConfig;
  config.recv_port = 0;  // whatever port is free; no packet comes from there
  config.shm_name = shm_name_;
  const CalibrationDirectory directory(calibration);
  node_ = std::make_unique<LidarNode>("bench_node", config, directory.Path());
  node_->RequestStop();
  node_->JoinWorker();
  UseMemorySource();
}

BenchNode::~BenchNode() {
  node_.reset();
  shm_unlink(shm_name_.c_str());
}

void BenchNode::UseMemorySource() {
  auto source = std::make_unique<MemorySource>(Access().running());
  source_ = source.get();
  Access().source() = std::move(source);
}

std::vector<PublishedPacket> BenchNode::TakePublished() {
  std::vector<PublishedPacket> packets;
  ShmUdpWriter& writer = Access().shm_writer();
  const std::uint32_t slots = (writer.Size() - shm_ring::kHeaderBytes) / shm_ring::kStride;
  for (; taken_ < writer.Seq(); ++taken_) {
    const std::uint8_t* slot =
        writer.Data() + shm_ring::kHeaderBytes + std::size_t{taken_ % slots} * shm_ring::kStride;
    PublishedPacket packet;
    std::memcpy(packet.data(), slot + shm_ring::kSlotHeaderBytes, packet.size());
    std::fill_n(packet.begin() + point_packet::kSecondsOffset, 8, std::uint8_t{0});
    packets.push_back(packet);
  }
  return packets;
}

}  // namespace kerul::lidar::bench
