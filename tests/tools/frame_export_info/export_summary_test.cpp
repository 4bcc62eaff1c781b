#include "frame_export_info/export_summary.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

namespace kerul::lidar {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

std::string Printed(const ExportFile& file) {
  std::ostringstream out;
  PrintSummary("a/b.bin", file, Summarize(file), out);
  return out.str();
}

TEST(ExportSummary, TellsHeaderAndFigures) {
  ExportFile file;
  file.header = {ExportMode::kProcessed, 216, 288, 7, 12, 3};
  file.records = {{0, 0, 2.0F, 10.0F}, {0, 1, 4.0F, 20.0F}, {1, 0, 9.0F, 90.0F}};
  EXPECT_EQ(Printed(file),
            "file:              a/b.bin\n"
            "mode:              processed\n"
            "grid:              216 rows x 288 columns\n"
            "frame id:          7\n"
            "sequence:          12\n"
            "returns:           3\n"
            "ranges not finite: 0\n"
            "range [m]:         min 2, mean 5, max 9\n"
            "reflectivity:      min 10, mean 40, max 90\n");
}

TEST(ExportSummary, AFileWithoutReturnsHasNoFigures) {
  const std::string printed = Printed(ExportFile{});
  EXPECT_NE(printed.find("range [m]:         none\nreflectivity:      none\n"), std::string::npos);
}

TEST(ExportSummary, ValuesThatAreNotFiniteAreCountedApart) {
  ExportFile file;
  file.records = {{0, 0, kNan, 10.0F}, {0, 1, kInf, 20.0F}, {1, 0, 9.0F, kNan}, {1, 1, 3.0F, 8.0F}};
  const ExportSummary summary = Summarize(file);
  EXPECT_EQ(summary.not_finite, 2U);
  EXPECT_EQ(summary.range.count, 2U);
  EXPECT_EQ(summary.range.min, 3.0F);
  EXPECT_EQ(summary.range.max, 9.0F);
  EXPECT_EQ(summary.reflectivity.count, 1U);
  EXPECT_EQ(summary.reflectivity.mean, 8.0);
}

}  // namespace
}  // namespace kerul::lidar
