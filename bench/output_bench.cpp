// Out of the frame: point packets, the ring; and the datagrams' way in.
#include <memory>

#include "MIPI_reader/parser/point_packet_encoder.h"
#include "kernel_bench.h"
#include "kernel_input.h"
#include "support/loopback.h"

namespace kerul::lidar::bench {
namespace {

constexpr int kIterations = 4 * kMiniflashRows;
constexpr int kBlocksPerRow = kBlocksPerFrame / kMiniflashRows;

// The row as the node forwards it: after all passes.
void PrepareRow(BenchNode& node, int i) {
  LidarNodeTestAccess access = node.Access();
  const std::vector<std::vector<Points>>& frames = CalibratedFrames("street", node);
  const int m_row = i % kMiniflashRows;
  const std::vector<Points>& rows =
      frames[static_cast<std::size_t>(i / kMiniflashRows) % frames.size()];
  for (int row = 6 * m_row; row < 6 * m_row + 6; ++row) {
    access.CopyIntoFrame(rows[static_cast<std::size_t>(row)]);
  }
  access.RunPass(RowPass::kPrime, m_row);
}

// encode(block) for the blocks of a row.
template <typename Encode>
void AddEncode(const std::string& name, BenchNode& node, Encode encode) {
  AddKernel(
      name, kOneRow, kIterations, [&node](int i) { PrepareRow(node, i); },
      [=](int i) mutable {
        const int first = i % kMiniflashRows * kBlocksPerRow;
        for (int block = first; block < first + kBlocksPerRow; ++block) encode(block);
        benchmark::ClobberMemory();
      });
}

void AddEncoders(BenchNode& node) {
  LidarNodeTestAccess access = node.Access();
  auto packet = std::make_shared<UdpPacket>();
  auto tables = std::make_shared<ReferenceTables>(MakeReferenceTables(access));
  for (const int mode : {0, 3, 10, 12}) {
    const std::string input = "mode" + std::to_string(mode);
    AddEncode("encode/node/" + input, node, [=](int block) mutable {
      access.parser().GetPacket_7_10_FromFrame(access.frame().points, 0, *packet, block, 1, mode, 1,
                                               0);
    });
    AddEncode("encode/reference/" + input, node, [=](int block) mutable {
      const reference::PacketRequest request{.echo = 0,
                                             .packet_index = block,
                                             .frame_id = 1,
                                             .output_mode = mode,
                                             .echo_output_code = 1,
                                             .marker = 0};
      reference::EncodePacket(tables->parser, access.frame().points, *packet, request, {});
    });
  }
}

void AddRing(BenchNode& node) {
  auto packet = std::make_shared<std::array<std::uint8_t, point_packet::kBytes>>();
  AddKernel(
      "ring_write/node/249_bytes", kOneRow, 10 * kIterations,
      [=](int i) { packet->fill(static_cast<std::uint8_t>(i)); },
      [=, &node](int) {
        ShmUdpWriter& writer = node.Access().shm_writer();
        for (int block = 0; block < kBlocksPerRow; ++block) {
          writer.WriteOne(packet->data(), static_cast<std::uint16_t>(packet->size()));
        }
      });
}

// One packet in flight: sending is not measured.
void AddReceive() {
  auto link = std::make_shared<LoopbackLink>();
  auto packet = std::make_shared<UdpPacket>();
  AddKernel(
      "recvfrom/node/loopback", 1.0 / kPacketsPerFrame, kPacketsPerFrame,
      [=](int i) { link->Send(FramesOf("street").front()[static_cast<std::size_t>(i)]); },
      [=](int) { link->source().Receive(*packet, kMaxDatagramBytes, 0, 1000); });
}

}  // namespace

void AddOutputKernels(BenchNode& node) {
  AddEncoders(node);
  AddRing(node);
  AddReceive();
}

}  // namespace kerul::lidar::bench
