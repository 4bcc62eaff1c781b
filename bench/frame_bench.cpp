// Points into the frame, the frame's reset, and the doubled frame.
#include <memory>

#include "MIPI_reader/node/frame_end/frame_upsampling.h"
#include "kernel_bench.h"
#include "kernel_input.h"
#include "reference/merge.h"
#include "reference/records.h"

namespace kerul::lidar::bench {
namespace {

constexpr int kWholeFrames = 2 * kFramesPerScene;

// Calibrated points of one batch, ready to be copied.
std::vector<Points> CalibratedBatch(const std::string& scene, BenchNode& node, int i) {
  const std::vector<std::vector<Points>>& parsed = ParsedBatches(scene, node);
  std::vector<Points> batch = parsed[static_cast<std::size_t>(i) % parsed.size()];
  for (Points& points : batch) node.Access().CalibratePoints(points);
  return batch;
}

// A frame whose points keep their raw windows.
LidarFrame FrameWithBins(BenchNode& node, const FramePackets& packets) {
  LidarNodeTestAccess access = node.Access();
  access.parser().keep_bins = true;
  Points points;
  int frame_id = 0;
  for (const RawPacket& packet : packets) {
    access.parser().ParsePacket(MakeDatagram(packet), points, frame_id, access.config().echo_num);
    access.CalibratePoints(points);
    access.CopyIntoFrame(points);
  }
  access.parser().keep_bins = false;
  return access.frame();
}

void AddCopy(BenchNode& node) {
  auto batch = std::make_shared<std::vector<Points>>();
  AddKernel(
      "CopyIntoFrame/node/street", kOneBatch, kFramesPerScene * kBatchesPerFrame,
      [=, &node](int i) { *batch = CalibratedBatch("street", node, i); },
      [=, &node](int) {
        for (const Points& points : *batch) node.Access().CopyIntoFrame(points);
        benchmark::ClobberMemory();
      });
}

void AddResets(BenchNode& node) {
  AddKernel(
      "reset/node/lossless", kWholeFrame, 100,
      [&node](int) {
        // All pixels are overwritten, the order does not matter.
        for (const Points& row : CalibratedFrames("street", node).front()) {
          node.Access().CopyIntoFrame(row);
        }
      },
      [&node](int i) {
        LidarNodeTestAccess access = node.Access();
        for (int m_row = 0; m_row < kMiniflashRows; ++m_row) {
          access.stale_pixels().ResetRows(access.frame(), 6 * m_row - 6, 6 * m_row + 12);
        }
        access.ResetFrame(i % 256);
      });
  AddKernel(
      "reset/node/nothing_came", kWholeFrame, 20, [&node](int) { node.Access().ResetFrame(0); },
      [&node](int) {
        LidarNodeTestAccess access = node.Access();
        access.stale_pixels().ResetRows(access.frame(), 0, access.frame().height);
      });
  AddKernel(
      "reset/reference/both_frames", kWholeFrame, 20, [](int) {},
      [&node](int) {
        reference::ResetFrame(node.Access().frame());
        reference::ResetFrame(node.Access().upsampled_frame());
      });
}

void AddUpsampling(BenchNode& node) {
  auto source = std::make_shared<LidarFrame>();
  const auto prepare = [=, &node](int i) {
    const std::vector<FramePackets>& frames = FramesOf("street");
    *source = FrameWithBins(node, frames[static_cast<std::size_t>(i) % frames.size()]);
  };
  AddKernel("upsampling/node/street", kWholeFrame, kWholeFrames, prepare,
            [=, &node](int) { UpsampleFrame(*source, node.Access().upsampled_frame()); });
  AddKernel("upsampling/reference/street", kWholeFrame, kWholeFrames, prepare,
            [=, &node](int) { reference::Upsample(*source, node.Access().upsampled_frame()); });
}

}  // namespace

void AddFrameKernels(BenchNode& node) {
  AddCopy(node);
  AddResets(node);
  AddUpsampling(node);
}

}  // namespace kerul::lidar::bench
