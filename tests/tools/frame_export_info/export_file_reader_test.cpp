#include "frame_export_info/export_file_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "MIPI_reader/node/frame_end/frame_export.h"
#include "export_bytes.h"
#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

using export_test::Bytes;
using export_test::File;
using export_test::Header;
using testing::TempDir;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// The reason of a refusal, or "" for a file that is taken.
std::string Refusal(const Bytes& bytes) {
  ExportFile file;
  std::string error;
  if (ParseExportFile(bytes, file, error)) return "";
  EXPECT_TRUE(file.records.empty());
  EXPECT_EQ(file.header.height, 0);
  EXPECT_NE(error, "");
  return error;
}

Bytes Sound() { return File(4, 5, 2, {{0, 1, 2.5F, 30.0F}, {3, 4, 7.0F, 255.0F}}); }

Bytes With(Bytes bytes, std::size_t offset, int value) {
  bytes[offset] = static_cast<std::uint8_t>(value);
  return bytes;
}

TEST(ExportFileReader, ReadsEveryFieldOfTheHeader) {
  const Bytes bytes = Header(2, 432, 576, 0, 201, 0x0102030405060708U);
  ExportFile file;
  std::string error;
  ASSERT_TRUE(ParseExportFile(bytes, file, error)) << error;
  EXPECT_EQ(file.header.mode, ExportMode::kDoubled);
  EXPECT_EQ(file.header.height, 432);
  EXPECT_EQ(file.header.width, 576);
  EXPECT_EQ(file.header.frame_id, 201U);
  EXPECT_EQ(file.header.sequence, 0x0102030405060708U);
  EXPECT_EQ(file.header.return_count, 0U);
  EXPECT_TRUE(file.records.empty());
}

TEST(ExportFileReader, ReadsTheRecords) {
  ExportFile file;
  std::string error;
  ASSERT_TRUE(ParseExportFile(Sound(), file, error)) << error;
  ASSERT_EQ(file.records.size(), 2U);
  EXPECT_EQ(file.records[1].row, 3);
  EXPECT_EQ(file.records[1].col, 4);
  EXPECT_EQ(file.records[1].range, 7.0F);
  EXPECT_EQ(file.records[1].reflectivity, 255.0F);
}

TEST(ExportFileReader, ReadsWhatTheNodeWrites) {
  const TempDir dir;
  LidarFrame frame(12, 18, 1);
  frame.points[0][3].echoes[0].dist_proc = 4.0F;
  frame.points[5][0].echoes[0].dist_proc = kNan;
  frame.points[11][17].echoes[0].dist_proc = 80.5F;
  frame.points[11][17].echoes[0].refl_proc = 12.0F;
  ExportFrame(frame, {dir.File("out"), "n", "processed", 9, 5});
  ExportFile file;
  std::string error;
  ASSERT_TRUE(ReadExportFile(dir.File("out/n_processed_f009_n000005.bin"), file, error)) << error;
  EXPECT_EQ(file.header.mode, ExportMode::kProcessed);
  EXPECT_EQ(file.header.return_count, 2U);
  ASSERT_EQ(file.records.size(), 3U);
  EXPECT_EQ(file.records[0].col, 3);
  EXPECT_TRUE(std::isnan(file.records[1].range));
  EXPECT_EQ(file.records[2].range, 80.5F);
  EXPECT_EQ(file.records[2].reflectivity, 12.0F);
}

TEST(ExportFileReader, ModesHaveNames) {
  EXPECT_STREQ(ExportModeName(ExportMode::kRaw), "raw");
  EXPECT_STREQ(ExportModeName(ExportMode::kProcessed), "processed");
  EXPECT_STREQ(ExportModeName(ExportMode::kDoubled), "doubled");
}

TEST(ExportFileReader, ForeignFilesAreRefused) {
  const std::string foreign = "not a frame export: it does not begin with QNDRBIN1";
  EXPECT_EQ(Refusal({}), "empty file");
  EXPECT_EQ(Refusal(Bytes(500, 0)), foreign);
  EXPECT_EQ(Refusal({'#', '!'}), foreign);
  EXPECT_EQ(Refusal(With(Sound(), 7, '2')), foreign);
}

TEST(ExportFileReader, EachUnknownHeaderFieldIsNamed) {
  EXPECT_EQ(Refusal(With(Sound(), 8, 2)), "format version 2.1 is not known, only 1.1 is");
  EXPECT_EQ(Refusal(With(Sound(), 9, 0)), "format version 1.0 is not known, only 1.1 is");
  EXPECT_EQ(Refusal(With(Sound(), 10, 3)), "mode 3 is not known");
  EXPECT_EQ(Refusal(With(Sound(), 16, 5)), "records of 5 values, not of 2");
}

TEST(ExportFileReader, ReservedBytesMayHoldAnything) {
  EXPECT_EQ(Refusal(With(With(Sound(), 11, 255), 18, 255)), "");
}

TEST(ExportFileReader, EveryTruncationIsRefused) {
  const Bytes sound = Sound();
  EXPECT_EQ(Refusal(sound), "");
  for (std::size_t length = 0; length < sound.size(); ++length) {
    const std::string refusal =
        Refusal(Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(length)));
    if (length > 0) {
      EXPECT_EQ(refusal.substr(0, 11), "truncated: ") << length;
    }
  }
  const auto cut = [&](std::ptrdiff_t length) {
    return Refusal(Bytes(sound.begin(), sound.begin() + length));
  };
  EXPECT_EQ(cut(35), "truncated: 35 of the header's 36 bytes");
  EXPECT_EQ(cut(36), "truncated: 0 returns where the header tells 2");
  EXPECT_EQ(cut(48), "truncated: 1 returns where the header tells 2");
  EXPECT_EQ(cut(59), "truncated: 11 of the last record's 12 bytes");
}

TEST(ExportFileReader, MoreReturnsThanToldAreDamage) {
  EXPECT_EQ(Refusal(File(4, 5, 0, {{0, 0, 1.0F, 1.0F}})),
            "damaged: 1 returns where the header tells 0");
}

TEST(ExportFileReader, NanRangesDoNotCountAsReturns) {
  EXPECT_EQ(Refusal(File(4, 5, 1, {{0, 0, kNan, 1.0F}, {0, 1, 1.0F, kNan}})), "");
}

TEST(ExportFileReader, PixelsOutsideOfTheGridAreDamage) {
  EXPECT_EQ(Refusal(File(4, 5, 1, {{4, 0, 1.0F, 1.0F}})),
            "damaged: pixel (4,0) lies outside of the grid");
  EXPECT_EQ(Refusal(File(4, 5, 1, {{0, 5, 1.0F, 1.0F}})),
            "damaged: pixel (0,5) lies outside of the grid");
  EXPECT_EQ(Refusal(File(0, 0, 1, {{0, 0, 1.0F, 1.0F}})),
            "damaged: pixel (0,0) lies outside of the grid");
}

TEST(ExportFileReader, RepeatedOrUnsortedPixelsAreDamage) {
  EXPECT_EQ(Refusal(File(4, 5, 2, {{1, 1, 1.0F, 1.0F}, {1, 1, 1.0F, 1.0F}})),
            "damaged: pixel (1,1) is out of order");
  EXPECT_EQ(Refusal(File(4, 5, 2, {{1, 0, 1.0F, 1.0F}, {0, 4, 1.0F, 1.0F}})),
            "damaged: pixel (0,4) is out of order");
}

TEST(ExportFileReader, AFileLongerThanItsGridIsRefusedUnread) {
  const TempDir dir;
  Bytes bytes = File(1, 1, 1, {{0, 0, 1.0F, 1.0F}});
  bytes.resize(bytes.size() + 5'000'000);
  ExportFile file;
  std::string error;
  EXPECT_FALSE(ReadExportFile(dir.Write("long.bin", bytes), file, error));
  EXPECT_EQ(error, "damaged: more records than the grid has pixels");
}

TEST(ExportFileReader, AnEndlessForeignFileIsRefused) {
  ExportFile file;
  std::string error;
  EXPECT_FALSE(ReadExportFile("/dev/zero", file, error));
  EXPECT_EQ(error, "not a frame export: it does not begin with QNDRBIN1");
}

TEST(ExportFileReader, MissingFilesAndDirectoriesAreTold) {
  const TempDir dir;
  ExportFile file;
  std::string error;
  EXPECT_FALSE(ReadExportFile(dir.File("none.bin"), file, error));
  EXPECT_EQ(error, "cannot open: No such file or directory");
  EXPECT_FALSE(ReadExportFile(dir.File(""), file, error));
  EXPECT_EQ(error, "cannot read");
}

TEST(ExportFileReader, ChangedBytesAreTakenOrRefusedButNeverOverrun) {
  std::mt19937 random(3);
  int taken = 0;
  int refused = 0;
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes = Sound();
    for (int change = 0; change < 2; ++change) {
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    }
    bytes.resize(bytes.size() - random() % 2 * (random() % bytes.size()));
    ++(Refusal(bytes).empty() ? taken : refused);
  }
  EXPECT_GT(taken, 100);
  EXPECT_GT(refused, 100);
}

}  // namespace
}  // namespace kerul::lidar
