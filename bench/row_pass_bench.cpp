// The row passes, each on a row after the earlier passes.
#include <functional>
#include <memory>

#include "kernel_bench.h"
#include "kernel_input.h"
#include "lanes/instruction_set.h"
#include "reference/bloom.h"
#include "reference/ordering.h"
#include "reference/row_filters.h"

namespace kerul::lidar::bench {
namespace {

// The settings as the node took them from its configuration.
void RunReferencePass(RowPass pass, LidarNodeTestAccess access, int m_row) {
  LidarFrame& frame = access.frame();
  switch (pass) {
    case RowPass::kPrime:
      return reference::Prime(frame, m_row);
    case RowPass::kGround:
      return reference::Ground(frame, m_row, access.ground_settings(), access.angle_grid());
    case RowPass::kNeighbours:
      return reference::NeighborMiniflashRow(frame, m_row);
    case RowPass::kShotNoise:
      return reference::ApplyShotNoiseMiniflashRow(frame, m_row, frame.width / 6,
                                                   access.config().shot_noise_dist_gate);
    case RowPass::kBloom:
      return reference::SuppressHighReflBlooming(frame, m_row, access.bloom_calib(),
                                                 access.config().blooming_filter_enable);
    case RowPass::kOrder:
      return reference::OrderRowEchoes(frame, m_row, access.echo_plan());
  }
}

// Rows m_row - 1 .. m_row + 1 as they came out of the calibration.
void RestoreRows(LidarNodeTestAccess access, const std::vector<Points>& rows, int m_row) {
  const int end = std::min(6 * m_row + 12, static_cast<int>(rows.size()));
  for (int row = std::max(6 * m_row - 6, 0); row < end; ++row) {
    access.CopyIntoFrame(rows[static_cast<std::size_t>(row)]);
  }
}

// `run` on rows that the passes before `pass` have been over.
void AddPass(const std::string& name, const std::string& scene, BenchNode& node, RowPass pass,
             const std::function<void(int m_row)>& run) {
  AddKernel(
      name, kOneRow, kFramesPerScene * kMiniflashRows,
      [=, &node](int i) {
        const std::vector<std::vector<Points>>& frames = CalibratedFrames(scene, node);
        const int m_row = i % kMiniflashRows;
        const auto frame = static_cast<std::size_t>(i / kMiniflashRows) % frames.size();
        RestoreRows(node.Access(), frames[frame], m_row);
        for (const RowPass earlier : kRowPassOrder) {
          if (earlier == pass) break;
          node.Access().RunPass(earlier, m_row);
        }
      },
      [=](int i) {
        run(i % kMiniflashRows);
        benchmark::ClobberMemory();
      });
}

}  // namespace

void AddRowPassKernels(BenchNode& node) {
  const auto node_pass = [&node](RowPass pass) {
    return [=, access = node.Access()](int m_row) mutable { access.RunPass(pass, m_row); };
  };
  for (const std::string scene : {"street", "retro", "noise"}) {
    for (const RowPass pass : kRowPassOrder) {
      const std::string name(RowPassName(pass));
      AddPass(name + "/node/" + scene, scene, node, pass, node_pass(pass));
      AddPass(name + "/reference/" + scene, scene, node, pass,
              [=, &node](int m_row) { RunReferencePass(pass, node.Access(), m_row); });
    }
  }
  // The kernel alone in each of its forms, on what is usual and with all echoes valid.
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kPlain,
                                   InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (!IsSupported(set)) continue;
    const InstructionSet chosen = ChosenInstructionSet();
    const auto run = [set, chosen, pass = node_pass(RowPass::kNeighbours)](int m_row) mutable {
      ForceInstructionSet(set);
      pass(m_row);
      ForceInstructionSet(chosen);
    };
    for (const std::string scene : {"street", "full"}) {
      AddPass(std::string("neighbours/") + InstructionSetName(set) + "/" + scene, scene, node,
              RowPass::kNeighbours, run);
    }
  }
  // On rows as the calibration leaves them.
  AddPass("bloom/node/no_source", "plain", node, RowPass::kPrime, node_pass(RowPass::kBloom));
}

}  // namespace kerul::lidar::bench
