// What tshark says about gaps in the sequence numbers, against what the simulator left out and
// against a count of the capture's bytes made here.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sensor_simulator/stream_runner.h"
#include "support/raw_packet_builder.h"
#include "tools/wireshark/tshark_test_base.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::uint16_t kRawPort = 2368;
const std::vector<std::string> kSequenceFields{"kerul_raw.missing", "kerul_raw.late",
                                               "kerul_raw.repeated", "kerul_raw.restarted"};

struct Counts {
  std::uint64_t missing = 0;
  std::uint64_t late = 0;
  std::uint64_t repeated = 0;
  std::uint64_t restarted = 0;
  bool operator==(const Counts&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Counts& counts) {
  return out << counts.missing << " missing, " << counts.late << " late, " << counts.repeated
             << " repeated, " << counts.restarted << " restarted";
}

class SequenceNumbers : public TsharkTest {
 protected:
  simulator::FaultCounts Simulate(std::uint64_t frames, const simulator::FaultRates& faults) const {
    simulator::StreamOptions options;
    options.frames = frames;
    options.loop = 1;
    options.faults = faults;
    options.capture_path = CapturePath();
    options.progress = false;
    std::ostringstream ignored;
    return simulator::RunStream(options, std::atomic<bool>{false}, ignored).faults;
  }

  // The payloads of the simulator's capture, whose frames all have headers of 42 bytes.
  std::vector<Bytes> Payloads() const {
    std::ifstream file(CapturePath(), std::ios::binary);
    const Bytes all{std::istreambuf_iterator<char>(file), {}};
    std::vector<Bytes> payloads;
    for (std::size_t at = 24; at + 16 <= all.size();) {
      const std::size_t length = all[at + 8] + 256U * all[at + 9];
      const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at + 16);
      payloads.emplace_back(begin + 42, begin + static_cast<std::ptrdiff_t>(length));
      at += 16 + length;
    }
    return payloads;
  }

  Counts Told(const std::vector<std::string>& more = {}) const {
    Counts counts;
    for (const std::vector<std::string>& row : Fields(kSequenceFields, more)) {
      if (!row[0].empty()) counts.missing += std::stoull(row[0]);
      counts.late += row[1].empty() ? 0 : 1;
      counts.repeated += row[2].empty() ? 0 : 1;
      counts.restarted += row[3].empty() ? 0 : 1;
    }
    return counts;
  }

  Counts ToldOf(const std::vector<std::uint32_t>& sequence) const {
    FrameList frames;
    for (const std::uint32_t number : sequence) {
      UdpPacket packet = MakeRawPacket(0, 0);
      SetSequence(packet, number);
      frames.AddUdp({packet.buffer, static_cast<std::size_t>(kRawPacketBytes)}, kRawPort);
    }
    frames.Write(CapturePath());
    return Told();
  }
};

bool IsWholeRawPacket(const Bytes& payload) {
  return payload.size() == 692 && payload[0] == 0xEE && payload[1] == 0xFF && payload[2] == 7 &&
         payload[3] == 11;
}

std::uint32_t NumberOf(const Bytes& packet) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) number += std::uint32_t{packet[688 + i]} << (8 * i);
  return number;
}

TEST_F(SequenceNumbers, GapsAddUpToWhatTheSimulatorLost) {
  simulator::FaultRates faults;
  faults.loss = 0.02;
  const std::uint64_t lost = Simulate(3, faults).lost;
  const std::vector<Bytes> payloads = Payloads();
  ASSERT_EQ(payloads.size() + lost, 3U * 6912U);
  // Before the first packet and after the last one there is no gap.
  const std::uint64_t at_the_ends =
      NumberOf(payloads.front()) + (3U * 6912U - 1 - NumberOf(payloads.back()));
  ASSERT_GT(lost, 300U);
  EXPECT_EQ(Told(), (Counts{.missing = lost - at_the_ends}));
}

// A second pass over the packets, as the window makes when one is clicked, changes nothing.
TEST_F(SequenceNumbers, StayWhenThePacketsAreShownAgain) {
  simulator::FaultRates faults;
  faults.loss = 0.01;
  faults.reorder = 0.01;
  Simulate(1, faults);
  const Counts once = Told();
  EXPECT_GT(once.missing, 0U);
  EXPECT_GT(once.late, 0U);
  EXPECT_EQ(Told({"-2"}), once);
}

TEST_F(SequenceNumbers, AreCountedRightBetweenAllFaults) {
  simulator::FaultRates faults;
  faults.loss = 0.01;
  faults.duplicate = 0.01;
  faults.reorder = 0.01;
  faults.foreign = 0.02;
  faults.other_version = 0.02;
  faults.short_datagram = 0.01;
  const simulator::FaultCounts made = Simulate(2, faults);

  Counts expected;
  std::set<std::uint32_t> seen;
  std::size_t foreign = 0;
  std::size_t other_version = 0;
  std::size_t cut = 0;
  for (const Bytes& payload : Payloads()) {
    if (payload.size() < 4 || payload[0] != 0xEE) {
      ++foreign;
    } else if (payload[3] == 10) {
      ++other_version;
    } else if (!IsWholeRawPacket(payload)) {
      ++cut;
    } else {
      const std::uint32_t number = NumberOf(payload);
      const bool is_new = !seen.contains(number);
      const std::uint32_t newest = seen.empty() ? 0 : *seen.rbegin();
      if (!is_new) {
        ++expected.repeated;
      } else if (!seen.empty() && number < newest) {
        ++expected.late;
      } else if (!seen.empty()) {
        expected.missing += number - newest - 1;
      }
      seen.insert(number);
    }
  }
  ASSERT_GE(foreign, made.foreign);
  ASSERT_GT(expected.late, 0U);
  ASSERT_GT(expected.repeated, 0U);
  ASSERT_GT(other_version, 0U);
  ASSERT_GT(cut, 0U);
  // What is missing for good: the numbers that no whole packet of the version carries.
  EXPECT_EQ(expected.missing - expected.late, *seen.rbegin() - *seen.begin() + 1 - seen.size());
  EXPECT_EQ(Told(), expected);
  std::vector<std::size_t> told(4);
  for (const std::vector<std::string>& row :
       Fields({"kerul_raw.magic", "kerul_raw.expert.version", "kerul_raw.expert.length",
               "_ws.malformed", "_ws.lua.error", "kerul_points.magic"})) {
    told[0] += row[0].empty() ? 1 : 0;
    told[1] += row[1].empty() ? 0 : 1;
    told[2] += row[2].empty() ? 0 : 1;
    // Other dissectors guess at what is left to them, and call it malformed.
    const bool malformed = row[3].find("KERUL") != std::string::npos;
    told[3] += malformed || !row[4].empty() || !row[5].empty() ? 1 : 0;
  }
  EXPECT_EQ(told, (std::vector<std::size_t>{foreign, other_version, cut, 0}));
}

TEST_F(SequenceNumbers, WrapWithTheir32Bits) {
  EXPECT_EQ(ToldOf({0xFFFFFFFE, 0xFFFFFFFF, 0, 1}), Counts{});
  EXPECT_EQ(ToldOf({0xFFFFFFFE, 2, 0xFFFFFFFF, 3}), (Counts{.missing = 3, .late = 1}));
}

TEST_F(SequenceNumbers, AreRepeatedWhenTheyComeAgainOrLaterThanAnybodyRemembers) {
  EXPECT_EQ(ToldOf({5, 5, 6, 5}), (Counts{.repeated = 2}));
  EXPECT_EQ(ToldOf({1, 4, 2, 2, 3, 5}), (Counts{.missing = 2, .late = 2, .repeated = 1}));
  // 4096 numbers are remembered: of 5000 missing ones those from 905 on.
  EXPECT_EQ(ToldOf({0, 5001, 905, 904}), (Counts{.missing = 5000, .late = 1, .repeated = 1}));
}

TEST_F(SequenceNumbers, CountAnewAfterALargerStepThanAnyLoss) {
  constexpr std::uint32_t kLargest = 1U << 19;
  EXPECT_EQ(ToldOf({10, 10 + kLargest}), (Counts{.missing = kLargest - 1}));
  EXPECT_EQ(ToldOf({10, 11 + kLargest, 12 + kLargest}), (Counts{.restarted = 1}));
  EXPECT_EQ(ToldOf({600000, 600000 - kLargest}), (Counts{.repeated = 1}));
  EXPECT_EQ(ToldOf({600000, 0, 1, 3}), (Counts{.missing = 1, .restarted = 1}));
}

// Two sensors on one port, told apart by their ports here.
TEST_F(SequenceNumbers, BelongToOneSenderEach) {
  FrameList frames;
  for (const unsigned number : {1U, 2U, 3U}) {
    UdpPacket packet = MakeRawPacket(0, 0);
    for (const unsigned sender : {0U, 100U}) {
      packet.buffer[688] = static_cast<std::uint8_t>(number + sender);
      Bytes frame = UdpFrame({packet.buffer, static_cast<std::size_t>(kRawPacketBytes)}, kRawPort);
      frame[29] = static_cast<std::uint8_t>(frame[29] + sender);  // last byte of the address
      frames.Add(frame);
    }
  }
  frames.Write(CapturePath());
  EXPECT_EQ(Told(), Counts{});
}

}  // namespace
}  // namespace kerul::lidar::testing
