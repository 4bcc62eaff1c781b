// The command channel as tshark shows it.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "calibration/rcx_client.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_simulator.h"
#include "tools/wireshark/tshark_test_base.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::uint16_t kCommandPort = 9347;
constexpr std::uint16_t kHeadRegister = 0xA02C;
constexpr std::uint16_t kMainRegister = 0xA01C;

class CommandChannel : public TsharkTest {
 protected:
  TcpConversation conversation_{40000, kCommandPort};
  FrameList frames_;

  void Ask(std::uint16_t reg, int length) {
    frames_.Add(conversation_.FromClient(
        RcxClient::BuildPayload(255, rcx_client_detail::IicReadText(0x40, reg, length))));
  }
  void Answer(const Bytes& message) { frames_.Add(conversation_.FromSensor(message)); }
};

Bytes Message(std::uint8_t code, std::uint8_t return_code, const Bytes& payload) {
  const std::size_t length = payload.size();  // below 65536 in all tests
  Bytes message(8 + length, 0);
  message[0] = 0x47;
  message[1] = 0x74;
  message[2] = code;
  message[3] = return_code;
  message[6] = static_cast<std::uint8_t>(length >> 8U);
  message[7] = static_cast<std::uint8_t>(length);
  std::copy(payload.begin(), payload.end(), message.begin() + 8);
  return message;
}

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += RcxClient::HexU8(byte);
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
  return text;
}

TEST_F(CommandChannel, ShowsEveryFieldOfARead) {
  Ask(kHeadRegister, 256);
  Ask(kMainRegister, 32);  // the longest with a length field of one byte
  const FieldTable table =
      Fields(frames_, {"kerul_command.magic", "kerul_command.code", "kerul_command.return_code",
                       "kerul_command.length", "kerul_command.selector", "kerul_command.device",
                       "kerul_command.fixed_5", "kerul_command.register", "kerul_command.fixed_8",
                       "kerul_command.read_length", "kerul_command.page", "kerul_command.payload"});
  ASSERT_EQ(table.size(), 2U);
  EXPECT_EQ(table[0],
            (std::vector<std::string>{"47 74", "0xff", "0x00", "12", "0x00000123", "0x40", "0x02",
                                      "0xa02c", "0x01", "256", "", "000001234002a02c01ff0100"}));
  EXPECT_EQ(table[1],
            (std::vector<std::string>{"47 74", "0xff", "0x00", "10", "0x00000123", "0x40", "0x02",
                                      "0xa01c", "0x01", "32", "0", "000001234002a01c0120"}));
}

TEST_F(CommandChannel, ShowsTheHeadPageOfTheSimulatedSensor) {
  const Bytes head = simulator::MakeBlobs(simulator::SimulatorOptions{}).head;
  Ask(kHeadRegister, 256);
  Bytes payload(3 + head.size(), 0xEE);  // the bytes before the data are skipped
  std::copy(head.begin(), head.end(), payload.begin() + 3);
  Answer(Message(255, 0, payload));
  const FieldTable table = Fields(
      frames_,
      {"kerul_command.response_in", "kerul_command.request_in", "kerul_command.response_time",
       "kerul_command.data", "kerul_command.head.lidar_id", "kerul_command.head.page_count",
       "kerul_command.head.para2_crc", "kerul_command.head.head128_crc", "kerul_command.angle.rows",
       "kerul_command.angle.cols", "kerul_command.angle.focal_length", "_ws.expert.message"},
      {"-2"});
  ASSERT_EQ(table.size(), 2U);
  EXPECT_EQ(table[0][0], "2");
  const std::vector<std::string>& answer = table[1];
  EXPECT_EQ(answer[1], "1");
  EXPECT_DOUBLE_EQ(std::stod(answer[2]), 0.001);
  EXPECT_EQ(answer[3], Hex(head));
  EXPECT_EQ(answer[4], "SIM-0001");
  EXPECT_EQ(answer[5], "661");  // the head page and 660 of the main blob
  const auto word = [&head](std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, &head[at], sizeof value);
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return std::string(text);
  };
  EXPECT_EQ(answer[6], word(128));
  EXPECT_EQ(answer[7], word(132));
  EXPECT_EQ(answer[8], "216");
  EXPECT_EQ(answer[9], "288");
  float focal_length = 0.0F;
  std::memcpy(&focal_length, &head[30], sizeof focal_length);
  EXPECT_NEAR(std::stof(answer[10]), focal_length, 1e-4F * focal_length);
  EXPECT_EQ(answer[11], "");
}

// Three pages: one whole, one whose header and data come in pieces, and one that shares its segment
// with the beginning of another message.
TEST_F(CommandChannel, PutsMessagesTogetherAcrossSegments) {
  const auto page = [](int number) { return Bytes(256, static_cast<std::uint8_t>(number + 1)); };
  Ask(kMainRegister, 256);
  Answer(Message(255, 0, page(0)));
  Ask(kMainRegister, 256);
  const Bytes second = Message(255, 0, page(1));
  for (std::size_t at = 0; at < second.size();) {
    const std::size_t size = std::min<std::size_t>(at < 8 ? 3 : 100, second.size() - at);
    Answer(Bytes(second.begin() + static_cast<std::ptrdiff_t>(at),
                 second.begin() + static_cast<std::ptrdiff_t>(at + size)));
    at += size;
  }
  Ask(kMainRegister, 256);
  Bytes both = Message(255, 0, page(2));
  const Bytes spare = Message(7, 0, {1, 2, 3});
  const auto cut = spare.begin() + 9;
  both.insert(both.end(), spare.begin(), cut);
  Answer(both);
  Answer(Bytes(cut, spare.end()));
  const FieldTable table = Fields(frames_,
                                  {"kerul_command.page", "kerul_command.data", "kerul_command.code",
                                   "kerul_command.head.page_count"},
                                  {"-2", "-Y", "kerul_command && tcp.srcport == 9347"});
  // Page 0 is the head page, whose words are all 0101 here.
  EXPECT_EQ(table, (FieldTable{{"0", Hex(page(0)), "0xff", "257"},
                               {"1", Hex(page(1)), "0xff", ""},
                               {"2", Hex(page(2)), "0xff", ""},
                               {"", "", "0x07", ""}}));
}

TEST_F(CommandChannel, TakesARequestForNoReadWhenItsLengthIsCut) {
  const Bytes read{0, 0, 1, 0x23, 0x40, 2, 0xA0, 0x2C, 1, 0xFF, 1, 0};
  for (const std::ptrdiff_t bytes : {9, 10, 11, 12}) {
    frames_.Add(
        conversation_.FromClient(Message(255, 0, Bytes(read.begin(), read.begin() + bytes))));
  }
  const FieldTable table =
      Fields(frames_, {"kerul_command.read_length", "kerul_command.register", "_ws.lua.error"});
  EXPECT_EQ(
      table,
      (FieldTable{
          {"", "0xa02c", ""}, {"", "0xa02c", ""}, {"", "0xa02c", ""}, {"256", "0xa02c", ""}}));
}

TEST_F(CommandChannel, TellsErrorsAndShortAnswers) {
  Ask(kHeadRegister, 256);
  Answer(Message(255, 2, {1, 2}));
  Ask(kHeadRegister, 256);
  Answer(Message(255, 0, Bytes(255, 1)));
  Ask(kHeadRegister, 256);
  Answer(Message(255, 0, {}));
  Ask(kHeadRegister, 4);
  Bytes false_length = Message(255, 0, {1, 2, 3, 4});
  false_length[4] = 0x7F;
  Answer(false_length);
  const FieldTable table =
      Fields(frames_, {"_ws.expert.message"}, {"-Y", "tcp.srcport == 9347 && kerul_command"});
  EXPECT_EQ(table, (FieldTable{{"Return code 0x02"},
                               {"255 bytes instead of 256"},
                               {"0 bytes instead of 256"},
                               {"2130706436 bytes announced"}}));
}

TEST_F(CommandChannel, LeavesOtherBytesToOthers) {
  Answer({0x16, 0x03, 0x01, 0x00});
  Answer({0x47, 0x75, 0xFF, 0x00, 0, 0, 0, 0});
  const FieldTable table = Fields(frames_, {"kerul_command", "_ws.malformed", "_ws.expert.group"});
  EXPECT_EQ(table, (FieldTable{{"", "", ""}, {"", "", ""}}));
}

}  // namespace
}  // namespace kerul::lidar::testing
