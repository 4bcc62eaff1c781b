#include "MIPI_reader/parser/packet_decoding.h"

#include "MIPI_reader/parser/packet_decoding_scalar.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

// The node tells nobody what it decides. All of it compiles to nothing.
struct NoTeller {
  static void Block(const packet_decoding::BlockWords&) noexcept {}
  static void NoWindow(const packet_decoding::WindowStart&) noexcept {}
};

}  // namespace

int DecodeBlocks(const PacketContext& context, const std::uint8_t* blocks,
                 LidarPoint* points) noexcept {
  const auto compute = [](const EchoSettings& settings, const std::uint16_t* samples,
                          LidarPoint& point,
                          int slot) { ComputeEcho(settings, samples, point, slot); };
  NoTeller nobody;
  int pixel_id = 0;
  for (int i = 0; i < raw_packet::kBlocks; ++i) {
    points[i].ResetEchoes();
    pixel_id =
        DecodeBlock(context, blocks + i * raw_packet::kBlockBytes, points[i], nobody, compute);
  }
  return pixel_id;
}

void StorePacket(const PacketPlanes& planes, LidarPoint* const* places) noexcept {
  using VectorForm = void (*)(const PacketPlanes&, LidarPoint* const*) noexcept;
  static constexpr VectorForms<VectorForm> kForms{StorePacketPlain, StorePacketAvx2,
                                                  StorePacketAvx512};
  kForms.Chosen()(planes, places);
}

}  // namespace kerul::lidar
