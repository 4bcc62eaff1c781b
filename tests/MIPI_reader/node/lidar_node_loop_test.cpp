#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <numeric>

#include "source/loopback.h"
#include "source/socket_source.h"
#include "support/node_fixture.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

class PacketLoop : public NodeFixture {
 protected:
  void SetUp() override {
    config_ = TestConfig();
    config_.calib_enable = false;  // the schedule alone
  }
  void Start() { StartNode(config_); }

  static std::vector<UdpPacket> Packets(int frame_id, int first, int end) {
    std::vector<UdpPacket> packets;
    for (int i = first; i < end; ++i) packets.push_back(MakeRawPacket(frame_id, i));
    return packets;
  }
  static std::vector<UdpPacket> Join(std::vector<UdpPacket> a, const std::vector<UdpPacket>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }
  static std::vector<int> Rows(int first, int last) {
    std::vector<int> rows(static_cast<std::size_t>(last - first + 1));
    std::iota(rows.begin(), rows.end(), first);
    return rows;
  }
  static int CountOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
  }

  DefaultConfig config_;
};

TEST_F(PacketLoop, TheFirstPacketFixesTheFrameIdWithoutClosingAFrame) {
  Start();
  const std::string log = Play(Packets(77, 0, 1));
  EXPECT_EQ(Access().current_frame_id(), 77);
  EXPECT_EQ(log, "");
  EXPECT_EQ(Access().frame().frame_id, 0);
  EXPECT_EQ(Access().frame().received_count, 1);
}

TEST_F(PacketLoop, AWholeFrameRunsAllRowsInOrderAndExpectsTheNextId) {
  Start();
  const std::string log = Play(Packets(9, 0, kPacketsPerFrame));
  EXPECT_EQ(TakePublishedRows(), Rows(0, 35));
  EXPECT_EQ(Access().current_frame_id(), 10);
  EXPECT_EQ(Access().frame().frame_id, 10);
  EXPECT_EQ(CountOf(log, "等效解包FPS: "), 1);
  EXPECT_EQ(CountOf(log, ", frame_id: 10, received_count:6912\n"), 1);
}

TEST_F(PacketLoop, TheFirstFrameIsPublishedUnderIdZeroAndTheNextUnderItsOwn) {
  Start();
  Play(Join(Packets(9, 0, kPacketsPerFrame), Packets(10, 0, kPacketsPerFrame)));
  const auto packets = TakePublished();
  ASSERT_EQ(packets.size(), 2U * 1728U);
  EXPECT_EQ(packets[0][209], 0);
  EXPECT_EQ(packets[1728][209], 10);
}

TEST_F(PacketLoop, FrameId255ClosesIntoZeroWithoutAFrameChange) {
  Start();
  std::string log = Play(Packets(255, 0, kPacketsPerFrame));
  EXPECT_EQ(Access().current_frame_id(), 0);
  log += Play(Packets(0, 0, 1));
  EXPECT_EQ(CountOf(log, "等效解包FPS: "), 1);
}

// The lines of a loss that the packets bring about; the first frame counts as joined in its middle.
TEST_F(PacketLoop, LossesAreToldAtTheFrameThatShowsThem) {
  Start();
  const auto told = [&](std::vector<UdpPacket> packets) {
    std::string err;
    Access().current_frame_id() = -1;
    err = PrintedAsError([&] { Play(packets); });
    return err;
  };
  EXPECT_EQ(told(Join(Packets(10, 100, 200), Packets(11, 0, kPacketsPerFrame))), "");
  // The two packets of frame 12 hide no loss by coming twice; 13 and 14 never come.
  std::vector<UdpPacket> packets = Join(Packets(12, 0, 2), Packets(12, 0, 2));
  packets = Join(packets, Packets(15, 0, 1));
  EXPECT_EQ(
      told(packets),
      "[WARN] [LidarNode][A_node] raw packets lost in 2 frames: 1 of them closed without 6910 "
      "packets (the last, frame_id 12, with 2 of 6912), 2 frame ids never came, 0 datagrams "
      "dropped by the kernel\n");
}

TEST_F(PacketLoop, LossesHeldBackAreToldWhenTheWorkerHasEnded) {
  Start();
  Play(Packets(10, 0, 1));
  const std::string err = PrintedAsError([&] {
    Play(Join(Packets(10, 0, 1), Join(Packets(11, 0, 1), Packets(12, 0, 1))));
    Play(Join(Packets(12, 0, 1), Packets(13, 0, 1)));
  });
  EXPECT_NE(err.find("frame_id 11, with 1 of 6912"), std::string::npos) << err;
  EXPECT_EQ(err.find("frame_id 12"), std::string::npos) << "less than a second later";
  Access().StartIdleWorker();
  EXPECT_NE(PrintedAsError([&] { node_->JoinWorker(); }).find("frame_id 12, with 1 of 6912"),
            std::string::npos);
}

TEST_F(PacketLoop, AFallOf200IsAStragglerAndOneOf201AFrameChange) {
  Start();
  EXPECT_EQ(Play(Join(Packets(250, 0, 1), Packets(50, 1, 2))), "");
  EXPECT_EQ(Access().current_frame_id(), 250);
  EXPECT_EQ(Access().frame().received_count, 2);
  const std::string log = Play(Packets(250, 2, 3));
  EXPECT_EQ(log, "");  // each Play starts anew, and the id is fixed by its first packet

  Access().current_frame_id() = -1;
  const std::string changed = Play(Join(Packets(250, 0, 1), Packets(49, 1, 2)));
  EXPECT_EQ(CountOf(changed, ", frame_id: 49, received_count:"), 1);
  EXPECT_EQ(Access().current_frame_id(), 49);
}

TEST_F(PacketLoop, AFrameChangeFlushesTheRemainingRowsAndOpensTheNewFrame) {
  Start();
  const std::string log = Play(Join(Packets(10, 0, 300), Packets(11, 0, 5)));
  EXPECT_EQ(TakePublishedRows(), Rows(0, 35));
  EXPECT_EQ(CountOf(log, ", frame_id: 11, received_count:300\n"), 1);
  EXPECT_EQ(Access().current_frame_id(), 11);
  EXPECT_EQ(Access().frame().received_count, 5);
  EXPECT_EQ(Access().mrow_packet_count()[0], 5);
}

TEST_F(PacketLoop, ALostLastPacketIsMadeUpForByTheNextFramesFirst) {
  Start();
  Play(Join(Packets(10, 0, kPacketsPerFrame - 1), Packets(11, 0, 1)));
  EXPECT_EQ(TakePublishedRows(), Rows(0, 35));
}

TEST_F(PacketLoop, AfterTheLastRowHasRunAFrameChangeRunsAllRowsAgain) {
  Start();
  // The last row completes, but the packet with the last index came early, before its frame id was
  // in hand: only a frame change is left to close the frame.
  std::vector<UdpPacket> packets = Packets(10, 0, kPacketsPerFrame - 1);
  Play(packets);
  TakePublishedRows();
  std::vector<LidarPoint> points;
  Access().UpdateFrames(kPacketsPerFrame - 1, points);
  EXPECT_EQ(TakePublishedRows(), Rows(34, 35));
  EXPECT_EQ(Access().next_mrow(), 0);
  Access().current_frame_id() = 10;
  // A stopped loop forgets the frame id: give it back through a first packet of the frame in hand.
  Play(Join(Packets(10, 0, 1), Packets(11, 0, 1)));
  EXPECT_EQ(TakePublishedRows(), Rows(0, 35));
}

TEST_F(PacketLoop, RowsStillUnprocessedAtTheLastPacketAreDropped) {
  Start();
  std::vector<UdpPacket> packets = Packets(10, 0, 35 * kPacketsPerMrow);
  packets.push_back(MakeRawPacket(10, kPacketsPerFrame - 1));
  const std::string log = Play(packets);
  EXPECT_EQ(TakePublishedRows(), Rows(0, 33));
  EXPECT_EQ(CountOf(log, ", frame_id: 11, received_count:6721\n"), 1);
}

TEST_F(PacketLoop, AnExportedFileCarriesTheIdOfTheLastPacketNotThatOfTheFrame) {
  const TempDir dir;
  config_.frame_output_enable = true;
  config_.export_dir = dir.path().string();
  config_.export_mode = "raw";
  Start();
  // The first frame is published under 0; the second is closed by a packet of the first.
  Play({MakeRawPacket(9, kPacketsPerFrame - 1), MakeRawPacket(11, 0),
        MakeRawPacket(10, kPacketsPerFrame - 1)});
  EXPECT_TRUE(std::filesystem::exists(dir.File("A_node_raw_f009_n000000.bin")));
  EXPECT_TRUE(std::filesystem::exists(dir.File("A_node_raw_f010_n000001.bin")));
}

TEST_F(PacketLoop, RunOnceStopsAtTheFrameEnd) {
  config_.run_once = true;
  Start();
  Play(Join(Packets(10, 0, kPacketsPerFrame), Packets(11, 0, 5)));
  EXPECT_FALSE(Access().running());
  EXPECT_EQ(source_->script.size(), 5U);
}

TEST_F(PacketLoop, RunOnceAtAFrameChangeDropsThePacketInHand) {
  config_.run_once = true;
  Start();
  Play(Join(Packets(10, 0, 3), Packets(11, 0, 2)));
  EXPECT_FALSE(Access().running());
  EXPECT_EQ(Access().frame().received_count, 0);
  EXPECT_EQ(source_->script.size(), 1U);
}

TEST_F(PacketLoop, ARefusedPacketChangesNothing) {
  Start();
  UdpPacket other_version = MakeRawPacket(10, 0);
  other_version.buffer[3] = 10;
  EXPECT_EQ(Play({other_version}), "");
  EXPECT_EQ(Access().current_frame_id(), -1);
  EXPECT_EQ(Access().frame().received_count, 0);
}

TEST_F(PacketLoop, AnIdleSourceGivesZeroAfterTenTries) {
  Start();
  UdpPacket packet{};
  EXPECT_EQ(Access().GetOnePacket(packet), 0);
  EXPECT_EQ(source_->receive_calls, 10);
}

// `length` bytes that begin with these two.
UdpPacket Datagram(std::uint16_t length, std::uint8_t first, std::uint8_t second) {
  UdpPacket packet{};
  packet.buffer[0] = first;
  packet.buffer[1] = second;
  packet.length = length;
  return packet;
}

TEST_F(PacketLoop, ALiveSourcesDatagramIsTakenWhateverItHolds) {
  Start();
  for (const UdpPacket& sent : {Datagram(1, 0xEE, 0xFF), Datagram(10, 0xEE, 0xFF),
                                Datagram(692, 0, 0), Datagram(1500, 0xEE, 0xFF)}) {
    source_->script = {sent};
    UdpPacket packet{};
    EXPECT_EQ(Access().GetOnePacket(packet), sent.length);
    EXPECT_EQ(packet.length, sent.length);
  }
  EXPECT_EQ(source_->receive_calls, 4);
}

TEST_F(PacketLoop, OfACaptureOnlyDatagramsOfElevenBytesBehindTheMagicAreTaken) {
  Start();
  source_->type = "PCAP";
  source_->script = {Datagram(10, 0xEE, 0xFF), Datagram(692, 0xEE, 0xFE), Datagram(692, 0xFF, 0xEE),
                     Datagram(11, 0xEE, 0xFF)};
  UdpPacket packet{};
  EXPECT_EQ(Access().GetOnePacket(packet), 11);
  EXPECT_EQ(packet.length, 11);
  EXPECT_EQ(source_->receive_calls, 4);
}

TEST_F(PacketLoop, TenForeignDatagramsOfACaptureInARowGiveTheLastLengthAndStoreNone) {
  Start();
  source_->type = "PCAP";
  for (std::uint16_t i = 0; i < 10; ++i) {
    source_->script.push_back(Datagram(static_cast<std::uint16_t>(100 + i), 1, 2));
  }
  UdpPacket packet{};
  packet.length = 77;
  EXPECT_EQ(Access().GetOnePacket(packet), 109);
  EXPECT_EQ(packet.length, 77);
}

TEST_F(PacketLoop, AnOpenSourceThatKeepsFailingThrows) {
  Start();
  source_->result_at_end = -1;
  UdpPacket packet{};
  try {
    Access().GetOnePacket(packet);
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Failed to receive packet in max_retry_times");
  }
}

// A socket in the place of the scripted source, with nothing to read yet.
class LiveLoop : public PacketLoop {
 protected:
  void SetUp() override {
    PacketLoop::SetUp();
    Start();
    auto source = std::make_unique<SocketSource>(port_, "");
    fd_ = DescriptorIn(Printed([&] { source->Open(); }));
    Access().source() = std::move(source);
  }
  ~LiveLoop() override {
    ::testing::internal::CaptureStdout();
    node_.reset();
    ::testing::internal::GetCapturedStdout();
  }

  const std::uint16_t port_ = FreePort();
  const Peer peer_;
  int fd_ = -1;
  UdpPacket packet_{};
};

// Empty datagrams are read one a try; the read after the last of them finds nothing.
TEST_F(LiveLoop, AnEmptyQueueAtTheLastTryIsNoFailure) {
  for (int empty = 0; empty <= 20; ++empty) {
    for (int i = 0; i < empty; ++i) peer_.SendTo(port_, {});
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Access().GetOnePacket(packet_), 0) << empty;
  }
  peer_.SendTo(port_, {1, 2, 3});
  EXPECT_EQ(Access().GetOnePacket(packet_), 3);
}

TEST_F(LiveLoop, RefusedDatagramsTakeATryEachAndNoPause) {
  ASSERT_TRUE(dynamic_cast<SocketSource&>(*Access().source()).AcceptOnlyFrom("127.0.0.2"));
  // Ten pauses of a tenth would take a millisecond each time, whatever else the machine does.
  auto shortest = std::chrono::steady_clock::duration::max();
  for (int round = 0; round < 50; ++round) {
    for (int i = 0; i < 10; ++i) peer_.SendTo(port_, {1});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Access().GetOnePacket(packet_), SocketSource::kRefused);
    shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
  }
  EXPECT_LT(shortest, std::chrono::milliseconds(1));
}

TEST_F(LiveLoop, AReadOrWaitThatFailsTenTimesThrows) {
  ASSERT_EQ(::close(fd_), 0);
  std::string thrown;
  Printed([&] {
    try {
      Access().GetOnePacket(packet_);
    } catch (const std::runtime_error& error) {
      thrown = error.what();
    }
  });
  EXPECT_EQ(thrown, "Failed to receive packet in max_retry_times");
}

TEST_F(PacketLoop, AClosedSourceStopsTheNode) {
  Start();
  source_->result_at_end = -1;
  source_->opened = false;
  Access().running() = true;
  source_->at_end = [] {};
  UdpPacket packet{};
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Access().GetOnePacket(packet), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[LidarNode][A_node] the udp source has been closed\n");
  EXPECT_FALSE(Access().running());
}

TEST_F(PacketLoop, ResetFrameKeepsTheDistancesOfTheFrameBefore) {
  Start();
  Access().cur_dist_map()[5] = 3.5F;
  ::testing::internal::CaptureStdout();
  Access().ResetFrame(8);
  const std::string log = ::testing::internal::GetCapturedStdout();
  EXPECT_TRUE(Access().prev_dist_map_valid());
  EXPECT_EQ(Access().prev_dist_map()[5], 3.5F);
  EXPECT_EQ(Access().cur_dist_map()[5], 0.0F);
  // No counted time gives an infinity.
  EXPECT_EQ(log, "等效解包FPS: inf, frame_id: 8, received_count:0\n");
}

TEST_F(PacketLoop, ResetFrameGivesBothFramesTheIdAndClearsTheProgress) {
  Start();
  Play(Packets(10, 0, 250));
  ::testing::internal::CaptureStdout();
  Access().ResetFrame(8);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(Access().frame().frame_id, 8);
  EXPECT_EQ(Access().upsampled_frame()->frame_id, 8);
  EXPECT_EQ(Access().current_frame_id(), 8);
  EXPECT_EQ(Access().next_mrow(), 0);
  EXPECT_EQ(Access().mrow_packet_count(), std::vector<int>(36, 0));
  EXPECT_EQ(Access().mrow_packet_seen(),
            std::vector<std::vector<bool>>(36, std::vector<bool>(192, false)));
}

TEST_F(PacketLoop, PixelsThatTheNewFrameDoesNotBringAreEmptyInItsRows) {
  config_.output_mode = 3;  // publishes every range there is
  Start();
  RawPixel lit;
  lit.SetNoise(40);
  lit.SetPulse(0, 100, 2000, 20);
  std::vector<UdpPacket> packets;
  for (int i = 0; i < kPacketsPerFrame; ++i) packets.push_back(MakeRawPacket(10, i, lit));
  Play(packets);
  int lit_points = 0;
  for (const auto& packet : TakePublished()) lit_points += packet[20] + packet[21] > 0;
  EXPECT_EQ(lit_points, 1728);

  // The next frame is dark but for its last packet.
  packets = {MakeRawPacket(11, 200, lit), MakeRawPacket(12, 0)};
  Play(packets);
  lit_points = 0;
  for (const auto& packet : TakePublished()) {
    for (std::size_t i = 20; i < 200; i += 5) lit_points += packet[i] + packet[i + 1] > 0;
  }
  EXPECT_EQ(lit_points, 9);
}

}  // namespace
}  // namespace kerul::lidar::testing
