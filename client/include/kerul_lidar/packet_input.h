// The stream's ways in: shared-memory ring, UDP or a pipe.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "kerul_lidar/received_packet.h"
#include "kerul_lidar/shm_ring_reader.h"

namespace kerul::lidar {

class PacketInput {
 public:
  virtual ~PacketInput() = default;
  PacketInput() = default;
  PacketInput(const PacketInput&) = delete;
  PacketInput& operator=(const PacketInput&) = delete;

  // Waits up to `timeout` for a packet. False when none came, or when a signal ended the wait.
  virtual bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) = 0;
  // No packet will come any more. A ring and a port never end.
  virtual bool Ended() const { return false; }
  // Keeps the process alive when a ring is made shorter (shm_ring_reader.h); no effect with UDP.
  virtual void SurviveShortening() noexcept {}
  // Takes each sound point packet's sequence number, before Lost and Restarts are asked.
  virtual void NoteSequence(std::uint32_t sequence) = 0;
  // Packets that were sent and did not come.
  virtual std::uint64_t Lost() const = 0;
  // Grows whenever the stream has begun anew: another sender, another ring.
  virtual std::uint64_t Restarts() const = 0;
  // What is being read, and what is wrong with it if nothing comes; for messages.
  virtual std::string Describe() const = 0;
};

// Never fails: a ring that is not there yet is waited for. An empty name is the default ring.
std::unique_ptr<PacketInput> MakeRingInput(const std::string& shm_name,
                                           RingStart start = RingStart::kNewest);
// Null with the reason in `error` when the port cannot be opened.
std::unique_ptr<PacketInput> MakeUdpInput(std::uint16_t port, const std::string& multicast_group,
                                          std::string& error);
// Never fails: a descriptor that cannot be read has ended. It stays the caller's.
std::unique_ptr<PacketInput> MakePipeInput(int fd);

}  // namespace kerul::lidar
