#include "sensor_simulator/capture_file.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "support/temp_dir.h"
#include "tools/sensor_simulator/programs.h"

namespace kerul::lidar::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t Word(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

// One's complement sum over whole words: all ones for a header that holds its own checksum.
std::uint32_t OnesSum(const Bytes& bytes, std::size_t first, std::size_t count, std::uint32_t sum) {
  for (std::size_t i = 0; i < count; ++i) {
    sum += i % 2 == 0 ? static_cast<std::uint32_t>(bytes[first + i]) << 8 : bytes[first + i];
    sum = (sum & 0xFFFF) + (sum >> 16);
  }
  return sum;
}

Bytes Payload(std::size_t size) {
  Bytes payload(size);
  for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return payload;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A socket on a free port of all addresses.
class Receiver {
 public:
  Receiver() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("no port to be had");
    }
    socklen_t length = sizeof address;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    const timeval wait{0, 500000};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  }
  ~Receiver() { close(socket_); }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  Bytes Next() {
    Bytes bytes(2000);
    const ssize_t count = recv(socket_, bytes.data(), bytes.size(), 0);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return bytes;
  }
  std::uint16_t port() const { return port_; }

 private:
  int socket_;
  std::uint16_t port_ = 0;
};

TEST(BuildUdpFrame, HeadersAndChecksumsAreSoundForOddAndEvenPayloads) {
  int compared = 0;
  for (const std::size_t size : {0U, 1U, 2U, 691U, 692U, 1472U}) {
    const Bytes payload = Payload(size);
    const Bytes frame = BuildUdpFrame({}, payload, 0x1234);
    ASSERT_EQ(frame.size(), 42 + size);
    EXPECT_EQ(Word(frame, 12), 0x0800U);
    EXPECT_EQ(frame[14], 0x45);
    EXPECT_EQ(Word(frame, 16), 28 + size);
    EXPECT_EQ(Word(frame, 18), 0x1234U);
    EXPECT_EQ(frame[23], 17);
    EXPECT_EQ(Word(frame, 36), 2368U);
    EXPECT_EQ(Word(frame, 38), 8 + size);
    EXPECT_EQ(OnesSum(frame, 14, 20, 0), 0xFFFFU);
    const auto pseudo = static_cast<std::uint32_t>(17 + 8 + size);
    EXPECT_EQ(OnesSum(frame, 34, 8 + size, OnesSum(frame, 26, 8, pseudo)), 0xFFFFU);
    EXPECT_EQ(Bytes(frame.begin() + 42, frame.end()), payload);
    ++compared;
  }
  EXPECT_EQ(compared, 6);
}

TEST(BuildUdpFrame, ADestinationGetsItsEthernetAddress) {
  CaptureEndpoints endpoints;
  EXPECT_EQ(BuildUdpFrame(endpoints, {}, 0)[0], 0xFF);
  endpoints.dest_ip = "239.1.2.3";
  const Bytes group = BuildUdpFrame(endpoints, {}, 0);
  EXPECT_EQ(Bytes(group.begin(), group.begin() + 6), (Bytes{0x01, 0x00, 0x5E, 1, 2, 3}));
  endpoints.dest_ip = "127.0.0.1";
  EXPECT_EQ(BuildUdpFrame(endpoints, {}, 0)[0], 0x00);
}

TEST(BuildUdpFrame, WhatDoesNotFitIsRefused) {
  EXPECT_THROW(BuildUdpFrame({}, Payload(1473), 0), std::invalid_argument);
  CaptureEndpoints endpoints;
  endpoints.source_ip = "sensor";
  EXPECT_THROW(BuildUdpFrame(endpoints, {}, 0), std::invalid_argument);
}

TEST(CaptureWriter, AFileIsAHeaderAndARecordForEachDatagram) {
  const testing::TempDir directory;
  CaptureWriter writer(directory.File("a.pcap"), {});
  writer.Write(1700000000123456ULL, Payload(10));
  writer.Close();
  const Bytes bytes = ReadFile(directory.File("a.pcap"));
  ASSERT_EQ(bytes.size(), 24U + 16U + 52U);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 4), (Bytes{0xD4, 0xC3, 0xB2, 0xA1}));
  const auto little = [&](std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset] | bytes[offset + 1] << 8 |
                                      bytes[offset + 2] << 16) |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
  };
  EXPECT_EQ(little(20), 1U);
  EXPECT_EQ(little(24), 1700000000U);
  EXPECT_EQ(little(28), 123456U);
  EXPECT_EQ(little(32), 52U);
  EXPECT_EQ(little(36), 52U);
}

TEST(CaptureWriter, APathThatCannotBeWrittenIsReported) {
  EXPECT_THROW(CaptureWriter("/nowhere/a.pcap", {}), std::runtime_error);
}

TEST(CaptureWriter, TsharkReadsEveryFrameAndFindsTheChecksumsGood) {
  if (!HasProgram("tshark")) GTEST_SKIP() << "tshark is not installed";
  const testing::TempDir directory;
  const std::string path = directory.File("a.pcap");
  CaptureWriter writer(path, {});
  for (std::uint64_t i = 0; i < 5; ++i) writer.Write(1700000000000000ULL + i, Payload(688 + i));
  writer.Close();
  const CommandResult result = RunCommand(
      "tshark -r " + path +
      " -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE -T fields -E separator=, -e ip.src "
      "-e ip.dst -e udp.dstport -e udp.length -e ip.checksum.status -e udp.checksum.status "
      "2>/dev/null");
  ASSERT_EQ(result.status, 0);
  std::string expected;
  for (int i = 0; i < 5; ++i) {
    expected += "192.168.1.201,255.255.255.255,2368," + std::to_string(696 + i) + ",1,1\n";
  }
  EXPECT_EQ(result.output, expected);
}

TEST(CaptureWriter, TcpreplayBringsTheDatagramsToASocketOnTheLoopbackInterface) {
  if (!HasProgram("tcpreplay")) GTEST_SKIP() << "tcpreplay is not installed";
  const testing::TempDir directory;
  const std::string path = directory.File("a.pcap");
  Receiver receiver;
  CaptureEndpoints endpoints;
  endpoints.dest_port = receiver.port();
  CaptureWriter writer(path, endpoints);
  for (std::uint64_t i = 0; i < 20; ++i) {
    writer.Write(1700000000000000ULL + i * 100, Payload(600 + i));
  }
  writer.Close();
  const CommandResult replay = RunCommand("tcpreplay -q -i lo " + path + " 2>&1");
  if (replay.status != 0) GTEST_SKIP() << "tcpreplay may not send here: " << replay.output;
  for (std::size_t i = 0; i < 20; ++i) ASSERT_EQ(receiver.Next(), Payload(600 + i));
}

}  // namespace
}  // namespace kerul::lidar::simulator
