#include "kerul_lidar/packet_input.h"

#include "kerul_lidar/pipe_point_reader.h"
#include "kerul_lidar/sequence_tracker.h"
#include "kerul_lidar/shm_region.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "kerul_lidar/udp_point_receiver.h"

namespace kerul::lidar {
namespace {

class RingInput final : public PacketInput {
 public:
  RingInput(const std::string& shm_name, RingStart start)
      : name_(ShmRegion::NormalizeName(shm_name.c_str())), reader_(name_.c_str(), start) {}

  bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) override {
    return reader_.Next(packet, timeout);
  }
  void SurviveShortening() noexcept override { reader_.SurviveShortening(); }
  void NoteSequence(std::uint32_t) override {}  // the ring's own numbers tell the loss
  std::uint64_t Lost() const override { return reader_.Statistics().lost; }
  std::uint64_t Restarts() const override {
    const std::uint64_t attached = reader_.Statistics().attached;
    return attached == 0 ? 0 : attached - 1;
  }
  std::string Describe() const override {
    const std::string problem = reader_.AttachProblem();
    return "ring " + name_ + (problem.empty() ? "" : " (" + problem + ")");
  }

 private:
  std::string name_;
  ShmRingReader reader_;
};

// A way in that does not number the packets itself.
class SequencedInput : public PacketInput {
 public:
  void NoteSequence(std::uint32_t sequence) final { tracker_.Take(sequence); }
  std::uint64_t Lost() const final { return tracker_.lost; }
  std::uint64_t Restarts() const final { return tracker_.begun_anew; }

 private:
  SequenceTracker tracker_;
};

class UdpInput final : public SequencedInput {
 public:
  bool Open(std::uint16_t port, const std::string& group) { return receiver_.Open(port, group); }
  const std::string& Error() const { return receiver_.Error(); }

  bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) override {
    return receiver_.Receive(packet, timeout);
  }
  std::string Describe() const override { return "UDP port " + std::to_string(receiver_.Port()); }

 private:
  UdpPointReceiver receiver_;
};

class PipeInput final : public SequencedInput {
 public:
  explicit PipeInput(int fd) : reader_(fd) {}
  bool Next(ReceivedPacket& packet, std::chrono::milliseconds timeout) override {
    return reader_.Receive(packet, timeout);
  }
  bool Ended() const override { return reader_.Ended(); }
  std::string Describe() const override { return reader_.Ended() ? "pipe (ended)" : "pipe"; }

 private:
  PipePointReader reader_;
};

}  // namespace

std::unique_ptr<PacketInput> MakeRingInput(const std::string& shm_name, RingStart start) {
  return std::make_unique<RingInput>(shm_name, start);
}

std::unique_ptr<PacketInput> MakeUdpInput(std::uint16_t port, const std::string& multicast_group,
                                          std::string& error) {
  auto input = std::make_unique<UdpInput>();
  if (input->Open(port, multicast_group)) return input;
  error = input->Error();
  return nullptr;
}

std::unique_ptr<PacketInput> MakePipeInput(int fd) { return std::make_unique<PipeInput>(fd); }

}  // namespace kerul::lidar
