#include "MIPI_reader/node/frame_end/frame_export.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

namespace fs = std::filesystem;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

std::string Le(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xFF);
  return text;
}

std::string Le(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return Le(bits, 4);
}

std::string Header(int mode, int height, int width, int frame_id, std::uint64_t sequence,
                   std::uint32_t count) {
  return std::string("QNDRBIN1\x01\x01", 10) + Le(static_cast<std::uint64_t>(mode), 1) + Le(0, 1) +
         Le(static_cast<std::uint64_t>(height), 2) + Le(static_cast<std::uint64_t>(width), 2) +
         Le(2, 2) + Le(0, 2) + Le(static_cast<std::uint64_t>(frame_id), 4) + Le(sequence, 8) +
         Le(count, 4);
}

std::string Record(std::uint16_t row, std::uint16_t col, float range, float reflectivity) {
  return Le(row, 2) + Le(col, 2) + Le(range) + Le(reflectivity);
}

class FrameExportFile : public ::testing::Test {
 protected:
  void SetUp() override {
    request_ = {dir_.File("out"), "A_node", "raw", 7, 12};
    frame_.frame_id = 99;  // goes into no file
  }

  // What was printed to standard error.
  std::string Export() {
    ::testing::internal::CaptureStderr();
    ExportFrame(frame_, request_);
    return ::testing::internal::GetCapturedStderr();
  }
  LidarEcho& Echo(std::size_t row, std::size_t col) { return frame_.points[row][col].echoes[0]; }

  testing::TempDir dir_;
  FrameExport request_;
  LidarFrame frame_{216, 288, 2};
};

TEST_F(FrameExportFile, ModesHaveTheirCodes) {
  EXPECT_EQ(ExportModeCode("raw"), 0);
  EXPECT_EQ(ExportModeCode("processed"), 1);
  EXPECT_EQ(ExportModeCode("interp"), 2);
  EXPECT_EQ(ExportModeCode(""), 2);
  EXPECT_EQ(ExportModeCode("RAW"), 2);
}

TEST_F(FrameExportFile, TheNameTellsNodeModeFrameAndSequence) {
  EXPECT_EQ(Export(), "");
  EXPECT_TRUE(fs::exists(dir_.File("out/A_node_raw_f007_n000012.bin")));
  request_.export_mode = "interp";
  request_.sequence = 12345678;
  request_.frame_id = 255;
  EXPECT_EQ(Export(), "");
  EXPECT_TRUE(fs::exists(dir_.File("out/A_node_interp_f255_n12345678.bin")));
}

TEST_F(FrameExportFile, ANegativeFrameIdIsNoneAndALargeOneKeepsItsLowByte) {
  request_.frame_id = -1;
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_raw_f000_n000012.bin"), Header(0, 216, 288, 0, 12, 0));
  request_.frame_id = 0x101;
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_raw_f001_n000012.bin"), Header(0, 216, 288, 1, 12, 0));
}

TEST_F(FrameExportFile, AFrameWithoutAReturnIsTheHeaderAlone) {
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_raw_f007_n000012.bin"), Header(0, 216, 288, 7, 12, 0));
  EXPECT_EQ(fs::file_size(dir_.File("out/A_node_raw_f007_n000012.bin")), 36U);
}

TEST_F(FrameExportFile, RawFilesHoldTheRawValuesOfTheFirstEcho) {
  Echo(0, 1) = {.dist_raw = 1.5F, .refl_raw = 20.0F, .dist_proc = 9.0F, .refl_proc = 9.5F};
  Echo(215, 287) = {.dist_raw = 80.25F, .refl_raw = 255.0F};
  Echo(3, 4) = {.dist_proc = 9.0F, .refl_proc = 9.5F};
  frame_.points[5][5].echoes[1].dist_raw = 7.0F;
  // The place is that in the grid, not the point's own.
  frame_.points[0][1].row = 100;
  frame_.points[0][1].col = 200;
  request_.sequence = 0x0102030405060708U;
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_raw_f007_n72623859790382856.bin"),
            Header(0, 216, 288, 7, 0x0102030405060708U, 2) + Record(0, 1, 1.5F, 20.0F) +
                Record(215, 287, 80.25F, 255.0F));
}

TEST_F(FrameExportFile, ProcessedFilesHoldTheProcessedValues) {
  Echo(0, 1) = {.dist_raw = 1.5F, .refl_raw = 20.0F, .dist_proc = 9.0F, .refl_proc = 9.5F};
  Echo(2, 2) = {.dist_raw = 1.5F, .refl_raw = 20.0F};
  request_.export_mode = "processed";
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_processed_f007_n000012.bin"),
            Header(1, 216, 288, 7, 12, 1) + Record(0, 1, 9.0F, 9.5F));
}

TEST_F(FrameExportFile, DoubledFilesHoldTheProcessedValuesOfTheDoubledGrid) {
  frame_ = LidarFrame(432, 576, 2);
  request_.frame_id = 3;
  Echo(431, 575) = {.dist_raw = 1.5F, .refl_raw = 20.0F, .dist_proc = 1.2F, .refl_proc = 9.5F};
  request_.export_mode = "interp";
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_interp_f003_n000012.bin"),
            Header(2, 432, 576, 3, 12, 1) + Record(431, 575, 1.2F, 9.5F));
}

TEST_F(FrameExportFile, ANanIsWrittenButNotCountedAndANegativeRangeIsNeither) {
  Echo(1, 1).dist_raw = kNan;
  Echo(1, 2).dist_raw = -4.0F;
  Echo(1, 3) = {.dist_raw = 2.0F, .refl_raw = kNan};
  Echo(1, 4).dist_raw = -0.0F;
  Export();
  EXPECT_EQ(dir_.Read("out/A_node_raw_f007_n000012.bin"),
            Header(0, 216, 288, 7, 12, 1) + Record(1, 1, kNan, 0.0F) + Record(1, 3, 2.0F, kNan));
}

TEST_F(FrameExportFile, AnOlderFileOfTheNameIsReplaced) {
  fs::create_directories(dir_.File("out"));
  std::ofstream(dir_.File("out/A_node_raw_f007_n000012.bin")) << std::string(5000, 'x');
  EXPECT_EQ(Export(), "");
  EXPECT_EQ(fs::file_size(dir_.File("out/A_node_raw_f007_n000012.bin")), 36U);
}

TEST_F(FrameExportFile, ParentDirectoriesAreMade) {
  request_.export_dir = dir_.File("a/b/c");
  EXPECT_EQ(Export(), "");
  EXPECT_TRUE(fs::exists(dir_.File("a/b/c/A_node_raw_f007_n000012.bin")));
}

TEST_F(FrameExportFile, ADirectoryThatCannotBeMadeIsTold) {
  std::ofstream(dir_.File("file")) << "in the way";
  request_.export_dir = dir_.File("file/out");
  EXPECT_EQ(Export(), "[LidarNode][A_node] export BIN failed: " + request_.export_dir +
                          "/A_node_raw_f007_n000012.bin\n");
}

TEST_F(FrameExportFile, AFullDiskIsTold) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "needs /dev/full";
  for (std::vector<LidarPoint>& row : frame_.points) {
    for (LidarPoint& point : row) point.echoes[0].dist_raw = 5.0F;
  }
  fs::create_directories(dir_.File("out"));
  const fs::path path = dir_.File("out/A_node_raw_f007_n000012.bin");
  fs::create_symlink("/dev/full", path);
  EXPECT_EQ(Export(), "[LidarNode][A_node] export BIN failed: " + path.string() + "\n");
}

TEST_F(FrameExportFile, ANameOf1023CharactersIsTriedAnd1024AreNot) {
  const std::string tail = "/A_node_raw_f007_n000012.bin";
  request_.export_dir = std::string(1023 - tail.size(), 'd');
  // One component of that length cannot be made, so the file fails; but the name was made.
  EXPECT_EQ(Export(),
            "[LidarNode][A_node] export BIN failed: " + request_.export_dir + tail + "\n");
  request_.export_dir += 'd';
  EXPECT_EQ(Export(), "[LidarNode][A_node] export BIN path too long\n");
}

}  // namespace
}  // namespace kerul::lidar
