#include "lidar_record/raw_capture.h"

#include <algorithm>
#include <exception>

#include "MIPI_reader/parser/raw_packet.h"
#include "lidar_record/channels.h"
#include "source/pcap_source.h"

namespace kerul::lidar::record {
namespace {

constexpr int kNoMore = -1;
constexpr int kShortestDatagram = 11;
// Of datagrams that never change their frame id.
constexpr std::size_t kLargestChunk = std::size_t{8} << 20;

bool IsSensors(const UdpPacket& packet, int received) {
  return received >= kShortestDatagram && packet.buffer[0] == 0xEE && packet.buffer[1] == 0xFF;
}

// The frame's number; short datagrams belong to the frame before.
int FrameOf(const UdpPacket& packet, int received, int before) {
  return received > int{raw_packet::kFrameIdOffset} ? packet.buffer[raw_packet::kFrameIdOffset]
                                                    : before;
}

bool AddAll(PcapSource& source, mcap::ChunkBuilder& builder, Recording& recording,
            std::uint64_t& count) {
  UdpPacket packet{};
  mcap::Bytes message;
  int frame = -1;
  while (source.IsOpened()) {
    const int received = source.Receive(packet, sizeof packet.buffer, 0, 0);
    if (received == kNoMore) break;  // also where the file is cut inside a record
    if (!IsSensors(packet, received)) continue;
    const int its_frame = FrameOf(packet, received, frame);
    const bool is_full = its_frame != frame || builder.PlainBytes() >= kLargestChunk;
    if (is_full && !builder.Empty() && !recording.Write(builder.Finish())) return false;
    frame = its_frame;
    MakeRawMessage(packet.buffer, static_cast<std::size_t>(received), message);
    const auto time_ns = static_cast<std::uint64_t>(source.CaptureTimeUs()) * 1000;
    builder.Add({kRawChannel, static_cast<std::uint32_t>(count), time_ns, time_ns}, message);
    ++count;
  }
  return builder.Empty() || recording.Write(builder.Finish());
}

}  // namespace

bool AddRawCapture(const std::string& path, mcap::ChunkBuilder& builder, Recording& recording,
                   std::uint64_t& count, std::string& error) {
  count = 0;
  PcapSource source(path);
  try {
    source.Open();
  } catch (const std::exception& failure) {
    error = failure.what();
    return false;
  }
  if (AddAll(source, builder, recording, count)) return true;
  error = recording.Error();
  return false;
}

}  // namespace kerul::lidar::record
