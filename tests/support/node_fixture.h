// A node whose worker has been stopped, so that a test can drive it step by step.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/default_config.h"
#include "support/node_access.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {

// Defaults, but calibrated from tables with a valid entry for every pixel, on an ephemeral port.
inline DefaultConfig TestConfig() {
  DefaultConfig config = default_config::kConfig;
  config.para2_enable = false;
  config.recv_port = 0;
  config.shm_name = UniqueShmName("node");
  config.shm_size = shm_ring::kHeaderBytes + 16384U * shm_ring::kStride;
  config.tables.dist_curve.assign(512, 0.0F);
  config.tables.dist_curve_high.assign(512, 0.0F);
  config.tables.dist_offset.assign(82944, 1.0F);
  config.tables.retro_curve.assign(512, 0.0F);
  config.tables.retro_scale.assign(82944, 1.0F);
  return config;
}

class NodeFixture : public ::testing::Test {
 protected:
  ~NodeFixture() override {
    node_.reset();
    for (const std::string& name : shm_names_) shm_unlink(name.c_str());
  }

  // Builds the node, stops its worker and puts the scripted source in place. Its start-up lines
  // are in start_log_.
  void StartNode(const DefaultConfig& config, const std::string& cali_path = {}) {
    shm_names_.push_back(config.shm_name);
    ::testing::internal::CaptureStdout();
    try {
      node_ = std::make_unique<LidarNode>("A_node", config, cali_path);
    } catch (...) {
      start_log_ = ::testing::internal::GetCapturedStdout();
      throw;
    }
    node_->RequestStop();
    node_->JoinWorker();
    auto source = std::make_unique<ScriptedSource>();
    source_ = source.get();
    source_->at_end = [this] { Access().running() = false; };
    Access().source() = std::move(source);
    start_log_ = ::testing::internal::GetCapturedStdout();
  }

  // The text with which a start fails; empty when it does not.
  std::string StartFailure(const DefaultConfig& config, const std::string& cali_path = {}) {
    try {
      StartNode(config, cali_path);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  LidarNodeTestAccess Access() { return LidarNodeTestAccess{*node_}; }

  // Plays the scripted datagrams through the packet loop; gives what the node printed.
  std::string Play(const std::vector<UdpPacket>& packets) {
    for (const UdpPacket& packet : packets) source_->script.push_back(packet);
    ::testing::internal::CaptureStdout();
    Access().running() = true;
    node_->Run();
    return ::testing::internal::GetCapturedStdout();
  }

  // The point packets published since the last call, oldest first.
  std::vector<std::vector<std::uint8_t>> TakePublished() {
    return ring_tail_.Take(*Access().shm_writer());
  }

  // Miniflash rows in the order in which they were published, one entry for each 48 packets.
  std::vector<int> TakePublishedRows() {
    std::vector<int> rows;
    for (const std::vector<std::uint8_t>& packet : TakePublished()) {
      if (packet[208] == 0) rows.push_back(packet[207]);
    }
    return rows;
  }

  std::unique_ptr<LidarNode> node_;
  ScriptedSource* source_ = nullptr;
  std::string start_log_;

 private:
  std::vector<std::string> shm_names_;
  RingTail ring_tail_;
};

}  // namespace kerul::lidar::testing
