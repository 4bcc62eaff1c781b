// Frames that the sensor sent and the node never got: every consumer must report them.
#include <algorithm>
#include <string>

#include "kerul_lidar/frame_stream.h"
#include "process_fixture.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

class MissingFrames : public IsolatedProcessTest {
 protected:
  // Three frames from the given number on; they have been sent when this returns.
  void Send(int first_frame) const {
    const auto stream = StartSimulator(
        {"--quiet", "--rate", "4", "--frames", "3", "--first-frame", std::to_string(first_frame)});
    EXPECT_EQ(stream->WaitForExit(), 0) << stream->Err();
  }
  std::unique_ptr<ChildProcess> StartTool(std::vector<std::string> command) const {
    command[0] = KERUL_BINARY_DIR "/tools/" + command[0];
    return std::make_unique<ChildProcess>(std::move(command), Directory());
  }
};

// The value of a key in key=value lines; -1 when there is none.
long ValueOf(const std::string& lines, const std::string& key) {
  const std::size_t at = ("\n" + lines).find("\n" + key + "=");
  return at == std::string::npos ? -1 : std::stol(lines.substr(at + key.size() + 1));
}

TEST_F(MissingFrames, AGapOfTheSensorsIdsIsToldByStreamViewerAndCounter) {
  const auto node = StartCalibratedNode();
  FrameStream stream("", RingStart::kOldest);
  const auto viewer = StartTool({"lidar_view", "--summary", "summary.txt"});
  const auto counter = StartTool({"soak_watch"});
  EXPECT_TRUE(viewer->WaitFor(Stream::kOut, "frames/s "));
  Send(0);
  Send(40);
  Send(43);

  // Frames 3 to 39 were never sent. The node has begun frame 3 after frame 2, and where it finds
  // out that the packets belong to frame 40, it publishes frame 3 with nothing in it.
  int largest_gap = 0;
  int last_id = 0;
  while (last_id < 43) {
    const Frame* frame = stream.Next(kPatience);
    ASSERT_NE(frame, nullptr) << node->Out() << node->Err();
    largest_gap = std::max(largest_gap, frame->missing_frames);
    last_id = frame->id;
  }
  // A machine that loses datagrams may leave out another frame as well.
  EXPECT_GE(largest_gap, 36);
  EXPECT_LE(largest_gap, 38);
  EXPECT_GE(stream.Counts().missing_frames, 36U);
  EXPECT_EQ(stream.Counts().lost_packets, 0U) << "none of it is the ring's";

  viewer->Interrupt();
  const std::string summary = ReadFile(Directory() / "summary.txt");
  EXPECT_GE(ValueOf(summary, "missing_frames"), 36) << summary;
  EXPECT_EQ(ValueOf(summary, "lost"), 0) << summary;
  counter->Interrupt();
  EXPECT_GE(ValueOf(counter->Out(), "frames_missing"), 36) << counter->Out();
  EXPECT_EQ(node->Interrupt(), 0);
}

}  // namespace
}  // namespace kerul::lidar::testing
