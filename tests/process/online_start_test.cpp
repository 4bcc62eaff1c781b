// Starts without arguments: the sensor answers on its compiled-in address.
#include <sys/mount.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_tap.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

const std::string kEnd = "Interrupt signal (2) received.\n" + kClosingLines;

std::vector<std::uint8_t> FileBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class OnlineStart : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    if (isolation_.Fault().empty()) isolation_.AddAddress(SensorIp());
  }

  // A sensor that answers and, unless told not to, streams; on its address and port when returned.
  std::unique_ptr<ChildProcess> StartSensor(std::vector<std::string> more = {}) const {
    more.insert(more.end(), {"--bind", SensorIp(), "--rcx-port", "9347", "--quiet", "--loop", "2",
                             "--rate", "4"});
    auto sensor = StartSimulator(more);
    EXPECT_TRUE(sensor->WaitFor(Stream::kOut, "command service of"));
    EXPECT_TRUE(sensor->WaitFor(Stream::kOut, " on " + SensorIp() + ":9347\n")) << sensor->Err();
    return sensor;
  }

  // What a start without arguments logs, without frame lines and end. The node has ended then.
  std::string LogOfStart() const {
    const auto node = StartNode();
    EXPECT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
    EXPECT_EQ(node->Interrupt(), 0);
    const bool was_read = node->Out().find("source=online") != std::string::npos;
    EXPECT_EQ(node->Err(), was_read ? ProgressLines() : "");
    // A ring that the next start finds would have a line there.
    fs::remove("/dev/shm/kerul_lidar_udp_shm");
    const std::size_t end = node->Out().rfind(kEnd);
    EXPECT_NE(end, std::string::npos);
    return node->Out().substr(0, end);
  }
  fs::path Cache(const std::string& id = kSensorId) const {
    return Directory() / "data" / id / "para_read";
  }
};

TEST_F(OnlineStart, TheFirstStartReadsTheSensorAndTheSecondItsCache) {
  const auto sensor = StartSensor({"--no-stream"});
  EXPECT_EQ(LogOfStart(), StartLog("", "online", kSensorId));
  EXPECT_EQ(FileBytes(Cache() / "SIM-0001_head.bin"), SensorBlobs().head);
  EXPECT_EQ(FileBytes(Cache() / "SIM-0001_para2.bin"), SensorBlobs().main);
  EXPECT_EQ(FileBytes(Cache() / "Lidar-SIM-0001_angle_calib.dat").size(), 78U);
  const auto written = fs::last_write_time(Cache() / "SIM-0001_para2.bin");
  EXPECT_EQ(LogOfStart(), StartLog("", "local_cache", kSensorId));
  EXPECT_EQ(fs::last_write_time(Cache() / "SIM-0001_para2.bin"), written);
  // And the cache serves as a directory to start from, without a sensor.
  EXPECT_EQ(sensor->Interrupt(), 0);
  const auto node = StartNode({"--cali_path", "data/SIM-0001"});
  ASSERT_TRUE(WaitUntilRunning(*node));
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(node->Out(), StartLog("data/SIM-0001", "local_cache", kSensorId) + kEnd);
}

TEST_F(OnlineStart, EachSensorHasACacheOfItsOwn) {
  {
    const auto sensor = StartSensor({"--no-stream"});
    EXPECT_EQ(LogOfStart(), StartLog("", "online", kSensorId));
  }
  const auto other = StartSensor({"--no-stream", "--serial", "2"});
  EXPECT_EQ(LogOfStart(), StartLog("", "online", "SIM-0002"));
  EXPECT_TRUE(fs::exists(Cache() / "SIM-0001_para2.bin"));
  EXPECT_TRUE(fs::exists(Cache("SIM-0002") / "SIM-0002_para2.bin"));
  EXPECT_NE(FileBytes(Cache() / "SIM-0001_para2.bin"),
            FileBytes(Cache("SIM-0002") / "SIM-0002_para2.bin"));
}

TEST_F(OnlineStart, FramesComeThroughTheWholeChain) {
  const auto sensor = StartSensor();
  RingTap tap;
  for (std::uint64_t run = 1; run <= 2; ++run) {
    const auto node = StartNode();
    const CollectedFrame* frame = nullptr;
    do {
      frame = tap.NextComplete();
      ASSERT_NE(frame, nullptr) << node->Out() << node->Err();
    } while (tap.Ring().attached != run || CountReturns(*frame) < 216 * 288 / 4);
    EXPECT_TRUE(node->WaitFor(
        Stream::kOut, run == 1 ? "(source=online, lidar_id=" : "(source=local_cache, lidar_id="));
    EXPECT_EQ(node->Interrupt(), 0);
  }
}

TEST_F(OnlineStart, WithoutASensorTheStartFailsThoughTheCacheIsThere) {
  const std::string error =
      "[ERROR] failed to start LidarNode: para2 head register read failed: RCX: connect to " +
      SensorIp() + ":9347 failed\n";
  {
    const auto sensor = StartSensor({"--no-stream"});
    LogOfStart();
  }
  const auto node = StartNode();
  EXPECT_EQ(node->WaitForExit(), 1);
  EXPECT_EQ(node->Err(), error);
  EXPECT_EQ(node->Out(), FailedStartLog(""));
}

// A cache that somebody or something has cut. The next start works or says what is wrong and what
// to delete.
TEST_F(OnlineStart, EveryPartOfACacheIsUsedOrRefused) {
  const auto sensor = StartSensor({"--no-stream"});
  LogOfStart();
  const fs::path head = Cache() / "SIM-0001_head.bin";
  const fs::path main = Cache() / "SIM-0001_para2.bin";
  const std::string failed =
      "[WARN] the cached calibration cannot be used; to read it from the sensor again, delete " +
      Cache().string() + "/\n[ERROR] failed to start LidarNode: ";
  const auto error_of_start = [this] {
    const auto node = StartNode();
    EXPECT_EQ(node->WaitForExit(), 1);
    EXPECT_EQ(node->Out(), FailedStartLog(""));
    fs::remove("/dev/shm/kerul_lidar_udp_shm");
    return node->Err();
  };

  // Tables that are not there yet, or not to their end.
  fs::remove(Cache() / "Lidar-SIM-0001_angle_calib.dat");  // written last, never read
  EXPECT_EQ(LogOfStart(), StartLog("", "local_cache", kSensorId));
  const std::string mismatch = failed + "para2 head checksum verify failed (para2_crc stored=";
  for (const std::uintmax_t size : {168959U, 4096U, 1U, 0U}) {
    fs::resize_file(main, size);
    EXPECT_EQ(error_of_start().rfind(mismatch, 0), 0U) << size;
  }
  for (const std::uintmax_t size : {256U, 100U, 0U}) {
    fs::remove(main);
    fs::resize_file(head, size);
    EXPECT_EQ(LogOfStart(), StartLog("", "online", kSensorId)) << size;
    EXPECT_EQ(FileBytes(main), SensorBlobs().main);
  }

  // A head that was cut, with the tables of an earlier start. What the checksums cover is enough.
  fs::resize_file(head, 136);
  EXPECT_EQ(LogOfStart(), StartLog("", "local_cache", kSensorId));
  for (const std::uintmax_t size : {135U, 19U, 0U}) {
    fs::resize_file(head, size);
    EXPECT_EQ(error_of_start(), failed + "para2 head too short for CRC fields\n") << size;
  }
}

// Killed anywhere from its first instruction to its first frame, the cache and its writing
// included.
TEST_F(OnlineStart, AKilledStartNeverHindersTheNextOne) {
  const auto sensor = StartSensor({"--no-stream"});
  std::mt19937 random(3);
  std::uniform_int_distribution<int> life_ms(0, 250);
  for (int round = 0; round < 6; ++round) {
    fs::remove_all(Directory() / "data");
    const auto victim = StartNode();
    EXPECT_EQ(victim->WaitForExit(std::chrono::milliseconds(life_ms(random))), std::nullopt);
    victim->Signal(SIGKILL);
    ASSERT_EQ(victim->WaitForExit(), 128 + SIGKILL);
    const auto node = StartNode();
    ASSERT_TRUE(WaitUntilRunning(*node)) << node->Err();
    EXPECT_EQ(node->Interrupt(), 0);
    const bool was_read = node->Out().find("source=online") != std::string::npos;
    EXPECT_EQ(node->Err(), was_read ? ProgressLines() : "");
  }
}

// The sensor's data do not fit the disk; then there is room again.
TEST_F(OnlineStart, AFullDiskEndsTheStartAndLeavesNothingThatHindersTheNextOne) {
  const auto sensor = StartSensor({"--no-stream"});
  const fs::path disk = Directory() / "data";
  fs::create_directory(disk);
  ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=64k"), 0);
  {
    const auto node = StartNode();
    EXPECT_EQ(node->WaitForExit(), 1);
    EXPECT_EQ(node->Err(), ProgressLines() +
                               "[ERROR] failed to start LidarNode: write failed: "
                               "data/SIM-0001/para_read/SIM-0001_para2.bin\n");
    EXPECT_TRUE(fs::is_empty(Cache()));
    fs::remove("/dev/shm/kerul_lidar_udp_shm");
  }
  ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", MS_REMOUNT, "size=1m"), 0);
  EXPECT_EQ(LogOfStart(), StartLog("", "online", kSensorId));
  EXPECT_EQ(LogOfStart(), StartLog("", "local_cache", kSensorId));
  umount2(disk.c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace kerul::lidar::testing
