#include "frame_export_info/frame_export_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>

#include "calibration/angle_calib.h"
#include "export_bytes.h"
#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

using export_test::Bytes;
using ::testing::HasSubstr;

class FrameExportInfo : public ::testing::Test {
 protected:
  void SetUp() override {
    options_.file = dir_.Write(
        "frame.bin",
        export_test::File(216, 288, 2, {{100, 140, 5.0F, 30.0F}, {110, 150, 7.0F, 60.0F}}));
  }
  int Run() {
    out_.str("");
    err_.str("");
    return RunFrameExportInfo(options_, out_, err_);
  }
  // A camera without distortion or tilt.
  std::string AngleRecord() {
    QndrAngleDatRecord record{};
    record.binning = 0x11;
    record.rows = 216;
    record.cols = 288;
    record.f = 260.0F;
    record.cx = 144.0F;
    record.cy = 288.0F;
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return dir_.Write("angle.dat", bytes);
  }

  testing::TempDir dir_;
  FrameExportInfoOptions options_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(FrameExportInfo, TheSummaryIsPrintedAndNothingElseIsDone) {
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(out_.str(), HasSubstr("range [m]:         min 5, mean 6, max 7\n"));
  EXPECT_EQ(err_.str(), "");
}

TEST_F(FrameExportInfo, CsvAndPictureNeedNoCalibration) {
  options_.csv = dir_.File("a.csv");
  options_.png = dir_.File("a.png");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(dir_.Read("a.csv"), "row,col,range_m,reflectivity\n100,140,5,30\n110,150,7,60\n");
  EXPECT_EQ(dir_.Read("a.png").substr(1, 3), "PNG");
}

TEST_F(FrameExportInfo, PointFilesWithoutACalibrationAreRefused) {
  for (std::string FrameExportInfoOptions::*path :
       {&FrameExportInfoOptions::pcd, &FrameExportInfoOptions::ply, &FrameExportInfoOptions::las}) {
    FrameExportInfoOptions options = options_;
    options.*path = dir_.File("a.points");
    std::ostringstream err;
    EXPECT_EQ(RunFrameExportInfo(options, out_, err), 1);
    EXPECT_EQ(
        err.str(),
        "frame_export_info: PCD, PLY and LAS need the sensor's directions: give its 78-byte angle "
        "record with --calib (an export file holds ranges by pixel; --csv works without)\n");
    EXPECT_FALSE(std::filesystem::exists(dir_.File("a.points")));
  }
}

TEST_F(FrameExportInfo, PointFilesAreWrittenWithACalibration) {
  options_.calib = AngleRecord();
  options_.pcd = dir_.File("a.pcd");
  options_.ply = dir_.File("a.ply");
  options_.las = dir_.File("a.las");
  EXPECT_EQ(Run(), 0) << err_.str();
  EXPECT_THAT(out_.str(), HasSubstr("points:            2, left out 0\n"));
  EXPECT_THAT(dir_.Read("a.pcd"), HasSubstr("\nPOINTS 2\n"));
  EXPECT_THAT(dir_.Read("a.ply"), HasSubstr("\nelement vertex 2\n"));
  const std::string las = dir_.Read("a.las");
  EXPECT_EQ(las.size(), 227U + 2 * 28);
  EXPECT_EQ(las.substr(0, 4), "LASF");
  EXPECT_EQ(las[227 + 15], 0) << "an export file does not tell the ground";
  // The last point lies 7 m away, wherever that is.
  const std::string ply = dir_.Read("a.ply");
  float xyz[3];
  std::memcpy(xyz, ply.data() + ply.size() - 20, sizeof xyz);
  EXPECT_NEAR(xyz[0] * xyz[0] + xyz[1] * xyz[1] + xyz[2] * xyz[2], 49.0F, 1e-3F);
  EXPECT_GT(xyz[0], 3.0F) << "in front of the sensor";
}

TEST_F(FrameExportInfo, PcdFieldsAreFloatsOnRequest) {
  options_.calib = AngleRecord();
  options_.pcd = dir_.File("a.pcd");
  options_.pcd_numbers = PcdNumbers::kFloats;
  EXPECT_EQ(Run(), 0) << err_.str();
  EXPECT_THAT(dir_.Read("a.pcd"), HasSubstr("\nTYPE F F F F F F\n"));
}

TEST_F(FrameExportInfo, AFileThatCannotBeReadIsNamed) {
  options_.file = dir_.Write("foreign.bin", std::string(100, 'x'));
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(err_.str(), "frame_export_info: " + options_.file +
                            ": not a frame export: it does not begin with QNDRBIN1\n");
  EXPECT_EQ(out_.str(), "");
}

TEST_F(FrameExportInfo, ABadCalibrationIsNamed) {
  options_.pcd = dir_.File("a.pcd");
  options_.calib = dir_.Write("short.dat", std::string(77, 'x'));
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(err_.str(),
            "frame_export_info: " + options_.calib + ": 角度标定内存块长度不足 (need 78)\n");
  options_.calib = dir_.File("none.dat");
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(err_.str(),
            "frame_export_info: " + options_.calib + ": cannot open: No such file or directory\n");
  options_.calib = dir_.File("fifo.dat");  // that nobody writes to
  ASSERT_EQ(mkfifo(options_.calib.c_str(), 0600), 0);
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(err_.str(), "frame_export_info: " + options_.calib + ": not a regular file\n");
}

TEST_F(FrameExportInfo, ACalibrationOfAnotherSizeIsNamed) {
  options_.file = dir_.Write("small.bin", export_test::File(6, 6, 0, {}));
  options_.pcd = dir_.File("a.pcd");
  options_.calib = AngleRecord();
  EXPECT_EQ(Run(), 1);
  EXPECT_THAT(err_.str(), HasSubstr(options_.calib + ": the angle record describes 216 x 288"));
}

TEST_F(FrameExportInfo, EachFileThatCannotBeWrittenIsNamed) {
  options_.calib = AngleRecord();
  const std::string nowhere = dir_.File("none/a");
  for (std::string FrameExportInfoOptions::*path :
       {&FrameExportInfoOptions::csv, &FrameExportInfoOptions::png, &FrameExportInfoOptions::pcd,
        &FrameExportInfoOptions::ply, &FrameExportInfoOptions::las}) {
    FrameExportInfoOptions options = options_;
    options.*path = nowhere;
    std::ostringstream err;
    EXPECT_EQ(RunFrameExportInfo(options, out_, err), 1);
    EXPECT_THAT(err.str(), HasSubstr("frame_export_info: " + nowhere + ": cannot "));
  }
}

}  // namespace
}  // namespace kerul::lidar
