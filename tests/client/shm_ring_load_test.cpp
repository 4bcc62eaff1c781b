// The ring under load: one writer at full speed against several readers.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "client/ring_load.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;

// Sanitizers make a packet many times slower; the kinds of events stay the same.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::uint32_t kLoadScale = 20;
#else
constexpr std::uint32_t kLoadScale = 1;
#endif
constexpr milliseconds kPatience{30000};

struct ReaderReport {
  LoadAccount account;
  RingStatistics statistics;
  bool attached_empty = false;
};

enum class Pace : std::uint8_t { kSleeping, kSpinning };

bool TakeOne(ShmRingReader& reader, Pace pace, ReceivedPacket& packet) {
  if (pace == Pace::kSleeping) return reader.Next(packet, kPatience);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!reader.TryNext(packet)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
  }
  return true;
}

// Attaches, reports it, and reads until the generation's last packet or until patience ends.
void ReadToTheEnd(const char* name, Pace pace, std::atomic<int>* ready, int ready_fd,
                  ReaderReport& report) {
  ShmRingReader reader(name, RingStart::kOldest);
  ReceivedPacket packet;
  report.attached_empty = !reader.TryNext(packet) && reader.IsAttached();
  if (ready != nullptr) ++*ready;
  if (ready_fd >= 0 && write(ready_fd, "r", 1) != 1) return;
  while (!report.account.saw_last && TakeOne(reader, pace, packet)) report.account.Take(packet);
  report.statistics = reader.Statistics();
}

void CheckReport(const ReaderReport& report, std::uint32_t written, const char* who) {
  SCOPED_TRACE(who);
  EXPECT_TRUE(report.attached_empty);
  EXPECT_TRUE(report.account.saw_last) << "stopped at " << report.account.last_number;
  EXPECT_EQ(report.account.wrong, 0U);
  EXPECT_EQ(report.account.backwards, 0U);
  EXPECT_EQ(report.account.last_number, written);
  EXPECT_EQ(report.statistics.accepted, report.account.accepted);
  EXPECT_EQ(report.statistics.lost, report.account.skipped);
  EXPECT_EQ(report.statistics.accepted + report.statistics.lost, written);
  EXPECT_GT(report.account.accepted, 0U);
  std::printf("    %s: accepted %llu lost %llu torn %llu\n", who,
              static_cast<unsigned long long>(report.statistics.accepted),
              static_cast<unsigned long long>(report.statistics.lost),
              static_cast<unsigned long long>(report.statistics.torn));
}

void WriteGeneration(ShmUdpWriter& writer, std::uint32_t packets, std::uint32_t generation) {
  LoadPacket packet;
  for (std::uint32_t n = 1; n <= packets; ++n) {
    FillLoadPacket(n, generation, n == packets, packet);
    ASSERT_TRUE(writer.WriteOne(packet.bytes, packet.length));
  }
}

// A reader in another process. Its report comes back through a pipe.
class ForkedReader {
 public:
  explicit ForkedReader(const char* name) {
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0) return;
    child_ = fork();
    if (child_ == 0) {
      ReaderReport report;
      ReadToTheEnd(name, Pace::kSleeping, nullptr, ends[1], report);
      const auto sent = write(ends[1], &report, sizeof report);
      _exit(sent == static_cast<ssize_t>(sizeof report) ? 0 : 1);
    }
    close(ends[1]);
    fd_ = ends[0];
  }
  ~ForkedReader() {
    close(fd_);
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }
  ForkedReader(const ForkedReader&) = delete;
  ForkedReader& operator=(const ForkedReader&) = delete;

  bool WaitUntilReady() const {
    char byte = 0;
    return read(fd_, &byte, 1) == 1;
  }
  bool Report(ReaderReport& report) const {
    return read(fd_, &report, sizeof report) == static_cast<ssize_t>(sizeof report);
  }

 private:
  int fd_ = -1;
  pid_t child_ = -1;
};
static_assert(std::is_trivially_copyable_v<ReaderReport>, "goes through a pipe");

void RunLoad(std::uint32_t slots, std::uint32_t packets) {
  const ShmTestName name;
  ShmUdpWriter writer(name.c_str(), 20 + slots * 1508);
  ASSERT_TRUE(writer.Open());
  // Forked before any thread exists.
  const ForkedReader forked(name.c_str());
  std::atomic<int> ready{0};
  ReaderReport reports[2];
  std::vector<std::thread> threads;
  // One that is always there, and one that wakes up late.
  for (const Pace pace : {Pace::kSpinning, Pace::kSleeping}) {
    ReaderReport& report = reports[pace == Pace::kSpinning ? 0 : 1];
    threads.emplace_back([&, pace] { ReadToTheEnd(name.c_str(), pace, &ready, -1, report); });
  }
  ASSERT_TRUE(forked.WaitUntilReady());
  while (ready < 2) std::this_thread::yield();

  WriteGeneration(writer, packets, 1);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(writer.Written(), packets);
  CheckReport(reports[0], packets, "spinning thread");
  CheckReport(reports[1], packets, "sleeping thread");
  ReaderReport from_child;
  ASSERT_TRUE(forked.Report(from_child));
  CheckReport(from_child, packets, "sleeping process");
}

// Together more than ten million packets.
TEST(ShmRingLoad, ALargeRingAtFullSpeed) { RunLoad(20000, 5'000'000 / kLoadScale); }
TEST(ShmRingLoad, ASmallRingThatIsLappedAllTheTime) { RunLoad(64, 4'000'000 / kLoadScale); }
TEST(ShmRingLoad, ARingOfTwoSlotsWhereCopiesAreTorn) { RunLoad(2, 3'000'000 / kLoadScale); }

// Overwrites one header field after another while writer and readers are at work.
void Tamper(std::uint8_t* header, const std::atomic<bool>& stop) {
  std::mt19937 random(12345);
  constexpr std::size_t kFields[] = {0, 4, 8, 12, 16};
  while (!stop) {
    const auto value = static_cast<std::uint32_t>(random());
    const std::size_t field = kFields[random() % 5];
    std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(header + field)).store(value);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 400));
  }
}

TEST(ShmRingLoad, ReadersSurviveAHeaderThatIsOverwrittenAllTheTime) {
  constexpr std::uint32_t kPackets = 1'000'000 / kLoadScale;
  const ShmTestName name;
  ShmUdpWriter writer(name.c_str(), 20 + 64 * 1508);
  ASSERT_TRUE(writer.Open());
  std::atomic<int> ready{0};
  ReaderReport reports[2];
  std::vector<std::thread> threads;
  // One that is always there, and one that wakes up late.
  for (const Pace pace : {Pace::kSpinning, Pace::kSleeping}) {
    ReaderReport& report = reports[pace == Pace::kSpinning ? 0 : 1];
    threads.emplace_back([&, pace] { ReadToTheEnd(name.c_str(), pace, &ready, -1, report); });
  }
  while (ready < 2) std::this_thread::yield();
  ShmRegion tampered(name.c_str(), 20 + 64 * 1508);
  ASSERT_TRUE(tampered.Open(false, false));
  std::atomic<bool> stop{false};
  std::thread tamperer([&] { Tamper(tampered.Data(), stop); });

  LoadPacket packet;
  for (std::uint32_t n = 1; n < kPackets; ++n) {
    FillLoadPacket(n, 1, false, packet);
    ASSERT_TRUE(writer.WriteOne(packet.bytes, packet.length));
    if (n % 256 == 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
  }
  stop = true;
  tamperer.join();
  FillLoadPacket(kPackets, 1, true, packet);
  ASSERT_TRUE(writer.WriteOne(packet.bytes, packet.length));
  for (std::thread& thread : threads) thread.join();
  CheckReport(reports[0], kPackets, "spinning thread");
  CheckReport(reports[1], kPackets, "sleeping thread");
  EXPECT_GT(reports[0].statistics.rebuilt, 0U);
}

// A writer process that lives for one generation.
void WriteInChild(const char* name, std::uint32_t packets, std::uint32_t generation) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ShmUdpWriter writer(name, 20 + 512 * 1508);
    const bool opened = writer.Open();
    if (opened) WriteGeneration(writer, packets, generation);
    _exit(opened && writer.Written() == packets ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
}

TEST(ShmRingLoad, AReaderFollowsAWriterThatIsRestarted) {
  constexpr std::uint32_t kGenerations = 6;
  constexpr std::uint32_t kPackets = 200'000 / kLoadScale;
  const ShmTestName name;
  ShmRingReader reader(name.c_str(), RingStart::kOldest);
  ReceivedPacket packet;
  std::uint64_t lost_before = 0;
  std::uint64_t accepted_before = 0;
  for (std::uint32_t generation = 1; generation <= kGenerations; ++generation) {
    WriteInChild(name.c_str(), kPackets, generation);
    LoadAccount account;
    while (!account.saw_last && reader.Next(packet, kPatience)) {
      account.Take(packet);
      ASSERT_EQ(HeadOf(packet).generation, generation);
    }
    EXPECT_TRUE(account.saw_last);
    EXPECT_EQ(account.wrong + account.backwards, 0U);
    const std::uint64_t lost = reader.Statistics().lost - lost_before;
    const std::uint64_t accepted = reader.Statistics().accepted - accepted_before;
    EXPECT_GT(accepted, 0U);
    // The first ring is entered at its oldest packet; from then on each is counted from packet 1.
    if (generation > 1) {
      EXPECT_EQ(accepted + lost, kPackets);
    }
    lost_before += lost;
    accepted_before += accepted;
  }
  EXPECT_EQ(reader.Statistics().replaced, kGenerations - 1);
}

TEST(ShmRingLoad, AReaderAtWorkFollowsAWriterThatIsRestarted) {
  constexpr std::uint32_t kGenerations = 5;
  constexpr std::uint32_t kPackets = 300'000 / kLoadScale;
  const ShmTestName name;
  std::atomic<bool> all_written{false};
  std::uint32_t last_ends_seen = 0;
  std::uint64_t wrong = 0;
  RingStatistics statistics;
  std::thread thread([&] {
    ShmRingReader reader(name.c_str(), RingStart::kOldest);
    ReceivedPacket packet;
    std::uint32_t generation = 0;
    for (;;) {
      if (!reader.Next(packet, milliseconds(100))) {
        if (all_written) break;
        continue;
      }
      const LoadHead head = HeadOf(packet);
      wrong += !IsWhole(packet) || head.generation < generation;
      generation = head.generation;
      last_ends_seen += head.last;
    }
    statistics = reader.Statistics();
  });
  for (std::uint32_t generation = 1; generation <= kGenerations; ++generation) {
    ShmUdpWriter writer(name.c_str(), 20 + 512 * 1508);
    ASSERT_TRUE(writer.Open());
    WriteGeneration(writer, kPackets, generation);
    // Longer than the reader's interval between two looks at the name: it misses no ring.
    std::this_thread::sleep_for(milliseconds(150));
  }
  all_written = true;
  thread.join();
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(last_ends_seen, kGenerations);
  EXPECT_EQ(statistics.replaced, kGenerations - 1);
  EXPECT_LE(statistics.accepted + statistics.lost, std::uint64_t{kGenerations} * kPackets);
  EXPECT_GE(statistics.accepted + statistics.lost, std::uint64_t{kGenerations - 1} * kPackets);
}

}  // namespace
}  // namespace kerul::lidar
