// A sensor that goes while its calibration is read: the start falls back to the cache. A cache that
// is complete when the start looks for it is used at once. So only a cache that is made later, by
// another node or by hand, serves as the fallback.
#include <filesystem>
#include <memory>
#include <string>

#include "process_fixture.h"
#include "sensor_simulator/command_service.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;
using simulator::CommandService;
using simulator::ServiceFaults;

const std::string kInterruptLine = "Interrupt signal (2) received.\n";
const std::string kFailed = "[ERROR] failed to start LidarNode: para2 main read failed: ";

class FallbackStart : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    if (isolation_.Fault().empty()) isolation_.AddAddress(SensorIp());
  }

  void StartService(const ServiceFaults& faults) {
    service_ = std::make_unique<CommandService>(
        simulator::ServiceContent{SensorBlobs().head, SensorBlobs().main}, SensorIp(), kSensorPort,
        faults);
  }

  // A node whose main read waits for page 5. The cache was not there when it looked.
  std::unique_ptr<ChildProcess> StartStalledNode() {
    ServiceFaults faults;
    faults.on_register = simulator::kServiceMainRegister;
    faults.on_exchange = 5;
    faults.stall = simulator::StallPhase::kBeforeHeader;
    StartService(faults);
    auto node = StartNode();
    EXPECT_TRUE(WaitUntil([&] { return service_->received_requests() == 1 + 6; }));
    return node;
  }

  void WriteCache(const simulator::CalibrationBlobs& blobs) const {
    simulator::WriteBlobs(blobs, Directory() / "data");
  }
  void RemoveRing() const { fs::remove("/dev/shm/kerul_lidar_udp_shm"); }

  std::unique_ptr<CommandService> service_;
};

TEST_F(FallbackStart, ACacheThatCameMeanwhileServes) {
  const auto node = StartStalledNode();
  WriteCache(SensorBlobs());
  const auto written =
      fs::last_write_time(Directory() / "data/SIM-0001/para_read/SIM-0001_head.bin");
  service_.reset();
  ASSERT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(node->Out(), StartLog("", "bin", kSensorId) + kInterruptLine + kClosingLines);
  EXPECT_EQ(node->Err(), "");
  EXPECT_EQ(fs::last_write_time(Directory() / "data/SIM-0001/para_read/SIM-0001_head.bin"),
            written);

  // The next start finds the cache at once.
  RemoveRing();
  StartService({});
  const auto next = StartNode();
  ASSERT_TRUE(WaitUntilRunning(*next)) << next->Out() << next->Err();
  EXPECT_EQ(next->Interrupt(), 0);
  EXPECT_EQ(next->Out(), StartLog("", "local_cache", kSensorId) + kInterruptLine + kClosingLines);
  EXPECT_EQ(service_->received_requests(), 1);
}

// The waits of the stalled read end in the same way as a sensor that goes.
TEST_F(FallbackStart, ASensorThatOnlyFellSilentIsLeftAfterFiveWaits) {
  const auto node = StartStalledNode();
  WriteCache(SensorBlobs());
  ASSERT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(node->Out(), StartLog("", "bin", kSensorId) + kInterruptLine + kClosingLines);
}

TEST_F(FallbackStart, ASpoiltCacheFailsWithBothTexts) {
  const auto node = StartStalledNode();
  simulator::CalibrationBlobs spoilt = SensorBlobs();
  spoilt.head.resize(100);
  WriteCache(spoilt);
  service_.reset();
  EXPECT_EQ(node->WaitForExit(), 1);
  EXPECT_EQ(node->Out(), FailedStartLog(""));
  EXPECT_EQ(node->Err(), kFailed +
                             "RCX read header failed; bin fallback failed: para2 head too short "
                             "for CRC fields\n");
}

TEST_F(FallbackStart, HalfACacheFailsOnTheFileThatIsMissing) {
  WriteCache(SensorBlobs());
  fs::remove(Directory() / "data/SIM-0001/para_read/SIM-0001_para2.bin");
  const auto node = StartStalledNode();
  service_.reset();
  EXPECT_EQ(node->WaitForExit(), 1);
  EXPECT_EQ(node->Out(), FailedStartLog(""));
  EXPECT_EQ(node->Err(), kFailed +
                             "RCX read header failed; bin fallback failed: cannot open "
                             "data/SIM-0001/para_read/SIM-0001_para2.bin\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
