#include "lidar_view/packet_input.h"

#include "output/shm_region.h"
#include "sequence_tracker.h"
#include "shm_ring_reader.h"
#include "udp_point_receiver.h"

namespace kerul::lidar::view {
namespace {

class RingInput final : public PacketInput {
 public:
  explicit RingInput(const std::string& shm_name)
      : name_(ShmRegion::NormalizeName(shm_name.c_str())), reader_(name_.c_str()) {
    reader_.SurviveShortening();
  }

  bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) override {
    return reader_.Next(packet, timeout);
  }
  void NoteSequence(std::uint32_t) override {}  // the ring's own numbers tell the loss
  std::uint64_t Lost() const override { return reader_.Statistics().lost; }
  std::uint64_t Restarts() const override { return reader_.Statistics().replaced; }
  std::string Describe() const override {
    const std::string problem = reader_.AttachProblem();
    return "ring " + name_ + (problem.empty() ? "" : " (" + problem + ")");
  }

 private:
  std::string name_;
  ShmRingReader reader_;
};

class UdpInput final : public PacketInput {
 public:
  bool Open(std::uint16_t port, const std::string& group) { return receiver_.Open(port, group); }
  const std::string& Error() const { return receiver_.Error(); }

  bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) override {
    return receiver_.Receive(packet, timeout);
  }
  void NoteSequence(std::uint32_t sequence) override { tracker_.Take(sequence); }
  std::uint64_t Lost() const override { return tracker_.lost; }
  std::uint64_t Restarts() const override { return 0; }
  std::string Describe() const override { return "UDP port " + std::to_string(receiver_.Port()); }

 private:
  UdpPointReceiver receiver_;
  SequenceTracker tracker_;
};

}  // namespace

std::unique_ptr<PacketInput> MakeRingInput(const std::string& shm_name) {
  return std::make_unique<RingInput>(shm_name);
}

std::unique_ptr<PacketInput> MakeUdpInput(std::uint16_t port, const std::string& multicast_group,
                                          std::string& error) {
  auto input = std::make_unique<UdpInput>();
  if (input->Open(port, multicast_group)) return input;
  error = input->Error();
  return nullptr;
}

}  // namespace kerul::lidar::view
