#include <algorithm>
#include <cmath>
#include <vector>

#include "reference/bloom.h"

namespace reference {
namespace {

const LidarEcho& EchoAt(const FrameRows& rows, int row, int col, int echo) {
  return rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[echo];
}

}  // namespace

float DistStdGain(const FrameRows& rows, int first_row, int first_col, int echo,
                  const BloomSuppressCalib& calib) {
  // Valid ranges of the block.
  std::vector<float> values;
  for (int row = first_row; row < first_row + 6; ++row) {
    for (int col = first_col; col < first_col + 6; ++col) {
      const LidarEcho& e = EchoAt(rows, row, col, echo);
      if (e.highRefl) continue;
      if (!(e.cogh < calib.threshold)) continue;
      if (!std::isfinite(e.dist_raw) || !(e.dist_raw > 0.0F)) continue;
      values.push_back(e.dist_raw);
    }
  }
  // Without the two smallest and the two largest.
  if (values.size() >= 5) {
    std::sort(values.begin(), values.end());
    values = std::vector<float>(values.begin() + 2, values.end() - 2);
  }
  // Exactly 10 is deliberately neutral.
  const std::size_t trimmed_n = values.size();
  if (trimmed_n == 0 || trimmed_n == 10) return 1.0F;
  // Mean and variance.
  float sum = 0.0F;
  for (float x : values) sum += x;
  const float mean = sum / static_cast<float>(trimmed_n);
  float squares = 0.0F;
  for (float x : values) squares += (x - mean) * (x - mean);
  const float variance = squares / static_cast<float>(trimmed_n);
  // The wider the spread, the lower the gain.
  if (!(variance > 0.0F)) return 1.5F;
  const float std_dev = std::sqrt(variance);
  if (std_dev <= 0.1F) return 1.5F - 5.0F * std_dev;
  if (std_dev <= 1.0F) return 1.0F - 0.5555556F * (std_dev - 0.1F);
  return 0.5F;
}

namespace {

// What one pair of pixels across an edge adds to the count: -1, 0 or 1.
int EdgeVote(const FrameRows& rows, int height, int width, int echo, int self_row, int self_col,
             int neighbor_row, int neighbor_col, float threshold) {
  if (self_row < 0 || self_row >= height || self_col < 0 || self_col >= width) return 0;
  if (neighbor_row < 0 || neighbor_row >= height) return 0;
  if (neighbor_col < 0 || neighbor_col >= width) return 0;
  const LidarEcho& self = EchoAt(rows, self_row, self_col, echo);
  const LidarEcho& neighbor = EchoAt(rows, neighbor_row, neighbor_col, echo);
  if (!self.highReflBlooming) return 0;
  if (neighbor.highReflBlooming || neighbor.highRefl) return 0;
  if (!std::isfinite(self.dist_raw) || self.dist_raw == 0.0F) return 0;
  if (!std::isfinite(neighbor.dist_raw) || neighbor.dist_raw == 0.0F) return 0;
  return std::fabs(self.dist_raw - neighbor.dist_raw) < threshold ? -1 : 1;
}

}  // namespace

float EdgeNeighborGain(const FrameRows& rows, int height, int width, int first_row, int end_row,
                       int first_col, int echo, float threshold) {
  const int r0 = first_row;
  const int r1 = end_row;
  const int c0 = first_col;
  int count = 0;
  for (int i = 0; i <= 5; ++i) {
    count += EdgeVote(rows, height, width, echo, r0 + i, c0, r0 + i, c0 - 1, threshold);
    count += EdgeVote(rows, height, width, echo, r0 + i, c0 + 5, r0 + i, c0 + 6, threshold);
    count += EdgeVote(rows, height, width, echo, r0, c0 + i, r0 - 1, c0 + i, threshold);
    count += EdgeVote(rows, height, width, echo, r1 - 1, c0 + i, r1, c0 + i, threshold);
  }
  int clamp_count = count;
  if (clamp_count < -6) clamp_count = -6;
  if (clamp_count > 6) clamp_count = 6;
  return 1.0F + 0.1F * static_cast<float>(clamp_count);
}

namespace {

// Running sums over the samples s with their template values t.
struct PatternSums {
  int n = 0;
  float s = 0.0F;
  float t = 0.0F;
  float ss = 0.0F;
  float tt = 0.0F;
  float st = 0.0F;
};

// The 5 x 5 window around the pixel.
PatternSums SumWindow(const LidarFrame& frame, int row, int col, int echo, float d0,
                      const BloomSuppressCalib& calib) {
  PatternSums sum;
  for (int r = row - 2; r <= row + 2; ++r) {
    for (int c = col - 2; c <= col + 2; ++c) {
      if (r < 0 || r >= frame.height || c < 0 || c >= frame.width) continue;
      const LidarEcho& e = EchoAt(frame.points, r, c, echo);
      if (!std::isfinite(e.dist_raw) || e.dist_raw == 0.0F) continue;
      if (!(std::fabs(e.dist_raw - d0) < calib.dist_gate_m)) continue;
      if (!std::isfinite(e.power)) continue;
      const float s = e.power;
      const float t = calib.power_template[r % 6][c % 6];
      ++sum.n;
      sum.s += s;
      sum.t += t;
      sum.ss += s * s;
      sum.tt += t * t;
      sum.st += s * t;
    }
  }
  return sum;
}

}  // namespace

float PatternMatchPower(const LidarFrame& frame, int row, int col, int echo,
                        const BloomSuppressCalib& calib) {
  if (frame.height < 1 || frame.width < 1) return -1.0F;
  if (echo < 0 || echo >= frame.echo_num) return -1.0F;
  // The pixel, clamped into the frame.
  if (row < 0) row = 0;
  if (row > frame.height - 1) row = frame.height - 1;
  if (col < 0) col = 0;
  if (col > frame.width - 1) col = frame.width - 1;
  const float d0 = EchoAt(frame.points, row, col, echo).dist_raw;
  if (!std::isfinite(d0) || d0 == 0.0F) return -1.0F;
  // The samples around it.
  const PatternSums sum = SumWindow(frame, row, col, echo, d0, calib);
  if (sum.n < calib.min_n) return -1.0F;
  // Sums of squares about the means.
  const float n = static_cast<float>(sum.n);
  const float mean_s = sum.s / n;
  const float mean_t = sum.t / n;
  float var_s = sum.ss - n * (mean_s * mean_s);
  float var_t = sum.tt - n * (mean_t * mean_t);
  if (var_s <= 0.0F) var_s = 0.0F;
  if (var_t <= 0.0F) var_t = 0.0F;
  const float denominator = std::sqrt(var_s) * std::sqrt(var_t);
  if (!(denominator > 0.0F)) return -1.0F;
  // Correlation, as a score.
  const float cov = sum.st - (n * mean_s) * mean_t;
  const float r = cov / denominator;
  float score = (r + 1.0F) * 0.5F;
  if (score < 0.0F) score = 0.0F;
  if (score > 1.0F) score = 1.0F;
  return score;
}

}  // namespace reference
