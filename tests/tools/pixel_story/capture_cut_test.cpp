#include "pixel_story/capture_cut.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "pixel_story/frame_not_found.h"
#include "pixel_story/watched_node.h"
#include "sensor_simulator/capture_file.h"
#include "support/temp_dir.h"

namespace kerul::lidar::story {
namespace {

constexpr std::int64_t kSecond = 1'000'000;
constexpr std::int64_t kStart = 1'700'000'000 * kSecond;
constexpr std::int64_t kStep = 250;  // microseconds from one datagram to the next

// Datagrams that hold their own number, and after it what could each be a record's
// header.
void WriteNumbers(const std::string& path, int first, int count) {
  simulator::CaptureWriter writer(path, {});
  std::vector<std::uint8_t> payload(700);
  payload[0] = 0xEE;
  payload[1] = 0xFF;
  const std::array<std::uint32_t, 4> header{kStart / kSecond, 0, 37, 37};
  for (std::size_t at = 8; at < 600; at += 60) {
    std::memcpy(payload.data() + at, header.data(), sizeof header);
  }
  for (int i = first; i < first + count; ++i) {
    std::memcpy(payload.data() + 4, &i, sizeof i);
    writer.Write(static_cast<std::uint64_t>(kStart + i * kStep), payload);
  }
  writer.Close();
}

std::vector<int> NumbersIn(const CaptureCut& cut) {
  std::vector<int> numbers;
  if (cut.IsEmpty()) return numbers;
  const DatagramFeed feed = FeedOfCapture(cut.Path());
  UdpPacket packet{};
  while (feed(packet)) {
    int number = 0;
    std::memcpy(&number, packet.buffer + 4, sizeof number);
    numbers.push_back(number);
  }
  return numbers;
}

std::vector<int> Count(int first, int end) {
  std::vector<int> numbers;
  for (int i = first; i < end; ++i) numbers.push_back(i);
  return numbers;
}

TimeSpan Span(int first, int end) { return {kStart + first * kStep, kStart + end * kStep}; }

TEST(CaptureCut, HoldsThePacketsOfItsTimeWhereverTheyAreInALargeFile) {
  const testing::TempDir directory;
  constexpr int kCount = 61'003;  // 46 MB, whose middle is no record's beginning
  WriteNumbers(directory.File("large.pcap"), 0, kCount);
  for (const int first : {0, 1, 17'000, 30'500, 30'501, 30'502, 59'000, kCount - 1}) {
    const int end = std::min(first + 500, kCount);
    EXPECT_EQ(NumbersIn(CaptureCut(directory.File("large.pcap"), Span(first, first + 500))),
              Count(first, end))
        << first;
  }
  EXPECT_TRUE(CaptureCut(directory.File("large.pcap"), Span(kCount, kCount + 9)).IsEmpty());
  EXPECT_TRUE(CaptureCut(directory.File("large.pcap"), Span(-9, 0)).IsEmpty());
}

TEST(CaptureCut, GoesOnInTheNextFileOfAFolder) {
  const testing::TempDir directory;
  WriteNumbers(directory.File("a.pcap2"), 300, 100);
  WriteNumbers(directory.File("b.pcap0"), 100, 100);
  WriteNumbers(directory.File("c.pcap1"), 200, 100);
  const std::string folder = directory.path().string();
  EXPECT_EQ(NumbersIn(CaptureCut(folder, Span(150, 350))), Count(150, 350));
  EXPECT_EQ(NumbersIn(CaptureCut(folder, Span(200, 300))), Count(200, 300));
  EXPECT_EQ(NumbersIn(CaptureCut(folder, Span(199, 201))), Count(199, 201));
}

TEST(CaptureCut, PassesOverWhatIsNoCaptureOfTheNodes) {
  const testing::TempDir directory;
  WriteNumbers(directory.File("good.pcap"), 0, 10);
  const std::string good = directory.Read("good.pcap");
  directory.Write("empty.pcap", std::string());
  directory.Write("header.pcap", good.substr(0, 24));
  directory.Write("text.pcap", std::string(200, 'x'));
  std::string raw_ip = good;
  raw_ip[20] = 101;
  directory.Write("raw_ip.pcap", raw_ip);
  std::string nanoseconds = good;
  nanoseconds[0] = 0x4D;
  nanoseconds[1] = 0x3C;
  directory.Write("nanoseconds.pcap", nanoseconds);
  ASSERT_EQ(mkfifo(directory.File("fifo.pcap").c_str(), 0600), 0);
  ASSERT_EQ(mkdir(directory.File("folder.pcap").c_str(), 0700), 0);
  EXPECT_EQ(NumbersIn(CaptureCut(directory.path().string(), Span(0, 10))), Count(0, 10));
}

TEST(CaptureCut, ARecordThatIsStillBeingWrittenIsLeftOut) {
  const testing::TempDir directory;
  WriteNumbers(directory.File("whole.pcap"), 0, 10);
  const std::string whole = directory.Read("whole.pcap");
  const std::size_t record = (whole.size() - 24) / 10;
  const testing::TempDir grown;
  for (const std::size_t missing : {std::size_t{1}, record - 16, record - 15, record - 1}) {
    const std::string path = grown.Write("now.pcap", whole.substr(0, whole.size() - missing));
    EXPECT_EQ(NumbersIn(CaptureCut(path, Span(5, 10))), Count(5, 9)) << missing;
  }
}

TEST(CaptureCut, RecordsAfterADamagedOneAreNotGuessed) {
  const testing::TempDir directory;
  WriteNumbers(directory.File("whole.pcap"), 0, 10);
  std::string damaged = directory.Read("whole.pcap");
  const std::size_t record = (damaged.size() - 24) / 10;
  std::memset(damaged.data() + 24 + 6 * record + 8, 0xFF, 4);  // its length
  const std::string path = directory.Write("damaged.pcap", damaged);
  EXPECT_EQ(NumbersIn(CaptureCut(path, Span(0, 10))), Count(0, 6));
}

TEST(CaptureCut, AFolderWithoutACaptureIsTold) {
  const testing::TempDir directory;
  directory.Write("readme", std::string("nothing"));
  for (const std::string& path : {directory.path().string(), directory.File("none")}) {
    EXPECT_THROW(CaptureCut(path, Span(0, 1)), FrameNotFound) << path;
  }
}

}  // namespace
}  // namespace kerul::lidar::story
