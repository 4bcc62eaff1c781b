#include <cmath>

#include "reference/numeric.h"
#include "reference/row_filters.h"

namespace reference {
namespace {

constexpr int kGrpADr[4] = {-1, -1, -1, 0};
constexpr int kGrpADc[4] = {-1, 0, 1, -1};
constexpr int kGrpBDr[4] = {1, 1, 1, 0};
constexpr int kGrpBDc[4] = {1, 0, -1, 1};

struct Triple {
  float nd = 0.0F;
  float nr = 0.0F;
  float np = 0.0F;
};

// The echo of the pixel at (row, col) that lies nearest to d.
Triple NearestEcho(const LidarFrame& frame, int row, int col, float d) {
  Triple best;
  if (row < 0 || row >= frame.height || col < 0 || col >= frame.width) return best;
  const LidarPoint& point =
      frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
  bool found = false;
  float best_difference = 0.0F;
  for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
    const LidarEcho& e = point.echoes[slot];
    if (!(e.dist_raw > 0.0F)) continue;
    const float difference = std::fabs(e.dist_raw - d);
    if (found && !(difference < best_difference)) continue;
    found = true;
    best_difference = difference;
    best.nd = e.dist_raw;
    best.nr = e.refl_raw;
    best.np = e.peak_ratio;
  }
  return best;
}

int RequiredSupport(float p) {
  if (p >= 1.0F) return 3;
  if (p >= 0.9F) return 4;
  if (p >= 0.8F) return 5;
  if (p >= 0.7F) return 6;
  return 7;
}

int CountSupport(const Triple* group, float d, float support_gate) {
  int count = 0;
  for (int i = 0; i < 4; ++i) {
    if (group[i].nd > 0.0F && std::fabs(group[i].nd - d) < support_gate) ++count;
  }
  return count;
}

void Erase(LidarEcho& e) {
  e.dist_raw = 0.0F;
  e.refl_raw = 0.0F;
  e.dist_proc = 0.0F;
  e.refl_proc = 0.0F;
}

bool Agrees(const Triple& t, float d, float gate) {
  return t.nd > 0.0F && std::fabs(t.nd - d) < gate;
}

void Smooth(const Triple* a, const Triple* b, float d, float pair_gate, LidarEcho& e) {
  constexpr float kPairWeight[4] = {0.075F, 0.125F, 0.075F, 0.125F};
  const float w0 = e.change_noise_noise_append > 0.0F ? 0.01F : 0.2F;
  float sum_d = w0 * d;
  float sum_r = w0 * e.refl_raw;
  float sum_w = w0;
  for (int i = 0; i < 4; ++i) {
    if (!Agrees(a[i], d, pair_gate) || !Agrees(b[i], d, pair_gate)) continue;
    const float w = kPairWeight[i];
    sum_d += w * a[i].nd;
    sum_d += w * b[i].nd;
    sum_r += w * a[i].nr;
    sum_r += w * b[i].nr;
    sum_w += 2.0F * w;
  }
  e.dist_proc = sum_d / sum_w;
  e.refl_proc = sum_r / sum_w;
}

bool Qualifies(const Triple& t) { return t.nd > 1.0F && t.np > 1.0F; }

void Fill(const Triple* a, const Triple* b, float tolerance, LidarEcho& e) {
  constexpr float kWeightAfterPairs[5] = {0.0F, 0.2F, 0.4F, 0.6F, 0.8F};
  float samples[8];
  int sample_count = 0;
  int pairs = 0;
  float sum_d = 0.0F;
  float sum_r = 0.0F;
  for (int i = 0; i < 4; ++i) {
    if (Qualifies(a[i])) samples[sample_count++] = a[i].nd;
    if (Qualifies(b[i])) samples[sample_count++] = b[i].nd;
    if (!Qualifies(a[i]) || !Qualifies(b[i])) continue;
    sum_d += 0.1F * a[i].nd;
    sum_d += 0.1F * b[i].nd;
    sum_r += 0.1F * a[i].nr;
    sum_r += 0.1F * b[i].nr;
    ++pairs;
  }
  if (sample_count < 4 || pairs < 1) return;
  const float weight = kWeightAfterPairs[pairs];
  const float mean_d = sum_d / weight;
  for (int i = 0; i < sample_count; ++i) {
    if (std::fabs(samples[i] - mean_d) > tolerance) return;
  }
  e.fill_point = true;
  e.dist_proc = mean_d;
  e.refl_proc = sum_r / weight;
}

void ValidateEcho(LidarFrame& frame, int r, int c, int slot) {
  LidarPoint& point = frame.points[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)];
  LidarEcho& e = point.echoes[slot];
  const float d = e.dist_raw;

  if (e.afterPulse) {
    Erase(e);
    return;
  }
  if (slot == 1 && !(d > 0.0F)) return;

  // Gates.
  const float fill_tolerance = Larger(0.03F * d, 0.1F);
  float support_gate = Larger(0.04F * d, 0.4F);
  if (point.echoes[0].ground) support_gate = support_gate * 2.0F;
  const float pair_gate = Larger(0.01F * d, 0.1F);

  // The ring around the pixel.
  Triple a[4];
  Triple b[4];
  for (int i = 0; i < 4; ++i) a[i] = NearestEcho(frame, r + kGrpADr[i], c + kGrpADc[i], d);
  for (int i = 0; i < 4; ++i) b[i] = NearestEcho(frame, r + kGrpBDr[i], c + kGrpBDc[i], d);

  // Keep and smooth, or erase.
  if (d > 0.0F) {
    const int k = CountSupport(a, d, support_gate) + CountSupport(b, d, support_gate);
    if (k >= RequiredSupport(e.peak_ratio)) {
      Smooth(a, b, d, pair_gate, e);
      return;
    }
    Erase(e);
    if (slot == 1) return;
  }

  // A hole, old or new.
  Fill(a, b, fill_tolerance, e);
}

}  // namespace

void NeighborMiniflashRow(LidarFrame& frame, int m_row) {
  for (int r = m_row * 6; r < m_row * 6 + 6; ++r) {
    for (int c = 0; c < frame.width; ++c) {
      for (int slot = 0; slot < LidarPoint::echo_num; ++slot) ValidateEcho(frame, r, c, slot);
    }
  }
}

}  // namespace reference
