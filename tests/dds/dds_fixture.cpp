#include "dds/dds_fixture.h"

#include <stdexcept>

namespace kerul::lidar::testing {
namespace {

constexpr std::uint32_t kRingBytes = 20 + 16384 * 1508;  // some nine frames

}  // namespace

PretendedNode::PretendedNode(const std::string& ring_name) : name_(ring_name) { Restart(); }

void PretendedNode::Restart() {
  writer_.reset();
  writer_ = std::make_unique<ShmUdpWriter>(name_.c_str(), kRingBytes);
  if (!writer_->Open()) throw std::runtime_error("no ring " + name_);
  published_ = 0;
}

void PretendedNode::PublishFrame() {
  PacketFields fields;
  fields.frame_id = published_ % 256;
  fields.sequence_base = static_cast<std::uint32_t>(1728 * published_);
  fields.seconds += static_cast<std::uint32_t>(published_ / 10);
  fields.mode = 12;
  for (fields.block = 0; fields.block < 1728; ++fields.block) {
    const int row = fields.block / 48;
    fields.microseconds = static_cast<std::uint32_t>(published_ % 10 * 100'000 + 2'500 * row + 7);
    PacketBytes bytes = MakePacket(fields);
    for (std::size_t point = 0; point < 36; ++point) {
      const std::size_t at = 20 + 5 * point;
      const std::uint32_t value = static_cast<std::uint32_t>(random_());
      const std::uint32_t distance = value % 4 == 0 ? 0 : value % 10'000;
      PutLittle(bytes, at, distance, 2);
      PutLittle(bytes, at + 2, value >> 8, 3);
    }
    if (!writer_->WriteOne(bytes.data(), static_cast<std::uint16_t>(bytes.size()))) {
      throw std::runtime_error("packet not written");
    }
  }
  ++published_;
}

void DdsTest::SetUp() {
  if (!isolation_.Fault().empty()) GTEST_SKIP() << isolation_.Fault();
  isolation_.AllowMulticast();
}

std::unique_ptr<ChildProcess> DdsTest::StartBridge(
    const std::vector<std::string>& arguments) const {
  std::vector<std::string> command{KERUL_BINARY_DIR "/tools/lidar_dds"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<ChildProcess>(command, directory_.path());
}

std::unique_ptr<ChildProcess> DdsTest::StartListener(const std::string& topic,
                                                     const std::string& type,
                                                     const std::string& file,
                                                     const std::string& reliability) const {
  const std::vector<std::string> command{
      KERUL_BINARY_DIR "/tests/dds_listener", "0", topic, type, File(file), reliability};
  return std::make_unique<ChildProcess>(command, directory_.path());
}

bool DdsTest::RunDecoder(const std::vector<std::string>& arguments, std::string& output) const {
  std::vector<std::string> command{"node",
                                   KERUL_SOURCE_DIR "/tests/dds/decoder/" + arguments.at(0)};
  command.insert(command.end(), arguments.begin() + 1, arguments.end());
  ChildProcess decoder(command, KERUL_BINARY_DIR "/ros_decoder");
  const bool done = decoder.WaitForExit() == 0;
  output = decoder.Out() + decoder.Err();
  return done;
}

bool AreConnected(ChildProcess& bridge, ChildProcess& listener, int subscribers) {
  return listener.WaitFor(Stream::kOut, "matched") &&
         bridge.WaitFor(Stream::kOut, "subscribers " + std::to_string(subscribers));
}

std::string Summary(int frames, int published, int left_out) {
  return "frames " + std::to_string(frames) + "  published " + std::to_string(published) +
         "  left out " + std::to_string(left_out) + "\n";
}

}  // namespace kerul::lidar::testing
