// The stream's two ways in: shared-memory ring or UDP.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "received_packet.h"

namespace kerul::lidar::view {

class PacketInput {
 public:
  virtual ~PacketInput() = default;
  PacketInput() = default;
  PacketInput(const PacketInput&) = delete;
  PacketInput& operator=(const PacketInput&) = delete;

  // Waits up to `timeout` for a packet.
  virtual bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) = 0;
  // Told of each sound point packet's sequence number.
  virtual void NoteSequence(std::uint32_t sequence) = 0;
  virtual std::uint64_t Lost() const = 0;
  // Grows whenever the stream has begun anew: another sender, another ring.
  virtual std::uint64_t Restarts() const = 0;
  // What is being read, and what is wrong with it if nothing comes; for messages.
  virtual std::string Describe() const = 0;
};

std::unique_ptr<PacketInput> MakeRingInput(const std::string& shm_name);
// Null with the reason in `error` when the port cannot be opened.
std::unique_ptr<PacketInput> MakeUdpInput(std::uint16_t port, const std::string& multicast_group,
                                          std::string& error);

}  // namespace kerul::lidar::view
