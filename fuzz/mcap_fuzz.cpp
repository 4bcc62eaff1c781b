// The reader of MCAP files and of the clouds in them. The first byte says what the rest is: a whole
// file, the records of a chunk whose CRC is right, or a message.
#include <cmath>
#include <string>
#include <vector>

#include "byte_input.h"
#include "lidar_record/cloud_points.h"
#include "mcap/message_search.h"
#include "mcap/record_bytes.h"
#include "mcap/survey.h"

using namespace kerul::lidar;
using fuzz::Require;

namespace {

constexpr mcap::ReadLimits kLimits{
    .record_bytes = 1 << 20, .plain_bytes = 1 << 20, .description_bytes = 1 << 14};
constexpr std::uint64_t kMessagesLookedAt = 4;

void UseMessage(std::span<const std::uint8_t> message) {
  ros::CloudView cloud;
  std::string error;
  if (!ros::ParseCloud(message, cloud, error)) {
    Require(!error.empty(), "a reason");
    return;
  }
  Require(cloud.data.size() <= message.size(), "points inside the message");
  std::vector<CloudPoint> points;
  if (record::MakePoints(cloud, points, error)) {
    Require(points.size() <= cloud.PointCount(), "no more points than there are");
    for (const CloudPoint& point : points) Require(std::isfinite(point.x), "a place");
  }
  CollectedFrame frame;
  record::MakeFrame(cloud, frame, error);
  Require(frame.key.echoes == 1 || frame.key.echoes == 2, "one or two echoes");
}

void UseFile(std::span<const std::uint8_t> bytes) {
  mcap::MemorySource source(bytes);
  mcap::Survey survey;
  mcap::FileEnd end;
  std::string error;
  if (!mcap::MakeSurvey(source, kLimits, survey, error)) {
    Require(!error.empty(), "a reason");
    Require(!mcap::FindFileEnd(source, end, error), "no file for the other reader either");
    return;
  }
  Require(survey.file_bytes == bytes.size() && survey.unread_bytes < bytes.size(), "its bytes");
  Require(mcap::FindFileEnd(source, end, error), "a file for the other reader too");
  Require(end.finished == survey.finished, "the same end");
  Require(end.whole_chunks == survey.sound_chunks + survey.damaged_chunks, "the same chunks");
  Require(!survey.finished || survey.unread_bytes == 0, "nothing unread of a finished file");
  std::uint64_t counted = 0;
  for (const auto& [channel, count] : survey.message_counts) counted += count;
  Require(counted == survey.messages, "each message in a channel");
  for (std::uint64_t i = 0; i < kMessagesLookedAt; ++i) {
    mcap::FoundMessage message;
    error.clear();
    const mcap::ChannelFilter any = [](const mcap::Schema&, const mcap::Channel&) { return true; };
    if (!mcap::FindMessage(source, kLimits, any, i, message, error)) {
      Require(!error.empty(), "a reason");
      break;
    }
    Require(survey.messages > 0, "a message that was counted");
    UseMessage(message.data);
  }
}

// A file of one chunk with these records.
std::vector<std::uint8_t> FileAround(std::span<const std::uint8_t> records) {
  mcap::Bytes file(mcap::kMagic.begin(), mcap::kMagic.end());
  mcap::Append(mcap::Header{"ros2", ""}, file);
  mcap::AppendHead(
      mcap::ChunkHeader{0, 0, records.size(), mcap::Crc32(0, records), "", records.size()}, file);
  file.insert(file.end(), records.begin(), records.end());
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ByteInput input(data, size);
  const int kind = input.Byte() % 3;
  const std::span<const std::uint8_t> rest = input.Take(input.Left());
  if (kind == 0) UseFile(rest);
  if (kind == 1) UseFile(FileAround(rest));
  if (kind == 2) UseMessage(rest);
  return 0;
}
