// The five steps that a packet's points go through, each on points after the earlier steps.
#include <functional>
#include <memory>

#include "kernel_bench.h"
#include "kernel_input.h"

namespace kerul::lidar::bench {
namespace {

struct Step {
  std::string name;
  std::function<void(Points&)> node;
  std::function<void(Points&)> reference;
};

std::vector<Step> Steps(LidarNodeTestAccess access) {
  auto tables = std::make_shared<ReferenceTables>(MakeReferenceTables(access));
  return {
      {"environment",
       [access](Points& points) mutable { CompensateEnvironment(access.env_calib(), points); },
       [tables](Points& points) {
         reference::CompensateForEnvironment(tables->environment, points);
       }},
      {"range", [access](Points& points) mutable { CalibrateRange(access.dist_calib(), points); },
       [tables](Points& points) { reference::CorrectRange(tables->range, points); }},
      {"height_map",
       [access](Points& points) mutable {
         MapHighThresholdHeights(access.high_threshold_map(), points);
       },
       [tables](Points& points) { reference::MapHeights(tables->height_map, points); }},
      {"high_reflectivity",
       [access](Points& points) mutable {
         CheckHighReflectivity(access.high_refl_check(), points);
       },
       [tables](Points& points) {
         reference::CheckHighRefl(tables->reflectivity.high_refl_check, points);
       }},
      {"reflectivity",
       [access](Points& points) mutable { access.retro_calib().calib_points(points); },
       [tables](Points& points) {
         reference::CalibrateReflectivity(tables->reflectivity, points);
       }},
  };
}

void AddStep(const std::string& name, const std::string& scene, BenchNode& node,
             std::vector<std::function<void(Points&)>> before, std::function<void(Points&)> step) {
  auto batch = std::make_shared<std::vector<Points>>();
  AddKernel(
      name, kOneBatch, kFramesPerScene * kBatchesPerFrame,
      [=, &node](int i) {
        const std::vector<std::vector<Points>>& parsed = ParsedBatches(scene, node);
        *batch = parsed[static_cast<std::size_t>(i) % parsed.size()];
        for (Points& points : *batch) {
          for (const auto& earlier : before) earlier(points);
        }
      },
      [=](int) {
        for (Points& points : *batch) step(points);
        benchmark::ClobberMemory();
      });
}

}  // namespace

void AddCalibrationKernels(BenchNode& node) {
  LidarNodeTestAccess access = node.Access();
  std::vector<std::function<void(Points&)>> before;
  for (const Step& step : Steps(access)) {
    AddStep("calibrate_" + step.name + "/node/street", "street", node, before, step.node);
    AddStep("calibrate_" + step.name + "/reference/street", "street", node, before, step.reference);
    before.push_back(step.node);
  }
  AddStep("calibrate_all/node/street", "street", node, {},
          [access](Points& points) mutable { access.CalibratePoints(points); });
}

}  // namespace kerul::lidar::bench
