// Starts from a calibration directory: the three shapes, and what is refused.
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

const std::string kInvalid = "[ERROR] invalid --cali_path: ";
const std::string kFailed = "[ERROR] failed to start LidarNode: ";
constexpr auto kRing = "/kerul_lidar_udp_shm";

// True when there was a ring. It is removed: a node logs it when it finds an old one.
bool RemoveRing() { return shm_unlink(kRing) == 0; }

class CaliPathStart : public IsolatedProcessTest {
 protected:
  void SetUp() override {
    IsolatedProcessTest::SetUp();
    CalibrationDirectory();
  }
  fs::path File(const std::string& name) const {
    return Directory() / kSensorId / "para_read" / (kSensorId + name);
  }

  // A start that succeeds, its log, and an end by interrupt.
  void ExpectStart(const std::string& cali_path, const std::string& lidar_id,
                   const std::string& warning = "") const {
    SCOPED_TRACE(cali_path);
    const auto node = StartNode({"--cali_path", cali_path});
    ASSERT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
    EXPECT_EQ(node->Interrupt(), 0);
    EXPECT_EQ(node->Out(), StartLog(cali_path, "local_cache", lidar_id) +
                               "Interrupt signal (2) received.\n" + kClosingLines);
    EXPECT_EQ(node->Err(), warning);
    EXPECT_TRUE(RemoveRing());
  }

  // A directory that is refused before anything is opened.
  void ExpectInvalid(const std::string& cali_path, const std::string& reason) const {
    SCOPED_TRACE(cali_path);
    const auto node = StartNode({"--cali_path", cali_path});
    EXPECT_EQ(node->WaitForExit(), 1);
    EXPECT_EQ(node->Out(),
              "[INFO] using embedded default config for lidar \"QNDR_001\", cali_path=" +
                  cali_path + "\n");
    EXPECT_EQ(node->Err(), kInvalid + reason + "\n");
    EXPECT_FALSE(RemoveRing());
  }

  // Data that is refused: the start fails where the calibration is loaded, and what was opened is
  // closed again. `more` follows the loading line.
  void ExpectFailure(const std::string& cali_path, const std::string& reason,
                     const std::string& more = "") const {
    const auto node = StartNode({"--cali_path", cali_path});
    EXPECT_EQ(node->WaitForExit(), 1);
    EXPECT_EQ(node->Out(), FailedStartLog(cali_path, more));
    EXPECT_EQ(node->Err(), kFailed + reason + "\n");
    EXPECT_TRUE(RemoveRing());
  }

  // Changes one byte of a calibration file.
  void FlipByte(const std::string& name, std::streamoff at) const {
    std::fstream file(File(name), std::ios::binary | std::ios::in | std::ios::out);
    file.seekg(at);
    const int byte = file.get();
    file.seekp(at);
    file.put(static_cast<char>(byte ^ 1));
    ASSERT_TRUE(file.good());
  }
};

std::uint32_t WordAt(const std::vector<std::uint8_t>& bytes, std::size_t at) {
  return bytes[at] | std::uint32_t{bytes[at + 1]} << 8U | std::uint32_t{bytes[at + 2]} << 16U |
         std::uint32_t{bytes[at + 3]} << 24U;
}

// Written apart from the node and from the simulator: bit by bit.
std::uint32_t Checksum(const std::vector<std::uint8_t>& bytes, std::size_t count) {
  std::uint32_t crc = 0xFFFFFFFFU;
  for (std::size_t i = 0; i < count; ++i) {
    for (int bit = 7; bit >= 0; --bit) {
      const std::uint32_t in = (bytes[i] >> static_cast<unsigned>(bit)) & 1U;
      crc = (crc << 1U) ^ (((crc >> 31U) ^ in) != 0 ? 0x04C11DB7U : 0U);
    }
  }
  return crc;
}

std::string ChecksumText(const std::vector<std::uint8_t>& head,
                         const std::vector<std::uint8_t>& main) {
  return "para2 head checksum verify failed (para2_crc stored=" +
         std::to_string(WordAt(head, 128)) +
         " calc=" + std::to_string(Checksum(main, main.size())) +
         ", head128_crc stored=" + std::to_string(WordAt(head, 132)) +
         " calc=" + std::to_string(Checksum(head, 128)) + ")";
}

TEST_F(CaliPathStart, TheSensorsDirectoryServes) { ExpectStart("SIM-0001", "SIM-0001"); }

TEST_F(CaliPathStart, TheCacheDirectoryItselfServesAsAnAbsolutePathToo) {
  ExpectStart("SIM-0001/para_read/", "SIM-0001");
  ExpectStart((Directory() / "SIM-0001/para_read").string(), "SIM-0001");
}

// The id is the directory's, whatever the head says.
TEST_F(CaliPathStart, APlainDirectoryNamedAfterTheSensorServes) {
  fs::create_directory(Directory() / "A-7");
  fs::copy(File("_head.bin"), Directory() / "A-7/A-7_head.bin");
  fs::copy(File("_para2.bin"), Directory() / "A-7/A-7_para2.bin");
  ExpectStart("./A-7", "A-7",
              "[WARN] para2: A-7/A-7_head.bin holds the calibration of sensor \"SIM-0001\" and is "
              "loaded as that of \"A-7\"\n");
}

TEST_F(CaliPathStart, ADirectoryIsNoCacheAndNothingIsWritten) {
  ExpectStart("SIM-0001", "SIM-0001");
  EXPECT_FALSE(fs::exists(Directory() / "data"));
}

TEST_F(CaliPathStart, WhatIsNoDirectoryIsRefused) {
  ExpectInvalid("nowhere", "cali_path is not a valid directory: nowhere");
  ExpectInvalid("SIM-0001/para_read/SIM-0001_head.bin",
                "cali_path is not a valid directory: SIM-0001/para_read/SIM-0001_head.bin");
  ExpectInvalid(".", "cali_path is not a valid directory: .");
}

TEST_F(CaliPathStart, APathWithoutANameIsRefused) {
  ExpectInvalid("/", "cannot derive lidar_id from cali_path: /");
  fs::create_directories(Directory() / "a");
  ExpectInvalid("a/../..", "cannot derive lidar_id from cali_path: a/../..");
}

TEST_F(CaliPathStart, AMissingFileIsNamed) {
  fs::remove(File("_para2.bin"));
  ExpectInvalid("SIM-0001", "cali_path missing para2 bin: SIM-0001/para_read/SIM-0001_para2.bin");
  fs::remove(File("_head.bin"));
  ExpectInvalid("SIM-0001", "cali_path missing head bin: SIM-0001/para_read/SIM-0001_head.bin");
  fs::create_directory(Directory() / "empty");
  ExpectInvalid("empty/", "cali_path missing head bin: empty/empty_head.bin");
}

TEST_F(CaliPathStart, AFlippedBitOfTheTablesEndsTheStart) {
  FlipByte("_para2.bin", 100000);
  std::vector<std::uint8_t> main = SensorBlobs().main;
  main[100000] ^= 1U;
  ExpectFailure("SIM-0001", ChecksumText(SensorBlobs().head, main));
}

TEST_F(CaliPathStart, AFlippedBitOfTheHeadEndsTheStart) {
  FlipByte("_head.bin", 30);
  std::vector<std::uint8_t> head = SensorBlobs().head;
  head[30] ^= 1U;
  ExpectFailure("SIM-0001", ChecksumText(head, SensorBlobs().main));
}

TEST_F(CaliPathStart, FilesThatWereCutEndTheStart) {
  fs::resize_file(File("_para2.bin"), 168959);
  std::vector<std::uint8_t> main = SensorBlobs().main;
  main.resize(168959);
  ExpectFailure("SIM-0001", ChecksumText(SensorBlobs().head, main));
  fs::resize_file(File("_head.bin"), 135);
  ExpectFailure("SIM-0001", "para2 head too short for CRC fields");
}

// A camera model that no direction can be made of, under checksums that are right.
TEST_F(CaliPathStart, ABrokenCameraModelEndsTheStart) {
  std::vector<std::uint8_t> head = SensorBlobs().head;
  std::fill(head.begin() + 20, head.begin() + 98, std::uint8_t{0});
  const std::uint32_t crc = Checksum(head, 128);
  for (std::size_t i = 0; i < 4; ++i) {
    head[132 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
  }
  std::ofstream file(File("_head.bin"), std::ios::binary);
  file.write(reinterpret_cast<const char*>(head.data()), 256);
  file.close();
  const std::string reason = "角度标定参数无效 (rows/cols/f)";
  ExpectFailure(
      "SIM-0001", "angle calib from para2 head failed: " + reason,
      kDefaultNode.Yellow("para2 loaded from para_read cache (lidar_id=SIM-0001, skip main RCX)") +
          kDefaultNode.Green(
              "para2 load succeeded (source=local_cache, lidar_id=SIM-0001, CRC PASS)") +
          kDefaultNode.Red("angle calib from lidar memory failed: " + reason));
}

TEST_F(CaliPathStart, ARestartReportsTheRingThatItFinds) {
  const auto first = StartCalibratedNode();
  EXPECT_EQ(first->Interrupt(), 0);
  const auto second = StartNode({"--cali_path", "SIM-0001"});
  ASSERT_TRUE(WaitUntilRunning(*second));
  EXPECT_EQ(second->Interrupt(), 0);
  std::string expected = OpeningLines("SIM-0001");
  const std::string removed =
      "ShmRegion::Open removed stale region, name=/kerul_lidar_udp_shm (dev path: "
      "/dev/shm/kerul_lidar_udp_shm)\n";
  expected.insert(expected.find("ShmUdpWriter"), removed);
  EXPECT_EQ(second->Out().substr(0, expected.size()), expected);
}

// The start does not check the socket. The worker tries to open it at each of its ten reads,
// and takes it for closed then.
TEST_F(CaliPathStart, APortThatIsTakenEndsTheNodeAfterItsStart) {
  const int taken = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(2368);
  ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&place), sizeof(place)), 0);
  const auto node = StartNode({"--cali_path", "SIM-0001"});
  EXPECT_EQ(node->WaitForExit(), 0);
  close(taken);
  const std::string refused = "SocketSource::Open(), bind failed, errno: 98\n";  // EADDRINUSE
  std::string expected = StartLog("SIM-0001", "local_cache", kSensorId);
  const std::size_t opened = expected.find("SocketSource::Open succeed");
  expected.replace(opened, expected.find("[LidarNode]") - opened, refused);
  for (int i = 0; i < 10; ++i) expected += refused;
  expected += kDefaultNode.Plain("the udp source has been closed") + kClosingLines;
  EXPECT_EQ(node->Out(), expected);
  EXPECT_EQ(node->Err(), "");
}

TEST_F(CaliPathStart, ARingThatCannotBeMadeEndsTheStart) {
  fs::create_directory("/dev/shm/kerul_lidar_udp_shm");
  const auto node = StartNode({"--cali_path", "SIM-0001"});
  EXPECT_EQ(node->WaitForExit(), 1);
  const std::string opening = OpeningLines("SIM-0001");
  EXPECT_EQ(node->Out(), opening.substr(0, opening.find("ShmUdpWriter")) + kClosingLines);
  EXPECT_EQ(node->Err(),
            "ShmRegion::Open shm_unlink failed, name=/kerul_lidar_udp_shm errno=21 (Is a "
            "directory)\n" +
                kFailed + "ShmUdpWriter::Open failed: kerul_lidar_udp_shm\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
