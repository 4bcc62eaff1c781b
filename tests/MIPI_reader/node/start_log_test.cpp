// What a start from the sensor's own calibration logs, line by line from the first to the last, for
// each source of the calibration and each failure on the way.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/command_service.h"
#include "sensor_simulator/frame_simulator.h"
#include "support/node_fixture.h"
#include "support/start_lines.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

using simulator::CalibrationBlobs;
using simulator::CommandService;
using simulator::kServiceHeadRegister;
using simulator::kServiceMainRegister;
using simulator::ServiceContent;
using simulator::ServiceFaults;
using simulator::StallPhase;

const std::string kId = "SIM-0001";
const std::string kLoading =
    kANode.Yellow("Loading para2 calibration (RCX head -> cache or full RCX)...");
const std::string kForced =
    kANode.Yellow("para2 force_read_from_lidar: must read head+main from lidar memory");
const std::string kFellBack =
    kANode.Yellow("para2 online read failed; fallback to para_read (lidar_id=SIM-0001)");
const std::string kHeadFailed = "para2 head register read failed: ";
const std::string kMainFailed = "para2 main read failed: ";

const CalibrationBlobs& Blobs() {
  static const CalibrationBlobs blobs = simulator::MakeBlobs(simulator::SimulatorOptions{});
  return blobs;
}

// A camera model that no direction can be made of, under checksums that are right.
CalibrationBlobs BrokenCameraBlobs() {
  CalibrationBlobs blobs = Blobs();
  std::fill(blobs.head.begin() + 20, blobs.head.begin() + 98, std::uint8_t{0});
  const std::uint32_t crc = simulator::Crc32Mpeg2(std::span(blobs.head).first(128));
  for (std::size_t i = 0; i < 4; ++i) {
    blobs.head[132 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
  }
  return blobs;
}

std::string Loaded(const std::string& label) {
  return kANode.Green("para2 load succeeded (source=" + label + ", lidar_id=SIM-0001, CRC PASS)");
}

const std::string kCacheSaved = kANode.Green("para_read cache saved (data/SIM-0001/para_read/)");

class StartLog : public NodeFixture {
 protected:
  StartLog() {
    config_.para2_enable = true;
    config_.lidar_ip = "127.0.0.1";
    config_.rcx_port = service_->port();
  }

  void ExpectStart(const std::string& lines, const std::string& cali_path = {}) {
    StartNode(config_, cali_path);
    EXPECT_EQ(NodeLines(start_log_), Opening() + lines);
  }
  void ExpectFailure(const std::string& error, const std::string& lines,
                     const std::string& cali_path = {}) {
    EXPECT_EQ(StartFailure(config_, cali_path), error);
    EXPECT_EQ(NodeLines(start_log_), Opening() + lines);
  }
  std::string Opening() const { return OpeningNodeLines(config_); }

  // Begins a start whose main read stalls at its third page; when it does, `meanwhile` runs and the
  // sensor goes.
  template <class Start>
  void LoseTheSensor(const std::function<void()>& meanwhile, const Start& start) {
    ServiceFaults faults;
    faults.on_register = kServiceMainRegister;
    faults.on_exchange = 2;
    faults.stall = StallPhase::kBeforeHeader;
    service_->SetFaults(faults);
    std::thread fate([&] {
      while (service_->received_requests() < 4) {  // the head, then pages 0 to 2
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      meanwhile();
      service_.reset();
    });
    start();
    fate.join();
  }

  TempWorkingDir directory_;
  std::unique_ptr<CommandService> service_ =
      std::make_unique<CommandService>(ServiceContent{Blobs().head, Blobs().main});
  DefaultConfig config_ = TestConfig();
};

void WriteCache(const CalibrationBlobs& blobs) { simulator::WriteBlobs(blobs, "data"); }

std::string CheckFailure(const CalibrationBlobs& blobs) {
  const auto stored = [&blobs](std::size_t at) {
    std::uint32_t word = 0;
    for (std::size_t i = 4; i-- > 0;) word = word << 8U | blobs.head[at + i];
    return std::to_string(word);
  };
  return "para2 head checksum verify failed (para2_crc stored=" + stored(128) +
         " calc=" + std::to_string(simulator::Crc32Mpeg2(blobs.main)) +
         ", head128_crc stored=" + stored(132) +
         " calc=" + std::to_string(simulator::Crc32Mpeg2(std::span(blobs.head).first(128))) + ")";
}

// ---- Sources.

TEST_F(StartLog, OfAFirstStartTellsOfTheSensorAndTheCacheThatWasSaved) {
  ExpectStart(kLoading + Loaded("online") + kCacheSaved + kANode.OfCalibration("online"));
}

TEST_F(StartLog, OfASecondStartTellsOfTheCache) {
  WriteCache(Blobs());
  ExpectStart(
      kLoading +
      kANode.Yellow("para2 loaded from para_read cache (lidar_id=SIM-0001, skip main RCX)") +
      Loaded("local_cache") + kANode.OfCalibration("local_cache"));
}

TEST_F(StartLog, OfAStartThatFellBackNamesItsFilesAndNoSavedCache) {
  LoseTheSensor(
      [] { WriteCache(Blobs()); },
      [this] { ExpectStart(kLoading + kFellBack + Loaded("bin") + kANode.OfCalibration("bin")); });
}

TEST_F(StartLog, OfADirectoryTellsOfTheCacheToo) {
  WriteCache(Blobs());
  ExpectStart(
      kANode.Yellow("Loading para2 calibration from cali_path=data/SIM-0001 (no RCX)...") +
          kANode.Yellow("para2 loaded from para_read cache (lidar_id=SIM-0001, skip main RCX)") +
          Loaded("local_cache") + kANode.OfCalibration("local_cache"),
      "data/SIM-0001");
  EXPECT_EQ(service_->accepted_connections(), 0);
}

TEST_F(StartLog, OfAForcedReadSaysSoAndThatTheCacheWasSavedAnew) {
  WriteCache(Blobs());
  config_.force_read_from_lidar = true;
  ExpectStart(kLoading + kForced + Loaded("online") + kCacheSaved + kANode.OfCalibration("online"));
}

TEST_F(StartLog, OfADirectorySaysThatItOverridesAForcedRead) {
  WriteCache(Blobs());
  config_.force_read_from_lidar = true;
  ExpectStart(
      kANode.Yellow("Loading para2 calibration from cali_path=data/SIM-0001 (no RCX)...") +
          kANode.Yellow("cali_path overrides force_read_from_lidar") +
          kANode.Yellow("para2 loaded from para_read cache (lidar_id=SIM-0001, skip main RCX)") +
          Loaded("local_cache") + kANode.OfCalibration("local_cache"),
      "data/SIM-0001");
  EXPECT_EQ(service_->accepted_connections(), 0);
}

TEST_F(StartLog, WithCalibrationOffEndsTheSensorsPartAtTheAngles) {
  config_.calib_enable = false;
  ExpectStart(kLoading + Loaded("online") + kCacheSaved +
              kANode.Green("angle calib load succssed (online, shape=3x216x288)") +
              kANode.OfTables());
  EXPECT_FALSE(Access().HasDistCalib());
  EXPECT_FALSE(Access().HasRetroCalib());
  EXPECT_FALSE(Access().HasHighReflCheck());
}

TEST_F(StartLog, NamesBothOriginsOfOptionalTablesThatDoNotFit) {
  config_.tables.cogh_efficiant.resize(601);
  config_.tables.retro_filter.resize(32);
  config_.high_refl_check.enable = false;
  ExpectStart(kLoading + Loaded("online") + kCacheSaved +
              kANode.Green("angle calib load succssed (online, shape=3x216x288)") +
              kANode.Red("cogh_efficiant load failed (para2/default_tables)") +
              kANode.Red("retro_filter load failed (para2/default_tables)") +
              kANode.Green("dist calib load succssed (lidar/bin, source=online)") +
              kANode.Green("dist curve high load succssed (embedded)") +
              kANode.Green("retro calib load succssed (lidar/bin, source=online)") +
              kANode.OfTables());
}

TEST_F(StartLog, NamesBothOriginsOfAReflectivityFloorThatFits) {
  config_.tables.retro_filter.assign(31, 1.0F);
  StartNode(config_);
  EXPECT_NE(start_log_.find(kANode.Green("cogh_efficiant load succssed (para2/default_tables)") +
                            kANode.Green("retro_filter load succssed (para2/default_tables)") +
                            kANode.Green("highrefl check enabled")),
            std::string::npos);
}

// ---- The settings of the sensor's calibration reach its reading, by values that are no defaults.

// Takes one request of 20 bytes and closes.
class OneRequest {
 public:
  OneRequest() : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(listener_, plain, size), 0);
    EXPECT_EQ(::listen(listener_, 1), 0);
    EXPECT_EQ(::getsockname(listener_, plain, &size), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
      const int peer = ::accept(listener_, nullptr, nullptr);
      bytes_.resize(20);
      const ssize_t got = ::recv(peer, bytes_.data(), bytes_.size(), MSG_WAITALL);
      bytes_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
      ::close(peer);
    });
  }
  ~OneRequest() { ::close(listener_); }
  OneRequest(const OneRequest&) = delete;
  OneRequest& operator=(const OneRequest&) = delete;

  int port() const { return port_; }
  std::vector<std::uint8_t> Bytes() {
    thread_.join();
    return bytes_;
  }

 private:
  int listener_;
  int port_ = 0;
  std::vector<std::uint8_t> bytes_;
  std::thread thread_;
};

TEST_F(StartLog, OfASensorThatHangsUpComesAfterARequestToTheDeviceOfTheSettings) {
  OneRequest sensor;
  config_.rcx_port = sensor.port();
  config_.iic_device = 0x157;  // its low byte counts
  ExpectFailure(kHeadFailed + "RCX read header failed", kLoading);
  const std::vector<std::uint8_t> request = sensor.Bytes();
  ASSERT_EQ(request.size(), 20U);
  EXPECT_EQ(request[12], 0x57);
}

TEST_F(StartLog, OfTilesOfNoSizeNamesBothSettings) {
  config_.tile_pixels = 0;
  config_.tile_columns = 7;
  ExpectFailure("para2 tile layout invalid: tile_pixels=0 tile_columns=7", kLoading);
  config_.tile_pixels = 11;
  config_.tile_columns = 0;
  ExpectFailure("para2 tile layout invalid: tile_pixels=11 tile_columns=0", kLoading);
}

TEST_F(StartLog, OfASensorComesWithTheParsersAngleGrid) {
  StartNode(config_);
  EXPECT_TRUE(Access().parser().angle_grid.valid);
  EXPECT_EQ(Access().parser().angle_grid.xyz, Access().angle_grid().xyz);
}

// ---- Failures: nothing is logged after the step that failed.

TEST_F(StartLog, EndsBehindTheLoadingLineWhenTheHeadCannotBeRead) {
  WriteCache(Blobs());
  ServiceFaults faults;
  faults.on_register = kServiceHeadRegister;
  faults.return_code = 0x0B;
  service_->SetFaults(faults);
  ExpectFailure(kHeadFailed + "RCX return error code=0x0B", kLoading);
  service_.reset();
  ExpectFailure(
      kHeadFailed + "RCX: connect to 127.0.0.1:" + std::to_string(config_.rcx_port) + " failed",
      kLoading);
  config_.lidar_ip = "sensor";
  ExpectFailure(kHeadFailed + "RCX: invalid IP sensor", kLoading);
}

TEST_F(StartLog, EndsBehindTheLoadingLineWhenTheHeadNamesNoSensor) {
  CalibrationBlobs blobs = Blobs();
  blobs.head[0] = '/';
  service_->SetContent({blobs.head, blobs.main});
  ExpectFailure("cannot parse lidar_id from para2 head register bytes[0:20]", kLoading);
}

TEST_F(StartLog, EndsBehindTheLoadingLineWhenReadAndFallbackFail) {
  LoseTheSensor([] {},
                [this] {
                  ExpectFailure(kMainFailed +
                                    "RCX read header failed; bin fallback failed: cannot open "
                                    "data/SIM-0001/para_read/SIM-0001_head.bin",
                                kLoading);
                });
}

TEST_F(StartLog, EndsBehindTheLoadingLineWhenTheFallbackFindsAHeadAlone) {
  WriteCache(Blobs());
  std::filesystem::remove("data/SIM-0001/para_read/SIM-0001_para2.bin");
  LoseTheSensor([] {},
                [this] {
                  ExpectFailure(kMainFailed +
                                    "RCX read header failed; bin fallback failed: cannot open "
                                    "data/SIM-0001/para_read/SIM-0001_para2.bin",
                                kLoading);
                });
}

TEST_F(StartLog, EndsBehindTheLoadingLineWhenTheFallbackFindsSpoiltTables) {
  CalibrationBlobs spoilt = Blobs();
  spoilt.main[5000] ^= 4U;
  LoseTheSensor([&] { WriteCache(spoilt); },
                [&] {
                  ExpectFailure(kMainFailed + "RCX read header failed; bin fallback failed: " +
                                    CheckFailure(spoilt),
                                kLoading);
                });
}

TEST_F(StartLog, EndsBehindTheForcedLineWhenAForcedReadFails) {
  WriteCache(Blobs());
  config_.force_read_from_lidar = true;
  ServiceFaults faults;
  faults.on_register = kServiceMainRegister;
  faults.on_exchange = 300;
  faults.close_before_answer = true;
  service_->SetFaults(faults);
  ExpectFailure("para2 main read failed (force_read_from_lidar): RCX read header failed",
                kLoading + kForced);
}

TEST_F(StartLog, EndsBehindTheLoadingLineWhenWhatWasReadIsSpoilt) {
  CalibrationBlobs spoilt = Blobs();
  spoilt.main[168959] ^= 0x80U;
  service_->SetContent({spoilt.head, spoilt.main});
  ExpectFailure(CheckFailure(spoilt), kLoading);
  EXPECT_FALSE(std::filesystem::exists("data"));
  // And when a cache is, whatever the sensor holds.
  service_->SetContent({Blobs().head, Blobs().main});
  WriteCache(spoilt);
  ExpectFailure(CheckFailure(spoilt), kLoading);
}

TEST_F(StartLog, EndsBehindTheLoadingLineWhenTheCacheCannotBeWritten) {
  std::ofstream("data") << "no directory";
  EXPECT_NE(StartFailure(config_), "");
  EXPECT_EQ(NodeLines(start_log_), Opening() + kLoading);
}

TEST_F(StartLog, EndsInRedWhenTheCameraModelServesNoAngles) {
  const CalibrationBlobs broken = BrokenCameraBlobs();
  const std::string reason = "角度标定参数无效 (rows/cols/f)";
  const std::string error = "angle calib from para2 head failed: " + reason;
  const std::string red = kANode.Red("angle calib from lidar memory failed: " + reason);
  service_->SetContent({broken.head, broken.main});
  ExpectFailure(error, kLoading + Loaded("online") + kCacheSaved + red);
  // The cache holds it now.
  ExpectFailure(
      error,
      kLoading +
          kANode.Yellow("para2 loaded from para_read cache (lidar_id=SIM-0001, skip main RCX)") +
          Loaded("local_cache") + red);
  std::filesystem::remove_all("data");
  service_ = std::make_unique<CommandService>(ServiceContent{broken.head, broken.main});
  config_.rcx_port = service_->port();
  LoseTheSensor([&] { WriteCache(broken); },
                [&] { ExpectFailure(error, kLoading + kFellBack + Loaded("bin") + red); });
}

TEST_F(StartLog, EndsAtTheCommonTableThatIsWrongAfterAFallbackToo) {
  config_.tables.cogw_a.resize(640);
  const std::string all = kANode.OfCalibration("bin");
  LoseTheSensor([] { WriteCache(Blobs()); },
                [&] {
                  ExpectFailure("Invalid cogw filter data (expect peak range 0..640)",
                                kLoading + kFellBack + Loaded("bin") +
                                    all.substr(0, all.find("\033[32m[LidarNode][A_node] cogw")));
                });
}

}  // namespace
}  // namespace kerul::lidar::testing
