// Runs a row pass and its reference over copies of random frames, row after row.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/point_compare.h"
#include "support/random_records.h"

namespace kerul::lidar::testing {

struct PassTally {
  int rows = 0;     // miniflash rows compared
  int changed = 0;  // echoes that the pass changed
};

inline int CountChanged(const LidarFrame& frame, const LidarFrame& before) {
  int changed = 0;
  for (std::size_t row = 0; row < frame.points.size(); ++row) {
    for (std::size_t col = 0; col < frame.points[row].size(); ++col) {
      for (int slot = 0; slot < kEchoSlots; ++slot) {
        const LidarEcho& echo = frame.points[row][col].echoes[slot];
        if (!EchoDifference(echo, before.points[row][col].echoes[slot]).empty()) ++changed;
      }
    }
  }
  return changed;
}

// A frame of 1 to 5 miniflash rows, mostly with whole blocks of columns.
inline LidarFrame RandomFrame(RandomRecords& random) {
  const int width = random.Chance(0.2) ? random.Between(1, 80) : 6 * random.Between(1, 30);
  return random.Frame(6 * random.Between(1, 5), width, random.Between(1, 2), random.Style());
}

// node_pass(frame, m_row) and reference_pass(frame, m_row) run on copies of `frame`, row by row as
// the schedule does, at times from a later row back to the first.
template <typename NodePass, typename ReferencePass>
void ComparePass(RandomRecords& random, const LidarFrame& before, const NodePass& node_pass,
                 const ReferencePass& reference_pass, PassTally& tally) {
  LidarFrame frame = before;
  LidarFrame expected = before;
  const int m_rows = before.height / 6;
  const int rounds = random.Chance(0.1) ? 2 : 1;
  for (int run = 0; run < rounds * m_rows; ++run) {
    const int m_row = run % m_rows;
    node_pass(frame, m_row);
    reference_pass(expected, m_row);
    ++tally.rows;
    ASSERT_EQ(FrameDifference(frame, expected), "")
        << "after miniflash row " << m_row << " of " << m_rows << ", width " << before.width
        << ", echoes " << before.echo_num;
  }
  tally.changed += CountChanged(frame, before);
}

}  // namespace kerul::lidar::testing
