// Point packets by UDP to a host that cannot be reached, and then can. The program has no switch
// for it, so the node runs inside the test.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>

#include "MIPI_reader/node/lidar_node.h"
#include "process_fixture.h"

namespace kerul::lidar::testing {
namespace {

using namespace std::chrono_literals;

const std::string kFarHost = "10.9.9.9";  // no route leads there

class UdpOutput : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    config_.udp_output = true;
    config_.udp_dest_ip = kFarHost;
  }
  std::unique_ptr<LidarNode> MakeNode() const {
    return std::make_unique<LidarNode>("A_node", config_,
                                       (Directory() / CalibrationDirectory()).string());
  }
  std::unique_ptr<ChildProcess> StartStream() const {
    return StartSimulator({"--quiet", "--loop", "2", "--rate", "4"});
  }

  DefaultConfig config_ = default_config::kConfig;
};

TEST_F(UdpOutput, AnUnreachableHostNeitherStopsTheFramesNorDelaysTheEnd) {
  ::testing::internal::CaptureStdout();
  const auto node = MakeNode();
  const auto stream = StartStream();
  std::this_thread::sleep_for(3s);
  const auto begin = std::chrono::steady_clock::now();
  node->RequestStop();
  node->JoinWorker();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
  const std::string out = ::testing::internal::GetCapturedStdout();
  int frames = 0;
  int failures = 0;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("等效解包FPS: ", 0) == 0) ++frames;
    if (line == "SocketSource::Send, errno:101") ++failures;  // ENETUNREACH
  }
  EXPECT_GE(frames, 3) << out;
  EXPECT_GE(failures, 2) << out;
  EXPECT_LE(failures, 2 + 4) << "one new socket a second";
}

TEST_F(UdpOutput, GoesOnWhenTheHostCanBeReachedAgain) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const auto node = MakeNode();
  const auto stream = StartStream();
  std::this_thread::sleep_for(1500ms);
  isolation_.AddAddress(kFarHost);
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(config_.udp_dest_port);
  inet_pton(AF_INET, kFarHost.c_str(), &place.sin_addr);
  ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&place), sizeof(place)), 0);
  const timeval patience{20, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  std::uint8_t packet[1500];
  int received = 0;
  while (received < 1000 && recv(fd, packet, sizeof(packet), 0) == 249) ++received;
  EXPECT_EQ(received, 1000);
  close(fd);
  node->RequestStop();
  node->JoinWorker();
  ::testing::internal::GetCapturedStdout();
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("[WARN] [LidarNode][A_node] UDP output goes on after "), std::string::npos)
      << err;
}

}  // namespace
}  // namespace kerul::lidar::testing
