// Whole frames from the node, in five lines: from its ring, by UDP or by a pipe, with what is
// missing.
//
//   kerul::lidar::FrameStream stream;
//   for (;;) {
//     const kerul::lidar::Frame* frame = stream.Next(std::chrono::seconds(1));
//     if (frame != nullptr) Use(*frame);
//   }
//
// A ring and a port never end. While the sensor is silent or the node is away, Next gives null at
// the end of its timeout. When they are back, it gives frames again, also from a restarted node.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "kerul_lidar/frame.h"
#include "kerul_lidar/packet_input.h"

namespace kerul::lidar {

// Since the stream was opened.
struct FrameStreamCounts {
  std::uint64_t complete = 0;        // frames given with all their blocks
  std::uint64_t incomplete = 0;      // frames given with blocks missing
  std::uint64_t missing_frames = 0;  // frame ids passed over
  std::uint64_t packets = 0;         // point packets taken
  std::uint64_t invalid = 0;         // datagrams that are no point packets
  std::uint64_t lost_packets = 0;    // point packets that did not come
  std::uint64_t restarts = 0;        // times another node, or a new ring, went on
};

class FrameStream {
 public:
  // Follows the ring of this name; empty is the node's default. A ring that is not there yet is
  // waited for. kNewest begins at the next packet that is written.
  explicit FrameStream(const std::string& ring_name = "", RingStart start = RingStart::kNewest);

  // Receives on this UDP port instead, and joins the multicast group if one is named. False with
  // the reason in Error(); the stream before goes on then.
  bool OpenUdp(std::uint16_t port, const std::string& multicast_group = "");

  // Reads from this descriptor instead, to its end: point packets one after another, as
  // lidar_replay writes them. The descriptor stays the caller's.
  void OpenPipe(int fd);
  // Lets go of ring, port or pipe. The frame given last and the counts stay; no frame comes any
  // more, and Ended is true.
  void Close();

  // Gives the frames x, y and z, from a calibration directory (directions.h) or from the 78 bytes
  // of an angle record. False with the reason in Error(); the directions before stay then.
  bool LoadDirections(const std::string& calib_dir);
  bool SetAngleRecord(const std::uint8_t* record, std::size_t size);
  // Turns and moves x, y and z by the six numbers of the mounting; its rotation is computed here.
  void SetMount(const TransformParam& mount);

  // Waits up to `timeout` for the next frame. Null when none was closed in that time, or when a
  // signal ended the wait for a datagram. A frame is given when its last block comes, or, with
  // blocks missing, when the next one begins; a first frame that had begun before is passed over.
  // At the end of a pipe the frame in hand is given as it is. Valid until the next call.
  const Frame* Next(std::chrono::milliseconds timeout);
  // A pipe is at its end and its last frame has been given.
  bool Ended() const { return input_->Ended() && !collector_.HasFrameInHand(); }

  // Lets the process outlive that somebody makes the ring's object shorter. A SIGBUS handler does
  // it, so a program has to ask (shm_ring_reader.h); after OpenUdp it means nothing.
  void SurviveShortening() noexcept { input_->SurviveShortening(); }

  const FrameStreamCounts& Counts() const noexcept { return counts_; }
  const std::string& Error() const noexcept { return error_; }
  // What is being read, and whether it is there; for messages.
  std::string Describe() const { return input_->Describe(); }

 private:
  void Follow(std::unique_ptr<PacketInput> input);
  const CollectedFrame* Take(const ReceivedPacket& packet);
  bool Give(const CollectedFrame& collected);

  std::unique_ptr<PacketInput> input_;
  FrameCollector collector_;
  std::optional<Directions> directions_;
  std::optional<TransformParam> mount_;
  Frame frame_;
  FrameStreamCounts counts_;
  std::uint64_t lost_before_ = 0;      // lost packets when the frame before was given
  std::uint64_t restarts_before_ = 0;  // and restarts
  std::string error_;
};

}  // namespace kerul::lidar
