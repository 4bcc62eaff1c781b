// The WebSocket of the running server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "served_ring.h"
#include "web_client.h"

namespace kerul::lidar::web {
namespace {

using ::testing::HasSubstr;

double Double(const Message& message, std::size_t offset) {
  double value = 0.0;
  EXPECT_LE(offset + 8, message.payload.size());
  std::memcpy(&value, message.payload.data() + offset, sizeof value);
  return value;
}

// With a frame that is there.
class LiveStream : public ::testing::Test {
 protected:
  LiveStream() {
    while (Get(served_.Port(), "/healthz").status != 200) served_.PublishFrame();
    PublishAndWait(260);  // so that none of those before is still on its way
  }
  // Publishes a frame of another distance than the one before and waits until the server has it.
  void PublishAndWait(int distance) {
    served_.PublishFrame(distance);
    const std::string millimetres = std::to_string(1000 + distance * 4 % 1000).substr(1);
    const std::string first_point =
        "[[0,0,0," + std::to_string(distance * 4 / 1000) + "." + millimetres + ",";
    const auto has_come = [&] {
      return Get(served_.Port(), "/frame.json").body.find(first_point) != std::string::npos;
    };
    while (!has_come()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  ServedRing served_;
};

TEST_F(LiveStream, GreetsWithShapeAndDirectionsAndKeepsTellingFigures) {
  LiveClient client(served_.Port());
  ASSERT_TRUE(client.IsUp()) << client.Head();
  const Message hello = client.Next();
  EXPECT_EQ(hello.opcode, 1);
  EXPECT_THAT(hello.payload, HasSubstr("{\"type\":\"hello\",\"protocol\":1,"));
  EXPECT_THAT(hello.payload, HasSubstr("\"directions\":\"default camera model\""));
  const Message directions = client.Next();
  EXPECT_EQ(directions.opcode, 2);
  EXPECT_EQ(directions.payload.size(), 746512U);
  EXPECT_EQ(directions.payload[0], 1);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(client.NextText("figures").opcode, 1);
  // Four in two seconds at the latest, without any pull; the limit allows for a busy machine.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(LiveStream, AFirstPullGetsTheNewestFrameAlsoOfASilentNode) {
  LiveClient client(served_.Port());
  client.Pull(1, 77.5);
  const Message frame = client.NextFrame();
  ASSERT_TRUE(frame.IsFrame());
  EXPECT_EQ(frame.payload.size(), 96U + 5 * 62208);
  EXPECT_EQ(Double(frame, 48), 77.5);
  EXPECT_EQ(Double(frame, 16), 1700000000250000.0) << "the packets' own time";
  EXPECT_LE(Double(frame, 24), Double(frame, 32)) << "taken before it was pulled";
  EXPECT_LE(Double(frame, 32), Double(frame, 40)) << "and sent after that";
}

TEST_F(LiveStream, NothingIsSentUnasked) {
  LiveClient client(served_.Port());
  client.Pull();
  ASSERT_TRUE(client.NextFrame().IsFrame());
  for (int i = 0; i < 3; ++i) PublishAndWait(300 + i);
  for (int texts = 0; texts < 3;) {
    const Message message = client.Next();
    EXPECT_FALSE(message.IsFrame());
    if (message.opcode == 1) ++texts;
  }
}

TEST_F(LiveStream, FramesInBetweenArePassedOver) {
  LiveClient client(served_.Port());
  client.Pull();
  const Message first = client.NextFrame();
  for (const int distance : {300, 400, 500}) PublishAndWait(distance);
  client.Pull();
  const Message newest = client.NextFrame();
  EXPECT_EQ(newest.Serial(), first.Serial() + 3);
  std::uint16_t distance = 0;
  std::memcpy(&distance, newest.payload.data() + 96, sizeof distance);
  EXPECT_EQ(distance, 500);
}

TEST_F(LiveStream, APullWaitsForAFrameThatTheClientHasNotHad) {
  LiveClient client(served_.Port());
  client.Pull();
  const std::uint32_t first = client.NextFrame().Serial();
  client.Pull();
  EXPECT_EQ(client.NextText("figures").opcode, 1);  // no frame in the meantime
  PublishAndWait(300);
  EXPECT_EQ(client.NextFrame().Serial(), first + 1);
}

TEST_F(LiveStream, EachClientGetsThePlanesThatItAskedFor) {
  LiveClient plain(served_.Port());
  LiveClient flags(served_.Port());
  for (int i = 0; i < 3; ++i) {
    plain.Pull(0);
    flags.Pull(1);
    const Message few = plain.NextFrame();
    const Message many = flags.NextFrame();
    EXPECT_EQ(few.payload.size(), 96U + 3 * 62208);
    EXPECT_EQ(few.payload[1], 0);
    EXPECT_EQ(many.payload.size(), 96U + 5 * 62208);
    EXPECT_EQ(many.payload[1], 1);
    EXPECT_EQ(few.payload.substr(96), many.payload.substr(96, 3 * 62208));
    PublishAndWait(300 + i);
  }
}

TEST_F(LiveStream, WhatIsNoPullClosesTheConnection) {
  const std::string pull = std::string(1, '\1') + std::string(15, '\0');
  for (const std::string& bytes : {std::string("x"), std::string(), pull + "x",
                                   "\1\2" + pull.substr(2), std::string(100, '\1')}) {
    LiveClient client(served_.Port());
    client.Send(2, bytes);
    EXPECT_EQ(client.NextClose().CloseStatus(), 1008) << bytes.size() << " bytes";
  }
  LiveClient text(served_.Port());
  text.Send(1, pull);
  EXPECT_EQ(text.NextClose().CloseStatus(), 1008) << "text is no pull";
}

TEST_F(LiveStream, ForeignPagesAreRefused) {
  LiveClient foreign(served_.Port(), "http://evil.example");
  EXPECT_FALSE(foreign.IsUp());
  EXPECT_THAT(foreign.Head(), HasSubstr(" 403 "));
  LiveClient own(served_.Port(), "http://127.0.0.1:" + std::to_string(served_.Port()));
  EXPECT_TRUE(own.IsUp());
}

TEST_F(LiveStream, TheHandshakeNeedsPathAndSubprotocol) {
  const auto handshake = [&](const std::string& path, const std::string& protocol) {
    return Get(served_.Port(), path,
               "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
                   protocol)
        .status;
  };
  EXPECT_EQ(handshake("/stream", "Sec-WebSocket-Protocol: kerul-lidar-1\r\n"), 101);
  EXPECT_EQ(handshake("/", "Sec-WebSocket-Protocol: kerul-lidar-1\r\n"), 404);
  EXPECT_EQ(handshake("/stream", "Sec-WebSocket-Protocol: other\r\n"), 400);
  EXPECT_EQ(handshake("/stream", ""), 400);
}

TEST_F(LiveStream, ClientsBeyondTheLimitAreRefused) {
  std::vector<std::unique_ptr<LiveClient>> clients;
  for (int i = 0; i < 32; ++i) {
    clients.push_back(std::make_unique<LiveClient>(served_.Port()));
    ASSERT_TRUE(clients.back()->IsUp()) << i;
    clients.back()->Next();  // so that it counts
  }
  EXPECT_THAT(LiveClient(served_.Port()).Head(), HasSubstr(" 503 "));
}

TEST_F(LiveStream, AClientThatDoesNotReadHoldsNobodyUp) {
  std::vector<std::unique_ptr<LiveClient>> hung;
  for (int i = 0; i < 5; ++i) {
    hung.push_back(std::make_unique<LiveClient>(served_.Port()));
    for (int pull = 0; pull < 200; ++pull) hung.back()->Pull(1);
  }
  LiveClient client(served_.Port());
  std::uint32_t last = 0;
  for (int i = 0; i < 20; ++i) {
    client.Pull(1);
    const std::uint32_t serial = client.NextFrame().Serial();
    EXPECT_GT(serial, last);
    last = serial;
    PublishAndWait(300 + i);
  }
}

TEST_F(LiveStream, AStoppedServerSaysThatItGoes) {
  LiveClient client(served_.Port());
  client.NextText("figures");
  served_.Stop();
  EXPECT_EQ(served_.Status(), 0);
  EXPECT_EQ(client.NextClose().CloseStatus(), 1001);
}

}  // namespace
}  // namespace kerul::lidar::web
