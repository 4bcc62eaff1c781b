// Figures and pictures of what each row pass does to the simulated scenes, by the truth.
#pragma once

#include <cstdint>
#include <string>

#include "truth_report/fates.h"
#include "truth_report/ground_labels.h"
#include "truth_report/node_run.h"

namespace kerul::lidar::report {

// Frames 0 to frames - 1 of the scene through two nodes that differ in their passes. Throws what
// scene and node throw.
FateCounts MeasurePass(const std::string& scene, std::uint32_t frames, const Passes& without,
                       const Passes& with);
GroundLabels MeasureGround(const std::string& scene, std::uint32_t frames, const Passes& passes);

// The default passes but for one.
Passes DefaultWithoutNeighbours();
Passes DefaultWithoutShotNoise();
Passes DefaultWithoutBloom();
// The default passes and the second ground stage.
Passes DefaultWithPlane();

// All figures as Markdown.
std::string FilterReport(std::uint32_t frames);

}  // namespace kerul::lidar::report
