#include "lidar_dds/publisher.h"

#include <gtest/gtest.h>

#include "tools/lidar_dds/recording_sink.h"

namespace kerul::lidar::dds {
namespace {

void Put(Publisher& publisher, std::uint8_t number) {
  MessageSet set;
  set[kCloud] = {number};
  publisher.Put(set);
}

TEST(Publisher, WhoeverPutsFramesNeverWaitsForASubscriberThatHoldsTheWriter) {
  RecordingSink sink;
  sink.Hold();
  Publisher publisher(sink);
  Put(publisher, 0);
  ASSERT_TRUE(sink.WaitUntilAWriteIsHeld());
  for (std::uint8_t number = 1; number <= 20; ++number) Put(publisher, number);
  EXPECT_EQ(publisher.LeftOut(), 18U);
  EXPECT_EQ(publisher.Written(), 0U);
  sink.LetGo();
  publisher.Finish();
  // One was held on its way out, the two newest waited.
  EXPECT_EQ(sink.written[kCloud], (std::vector<std::vector<std::uint8_t>>{{0}, {19}, {20}}));
  EXPECT_EQ(publisher.Written(), 3U);
  EXPECT_EQ(publisher.LeftOut(), 18U);
}

TEST(Publisher, AFrameOfWhichOneMessageWasRefusedIsLeftOut) {
  RecordingSink sink;
  sink.refuses = true;
  Publisher publisher(sink);
  Put(publisher, 1);
  publisher.Finish();
  EXPECT_EQ(publisher.Written(), 0U);
  EXPECT_EQ(publisher.LeftOut(), 1U);
}

}  // namespace
}  // namespace kerul::lidar::dds
