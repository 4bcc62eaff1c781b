// The row passes, each on a row that has the passes before it behind it.
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

struct Pass {
  std::string name;
  std::function<void(int m_row)> node;
  std::function<void(int m_row)> reference;
};

// The settings as the node took them from its configuration.
std::vector<Pass> Passes(LidarNodeTestAccess access) {
  LidarFrame* frame = &access.frame();
  const float dist_gate = access.config().shot_noise_dist_gate;
  return {
      {"prime", [access](int m_row) mutable { access.Prime(m_row); },
       [=](int m_row) { reference::Prime(*frame, m_row); }},
      {"ground", [access](int m_row) mutable { access.Ground(m_row); },
       [=](int m_row) mutable {
         reference::Ground(*frame, m_row, access.ground_settings(), access.angle_grid());
       }},
      {"neighbours", [access](int m_row) mutable { access.Neighbours(m_row); },
       [=](int m_row) { reference::NeighborMiniflashRow(*frame, m_row); }},
      {"shot_noise", [access](int m_row) mutable { access.ShotNoise(m_row); },
       [=](int m_row) {
         reference::ApplyShotNoiseMiniflashRow(*frame, m_row, frame->width / 6, dist_gate);
       }},
      {"bloom", [access](int m_row) mutable { access.Bloom(m_row); },
       [=](int m_row) mutable {
         reference::SuppressHighReflBlooming(*frame, m_row, access.bloom_calib(),
                                             access.config().blooming_filter_enable);
       }},
      {"order", [access](int m_row) mutable { access.Order(m_row); },
       [=](int m_row) mutable { reference::OrderRowEchoes(*frame, m_row, access.echo_plan()); }},
  };
}

// Rows m_row - 1 .. m_row + 1 as they came out of the calibration.
void RestoreRows(LidarNodeTestAccess access, const std::vector<Points>& rows, int m_row) {
  const int end = std::min(6 * m_row + 12, static_cast<int>(rows.size()));
  for (int row = std::max(6 * m_row - 6, 0); row < end; ++row) {
    access.CopyIntoFrame(rows[static_cast<std::size_t>(row)]);
  }
}

void AddPass(const std::string& name, const std::string& scene, BenchNode& node,
             std::vector<std::function<void(int)>> before, std::function<void(int)> pass) {
  AddKernel(
      name, kOneRow, kFramesPerScene * kMiniflashRows,
      [=, &node](int i) {
        const std::vector<std::vector<Points>>& frames = CalibratedFrames(scene, node);
        const int m_row = i % kMiniflashRows;
        const auto frame = static_cast<std::size_t>(i / kMiniflashRows) % frames.size();
        RestoreRows(node.Access(), frames[frame], m_row);
        for (const auto& earlier : before) earlier(m_row);
      },
      [=](int i) {
        pass(i % kMiniflashRows);
        benchmark::ClobberMemory();
      });
}

}  // namespace

void AddRowPassKernels(BenchNode& node) {
  for (const std::string scene : {"street", "retro", "noise"}) {
    std::vector<std::function<void(int)>> before;
    for (const Pass& pass : Passes(node.Access())) {
      AddPass(pass.name + "/node/" + scene, scene, node, before, pass.node);
      AddPass(pass.name + "/reference/" + scene, scene, node, before, pass.reference);
      before.push_back(pass.node);
    }
  }
  // The kernel alone in each of its forms, on what is usual and with all echoes valid.
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kPlain,
                                   InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (!IsSupported(set)) continue;
    const InstructionSet chosen = ChosenInstructionSet();
    const auto run = [set, chosen, access = node.Access()](int m_row) mutable {
      ForceInstructionSet(set);
      access.Neighbours(m_row);
      ForceInstructionSet(chosen);
    };
    const std::vector<Pass> passes = Passes(node.Access());
    for (const std::string scene : {"street", "full"}) {
      AddPass(std::string("neighbours/") + InstructionSetName(set) + "/" + scene, scene, node,
              {passes[0].node, passes[1].node}, run);
    }
  }
  AddPass("bloom/node/no_source", "plain", node, {}, Passes(node.Access())[4].node);
}

}  // namespace kerul::lidar::bench
