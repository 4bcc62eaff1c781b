// From the datagram to points.
#include <algorithm>
#include <array>
#include <memory>

#include "MIPI_reader/parser/raw_packet.h"
#include "kernel_bench.h"
#include "kernel_input.h"

namespace kerul::lidar::bench {
namespace {

constexpr int kIterations = kFramesPerScene * kBatchesPerFrame;
using BlockSamples = std::array<std::uint16_t, raw_packet::kSamplesPerBlock>;

const std::uint8_t* BlockOf(const UdpPacket& packet, int block) {
  return packet.buffer + raw_packet::kBlocksOffset + block * raw_packet::kBlockBytes;
}

// A window as the parser hands it to the echo computation.
struct WindowInput {
  BlockSamples samples;
  int first_sample;
  int echo;
  LidarPoint point;
};

// The windows of a batch that are not empty.
std::vector<WindowInput> WindowsOf(const std::vector<UdpPacket>& datagrams,
                                   const std::vector<Points>& parsed) {
  std::vector<WindowInput> windows;
  for (std::size_t packet = 0; packet < datagrams.size(); ++packet) {
    for (int block = 0; block < raw_packet::kBlocks; ++block) {
      WindowInput input{};
      UnpackBlock(BlockOf(datagrams[packet], block), input.samples.data());
      const RawPixel pixel = ReadRawPixel(input.samples.data());
      const LidarPoint& point = parsed[packet][static_cast<std::size_t>(block)];
      for (int slot = 0; slot < kEchoSlots; ++slot) {
        if (pixel.peak_addr[slot] > raw_packet::kMaxPeakAddr) continue;
        input.echo = slot;
        input.first_sample = raw_packet::kWindowSample + raw_packet::kWindowStride * slot;
        input.point = {};
        input.point.shot_ratio = point.shot_ratio;
        input.point.detect_threshold = point.detect_threshold;
        LidarEcho& echo = input.point.echoes[slot];
        echo.peak_addr = pixel.peak_addr[slot];
        echo.noise = static_cast<float>(pixel.noise);
        echo.baseline = 3.0F * (point.shot_times * (echo.noise * 0.00048828125F));
        windows.push_back(input);
      }
    }
  }
  return windows;
}

void AddUnpack(const std::string& scene) {
  auto batch = std::make_shared<std::vector<UdpPacket>>();
  AddKernel(
      "unpack/node/" + scene, kOneBatch, kIterations,
      [=](int i) { *batch = BatchOfDatagrams(scene, i); },
      [=](int) {
        BlockSamples samples;
        for (const UdpPacket& packet : *batch) {
          for (int block = 0; block < raw_packet::kBlocks; ++block) {
            UnpackBlock(BlockOf(packet, block), samples.data());
            benchmark::DoNotOptimize(samples);
          }
        }
      });
}

// parse(datagram, points) for each datagram of a batch; the points' memory is used again.
template <typename Parse>
void AddParse(const std::string& name, const std::string& scene, Parse parse) {
  auto batch = std::make_shared<std::vector<UdpPacket>>();
  auto points = std::make_shared<std::vector<Points>>(kBatchPackets);
  AddKernel(
      name, kOneBatch, kIterations, [=](int i) { *batch = BatchOfDatagrams(scene, i); },
      [=](int) mutable {
        for (std::size_t k = 0; k < batch->size(); ++k) {
          (*points)[k].clear();
          parse((*batch)[k], (*points)[k]);
          benchmark::DoNotOptimize((*points)[k].data());
        }
        benchmark::ClobberMemory();
      });
}

template <typename Compute>
void AddCompute(const std::string& name, const std::string& scene, BenchNode& node,
                Compute compute) {
  auto windows = std::make_shared<std::vector<WindowInput>>();
  AddKernel(
      name, kOneBatch, kIterations,
      [=, &node](int i) {
        const std::vector<std::vector<Points>>& parsed = ParsedBatches(scene, node);
        *windows = WindowsOf(BatchOfDatagrams(scene, i),
                             parsed[static_cast<std::size_t>(i) % parsed.size()]);
      },
      [=](int) mutable {
        for (WindowInput& window : *windows) {
          compute(window.samples.data() + window.first_sample, window.point, window.echo);
        }
        benchmark::ClobberMemory();
      });
}

}  // namespace

void AddParserKernels(BenchNode& node) {
  LidarNodeTestAccess access = node.Access();
  auto tables = std::make_shared<ReferenceTables>(MakeReferenceTables(access));
  const int echo_num = access.config().echo_num;
  AddUnpack("street");
  for (const std::string scene : {"street", "empty", "full"}) {
    AddParse("ParsePacket/node/" + scene, scene,
             [access, echo_num](const UdpPacket& packet, Points& points) mutable {
               int frame_id = 0;
               access.parser().ParsePacket(packet, points, frame_id, echo_num);
             });
    AddParse("ParsePacket/reference/" + scene, scene,
             [tables, echo_num](const UdpPacket& packet, Points& points) {
               int frame_id = 0;
               reference::ParsePacket(tables->parser, packet, points, frame_id, echo_num);
             });
  }
  AddCompute("ComputeEchoData/node/street", "street", node,
             [access](const std::uint16_t* samples, LidarPoint& point, int echo) mutable {
               access.parser().ComputeEchoData(samples, point, echo);
             });
  AddCompute("ComputeEchoData/reference/street", "street", node,
             [tables](const std::uint16_t* samples, LidarPoint& point, int echo) {
               reference::ComputeEcho(tables->parser, samples, point, echo);
             });
}

}  // namespace kerul::lidar::bench
