// The simulator's own program as a bad sensor, by its command line, and the node's start against
// it.
#include <filesystem>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

const std::string kFailed = "[ERROR] failed to start LidarNode: ";
const std::string kHeadFailed = kFailed + "para2 head register read failed: ";
const std::string kMainFailed = kFailed + "para2 main read failed: ";
const std::string kNoCache =
    "; bin fallback failed: cannot open data/SIM-0001/para_read/SIM-0001_head.bin\n";

class ServiceFaultOptionsTest : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    if (isolation_.Fault().empty()) isolation_.AddAddress(SensorIp());
  }

  std::unique_ptr<ChildProcess> StartSensor(std::vector<std::string> faults) const {
    faults.insert(faults.begin(),
                  {"--no-stream", "--bind", SensorIp(), "--rcx-port", std::to_string(kSensorPort)});
    auto sensor = StartSimulator(faults);
    EXPECT_TRUE(sensor->WaitFor(Stream::kOut, ":9347\n")) << sensor->Err();
    return sensor;
  }

  // A start against a sensor with these faults fails with this text on standard error.
  void ExpectFailure(const std::vector<std::string>& faults, const std::string& error) const {
    SCOPED_TRACE(::testing::PrintToString(faults));
    const auto sensor = StartSensor(faults);
    const auto node = StartNode();
    EXPECT_EQ(node->WaitForExit(), 1);
    EXPECT_EQ(WithoutProgress(node->Err()), error);
    EXPECT_EQ(node->Out(), FailedStartLog(""));
    EXPECT_FALSE(std::filesystem::exists(Directory() / "data"));
    std::filesystem::remove("/dev/shm/kerul_lidar_udp_shm");
    EXPECT_EQ(sensor->Interrupt(), 0);
  }
};

TEST_F(ServiceFaultOptionsTest, AnErrorCode) {
  ExpectFailure({"--rcx-return-code", "0x2A"}, kHeadFailed + "RCX return error code=0x2A\n");
  ExpectFailure({"--rcx-return-code", "165", "--rcx-register", "main", "--rcx-exchange", "660"},
                kMainFailed + "RCX return error code=0xA5" + kNoCache);
}

TEST_F(ServiceFaultOptionsTest, AFalseMagic) {
  ExpectFailure({"--rcx-magic", "4754"}, kHeadFailed + "RCX read header failed\n");
}

TEST_F(ServiceFaultOptionsTest, AClosedConnection) {
  ExpectFailure({"--rcx-close-unanswered", "--rcx-register", "head"},
                kHeadFailed + "RCX read header failed\n");
  // The second connection, after page 0 and half of page 1.
  ExpectFailure({"--rcx-close-after", "400", "--rcx-connection", "1"},
                kMainFailed + "RCX read body failed" + kNoCache);
}

TEST_F(ServiceFaultOptionsTest, TooFewBytes) {
  ExpectFailure({"--rcx-missing-bytes", "56"},
                kHeadFailed + "RCX read payload too short: need=256 bytes, got=200\n");
  ExpectFailure({"--rcx-announce", "0", "--rcx-register", "head"},
                kHeadFailed + "RCX read payload too short: need=256 bytes, got=0\n");
}

TEST_F(ServiceFaultOptionsTest, TooManyPieces) {
  ExpectFailure({"--rcx-body-piece", "1", "--rcx-piece-gap", "50"},
                kHeadFailed + "RCX read body failed\n");
  ExpectFailure({"--rcx-header-piece", "1", "--rcx-piece-gap", "400", "--rcx-register", "main"},
                kMainFailed + "RCX read header failed" + kNoCache);
}

TEST_F(ServiceFaultOptionsTest, AStall) {
  ExpectFailure({"--rcx-stall", "body", "--rcx-register", "main", "--rcx-exchange", "300"},
                kMainFailed + "RCX read body failed" + kNoCache);
}

TEST_F(ServiceFaultOptionsTest, ABlankSensor) {
  const std::string id(8, '\xFF');
  ExpectFailure({"--rcx-blank"}, kMainFailed +
                                     "para2 page_count invalid (0xFFFF); bin fallback failed: "
                                     "cannot open data/" +
                                     id + "/para_read/" + id + "_head.bin\n");
}

// 'S' becomes '/', which would lead out of the cache's place.
TEST_F(ServiceFaultOptionsTest, FlippedBitsOfTheSensorsName) {
  ExpectFailure({"--rcx-flip-at", "0", "--rcx-flip-mask", "0x7C"},
                kFailed + "cannot parse lidar_id from para2 head register bytes[0:20]\n");
}

TEST_F(ServiceFaultOptionsTest, OddButSoundAnswersServe) {
  const auto sensor = StartSensor({"--rcx-command", "0x11", "--rcx-front-bytes", "40"});
  const auto node = StartNode();
  ASSERT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(node->Out(),
            StartLog("", "online", kSensorId) + "Interrupt signal (2) received.\n" + kClosingLines);
}

}  // namespace
}  // namespace kerul::lidar::testing
