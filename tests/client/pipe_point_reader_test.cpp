#include "kerul_lidar/pipe_point_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "client/point_packet_by_hand.h"
#include "kerul_lidar/frame_stream.h"

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kNow{0};
constexpr milliseconds kLong{5000};

// Both ends of a pipe.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_.data()), 0); }
  ~Pipe() {
    close(ends_[0]);
    CloseWriter();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int ReadEnd() const { return ends_[0]; }
  void Write(const void* bytes, std::size_t size) const {
    ASSERT_EQ(write(ends_[1], bytes, size), static_cast<ssize_t>(size));
  }
  void CloseWriter() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  std::array<int, 2> ends_{};
};

PacketBytes PacketOf(int frame_id, int block) {
  PacketFields fields;
  fields.frame_id = frame_id;
  fields.block = block;
  fields.sequence_base = static_cast<std::uint32_t>(1728 * frame_id);
  return MakePacket(fields);
}

TEST(PipePointReader, PacketsAreCutFromTheStreamWhereverItStops) {
  const Pipe pipe;
  PipePointReader reader(pipe.ReadEnd());
  const PacketBytes first = PacketOf(7, 0);
  const PacketBytes second = PacketOf(7, 1);
  ReceivedPacket packet;
  EXPECT_FALSE(reader.Receive(packet, kNow));
  pipe.Write(first.data(), 100);
  EXPECT_FALSE(reader.Receive(packet, kNow)) << "a packet is not there before its last byte";
  EXPECT_FALSE(reader.Ended());
  pipe.Write(first.data() + 100, 149);
  pipe.Write(second.data(), 249);
  ASSERT_TRUE(reader.Receive(packet, kNow));
  EXPECT_EQ(packet.length, 249);
  EXPECT_EQ(std::memcmp(packet.bytes, first.data(), 249), 0);
  ASSERT_TRUE(reader.Receive(packet, kNow));
  EXPECT_EQ(std::memcmp(packet.bytes, second.data(), 249), 0);
  EXPECT_FALSE(reader.Receive(packet, kNow));
}

TEST(PipePointReader, MorePacketsThanTheBufferHoldsComeOutInOrder) {
  const Pipe pipe;
  PipePointReader reader(pipe.ReadEnd());
  std::vector<std::uint8_t> all;
  for (int block = 0; block < 1000; ++block) {
    const PacketBytes bytes = PacketOf(7, block);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  ReceivedPacket packet;
  std::size_t received = 0;
  // Pieces of no whole number of packets: a part of one stays after each.
  for (std::size_t at = 0; at < all.size(); at += 1000) {
    pipe.Write(&all[at], std::min<std::size_t>(1000, all.size() - at));
    while (reader.Receive(packet, kNow)) {
      ASSERT_EQ(std::memcmp(packet.bytes, &all[249 * received], 249), 0) << received;
      ++received;
    }
  }
  EXPECT_EQ(received, 1000U);
}

TEST(PipePointReader, TheEndIsToldAfterTheLastPacket) {
  Pipe pipe;
  PipePointReader reader(pipe.ReadEnd());
  const PacketBytes bytes = PacketOf(7, 0);
  pipe.Write(bytes.data(), bytes.size());
  pipe.Write(bytes.data(), 10);
  pipe.CloseWriter();
  ReceivedPacket packet;
  EXPECT_TRUE(reader.Receive(packet, kLong));
  EXPECT_FALSE(reader.Ended());
  EXPECT_FALSE(reader.Receive(packet, kLong));
  EXPECT_TRUE(reader.Ended());
}

TEST(PipePointReader, ADescriptorThatCannotBeReadHasEnded) {
  ReceivedPacket packet;
  PipePointReader none(-1);
  EXPECT_TRUE(none.Ended());
  EXPECT_FALSE(none.Receive(packet, kLong));
  int gone = -1;
  {
    const Pipe pipe;
    gone = pipe.ReadEnd();
  }
  PipePointReader closed(gone);
  EXPECT_FALSE(closed.Receive(packet, kLong));
  EXPECT_TRUE(closed.Ended());
}

TEST(FrameStreamOfAPipe, TheFrameInHandIsGivenAtTheEnd) {
  Pipe pipe;
  FrameStream stream;
  stream.OpenPipe(pipe.ReadEnd());
  for (int block = 0; block < 3; ++block) pipe.Write(PacketOf(7, block).data(), 249);
  pipe.Write(PacketOf(8, 0).data(), 249);
  const Frame* frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 7);
  EXPECT_EQ(frame->missing_blocks, 1725);
  EXPECT_EQ(stream.Next(kNow), nullptr);
  EXPECT_FALSE(stream.Ended());
  pipe.CloseWriter();
  frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 8);
  EXPECT_EQ(frame->missing_blocks, 1727);
  EXPECT_TRUE(stream.Ended());
  EXPECT_EQ(stream.Next(kLong), nullptr);
  EXPECT_EQ(stream.Counts().incomplete, 2U);
  EXPECT_EQ(stream.Counts().lost_packets, 1725U) << "from block 2 of frame 7 to block 0 of frame 8";
}

TEST(FrameStreamOfAPipe, AClosedStreamKeepsItsLastFrameAndItsCounts) {
  const Pipe pipe;
  FrameStream stream;
  stream.OpenPipe(pipe.ReadEnd());
  pipe.Write(PacketOf(7, 0).data(), 249);
  pipe.Write(PacketOf(8, 0).data(), 249);
  const Frame* frame = stream.Next(kLong);
  ASSERT_NE(frame, nullptr);
  stream.Close();
  EXPECT_TRUE(stream.Ended()) << "the frame in hand is forgotten";
  EXPECT_EQ(stream.Next(kLong), nullptr);
  EXPECT_EQ(frame->id, 7);
  EXPECT_EQ(frame->range_m[0], 1.0F);
  EXPECT_EQ(stream.Counts().packets, 2U);
}

}  // namespace
}  // namespace kerul::lidar
