#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <new>
#include <numeric>

#include "config/default_config.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_packets.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/raw_packet.h"
#include "sensor_simulator/scenes.h"
#include "support/allocation_counter.h"
#include "support/node_access.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::size_t kPackets = 6912;
constexpr std::size_t kPacketsOfRow = 192;

// Notes what the node allocates between two looks for a datagram, that is, for one packet.
class CountingSource : public ScriptedSource {
 public:
  std::vector<long> allocations_by_packet;

  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override {
    if (packet_in_hand_) allocations_by_packet.push_back(AllocationCount() - count_before_);
    packet_in_hand_ = !script.empty();
    const int result = ScriptedSource::Receive(packet, length, flags, timeout_us);
    count_before_ = AllocationCount();
    return result;
  }

 private:
  bool packet_in_hand_ = false;
  long count_before_ = 0;
};

class WorkerAllocation : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::filesystem::path calibration = simulator::WriteBlobs(
        simulator::MakeBlobs(simulator::SimulatorOptions{}), directory_.path());
    DefaultConfig config = default_config::kConfig;
    config.recv_port = 0;
    config.shm_name = shm_name_ = UniqueShmName("allocation");
    config.shm_size = shm_ring::kHeaderBytes + 4096U * shm_ring::kStride;
    ::testing::internal::CaptureStdout();
    node_ = std::make_unique<LidarNode>("A_node", config, calibration.string());
    node_->RequestStop();
    node_->JoinWorker();
  }
  void TearDown() override {
    node_.reset();
    ::testing::internal::GetCapturedStdout();
    shm_unlink(shm_name_.c_str());
  }

  // Allocations for each packet of the scene's third frame; the first two have warmed the node up.
  std::vector<long> CountThirdFrame(const std::string& scene) {
    auto source = std::make_unique<CountingSource>();
    CountingSource& counting = *source;
    counting.at_end = [this] { LidarNodeTestAccess{*node_}.running() = false; };
    counting.allocations_by_packet.reserve(4 * kPackets);
    LidarNodeTestAccess{*node_}.source() = std::move(source);
    simulator::FrameSimulator simulator(simulator::MakeScene(scene));
    for (std::uint32_t frame = 1; frame <= 3; ++frame) {
      for (const UdpPacket& packet :
           simulator::ToUdpPackets(simulator::EncodeFrame(simulator.Simulate(frame)))) {
        counting.script.push_back(packet);
      }
    }
    LidarNodeTestAccess{*node_}.running() = true;
    node_->Run();
    const std::vector<long>& counts = counting.allocations_by_packet;
    EXPECT_EQ(counts.size(), 3 * kPackets);
    return {counts.end() - kPackets, counts.end()};
  }

 private:
  std::unique_ptr<LidarNode> node_;
  std::string shm_name_;
  TempDir directory_;
};

// The other tests would also pass with a counter that counts nothing.
TEST(AllocationCounter, CountsEveryFormOfNew) {
  constexpr std::align_val_t kLine{64};
  const long before = AllocationCount();
  // Called by name, as the compiler may leave out a new-expression.
  ::operator delete(::operator new(5));
  ::operator delete[](::operator new[](5));
  ::operator delete(::operator new(5, std::nothrow));
  ::operator delete(::operator new(5, kLine), kLine);
  ::operator delete[](::operator new[](5, kLine), kLine);
  EXPECT_EQ(AllocationCount() - before, 5);
}

TEST_F(WorkerAllocation, APacketThatCompletesNoRowAllocatesNothing) {
  const std::vector<long> counts = CountThirdFrame("retro");
  ASSERT_EQ(counts.size(), kPackets);
  std::size_t looked_at = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (i % kPacketsOfRow == kPacketsOfRow - 1) continue;  // completes a row
    EXPECT_EQ(counts[i], 0) << "packet " << i;
    ++looked_at;
  }
  EXPECT_EQ(looked_at, kPackets - 36);
}

TEST_F(WorkerAllocation, ARowWithoutBrightSourceAllocatesTheTwoBitVectorsOfTheShotNoiseFilter) {
  const std::vector<long> counts = CountThirdFrame("empty");
  ASSERT_EQ(counts.size(), kPackets);
  for (std::size_t row = 1; row < 35; ++row) {
    EXPECT_EQ(counts[row * kPacketsOfRow + kPacketsOfRow - 1], 2) << "row " << row;
  }
}

TEST_F(WorkerAllocation, ARowWithBrightSourcesAddsTheListsOfTheBloomPass) {
  const std::vector<long> counts = CountThirdFrame("retro");
  ASSERT_EQ(counts.size(), kPackets);
  // A list for each of the 48 block columns, the vector of lists, the gains' scratch space and, for
  // each block and echo with a mark, one sorted copy.
  constexpr long kBloom = 48 + 1 + 1 + 2 * 48;
  long most = 0;
  for (std::size_t row = 1; row < 35; ++row) {
    const long count = counts[row * kPacketsOfRow + kPacketsOfRow - 1];
    EXPECT_LE(count, 2 + kBloom) << "row " << row;
    most = std::max(most, count);
  }
  EXPECT_GT(most, 2) << "no row met a bright source";
}

TEST_F(WorkerAllocation, ClosingAFrameAllocatesNothing) {
  const std::vector<long> counts = CountThirdFrame("empty");
  ASSERT_EQ(counts.size(), kPackets);
  // The last packet runs two rows, with two bit vectors each, and closes the frame.
  EXPECT_EQ(counts.back(), 2 * 2);
}

}  // namespace
}  // namespace kerul::lidar::testing
