// Stories of pixels, from the server and the real pixel_story.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kerul_lidar/frame.h"
#include "kerul_lidar/frame_collector.h"
#include "lidar_replay/replay.h"
#include "lidar_web/frame_message.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/capture_file.h"
#include "sensor_simulator/frame_packets.h"
#include "sensor_simulator/frame_simulator.h"
#include "served_ring.h"
#include "support/temp_dir.h"
#include "web_client.h"

namespace kerul::lidar::web {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr std::uint64_t kStartUs = 1'700'000'000'000'000;
constexpr std::uint64_t kFrameUs = 100'000;
constexpr int kRow = 100;
constexpr int kCol = 140;
constexpr std::size_t kPlace = kRow * 288 + kCol;

// A capture of three frames, numbers 0 to 2, and what a node publishes of the second, with the time
// stamps of the capture.
class Recorded {
 public:
  Recorded() {
    calibration_ = simulator::WriteBlobs(simulator::MakeBlobs(simulator::SimulatorOptions{}),
                                         calibration_dir_.path())
                       .string();
    simulator::CaptureWriter writer(captures_.File("now.pcap"), {});
    for (std::uint32_t frame = 0; frame < 3; ++frame) {
      std::uint64_t time_us = kStartUs + frame * kFrameUs;
      for (const UdpPacket& packet :
           simulator::ToUdpPackets(simulator::SimulateFrame("street", frame))) {
        writer.Write(time_us += 13, {packet.buffer, 692});
      }
    }
    writer.Close();
    ::testing::internal::CaptureStdout();
    replay::Replay(captures_.File("now.pcap"), calibration_, [this](const ReceivedPacket& packet) {
      Take(packet);
      return true;
    });
    ::testing::internal::GetCapturedStdout();
  }

  const testing::TempDir& Captures() const { return captures_; }
  const std::string& Calibration() const { return calibration_; }
  const std::string& Message() const { return message_; }
  // The pixel's five bytes as the story writes them.
  const std::string& PixelBytes() const { return pixel_bytes_; }

 private:
  void Take(const ReceivedPacket& packet) {
    PointPacketView view;
    ASSERT_EQ(view.Parse(packet.bytes, packet.length), PointPacketError::kNone);
    if (packet.bytes[209] != 1) return;
    if (packet.bytes[207] == kRow / 6 && packet.bytes[208] == kCol / 6) {
      const std::uint8_t* bytes = packet.bytes + 20 + 5 * (kCol % 6 * 6 + kRow % 6);
      std::array<char, 16> text;
      std::snprintf(text.data(), text.size(), "%02x %02x %02x %02x %02x", bytes[0], bytes[1],
                    bytes[2], bytes[3], bytes[4]);
      pixel_bytes_ = text.data();
    }
    const CollectedFrame* collected = collector_.Add(view);
    if (collected == nullptr) return;
    auto frame = std::make_unique<Frame>();
    FillFrame(*collected, nullptr, nullptr, *frame);
    frame->first_timestamp_us = static_cast<std::int64_t>(kStartUs + kFrameUs);
    frame->last_timestamp_us = static_cast<std::int64_t>(kStartUs + 2 * kFrameUs);
    FrameMessage message;
    EncodeFrame(*frame, 7, 0.0, 0, message);
    message_.assign(message.bytes.begin(), message.bytes.end());
  }

  testing::TempDir calibration_dir_;
  testing::TempDir captures_;
  std::string calibration_;
  FrameCollector collector_;
  std::string message_;
  std::string pixel_bytes_;
};

class Story : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { recorded_ = std::make_unique<Recorded>(); }
  static void TearDownTestSuite() { recorded_.reset(); }

  static WebOptions Options() {
    WebOptions options;
    options.story_captures = recorded_->Captures().path().string();
    options.story_calib = recorded_->Calibration();
    options.story_program = KERUL_BINARY_DIR "/tools/pixel_story";
    return options;
  }
  static Answer Ask(int port, const std::string& message, int row = kRow, int col = kCol) {
    return Request(port, "POST /story?row=" + std::to_string(row) + "&col=" + std::to_string(col),
                   "Content-Length: " + std::to_string(message.size()) + "\r\n", message);
  }
  static std::string Message() { return recorded_->Message(); }
  template <class T>
  static std::string With(std::size_t offset, T value) {
    std::string message = Message();
    std::memcpy(message.data() + offset, &value, sizeof value);
    return message;
  }

  static std::unique_ptr<Recorded> recorded_;
};

std::unique_ptr<Recorded> Story::recorded_;

TEST_F(Story, EndsInThePublishedBytesOfTheFrameThatThePageShows) {
  const ServedRing served(Options());
  const Answer told = Ask(served.Port(), Message());
  ASSERT_EQ(told.status, 200) << told.body;
  ASSERT_THAT(told.body, MatchesRegex("/story/[0-9a-f]{32}\n"));
  const std::string path = told.body.substr(0, told.body.size() - 1);
  const Answer page = Get(served.Port(), path);
  EXPECT_EQ(page.status, 200);
  EXPECT_TRUE(page.HasHeader("content-type: text/html; charset=utf-8")) << page.head;
  EXPECT_TRUE(page.HasHeader(
      "content-security-policy: default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; "
      "form-action 'none'; frame-ancestors 'self'; sandbox"))
      << page.head;
  EXPECT_THAT(page.body, HasSubstr("The story of pixel 100,140"));
  EXPECT_THAT(page.body, HasSubstr("the bytes of the point are " + recorded_->PixelBytes()));
  EXPECT_NE(recorded_->PixelBytes().substr(0, 5), "00 00") << "a return";
  const Answer again = Ask(served.Port(), Message());
  EXPECT_NE(again.body, told.body);
  EXPECT_EQ(Get(served.Port(), path).body, page.body) << "still kept";
}

TEST_F(Story, IsToldOfAMessageWithoutFlagsToo) {
  const ServedRing served(Options());
  const std::string message = With(1, std::uint8_t{0}).substr(0, 96 + 62208 * 3);
  EXPECT_EQ(Ask(served.Port(), message).status, 200);
}

TEST_F(Story, OneOtherPointMakesItAnotherFrame) {
  const ServedRing served(Options());
  constexpr std::size_t kPoints = 62208;
  // Of the first pixel: range, reflectivity and flags.
  for (const std::size_t offset : {std::size_t{96}, 96 + 2 * kPoints, 96 + 3 * kPoints}) {
    std::string message = Message();
    message[offset] = static_cast<char>(message[offset] ^ 1);
    const Answer answer = Ask(served.Port(), message);
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(answer.body,
              "the capture does not hold this frame: the one of this number and time has other "
              "values at 1 of 62208 points (another stream, another calibration, or packets lost "
              "on the way)\n");
  }
}

// Of a block that the server did not get, the page shows no returns.
TEST_F(Story, BlocksThatThePageLacksNeedNotBeEqualButThePixelMust) {
  const ServedRing served(Options());
  std::string message = With(62, std::uint16_t{1});
  for (int row = 96; row < 102; ++row) {
    for (int col = 138; col < 144; ++col) {
      const auto place = static_cast<std::size_t>(row * 288 + col);
      std::memset(message.data() + 96 + 2 * place, 0, 2);
      message[96 + 2 * 62208 + place] = 0;
      std::memset(message.data() + 96 + 3 * 62208 + 2 * place, 0, 2);
    }
  }
  EXPECT_EQ(Ask(served.Port(), message, 100, 144).status, 200);
  EXPECT_EQ(Ask(served.Port(), message, 100, 140).status, 404);
  message[62] = 0;
  EXPECT_EQ(Ask(served.Port(), message, 100, 144).status, 404) << "said to be complete";
}

TEST_F(Story, FramesThatTheCaptureDoesNotHoldAreNamed) {
  const ServedRing served(Options());
  const auto body = [&](const std::string& message) {
    const Answer answer = Ask(served.Port(), message);
    EXPECT_EQ(answer.status, 404);
    return answer.body;
  };
  EXPECT_EQ(body(With(56, std::uint8_t{9})), "the capture holds no frame 9 of that time\n");
  EXPECT_THAT(body(With(56, std::uint8_t{2})), HasSubstr("the capture does not hold this frame"));
  const double later = (kStartUs + 30'000'000) * 1.0;
  std::string message = With(8, later);
  std::memcpy(message.data() + 16, &later, sizeof later);
  EXPECT_EQ(body(message), "the capture holds no packets of that time\n");
  for (const double time : {std::nan(""), HUGE_VAL, -1.0, 0.0, 1e300}) {
    EXPECT_EQ(body(With(8, time)), "the frame's time stamps tell no time, so no capture is of it\n")
        << time;
  }
  WebOptions empty = Options();
  const testing::TempDir folder;
  empty.story_captures = folder.path().string();
  const ServedRing without_capture(empty);
  EXPECT_EQ(Ask(without_capture.Port(), Message()).body, "there is no capture with packets\n");
}

TEST_F(Story, RequestsThatCannotBeAreRefused) {
  const ServedRing served(Options());
  const std::string length = "Content-Length: " + std::to_string(Message().size()) + "\r\n";
  for (const char* query : {"", "?row=1", "?row=216&col=1", "?row=1&col=288", "?row=-1&col=1",
                            "?row=1&col=1x", "?row=&col=1", "?row=99999999999999&col=1"}) {
    const int status =
        Request(served.Port(), std::string("POST /story") + query, length, std::string_view())
            .status;
    EXPECT_TRUE(status == 404 || status == 405) << query << ": " << status;
  }
  EXPECT_EQ(Get(served.Port(), "/story?row=1&col=1").status, 405);
  EXPECT_EQ(Request(served.Port(), "POST /story?row=1&col=1", "Content-Length: 622177\r\n").status,
            413);
  EXPECT_EQ(Ask(served.Port(), "x").status, 400);
  EXPECT_EQ(Ask(served.Port(), With(2, std::uint8_t{2})).status, 400);
  EXPECT_EQ(Get(served.Port(), "/story/" + std::string(32, '0')).status, 404);
  EXPECT_EQ(Get(served.Port(), "/story/..%2f..%2fetc%2fpasswd").status, 404);
  EXPECT_EQ(
      Request(served.Port(), "POST /story?row=1&col=1", length + "Origin: http://evil.example\r\n")
          .status,
      403);
}

TEST_F(Story, WithoutACaptureNoneIsOffered) {
  const ServedRing served;
  EXPECT_EQ(Ask(served.Port(), Message()).status, 404);
  EXPECT_THAT(LiveClient(served.Port()).Next().payload, HasSubstr("\"stories\":false"));
  const ServedRing offers(Options());
  EXPECT_THAT(LiveClient(offers.Port()).Next().payload, HasSubstr("\"stories\":true"));
}

// One at a time, three in the queue.
TEST_F(Story, TooManyAtOnceAreRefusedAndHoldNobodyUp) {
  const testing::TempDir folder;
  WebOptions options = Options();
  options.story_program = folder.Write("slow", std::string("#!/bin/sh\nexec sleep 5\n"));
  std::filesystem::permissions(options.story_program, std::filesystem::perms::owner_all);
  ServedRing served(options);
  std::vector<std::unique_ptr<Connection>> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.push_back(std::make_unique<Connection>(served.Port()));
    waiting.back()->Send("POST /story?row=1&col=1 HTTP/1.1\r\nHost: localhost\r\nContent-Length: " +
                         std::to_string(Message().size()) + "\r\n\r\n" + Message());
  }
  Answer answer;
  while (answer.status != 503) answer = Ask(served.Port(), Message());
  EXPECT_EQ(answer.body, "too many stories at once, try again\n");
  EXPECT_EQ(Get(served.Port(), "/page.js").status, 200);
  waiting.clear();
  const auto begin = std::chrono::steady_clock::now();
  served.Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4))
      << "the running one is ended too";
}

TEST_F(Story, AFailureIsToldInTheLogAndNotOnThePage) {
  const testing::TempDir folder;
  WebOptions options = Options();
  options.story_program =
      folder.Write("broken", std::string("#!/bin/sh\necho 'pixel_story: /secret' >&2\nexit 1\n"));
  std::filesystem::permissions(options.story_program, std::filesystem::perms::owner_all);
  ServedRing served(options);
  const Answer answer = Ask(served.Port(), Message());
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.body, "pixel_story failed; what lidar_web printed tells why\n");
  EXPECT_THAT(served.Errors(), HasSubstr("failed (1)\npixel_story: /secret\n"));
}

TEST_F(Story, AServerThatCannotTellThemDoesNotStart) {
  std::ostringstream out;
  std::ostringstream err;
  WebOptions options = Options();
  options.source.shm_name = "kerul_no_such_ring";
  options.story_calib.clear();
  EXPECT_EQ(RunWebServer(options, "", true, out, err), 1);
  options = Options();
  options.source.shm_name = "kerul_no_such_ring";
  options.story_program.clear();
  EXPECT_EQ(RunWebServer(options, "/no/such/lidar_web", true, out, err), 1);
  EXPECT_EQ(err.str(),
            "lidar_web: --story needs the node's calibration: --calib or --story-calib\n"
            "lidar_web: --story needs /no/such/pixel_story: No such file or directory\n");
}

}  // namespace
}  // namespace kerul::lidar::web
