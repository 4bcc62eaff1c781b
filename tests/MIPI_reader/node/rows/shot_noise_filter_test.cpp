#include "MIPI_reader/node/rows/shot_noise_filter.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "support/frame_builder.h"

namespace kerul::lidar {
namespace {

using frame_builder::IsErased;
using frame_builder::MakeRows;
using frame_builder::SetEcho;

constexpr float kGate = 1.0F;
constexpr int kBlocks = 12;

// One miniflash row with the given range in every pixel of each block, all pulses narrow.
FrameRows PaintBlocks(const std::vector<float>& ranges, int height = 6, std::size_t first_row = 0) {
  FrameRows rows = MakeRows(height, static_cast<int>(6 * ranges.size()));
  for (std::size_t row = first_row; row < first_row + 6; ++row) {
    for (std::size_t col = 0; col < rows[row].size(); ++col) {
      for (LidarEcho& echo : rows[row][col].echoes) {
        SetEcho(echo, ranges[col / 6]);
        echo.cogw_flag = 1;
      }
    }
  }
  return rows;
}

// Four single broken boundaries (3|4, 5|6, 7|8, 9|10): eight suspect blocks, one boundary short of
// an effect. The boundary 0|1 is left for the test, which sees its verdict in block 0.
FrameRows EightSuspects() { return PaintBlocks({10, 10, 10, 10, 20, 20, 10, 10, 20, 20, 10, 10}); }

// Ranges on the two sides of the boundary 0|1 in one pixel row.
void SetEdge(FrameRows& rows, std::size_t row, float left, float right) {
  rows[row][5].echoes[0].dist_proc = left;
  rows[row][6].echoes[0].dist_proc = right;
}

bool IsFirstBoundaryBroken(FrameRows rows, float gate = kGate) {
  FilterShotNoise(rows, 0, kBlocks, gate);
  return rows[0][0].echoes[0].shot_noise_group_point;
}

int CountErasedBlocks(const FrameRows& rows) {
  int erased = 0;
  for (std::size_t col = 0; col < rows[0].size(); col += 6) {
    if (rows[0][col].echoes[0].shot_noise_group_point) ++erased;
  }
  return erased;
}

TEST(ShotNoiseFilter, EightSuspectBlocksAreLeftUntouched) {
  FrameRows rows = EightSuspects();
  const FrameRows before = rows;
  FilterShotNoise(rows, 0, kBlocks, kGate);
  frame_builder::ExpectSameRows(rows, before, 0, 6);
}

TEST(ShotNoiseFilter, NineSuspectBlocksLoseTheirFlaggedEchoes) {
  // Broken: 0|1, 1|2 (three blocks), 3|4, 5|6, 7|8 (two each).
  FrameRows rows = PaintBlocks({10, 20, 10, 10, 20, 20, 10, 10, 20, 20, 20, 20});
  FilterShotNoise(rows, 0, kBlocks, kGate);
  EXPECT_EQ(CountErasedBlocks(rows), 9);
  int erased = 0;
  for (const std::vector<LidarPoint>& line : rows) {
    for (std::size_t col = 0; col < line.size(); ++col) {
      for (const LidarEcho& echo : line[col].echoes) {
        const bool suspect = col / 6 <= 8;
        EXPECT_EQ(IsErased(echo), suspect);
        EXPECT_EQ(echo.shot_noise_group_point, suspect);
        EXPECT_FALSE(echo.shot_noise_point);
        if (suspect) ++erased;
      }
    }
  }
  EXPECT_EQ(erased, 9 * 36 * 2);
}

TEST(ShotNoiseFilter, ASingleBrokenBoundaryMakesTwoSuspectBlocks) {
  FrameRows rows = EightSuspects();
  for (std::size_t row = 0; row < 6; ++row) SetEdge(rows, row, 10.0F, 15.0F);
  FilterShotNoise(rows, 0, kBlocks, kGate);
  EXPECT_EQ(CountErasedBlocks(rows), 10);
  EXPECT_TRUE(rows[0][6].echoes[0].shot_noise_group_point);
  EXPECT_FALSE(rows[0][12].echoes[0].shot_noise_group_point);
  EXPECT_FALSE(rows[0][66].echoes[0].shot_noise_group_point);
}

TEST(ShotNoiseFilter, TheLastBlockIsSuspectByItsLeftBoundaryAlone) {
  FrameRows rows = PaintBlocks({10, 10, 20, 20, 10, 10, 20, 20, 10, 10, 10, 20});
  FilterShotNoise(rows, 0, kBlocks, kGate);
  EXPECT_EQ(CountErasedBlocks(rows), 10);
  EXPECT_FALSE(rows[0][0].echoes[0].shot_noise_group_point);
  EXPECT_TRUE(rows[0][66].echoes[0].shot_noise_group_point);
}

TEST(ShotNoiseFilter, ThreeValidRowsNeverBreakABoundary) {
  FrameRows rows = EightSuspects();
  for (std::size_t row = 0; row < 3; ++row) SetEdge(rows, row, 10.0F, 50.0F);
  for (std::size_t row = 3; row < 6; ++row) SetEdge(rows, row, 0.0F, 0.0F);
  EXPECT_FALSE(IsFirstBoundaryBroken(rows));
  SetEdge(rows, 3, 10.0F, 50.0F);
  EXPECT_TRUE(IsFirstBoundaryBroken(rows));
}

TEST(ShotNoiseFilter, OfFourValidRowsThreeHaveToDiffer) {
  for (const std::size_t differing : {2U, 3U, 4U}) {
    FrameRows rows = EightSuspects();
    for (std::size_t row = 0; row < 6; ++row) {
      if (row >= 4) SetEdge(rows, row, -1.0F, std::numeric_limits<float>::quiet_NaN());
      if (row < differing) SetEdge(rows, row, 10.0F, 50.0F);
    }
    EXPECT_EQ(IsFirstBoundaryBroken(rows), differing >= 3);
  }
}

TEST(ShotNoiseFilter, OfSixValidRowsFiveHaveToDiffer) {
  for (const std::size_t differing : {4U, 5U, 6U}) {
    FrameRows rows = EightSuspects();
    for (std::size_t row = 0; row < differing; ++row) SetEdge(rows, row, 10.0F, 50.0F);
    EXPECT_EQ(IsFirstBoundaryBroken(rows), differing >= 5);
  }
}

TEST(ShotNoiseFilter, ADifferenceOfExactlyTheGateCountsAsDiffering) {
  for (const float right :
       {11.0F, std::nextafter(11.0F, 0.0F), 9.0F, std::nextafter(9.0F, 10.0F)}) {
    FrameRows rows = EightSuspects();
    for (std::size_t row = 0; row < 6; ++row) SetEdge(rows, row, 10.0F, right);
    EXPECT_EQ(IsFirstBoundaryBroken(rows), right == 11.0F || right == 9.0F) << right;
  }
}

TEST(ShotNoiseFilter, AnEmptyPixelBesideAFilledOneDiffersFromTheGateOn) {
  for (const float range : {1.0F, std::nextafter(1.0F, 0.0F)}) {
    FrameRows rows = EightSuspects();
    for (std::size_t row = 0; row < 6; ++row)
      SetEdge(rows, row, row % 2 == 0 ? 0.0F : range, row % 2 == 0 ? range : 0.0F);
    EXPECT_EQ(IsFirstBoundaryBroken(rows), range >= kGate);
  }
}

TEST(ShotNoiseFilter, TwoStrongReturnsAreBelievedWhateverTheirRanges) {
  struct Peaks {
    float left;
    float right;
    bool broken;
  };
  const float above = std::nextafter(30.0F, 31.0F);
  const Peaks cases[] = {{above, above, false}, {30.0F, above, true}, {above, 30.0F, true}};
  for (const Peaks& peaks : cases) {
    FrameRows rows = EightSuspects();
    for (std::size_t row = 0; row < 6; ++row) {
      SetEdge(rows, row, 10.0F, row % 2 == 0 ? 0.0F : 50.0F);
      rows[row][5].echoes[0].peak = peaks.left;
      rows[row][6].echoes[0].peak = peaks.right;
    }
    EXPECT_EQ(IsFirstBoundaryBroken(rows), peaks.broken);
  }
}

TEST(ShotNoiseFilter, ANanDifferenceCountsAsDiffering) {
  FrameRows rows = EightSuspects();
  for (std::size_t row = 0; row < 6; ++row) {
    SetEdge(rows, row, 10.0F, std::numeric_limits<float>::quiet_NaN());
  }
  EXPECT_TRUE(IsFirstBoundaryBroken(rows));
}

TEST(ShotNoiseFilter, EchoWithAClearLowestBitSurvivesInASuspectBlock) {
  FrameRows rows = PaintBlocks({10, 20, 10, 20, 10, 20, 10, 20, 10, 20, 10, 20});
  rows[2][7].echoes[0].cogw_flag = 6;
  rows[2][8].echoes[1].cogw_flag = 0x7FFFFFFE;
  rows[2][9].echoes[0].cogw_flag = 7;
  rows[2][10].echoes[0].cogw_flag = -1;
  FilterShotNoise(rows, 0, kBlocks, kGate);
  EXPECT_EQ(rows[2][7].echoes[0].dist_raw, 20.0F);
  EXPECT_EQ(rows[2][7].echoes[0].refl_proc, 10.0F);
  EXPECT_FALSE(rows[2][7].echoes[0].shot_noise_group_point);
  EXPECT_TRUE(IsErased(rows[2][7].echoes[1]));
  EXPECT_EQ(rows[2][8].echoes[1].dist_raw, 20.0F);
  EXPECT_TRUE(IsErased(rows[2][8].echoes[0]));
  EXPECT_TRUE(IsErased(rows[2][9].echoes[0]));
  EXPECT_TRUE(IsErased(rows[2][10].echoes[0]));
}

TEST(ShotNoiseFilter, TheSecondEchoIsNeverConsultedForTheJudgement) {
  FrameRows rows = EightSuspects();
  for (std::size_t row = 0; row < 6; ++row) {
    rows[row][5].echoes[1].dist_proc = 80.0F;
    rows[row][6].echoes[1].dist_proc = 0.0F;
  }
  EXPECT_FALSE(IsFirstBoundaryBroken(rows));
  // Nor do its peaks excuse a difference, nor raw ranges.
  for (std::size_t row = 0; row < 6; ++row) {
    rows[row][5].echoes[1].peak = 99.0F;
    rows[row][6].echoes[1].peak = 99.0F;
    rows[row][6].echoes[0].dist_raw = 10.0F;
    SetEdge(rows, row, 10.0F, 50.0F);
  }
  EXPECT_TRUE(IsFirstBoundaryBroken(rows));
}

TEST(ShotNoiseFilter, WithOneEchoInUseTheSecondSlotStays) {
  FrameRows rows = PaintBlocks({10, 20, 10, 20, 10, 20, 10, 20, 10, 20, 10, 20});
  LidarPoint::echo_num = 1;
  FilterShotNoise(rows, 0, kBlocks, kGate);
  EXPECT_TRUE(IsErased(rows[0][0].echoes[0]));
  EXPECT_EQ(rows[0][0].echoes[1].dist_raw, 10.0F);
  EXPECT_FALSE(rows[0][0].echoes[1].shot_noise_group_point);
}

TEST(ShotNoiseFilter, OnlyItsOwnMiniflashRowIsTouched) {
  FrameRows rows = PaintBlocks({10, 20, 10, 20, 10, 20, 10, 20, 10, 20}, 18, 6);
  for (const std::size_t row : {5U, 12U}) {
    SetEcho(rows[row][0].echoes[0], 10.0F);
    rows[row][0].echoes[0].cogw_flag = 1;
  }
  const FrameRows before = rows;
  FilterShotNoise(rows, 0, 10, kGate);
  FilterShotNoise(rows, 2, 10, kGate);
  frame_builder::ExpectSameRows(rows, before, 0, 18);
  FilterShotNoise(rows, 1, 10, kGate);
  EXPECT_EQ(CountErasedBlocks({rows.begin() + 6, rows.end()}), 10);
  frame_builder::ExpectSameRows(rows, before, 0, 6);
  frame_builder::ExpectSameRows(rows, before, 12, 18);
}

TEST(ShotNoiseFilter, NoBlocksOrOneBlockChangeNothing) {
  FrameRows rows = PaintBlocks({10, 20, 10, 20, 10, 20, 10, 20, 10, 20, 10, 20});
  const FrameRows before = rows;
  for (const int blocks : {-1, 0, 1}) FilterShotNoise(rows, 0, blocks, kGate);
  frame_builder::ExpectSameRows(rows, before, 0, 6);
}

TEST(ShotNoiseFilter, AFrameNarrowerThanItsBlockColumnsIsNotOverrun) {
  // 10 whole blocks and 3 columns of an eleventh; 48 block columns are claimed.
  FrameRows rows = PaintBlocks({10, 20, 10, 20, 10, 20, 10, 20, 10, 20, 10});
  for (std::vector<LidarPoint>& line : rows) {
    line.resize(63);
    line.shrink_to_fit();
  }
  FilterShotNoise(rows, 0, 48, kGate);
  EXPECT_EQ(CountErasedBlocks(rows), 11);
  EXPECT_TRUE(IsErased(rows[5][62].echoes[1]));
}

TEST(ShotNoiseFilter, EmptyGridsAndRowsOutsideTheGridAreHarmless) {
  FrameRows none;
  FilterShotNoise(none, 0, 48, kGate);
  FrameRows no_columns = MakeRows(6, 0);
  FilterShotNoise(no_columns, 0, 48, kGate);

  FrameRows rows = PaintBlocks({10, 20, 10, 20, 10, 20, 10, 20, 10, 20});
  const FrameRows before = rows;
  FilterShotNoise(rows, 1, 10, kGate);
  FilterShotNoise(rows, -1, 10, kGate);
  FilterShotNoise(rows, std::numeric_limits<int>::max(), 10, kGate);
  frame_builder::ExpectSameRows(rows, before, 0, 6);
}

TEST(ShotNoiseFilter, AnyContentStaysInsideTheGrid) {
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    FrameRows rows = MakeRows(9, 64);
    frame_builder::WildContent(seed).Fill(rows);
    const FrameRows before = rows;
    FilterShotNoise(rows, 1, 12, kGate);
    frame_builder::ExpectSameRows(rows, before, 0, 6);
  }
}

}  // namespace
}  // namespace kerul::lidar
