#include "pixel_story/live_frame.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "pixel_story/frame_states.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

constexpr int kFrame = 6912;

// Gives how many packets it took to complete a frame, -1 for none.
int PacketsUntilComplete(FrameCatcher& catcher, const Stream& stream) {
  for (std::size_t i = 0; i < stream.size(); ++i) {
    if (catcher.Take(stream[i])) return static_cast<int>(i) + 1;
  }
  return -1;
}

const Stream& ThreeFrames() {
  static const Stream stream = SimulatedFrames("empty", 3, 254);
  return stream;
}

TEST(FrameCatcher, WaitsForTheFirstFrameFromItsBeginning) {
  FrameCatcher catcher;
  Stream stream(ThreeFrames().begin() + 100, ThreeFrames().end());
  EXPECT_EQ(PacketsUntilComplete(catcher, stream), 2 * kFrame - 100);
  EXPECT_EQ(catcher.FrameId(), 255);
  EXPECT_EQ(catcher.Places(), kFrame);
  EXPECT_EQ(catcher.Passed(), 1);
  ASSERT_EQ(catcher.Packets().size(), 6912U);
  EXPECT_EQ(catcher.Packets()[0].buffer[675], 255);
}

TEST(FrameCatcher, AFrameWithALostPacketIsPassedOver) {
  FrameCatcher catcher;
  Stream stream = ThreeFrames();
  stream.erase(stream.begin() + 5000);
  EXPECT_EQ(PacketsUntilComplete(catcher, stream), 2 * kFrame - 1);
  EXPECT_EQ(catcher.FrameId(), 255);
}

// The node closes a frame at its last place, whatever comes after that.
TEST(FrameCatcher, APacketAfterTheLastPlaceIsTooLate) {
  FrameCatcher catcher;
  Stream stream = ThreeFrames();
  std::swap(stream[kFrame - 1], stream[kFrame - 2]);
  EXPECT_EQ(PacketsUntilComplete(catcher, stream), 2 * kFrame);
  EXPECT_EQ(catcher.FrameId(), 255);
}

TEST(FrameCatcher, TheLastPlaceAgainDoesNotCompleteAFrameThatHasEnded) {
  FrameCatcher catcher;
  Stream stream = ThreeFrames();
  std::swap(stream[kFrame - 1], stream[kFrame - 2]);
  stream.insert(stream.begin() + kFrame, stream[kFrame - 2]);
  EXPECT_EQ(PacketsUntilComplete(catcher, stream), 2 * kFrame + 1);
}

TEST(FrameCatcher, KeepsRepeatedPacketsInTheirPlace) {
  FrameCatcher catcher;
  Stream stream = ThreeFrames();
  stream.insert(stream.begin() + 10, stream[3]);
  EXPECT_EQ(PacketsUntilComplete(catcher, stream), kFrame + 1);
  EXPECT_EQ(catcher.Packets().size(), 6913U);
  EXPECT_EQ(catcher.Places(), kFrame);
}

TEST(FrameCatcher, ForeignDatagramsArePassedOver) {
  FrameCatcher catcher;
  Stream stream = ThreeFrames();
  for (const auto& [at, offset] : {std::pair{7, 0}, {8, 2}, {9, 12}}) {
    UdpPacket foreign = stream[static_cast<std::size_t>(at)];
    foreign.buffer[offset] ^= 0x55U;  // magic, version, number of blocks
    stream.insert(stream.begin() + at, foreign);
  }
  UdpPacket cut = stream[20];
  cut.length = 691;
  stream.insert(stream.begin() + 20, cut);
  UdpPacket of_no_place = stream[30];
  of_no_place.buffer[673] = 36;  // miniflash row
  stream.insert(stream.begin() + 30, of_no_place);
  EXPECT_EQ(PacketsUntilComplete(catcher, stream), kFrame + 5);
  EXPECT_EQ(catcher.Packets().size(), 6912U);
}

// A UDP socket on a port that the system chose.
class Socket {
 public:
  explicit Socket(bool shares = false) : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const int on = shares ? 1 : 0;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    Address local = Loopback(0);
    EXPECT_EQ(::bind(fd_, local.plain(), sizeof local.address), 0);
    socklen_t size = sizeof local.address;
    EXPECT_EQ(::getsockname(fd_, local.plain(), &size), 0);
    port_ = ntohs(local.address.sin_port);
  }
  ~Socket() { ::close(fd_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  std::uint16_t port() const { return port_; }
  void SendTo(std::uint16_t port, const UdpPacket& packet) const {
    Address to = Loopback(port);
    ::sendto(fd_, packet.buffer, packet.length, 0, to.plain(), sizeof to.address);
  }

 private:
  struct Address {
    sockaddr_in address{};
    sockaddr* plain() { return reinterpret_cast<sockaddr*>(&address); }
  };
  static Address Loopback(std::uint16_t port) {
    Address to;
    to.address.sin_family = AF_INET;
    to.address.sin_port = htons(port);
    to.address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return to;
  }

  int fd_;
  std::uint16_t port_ = 0;
};

std::uint16_t FreePort() { return Socket().port(); }

// Sends frames until told to stop, slowly enough for a small receive buffer.
TEST(LiveFrame, IsCaughtFromAStreamAndTellsTheSameStory) {
  const std::uint16_t port = FreePort();
  const Stream frame = SimulatedFrames("street", 1);
  std::atomic<bool> stop{false};
  std::thread sender([&] {
    const Socket socket;
    while (!stop) {
      for (std::size_t i = 0; i < frame.size() && !stop; ++i) {
        socket.SendTo(port, frame[i]);
        if (i % 64 == 63) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
  });
  std::vector<std::string> progress;
  std::vector<UdpPacket> caught;
  try {
    caught = CatchFrame(port, 60.0, [&](const std::string& line) { progress.push_back(line); });
  } catch (const std::runtime_error& error) {
    ADD_FAILURE() << error.what();
  }
  stop = true;
  sender.join();
  ASSERT_EQ(caught.size(), 6912U);
  EXPECT_EQ(progress.front(), "waiting for a frame on UDP port " + std::to_string(port));
  EXPECT_NE(progress.back().find("caught frame 5: 6912 of 6912 packets"), std::string::npos);

  FrameStates live;
  StorySource source = SourceOf({}, 0);
  source.feed = FeedOfPackets(caught);
  EXPECT_EQ(RunStory(std::move(source), {&live}).published_rows, 36);
  FrameStates from_file;
  RunStory(SourceOf(frame, 0), {&from_file});
  int compared = 0;
  for (int row = 0; row < 216; ++row) {
    for (int col = 0; col < 288; ++col, ++compared) {
      ASSERT_EQ(live.At(row, col).echoes[0].published.distance,
                from_file.At(row, col).echoes[0].published.distance);
    }
  }
  EXPECT_EQ(compared, 62208);
}

std::string FailureOf(std::uint16_t port, double timeout_s) {
  try {
    CatchFrame(port, timeout_s, [](const std::string&) {});
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(LiveFrame, SaysWhatCameWhenTheTimeIsOver) {
  EXPECT_EQ(FailureOf(FreePort(), 0.2),
            "no complete frame came in time; no packet of a sensor yet");
}

// As the node's socket, which would share its port with another one that wants it.
TEST(LiveFrame, APortThatANodeListensOnIsRefused) {
  const Socket taken(true);
  const std::string failure = FailureOf(taken.port(), 0.2);
  EXPECT_NE(failure.find("cannot listen on UDP port " + std::to_string(taken.port())),
            std::string::npos)
      << failure;
}

}  // namespace
}  // namespace kerul::lidar::story
