// A sequence of datagrams through the whole node, from its packet loop to its ring, against the
// reference: frame changes, stragglers, wrapped counters, rows that come again, whole frames.
#include <sys/mman.h>

#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "byte_input.h"
#include "datagram_script.h"
#include "reference/node.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_simulator.h"
#include "support/node_access.h"
#include "support/point_compare.h"
#include "support/temp_dir.h"

using namespace kerul::lidar;
using namespace kerul::lidar::fuzz;

namespace {

constexpr int kMaxDatagrams = 14000;  // two frames
constexpr std::size_t kClockFirst = 216;
constexpr std::size_t kClockEnd = 224;

DefaultConfig NodeConfig() {
  DefaultConfig config = default_config::kConfig;
  config.recv_port = 0;
  config.echo_output_code = 12;
  config.output_mode = 12;
  config.shm_name = testing::UniqueShmName("fuzz");
  // Room for more than one datagram can release: both echoes of the frame that it closes, and of
  // the earlier rows in the frame that it opens.
  config.shm_size = shm_ring::kHeaderBytes + 8192U * shm_ring::kStride;
  return config;
}

// Node and reference side by side. Made once; Play begins with both as they were made.
class Twins {
 public:
  Twins() {
    const DefaultConfig config = NodeConfig();
    const simulator::CalibrationBlobs blobs = simulator::MakeBlobs(simulator::SimulatorOptions());
    const testing::TempDir dir;
    const std::filesystem::path para_read = simulator::WriteBlobs(blobs, dir.path());
    node_ = std::make_unique<LidarNode>("fuzz", config, para_read.string());
    shm_unlink(config.shm_name.c_str());  // mapped, and nobody else needs the name
    node_->RequestStop();
    node_->JoinWorker();
    fresh_frame_ = Access().frame();
    fresh_ = std::make_unique<reference::Node>(
        config, reference::CalibrationFromPara2(blobs.head, blobs.main, config));
    // Without an export the doubled frame is not used.
    fresh_->upsampled_frame = LidarFrame();
    reference_ = std::make_unique<reference::Node>(*fresh_);
    Access().source() = std::make_unique<ScriptSource>(*this);
  }

  void Play(DatagramScript& script) {
    script_ = &script;
    *reference_ = *fresh_;
    LidarNodeTestAccess access = Access();
    access.SettleFrame();
    access.ResetFrame(0);
    access.SettleFrame();
    access.frame() = fresh_frame_;
    access.next_mrow() = 0;
    access.parser().udp_seq_base = 0;
    access.running() = true;
    node_->Run();
    ComparePublished();
    access.SettleFrame();
    const std::string difference = testing::FrameDifference(access.frame(), reference_->frame);
    Require(difference.empty(), difference.c_str());
  }

 private:
  class ScriptSource : public Source {
   public:
    explicit ScriptSource(Twins& twins) : twins_(twins) {}
    bool Open() override { return true; }
    void Close() override {}
    bool IsOpened() override { return true; }
    void SetClientIp(const std::string&) override {}
    int Send(const std::uint8_t*, std::uint16_t length, int) override { return length; }
    int SetSocketBufferSize(std::uint32_t) override { return 0; }
    int Receive(UdpPacket& packet, std::uint16_t, int, int) override {
      return twins_.GiveNext(packet);
    }

   private:
    Twins& twins_;
  };

  LidarNodeTestAccess Access() { return LidarNodeTestAccess{*node_}; }

  int GiveNext(UdpPacket& packet) {
    if (!first_) ComparePublished();
    first_ = false;
    ScriptEvent event = script_->Next();
    while (event == ScriptEvent::kRow) event = script_->Next();
    if (event == ScriptEvent::kEnd) {
      node_->RequestStop();
      first_ = true;
      // A foreign datagram, which the node drops; the loop ends after it.
      packet.buffer[0] = 0;
      return 1;
    }
    const std::vector<std::uint8_t>& datagram = script_->Datagram();
    // The loop's buffer is a fresh one in every run, as the reference's.
    std::memcpy(packet.buffer, datagram.data(), datagram.size());
    reference_->Feed(datagram.data(), datagram.size());
    return static_cast<int>(datagram.size());
  }

  void ComparePublished() {
    const auto packets = ring_tail_.Take(*Access().shm_writer());
    Require(packets.size() == reference_->published.size(), "as many packets as the reference");
    for (std::size_t i = 0; i < packets.size(); ++i) {
      const reference::PublishedPacket& expected = reference_->published[i];
      Require(packets[i].size() == expected.size(), "length of a published packet");
      for (std::size_t at = 0; at < expected.size(); ++at) {
        if (at >= kClockFirst && at < kClockEnd) continue;
        if (packets[i][at] == expected[at]) continue;
        Require(false, ("byte " + std::to_string(at) + " of a published packet").c_str());
      }
    }
    reference_->published.clear();
    Require(reference_->closed_frames.size() < 100000, "frames");
  }

  std::unique_ptr<LidarNode> node_;
  std::unique_ptr<reference::Node> fresh_;
  std::unique_ptr<reference::Node> reference_;
  LidarFrame fresh_frame_;
  testing::RingTail ring_tail_;
  DatagramScript* script_ = nullptr;
  bool first_ = true;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::cout.rdbuf(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Twins* const twins = new Twins;
  DatagramScript script(ByteInput(data, size),
                        {.rows = 36, .slots = 4, .datagrams = kMaxDatagrams});
  twins->Play(script);
  return 0;
}
