// Point packets by UDP: what a receiver gets of a frame, and how the output socket comes and goes.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "point_receiver.h"
#include "support/node_fixture.h"

namespace kerul::lidar::testing {
namespace {

using Packets = std::vector<std::vector<std::uint8_t>>;

constexpr std::size_t kRows = 36;
constexpr std::size_t kBlocksOfARow = 48;
constexpr std::size_t kBlocks = kRows * kBlocksOfARow;

std::uint32_t Sequence(const std::vector<std::uint8_t>& packet) {
  return packet[225] | std::uint32_t{packet[226]} << 8U | std::uint32_t{packet[227]} << 16U |
         std::uint32_t{packet[228]} << 24U;
}

class NodeUdpOutput : public NodeFixture {
 protected:
  NodeUdpOutput() {
    config_.calib_enable = false;
    config_.udp_output = true;
    config_.udp_dest_port = receiver_.port();
  }

  // A frame of the sensor through the node, taken off the wire row by row: the socket holds no
  // whole frame.
  Packets PlayFrame(int frame_id, std::size_t packets_to_a_block) {
    Packets received;
    for (int row = 0; row < static_cast<int>(kRows); ++row) {
      std::vector<UdpPacket> sent;
      for (int i = 0; i < kPacketsPerMrow; ++i) {
        sent.push_back(MakeRawPacket(frame_id, row * kPacketsPerMrow + i));
      }
      Play(sent);
      // Row 0 waits for row 1, the last one does not wait.
      const std::size_t rows = row == 0 ? 0 : row == 35 ? 2 : 1;
      const Packets some = receiver_.Take(rows * kBlocksOfARow * packets_to_a_block);
      received.insert(received.end(), some.begin(), some.end());
    }
    return received;
  }

  // What the start printed between the lines of input and output.
  std::string OpeningOfTheOutput() const {
    const std::string input = "[LidarNode][A_node] recv=" + config_.recv_ip + ":0\n";
    const std::size_t begin = start_log_.find(input);
    const std::size_t end = start_log_.find("[LidarNode][A_node] output=UDP ");
    if (begin == std::string::npos || end == std::string::npos) return "no such lines";
    return start_log_.substr(begin + input.size(), end - begin - input.size());
  }

  PointReceiver receiver_;
  DefaultConfig config_ = TestConfig();
};

TEST_F(NodeUdpOutput, AFrameOfOneEchoIs1728PacketsWithoutAGapInTheirNumbers) {
  StartNode(config_);
  Packets packets = PlayFrame(9, 1);
  const Packets more = PlayFrame(10, 1);
  ASSERT_EQ(packets.size(), 1728U);
  ASSERT_EQ(more.size(), 1728U);
  packets.insert(packets.end(), more.begin(), more.end());
  for (std::size_t i = 0; i < packets.size(); ++i) {
    ASSERT_EQ(packets[i].size(), 249U) << i;
    EXPECT_EQ(packets[i][12], 0) << i;
    EXPECT_EQ(packets[i][207], i % kBlocks / kBlocksOfARow) << i;
    EXPECT_EQ(packets[i][208], i % kBlocksOfARow) << i;
    EXPECT_EQ(packets[i][209], i < kBlocks ? 0 : 10) << i;
    // The numbers begin with that of the sensor's first datagram, which is 1.
    EXPECT_EQ(Sequence(packets[i]), 1 + i) << i;
  }
}

TEST_F(NodeUdpOutput, AFrameOfTwoEchoesIs3456PacketsInPairs) {
  config_.echo_output_code = 12;
  StartNode(config_);
  Packets packets = PlayFrame(9, 2);
  const Packets more = PlayFrame(10, 2);
  ASSERT_EQ(packets.size(), 3456U);
  ASSERT_EQ(more.size(), 3456U);
  packets.insert(packets.end(), more.begin(), more.end());
  for (std::size_t i = 0; i < packets.size(); ++i) {
    ASSERT_EQ(packets[i].size(), 249U) << i;
    EXPECT_EQ(packets[i][12], 1 + i % 2) << i;
    EXPECT_EQ(packets[i][207], i / 2 % kBlocks / kBlocksOfARow) << i;
    EXPECT_EQ(packets[i][208], i / 2 % kBlocksOfARow) << i;
    EXPECT_EQ(packets[i][211], 0x12) << i;
    EXPECT_EQ(Sequence(packets[i]), 1 + i) << i;
  }
}

// Its port is bound for a moment; what is sent leaves by another socket.
TEST_F(NodeUdpOutput, TheOutputSocketIsOpenedAndThenReplaced) {
  config_.udp_dest_port = 0;
  StartNode(config_);
  const std::string opening = OpeningOfTheOutput();
  EXPECT_EQ(opening.rfind("SocketSource::Open succeed, sock:", 0), 0U) << opening;
  EXPECT_NE(opening.find("\nSocketSource::Open SO_RCVBUF="), std::string::npos) << opening;
}

TEST_F(NodeUdpOutput, APortThatIsTakenDoesNotMatter) {
  StartNode(config_);
  EXPECT_EQ(OpeningOfTheOutput(), "SocketSource::Open(), bind failed, errno: 98\n");
  EXPECT_NE(start_log_.find("[LidarNode][A_node] output=UDP 127.0.0.1:" +
                            std::to_string(receiver_.port()) + "\n"),
            std::string::npos);
  Access().ForwardUDP710Row(0);
  EXPECT_EQ(receiver_.Take(48).size(), 48U);
}

TEST_F(NodeUdpOutput, GoesToTheAddressThatIsSet) {
  config_.udp_dest_ip = "127.1.2.3";  // the loopback interface too, where nobody listens
  StartNode(config_);
  Access().ForwardUDP710Row(0);
  config_.udp_dest_ip = "127.0.0.1";
  config_.shm_name = UniqueShmName("node");
  StartNode(config_);
  Access().ForwardUDP710Row(1);
  const Packets packets = receiver_.Take(48);
  ASSERT_EQ(packets.size(), 48U);
  for (const std::vector<std::uint8_t>& packet : packets) EXPECT_EQ(packet[207], 1);
}

// What joining a group prints on this machine: a network without a route for it refuses.
struct GroupLines {
  std::string out;
  std::string err;
};

GroupLines LinesOfJoining(const std::string& group) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ip_mreq request{};
  request.imr_multiaddr.s_addr = inet_addr(group.c_str());
  const bool joined = setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof(request)) == 0;
  close(fd);
  if (joined) return {"Recive data from multicast ip address " + group + "\n", ""};
  return {"", "Multicast IP error,set correct multicast ip address or keep it empty\n"};
}

TEST_F(NodeUdpOutput, InputAndOutputJoinTheGroupOfTheInput) {
  config_.recv_ip = "239.255.17.4";
  config_.udp_dest_port = 0;
  ::testing::internal::CaptureStderr();
  StartNode(config_);
  const std::string err = ::testing::internal::GetCapturedStderr();
  const std::string input = start_log_.substr(0, start_log_.find("[LidarNode][A_node] recv="));
  const GroupLines lines = LinesOfJoining(config_.recv_ip);
  EXPECT_NE(input.find(lines.out), std::string::npos) << start_log_;
  EXPECT_NE(OpeningOfTheOutput().find(lines.out), std::string::npos) << start_log_;
  if (!lines.err.empty()) {
    const std::size_t first = err.find(lines.err);
    ASSERT_NE(first, std::string::npos) << err;
    EXPECT_NE(err.find(lines.err, first + 1), std::string::npos) << err;
  }
  EXPECT_NE(start_log_.find("[LidarNode][A_node] recv=239.255.17.4:0\n"), std::string::npos);
}

// A source and an output that record when they go, and what is left of the node then.
class LastInput : public ScriptedSource {
 public:
  explicit LastInput(LidarNodeTestAccess access) : access_(access) {}
  ~LastInput() override {
    std::cout << "input goes, output " << (access_.udp_output() != nullptr ? "stays" : "gone")
              << ", ring " << (access_.shm_writer() != nullptr ? "stays" : "gone") << '\n';
  }

 private:
  LidarNodeTestAccess access_;
};

class LastOutput : public SocketSource {
 public:
  explicit LastOutput(LidarNodeTestAccess access) : SocketSource(0, ""), access_(access) {}
  ~LastOutput() override {
    std::cout << "output goes, ring " << (access_.shm_writer() != nullptr ? "stays" : "gone")
              << '\n';
  }

 private:
  LidarNodeTestAccess access_;
};

TEST_F(NodeUdpOutput, TheInputGoesFirstThenTheOutputThenTheRing) {
  config_.udp_output = false;
  StartNode(config_);
  Access().source() = std::make_unique<LastInput>(Access());
  Access().udp_output() = std::make_unique<LastOutput>(Access());
  ::testing::internal::CaptureStdout();
  node_.reset();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "input goes, output stays, ring stays\nSource::Close()\n"
            "output goes, ring stays\nSocketSource::Close()\nSource::Close()\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
