// Seeds of mcap_fuzz: small recordings of each compression, their records and a message.
#include <filesystem>
#include <stdexcept>
#include <string>

#include "kerul_lidar/frame.h"
#include "lidar_record/channels.h"
#include "mcap/chunk.h"
#include "mcap/file_writer.h"
#include "mcap/record_bytes.h"
#include "ros_messages/frame_messages.h"
#include "seed_directory.h"

using namespace kerul::lidar;

namespace {

constexpr const char* kProgram = "mcap_fuzz";

// A cloud of 6 x 6 points; every third one has a place.
Bytes SmallCloud() {
  Frame frame;
  for (std::vector<float>* plane : {&frame.x_m, &frame.y_m, &frame.z_m}) {
    plane->assign(frame.range_m.size(), 2.0F);
  }
  for (std::size_t i = 0; i < frame.PointCount(); i += 3) frame.range_m[i] = 4.0F;
  ros::MessageOptions options;
  options.every_row = 36;
  options.every_col = 48;
  Bytes message;
  ros::FrameMessages(options).WriteCloud(frame, message);
  return message;
}

Bytes Recording(const std::filesystem::path& path, mcap::Compression compression,
                const Bytes& message, bool finished) {
  mcap::FileWriter writer;
  mcap::ChunkBuilder builder(compression, 1);
  bool done = writer.Create(path, record::DescribeRecording("lidar/points", true));
  for (std::uint32_t i = 0; i < 2 && done; ++i) {
    builder.Add({record::kCloudChannel, i, 1000 + i, 900 + i}, message);
    if (i == 1) builder.Add({record::kRawChannel, 0, 1000, 1000}, Bytes{0, 1, 0, 0, 1, 0, 0, 0, 9});
    done = writer.Write(builder.Finish());
  }
  if (!done || (finished && !writer.Finish())) throw std::runtime_error("cannot write a recording");
  Bytes bytes = ReadFile(path);
  std::filesystem::remove(path);
  return bytes;
}

}  // namespace

void WriteMcapFiles(const SeedDirectory& seeds) {
  const Bytes message = SmallCloud();
  const std::filesystem::path path = seeds.Root() / "recording.mcap";
  std::filesystem::remove(path);
  for (const mcap::Compression compression :
       {mcap::Compression::kNone, mcap::Compression::kLz4, mcap::Compression::kZstd}) {
    const std::string name =
        compression == mcap::Compression::kNone ? "none" : mcap::CompressionName(compression);
    const Bytes whole = Recording(path, compression, message, true);
    seeds.Write(kProgram, "whole_" + name, Joined({{0}, whole}));
    const Bytes open = Recording(path, compression, message, false);
    seeds.Write(kProgram, "unfinished_" + name, Joined({{0}, open}));
    seeds.Write(kProgram, "cut_" + name, Joined({{0}, Bytes(open.begin(), open.end() - 200)}));
  }
  const mcap::FileDescription description = record::DescribeRecording("lidar/points", true);
  mcap::Bytes records;
  for (const mcap::Schema& schema : description.schemas) mcap::Append(schema, records);
  for (const mcap::Channel& channel : description.channels) mcap::Append(channel, records);
  mcap::Append(mcap::MessageHeader{record::kCloudChannel, 0, 1, 2}, message, records);
  seeds.Write(kProgram, "records", Joined({{1}, records}));
  seeds.Write(kProgram, "cloud", Joined({{2}, message}));
}
