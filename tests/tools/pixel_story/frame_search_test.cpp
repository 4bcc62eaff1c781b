#include "pixel_story/frame_search.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "sensor_simulator/capture_file.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kStart = 1'700'000'000 * kSecond;
constexpr std::int64_t kFrameUs = 100'000;
constexpr std::size_t kFramePackets = 6912;

std::int64_t NowUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Ten frames a second from `start_us` on.
void Write(const std::string& path, const Stream& stream, std::int64_t start_us) {
  simulator::CaptureWriter writer(path, {});
  for (std::size_t i = 0; i < stream.size(); ++i) {
    const auto us = static_cast<std::int64_t>(i) * kFrameUs / std::int64_t{kFramePackets};
    writer.Write(static_cast<std::uint64_t>(start_us + us), {stream[i].buffer, 692});
  }
  writer.Close();
}

FrameSought Sought(int id, std::int64_t begin_us) {
  return {static_cast<std::uint8_t>(id), {begin_us, begin_us + kFrameUs}};
}

// The number under which the frame found goes out.
int PublishedNumber(const std::string& path, const FrameSought& sought) {
  FoundFrame found = FindFrame(path, sought);
  const StoryEnd end = RunStory({.feed = std::move(found.feed),
                                 .cali_path = CalibrationDir(),
                                 .config = default_config::kConfig,
                                 .frame = found.frame},
                                {});
  EXPECT_EQ(end.packets, 6912);
  EXPECT_EQ(end.published_rows, 36);
  return end.published_frame;
}

std::string Refusal(const std::string& path, const FrameSought& sought) {
  try {
    FindFrame(path, sought);
  } catch (const FrameNotFound& error) {
    return error.what();
  }
  return "found";
}

TEST(FrameSearch, FindsAFrameByItsNumberAndTime) {
  const testing::TempDir directory;
  const std::string path = directory.File("run.pcap");
  Write(path, SimulatedFrames("retro", 4, 254), kStart);
  // A node's first frame goes out as 0, whatever the sensor calls it.
  EXPECT_EQ(PublishedNumber(path, Sought(254, kStart)), 0);
  for (const auto& [place, id] : {std::pair{1, 255}, {2, 0}, {3, 1}}) {
    EXPECT_EQ(PublishedNumber(path, Sought(id, kStart + place * kFrameUs)), id);
  }
  EXPECT_EQ(FindFrame(path, Sought(254, kStart)).frame, 0);
  EXPECT_EQ(FindFrame(path, Sought(0, kStart + 2 * kFrameUs)).frame, 1) << "from the frame before";
}

TEST(FrameSearch, AFrameMayBeginInOneFileAndEndInTheNext) {
  const testing::TempDir directory;
  const Stream stream = SimulatedFrames("retro", 3, 10);
  const auto cut = stream.begin() + kFramePackets + 1000;
  Write(directory.File("0.pcap"), {stream.begin(), cut}, kStart);
  Write(directory.File("1.pcap"), {cut, stream.end()}, kStart + kFrameUs * 7912 / 6912);
  EXPECT_EQ(PublishedNumber(directory.path().string(), Sought(11, kStart + kFrameUs)), 11);
}

TEST(FrameSearch, TheTimeTellsFramesOfOneNumberApart) {
  const testing::TempDir directory;
  const Stream first = SimulatedFrames("retro", 2, 20);
  const Stream again = SimulatedFrames("street", 2, 20);
  Write(directory.File("first.pcap"), first, kStart);
  Write(directory.File("again.pcap"), again, kStart + 256 * kFrameUs);
  for (const auto& [begin_us, stream] :
       {std::pair{kStart, &first}, {kStart + 256 * kFrameUs, &again}}) {
    const FoundFrame found = FindFrame(directory.path().string(), Sought(20, begin_us));
    UdpPacket packet{};
    std::size_t same = 0;
    for (std::size_t i = 0; i < kFramePackets && found.feed(packet); ++i) {
      same += std::equal(packet.buffer, packet.buffer + 692, (*stream)[i].buffer) ? 1 : 0;
    }
    EXPECT_EQ(same, kFramePackets) << begin_us;
  }
}

TEST(FrameSearch, ALatePacketDoesNotEndItsSuccessor) {
  const testing::TempDir directory;
  Stream stream = SimulatedFrames("retro", 3, 30);
  const UdpPacket late = stream[kFramePackets - 3000];
  stream.insert(stream.begin() + kFramePackets + 500, late);
  Write(directory.File("run.pcap"), stream, kStart);
  const FoundFrame found = FindFrame(directory.File("run.pcap"), Sought(31, kStart + kFrameUs));
  UdpPacket packet{};
  std::size_t packets = 0;
  while (found.feed(packet)) ++packets;
  EXPECT_EQ(packets, stream.size()) << "begins with the frame before";
}

TEST(FrameSearch, AFrameThatIsNotThereIsNeverAnotherOne) {
  const testing::TempDir directory;
  const std::string path = directory.File("run.pcap");
  Write(path, SimulatedFrames("retro", 2, 40), kStart);
  EXPECT_EQ(Refusal(path, Sought(42, kStart)), "the capture holds no frame 42 of that time");
  EXPECT_EQ(Refusal(path, Sought(40, kStart + 25 * kSecond)),
            "the capture holds no packets of that time");
}

// The rest is written while it is looked for.
TEST(FrameSearch, AYoungFrameIsWaitedForUntilItsEndIsThere) {
  const testing::TempDir directory;
  const std::int64_t begin_us = NowUs() - 2 * kFrameUs;
  Write(directory.File("whole.pcap"), SimulatedFrames("retro", 2, 49), begin_us);
  const std::string whole = directory.Read("whole.pcap");
  const testing::TempDir grown;
  const std::string path = grown.Write("now.pcap", whole.substr(0, whole.size() * 3 / 4));
  std::thread recorder([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::ofstream(path, std::ios::app | std::ios::binary) << whole.substr(whole.size() * 3 / 4);
  });
  EXPECT_EQ(PublishedNumber(path, Sought(50, begin_us + kFrameUs)), 50);
  recorder.join();
}

}  // namespace
}  // namespace kerul::lidar::story
