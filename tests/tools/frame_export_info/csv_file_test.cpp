#include "frame_export_info/csv_file.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace kerul::lidar {
namespace {

TEST(CsvFile, HoldsEveryRecordExactly) {
  const std::vector<ExportRecord> records{{0, 1, 2.5F, 30.0F},
                                          {3, 4, 0.1F, std::numeric_limits<float>::quiet_NaN()},
                                          {431, 575, 1.2F, 1e-7F}};
  EXPECT_EQ(FormatCsv(records),
            "row,col,range_m,reflectivity\n0,1,2.5,30\n3,4,0.1,nan\n431,575,1.2,1e-07\n");
}

}  // namespace
}  // namespace kerul::lidar
