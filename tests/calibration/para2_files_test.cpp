// Cache files and named directories: what is there, what is half there, what is something else.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "calibration/para2_loading.h"
#include "calibration/sample_para2.h"
#include "calibration/thrown_text.h"
#include "calibration/wire_peer.h"
#include "sensor_simulator/command_service.h"
#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

namespace fs = std::filesystem;
using para2_lidar_detail::ParaReadDir;
using para2_lidar_detail::ParaReadHeadBinPath;
using para2_lidar_detail::ParaReadMainBinPath;
using para2_lidar_detail::ReadFileBytes;
using para2_lidar_detail::ResolveCaliPath;
using para2_lidar_detail::SaveParaReadCache;
using simulator::CommandService;
using simulator::ServiceContent;
using Bytes = std::vector<std::uint8_t>;

const std::string kId = "QNDR_003";

class Para2Files : public ::testing::Test {
 protected:
  testing::TempWorkingDir directory_;
};

TEST_F(Para2Files, TheCachePathsAreMadeOfTheId) {
  EXPECT_EQ(ParaReadDir("X1"), "data/X1/para_read/");
  EXPECT_EQ(ParaReadHeadBinPath("X1"), "data/X1/para_read/X1_head.bin");
  EXPECT_EQ(ParaReadMainBinPath("X1"), "data/X1/para_read/X1_para2.bin");
}

TEST_F(Para2Files, AFileIsReadAsAWhole) {
  WriteFile("some", {0, 255, '\n', '\r', 26});
  EXPECT_EQ(ReadFileBytes("some"), (Bytes{0, 255, '\n', '\r', 26}));
  WriteFile("none", {});
  EXPECT_TRUE(ReadFileBytes("none").empty());
}

TEST_F(Para2Files, AFileThatIsNotThereCannotBeOpened) {
  EXPECT_EQ(ThrownText([] { ReadFileBytes("nowhere/x.bin"); }), "cannot open nowhere/x.bin");
}

TEST_F(Para2Files, ADirectoryOrAPipeHasNoSize) {
  fs::create_directory("folder");
  EXPECT_EQ(ThrownText([] { ReadFileBytes("folder"); }), "cannot stat folder");
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  // And no wait for a writer.
  EXPECT_EQ(ThrownText([] { ReadFileBytes("pipe"); }), "cannot stat pipe");
}

TEST_F(Para2Files, AFileThatGivesLessThanItsSizeFailsInTheReading) {
  const std::string path = "/sys/kernel/mm/transparent_hugepage/enabled";
  std::error_code error;
  if (fs::file_size(path, error) < 100 || error) {
    GTEST_SKIP() << "no file at hand that states more bytes than it gives";
  }
  EXPECT_EQ(ThrownText([&] { ReadFileBytes(path); }), "read failed: " + path);
}

TEST_F(Para2Files, SavingWritesThreeFilesAndEmptyBlobsGiveEmptyFiles) {
  Para2LidarCalib calib;
  calib.angle_record.rows = 0x1234;
  SaveParaReadCache("X", {}, {}, calib);
  EXPECT_TRUE(FileBytes("data/X/para_read/X_head.bin").empty());
  EXPECT_TRUE(FileBytes("data/X/para_read/X_para2.bin").empty());
  Bytes angle(78, 0);
  angle[6] = 0x34;
  angle[7] = 0x12;
  EXPECT_EQ(FileBytes("data/X/para_read/Lidar-X_angle_calib.dat"), angle);
}

TEST_F(Para2Files, SavingOverLongerFilesLeavesNoneOfTheirBytes) {
  WriteFile("data/X/para_read/X_head.bin", Bytes(999, 1));
  SaveParaReadCache("X", {7}, {8, 9}, {});
  EXPECT_EQ(FileBytes("data/X/para_read/X_head.bin"), Bytes{7});
  EXPECT_EQ(FileBytes("data/X/para_read/X_para2.bin"), (Bytes{8, 9}));
}

const char* const kCacheFiles[] = {"data/X/para_read/X_head.bin", "data/X/para_read/X_para2.bin",
                                   "data/X/para_read/Lidar-X_angle_calib.dat"};

TEST_F(Para2Files, EachFileThatCannotBeOpenedForWritingIsNamed) {
  for (const std::string path : kCacheFiles) {
    fs::remove_all("data");
    fs::create_directories(path);
    EXPECT_EQ(ThrownText([] { SaveParaReadCache("X", {1}, {2}, {}); }), "cannot write " + path);
  }
}

// While it lives, no file of this process grows beyond `bytes`: writing more fails as on a full
// disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

std::vector<std::string> FilesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

constexpr rlim_t kDiskBytes = 78;  // the angle file fits

TEST_F(Para2Files, AFileThatDoesNotFitTheDiskIsNamedAndNoneIsLeft) {
  const Bytes fits(78, 1);
  const Bytes does_not(79, 2);
  for (const auto& [head, main, failing] :
       {std::tuple{does_not, fits, 0}, std::tuple{fits, does_not, 1}}) {
    std::string text;
    {
      const FullDisk disk(kDiskBytes);
      text = ThrownText([&] { SaveParaReadCache("X", head, main, {}); });
    }
    EXPECT_EQ(text, std::string("write failed: ") + kCacheFiles[failing]);
    EXPECT_EQ(FilesIn("data/X/para_read"), std::vector<std::string>{});
  }
}

TEST_F(Para2Files, AWriteThatFailsLeavesTheCacheOfBefore) {
  SaveParaReadCache("X", {7}, {8, 9}, {});
  const std::vector<std::string> files = FilesIn("data/X/para_read");
  {
    const FullDisk disk(kDiskBytes);
    EXPECT_NE(ThrownText([] { SaveParaReadCache("X", {1}, Bytes(79, 2), {}); }),
              "[nothing thrown]");
  }
  EXPECT_EQ(FilesIn("data/X/para_read"), files);
  EXPECT_EQ(FileBytes("data/X/para_read/X_head.bin"), Bytes{7});
  EXPECT_EQ(FileBytes("data/X/para_read/X_para2.bin"), (Bytes{8, 9}));
}

TEST_F(Para2Files, ANameThatCannotBeGivenLeavesNoFileOfEitherSet) {
  for (const std::string path : kCacheFiles) {
    fs::remove_all("data");
    SaveParaReadCache("X", {7}, {8, 9}, {});
    fs::remove(path);
    fs::create_directories(path);
    EXPECT_EQ(ThrownText([] { SaveParaReadCache("X", {1}, {2}, {}); }), "cannot write " + path);
    EXPECT_EQ(FilesIn("data/X/para_read"), std::vector<std::string>{fs::path(path).filename()});
  }
}

TEST_F(Para2Files, ALinkInThePlaceOfAFileIsReplacedAndNotFollowed) {
  WriteFile("elsewhere", {5});
  for (const std::string path : kCacheFiles) {
    for (const std::string& name : {path, path + ".new"}) {
      fs::remove_all("data");
      fs::create_directories("data/X/para_read");
      fs::create_symlink(fs::absolute("elsewhere"), name);
      SaveParaReadCache("X", {1}, {2}, {});
      EXPECT_EQ(FileBytes("elsewhere"), Bytes{5}) << name;
      EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path))) << name;
      EXPECT_FALSE(fs::exists(path + ".new"));
    }
  }
}

// How far a file was written when the power went.
struct Cut {
  bool exists;
  std::size_t bytes;
};

Bytes Prefix(const Bytes& bytes, std::size_t size) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

class Para2InterruptedCache : public Para2Files {
 protected:
  // What a start gives with files of these lengths: "online", "local_cache" or the text it ends
  // with.
  std::string Start(Cut head, Cut main, Cut angle) {
    fs::remove_all("data");
    if (head.exists) WriteFile(ParaReadHeadBinPath(kId), Prefix(sample_.head, head.bytes));
    if (main.exists) WriteFile(ParaReadMainBinPath(kId), Prefix(sample_.main, main.bytes));
    if (angle.exists) {
      WriteFile(ParaReadDir(kId) + "Lidar-QNDR_003_angle_calib.dat", Bytes(angle.bytes, 1));
    }
    Para2LoadOptions options;
    options.host = "127.0.0.1";
    options.port = service_.port();
    try {
      const Para2LidarCalib calib = LoadPara2Calib(options);
      EXPECT_EQ(calib.lidar_id, kId);
      EXPECT_EQ(calib.retro_curve.size(), 512U);
      return calib.source == Para2CalibSource::kOnline ? "online" : "local_cache";
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }

  // The text for a main file that is `size` bytes of the whole.
  std::string MismatchText(std::size_t size) const {
    const auto text = [](std::uint32_t value) { return std::to_string(value); };
    const std::string head_crc = text(BitSerialCrc(sample_.head.data(), 128));
    return "para2 head checksum verify failed (para2_crc stored=" +
           text(BitSerialCrc(sample_.main.data(), sample_.main.size())) +
           " calc=" + text(BitSerialCrc(sample_.main.data(), size)) +
           ", head128_crc stored=" + head_crc + " calc=" + head_crc + ")";
  }

  // One page more than the tables need.
  SamplePara2 sample_ = MakeSample(kId, 168960 + 256);
  CommandService service_{ServiceContent{sample_.head, sample_.main}};
  const Cut none_{false, 0};
  const Cut whole_head_{true, 256};
  const Cut whole_main_{true, 169216};
};

TEST_F(Para2InterruptedCache, WithoutTheMainFileTheSensorIsRead) {
  for (std::size_t size : {0U, 19U, 97U, 135U, 256U}) {
    EXPECT_EQ(Start({true, size}, none_, none_), "online") << size;
  }
}

TEST_F(Para2InterruptedCache, AHeadFileThatEndsBeforeItsChecksumsIsTooShort) {
  for (std::size_t size : {0U, 1U, 19U, 20U, 97U, 98U, 99U, 100U, 127U, 128U, 132U, 135U}) {
    EXPECT_EQ(Start({true, size}, whole_main_, none_), "para2 head too short for CRC fields")
        << size;
  }
}

TEST_F(Para2InterruptedCache, AHeadFileThatEndsBehindItsChecksumsServes) {
  for (std::size_t size : {136U, 137U, 255U, 256U}) {
    EXPECT_EQ(Start({true, size}, whole_main_, none_), "local_cache") << size;
  }
}

TEST_F(Para2InterruptedCache, AMainFileThatIsCutFailsItsChecksumWithTheNumbers) {
  for (std::size_t size : {0U, 1U, 255U, 256U, 82943U, 82944U, 165888U, 166912U, 167936U, 168959U,
                           168960U, 168961U, 169215U}) {
    EXPECT_EQ(Start(whole_head_, {true, size}, none_), MismatchText(size)) << size;
  }
}

TEST_F(Para2InterruptedCache, TheAngleFileIsNeverReadBack) {
  for (std::size_t size : {0U, 1U, 77U, 78U, 79U}) {
    EXPECT_EQ(Start(whole_head_, whole_main_, {true, size}), "local_cache") << size;
  }
  EXPECT_EQ(Start(whole_head_, whole_main_, none_), "local_cache");
}

TEST_F(Para2InterruptedCache, DirectoriesInPlaceOfTheFilesEndTheStart) {
  fs::create_directories(ParaReadHeadBinPath(kId));
  fs::create_directories(ParaReadMainBinPath(kId));
  Para2LoadOptions options;
  options.host = "127.0.0.1";
  options.port = service_.port();
  EXPECT_EQ(ThrownText([&] { LoadPara2Calib(options); }),
            "cannot stat data/QNDR_003/para_read/QNDR_003_head.bin");
}

// A directory named on the command line.
class Para2CaliPath : public Para2Files {
 protected:
  // Writes the sample's two files into `dir` under the name `id`.
  void Put(const fs::path& dir, const std::string& id) {
    WriteFile(dir / (id + "_head.bin"), sample_.head);
    WriteFile(dir / (id + "_para2.bin"), sample_.main);
  }
  static std::string Error(const std::string& path) {
    return ThrownText([&] { ValidateCaliPath(path); });
  }
  // "<dir> <id>".
  static std::string Resolved(const std::string& path) {
    std::string dir;
    std::string id;
    ResolveCaliPath(path, dir, id);
    return dir + " " + id;
  }

  SamplePara2 sample_ = MakeSample("IN_THE_HEAD");
};

TEST_F(Para2CaliPath, ThreeShapesOfDirectoryLeadToTheFiles) {
  Put("x/QNDR_003/para_read", "QNDR_003");
  Put("y/PLAIN", "PLAIN");
  EXPECT_EQ(Resolved("x/QNDR_003/para_read"), "x/QNDR_003/para_read/ QNDR_003");
  EXPECT_EQ(Resolved("x/QNDR_003"), "x/QNDR_003/para_read/ QNDR_003");
  EXPECT_EQ(Resolved("y/PLAIN"), "y/PLAIN/ PLAIN");
}

TEST_F(Para2CaliPath, AbsoluteAndRelativeSpellingsAreTheSame) {
  Put("x/QNDR_003/para_read", "QNDR_003");
  const std::string root = directory_.path().string();
  const std::string want = root + "/x/QNDR_003/para_read/ QNDR_003";
  for (const std::string tail :
       {"/x/QNDR_003", "/x/QNDR_003/", "/x/QNDR_003///", "/x/QNDR_003\\", "/x/QNDR_003/\\/",
        "/x/QNDR_003/para_read", "/x/QNDR_003/para_read/", "/x/./QNDR_003/.", "/x/y/../QNDR_003",
        "//x//QNDR_003/para_read/."}) {
    EXPECT_EQ(Resolved(root + tail), want) << tail;
  }
  EXPECT_EQ(Resolved("./x/../x/QNDR_003"), "x/QNDR_003/para_read/ QNDR_003");
}

TEST_F(Para2CaliPath, LoadsWithTheIdOfThePathAndWithoutTheSensor) {
  Put("QNDR_003", "QNDR_003");
  Para2LoadOptions options;
  options.host = "127.0.0.1";
  options.port = ClosedPort();
  options.force_read_from_lidar = true;  // overridden by the path
  options.cali_path = "QNDR_003/";
  const Para2LidarCalib calib = LoadPara2Calib(options);
  EXPECT_EQ(calib.source, Para2CalibSource::kLocalCache);
  EXPECT_EQ(calib.lidar_id, "QNDR_003");
  EXPECT_EQ(calib.dist_offset[1], static_cast<float>(sample_.main[1]) + 1032.0F);
  EXPECT_FALSE(fs::exists("data"));
}

TEST_F(Para2CaliPath, TheChecksumsCountHereToo) {
  sample_.main[0] ^= 1;
  Put("QNDR_003", "QNDR_003");
  Para2LoadOptions options;
  options.cali_path = "QNDR_003";
  EXPECT_TRUE(ThrownText([&] {
                LoadPara2Calib(options);
              }).starts_with("para2 head checksum verify failed (para2_crc stored="));
}

TEST_F(Para2CaliPath, TheIdInTheHeadIsOnlyCheckedForBeingThere) {
  sample_ = MakeSample("../up");  // goes into no path
  Put("QNDR_003", "QNDR_003");
  Para2LoadOptions options;
  options.cali_path = "QNDR_003";
  EXPECT_EQ(LoadPara2Calib(options).lidar_id, "QNDR_003");
}

TEST_F(Para2CaliPath, AnEmptyPathIsRefused) { EXPECT_EQ(Error(""), "cali_path is empty"); }

TEST_F(Para2CaliPath, WhatIsNoDirectoryIsRefusedAsItWasPassed) {
  WriteFile("file", {1});
  for (const std::string path : {"nowhere/", "file", "file/", ".", "./", "x/..", "\\\\"}) {
    EXPECT_EQ(Error(path), "cali_path is not a valid directory: " + path);
  }
  const std::string too_long(5000, 'a');
  EXPECT_EQ(Error(too_long), "cali_path is not a valid directory: " + too_long);
}

TEST_F(Para2CaliPath, APathWithoutANameGivesNoId) {
  fs::create_directories("deep/para_read");
  fs::create_directory("para_read");
  for (const std::string path : {"/", "..", "../", "para_read", "./para_read/", "../.."}) {
    EXPECT_EQ(Error(path), "cannot derive lidar_id from cali_path: " + path);
  }
  fs::current_path("deep");
  fs::create_directory("empty");
  fs::current_path("empty");
  EXPECT_EQ(Error("../para_read"), "cannot derive lidar_id from cali_path: ../para_read");
  fs::current_path(directory_.path());
}

TEST_F(Para2CaliPath, AMissingFileIsNamed) {
  Put("QNDR_003/para_read", "QNDR_003");
  fs::remove("QNDR_003/para_read/QNDR_003_para2.bin");
  EXPECT_EQ(Error("QNDR_003"),
            "cali_path missing para2 bin: QNDR_003/para_read/QNDR_003_para2.bin");
  fs::remove("QNDR_003/para_read/QNDR_003_head.bin");
  EXPECT_EQ(Error("QNDR_003"), "cali_path missing head bin: QNDR_003/para_read/QNDR_003_head.bin");
}

TEST_F(Para2CaliPath, AParaReadFolderWinsOverFilesBesideIt) {
  Put("QNDR_003", "QNDR_003");
  fs::create_directory("QNDR_003/para_read");
  EXPECT_EQ(Error("QNDR_003"), "cali_path missing head bin: QNDR_003/para_read/QNDR_003_head.bin");
}

TEST_F(Para2CaliPath, AParaReadFileIsNoFolder) {
  Put("QNDR_003", "QNDR_003");
  WriteFile("QNDR_003/para_read", {1});
  EXPECT_EQ(Resolved("QNDR_003"), "QNDR_003/ QNDR_003");
}

TEST_F(Para2CaliPath, FoldersAreNoFilesButLinksAreFollowed) {
  Put("real", "real");
  fs::create_directories("QNDR_003/QNDR_003_head.bin");
  EXPECT_EQ(Error("QNDR_003"), "cali_path missing head bin: QNDR_003/QNDR_003_head.bin");
  fs::remove("QNDR_003/QNDR_003_head.bin");
  fs::create_symlink(fs::absolute("real/real_head.bin"), "QNDR_003/QNDR_003_head.bin");
  fs::create_symlink(fs::absolute("real/real_para2.bin"), "QNDR_003/QNDR_003_para2.bin");
  EXPECT_NO_THROW(ValidateCaliPath("QNDR_003"));
  fs::create_directory_symlink("QNDR_003", "LINK");
  EXPECT_EQ(Error("LINK"), "cali_path missing head bin: LINK/LINK_head.bin");
}

TEST_F(Para2CaliPath, TheDirectoryStartStandsInForTheCacheAfterAnOnlineStart) {
  const SamplePara2 sample = MakeSample(kId);
  CommandService service(ServiceContent{sample.head, sample.main});
  Para2LoadOptions options;
  options.host = "127.0.0.1";
  options.port = service.port();
  LoadPara2Calib(options);
  options.cali_path = "data/QNDR_003";
  EXPECT_EQ(LoadPara2Calib(options).lidar_id, kId);
  EXPECT_EQ(service.accepted_connections(), 2);
}

}  // namespace
}  // namespace kerul::lidar
