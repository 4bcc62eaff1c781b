// Every vector form of the neighbour validation against the scalar form, record for record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "support/frame_builder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using frame_builder::ExpectSameRecords;
using frame_builder::FillSlot0;
using frame_builder::IsErased;
using frame_builder::MakeRows;
using frame_builder::SetEcho;
using frame_builder::WildContent;

void ValidateInScalarForm(FrameRows& rows, int first_row, int row_count) {
  const ForcedForm scalar(InstructionSet::kScalar);
  ValidateNeighbours(rows, first_row, row_count);
}

class NeighbourLanes : public FormsTest {
 protected:
  // Runs both forms on copies of `rows`; returns what the scalar form gave.
  static FrameRows ExpectLikeScalar(const FrameRows& rows, int first_row, int row_count) {
    FrameRows expected = rows;
    ValidateInScalarForm(expected, first_row, row_count);
    FrameRows got = rows;
    ValidateNeighbours(got, first_row, row_count);
    ExpectSameRecords(expected, got);
    return expected;
  }
};
RUN_IN_EVERY_VECTOR_FORM(NeighbourLanes);

// Few ranges and ratios, on and next to the limits, so that ties and single missing votes abound.
void FillWithTies(FrameRows& rows, std::uint32_t seed) {
  constexpr float kRatios[] = {0.5F, 0.7F, 0.75F, 0.8F, 0.9F, 0.95F, 1.0F, 1.5F, 1.5F, 1.5F};
  std::mt19937 random(seed);
  const auto ranges = static_cast<unsigned>(1 + random() % 12);
  const auto empty_one_in = static_cast<unsigned>(2 + random() % 10);
  for (std::vector<LidarPoint>& line : rows) {
    for (LidarPoint& point : line) {
      for (LidarEcho& echo : point.echoes) {
        const bool empty = random() % empty_one_in == 0;
        const float dist = 10.0F + 0.1F * static_cast<float>(random() % ranges);
        SetEcho(echo, empty ? 0.0F : dist, static_cast<float>(random() % 256),
                kRatios[random() % std::size(kRatios)]);
        echo.afterPulse = random() % 40 == 0;
        echo.ground = random() % 4 == 0;
        echo.change_noise_noise_append = random() % 3 == 0 ? 0.5F : 0.0F;
      }
    }
  }
}

TEST_P(NeighbourLanes, GivesTheScalarRecordsForAnyContent) {
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    const int height = 1 + static_cast<int>(random() % 15);
    const int width = 1 + static_cast<int>(random() % 70);
    FrameRows rows = MakeRows(height, width, seed % 4 == 0 ? 1 : 2);
    WildContent(seed).Fill(rows);
    ExpectLikeScalar(rows, 0, height);
    ExpectLikeScalar(rows, static_cast<int>(random()) % height, 6);
  }
}

TEST_P(NeighbourLanes, GivesTheScalarRecordsForTiesAndVotesAtTheLimit) {
  int kept = 0;
  int erased = 0;
  int filled = 0;
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    FrameRows rows = MakeRows(9, 33 + static_cast<int>(seed), seed % 5 == 0 ? 1 : 2);
    FillWithTies(rows, seed);
    const FrameRows after = ExpectLikeScalar(rows, 1, 7);
    for (std::size_t row = 1; row < 8; ++row) {
      for (std::size_t col = 0; col < rows[row].size(); ++col) {
        if (after[row][col].echoes[0].fill_point) ++filled;
        if (!(rows[row][col].echoes[0].dist_raw > 0.0F)) continue;
        ++(IsErased(after[row][col].echoes[0]) ? erased : kept);
      }
    }
  }
  EXPECT_GT(kept, 1000);
  EXPECT_GT(erased, 1000);
  EXPECT_GT(filled, 100);
}

TEST_P(NeighbourLanes, GivesTheScalarRecordsOnFullRowsOneMiniflashRowAfterAnother) {
  for (std::uint32_t seed = 0; seed < 2; ++seed) {
    FrameRows expected = MakeRows(36, 288);
    if (seed == 0) {
      FillWithTies(expected, 3);
    } else {
      WildContent(7).Fill(expected);
    }
    FrameRows got = expected;
    for (int m_row = 0; m_row < 6; ++m_row) {
      ValidateInScalarForm(expected, 6 * m_row, 6);
      ValidateNeighbours(got, 6 * m_row, 6);
    }
    ExpectSameRecords(expected, got);
  }
}

TEST_P(NeighbourLanes, TakesTheWidestRowsAndLeavesWiderAndRaggedOnesToTheScalarForm) {
  for (const int width : {neighbour::kMaxColumns - 1, neighbour::kMaxColumns,
                          neighbour::kMaxColumns + 1, 2 * neighbour::kMaxColumns}) {
    FrameRows rows = MakeRows(4, width);
    FillWithTies(rows, 11);
    ExpectLikeScalar(rows, 0, 4);
  }
  FrameRows ragged = MakeRows(5, 40);
  FillWithTies(ragged, 12);
  ragged[2].resize(17);
  ragged[4].clear();
  ExpectLikeScalar(ragged, 0, 5);
}

TEST_P(NeighbourLanes, DoesNothingWithoutRowsColumnsOrEchoes) {
  FrameRows none;
  ValidateNeighbours(none, 0, 6);
  FrameRows rows = MakeRows(3, 20);
  FillWithTies(rows, 1);
  FrameRows untouched = rows;
  ValidateNeighbours(untouched, 3, 6);
  ValidateNeighbours(untouched, -6, 6);
  ValidateNeighbours(untouched, 0, 0);
  ExpectSameRecords(rows, untouched);
}

// Each echo of the top row has five neighbours and needs all of them, the first one at its left.
FrameRows MakeChain(float first_ratio) {
  FrameRows rows = MakeRows(2, 288);
  FillSlot0(rows, 10.0F, 20.0F, 0.8F);
  rows[0].front().echoes[0].peak_ratio = first_ratio;
  rows[0].back().echoes[0].peak_ratio = 1.0F;  // three neighbours, needs three
  return rows;
}

TEST_P(NeighbourLanes, CarriesADecisionThroughTheWholeRow) {
  FrameRows falls = MakeChain(0.8F);  // three neighbours of five
  ValidateNeighbours(falls, 0, 1);
  FrameRows holds = MakeChain(1.0F);
  ValidateNeighbours(holds, 0, 1);
  for (std::size_t col = 0; col < 288; ++col) {
    EXPECT_TRUE(IsErased(falls[0][col].echoes[0])) << col;
    EXPECT_EQ(holds[0][col].echoes[0].dist_raw, 10.0F) << col;
  }
}

TEST_P(NeighbourLanes, StillSeesTheRightNeighbourThatIsErasedInTheSameVector) {
  FrameRows rows = MakeRows(3, 40);
  for (std::size_t row = 0; row < 3; ++row) {
    for (const std::size_t col : {0U, 1U, 2U}) SetEcho(rows[row][col].echoes[0], 10.0F, 20.0F);
  }
  LidarPoint& pixel = rows[1][2];
  SetEcho(pixel.echoes[0], 50.0F);                    // alone: erased
  SetEcho(pixel.echoes[1], 10.0F, 20.0F);             // five neighbours, and a sixth to the right
  SetEcho(rows[1][3].echoes[0], 10.0F, 60.0F, 0.5F);  // needs seven, has three: erased
  ValidateNeighbours(rows, 1, 1);
  EXPECT_EQ(pixel.echoes[0].dist_raw, 0.0F);
  EXPECT_TRUE(IsErased(rows[1][3].echoes[0]));
  EXPECT_EQ(pixel.echoes[1].dist_raw, 10.0F);
  // The column and the row take part, in this order.
  float refl = 0.2F * 20.0F;
  refl = refl + 0.125F * 20.0F + 0.125F * 20.0F;
  refl = refl + 0.125F * 20.0F + 0.125F * 60.0F;
  EXPECT_EQ(pixel.echoes[1].refl_proc, refl / (0.2F + 0.25F + 0.25F));
}

}  // namespace
}  // namespace kerul::lidar
