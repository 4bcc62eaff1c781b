#include "calibration/para2_loading.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "calibration/recorded_timeouts.h"
#include "calibration/sample_para2.h"
#include "calibration/thrown_text.h"
#include "calibration/wire_peer.h"
#include "sensor_simulator/command_service.h"
#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

namespace fs = std::filesystem;
using para2_lidar_detail::ParaReadHeadBinPath;
using para2_lidar_detail::ParaReadMainBinPath;
using simulator::CommandService;
using simulator::ServiceContent;
using simulator::ServiceFaults;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kHead = 0xA02C;
constexpr std::uint16_t kMain = 0xA01C;
const std::string kId = "QNDR_003";
const std::string kCacheDir = "data/QNDR_003/para_read/";
const std::string kAngleFile = "Lidar-QNDR_003_angle_calib.dat";
constexpr const char* kNoRegisterId = "cannot parse lidar_id from para2 head register bytes[0:20]";

// A sensor with the sample in its memory, and an empty working directory.
class Para2Loading : public ::testing::Test {
 protected:
  Para2Loading() {
    options_.host = "127.0.0.1";
    options_.port = service_->port();
  }

  void Serve(const SamplePara2& sample) { service_->SetContent({sample.head, sample.main}); }
  Para2LidarCalib Load() { return LoadPara2Calib(options_); }
  std::string LoadError() {
    return ThrownText([this] { Load(); });
  }
  void CacheSample(const SamplePara2& sample) {
    WriteFile(ParaReadHeadBinPath(kId), sample.head);
    WriteFile(ParaReadMainBinPath(kId), sample.main);
  }

  testing::TempWorkingDir directory_;
  SamplePara2 sample_ = MakeSample(kId);
  std::unique_ptr<CommandService> service_ =
      std::make_unique<CommandService>(ServiceContent{sample_.head, sample_.main});
  Para2LoadOptions options_;
};

void ExpectSampleCalib(const Para2LidarCalib& calib, const SamplePara2& sample) {
  ASSERT_EQ(calib.dist_offset.size(), 82944U);
  ASSERT_EQ(calib.retro_scale.size(), 82944U);
  EXPECT_EQ(calib.dist_offset[1], static_cast<float>(sample.main[1]) + 1032.0F);
  EXPECT_EQ(calib.retro_scale[82943], static_cast<float>(sample.main[165887]) / 32.0F);
  ASSERT_EQ(calib.retro_curve.size(), 512U);
  const auto last = static_cast<std::int16_t>(sample.main[168958] + 0x100U * sample.main[168959]);
  EXPECT_EQ(calib.retro_curve[511], static_cast<float>(last) / 1024.0F);
  EXPECT_EQ(std::memcmp(&calib.angle_record, &sample.head[20], 78), 0);
}

TEST(Para2LoadOptionsRecord, HasTheSensorsFactorySettings) {
  const Para2LoadOptions options;
  EXPECT_EQ(options.port, 9347);
  EXPECT_EQ(options.iic_device, 0x40);
  EXPECT_EQ(options.tile_pixels, 36);
  EXPECT_EQ(options.tile_columns, 48);
  EXPECT_FALSE(options.force_read_from_lidar);
  EXPECT_EQ(options.cali_path, "");
}

TEST_F(Para2Loading, TheFirstStartReadsTheSensorPageByPageAndFillsTheCache) {
  const Para2LidarCalib calib = Load();
  EXPECT_EQ(calib.source, Para2CalibSource::kOnline);
  EXPECT_EQ(calib.lidar_id, kId);
  ExpectSampleCalib(calib, sample_);
  EXPECT_EQ(service_->accepted_connections(), 2);
  EXPECT_EQ(service_->received_requests(), 1 + 661);
  EXPECT_EQ(FileBytes(kCacheDir + "QNDR_003_head.bin"), sample_.head);
  EXPECT_EQ(FileBytes(kCacheDir + "QNDR_003_para2.bin"), sample_.main);
  EXPECT_EQ(FileBytes(kCacheDir + kAngleFile),
            Bytes(sample_.head.begin() + 20, sample_.head.begin() + 98));
}

TEST_F(Para2Loading, BothConnectionsWaitASecondInEitherDirection) {
  RecordedTimeouts timeouts;
  Load();
  const std::vector<long> second_each(2, 1000000);  // microseconds, head and main
  EXPECT_EQ(timeouts.receiving, second_each);
  EXPECT_EQ(timeouts.sending, second_each);
}

TEST_F(Para2Loading, TheSecondStartReadsTheHeadAloneAndTakesTheCache) {
  Load();
  const int requests = service_->received_requests();
  const Para2LidarCalib calib = Load();
  EXPECT_EQ(calib.source, Para2CalibSource::kLocalCache);
  EXPECT_EQ(calib.lidar_id, kId);
  ExpectSampleCalib(calib, sample_);
  EXPECT_EQ(service_->received_requests(), requests + 1);
}

TEST_F(Para2Loading, AnotherSensorsCacheIsUsedWithAWord) {
  CacheSample(MakeSample("OTHER\x1B[2J\\"));
  ::testing::internal::CaptureStderr();
  const Para2LidarCalib calib = Load();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "[WARN] para2: data/QNDR_003/para_read/QNDR_003_head.bin holds the calibration of "
            "sensor \"OTHER\\x1B[2J\\\\\" and is loaded as that of \"QNDR_003\"\n");
  EXPECT_EQ(calib.source, Para2CalibSource::kLocalCache);
  EXPECT_EQ(calib.lidar_id, kId);
}

TEST_F(Para2Loading, TheSensorsOwnCacheNeedsNoWord) {
  CacheSample(sample_);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(Load().source, Para2CalibSource::kLocalCache);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(Para2Loading, TheTileValuesReachTheUnpacking) {
  options_.tile_pixels = 1;
  options_.tile_columns = 16;
  const Para2LidarCalib calib = Load();
  ASSERT_EQ(calib.dist_offset.size(), 82944U);
  EXPECT_EQ(calib.dist_offset[9], static_cast<float>(sample_.main[9]) + 964.0F);
}

TEST_F(Para2Loading, WithTheHeadFileAloneTheSensorIsReadAndBothFilesAreRewritten) {
  WriteFile(ParaReadHeadBinPath(kId), {1, 2, 3});
  EXPECT_EQ(Load().source, Para2CalibSource::kOnline);
  EXPECT_EQ(FileBytes(ParaReadHeadBinPath(kId)), sample_.head);
  EXPECT_EQ(FileBytes(ParaReadMainBinPath(kId)), sample_.main);
}

TEST_F(Para2Loading, WithTheMainFileAloneTheSensorIsReadAndBothFilesAreRewritten) {
  WriteFile(ParaReadMainBinPath(kId), {1, 2, 3});
  EXPECT_EQ(Load().source, Para2CalibSource::kOnline);
  EXPECT_EQ(FileBytes(ParaReadHeadBinPath(kId)), sample_.head);
  EXPECT_EQ(FileBytes(ParaReadMainBinPath(kId)), sample_.main);
}

TEST_F(Para2Loading, ForcedReadingOverwritesACompleteCache) {
  CacheSample(MakeSample(kId, 169216));
  options_.force_read_from_lidar = true;
  const Para2LidarCalib calib = Load();
  EXPECT_EQ(calib.source, Para2CalibSource::kOnline);
  ExpectSampleCalib(calib, sample_);
  EXPECT_EQ(FileBytes(ParaReadMainBinPath(kId)), sample_.main);
}

TEST_F(Para2Loading, ForcedReadingFailsWithTheSensorThoughTheCacheIsComplete) {
  CacheSample(sample_);
  options_.force_read_from_lidar = true;
  ServiceFaults faults;
  faults.on_register = kMain;
  faults.on_exchange = 300;
  faults.close_before_answer = true;
  service_->SetFaults(faults);
  EXPECT_EQ(LoadError(), "para2 main read failed (force_read_from_lidar): RCX read header failed");
}

TEST_F(Para2Loading, ACorruptedCachedBlobEndsTheLoadWithoutAskingTheSensor) {
  SamplePara2 bad = sample_;
  bad.main[1000] ^= 0x10;
  CacheSample(bad);
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(LoadError().starts_with("para2 head checksum verify failed (para2_crc stored="));
  EXPECT_EQ(
      ::testing::internal::GetCapturedStderr(),
      "[WARN] the cached calibration cannot be used; to read it from the sensor again, delete " +
          (directory_.path() / kCacheDir).string() + "\n");
  EXPECT_EQ(service_->received_requests(), 1);
  EXPECT_EQ(FileBytes(ParaReadMainBinPath(kId)), bad.main);
}

TEST_F(Para2Loading, AFlippedBitOnTheWireEndsTheLoadAndNothingIsCached) {
  ServiceFaults faults;
  faults.on_register = kMain;
  faults.on_exchange = 17;
  faults.flip_at = 255;
  faults.flip_mask = 0x80;
  service_->SetFaults(faults);
  EXPECT_TRUE(LoadError().starts_with("para2 head checksum verify failed (para2_crc stored="));
  EXPECT_FALSE(fs::exists("data"));
}

TEST_F(Para2Loading, TheHeadPageAtTheMainRegisterIsDropped) {
  ServiceFaults faults;
  faults.on_register = kMain;
  faults.on_exchange = 0;
  faults.flip_at = 0;
  service_->SetFaults(faults);
  EXPECT_EQ(Load().source, Para2CalibSource::kOnline);
}

TEST_F(Para2Loading, ProgressIsToldEachHundredPages) {
  ::testing::internal::CaptureStderr();
  Load();
  std::string lines;
  for (const char* pages : {"100", "200", "300", "400", "500", "600"}) {
    lines += std::string("[INFO] para2: ") + pages + " of 661 pages read from the sensor\n";
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), lines);
}

// With 65534 announced pages, each as slow as allowed, a start would last for days.
TEST_F(Para2Loading, AReadThatLastsTooLongFailsWithItsFigures) {
  SamplePara2 endless = sample_;
  endless.head[98] = 0xFE;
  endless.head[99] = 0xFF;
  Serve(endless);
  ServiceFaults slow;
  slow.on_register = kMain;
  slow.body_piece_bytes = 128;
  slow.piece_gap_ms = 20;
  service_->SetFaults(slow);
  options_.main_read_limit = std::chrono::milliseconds(300);
  const auto begin = std::chrono::steady_clock::now();
  const std::string error = LoadError();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_TRUE(error.starts_with("para2 main read failed: para2 main read took more than 300 ms: "))
      << error;
  EXPECT_NE(error.find(" of 65534 pages read; bin fallback failed: cannot open data/"),
            std::string::npos)
      << error;
  EXPECT_GE(service_->received_requests(), 3);
}

TEST_F(Para2Loading, TheSlowestSoundSensorIsInsideTheLimit) {
  constexpr int kPages = 661;                       // of a valid main blob, the head's among them
  constexpr std::chrono::seconds kLongestPage{10};  // five waits for the header, five for the rest
  EXPECT_GE(Para2LoadOptions{}.main_read_limit, kPages * kLongestPage);
}

TEST_F(Para2Loading, AnInterruptEndsTheReadingWithoutTheFallback) {
  load_is_interrupted = true;
  EXPECT_THROW(Load(), LoadInterrupted);
  load_is_interrupted = false;
  EXPECT_EQ(service_->received_requests(), 1) << "the head, and no page of the tables";
  EXPECT_FALSE(fs::exists("data"));
}

TEST_F(Para2Loading, AnInterruptDoesNotKeepTheCacheFromLoading) {
  CacheSample(sample_);
  load_is_interrupted = true;
  EXPECT_EQ(Load().source, Para2CalibSource::kLocalCache);
  load_is_interrupted = false;
}

TEST_F(Para2Loading, AMissingCacheFileMakesTheFallbackFailWithBothTexts) {
  WriteFile(ParaReadHeadBinPath(kId), sample_.head);
  ServiceFaults faults;
  faults.on_register = kMain;
  faults.on_exchange = 660;
  faults.return_code = 0x2A;
  service_->SetFaults(faults);
  EXPECT_EQ(LoadError(),
            "para2 main read failed: RCX return error code=0x2A; bin fallback failed: cannot open "
            "data/QNDR_003/para_read/QNDR_003_para2.bin");
}

TEST_F(Para2Loading, TheCacheServesWhenItCameToBeDuringAReadThatFailed) {
  ServiceFaults faults;
  faults.on_register = kMain;
  faults.on_exchange = 2;
  faults.stall = simulator::StallPhase::kBeforeHeader;
  service_->SetFaults(faults);
  auto loading = std::async(std::launch::async, [this] { return Load(); });
  while (service_->received_requests() < 4) {  // the head, then pages 0 to 2
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  CacheSample(sample_);
  service_.reset();  // closes the stalled connection
  const Para2LidarCalib calib = loading.get();
  EXPECT_EQ(calib.source, Para2CalibSource::kFallback);
  EXPECT_EQ(calib.lidar_id, kId);
  ExpectSampleCalib(calib, sample_);
}

TEST_F(Para2Loading, ASensorOutOfReachIsFatalThoughTheCacheIsComplete) {
  CacheSample(sample_);
  options_.port = ClosedPort();
  EXPECT_EQ(LoadError(), "para2 head register read failed: RCX: connect to 127.0.0.1:" +
                             std::to_string(options_.port) + " failed");
  options_.host = "sensor";
  EXPECT_EQ(LoadError(), "para2 head register read failed: RCX: invalid IP sensor");
}

TEST_F(Para2Loading, AHeadReadThatFailsCarriesTheClientsText) {
  ServiceFaults faults;
  faults.on_register = kHead;
  faults.return_code = 7;
  service_->SetFaults(faults);
  EXPECT_EQ(LoadError(), "para2 head register read failed: RCX return error code=0x07");
  faults.return_code = 0;
  faults.missing_bytes = 56;
  service_->SetFaults(faults);
  EXPECT_EQ(LoadError(),
            "para2 head register read failed: RCX read payload too short: need=256 bytes, got=200");
}

TEST_F(Para2Loading, ASecondConnectionThatClosesAtOnceIsAFailedRead) {
  ServiceFaults faults;
  faults.on_connection = 1;
  faults.close_after_bytes = 0;
  service_->SetFaults(faults);
  EXPECT_EQ(LoadError(),
            "para2 main read failed: RCX read header failed; bin fallback failed: cannot open "
            "data/QNDR_003/para_read/QNDR_003_head.bin");
}

TEST_F(Para2Loading, ABlankSensorHasNoPages) {
  ServiceFaults faults;
  faults.blank = true;
  service_->SetFaults(faults);
  const std::string id(8, '\xFF');
  EXPECT_EQ(LoadError(),
            "para2 main read failed: para2 page_count invalid (0xFFFF); bin fallback failed: "
            "cannot open data/" +
                id + "/para_read/" + id + "_head.bin");
  EXPECT_FALSE(fs::exists("data"));
}

TEST_F(Para2Loading, PageCountsBelowTwoAreRefused) {
  for (std::uint8_t pages : {std::uint8_t{0}, std::uint8_t{1}}) {
    sample_.head[98] = pages;
    sample_.head[99] = 0;
    Bytes main;
    EXPECT_EQ(ThrownText([&] { para2_lidar_detail::ReadMainOnline(options_, sample_.head, main); }),
              "para2 page_count invalid (<2): " + std::to_string(pages));
  }
  EXPECT_EQ(service_->accepted_connections(), 0);
}

TEST_F(Para2Loading, APageCountWithOneByteOfOnesIsANumber) {
  SamplePara2 sample = MakeSample(kId, 254 * 256);
  ASSERT_EQ(sample.head[98], 0xFF);
  ASSERT_EQ(sample.head[99], 0x00);
  Serve(sample);
  Bytes main{1, 2, 3};  // cleared first
  para2_lidar_detail::ReadMainOnline(options_, sample.head, main);
  EXPECT_EQ(main, sample.main);
  EXPECT_EQ(service_->received_requests(), 255);
  // Its checksums are right, its tables are not all there, and nothing is cached.
  EXPECT_EQ(LoadError(), "para2 main bin too short: 65024 < 168960");
  EXPECT_FALSE(fs::exists("data"));
}

TEST_F(Para2Loading, AHeadWithoutItsPageCountIsRefused) {
  Bytes main;
  EXPECT_EQ(ThrownText([&] { para2_lidar_detail::ReadMainOnline(options_, Bytes(99), main); }),
            "para2 head too short for page_count");
  EXPECT_EQ(ThrownText([&] { para2_lidar_detail::ReadMainOnline(options_, Bytes(100), main); }),
            "para2 page_count invalid (<2): 0");
}

TEST_F(Para2Loading, TilesOfZeroPixelsEndTheLoadAndNothingIsCached) {
  options_.tile_pixels = 0;
  EXPECT_EQ(LoadError(), "para2 tile layout invalid: tile_pixels=0 tile_columns=48");
  EXPECT_FALSE(fs::exists("data"));
}

TEST_F(Para2Loading, ACacheThatCannotBeWrittenEndsTheLoad) {
  WriteFile("data", {});
  EXPECT_THROW(Load(), fs::filesystem_error);
}

TEST_F(Para2Loading, AnIdThatWouldLeaveTheCacheIsRefusedAndNothingIsWritten) {
  const std::string ids[] = {".", "..", "/", "../x", "a/b", "/etc", "x/", "../../../up",
                             std::string("a\0b", 3), std::string("\0", 1),
                             // Listing the directory would clear the terminal.
                             "a\x1B[2J", "a\nb", "\x7F"};
  int refused = 0;
  for (const std::string& id : ids) {
    Serve(MakeSample(id));
    EXPECT_EQ(LoadError(), kNoRegisterId) << id;
    ++refused;
  }
  EXPECT_EQ(refused, 13);
  EXPECT_TRUE(fs::is_empty(directory_.path()));
  EXPECT_EQ(service_->received_requests(), refused);  // no page was asked for
}

TEST_F(Para2Loading, AnIdOfTwentyOddBytesNamesOneDirectory) {
  const std::string id = "..~ \\$:*?\"<>|\x80...abc";
  ASSERT_EQ(id.size(), 20U);
  Serve(MakeSample(id));
  EXPECT_EQ(Load().lidar_id, id);
  EXPECT_TRUE(fs::exists("data/" + id + "/para_read/" + id + "_para2.bin"));
  EXPECT_EQ(Load().source, Para2CalibSource::kLocalCache);
}

TEST(Para2Head, RegisterHeadsAreCheckedForTheirId) {
  using para2_lidar_detail::LidarIdFromRegister;
  EXPECT_EQ(ThrownText([] { LidarIdFromRegister({}); }),
            "para2 head register read failed: empty head");
  EXPECT_EQ(ThrownText([] { LidarIdFromRegister(Bytes(19, 'A')); }), kNoRegisterId);
  EXPECT_EQ(LidarIdFromRegister(Bytes(20, 'A')), std::string(20, 'A'));
}

TEST(Para2Head, HeadsAreCheckedForIdAndCameraModel) {
  using para2_lidar_detail::TakeHeadFields;
  Para2LidarCalib calib;
  EXPECT_EQ(ThrownText([&] { TakeHeadFields(Bytes(19, 'A'), calib); }),
            "cannot parse lidar_id from para2 head bytes[0:20]");
  EXPECT_EQ(ThrownText([&] { TakeHeadFields(Bytes(97, 'A'), calib); }),
            "para2 head too short for angle block");
  EXPECT_NO_THROW(TakeHeadFields(Bytes(98, 'A'), calib));
}

}  // namespace
}  // namespace kerul::lidar
