#include <cmath>
#include <vector>

#include "reference/row_filters.h"

namespace reference {
namespace {

LidarPoint& At(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
}

// The boundary between block k and block k + 1.
bool IsBroken(LidarFrame& frame, int m_row, int k, float dist_gate) {
  int valid = 0;
  int differing = 0;
  for (int row = 6 * m_row; row <= 6 * m_row + 5; ++row) {
    const LidarEcho& left = At(frame, row, 6 * k + 5).echoes[0];
    const LidarEcho& right = At(frame, row, 6 * k + 6).echoes[0];
    const float a = left.dist_proc;
    const float b = right.dist_proc;
    if (!(a > 0.0F) && !(b > 0.0F)) continue;
    if (left.peak > 30.0F && right.peak > 30.0F) continue;
    ++valid;
    if (!(std::fabs(a - b) < dist_gate)) ++differing;
  }
  return valid > 3 && differing >= valid - 1;
}

void EraseFlagged(LidarFrame& frame, int m_row, int k) {
  for (int row = 6 * m_row; row <= 6 * m_row + 5; ++row) {
    for (int col = 6 * k; col <= 6 * k + 5; ++col) {
      for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
        LidarEcho& e = At(frame, row, col).echoes[slot];
        if ((e.cogw_flag & 1) == 0) continue;
        e.shot_noise_group_point = true;
        e.dist_raw = 0.0F;
        e.refl_raw = 0.0F;
        e.dist_proc = 0.0F;
        e.refl_proc = 0.0F;
      }
    }
  }
}

}  // namespace

void ApplyShotNoiseMiniflashRow(LidarFrame& frame, int m_row, int block_columns, float dist_gate) {
  int B = block_columns;
  if (B > frame.width / 6) B = frame.width / 6;
  if (B <= 0) return;

  std::vector<bool> broken(static_cast<std::size_t>(B), false);  // entry k: right of block k
  for (int k = 0; k <= B - 2; ++k) {
    broken[static_cast<std::size_t>(k)] = IsBroken(frame, m_row, k, dist_gate);
  }

  std::vector<bool> suspect(static_cast<std::size_t>(B), false);
  int S = 0;
  for (int k = 0; k <= B - 1; ++k) {
    const bool left_broken = k > 0 && broken[static_cast<std::size_t>(k - 1)];
    const bool right_broken = k < B - 1 && broken[static_cast<std::size_t>(k)];
    if (!left_broken && !right_broken) continue;
    suspect[static_cast<std::size_t>(k)] = true;
    ++S;
  }

  if (S <= 8) return;
  for (int k = 0; k <= B - 1; ++k) {
    if (suspect[static_cast<std::size_t>(k)]) EraseFlagged(frame, m_row, k);
  }
}

}  // namespace reference
