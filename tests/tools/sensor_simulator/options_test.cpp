#include "sensor_simulator/options.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace kerul::lidar::simulator {
namespace {

struct Outcome {
  ProgramOptions options;
  bool goes_on = false;
  int exit_status = -1;
  std::string out;
  std::string err;
};

Outcome Parse(std::initializer_list<const char*> arguments) {
  std::vector<const char*> argv{"sensor_simulator"};
  argv.insert(argv.end(), arguments);
  Outcome outcome;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  outcome.goes_on = ParseOptions(static_cast<int>(argv.size()), argv.data(), outcome.options,
                                 outcome.exit_status);
  outcome.err = testing::internal::GetCapturedStderr();
  outcome.out = testing::internal::GetCapturedStdout();
  return outcome;
}

// The faults that options beside --rcx-port ask for.
ServiceFaults Faults(std::initializer_list<const char*> arguments) {
  std::vector<const char*> argv{"sensor_simulator", "--rcx-port", "0"};
  argv.insert(argv.end(), arguments);
  ProgramOptions options;
  int exit_status = -1;
  EXPECT_TRUE(ParseOptions(static_cast<int>(argv.size()), argv.data(), options, exit_status));
  return options.service.faults;
}

// One option with its value is refused, with this first line on standard error.
void ExpectRefused(const char* option, const char* value, const std::string& message) {
  SCOPED_TRACE(std::string(option) + " " + value);
  const Outcome outcome = Parse({"--rcx-port", "0", option, value});
  EXPECT_FALSE(outcome.goes_on);
  EXPECT_GT(outcome.exit_status, 100);
  EXPECT_EQ(outcome.err.substr(0, outcome.err.find('\n')), message);
  EXPECT_EQ(outcome.out, "");
}

TEST(SimulatorOptions, WithoutArgumentsAStreamGoesOutAndNothingIsFaulty) {
  const Outcome outcome = Parse({});
  EXPECT_TRUE(outcome.goes_on);
  EXPECT_EQ(outcome.options.stream.scene, "street");
  EXPECT_EQ(outcome.options.stream.dest_port, 2368);
  EXPECT_TRUE(outcome.options.stream.progress);
  EXPECT_EQ(outcome.options.service.rcx_port, -1);
  EXPECT_FALSE(outcome.options.service.no_stream);
  const ServiceFaults& faults = outcome.options.service.faults;
  EXPECT_FALSE(faults.on_connection || faults.on_register || faults.on_exchange);
  EXPECT_EQ(faults.stall, StallPhase::kNone);
  EXPECT_FALSE(faults.close_after_bytes || faults.close_before_answer || faults.magic ||
               faults.command || faults.announced_length || faults.flip_at || faults.blank);
  EXPECT_EQ(faults.return_code, 0);
  EXPECT_EQ(faults.front_bytes + faults.missing_bytes, 0U);
  EXPECT_EQ(faults.header_piece_bytes + faults.body_piece_bytes, 0U);
  EXPECT_EQ(faults.piece_gap_ms, 0);
}

TEST(SimulatorOptions, HelpNamesEveryOptionAndEndsWell) {
  const Outcome outcome = Parse({"--help"});
  EXPECT_FALSE(outcome.goes_on);
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.err, "");
  int named = 0;
  for (const char* option : {"--scene",
                             "--seed",
                             "--serial",
                             "--rate",
                             "--frames",
                             "--seconds",
                             "--first-frame",
                             "--loop",
                             "--quiet",
                             "--dest-ip",
                             "--dest-port",
                             "--capture",
                             "--capture-source-ip",
                             "--capture-dest-ip",
                             "--truth",
                             "--calibration",
                             "--no-stream",
                             "--rcx-port",
                             "--bind",
                             "--loss",
                             "--duplicate",
                             "--reorder",
                             "--frame-jump",
                             "--foreign",
                             "--other-version",
                             "--short",
                             "--rcx-connection",
                             "--rcx-register",
                             "--rcx-exchange",
                             "--rcx-stall",
                             "--rcx-close-after",
                             "--rcx-close-unanswered",
                             "--rcx-magic",
                             "--rcx-command",
                             "--rcx-return-code",
                             "--rcx-announce",
                             "--rcx-front-bytes",
                             "--rcx-missing-bytes",
                             "--rcx-flip-at",
                             "--rcx-flip-mask",
                             "--rcx-header-piece",
                             "--rcx-body-piece",
                             "--rcx-piece-gap",
                             "--rcx-blank"}) {
    EXPECT_NE(outcome.out.find(std::string("  ") + option), std::string::npos) << option;
    ++named;
  }
  EXPECT_EQ(named, 44);
}

TEST(SimulatorOptions, ACaptureWithoutAnEndIsRefused) {
  const Outcome outcome = Parse({"--capture", "a.pcap"});
  EXPECT_FALSE(outcome.goes_on);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err, "--capture needs --frames or --seconds\n");
  EXPECT_TRUE(Parse({"--capture", "a.pcap", "--frames", "1"}).goes_on);
  EXPECT_TRUE(Parse({"--capture", "a.pcap", "--seconds", "0.5"}).goes_on);
}

TEST(ServiceFaultOptions, APlaceIsAConnectionARegisterAndAnExchange) {
  EXPECT_EQ(Faults({"--rcx-connection", "1"}).on_connection, 1);
  EXPECT_EQ(Faults({"--rcx-register", "head"}).on_register, 0xA02C);
  EXPECT_EQ(Faults({"--rcx-register", "main"}).on_register, 0xA01C);
  EXPECT_EQ(Faults({"--rcx-exchange", "660"}).on_exchange, 660U);
  EXPECT_EQ(Faults({"--rcx-exchange", "0"}).on_exchange, 0U);
}

TEST(ServiceFaultOptions, AStallHasThreePhases) {
  EXPECT_EQ(Faults({"--rcx-stall", "accept"}).stall, StallPhase::kAfterAccept);
  EXPECT_EQ(Faults({"--rcx-stall", "header"}).stall, StallPhase::kBeforeHeader);
  EXPECT_EQ(Faults({"--rcx-stall", "body"}).stall, StallPhase::kInBody);
}

TEST(ServiceFaultOptions, ConnectionsCloseAfterAnyNumberOfBytesOrWithoutAnAnswer) {
  EXPECT_EQ(Faults({"--rcx-close-after", "0"}).close_after_bytes, 0U);
  EXPECT_EQ(Faults({"--rcx-close-after", "1323"}).close_after_bytes, 1323U);
  EXPECT_TRUE(Faults({"--rcx-close-unanswered"}).close_before_answer);
}

TEST(ServiceFaultOptions, AnswersComeInPieces) {
  EXPECT_EQ(Faults({"--rcx-header-piece", "8"}).header_piece_bytes, 8U);
  EXPECT_EQ(Faults({"--rcx-body-piece", "32"}).body_piece_bytes, 32U);
  EXPECT_EQ(Faults({"--rcx-piece-gap", "50"}).piece_gap_ms, 50);
}

TEST(ServiceFaultOptions, TheHeaderOfAnAnswerIsFalse) {
  EXPECT_EQ(Faults({"--rcx-magic", "47aF"}).magic, (std::array<std::uint8_t, 2>{0x47, 0xAF}));
  EXPECT_EQ(Faults({"--rcx-command", "0x11"}).command, 0x11);
  EXPECT_EQ(Faults({"--rcx-command", "0"}).command, 0);
  EXPECT_EQ(Faults({"--rcx-return-code", "165"}).return_code, 0xA5);
  EXPECT_EQ(Faults({"--rcx-announce", "4294967295"}).announced_length, 0xFFFFFFFFU);
}

TEST(ServiceFaultOptions, TheDataOfAnAnswerIsFalse) {
  EXPECT_EQ(Faults({"--rcx-front-bytes", "40"}).front_bytes, 40U);
  EXPECT_EQ(Faults({"--rcx-missing-bytes", "1"}).missing_bytes, 1U);
  const ServiceFaults flipped = Faults({"--rcx-flip-at", "255", "--rcx-flip-mask", "0x80"});
  EXPECT_EQ(flipped.flip_at, 255U);
  EXPECT_EQ(flipped.flip_mask, 0x80);
  EXPECT_EQ(Faults({"--rcx-flip-at", "0"}).flip_mask, 0x01);
  EXPECT_TRUE(Faults({"--rcx-blank"}).blank);
}

TEST(ServiceFaultOptions, FaultsNeedAService) {
  for (const char* fault : {"--rcx-blank", "--rcx-close-unanswered"}) {
    const Outcome outcome = Parse({fault});
    EXPECT_FALSE(outcome.goes_on);
    EXPECT_EQ(outcome.err.substr(0, outcome.err.find('\n')),
              std::string(fault) + " requires --rcx-port");
  }
}

TEST(ServiceFaultOptions, AMaskNeedsAByteToFlip) {
  ExpectRefused("--rcx-flip-mask", "1", "--rcx-flip-mask requires --rcx-flip-at");
}

TEST(ServiceFaultOptions, WordsThatMeanNothingAreRefused) {
  ExpectRefused("--rcx-register", "tail", "--rcx-register: tail not in {head,main}");
  ExpectRefused("--rcx-stall", "never", "--rcx-stall: never not in {accept,body,header}");
  for (const char* magic : {"474", "47744", "0x47", "47 4", "G774", "", "-123"}) {
    ExpectRefused("--rcx-magic", magic,
                  std::string("--rcx-magic: not four hexadecimal digits: ") + magic);
  }
}

TEST(ServiceFaultOptions, NumbersOutOfTheirRangeAreRefused) {
  const auto range = [](const std::string& option, const std::string& value,
                        const std::string& limits) {
    ExpectRefused(option.c_str(), value.c_str(),
                  option + ": " + value + " is not a whole number from " + limits);
  };
  range("--rcx-connection", "-1", "0 to 2147483647");
  range("--rcx-close-after", "-1", "0 to 2147483647");
  range("--rcx-header-piece", "0", "1 to 8");
  range("--rcx-header-piece", "9", "1 to 8");
  range("--rcx-body-piece", "0", "1 to 65535");
  range("--rcx-piece-gap", "60001", "0 to 60000");
  range("--rcx-command", "256", "0 to 255");
  range("--rcx-return-code", "0", "1 to 255");
  range("--rcx-return-code", "256", "1 to 255");
  range("--rcx-front-bytes", "1048577", "0 to 1048576");
  range("--rcx-missing-bytes", "65536", "0 to 65535");
  range("--rcx-flip-at", "-1", "0 to 65535");
  range("--rcx-flip-mask", "0", "1 to 255");
  range("--rcx-exchange", "-1", "0 to 4294967295");
  range("--rcx-exchange", "4294967296", "0 to 4294967295");
  range("--rcx-announce", "4294967296", "0 to 4294967295");
  range("--rcx-announce", "4k", "0 to 4294967295");
}

}  // namespace
}  // namespace kerul::lidar::simulator
