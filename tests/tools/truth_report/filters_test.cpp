// What the row passes do to the simulated scenes, with loose bounds: about twice the losses and
// half the misses that ten frames gave (docs/filters.md). They notice a pass that has stopped
// working or begun to do harm, not a figure that moved: here are two frames only, and a scene may
// gain a body.
#include <gtest/gtest.h>

#include "kerul_lidar/point_payload.h"
#include "truth_report/accuracy.h"
#include "truth_report/fates.h"
#include "truth_report/filter_report.h"
#include "truth_report/ground_labels.h"

namespace kerul::lidar::report {
namespace {

using simulator::EchoTruth;
using simulator::ReturnKind;

constexpr std::uint32_t kFrames = 2;

double RemovedShare(const Fate& fate) {
  return static_cast<double>(fate.removed) / static_cast<double>(fate.before);
}

// A truth and what two runs published, all empty to begin with.
struct TwoRuns {
  simulator::SimulatedFrame truth;
  CollectedFrame before;
  CollectedFrame after;

  TwoRuns() {
    truth.truth.resize(std::size_t{kFrameRows} * kFrameCols);
    before.key.output_mode = 12;
    after.key.output_mode = 12;
  }
  EchoTruth& Truth(int echo, int row, int col) {
    return truth
        .truth[static_cast<std::size_t>(row * kFrameCols + col)][static_cast<std::size_t>(echo)];
  }
  static void Publish(CollectedFrame& frame, int echo, int row, int col, std::uint16_t distance,
                      std::uint8_t reflectivity = 50, std::uint8_t flags = 0) {
    frame.points[CollectedFrame::Index(echo, row, col)] = {distance, {reflectivity, flags, 0}};
  }
  FateCounts Count() const {
    FateCounts counts;
    CountFates(truth, before, after, counts);
    return counts;
  }
};

constexpr std::uint8_t kBloomFlag = 0x10;
constexpr std::uint8_t kGroundFlag = 0x40;
constexpr std::uint8_t kFilledFlag = 0x80;

TEST(CountFates, TellsKeptRemovedAndDimmedReturnsApart) {
  TwoRuns runs;
  for (int col = 0; col < 3; ++col) {
    runs.Truth(1, 10, col).kind = ReturnKind::kBloom;
    TwoRuns::Publish(runs.before, 1, 10, col, 1000);
  }
  TwoRuns::Publish(runs.after, 1, 10, 0, 1000);
  TwoRuns::Publish(runs.after, 1, 10, 1, 1000, 49, kBloomFlag);
  const Fate bloom = runs.Count().Of(ReturnKind::kBloom);
  EXPECT_EQ(bloom.before, 3U);
  EXPECT_EQ(bloom.removed, 1U);
  EXPECT_EQ(bloom.dimmed, 1U);
  EXPECT_EQ(bloom.marked, 1U);
  EXPECT_EQ(runs.Count().Surfaces().before, 0U);
}

TEST(CountFates, AFilledReturnIsNoKeptReturnAndIsJudgedByTheSurfaceThere) {
  TwoRuns runs;
  for (int col = 0; col < 3; ++col) {
    TwoRuns::Publish(runs.after, 0, 20, col, 2500, 50, kFilledFlag);  // 10 m
  }
  TwoRuns::Publish(runs.before, 0, 20, 0, 2500);
  runs.Truth(0, 20, 0) = {.range_m = 10.2F, .kind = ReturnKind::kWall};
  runs.Truth(0, 20, 1) = {.range_m = 10.4F, .kind = ReturnKind::kWall};
  const FateCounts counts = runs.Count();
  EXPECT_EQ(counts.Of(ReturnKind::kWall).before, 1U);
  EXPECT_EQ(counts.Of(ReturnKind::kWall).removed, 1U);
  EXPECT_EQ(counts.filled.right, 1U);
  EXPECT_EQ(counts.filled.wrong, 1U);
  EXPECT_EQ(counts.filled.unknown, 1U);
}

TEST(CountFates, NoiseIsIsolatedWhenNoEchoOfANeighbourLiesAtItsRange) {
  TwoRuns runs;
  TwoRuns::Publish(runs.before, 0, 0, 0, 1000);  // 4 m; the gate is 0.4 m
  EXPECT_TRUE(IsIsolated(runs.before, 0, 0, 0));
  TwoRuns::Publish(runs.before, 1, 1, 1, 1101);
  EXPECT_TRUE(IsIsolated(runs.before, 0, 0, 0));
  TwoRuns::Publish(runs.before, 1, 1, 1, 1099);
  EXPECT_FALSE(IsIsolated(runs.before, 0, 0, 0));
  // The pixel's own other echo is no neighbour.
  TwoRuns::Publish(runs.before, 0, 50, 50, 5000);
  TwoRuns::Publish(runs.before, 1, 50, 50, 5000);
  EXPECT_TRUE(IsIsolated(runs.before, 0, 50, 50));
}

TEST(CountGroundLabels, CountsRightAndWrongLabelsByRow) {
  TwoRuns runs;
  for (int col = 0; col < 3; ++col) {
    runs.Truth(0, 45, col) = {.range_m = 4.0F, .kind = ReturnKind::kGround};
    TwoRuns::Publish(runs.after, 0, 45, col, 1001, 20, col == 0 ? kGroundFlag : 0);
  }
  runs.Truth(0, 90, 0).kind = ReturnKind::kWall;
  TwoRuns::Publish(runs.after, 0, 90, 0, 1000, 20, kGroundFlag);
  GroundLabels labels;
  CountGroundLabels(runs.truth, runs.after, labels);
  EXPECT_EQ(labels.bands[2].ground, 3U);
  EXPECT_EQ(labels.bands[2].right, 1U);
  EXPECT_EQ(labels.bands[4].other, 1U);
  EXPECT_EQ(labels.bands[4].wrong, 1U);
  EXPECT_EQ(labels.All().ground, 3U);
  ASSERT_EQ(labels.range_errors_m.size(), 3U);
  EXPECT_NEAR(labels.range_errors_m[0], 0.004, 1e-6);
}

TEST(NeighbourValidationByTruth, RemovesAllIsolatedNoiseAndFewSurfaces) {
  const FateCounts counts =
      MeasurePass("noise", kFrames, DefaultWithoutNeighbours(), kDefaultPasses);
  ASSERT_GT(counts.isolated_noise.before, 10000U);
  EXPECT_EQ(counts.isolated_noise.removed, counts.isolated_noise.before);
  EXPECT_GT(RemovedShare(counts.Of(ReturnKind::kNoise)), 0.999);
  ASSERT_GT(counts.Surfaces().before, 20000U);
  EXPECT_LT(RemovedShare(counts.Surfaces()), 0.025);
  EXPECT_GT(counts.filled.right, 20 * counts.filled.wrong);
}

TEST(ShotNoiseByTruth, RemovesNarrowCrosstalkWhereItIsTheFirstEcho) {
  const FateCounts counts =
      MeasurePass("crosstalk", kFrames, DefaultWithoutShotNoise(), kDefaultPasses);
  ASSERT_GT(counts.first_narrow_crosstalk.before, 5000U);
  EXPECT_GT(RemovedShare(counts.first_narrow_crosstalk), 0.7);
  EXPECT_LT(RemovedShare(counts.Surfaces()), 0.06);
}

TEST(ShotNoiseByTruth, LeavesAStreetAlone) {
  const FateCounts counts =
      MeasurePass("street", kFrames, DefaultWithoutShotNoise(), kDefaultPasses);
  ASSERT_GT(counts.Surfaces().before, 50000U);
  EXPECT_LT(counts.Surfaces().removed, 50U);
}

TEST(BloomByTruth, RemovesOrDimsTheBloomAroundEveryRecognisedReflector) {
  const FateCounts counts = MeasurePass("retro", kFrames, DefaultWithoutBloom(), kDefaultPasses);
  const Fate& bloom = counts.Of(ReturnKind::kBloom);
  const std::size_t within_reach = bloom.before - counts.bloom_without_source;
  ASSERT_GT(within_reach, 500U);
  EXPECT_GT(static_cast<double>(bloom.removed + bloom.dimmed),
            0.9 * static_cast<double>(within_reach));
  EXPECT_GT(static_cast<double>(bloom.removed), 0.3 * static_cast<double>(within_reach));
  EXPECT_LT(RemovedShare(counts.Surfaces()), 0.002);
  EXPECT_EQ(counts.Of(ReturnKind::kRetro).removed, 0U);
}

TEST(GroundByTruth, TheFirstStageLabelsTheFlatHalfAndThePlaneStageAddsToIt) {
  const GroundLabels stage1 = MeasureGround("street", kFrames, kDefaultPasses);
  const GroundLabels plane = MeasureGround("street", kFrames, DefaultWithPlane());
  const auto share = [](std::size_t part, std::size_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
  };
  ASSERT_GT(stage1.bands[2].ground, 5000U);
  EXPECT_GT(share(stage1.bands[2].right, stage1.bands[2].ground), 0.7);
  EXPECT_GT(share(stage1.bands[3].right, stage1.bands[3].ground), 0.8);
  EXPECT_GT(share(plane.bands[2].right, plane.bands[2].ground), 0.97);
  EXPECT_GT(share(plane.bands[3].right, plane.bands[3].ground), 0.97);
  EXPECT_GT(plane.All().right, stage1.All().right);
  EXPECT_LT(share(stage1.All().wrong, stage1.All().other), 0.005);
  EXPECT_LT(share(plane.All().wrong, plane.All().other), 0.03);
  // Drawn to the plane, ranges come nearer to the truth.
  EXPECT_LT(Summarise(plane.range_errors_m).median_abs,
            0.8 * Summarise(stage1.range_errors_m).median_abs);
}

}  // namespace
}  // namespace kerul::lidar::report
