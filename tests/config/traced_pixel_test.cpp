// The traced pixel reaches the high reflectivity check from the debug settings. Their defaults are
// mostly zeros, which the check holds anyway, so the step is run on other values. It is in the
// source's unnamed namespace, so this file includes the source; the linker then takes the defaults
// from here.
#include "config/default_config.cpp"

#include <gtest/gtest.h>

namespace kerul::lidar::default_config {
namespace {

TEST(TracedPixel, ReachesTheHighReflCheckWithAllItsFields) {
  HighReflCheck check;
  CopyTracedPixel({.if_debug = true, .row = 3, .col = 5, .echo = 1}, check);
  EXPECT_TRUE(check.trace_enable);
  EXPECT_EQ(check.trace_row, 3);
  EXPECT_EQ(check.trace_col, 5);
  EXPECT_EQ(check.trace_echo, 1);
  CopyTracedPixel({.if_debug = false, .row = -1, .col = -2, .echo = 0}, check);
  EXPECT_FALSE(check.trace_enable);
  EXPECT_EQ(check.trace_row, -1);
  EXPECT_EQ(check.trace_col, -2);
  EXPECT_EQ(check.trace_echo, 0);
}

}  // namespace
}  // namespace kerul::lidar::default_config
